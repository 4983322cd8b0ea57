#include "agentsession.h"

#include "sessionloop_p.h"

namespace MireloQtLib {
namespace QtAgent {

bool operator==(const RunOutcome &left, const RunOutcome &right)
{
    return left.end == right.end && left.text == right.text && left.error == right.error
        && left.requests == right.requests;
}

AgentSession::AgentSession(QObject *parent)
    : AgentExecutor(std::make_unique<SessionLoop>(this), parent)
    , m_sessionLoop(static_cast<SessionLoop *>(m_loop.get()))
{
    qRegisterMetaType<RunOutcome>();
}

AgentSession::~AgentSession()
{
    m_sessionLoop->die();
}

void AgentSession::send(const QString &input)
{
    m_sessionLoop->send(input);
}

bool AgentSession::regenerate()
{
    return m_sessionLoop->regenerate();
}

QVector<ChatMessage> AgentSession::conversation() const
{
    return m_sessionLoop->conversation();
}

bool AgentSession::setConversation(const QVector<ChatMessage> &conversation)
{
    return m_sessionLoop->setConversation(conversation);
}

void AgentSession::setAfterDenial(AfterDenial policy)
{
    m_sessionLoop->setAfterDenial(policy);
}

void AgentSession::setTellsModelOfBadCalls(bool tells)
{
    m_sessionLoop->setTellsModelOfBadCalls(tells);
}

void AgentSession::setParallelToolCalls(bool parallel)
{
    m_sessionLoop->setParallelToolCalls(parallel);
}

// Known from the moment that the run is over.
RunOutcome AgentSession::lastOutcome() const
{
    return m_sessionLoop->lastOutcome();
}

} // namespace QtAgent
} // namespace MireloQtLib
