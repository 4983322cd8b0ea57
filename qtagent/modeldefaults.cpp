#include "modeldefaults.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool isDeepSeek(const QString &provider)
{
    return provider == QLatin1String("deepseek");
}

} // namespace

QString defaultBaseUrl(const QString &provider)
{
    return isDeepSeek(provider) ? QStringLiteral("https://api.deepseek.com")
                                : QStringLiteral("https://api.openai.com/v1");
}

QString defaultModelName(const QString &provider)
{
    return isDeepSeek(provider) ? QStringLiteral("deepseek-v4-flash") : QStringLiteral("gpt-4.1-mini");
}

} // namespace QtAgent
} // namespace MireloQtLib
