#include "agentexecutor.h"

#include "agentloop_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

AgentExecutor::AgentExecutor(QObject *parent)
    : AgentExecutor(std::make_unique<AgentLoop>(this), parent)
{}

AgentExecutor::AgentExecutor(std::unique_ptr<AgentLoop> loop, QObject *parent)
    : QObject(parent)
    , m_loop(std::move(loop))
{
    // A program that links the static library may leave out the file that registers the records.
    qRegisterMetaType<ToolCallTrace>();
    qRegisterMetaType<ApprovalRequest>();
}

AgentExecutor::~AgentExecutor()
{
    m_loop->die();
}

void AgentExecutor::setModel(ChatModel *model)
{
    m_loop->setModel(model);
}

void AgentExecutor::setToolRegistry(ToolRegistry *registry)
{
    m_loop->setToolRegistry(registry);
}

void AgentExecutor::setSystemPrompt(const QString &systemPrompt)
{
    m_loop->setSystemPrompt(systemPrompt);
}

void AgentExecutor::setMaxIterations(int maxIterations)
{
    m_loop->setMaxIterations(maxIterations);
}

void AgentExecutor::run(const QString &input)
{
    m_loop->run(input);
}

bool AgentExecutor::isRunning() const
{
    return m_loop->isRunning();
}

bool AgentExecutor::answerApproval(const ApprovalRequest &shown, bool allowed)
{
    return m_loop->answerApproval(shown, allowed);
}

bool AgentExecutor::isWaitingFor(const ApprovalRequest &shown) const
{
    return m_loop->isWaitingFor(shown);
}

void AgentExecutor::whenApprovalOver(QObject *context, const std::function<void()> &callback)
{
    m_loop->whenApprovalOver(context, callback);
}

void AgentExecutor::cancel()
{
    m_loop->cancel();
}

void AgentExecutor::resolveApproval(const QString &approvalId, bool allowed)
{
    m_loop->resolveApproval(approvalId, allowed);
}

} // namespace QtAgent
} // namespace MireloQtLib
