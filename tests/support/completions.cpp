#include "completions.h"

#include <QJsonDocument>

QJsonObject completion(const QString &content, const QJsonArray &toolCalls)
{
    QJsonObject message{{"role", "assistant"}, {"content", content}};
    if (!toolCalls.isEmpty())
        message.insert("tool_calls", toolCalls);
    const QString reason = toolCalls.isEmpty() ? "stop" : "tool_calls";
    return {
        {"object", "chat.completion"},
        {"choices", QJsonArray{QJsonObject{{"index", 0}, {"message", message}, {"finish_reason", reason}}}}};
}

QByteArray deltaEvent(const QString &content)
{
    const QJsonObject choice{{"index", 0}, {"delta", QJsonObject{{"content", content}}}};
    const QJsonObject event{{"object", "chat.completion.chunk"}, {"choices", QJsonArray{choice}}};
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

QByteArray doneEvent()
{
    return "data: [DONE]\n\n";
}
