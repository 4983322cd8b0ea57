#ifndef MIRELOQTLIB_QTAGENT_CODESOURCE_P_H
#define MIRELOQTLIB_QTAGENT_CODESOURCE_P_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

struct RichText;

/// Returns the code within the fence that begins at @p position of @p source, as it stands there, without
/// the fences and without the indentation of the opening one.
QString codeInFence(const QString &source, int position);

/// Returns the code with the number @p index in the rendered @p text of a list or a quote, as it stands in
/// its @p source: with the empty lines and the odd characters that are not shown.
QString codeInText(const RichText &text, const QString &source, int index);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
