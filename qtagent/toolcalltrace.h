#ifndef MIRELOQTLIB_QTAGENT_TOOLCALLTRACE_H
#define MIRELOQTLIB_QTAGENT_TOOLCALLTRACE_H

#include <qtagent/chatmessage.h>
#include <qtagent/qtagent_export.h>

#include <QDateTime>
#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// The record of one tool call that was executed or denied, as AgentExecutor::traceAdded() emits it, and of
/// one that is about to be, as AgentSession::toolStarted() does.
///
/// @code
/// connect(executor, &AgentExecutor::traceAdded, this,
///         [](const ToolCallTrace &trace) { qInfo("%s", qUtf8Printable(formatTrace(trace))); });
/// @endcode
struct ToolCallTrace
{
    /// The id that the model gave the call, or a generated one.
    QString callId;
    /// The name of the tool that was called.
    QString toolName;
    /// "success", "failed" or "denied"; "running" of a call that is about to be executed.
    QString status;
    /// What the tool may do; ToolPermission::ReadOnly for a denied call whose tool is gone.
    ToolPermission permission = ToolPermission::ReadOnly;
    /// The arguments that the model gave.
    QJsonObject arguments;
    /// The text that went back to the model (see toolResultText()); empty for a denied call.
    QString output;
    /// The result's error; "用户拒绝了审批。" for a denied call.
    QString error;
    /// How long the tool ran, in milliseconds, without the time spent waiting for an approval.
    qint64 durationMs = 0;
    /// The local time at which the tool had returned or was denied.
    QDateTime timestamp;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ToolCallTrace &left, const ToolCallTrace &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ToolCallTrace &left, const ToolCallTrace &right) { return !(left == right); }
};

/// The question whether a tool may run, as AgentExecutor::approvalRequired() emits it. It is handed to
/// AgentExecutor::answerApproval() with the answer.
struct ApprovalRequest
{
    /// The call's id, which the model gave or which was generated. It may repeat.
    QString approvalId;
    /// The name of the tool that is to run.
    QString toolName;
    /// What the tool may do; never ToolPermission::ReadOnly, which needs no approval.
    ToolPermission permission = ToolPermission::ReadOnly;
    /// The arguments that the tool is to run with.
    QJsonObject arguments;
    /// Why the user is asked, for example "该工具拥有 Write 权限，需要用户确认后才能执行。".
    QString reason;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ApprovalRequest &left, const ApprovalRequest &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ApprovalRequest &left, const ApprovalRequest &right)
    {
        return !(left == right);
    }
};

/// Returns @p trace as plain text for reports and logs: the lines "Tool: ", "Status: ", "Duration: " in
/// ms and "Input:" with the indented arguments, then "Output:" and "Error:" where there is one.
QTAGENT_EXPORT QString formatTrace(const ToolCallTrace &trace);

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ToolCallTrace)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ApprovalRequest)

#endif
