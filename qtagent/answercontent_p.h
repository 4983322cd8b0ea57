#ifndef MIRELOQTLIB_QTAGENT_ANSWERCONTENT_P_H
#define MIRELOQTLIB_QTAGENT_ANSWERCONTENT_P_H

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// What a piece of an answer says to the user.
struct AnswerPiece
{
    QString reasoning;
    QString text;
};

/// Takes reasoning and text out of the message of a whole answer, or out of the deltas of a stream, one after
/// the other.
class AnswerContent
{
public:
    /// Returns what @p message says, in addition to the messages before it.
    AnswerPiece read(const QJsonObject &message);

    /// Returns the reasoning so far under the keys in which it came.
    QJsonObject reasoningFields() const;

private:
    QString readReasoning(const QJsonObject &message);

    QString m_reasoningContent;
    QString m_reasoning;
    QJsonArray m_reasoningDetails;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
