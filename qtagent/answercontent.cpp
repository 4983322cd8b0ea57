#include "answercontent_p.h"

#include "chatcompletion_p.h"

#include <qtagent/completionreply.h>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A text, or a list of parts with one each.
QString textOf(const QJsonValue &value)
{
    if (!value.isArray())
        return value.toString();
    QString text;
    const QJsonArray parts = value.toArray();
    for (const QJsonValue &part : parts)
        text += part.toObject().value(QLatin1String("text")).toString();
    return text;
}

AnswerPiece pieceOfParts(const QJsonArray &parts)
{
    AnswerPiece piece;
    for (const QJsonValue &value : parts) {
        const QJsonObject part = value.toObject();
        const QString type = part.value(QLatin1String("type")).toString();
        if (type == QLatin1String("text"))
            piece.text += part.value(QLatin1String("text")).toString();
        else if (type == QLatin1String("thinking"))
            piece.reasoning += textOf(part.value(QLatin1String("thinking")));
    }
    return piece;
}

} // namespace

AnswerContent::AnswerContent(const RequestOptions &options)
    : m_readsThinkTags(options.readThinkTags)
    , m_readsParts(options.readThinkTags || options.streamToolCalls)
{}

AnswerPiece AnswerContent::read(const QJsonObject &message)
{
    AnswerPiece content = readContent(message.value(QLatin1String("content")));
    // Most deltas hold nothing else.
    if (message.size() == 1 && !content.text.isEmpty())
        return content;
    return {readReasoning(message) + content.reasoning, content.text};
}

AnswerPiece AnswerContent::readContent(const QJsonValue &content)
{
    AnswerPiece piece;
    if (m_readsParts && content.isArray())
        piece = pieceOfParts(content.toArray());
    else
        piece.text = content.toString();
    if (!m_readsThinkTags)
        return piece;
    const AnswerPiece tagged = m_tags.read(piece.text);
    return {piece.reasoning + tagged.reasoning, tagged.text};
}

AnswerPiece AnswerContent::readWhole(const QJsonObject &message)
{
    const AnswerPiece piece = read(message);
    return joined(piece, end());
}

AnswerPiece AnswerContent::end()
{
    return m_tags.end();
}

// Where a service sends the same reasoning under both names, it is told, and kept, once.
QString AnswerContent::readReasoning(const QJsonObject &message)
{
    const QJsonArray details = message.value(QLatin1String("reasoning_details")).toArray();
    for (const QJsonValue &detail : details)
        m_reasoningDetails.append(detail);

    QString content = readReasoningField(message, QStringLiteral("reasoning_content"));
    m_reasoningContent += content;
    if (!content.isEmpty())
        return content;
    QString reasoning = readReasoningField(message, QStringLiteral("reasoning"));
    m_reasoning += reasoning;
    return reasoning;
}

QString AnswerContent::readReasoningField(const QJsonObject &message, const QString &key)
{
    const QJsonValue value = message.value(key);
    if (value.isString() && !m_reasoningKeys.contains(key))
        m_reasoningKeys.append(key);
    return value.toString();
}

QJsonObject AnswerContent::reasoningFields() const
{
    QJsonObject fields;
    if (!m_reasoningContent.isEmpty())
        fields.insert(QStringLiteral("reasoning_content"), m_reasoningContent);
    if (!m_reasoning.isEmpty())
        fields.insert(QStringLiteral("reasoning"), m_reasoning);
    if (!m_reasoningDetails.isEmpty())
        fields.insert(QStringLiteral("reasoning_details"), m_reasoningDetails);
    return fields;
}

// A whole answer stands in the response as it came. Where a part of its content was told as reasoning, that
// part is no answer and never goes back.
QString contentAsTold(const CompletionReply &reply, const QString &content)
{
    RequestOptions options;
    options.readThinkTags = true;
    AnswerContent reader(options);
    const AnswerPiece piece = reader.readWhole(responseMessage(reply.response()));
    if (piece.reasoning != reply.reasoning() || piece.text != reply.text())
        return content;
    return piece.text.isNull() ? QLatin1String("") : piece.text; // a null content would be left out
}

} // namespace QtAgent
} // namespace MireloQtLib
