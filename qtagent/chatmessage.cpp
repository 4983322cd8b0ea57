#include "chatmessage.h"

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

} // namespace QtAgent
} // namespace MireloQtLib
