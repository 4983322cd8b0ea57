#include "runledger.h"

using namespace MireloQtLib::QtAgent;

RunLedger::RunLedger(AgentSession *session)
    : m_session(session)
{
    const auto requireRunning = [this](const char *name) {
        return [this, name] { require(State::Running, name); };
    };
    connect(session, &AgentSession::runningChanged, this, [this](bool running) {
        m_begunRuns += running ? 1 : 0;
        move(running ? State::Idle : State::Running, running ? State::Running : State::Ending,
             "runningChanged");
        if (running != m_session->isRunning())
            note("runningChanged and isRunning differ");
    });
    connect(session, &AgentSession::runEnded, this, [this](const RunOutcome &outcome) {
        move(State::Ending, State::Idle, "runEnded");
        m_ends.append(outcome.end);
        if (m_session->isRunning())
            note("running behind the end");
    });
    connect(session, &AgentSession::approvalRequired, this, [this](const ApprovalRequest &request) {
        require(State::Running, "approvalRequired");
        m_requests.append(request);
    });
    connect(session, &AgentSession::assistantDelta, this, requireRunning("assistantDelta"));
    connect(session, &AgentSession::assistantFinished, this, requireRunning("assistantFinished"));
    connect(session, &AgentSession::failed, this, requireRunning("failed"));
    connect(session, &AgentSession::traceAdded, this, requireRunning("traceAdded"));
    connect(session, &AgentSession::toolStarted, this, [this](const ToolCallTrace &call) {
        require(State::Running, "toolStarted");
        m_startedId = call.callId;
    });
    connect(session, &AgentSession::approvalWithdrawn, this, requireRunning("approvalWithdrawn"));
    connect(session, &AgentSession::conversationChanged, this, [this] {
        if (m_state == State::Ending)
            note("conversationChanged in the middle of an end");
    });
}

bool RunLedger::answer(const ApprovalRequest &shown, bool allowed)
{
    if (!m_session)
        return false;
    if (!allowed)
        return m_session->answerApproval(shown, false);
    bool counts = false;
    allow(shown, [&] { counts = m_session->answerApproval(shown, true); });
    return counts;
}

void RunLedger::allow(const ApprovalRequest &shown, const std::function<void()> &step)
{
    m_allowed.append(shown);
    step();
    m_allowed.removeLast();
}

void RunLedger::execute(const QString &toolName, const QJsonObject &arguments)
{
    if (m_allowed.isEmpty() || m_allowed.last().toolName != toolName
        || m_allowed.last().arguments != arguments || m_allowed.last().approvalId != m_startedId)
        note("a call that nobody allowed: " + toolName);
}

void RunLedger::note(const QString &fault)
{
    if (m_fault.isEmpty())
        m_fault = fault;
}

void RunLedger::move(State from, State to, const char *signalName)
{
    require(from, signalName);
    m_state = to;
}

void RunLedger::require(State state, const char *signalName)
{
    if (m_state != state)
        note(QString("%1 at the wrong time").arg(signalName));
    const QString fault = strictFault(jsonOf(m_session->conversation()));
    if (!fault.isEmpty())
        note(QString("%1 in %2").arg(fault, signalName));
}
