#ifndef MIRELOQTLIB_QTAGENT_PLAINWORDS_P_H
#define MIRELOQTLIB_QTAGENT_PLAINWORDS_P_H

#include <QString>

#include <optional>

namespace MireloQtLib {
namespace QtAgent {

/// Returns what has to be added to the end of a rendered block, of whose Markdown the first @p shown
/// characters were read, so that it looks as if all of @p block had been read.
///
/// That is known where words follow words on one line: letters neither begin nor end any markup. It saves
/// reading a paragraph anew for each word of it. Returns nothing where reading is necessary.
std::optional<QString> plainWords(const QString &block, int shown);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
