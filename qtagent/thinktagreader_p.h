#ifndef MIRELOQTLIB_QTAGENT_THINKTAGREADER_P_H
#define MIRELOQTLIB_QTAGENT_THINKTAGREADER_P_H

#include "answerpiece_p.h"

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Takes the reasoning out of an answer that begins with it in tags, in whatever portions it arrives. A tag
/// anywhere else is text.
class ThinkTagReader
{
public:
    /// Returns what the next @p portion of the content says. What may be a part of a tag waits.
    AnswerPiece read(const QString &portion);

    /// Returns what has waited. Nothing follows it.
    AnswerPiece end();

private:
    enum class State { Before, Thinking, Behind, Text };

    AnswerPiece readBeginning(const QString &portion);
    AnswerPiece readThinking(const QString &portion);
    AnswerPiece readBehind(const QString &portion);

    State m_state = State::Before;
    // What waits, and of the beginning how much of it is blanks.
    QString m_waiting;
    int m_blanks = 0;
    QString m_closer;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
