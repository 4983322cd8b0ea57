#ifndef MIRELOQTLIB_QTAGENT_APPROVALPROMPT_H
#define MIRELOQTLIB_QTAGENT_APPROVALPROMPT_H

#include <qtagent/agentexecutor.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QObject>
#include <QPointer>

#include <functional>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

class ApprovalDialog;

/// Asks the user whatever an executor or a session wants to have allowed.
///
/// @code
/// auto *session = new AgentSession(this);
/// new ApprovalPrompt(session, this, this);
/// @endcode
///
/// That is all: for each AgentExecutor::approvalRequired() an ApprovalDialog opens, and its answer goes to
/// AgentExecutor::answerApproval(), so it counts for the call that was shown and for no other.
///
/// A question that is over closes its dialog without an answer, from the event loop: one that was answered
/// elsewhere, or whose run was canceled or replaced. Where the prompt or the executor is deleted, the dialog
/// closes without an answer, too. Where the window or the dialog is deleted, that is a denial; it comes from
/// the event loop, for what its slots use may be half gone before.
///
/// The prompt owns neither the executor nor the window. It may be deleted, the run canceled and the next one
/// begun in a slot of any signal that an answer leads to. Like its dialogs it belongs to the application's
/// main thread, and so does its executor.
class QTAGENT_WIDGETS_EXPORT ApprovalPrompt : public QObject
{
    Q_OBJECT

public:
    /// Asks what @p executor requires, which must not be null, in dialogs above @p window, which may be any
    /// widget in it, also one that gets there later: the parent of a dialog is what QWidget::window() is at
    /// that moment. Where @p window is null, dialogs have no parent; where it has been deleted, every
    /// question is denied unasked. A question that another slot of approvalRequired() has answered is not
    /// asked either.
    ApprovalPrompt(AgentExecutor *executor, QWidget *window, QObject *parent = nullptr);
    ~ApprovalPrompt() override;

    /// Sets how the next dialogs are shown. If not @p blocking, which is the default, with QDialog::open():
    /// they are window modal, and approvalRequired() returns at once. Otherwise with QDialog::exec(): they
    /// are application modal, and approvalRequired() returns once the user has answered.
    void setBlocking(bool blocking);

    /// Sets what tells of a request what would happen, and to what: the text that @p explanation returns
    /// follows the reason in the dialogs from now on, in lines of its own. It is called before each dialog;
    /// an empty text adds nothing. What of it comes from a model should have no line breaks.
    void setExplanation(const std::function<QString(const ApprovalRequest &request)> &explanation);

Q_SIGNALS:
    /// The user answered, and the executor has heard it: what follows from the answer at once, such as the
    /// trace of the call, came before. Not emitted for an answer that did not count.
    void answered(const MireloQtLib::QtAgent::ApprovalRequest &request, bool allowed);

private:
    bool isWindowGone() const;
    void ask(const ApprovalRequest &request);
    void askExplained(const ApprovalRequest &request, const ApprovalRequest &shown);
    void answer(QObject *question, const ApprovalRequest &request, bool allowed);
    void tellExecutor(const ApprovalRequest &request, bool allowed);
    void openDialog(ApprovalDialog *dialog, QObject *question, const ApprovalRequest &request);
    void executeDialog(ApprovalDialog *dialog, QObject *question, const ApprovalRequest &request);

    const QPointer<AgentExecutor> m_executor;
    const QPointer<QWidget> m_window;
    const bool m_hasWindow;
    bool m_isBlocking = false;
    std::function<QString(const ApprovalRequest &)> m_explanation;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
