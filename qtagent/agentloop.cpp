#include "agentloop_p.h"

#include "answercontent_p.h"
#include "toolresults_p.h"

#include <qtagent/completionreply.h>

#include <QTimer>

#include <algorithm>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

ApprovalQuestion::ApprovalQuestion(const PendingCall &call, AgentTool *tool, ToolPermission permission)
    : m_call(call)
    , m_tool(tool)
    , m_permission(permission)
{}

ApprovalQuestion::~ApprovalQuestion()
{
    for (const Callback &callback : qAsConst(m_callbacks)) {
        if (callback.context)
            QMetaObject::invokeMethod(callback.context, callback.function, Qt::QueuedConnection);
    }
}

ApprovalRequest ApprovalQuestion::request() const
{
    ApprovalRequest request;
    request.approvalId = m_call.id;
    request.toolName = m_call.name;
    request.permission = m_permission;
    request.arguments = m_call.arguments;
    request.reason = AgentExecutor::tr("该工具拥有 %1 权限，需要用户确认后才能执行。")
                         .arg(permissionToString(m_permission));
    return request;
}

bool ApprovalQuestion::equals(const ApprovalRequest &shown) const
{
    return shown.approvalId == m_call.id && shown.toolName == m_call.name
        && shown.arguments == m_call.arguments;
}

bool ApprovalQuestion::holdsFor(const AgentTool *tool) const
{
    return m_tool == tool && m_permission == tool->permission();
}

void ApprovalQuestion::whenOver(QObject *context, const std::function<void()> &callback)
{
    m_callbacks.append({context, callback});
}

std::list<ToolExecution> AgentRun::take(const ToolExecution *execution)
{
    const auto place = std::find_if(executions.begin(), executions.end(),
                                    [execution](const ToolExecution &entry) { return &entry == execution; });
    std::list<ToolExecution> taken;
    taken.splice(taken.end(), executions, place);
    return taken;
}

AgentLoop::AgentLoop(AgentExecutor *executor)
    : m_executor(executor)
{}

AgentLoop::~AgentLoop() = default;

bool AgentLoop::isRunning() const
{
    if (!m_run || m_run->state == AgentRun::State::Over)
        return false;
    const bool canBeAnswered = m_reply && !m_reply->isCanceled() && m_run->model;
    return m_run->state != AgentRun::State::Awaiting || canBeAnswered;
}

void AgentLoop::die()
{
    m_isDead = true;
    if (m_run)
        releaseTools();
    m_run.reset();
    cancelTools();
}

void AgentLoop::run(const QString &input)
{
    if (m_isDead)
        return;
    const ChatMessage question = ChatMessage::user(input);
    if (m_run)
        releaseTools();
    m_run = std::make_unique<AgentRun>();
    m_conversation.setMessages({});
    m_conversation.addQuestion(m_systemPrompt, question);
    const QPointer<AgentRun> run(m_run.get());
    cancelTools();
    if (run)
        requestAnswer();
}

void AgentLoop::requestAnswer()
{
    if (m_run->state != AgentRun::State::Working)
        return;
    if (!m_model) {
        fail(QStringLiteral("智能体模型尚未配置。"));
        return;
    }
    if (m_run->requests >= m_maxIterations) {
        fail(QStringLiteral("Agent exceeded max iterations."));
        return;
    }

    ++m_run->requests;
    m_run->model = m_model;
    const QPointer<AgentExecutor> executor(m_executor);
    const QPointer<AgentRun> run(m_run.get());
    const QVector<ChatMessage> conversation = m_conversation.messages();
    const QVector<ToolDefinition> tools = m_registry ? m_registry->definitions() : QVector<ToolDefinition>();
    ChatReply *reply = m_model->chat(conversation, tools, m_executor);
    if (run)
        awaitAnswer(reply);
    else if (executor && reply)
        releaseReply(reply);
}

void AgentLoop::awaitAnswer(ChatReply *reply)
{
    m_reply = reply;
    if (m_run->state == AgentRun::State::Over) {
        cancel();
        return;
    }
    if (!reply) {
        fail(QStringLiteral("Model returned no reply."));
        return;
    }
    AgentRun *const run = m_run.get();
    run->state = AgentRun::State::Awaiting;
    QObject::connect(reply, &ChatReply::deltaReceived, run,
                     [this](const QString &delta) { receiveDelta(delta); });
    QObject::connect(reply, &ChatReply::finished, run,
                     [this, reply](const QString &text) { handleAnswer(reply, text); });
    QObject::connect(reply, &ChatReply::failed, run,
                     [this, reply](const QString &error) { handleFailure(reply, error); });
    watchReply(reply);
}

void AgentLoop::handleAnswer(ChatReply *reply, const QString &text)
{
    reply->disconnect(m_run.get());
    m_run->state = AgentRun::State::Working;
    ChatMessage answer = reply->message();
    if (answer.toolCalls.isEmpty()) {
        finish(text);
        return;
    }
    QString error;
    QQueue<PendingCall> calls = readCalls(answer.toolCalls, &error);
    if (!error.isEmpty()) {
        fail(error, text);
        return;
    }
    completeAnswer(*reply, calls, &answer);
    m_conversation.addCalls(answer, calls);
    m_run->pendingCalls = std::move(calls);
    beginCalls(reply);
}

void AgentLoop::beginCalls(ChatReply *reply)
{
    const QPointer<AgentRun> run(m_run.get());
    releaseReply(reply);
    if (run)
        tellConversation();
    if (run)
        processNextCall();
}

void AgentLoop::handleFailure(ChatReply *reply, const QString &error)
{
    reply->disconnect(m_run.get());
    fail(error);
}

// Sets @p error where the response cannot be used.
QQueue<PendingCall> AgentLoop::readCalls(const QJsonArray &toolCalls, QString *error) const
{
    QQueue<PendingCall> calls;
    calls.reserve(toolCalls.size());
    for (const QJsonValue &toolCall : toolCalls) {
        PendingCall call = parseToolCall(toolCall.toObject());
        call.index = int(calls.size());
        if (!call.error.isEmpty() && (!m_tellsModelOfBadCalls || call.name.trimmed().isEmpty())) {
            *error = call.error;
            return {};
        }
        calls.enqueue(call);
    }
    return calls;
}

// May come late: where calls overlap, a slot that turns the event loop can be overtaken by the next question
// or request. Their ends carry the run on.
void AgentLoop::processNextCall()
{
    if (m_run->state != AgentRun::State::Working || m_run->question || mustWait())
        return;
    if (m_run->pendingCalls.isEmpty()) {
        post(&AgentLoop::requestAnswer);
        return;
    }
    const PendingCall call = m_run->pendingCalls.dequeue();
    if (call.error.isEmpty())
        takeUp(call);
    else
        reject(call, call.error);
}

// Calls are executed one after another, but neighbours that take their time and only read may overlap.
bool AgentLoop::mustWait() const
{
    if (m_run->executions.empty())
        return false;
    const bool isReading = m_run->executions.front().permission() == ToolPermission::ReadOnly;
    if (!m_parallelToolCalls || !isReading || m_run->pendingCalls.isEmpty() || !m_registry)
        return true;
    const PendingCall &call = m_run->pendingCalls.head();
    const auto *tool = qobject_cast<AsyncTool *>(m_registry->tool(call.name));
    return !call.error.isEmpty() || !tool || tool->permission() != ToolPermission::ReadOnly;
}

void AgentLoop::takeUp(const PendingCall &call)
{
    AgentTool *tool = findTool(call);
    if (!tool)
        return;
    const ToolPermission permission = tool->permission();
    if (requiresApproval(permission))
        askForApproval(call, tool, permission);
    else
        execute(call, tool, permission);
}

void AgentLoop::takeUpAnew(const PendingCall &call)
{
    m_run->pendingCalls.prepend(call);
    post(&AgentLoop::processNextCall);
}

// Deals with the call itself where there is no tool.
AgentTool *AgentLoop::findTool(const PendingCall &call)
{
    if (!m_registry) {
        fail(QStringLiteral("工具注册表尚未配置。"));
        return nullptr;
    }
    AgentTool *tool = m_registry->tool(call.name);
    if (!tool)
        reject(call, QStringLiteral("未找到工具：%1").arg(call.name));
    return tool;
}

// Nothing is posted here: the answer carries the run on, be it from a slot of this signal or later.
void AgentLoop::askForApproval(const PendingCall &call, AgentTool *tool, ToolPermission permission)
{
    m_run->question = std::make_unique<ApprovalQuestion>(call, tool, permission);
    Q_EMIT m_executor->approvalRequired(m_run->question->request());
}

void AgentLoop::execute(const PendingCall &call, AgentTool *tool, ToolPermission permission)
{
    const QPointer<AgentRun> run(m_run.get());
    ToolExecution *const execution = &m_run->executions.emplace_back(call, permission);
    const bool isAllowed = announce(call, tool, permission);
    if (!run)
        return;
    if (!isAllowed) {
        run->take(execution);
        return;
    }
    ++run->toolDepth;
    execution->beginTime();
    if (auto *asyncTool = qobject_cast<AsyncTool *>(tool))
        start(execution, asyncTool);
    else
        invoke(execution, tool);
}

// A tool that has run is always recorded in its run, even where it canceled the run itself.
void AgentLoop::invoke(ToolExecution *execution, AgentTool *tool)
{
    const QPointer<AgentRun> run(m_run.get());
    const QJsonObject arguments = execution->call().arguments;
    const ToolResult result = tool->invoke(arguments);
    if (!run)
        return;
    --run->toolDepth;
    settle(execution, result);
}

void AgentLoop::start(ToolExecution *execution, AsyncTool *tool)
{
    const QPointer<AgentExecutor> executor(m_executor);
    const QPointer<AgentRun> run(m_run.get());
    const QJsonObject arguments = execution->call().arguments;
    ToolReply *reply = tool->start(arguments, m_executor);
    if (run) {
        --run->toolDepth;
        takeReply(execution, reply);
    } else if (executor && reply) {
        m_canceledTools.enqueue(reply);
        cancelTools();
    }
}

void AgentLoop::takeReply(ToolExecution *execution, ToolReply *reply)
{
    if (!reply) {
        settle(execution, failedResult(QStringLiteral("Tool returned no reply.")));
        return;
    }
    if (!reply->isRunning())
        reply->deleteLater();
    if (reply->isCanceled())
        settle(execution, failedResult(QStringLiteral("Tool call was canceled.")));
    else if (!reply->isRunning())
        settle(execution, reply->result());
    else
        waitFor(execution, reply);
}

void AgentLoop::waitFor(ToolExecution *execution, ToolReply *reply)
{
    const ToolReplyListener *const listener = execution->waitFor(reply);
    if (m_run->state == AgentRun::State::Over) {
        cutShort();
        return;
    }
    QObject::connect(listener, &ToolReplyListener::progressed, m_run.get(),
                     [this, id = execution->call().id](const QString &text) { tellProgress(id, text); });
    QObject::connect(listener, &ToolReplyListener::ended, m_run.get(),
                     [this, execution](const ToolResult &result) { settle(execution, result); });
    post(&AgentLoop::processNextCall);
}

// The tool canceled the run before it returned.
void AgentLoop::cutShort()
{
    const QPointer<AgentRun> run(m_run.get());
    releaseTools();
    cancelTools();
    if (run && run->toolDepth == 0)
        tellEnd();
}

// Gives up the tools that are at work.
void AgentLoop::releaseTools()
{
    auto &executions = m_run->executions;
    for (auto execution = executions.begin(); execution != executions.end();) {
        if (execution->isWaiting()) {
            release(&*execution);
            execution = executions.erase(execution);
        } else {
            ++execution;
        }
    }
}

void AgentLoop::release(ToolExecution *execution)
{
    ToolReply *const reply = execution->release();
    // A slot that was connected before ours may cancel the run when the tool has finished.
    const bool hasFinished = reply && !reply->isRunning() && !reply->isCanceled();
    m_conversation.setResult(execution->call().index,
                             hasFinished ? toolResultText(reply->result()) : QStringLiteral("已取消。"));
    m_canceledTools.enqueue(reply);
}

void AgentLoop::cancelTools()
{
    if (m_canceledTools.isEmpty())
        return;
    const QPointer<AgentExecutor> executor(m_executor);
    while (executor && !m_canceledTools.isEmpty()) {
        const QPointer<ToolReply> reply = m_canceledTools.dequeue();
        if (reply)
            reply->cancel();
        if (reply)
            reply->deleteLater();
    }
}

void AgentLoop::settle(ToolExecution *execution, const ToolResult &result)
{
    const std::list<ToolExecution> settled = m_run->take(execution);
    const ToolCallTrace trace = execution->trace(result);
    if (ToolReply *reply = execution->release())
        reply->deleteLater();
    record(execution->call(), trace, trace.output);
}

void AgentLoop::deny(const PendingCall &call)
{
    const AgentTool *tool = m_registry ? m_registry->tool(call.name) : nullptr;
    ToolCallTrace trace =
        traceOf(call, QStringLiteral("denied"), tool ? tool->permission() : ToolPermission::ReadOnly);
    trace.error = QStringLiteral("用户拒绝了审批。");
    trace.timestamp = QDateTime::currentDateTime();
    if (m_afterDenial == AgentSession::AfterDenial::EndRun)
        end(RunEnd::Denied, {}, {});
    record(call, trace, trace.error);
}

void AgentLoop::reject(const PendingCall &call, const QString &error)
{
    if (!m_tellsModelOfBadCalls) {
        fail(error);
        return;
    }
    ToolCallTrace trace = traceOf(call, QStringLiteral("failed"), ToolPermission::ReadOnly);
    trace.output = error;
    trace.error = error;
    trace.timestamp = QDateTime::currentDateTime();
    record(call, trace, error);
}

// The one place from which a run goes on behind a call.
void AgentLoop::record(const PendingCall &call, const ToolCallTrace &trace, const QString &result)
{
    const QPointer<AgentRun> run(m_run.get());
    // A slot that turns the event loop is not to be overtaken by a step from before.
    ++m_run->step;
    m_conversation.setResult(call.index, result);
    Q_EMIT m_executor->traceAdded(trace);
    if (run)
        tellConversation();
    if (!run)
        return;
    if (run->state != AgentRun::State::Over)
        post(&AgentLoop::processNextCall);
    else if (run->toolDepth == 0)
        tellEnd();
}

void AgentLoop::finish(const QString &text)
{
    const QPointer<AgentRun> run(m_run.get());
    end(RunEnd::Finished, text, {});
    Q_EMIT m_executor->assistantFinished(text);
    if (run)
        tellEnd();
}

void AgentLoop::fail(const QString &error, const QString &text)
{
    const QPointer<AgentRun> run(m_run.get());
    end(RunEnd::Failed, text, error);
    Q_EMIT m_executor->failed(error);
    if (run)
        tellEnd();
}

void AgentLoop::post(void (AgentLoop::*step)())
{
    const int number = ++m_run->step;
    QTimer::singleShot(0, m_run.get(), [this, step, number] {
        if (number == m_run->step)
            (this->*step)();
    });
}

void AgentLoop::cancel()
{
    if (!m_run)
        return;
    end(RunEnd::Canceled, {}, {});
    const QPointer<AgentExecutor> executor(m_executor);
    if (m_reply) {
        m_reply->disconnect(m_run.get());
        m_reply->cancel();
    }
    if (executor)
        cancelTools();
}

void AgentLoop::resolveApproval(const QString &approvalId, bool allowed)
{
    if (!m_run || !m_run->question || m_run->question->call().id != approvalId)
        return;
    const PendingCall call = m_run->question->call();
    m_run->question.reset();
    resolve(call, allowed);
}

bool AgentLoop::isWaitingFor(const ApprovalRequest &shown) const
{
    return m_run && m_run->question && m_run->question->equals(shown);
}

bool AgentLoop::answerApproval(const ApprovalRequest &shown, bool allowed)
{
    if (!isWaitingFor(shown))
        return false;
    const PendingCall call = m_run->question->call();
    const AgentTool *tool = m_registry ? m_registry->tool(call.name) : nullptr;
    const bool isOutdated = allowed && tool && !m_run->question->holdsFor(tool);
    m_run->question.reset();
    if (isOutdated)
        takeUpAnew(call);
    else
        resolve(call, allowed);
    return !isOutdated;
}

void AgentLoop::resolve(const PendingCall &call, bool allowed)
{
    if (!allowed)
        deny(call);
    else if (AgentTool *tool = findTool(call))
        execute(call, tool, tool->permission());
}

void AgentLoop::whenApprovalOver(QObject *context, const std::function<void()> &callback)
{
    if (!context || !callback)
        return;
    if (m_run && m_run->question)
        m_run->question->whenOver(context, callback);
    else
        QMetaObject::invokeMethod(context, callback, Qt::QueuedConnection);
}

void AgentLoop::watchReply(ChatReply * /*reply*/) {}

void AgentLoop::receiveDelta(const QString &delta)
{
    Q_EMIT m_executor->assistantDelta(delta);
}

void AgentLoop::releaseReply(ChatReply * /*reply*/) {}

void AgentLoop::completeAnswer(const ChatReply &reply, const QQueue<PendingCall> & /*calls*/,
                               ChatMessage *answer) const
{
    const auto *completion = qobject_cast<const CompletionReply *>(&reply);
    if (completion && !answer->toolCalls.isEmpty())
        answer->content = contentAsTold(*completion, answer->content);
}

void AgentLoop::tellConversation() {}

void AgentLoop::tellProgress(const QString & /*callId*/, const QString & /*text*/) {}

bool AgentLoop::announce(const PendingCall & /*call*/, AgentTool * /*tool*/, ToolPermission /*permission*/)
{
    return true;
}

void AgentLoop::end(RunEnd /*end*/, const QString & /*text*/, const QString & /*error*/)
{
    m_run->state = AgentRun::State::Over;
    m_run->question.reset();
    releaseTools();
}

void AgentLoop::tellEnd() {}

} // namespace QtAgent
} // namespace MireloQtLib
