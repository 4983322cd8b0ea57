#include "answercontent_p.h"

#include "chatcompletion_p.h"

namespace MireloQtLib {
namespace QtAgent {

AnswerPiece AnswerContent::read(const QJsonObject &message)
{
    AnswerPiece piece;
    piece.text = contentOf(message);
    // Most deltas hold nothing else.
    if (message.size() > 1 || piece.text.isEmpty())
        piece.reasoning = readReasoning(message);
    return piece;
}

// Where a service sends the same reasoning under both names, it is told, and kept, once.
QString AnswerContent::readReasoning(const QJsonObject &message)
{
    const QJsonArray details = message.value(QLatin1String("reasoning_details")).toArray();
    for (const QJsonValue &detail : details)
        m_reasoningDetails.append(detail);

    const QString content = message.value(QLatin1String("reasoning_content")).toString();
    m_reasoningContent += content;
    if (!content.isEmpty())
        return content;
    const QString reasoning = message.value(QLatin1String("reasoning")).toString();
    m_reasoning += reasoning;
    return reasoning;
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

} // namespace QtAgent
} // namespace MireloQtLib
