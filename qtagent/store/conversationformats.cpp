#include "conversationformats_p.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QString timeText(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

QDateTime timeOf(const QJsonValue &value)
{
    return QDateTime::fromString(value.toString(), Qt::ISODateWithMs).toUTC();
}

// Numbers beyond this are not exact in JSON.
qint64 tokensOf(const QJsonValue &value)
{
    constexpr double limit = 9007199254740992.0;
    const double number = value.toDouble(-1);
    return number >= 0 && number < limit && std::floor(number) == number ? static_cast<qint64>(number) : -1;
}

QJsonObject objectOf(const StoredMessage &stored)
{
    const ChatMessage &message = stored.message;
    QJsonObject json{
        {QStringLiteral("role"), message.role},
        {QStringLiteral("name"), message.name},
        {QStringLiteral("metadata"), message.metadata},
        {QStringLiteral("toolCalls"), message.toolCalls},
        {QStringLiteral("toolCallId"), message.toolCallId},
        {QStringLiteral("time"), timeText(stored.time)},
        {QStringLiteral("model"), stored.model},
        {QStringLiteral("promptTokens"), stored.promptTokens},
        {QStringLiteral("completionTokens"), stored.completionTokens},
    };
    if (!message.content.isNull())
        json.insert(QStringLiteral("content"), message.content);
    return json;
}

StoredMessage messageOf(const QJsonObject &json)
{
    StoredMessage stored;
    stored.message.role = json.value(QLatin1String("role")).toString();
    stored.message.content = json.value(QLatin1String("content")).toString();
    stored.message.name = json.value(QLatin1String("name")).toString();
    stored.message.metadata = json.value(QLatin1String("metadata")).toObject();
    stored.message.toolCalls = json.value(QLatin1String("toolCalls")).toArray();
    stored.message.toolCallId = json.value(QLatin1String("toolCallId")).toString();
    stored.time = timeOf(json.value(QLatin1String("time")));
    stored.model = json.value(QLatin1String("model")).toString();
    stored.promptTokens = tokensOf(json.value(QLatin1String("promptTokens")));
    stored.completionTokens = tokensOf(json.value(QLatin1String("completionTokens")));
    return stored;
}

bool isConversation(const QJsonObject &object)
{
    const QJsonValue messages = object.value(QLatin1String("messages"));
    const QJsonArray list = messages.toArray();
    return messages.isArray() && std::all_of(list.begin(), list.end(), [](const QJsonValue &message) {
               return message.toObject().value(QLatin1String("role")).isString();
           });
}

// A fence that no line of the text closes.
QString fenced(const QString &text)
{
    int longest = 2;
    auto matches = QRegularExpression(QStringLiteral("`+")).globalMatch(text);
    while (matches.hasNext())
        longest = qMax(longest, static_cast<int>(matches.next().capturedLength()));
    const QString fence(longest + 1, QLatin1Char('`'));
    return fence + QLatin1Char('\n') + text + QLatin1Char('\n') + fence;
}

QString headingOf(const StoredMessage &stored)
{
    QStringList parts{stored.message.role, stored.message.name, stored.model};
    parts.append(stored.time.isValid() ? timeText(stored.time) : QString());
    parts.removeAll(QString());
    return QStringLiteral("## ") + parts.join(QStringLiteral(" · ")).simplified();
}

QString textOf(const QJsonArray &toolCalls)
{
    return fenced(QString::fromUtf8(QJsonDocument(toolCalls).toJson().trimmed()));
}

QString markdownOf(const StoredMessage &stored)
{
    const ChatMessage &message = stored.message;
    QStringList paragraphs{headingOf(stored)};
    if (!message.content.isEmpty())
        paragraphs.append(message.role == QLatin1String("tool") ? fenced(message.content) : message.content);
    if (!message.toolCalls.isEmpty())
        paragraphs.append(textOf(message.toolCalls));
    return paragraphs.join(QLatin1String("\n\n"));
}

} // namespace

QByteArray jsonOf(const QJsonDocument &document, QJsonDocument::JsonFormat format)
{
    return document.toJson(format).replace("\xef\xbb\xbf", "\\ufeff");
}

QByteArray conversationToJson(const Conversation &conversation)
{
    QJsonArray messages;
    for (const StoredMessage &message : conversation.messages)
        messages.append(objectOf(message));
    const QJsonObject json{
        {QStringLiteral("title"), conversation.title},
        {QStringLiteral("model"), conversation.model},
        {QStringLiteral("created"), timeText(conversation.created)},
        {QStringLiteral("changed"), timeText(conversation.changed)},
        {QStringLiteral("messages"), messages},
    };
    return jsonOf(QJsonDocument(json), QJsonDocument::Indented);
}

Conversation conversationFromJson(const QByteArray &json, QString *error)
{
    QJsonParseError parsed;
    const QJsonObject object = QJsonDocument::fromJson(json, &parsed).object();
    if (parsed.error != QJsonParseError::NoError) {
        *error = QStringLiteral("The JSON is invalid: %1").arg(parsed.errorString());
        return {};
    }
    if (!isConversation(object)) {
        *error = QStringLiteral("The JSON is no conversation.");
        return {};
    }
    error->clear();
    Conversation conversation;
    conversation.title = object.value(QLatin1String("title")).toString();
    conversation.model = object.value(QLatin1String("model")).toString();
    conversation.created = timeOf(object.value(QLatin1String("created")));
    conversation.changed = timeOf(object.value(QLatin1String("changed")));
    const QJsonArray messages = object.value(QLatin1String("messages")).toArray();
    conversation.messages.reserve(messages.size());
    for (const QJsonValue &message : messages)
        conversation.messages.append(messageOf(message.toObject()));
    return conversation;
}

QString conversationToMarkdown(const Conversation &conversation)
{
    QStringList sections;
    if (!conversation.title.isEmpty())
        sections.append(QStringLiteral("# ") + conversation.title.simplified());
    for (const StoredMessage &message : conversation.messages)
        sections.append(markdownOf(message));
    return sections.join(QLatin1String("\n\n")) + QLatin1Char('\n');
}

} // namespace QtAgent
} // namespace MireloQtLib
