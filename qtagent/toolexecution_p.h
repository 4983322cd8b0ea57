#ifndef MIRELOQTLIB_QTAGENT_TOOLEXECUTION_P_H
#define MIRELOQTLIB_QTAGENT_TOOLEXECUTION_P_H

#include "toolcallrequest_p.h"

#include <qtagent/asynctool.h>
#include <qtagent/toolcalltrace.h>

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

// One call and the tool that executes it, from before that is called until there is a result. It is a child
// of its run, with which it goes away.
class ToolExecution : public QObject
{
    Q_OBJECT

public:
    // @p trace is the record of the call, of which trace() completes a copy.
    ToolExecution(const PendingCall &call, const ToolCallTrace &trace, QObject *run);

    const PendingCall &call() const { return m_call; }
    ToolPermission permission() const { return m_trace.permission; }

    // The time counts from now on.
    void beginTime() { m_timer.start(); }

    // Listens to @p reply, which is running.
    void waitFor(ToolReply *reply);

    // Whether the tool has returned and tells its result later.
    bool isWaiting() const { return m_isWaiting; }

    // Stops listening and returns the reply, or null where it is gone.
    ToolReply *release();

    // Returns the record of the call, whose tool came to @p result at this moment.
    ToolCallTrace trace(const ToolResult &result) const;

Q_SIGNALS:
    void progressed(const QString &text);
    // Emitted once. A reply that is deleted ends in the next turn of the event loop: whoever deletes it may
    // be about to delete more.
    void ended(const MireloQtLib::QtAgent::ToolResult &result);

private:
    const PendingCall m_call;
    const ToolCallTrace m_trace;
    QElapsedTimer m_timer;
    QPointer<ToolReply> m_reply;
    bool m_isWaiting = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
