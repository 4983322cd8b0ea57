#include "reasoningmemory_p.h"

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int largestNumberOfRounds = 1000;

// What a host has kept itself, for example with the conversation in a file.
QJsonObject fieldsIn(const QJsonObject &metadata)
{
    QJsonObject fields;
    for (const QString &key : {QStringLiteral("reasoning_content"), QStringLiteral("reasoning")}) {
        if (metadata.value(key).isString())
            fields.insert(key, metadata.value(key));
    }
    const QString details = QStringLiteral("reasoning_details");
    if (metadata.value(details).isArray())
        fields.insert(details, metadata.value(details));
    return fields;
}

} // namespace

void ReasoningMemory::remember(const QUrl &url, const QJsonArray &calls, const QJsonObject &fields)
{
    Round round = roundOf(url, calls);
    round.fields = fields;
    m_rounds.append(round);
    if (m_rounds.size() > largestNumberOfRounds)
        m_rounds.removeFirst();
}

void ReasoningMemory::rememberKeys(const QUrl &url, const QStringList &keys)
{
    if (!keys.isEmpty())
        m_keys.insert(url, keys.first());
}

QJsonArray ReasoningMemory::toJson(const QUrl &url, const QVector<ChatMessage> &messages) const
{
    QJsonArray array;
    for (const ChatMessage &message : messages) {
        QJsonObject json = messageToJson(message);
        if (!message.toolCalls.isEmpty()) {
            const QJsonObject fields = fieldsFor(url, message);
            for (auto field = fields.begin(); field != fields.end(); ++field)
                json.insert(field.key(), field.value());
        }
        array.append(json);
    }
    return array;
}

// Where a service has sent the key before, it wants the key with every answer that has calls.
QJsonObject ReasoningMemory::fieldsFor(const QUrl &url, const ChatMessage &message) const
{
    QJsonObject fields = fieldsIn(message.metadata);
    if (!fields.isEmpty())
        return fields;
    const Round wanted = roundOf(url, message.toolCalls);
    const auto round = std::find_if(m_rounds.crbegin(), m_rounds.crend(),
                                    [&wanted](const Round &other) { return isSame(wanted, other); });
    if (round != m_rounds.crend())
        fields = round->fields;
    const QString key = m_keys.value(url);
    if (fields.isEmpty() && !key.isEmpty())
        fields.insert(key, QString(QLatin1String("")));
    return fields;
}

ReasoningMemory::Round ReasoningMemory::roundOf(const QUrl &url, const QJsonArray &calls)
{
    Round round;
    round.url = url;
    round.hash = qHash(url);
    for (const QJsonValue &value : calls) {
        const QJsonObject call = value.toObject();
        const QJsonObject function = call.value(QLatin1String("function")).toObject();
        round.calls.append({call.value(QLatin1String("id")).toString(),
                            function.value(QLatin1String("name")).toString(),
                            function.value(QLatin1String("arguments")).toString()});
        round.hash = round.hash * 31 + qHash(round.calls.last().arguments);
    }
    return round;
}

bool ReasoningMemory::isSame(const Round &left, const Round &right)
{
    return left.hash == right.hash && left.url == right.url && left.calls.size() == right.calls.size()
        && std::equal(left.calls.begin(), left.calls.end(), right.calls.begin(), &isSameCall);
}

bool ReasoningMemory::isSameCall(const Call &left, const Call &right)
{
    const bool mayBeSameId = left.id.isEmpty() || right.id.isEmpty() || left.id == right.id;
    return mayBeSameId && left.name == right.name && left.arguments == right.arguments;
}

} // namespace QtAgent
} // namespace MireloQtLib
