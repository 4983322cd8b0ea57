#include "sessionloop_p.h"

#include "reasoningfields_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

SessionLoop::SessionLoop(AgentSession *session)
    : AgentLoop(session)
    , m_session(session)
{}

void SessionLoop::run(const QString &input)
{
    const ChatMessage question = ChatMessage::user(input);
    if (!endEarlierRuns())
        return;
    m_conversation.setMessages({});
    m_conversation.addQuestion(m_systemPrompt, question);
    start();
}

void SessionLoop::send(const QString &input)
{
    const ChatMessage question = ChatMessage::user(input);
    if (!endEarlierRuns())
        return;
    m_conversation.addQuestion(m_systemPrompt, question);
    start();
}

bool SessionLoop::regenerate()
{
    if (isRunning() || !m_conversation.hasQuestion() || !endEarlierRuns())
        return false;
    // A slot may have set another conversation.
    if (!m_conversation.hasQuestion())
        return false;
    m_conversation.dropAnswer();
    start();
    return true;
}

bool SessionLoop::setConversation(const QVector<ChatMessage> &conversation)
{
    const QVector<ChatMessage> messages = completedConversation(conversation);
    if (isRunning() || !tellEarlierEnds() || isRunning())
        return false;
    m_conversation.setMessages(messages);
    tellConversation();
    return true;
}

void SessionLoop::cancel()
{
    if (!m_run || m_run->state == AgentRun::State::Over)
        return;
    end(RunEnd::Canceled, {}, {});
    // The trace of a tool that has canceled its run comes first.
    if (m_run->toolDepth == 0)
        tellEnd();
}

// Returns whether the session still exists.
bool SessionLoop::tellEarlierEnds()
{
    const QPointer<AgentSession> session(m_session);
    while (session && m_run && m_run->state == AgentRun::State::Over)
        tellEnd();
    return session && !isDead();
}

// Ends also what slots begin while they are told. Returns whether the session still exists.
bool SessionLoop::endEarlierRuns()
{
    const QPointer<AgentSession> session(m_session);
    while (session && m_run) {
        if (m_run->state != AgentRun::State::Over)
            end(RunEnd::Replaced, {}, {});
        tellEnd();
    }
    return session && !isDead();
}

void SessionLoop::start()
{
    m_run = std::make_unique<AgentRun>();
    const QPointer<AgentRun> run(m_run.get());
    Q_EMIT m_session->runningChanged(true);
    if (run)
        tellConversation();
    if (run)
        requestAnswer();
}

void SessionLoop::watchReply(ChatReply *reply)
{
    m_arrived.clear();
    AgentRun *const run = m_run.get();
    const auto endCanceled = [this] {
        end(RunEnd::Canceled, {}, {});
        tellEnd();
    };
    QObject::connect(reply, &ChatReply::canceled, run, endCanceled);
    QObject::connect(reply, &QObject::destroyed, run, [this] { abandon(); });
    if (run->model)
        QObject::connect(run->model, &QObject::destroyed, run, [this] { abandon(); });
    if (reply->isCanceled())
        endCanceled();
    else
        abandon();
}

// Ends the run where nobody is left who could answer. This may be called by a destructor, so that nothing is
// told before the next turn of the event loop.
void SessionLoop::abandon()
{
    if (m_run->state != AgentRun::State::Awaiting || isRunning())
        return;
    end(RunEnd::Abandoned, {}, {});
    QMetaObject::invokeMethod(
        m_run.get(), [this] { tellEnd(); }, Qt::QueuedConnection);
}

void SessionLoop::receiveDelta(const QString &delta)
{
    m_arrived += delta;
    AgentLoop::receiveDelta(delta);
}

void SessionLoop::releaseReply(ChatReply *reply)
{
    const QPointer<ChatReply> guard(reply);
    if (m_reply == reply)
        m_reply.clear();
    if (reply->isRunning())
        reply->cancel();
    if (guard)
        guard->deleteLater();
}

void SessionLoop::completeAnswer(const ChatReply &reply, const QQueue<PendingCall> &calls,
                                 ChatMessage *answer) const
{
    AgentLoop::completeAnswer(reply, calls, answer);
    answer->metadata = ReasoningFields::of(reply);
    QJsonArray &toolCalls = answer->toolCalls;
    for (const PendingCall &call : calls)
        toolCalls[call.index] = completedToolCall(toolCalls.at(call.index).toObject(), call);
}

void SessionLoop::tellConversation()
{
    if (std::exchange(m_toldRevision, m_conversation.revision()) != m_conversation.revision())
        Q_EMIT m_session->conversationChanged();
}

void SessionLoop::tellProgress(const QString &callId, const QString &text)
{
    Q_EMIT m_session->toolProgressed(callId, text);
}

bool SessionLoop::announce(const PendingCall &call, AgentTool *tool, ToolPermission permission)
{
    const QPointer<AgentRun> run(m_run.get());
    const QPointer<AgentTool> guard(tool);
    ToolCallTrace trace = traceOf(call, QStringLiteral("running"), permission);
    trace.timestamp = QDateTime::currentDateTime();
    Q_EMIT m_session->toolStarted(trace);
    if (!run || run->state == AgentRun::State::Over)
        return false;
    if (!guard)
        takeUpAnew(call);
    return guard;
}

void SessionLoop::end(RunEnd end, const QString &text, const QString &error)
{
    keepAnswer(end);
    const bool isAwaiting = m_run->state == AgentRun::State::Awaiting;
    m_outcome = {end, isAwaiting ? m_arrived : text, error, m_run->requests};
    m_withdrawnId = m_run->question ? m_run->question->call().id : QString();
    if (m_reply)
        m_reply->disconnect(m_run.get());
    AgentLoop::end(end, text, error);
    m_untold = {&SessionLoop::cancelTools,    &SessionLoop::abortRequest, &SessionLoop::tellConversation,
                &SessionLoop::tellWithdrawal, &SessionLoop::tellRunning,  &SessionLoop::tellOutcome};
}

// The final answer, or what had arrived of one that was cut short.
void SessionLoop::keepAnswer(RunEnd end)
{
    if (end == RunEnd::Finished) {
        ChatMessage answer = m_reply->message();
        completeAnswer(*m_reply, {}, &answer);
        m_conversation.addAnswer(answer);
    } else if (m_run->state == AgentRun::State::Awaiting && !m_arrived.isEmpty()) {
        m_conversation.addAnswer(ChatMessage::assistant(m_arrived));
    }
}

void SessionLoop::tellEnd()
{
    const QPointer<AgentRun> run(m_run.get());
    while (run && !m_untold.isEmpty())
        (this->*m_untold.takeFirst())();
}

void SessionLoop::abortRequest()
{
    if (m_reply)
        releaseReply(m_reply);
}

void SessionLoop::tellWithdrawal()
{
    if (!m_withdrawnId.isEmpty())
        Q_EMIT m_session->approvalWithdrawn(std::exchange(m_withdrawnId, {}));
}

void SessionLoop::tellRunning()
{
    Q_EMIT m_session->runningChanged(false);
}

// The run goes first: nothing of it follows its outcome.
void SessionLoop::tellOutcome()
{
    const RunOutcome outcome = m_outcome;
    m_run.reset();
    Q_EMIT m_session->runEnded(outcome);
}

} // namespace QtAgent
} // namespace MireloQtLib
