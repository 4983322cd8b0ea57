#ifndef QTAGENT_TESTS_COMPLETIONS_H
#define QTAGENT_TESTS_COMPLETIONS_H

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

// What a chat-completions service sends.

/// Returns the object of a whole answer with one choice. @p toolCalls is left out where it is empty.
inline QJsonObject completion(const QString &content, const QJsonArray &toolCalls = {})
{
    QJsonObject message{{"role", "assistant"}, {"content", content}};
    if (!toolCalls.isEmpty())
        message.insert("tool_calls", toolCalls);
    const QString reason = toolCalls.isEmpty() ? "stop" : "tool_calls";
    return {
        {"object", "chat.completion"},
        {"choices", QJsonArray{QJsonObject{{"index", 0}, {"message", message}, {"finish_reason", reason}}}}};
}

/// Returns the head of a stream that ends with the connection: no length and no chunks.
inline QByteArray eventStreamHead()
{
    return "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";
}

/// Returns the bytes of one stream event that carries @p content: a "data: " line and an empty line.
inline QByteArray deltaEvent(const QString &content)
{
    const QJsonObject choice{{"index", 0}, {"delta", QJsonObject{{"content", content}}}};
    const QJsonObject event{{"object", "chat.completion.chunk"}, {"choices", QJsonArray{choice}}};
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

/// Returns the bytes of a stream's last event.
inline QByteArray doneEvent()
{
    return "data: [DONE]\n\n";
}

#endif
