#ifndef QTAGENT_TESTS_COMPLETIONS_H
#define QTAGENT_TESTS_COMPLETIONS_H

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

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

/// Returns the bytes of one stream event with @p delta: a "data: " line and an empty line.
inline QByteArray streamEvent(const QJsonObject &delta)
{
    const QJsonObject choice{{"index", 0}, {"delta", delta}};
    const QJsonObject event{{"object", "chat.completion.chunk"}, {"choices", QJsonArray{choice}}};
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

/// Returns the bytes of one stream event that carries @p content.
inline QByteArray deltaEvent(const QString &content)
{
    return streamEvent({{"content", content}});
}

/// Returns the bytes of the events that carry @p toolCalls, the arguments of each in two pieces.
inline QVector<QByteArray> callEvents(const QJsonArray &toolCalls)
{
    QVector<QByteArray> events;
    for (int index = 0; index < toolCalls.size(); ++index) {
        QJsonObject call = toolCalls.at(index).toObject();
        QJsonObject function = call["function"].toObject();
        const QString arguments = function["arguments"].toString();
        function["arguments"] = arguments.left(1);
        call["function"] = function;
        call["index"] = index;
        events.append(streamEvent({{"tool_calls", QJsonArray{call}}}));
        const QJsonObject rest{{"index", index}, {"function", QJsonObject{{"arguments", arguments.mid(1)}}}};
        events.append(streamEvent({{"tool_calls", QJsonArray{rest}}}));
    }
    return events;
}

/// Returns the bytes of a stream's last event.
inline QByteArray doneEvent()
{
    return "data: [DONE]\n\n";
}

#endif
