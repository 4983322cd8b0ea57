#include "toolexecution_p.h"

#include "toolresults_p.h"

namespace MireloQtLib {
namespace QtAgent {

ToolCallTrace traceOf(const PendingCall &call, const QString &status, ToolPermission permission)
{
    ToolCallTrace trace;
    trace.callId = call.id;
    trace.toolName = call.name;
    trace.status = status;
    trace.permission = permission;
    trace.arguments = call.arguments;
    return trace;
}

ToolReplyListener::ToolReplyListener(ToolReply *reply)
    : m_reply(reply)
{
    connect(reply, &ToolReply::progressed, this, &ToolReplyListener::progressed);
    connect(reply, &ToolReply::finished, this, &ToolReplyListener::ended);
    connect(reply, &ToolReply::canceled, this,
            [this] { Q_EMIT ended(failedResult(QStringLiteral("Tool call was canceled."))); });
    connect(
        reply, &QObject::destroyed, this,
        [this] { Q_EMIT ended(failedResult(QStringLiteral("Tool reply was deleted."))); },
        Qt::QueuedConnection);
}

ToolExecution::ToolExecution(const PendingCall &call, ToolPermission permission)
    : m_call(call)
    , m_permission(permission)
{}

ToolReplyListener *ToolExecution::waitFor(ToolReply *reply)
{
    m_listener = std::make_unique<ToolReplyListener>(reply);
    return m_listener.get();
}

ToolReply *ToolExecution::release()
{
    ToolReply *reply = m_listener ? m_listener->reply() : nullptr;
    m_listener.reset();
    return reply;
}

ToolCallTrace ToolExecution::trace(const ToolResult &result) const
{
    ToolCallTrace trace =
        traceOf(m_call, result.success ? QStringLiteral("success") : QStringLiteral("failed"), m_permission);
    trace.durationMs = m_timer.elapsed();
    trace.timestamp = QDateTime::currentDateTime();
    trace.output = toolResultText(result);
    trace.error = result.error;
    return trace;
}

} // namespace QtAgent
} // namespace MireloQtLib
