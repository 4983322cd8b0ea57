#ifndef MIRELOQTLIB_QTAGENT_ANSWERPIECE_P_H
#define MIRELOQTLIB_QTAGENT_ANSWERPIECE_P_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// What a piece of an answer says to the user.
struct AnswerPiece
{
    QString reasoning;
    QString text;
};

inline AnswerPiece joined(const AnswerPiece &first, const AnswerPiece &second)
{
    return {first.reasoning + second.reasoning, first.text + second.text};
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
