#include "messagejson.h"

#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

QJsonObject messageToJson(const ChatMessage &message)
{
    QJsonObject json{{QStringLiteral("role"), message.role}};
    if (!message.content.isNull())
        json.insert(QStringLiteral("content"), message.content);
    if (!message.name.isEmpty())
        json.insert(QStringLiteral("name"), message.name);
    if (!message.toolCallId.isEmpty())
        json.insert(QStringLiteral("tool_call_id"), message.toolCallId);
    if (!message.toolCalls.isEmpty())
        json.insert(QStringLiteral("tool_calls"), message.toolCalls);
    return json;
}

QJsonObject toolDefinitionToJson(const ToolDefinition &definition)
{
    const QJsonObject function{
        {QStringLiteral("name"), definition.name},
        {QStringLiteral("description"), definition.description},
        {QStringLiteral("parameters"), definition.parameters},
    };
    return {
        {QStringLiteral("type"), QStringLiteral("function")},
        {QStringLiteral("function"), function},
    };
}

QJsonObject makeToolCall(const QString &id, const QString &name, const QJsonObject &arguments)
{
    const QByteArray argumentsText = QJsonDocument(arguments).toJson(QJsonDocument::Compact);
    const QJsonObject function{
        {QStringLiteral("name"), name},
        {QStringLiteral("arguments"), QString::fromUtf8(argumentsText)},
    };
    return {
        {QStringLiteral("id"), id},
        {QStringLiteral("type"), QStringLiteral("function")},
        {QStringLiteral("function"), function},
    };
}

} // namespace QtAgent
} // namespace MireloQtLib
