#ifndef MIRELOQTLIB_QTAGENT_PLAINTEXT_P_H
#define MIRELOQTLIB_QTAGENT_PLAINTEXT_P_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Returns @p text on one line: every line break, tab and other control character becomes a blank.
QString singleLine(QString text);

/// Returns @p text with "\n" in place of each "\r\n" and "\r".
QString withLineFeeds(QString text);

/// Returns the first @p maximum characters of @p text, at most, and "…" where more follow. No character is
/// cut in two, neither one outside the basic plane nor one with its accents.
QString cutText(const QString &text, int maximum);

/// Returns a tool tip that shows @p text as it stands, wrapped and cut to a readable length.
QString plainToolTip(const QString &text);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
