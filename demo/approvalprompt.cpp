#include "approvalprompt.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/widgets/approvaldialog.h>

using namespace MireloQtLib::QtAgent;

ApprovalPrompt::ApprovalPrompt(QObject *parent)
    : QObject(parent)
{}

ApprovalPrompt::~ApprovalPrompt() = default;

void ApprovalPrompt::ask(const ApprovalRequest &request, AgentExecutor *executor, QWidget *window)
{
    const int run = m_run;
    const QPointer<ApprovalPrompt> self(this);
    const QPointer<AgentExecutor> asking(executor);
    const QPointer<ApprovalDialog> dialog(new ApprovalDialog(request, window));
    m_dialog = dialog;
    const bool isAllowed = dialog->exec() == QDialog::Accepted;
    delete dialog;
    if (!self || run != m_run)
        return;
    if (!isAllowed)
        Q_EMIT denied();
    if (asking)
        asking->resolveApproval(request.approvalId, isAllowed);
}

void ApprovalPrompt::leaveRun()
{
    ++m_run;
    if (m_dialog)
        m_dialog->reject();
}
