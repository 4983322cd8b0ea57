#include "approvalprompt.h"

#include "approvaldialog.h"

namespace MireloQtLib {
namespace QtAgent {

ApprovalPrompt::ApprovalPrompt(AgentExecutor *executor, QWidget *window, QObject *parent)
    : QObject(parent)
    , m_executor(executor)
    , m_window(window)
    , m_hasWindow(window)
{
    connect(executor, &AgentExecutor::approvalRequired, this, &ApprovalPrompt::ask);
}

ApprovalPrompt::~ApprovalPrompt() = default;

void ApprovalPrompt::setBlocking(bool blocking)
{
    m_isBlocking = blocking;
}

void ApprovalPrompt::setExplanation(const std::function<QString(const ApprovalRequest &request)> &explanation)
{
    m_explanation = explanation;
}

bool ApprovalPrompt::isWindowGone() const
{
    return m_hasWindow && !m_window;
}

void ApprovalPrompt::ask(const ApprovalRequest &request)
{
    ApprovalRequest shown = request; // which may be gone once the explanation has returned
    const ApprovalRequest asked = shown;
    if (const auto explanation = m_explanation) {
        const QPointer<ApprovalPrompt> self(this);
        const QString text = explanation(asked);
        if (!self || !m_executor)
            return;
        if (!text.isEmpty())
            shown.reason += QLatin1Char('\n') + text;
    }
    askExplained(asked, shown);
}

// A question is an object that lives until it is answered or over, and hides its dialog then.
void ApprovalPrompt::askExplained(const ApprovalRequest &request, const ApprovalRequest &shown)
{
    if (!m_executor->isWaitingFor(request)) // another slot has answered
        return;
    if (isWindowGone()) {
        tellExecutor(request, false);
        return;
    }
    auto *question = new QObject(this);
    auto *dialog = new ApprovalDialog(shown, m_window ? m_window->window() : nullptr);
    connect(question, &QObject::destroyed, dialog, &QWidget::hide);
    m_executor->whenApprovalOver(question, [question] { delete question; });

    const auto deny = [this, question, request] { answer(question, request, false); };
    connect(dialog, &QObject::destroyed, question, deny, Qt::QueuedConnection);
    if (m_window)
        connect(m_window, &QObject::destroyed, question, deny, Qt::QueuedConnection);

    if (m_isBlocking)
        executeDialog(dialog, question, request);
    else
        openDialog(dialog, question, request);
}

void ApprovalPrompt::openDialog(ApprovalDialog *dialog, QObject *question, const ApprovalRequest &request)
{
    connect(question, &QObject::destroyed, dialog, &QObject::deleteLater);
    connect(dialog, &QDialog::finished, question, [this, question, request](int result) {
        answer(question, request, result == QDialog::Accepted);
    });
    dialog->open();
}

void ApprovalPrompt::executeDialog(ApprovalDialog *dialog, QObject *question, const ApprovalRequest &request)
{
    const QPointer<ApprovalDialog> shown(dialog);
    const QPointer<QObject> asked(question); // gone also where the prompt is
    const bool isAllowed = dialog->exec() == QDialog::Accepted;
    delete shown;
    if (asked)
        answer(asked, request, isAllowed);
}

void ApprovalPrompt::answer(QObject *question, const ApprovalRequest &request, bool allowed)
{
    // It dies with the question. NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const ApprovalRequest shown = request;
    delete question;
    tellExecutor(shown, allowed && !isWindowGone());
}

void ApprovalPrompt::tellExecutor(const ApprovalRequest &request, bool allowed)
{
    const QPointer<ApprovalPrompt> self(this);
    const bool counts = m_executor && m_executor->answerApproval(request, allowed);
    if (self && counts)
        Q_EMIT answered(request, allowed);
}

} // namespace QtAgent
} // namespace MireloQtLib
