#ifndef MIRELOQTLIB_QTAGENT_MODELDEFAULTS_H
#define MIRELOQTLIB_QTAGENT_MODELDEFAULTS_H

#include <qtagent/qtagent_export.h>

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Returns "https://api.deepseek.com" for "deepseek" and "https://api.openai.com/v1" for every other
/// provider.
QTAGENT_EXPORT QString defaultBaseUrl(const QString &provider);

/// Returns "deepseek-v4-flash" for "deepseek" and "gpt-4.1-mini" for every other provider.
QTAGENT_EXPORT QString defaultModelName(const QString &provider);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
