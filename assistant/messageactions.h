#ifndef ORVANE_MESSAGEACTIONS_H
#define ORVANE_MESSAGEACTIONS_H

#include <qtagent/chatmessage.h>

#include <QVector>

namespace MireloQtLib {
namespace QtAgent {
class AgentSession;
}
} // namespace MireloQtLib

/// Returns the index of the question that the message @p index of @p conversation belongs to: its own, or
/// that of the last question before it. -1 where there is none.
int questionOf(const QVector<MireloQtLib::QtAgent::ChatMessage> &conversation, int index);

/// Asks the question that the message @p index of @p session belongs to again, without what followed it.
/// Returns false, without any effect, while a run is in flight and where there is no question.
bool askAgain(MireloQtLib::QtAgent::AgentSession *session, int index);

/// Asks @p text in place of the question that the message @p index of @p session belongs to. What followed
/// it is dropped. Returns false, without any effect, while a run is in flight and where there is no question.
bool askInstead(MireloQtLib::QtAgent::AgentSession *session, int index, const QString &text);

#endif
