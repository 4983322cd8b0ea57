#include "approvalprompt.h"

#include <qtagent/widgets/approvaldialog.h>

using namespace MireloQtLib::QtAgent;

ApprovalPrompt::ApprovalPrompt(QObject *parent)
    : QObject(parent)
{}

ApprovalPrompt::~ApprovalPrompt() = default;

std::optional<bool> ApprovalPrompt::ask(const ApprovalRequest &request, QWidget *window)
{
    const int run = m_run;
    const QPointer<ApprovalPrompt> self(this);
    const QPointer<ApprovalDialog> dialog(new ApprovalDialog(request, window));
    m_dialog = dialog;
    const bool isAllowed = dialog->exec() == QDialog::Accepted;
    delete dialog;
    if (!self || run != m_run)
        return std::nullopt;
    return isAllowed;
}

void ApprovalPrompt::leaveRun()
{
    ++m_run;
    if (m_dialog)
        m_dialog->reject();
}
