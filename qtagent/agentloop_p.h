#ifndef MIRELOQTLIB_QTAGENT_AGENTLOOP_P_H
#define MIRELOQTLIB_QTAGENT_AGENTLOOP_P_H

#include "agentconversation_p.h"
#include "toolcallrequest_p.h"
#include "toolexecution_p.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/agentsession.h>

#include <QObject>
#include <QPointer>
#include <QQueue>

#include <functional>
#include <list>
#include <memory>

namespace MireloQtLib {
namespace QtAgent {

// The question whether a tool may run. Whoever waits for it to be over is called when it goes away.
class ApprovalQuestion
{
public:
    ApprovalQuestion(const PendingCall &call, AgentTool *tool, ToolPermission permission);
    ~ApprovalQuestion();
    Q_DISABLE_COPY(ApprovalQuestion)

    const PendingCall &call() const { return m_call; }

    // As it is put to the user.
    ApprovalRequest request() const;

    // Whether @p shown is this question: the id, the tool's name and the arguments count.
    bool equals(const ApprovalRequest &shown) const;

    // Whether it was asked for @p tool with the permission that this has now.
    bool holdsFor(const AgentTool *tool) const;

    void whenOver(QObject *context, const std::function<void()> &callback);

private:
    struct Callback
    {
        QPointer<QObject> context;
        std::function<void()> function;
    };

    const PendingCall m_call;
    const QPointer<AgentTool> m_tool;
    const ToolPermission m_permission;
    QVector<Callback> m_callbacks;
};

// What belongs to one run. The slots and the posted steps of a run are bound to this object: they are gone
// when the next run replaces it or the executor dies. Code that calls into the application (a signal, a
// tool, the model) keeps a QPointer to it and goes no further once that is null.
class AgentRun : public QObject
{
public:
    enum class State { Working, Awaiting, Over };

    State state = State::Working;
    // How many requests were sent.
    int requests = 0;
    // The model that was asked last.
    QPointer<ChatModel> model;
    // Those of the last answer that no tool has been called for.
    QQueue<PendingCall> pendingCalls;
    // Those whose tools are at work, or about to be.
    std::list<ToolExecution> executions;
    // Null while no approval is pending.
    std::unique_ptr<ApprovalQuestion> question;
    // How many tools are on the stack at this moment.
    int toolDepth = 0;
    // The number of the step that is posted. Those posted earlier are dropped.
    int step = 0;

    // Takes @p execution out of the others. Returns a list of this one.
    std::list<ToolExecution> take(const ToolExecution *execution);
};

// The loop of an AgentExecutor: asks the model, executes the calls of its answer and asks again. An
// AgentSession is an executor with another loop, which overrides what differs and emits the signals that the
// executor does not have.
class AgentLoop
{
public:
    explicit AgentLoop(AgentExecutor *executor);
    virtual ~AgentLoop();
    Q_DISABLE_COPY(AgentLoop)

    void setModel(ChatModel *model) { m_model = model; }
    void setToolRegistry(ToolRegistry *registry) { m_registry = registry; }
    void setSystemPrompt(const QString &systemPrompt) { m_systemPrompt = systemPrompt; }
    void setMaxIterations(int maxIterations) { m_maxIterations = qMax(1, maxIterations); }
    void setAfterDenial(AgentSession::AfterDenial policy) { m_afterDenial = policy; }
    void setTellsModelOfBadCalls(bool tells) { m_tellsModelOfBadCalls = tells; }
    void setParallelToolCalls(bool parallel) { m_parallelToolCalls = parallel; }

    // The executor dies: what runs is canceled while all is whole, and nothing can be begun any more.
    void die();

    virtual void run(const QString &input);
    virtual void cancel();
    bool isRunning() const;

    void resolveApproval(const QString &approvalId, bool allowed);
    bool isWaitingFor(const ApprovalRequest &shown) const;
    bool answerApproval(const ApprovalRequest &shown, bool allowed);
    void whenApprovalOver(QObject *context, const std::function<void()> &callback);

protected:
    // What a session adds. Where these emit, a slot may have ended or replaced the run or deleted all.

    // The run awaits @p reply, whose own signals are connected.
    virtual void watchReply(ChatReply *reply);
    virtual void receiveDelta(const QString &delta);
    // Nobody needs @p reply any more.
    virtual void releaseReply(ChatReply *reply);
    // Makes @p answer, the message of @p reply, whose calls were read as @p calls, what goes into the
    // conversation.
    virtual void completeAnswer(const ChatReply &reply, const QQueue<PendingCall> &calls,
                                ChatMessage *answer) const;
    // The conversation has changed, and the signal that tells why was emitted.
    virtual void tellConversation();
    // The tool that executes @p callId told how far it is.
    virtual void tellProgress(const QString &callId, const QString &text);
    // The tool of @p call is about to run. Returns whether it may.
    virtual bool announce(const PendingCall &call, AgentTool *tool, ToolPermission permission);
    // The run is over from now on.
    virtual void end(RunEnd end, const QString &text, const QString &error);
    // The executor's own signal of the end was emitted.
    virtual void tellEnd();

    void requestAnswer();
    // Cancels the tools of runs that are over. Slots may do anything meanwhile.
    void cancelTools();
    bool isDead() const { return m_isDead; }
    // Looks for the tool of @p call once more, in the next turn.
    void takeUpAnew(const PendingCall &call);

    AgentExecutor *const m_executor;
    QString m_systemPrompt;
    AgentConversation m_conversation;
    std::unique_ptr<AgentRun> m_run;
    // The reply to the last request.
    QPointer<ChatReply> m_reply;

private:
    void awaitAnswer(ChatReply *reply);
    void handleAnswer(ChatReply *reply, const QString &text);
    void handleFailure(ChatReply *reply, const QString &error);
    QQueue<PendingCall> readCalls(const QJsonArray &toolCalls, QString *error) const;
    void beginCalls(ChatReply *reply);
    void processNextCall();
    AgentTool *findTool(const PendingCall &call);
    bool mustWait() const;
    void takeUp(const PendingCall &call);
    void askForApproval(const PendingCall &call, AgentTool *tool, ToolPermission permission);
    void execute(const PendingCall &call, AgentTool *tool, ToolPermission permission);
    void invoke(ToolExecution *execution, AgentTool *tool);
    void start(ToolExecution *execution, AsyncTool *tool);
    void takeReply(ToolExecution *execution, ToolReply *reply);
    void waitFor(ToolExecution *execution, ToolReply *reply);
    void cutShort();
    void releaseTools();
    void release(ToolExecution *execution);
    void settle(ToolExecution *execution, const ToolResult &result);
    void resolve(const PendingCall &call, bool allowed);
    void deny(const PendingCall &call);
    void reject(const PendingCall &call, const QString &error);
    void record(const PendingCall &call, const ToolCallTrace &trace, const QString &result);
    void finish(const QString &text);
    void fail(const QString &error, const QString &text = {});
    void post(void (AgentLoop::*step)());

    QPointer<ChatModel> m_model;
    QPointer<ToolRegistry> m_registry;
    int m_maxIterations = 6;
    AgentSession::AfterDenial m_afterDenial = AgentSession::AfterDenial::EndRun;
    bool m_tellsModelOfBadCalls = false;
    bool m_parallelToolCalls = false;
    bool m_isDead = false;
    // Nobody waits for these any more.
    QQueue<QPointer<ToolReply>> m_canceledTools;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
