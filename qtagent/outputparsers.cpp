#include "outputparsers.h"

#include <QJsonDocument>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct ParsedObject
{
    QJsonObject object;
    QString error;
};

QString withoutCodeFence(const QString &text)
{
    const QString fence = QStringLiteral("```");
    if (!text.startsWith(fence))
        return text;
    const auto lineFeed = text.indexOf(QLatin1Char('\n'));
    const auto lastFence = text.lastIndexOf(fence);
    if (lineFeed < 0 || lastFence < lineFeed)
        return text;
    return text.mid(lineFeed + 1, lastFence - lineFeed - 1).trimmed();
}

ParsedObject parsed(const QString &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(withoutCodeFence(text.trimmed()).toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return {{}, error.errorString()};
    if (!document.isObject())
        return {{}, QStringLiteral("JSON root is not an object.")};
    return {document.object(), {}};
}

QJsonObject objectOf(const ParsedObject &result, QString *errorOut)
{
    if (errorOut)
        *errorOut = result.error;
    return result.object;
}

} // namespace

QString StringOutputParser::parse(const QString &text) const
{
    return text.trimmed();
}

JsonOutputParser::JsonOutputParser(const QStringList &requiredFields)
    : m_requiredFields(requiredFields)
{}

void JsonOutputParser::setRequiredFields(const QStringList &fields)
{
    m_requiredFields = fields;
}

QStringList JsonOutputParser::requiredFields() const
{
    return m_requiredFields;
}

QJsonObject JsonOutputParser::parseObject(const QString &text, QString *errorOut)
{
    return objectOf(parsed(text), errorOut);
}

QJsonObject JsonOutputParser::parse(const QString &text, QString *errorOut) const
{
    const ParsedObject result = parsed(text);
    if (!result.error.isEmpty())
        return objectOf(result, errorOut);
    const auto missing =
        std::find_if(m_requiredFields.cbegin(), m_requiredFields.cend(),
                     [&result](const QString &field) { return !result.object.contains(field); });
    if (missing != m_requiredFields.cend())
        return objectOf({{}, QStringLiteral("Missing required field: %1").arg(*missing)}, errorOut);
    return objectOf(result, errorOut);
}

} // namespace QtAgent
} // namespace MireloQtLib
