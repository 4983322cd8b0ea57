#ifndef MIRELOQTLIB_QTAGENT_TOOLEXECUTION_P_H
#define MIRELOQTLIB_QTAGENT_TOOLEXECUTION_P_H

#include "toolcallrequest_p.h"

#include <qtagent/asynctool.h>
#include <qtagent/toolcalltrace.h>

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

// Returns the record of @p call, without what comes of it.
ToolCallTrace traceOf(const PendingCall &call, const QString &status, ToolPermission permission);

// Tells what becomes of the reply of a tool that is at work. No signal comes once it is deleted.
class ToolReplyListener : public QObject
{
    Q_OBJECT

public:
    explicit ToolReplyListener(ToolReply *reply);

    // Null once it is gone.
    ToolReply *reply() const { return m_reply.data(); }

Q_SIGNALS:
    void progressed(const QString &text);
    // Emitted once. A reply that is deleted ends in the next turn of the event loop: whoever deletes it may
    // be about to delete more.
    void ended(const MireloQtLib::QtAgent::ToolResult &result);

private:
    const QPointer<ToolReply> m_reply;
};

// One call and the tool that executes it, from before that is called until there is a result. Most tools
// return theirs, so this is no object of its own.
class ToolExecution
{
public:
    ToolExecution(const PendingCall &call, ToolPermission permission);
    Q_DISABLE_COPY(ToolExecution)

    const PendingCall &call() const { return m_call; }
    ToolPermission permission() const { return m_permission; }

    // The time counts from now on.
    void beginTime() { m_timer.start(); }

    // Listens to @p reply, which is running. What is returned lives until release().
    ToolReplyListener *waitFor(ToolReply *reply);

    // Whether the tool has returned and tells its result later.
    bool isWaiting() const { return m_listener != nullptr; }

    // Stops listening and returns the reply, or null where there is none any more.
    ToolReply *release();

    // Returns the record of the call, whose tool came to @p result at this moment.
    ToolCallTrace trace(const ToolResult &result) const;

private:
    const PendingCall m_call;
    const ToolPermission m_permission;
    QElapsedTimer m_timer;
    std::unique_ptr<ToolReplyListener> m_listener;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
