#include "toolcalltrace.h"

#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Queued connections and QSignalSpy look the records up by the name that stands in the signals.
void registerCalls()
{
    qRegisterMetaType<ToolCallTrace>("MireloQtLib::QtAgent::ToolCallTrace");
    qRegisterMetaType<ApprovalRequest>("MireloQtLib::QtAgent::ApprovalRequest");
}
Q_CONSTRUCTOR_FUNCTION(registerCalls)

} // namespace

bool operator==(const ToolCallTrace &left, const ToolCallTrace &right)
{
    return left.callId == right.callId && left.toolName == right.toolName && left.status == right.status
        && left.permission == right.permission && left.arguments == right.arguments
        && left.output == right.output && left.error == right.error && left.durationMs == right.durationMs
        && left.timestamp == right.timestamp;
}

bool operator==(const ApprovalRequest &left, const ApprovalRequest &right)
{
    return left.approvalId == right.approvalId && left.toolName == right.toolName
        && left.permission == right.permission && left.arguments == right.arguments
        && left.reason == right.reason;
}

QString formatTrace(const ToolCallTrace &trace)
{
    const QString arguments = QString::fromUtf8(QJsonDocument(trace.arguments).toJson());
    QString text = QStringLiteral("Tool: %1\nStatus: %2\nDuration: %3 ms\nInput:\n%4\n")
                       .arg(trace.toolName, trace.status, QString::number(trace.durationMs), arguments);
    if (!trace.output.isEmpty())
        text += QStringLiteral("Output:\n%1\n").arg(trace.output);
    if (!trace.error.isEmpty())
        text += QStringLiteral("Error:\n%1\n").arg(trace.error);
    return text;
}

} // namespace QtAgent
} // namespace MireloQtLib
