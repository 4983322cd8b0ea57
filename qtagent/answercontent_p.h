#ifndef MIRELOQTLIB_QTAGENT_ANSWERCONTENT_P_H
#define MIRELOQTLIB_QTAGENT_ANSWERCONTENT_P_H

#include "answerpiece_p.h"
#include "thinktagreader_p.h"

#include <qtagent/requestoptions.h>

#include <QJsonArray>
#include <QJsonObject>

namespace MireloQtLib {
namespace QtAgent {

class CompletionReply;

/// Takes reasoning and text out of the message of a whole answer, or out of the deltas of a stream, one after
/// the other.
class AnswerContent
{
public:
    explicit AnswerContent(const RequestOptions &options = {});

    /// Returns what @p message says, in addition to the messages before it.
    AnswerPiece read(const QJsonObject &message);

    /// Returns what @p message says as the only one.
    AnswerPiece readWhole(const QJsonObject &message);

    /// Returns what has waited for more. Nothing follows it.
    AnswerPiece end();

    /// Returns the reasoning so far under the keys in which it came. What came in tags or parts has none.
    QJsonObject reasoningFields() const;

    /// Returns the keys of a reasoning, even an empty one, that have come as texts.
    const QStringList &reasoningKeys() const { return m_reasoningKeys; }

private:
    QString readReasoning(const QJsonObject &message);
    QString readReasoningField(const QJsonObject &message, const QString &key);
    AnswerPiece readContent(const QJsonValue &content);

    const bool m_readsThinkTags;
    const bool m_readsParts;
    ThinkTagReader m_tags;
    QString m_reasoningContent;
    QString m_reasoning;
    QJsonArray m_reasoningDetails;
    QStringList m_reasoningKeys;
};

/// Returns the content that goes back with the calls of @p reply, whose message has @p content: without what
/// was told as reasoning.
QString contentAsTold(const CompletionReply &reply, const QString &content);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
