#ifndef MIRELOQTLIB_QTAGENT_APPROVALDIALOG_H
#define MIRELOQTLIB_QTAGENT_APPROVALDIALOG_H

#include <qtagent/toolcalltrace.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QDialog>

namespace MireloQtLib {
namespace QtAgent {

/// Asks the user whether a tool may run, this once.
///
/// @code
/// connect(executor, &AgentExecutor::approvalRequired, this, [=](const ApprovalRequest &request) {
///     const QPointer<AgentExecutor> guard(executor);
///     const bool allowed = ApprovalDialog::ask(request, window());
///     if (guard)
///         guard->resolveApproval(request.approvalId, allowed);
/// });
/// @endcode
/// The question runs an event loop of its own: whatever the host uses afterwards may have been deleted
/// meanwhile, and the run that asked may have ended, in which case its answer is to be dropped.
///
/// The buttons are 允许一次, which accepts, and 拒绝, which rejects and is the default: Return, Escape and
/// closing the window all deny, since the dialog may open while the user types. The name, the permission,
/// the reason and the arguments come from models and tools: they are plain text, and nothing in a name or
/// a reason begins another line of the dialog. A name that is too long for the dialog ends in "…", its
/// tool tip shows more. Invisible characters of the arguments that would reorder or break their lines are
/// shown as JSON escapes.
///
/// For style sheets and user-interface tests the children are named approvalTool, approvalPermission,
/// approvalReason, approvalArguments, approvalAllow and approvalDeny.
class QTAGENT_WIDGETS_EXPORT ApprovalDialog : public QDialog
{
    Q_OBJECT

public:
    /// Creates the question about @p request.
    explicit ApprovalDialog(const ApprovalRequest &request, QWidget *parent = nullptr);
    ~ApprovalDialog() override;

    /// Shows the question above @p parent, waits for the answer in a nested event loop and returns whether
    /// the user allowed the call. Returns false where @p parent is deleted meanwhile.
    static bool ask(const ApprovalRequest &request, QWidget *parent);
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
