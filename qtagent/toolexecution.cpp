#include "toolexecution_p.h"

#include "toolresults_p.h"

namespace MireloQtLib {
namespace QtAgent {

ToolExecution::ToolExecution(const PendingCall &call, const ToolCallTrace &trace, QObject *run)
    : QObject(run)
    , m_call(call)
    , m_trace(trace)
{}

void ToolExecution::waitFor(ToolReply *reply)
{
    m_reply = reply;
    m_isWaiting = true;
    connect(reply, &ToolReply::progressed, this, &ToolExecution::progressed);
    connect(reply, &ToolReply::finished, this, &ToolExecution::ended);
    connect(reply, &ToolReply::canceled, this,
            [this] { Q_EMIT ended(failedResult(QStringLiteral("Tool call was canceled."))); });
    connect(
        reply, &QObject::destroyed, this,
        [this] { Q_EMIT ended(failedResult(QStringLiteral("Tool reply was deleted."))); },
        Qt::QueuedConnection);
}

ToolReply *ToolExecution::release()
{
    if (m_reply)
        m_reply->disconnect(this);
    return m_reply;
}

ToolCallTrace ToolExecution::trace(const ToolResult &result) const
{
    ToolCallTrace trace = m_trace;
    trace.durationMs = m_timer.elapsed();
    trace.timestamp = QDateTime::currentDateTime();
    trace.status = result.success ? QStringLiteral("success") : QStringLiteral("failed");
    trace.output = toolResultText(result);
    trace.error = result.error;
    return trace;
}

} // namespace QtAgent
} // namespace MireloQtLib
