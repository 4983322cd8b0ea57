#include "chatmessage.h"

#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

ChatMessage messageOf(const QString &role, const QString &content)
{
    ChatMessage message;
    message.role = role;
    message.content = content;
    return message;
}

} // namespace

bool operator==(const ChatMessage &left, const ChatMessage &right)
{
    return left.role == right.role && left.content == right.content && left.name == right.name
        && left.metadata == right.metadata && left.toolCalls == right.toolCalls
        && left.toolCallId == right.toolCallId;
}

bool operator==(const ToolDefinition &left, const ToolDefinition &right)
{
    return left.name == right.name && left.description == right.description
        && left.parameters == right.parameters && left.permission == right.permission;
}

ChatMessage ChatMessage::system(const QString &content)
{
    return messageOf(QStringLiteral("system"), content);
}

ChatMessage ChatMessage::user(const QString &content)
{
    return messageOf(QStringLiteral("user"), content);
}

ChatMessage ChatMessage::assistant(const QString &content, const QJsonArray &toolCalls)
{
    ChatMessage message = messageOf(QStringLiteral("assistant"), content);
    message.toolCalls = toolCalls;
    return message;
}

ChatMessage ChatMessage::tool(const QString &toolCallId, const QString &name, const QString &content)
{
    ChatMessage message = messageOf(QStringLiteral("tool"), content);
    message.name = name;
    message.toolCallId = toolCallId;
    return message;
}

QString permissionToString(ToolPermission permission)
{
    switch (permission) {
    case ToolPermission::ReadOnly:
        return QStringLiteral("ReadOnly");
    case ToolPermission::Write:
        return QStringLiteral("Write");
    case ToolPermission::Destructive:
        return QStringLiteral("Destructive");
    case ToolPermission::ExternalNetwork:
        return QStringLiteral("ExternalNetwork");
    case ToolPermission::FileSystem:
        return QStringLiteral("FileSystem");
    case ToolPermission::SystemCommand:
        return QStringLiteral("SystemCommand");
    }
    return QStringLiteral("Unknown");
}

bool requiresApproval(ToolPermission permission)
{
    return permission != ToolPermission::ReadOnly;
}

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
