#ifndef MIRELOQTLIB_QTAGENT_AGENTSESSION_H
#define MIRELOQTLIB_QTAGENT_AGENTSESSION_H

#include <qtagent/agentexecutor.h>

#include <QMetaType>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

class SessionLoop;

/// How a run of an AgentSession ended and what it brought.
struct QTAGENT_EXPORT RunOutcome
{
    Q_GADGET

public:
    /// What ended the run. RunEnd is the short name of this type.
    enum class End {
        /// The model answered: AgentExecutor::assistantFinished().
        Finished,
        /// AgentExecutor::failed().
        Failed,
        /// The user denied a tool call, with AgentSession::AfterDenial::EndRun.
        Denied,
        /// AgentExecutor::cancel(), or somebody canceled the reply.
        Canceled,
        /// AgentSession::send(), AgentExecutor::run() or AgentSession::regenerate() began another one.
        Replaced,
        /// The reply, or the model that was asked, was deleted before it had answered.
        Abandoned,
    };
    Q_ENUM(End)

    /// What ended the run.
    End end = End::Canceled;
    /// The answer; where the run did not finish, what had arrived of the one that was awaited. So it is empty
    /// where the run ended while a tool was at work or the user was asked.
    QString text;
    /// The text of AgentExecutor::failed(), else empty.
    QString error;
    /// How many requests were sent.
    qint32 requests = 0;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const RunOutcome &left, const RunOutcome &right);
    /// Returns whether a field differs.
    friend bool operator!=(const RunOutcome &left, const RunOutcome &right) { return !(left == right); }
};

/// What ended a run.
using RunEnd = RunOutcome::End;

/// A conversation of many questions with a model that uses tools: an executor that remembers, and that tells
/// every end.
///
/// @code
/// auto *panel = new AgentChatPanel(this);
/// auto *session = new AgentSession(this);
/// session->setModel(model);
/// session->setToolRegistry(registry);
/// connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::appendUserMessage);
/// connect(panel, &AgentChatPanel::sendRequested, session, &AgentSession::send);
/// connect(panel, &AgentChatPanel::stopRequested, session, &AgentSession::cancel);
/// connect(session, &AgentSession::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
/// connect(session, &AgentSession::runningChanged, panel, &AgentChatPanel::setBusy);
/// connect(session, &AgentSession::runEnded, panel, [panel](const RunOutcome &outcome) {
///     panel->finishAgentMessage();
///     if (outcome.end == RunEnd::Failed)
///         panel->appendSystemMessage(outcome.error);
/// });
/// @endcode
///
/// All that AgentExecutor says of its signals, tools and approvals holds. What comes on top, in its order:
/// - runningChanged() with true, inside send(), run() or regenerate(), before anything is sent;
/// - toolStarted() before a tool runs;
/// - at the end of a run, behind the executor's own signal if there is one, approvalWithdrawn() where the
///   user had not answered, runningChanged() with false, and runEnded() once. Nothing of the run follows.
///
/// The end is told inside the call that ends the run: the signal of the reply, cancel(), or whatever begins
/// the next run. Only RunEnd::Abandoned comes from the event loop. A run that a tool cancels ends behind the
/// trace of that tool; one that a tool replaces ends at once, and the tool's call counts as not executed.
///
/// The conversation is one that a strict server accepts, at any moment: the system prompt comes first, the
/// calls of an answer have an id, the type "function" and a text as their arguments, whatever they came with,
/// and behind it stands a tool message for each of them, in their order. It says "未执行。" until its call
/// was executed or where it never is, "已取消。" where a tool at work was canceled, and the error of the
/// trace where it was denied. A question that was not answered stays, and so does what had arrived of an
/// answer; one with tool calls that cannot be read is left out.
///
/// Used through a pointer to AgentExecutor a session behaves the same. Its requests' replies are deleted when
/// they are over. It belongs to the thread of its model and tools, may be deleted in a slot of any of its
/// signals and inside a tool, and emits nothing then.
class QTAGENT_EXPORT AgentSession : public AgentExecutor
{
    Q_OBJECT

public:
    /// What follows where the user denies a tool call.
    enum class AfterDenial {
        /// The run ends there, as it does with an AgentExecutor.
        EndRun,
        /// The model reads that the call was denied, and the run goes on with the next call.
        TellModel,
    };
    Q_ENUM(AfterDenial)

    /// Creates a session without a model, without tools and with an empty conversation.
    explicit AgentSession(QObject *parent = nullptr);
    ~AgentSession() override;

    /// Continues the conversation with the question @p input; run() begins a new one. Before the first
    /// question of a conversation the system prompt is put, where there is one.
    ///
    /// A run that is in flight ends with RunEnd::Replaced first, and its request is aborted. What a slot
    /// begins while that is told is replaced in turn: so a slot of runEnded() that always sends, without a
    /// look at the outcome, never returns.
    void send(const QString &input);

    /// Drops what followed the last question and asks it again. Returns false, without any effect, while a
    /// run is in flight, and where there is no question.
    bool regenerate();

    /// Returns the conversation, which is complete in the slots of the signal that tells what happened: a
    /// tool message is in it when traceAdded() comes, the answer when assistantFinished() does.
    QVector<ChatMessage> conversation() const;

    /// Replaces the conversation, completed: tool messages that are missing are filled in, those that answer
    /// no call are dropped, calls get what they lack, and the messages of the role "system" come first. An
    /// empty one begins anew. Returns false, without any effect, while a run is in flight.
    bool setConversation(const QVector<ChatMessage> &conversation);

    /// Sets what follows where the user denies a tool call: by default AfterDenial::EndRun.
    void setAfterDenial(AfterDenial policy);

    /// Sets whether the model is told of calls that cannot be executed: those of an unknown tool, or with
    /// arguments that are no JSON object. Such a call gets the text of failed() as its result, and a trace
    /// with the status "failed", and the run goes on; broken arguments stand in the conversation as "{}". By
    /// default it is not, and the run fails. A call without a name, or without a registry, always fails.
    void setTellsModelOfBadCalls(bool tells);

    /// Sets whether neighbouring calls of one answer overlap where their tools are asynchronous and read
    /// only: their traces come as they end, their results stand in the conversation in the order of the
    /// calls, and every other call waits for them. By default, and for all other tools, calls are executed
    /// one after another.
    void setParallelToolCalls(bool parallel);

Q_SIGNALS:
    /// A run began, or is over. isRunning() has changed already.
    void runningChanged(bool running);

    /// The run is over, and nothing of it follows. The next one may be begun here, and the session deleted.
    void runEnded(const MireloQtLib::QtAgent::RunOutcome &outcome);

    /// A tool is about to run. @p call has the status "running", the duration 0 and the time of the start. A
    /// slot that cancels the run keeps the tool from running.
    void toolStarted(const MireloQtLib::QtAgent::ToolCallTrace &call);

    /// The asynchronous tool that executes the call @p callId told how far it is.
    void toolProgressed(const QString &callId, const QString &text);

    /// The question approvalRequired() with this id needs no answer any more: its run is over.
    void approvalWithdrawn(const QString &approvalId);

    /// conversation() has changed. Comes right behind the signal that tells why, where there is one.
    void conversationChanged();

private:
    friend class RunAwaiter;

    RunOutcome lastOutcome() const;

    SessionLoop *const m_sessionLoop;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
