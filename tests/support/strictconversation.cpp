#include "strictconversation.h"

#include <QJsonDocument>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

bool isBlankOrObject(const QString &text)
{
    return text.trimmed().isEmpty() || QJsonDocument::fromJson(text.toUtf8()).isObject();
}

QString callFault(const QJsonObject &call)
{
    const QJsonObject function = call["function"].toObject();
    if (call["id"].toString().isEmpty())
        return "a call without an id";
    if (function["name"].toString().isEmpty())
        return "a call without a name";
    if (call["type"].toString() != "function")
        return "a call that is no function";
    if (!function["arguments"].isString())
        return "arguments that are no text";
    if (!isBlankOrObject(function["arguments"].toString()))
        return "arguments that are no object";
    return {};
}

// Reads the messages one after the other.
class StrictReader
{
public:
    QString fault(const QJsonObject &message)
    {
        const QString role = message["role"].toString();
        if (!message["content"].isString())
            return "a content that is no text";
        if (!m_openCalls.isEmpty() && role != "tool")
            return "a call without a result";
        const QString result = role == "system"    ? systemFault()
                             : role == "user"      ? QString()
                             : role == "assistant" ? answerFault(message)
                             : role == "tool"      ? resultFault(message)
                                                   : QString("an unknown role");
        m_lastRole = role;
        return result;
    }

    QString faultAtTheEnd() const { return m_openCalls.isEmpty() ? QString() : "a call without a result"; }

    QString lastRole() const { return m_lastRole; }

private:
    QString systemFault() const { return m_lastRole.isEmpty() ? QString() : "a late instruction"; }

    QString answerFault(const QJsonObject &message)
    {
        if (m_lastRole != "user" && m_lastRole != "tool")
            return "an answer to no question";
        if (message.contains("tool_calls") && message["tool_calls"].toArray().isEmpty())
            return "an empty list of calls";
        for (const QJsonValue &call : message["tool_calls"].toArray()) {
            const QString fault = callFault(call.toObject());
            if (!fault.isEmpty())
                return fault;
            m_openCalls.append(call["id"].toString());
        }
        return {};
    }

    QString resultFault(const QJsonObject &message)
    {
        if (m_openCalls.isEmpty() || m_openCalls.first() != message["tool_call_id"].toString())
            return "a result of no call";
        m_openCalls.removeFirst();
        return {};
    }

    QString m_lastRole;
    QStringList m_openCalls;
};

bool isEcho(const QJsonObject &call, const QJsonObject &sent)
{
    QJsonObject expected = sent;
    if (sent["id"].toString().isEmpty())
        expected.insert("id", call["id"]);
    if (!sent.contains("type"))
        expected.insert("type", "function");
    QJsonObject function = sent["function"].toObject();
    const QJsonValue arguments = function["arguments"];
    if (!arguments.isString() || !isBlankOrObject(arguments.toString())) {
        const QByteArray text = QJsonDocument(arguments.toObject()).toJson(QJsonDocument::Compact);
        function.insert("arguments", QString::fromUtf8(text));
        expected.insert("function", function);
    }
    return call == expected;
}

bool areEchoes(const QJsonArray &calls, const QJsonArray &sent)
{
    return std::equal(calls.begin(), calls.end(), sent.begin(), sent.end(),
                      [](const QJsonValue &call, const QJsonValue &sentCall) {
                          return isEcho(call.toObject(), sentCall.toObject());
                      });
}

} // namespace

QString strictFault(const QJsonArray &messages)
{
    StrictReader reader;
    for (const QJsonValue &message : messages) {
        const QString fault = reader.fault(message.toObject());
        if (!fault.isEmpty())
            return fault;
    }
    return reader.faultAtTheEnd();
}

QString strictRequestFault(const QJsonArray &messages, const QVector<QJsonArray> &sentCalls)
{
    const QString fault = strictFault(messages);
    if (!fault.isEmpty())
        return fault;
    const QString lastRole = messages.last()["role"].toString();
    if (lastRole != "user" && lastRole != "tool")
        return "nothing to answer";
    for (const QJsonValue &message : messages) {
        const QJsonArray calls = message["tool_calls"].toArray();
        const bool wereSent =
            std::any_of(sentCalls.cbegin(), sentCalls.cend(),
                        [&calls](const QJsonArray &sent) { return areEchoes(calls, sent); });
        if (!calls.isEmpty() && !wereSent)
            return "calls that were not sent";
    }
    return {};
}

QJsonArray jsonOf(const QVector<ChatMessage> &messages)
{
    QJsonArray array;
    for (const ChatMessage &message : messages)
        array.append(messageToJson(message));
    return array;
}

ChatReply *StrictModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                             QObject *parent)
{
    // It may take itself away.
    const std::function<void()> callBack = onRequest;
    if (callBack)
        callBack();
    const QString fault = strictRequestFault(jsonOf(messages), m_sentCalls);
    if (!fault.isEmpty()) {
        m_faults.append(fault);
        return ChatReply::failLater("refused: " + fault, parent ? parent : this);
    }
    ChatReply *reply = HeldModel::chat(messages, tools, parent);
    connect(reply, &ChatReply::responseReceived, this,
            [this, reply] { m_sentCalls.append(reply->toolCalls()); });
    return reply;
}
