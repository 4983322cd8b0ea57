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
///         guard->answerApproval(request, allowed);
/// });
/// @endcode
/// The question runs an event loop of its own: whatever the host uses afterwards may have been deleted
/// meanwhile, and the run that asked may have ended, in which case its answer does not count.
/// AgentExecutor::answerApproval() shows how to ask without such a loop.
///
/// The buttons are 允许一次, which accepts, and 拒绝, which rejects and is the default: Return, Escape and
/// closing the window all deny, since the dialog may open while the user types. The Tab key goes from the
/// arguments to 拒绝 and then to 允许一次, where Return allows.
///
/// The name, the reason and the arguments come from models, tools and their servers, and the dialog shows
/// what will run, in plain text:
/// - A character that cannot be seen is shown as its JSON escape, such as "\u202e": controls, format
///   characters (which reorder text or have no width), private, unassigned and unpaired ones, separators of
///   lines and paragraphs, variation selectors, fillers, and each blank but the ordinary one.
/// - The name stays on one line. One that is too long for the dialog ends in "…", and its tool tip shows
///   more.
/// - The reason keeps its line breaks and scrolls where it has more than five lines; the Tab key reaches it
///   then, and a frame shows that. What follows its first
///   50,000 characters is left out, and a line below says so.
/// - The arguments are shown whole, as indented JSON, or without indentation where it would take more than
///   20,000 lines or 1,000,000 blanks. A line of more than 1,000 characters goes on in lines that begin with
///   "↪ ", which is nothing that arguments can contain.
///
/// For style sheets and user-interface tests the children are named approvalTool, approvalPermission,
/// approvalReason, approvalArguments, approvalAllow and approvalDeny. Like every widget the dialog belongs to
/// the application's main thread.
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
