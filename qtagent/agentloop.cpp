#include "agentloop_p.h"

#include <QElapsedTimer>
#include <QTimer>

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
    request.reason =
        QStringLiteral("该工具拥有 %1 权限，需要用户确认后才能执行。").arg(permissionToString(m_permission));
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

void AgentLoop::run(const QString &input)
{
    const ChatMessage question = ChatMessage::user(input);
    m_run = std::make_unique<AgentRun>();
    m_conversation.setMessages({});
    m_conversation.addQuestion(m_systemPrompt, question);
    requestAnswer();
}

void AgentLoop::requestAnswer()
{
    if (m_run->state == AgentRun::State::Over)
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
    const QJsonArray toolCalls = reply->toolCalls();
    if (toolCalls.isEmpty()) {
        finish(text);
        return;
    }
    QString error;
    const QVector<PendingCall> calls = readCalls(toolCalls, &error);
    if (error.isEmpty())
        takeCalls(reply, calls);
    else
        fail(error, text);
}

void AgentLoop::takeCalls(ChatReply *reply, const QVector<PendingCall> &calls)
{
    m_conversation.addCalls(messageOf(*reply, calls), calls);
    m_run->calls = calls;
    m_run->nextCall = 0;
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
QVector<PendingCall> AgentLoop::readCalls(const QJsonArray &toolCalls, QString *error) const
{
    QVector<PendingCall> calls;
    calls.reserve(toolCalls.size());
    for (const QJsonValue &toolCall : toolCalls) {
        PendingCall call = parseToolCall(toolCall.toObject());
        call.index = int(calls.size());
        const bool isNameless = call.name.trimmed().isEmpty();
        if (!call.error.isEmpty() && (isNameless || !m_tellsModelOfBadCalls)) {
            *error = call.error;
            return {};
        }
        calls.append(call);
    }
    return calls;
}

void AgentLoop::processNextCall()
{
    if (m_run->state == AgentRun::State::Over)
        return;
    if (m_run->nextCall == m_run->calls.size()) {
        post(&AgentLoop::requestAnswer);
        return;
    }
    const PendingCall call = m_run->calls.at(m_run->nextCall++);
    if (call.error.isEmpty())
        takeUp(call);
    else
        reject(call, call.error);
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
    m_run->nextCall = call.index;
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

// A tool that has run is always recorded in its run, even where it canceled the run itself.
void AgentLoop::execute(const PendingCall &call, AgentTool *tool, ToolPermission permission)
{
    if (!announce(call, tool, permission))
        return;
    const QPointer<AgentRun> run(m_run.get());
    ToolCallTrace trace = traceOf(call, QString(), permission);
    m_run->isInsideTool = true;
    QElapsedTimer timer;
    timer.start();
    const ToolResult result = tool->invoke(call.arguments);
    trace.durationMs = timer.elapsed();
    trace.timestamp = QDateTime::currentDateTime();
    trace.status = result.success ? QStringLiteral("success") : QStringLiteral("failed");
    trace.output = toolResultText(result);
    trace.error = result.error;
    if (!run)
        return;
    run->isInsideTool = false;
    record(call, trace, trace.output);
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
    m_conversation.setResult(call.index, result);
    Q_EMIT m_executor->traceAdded(trace);
    if (run)
        tellConversation();
    if (!run)
        return;
    if (run->state == AgentRun::State::Over)
        tellEnd();
    else
        post(&AgentLoop::processNextCall);
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
    QTimer::singleShot(0, m_run.get(), [this, step] { (this->*step)(); });
}

void AgentLoop::cancel()
{
    if (!m_run)
        return;
    end(RunEnd::Canceled, {}, {});
    if (!m_reply)
        return;
    m_reply->disconnect(m_run.get());
    m_reply->cancel();
}

void AgentLoop::resolveApproval(const QString &approvalId, bool allowed)
{
    if (!m_run || !m_run->question || m_run->question->call().id != approvalId)
        return;
    const PendingCall call = m_run->question->call();
    m_run->question.reset();
    resolve(call, allowed);
}

bool AgentLoop::answerApproval(const ApprovalRequest &shown, bool allowed)
{
    if (!m_run || !m_run->question || !m_run->question->equals(shown))
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

ToolCallTrace AgentLoop::traceOf(const PendingCall &call, const QString &status, ToolPermission permission)
{
    ToolCallTrace trace;
    trace.callId = call.id;
    trace.toolName = call.name;
    trace.status = status;
    trace.permission = permission;
    trace.arguments = call.arguments;
    return trace;
}

void AgentLoop::watchReply(ChatReply * /*reply*/) {}

void AgentLoop::receiveDelta(const QString &delta)
{
    Q_EMIT m_executor->assistantDelta(delta);
}

void AgentLoop::releaseReply(ChatReply * /*reply*/) {}

ChatMessage AgentLoop::messageOf(const ChatReply &reply, const QVector<PendingCall> & /*calls*/) const
{
    return reply.message();
}

void AgentLoop::tellConversation() {}

bool AgentLoop::announce(const PendingCall & /*call*/, AgentTool * /*tool*/, ToolPermission /*permission*/)
{
    return true;
}

void AgentLoop::end(RunEnd /*end*/, const QString & /*text*/, const QString & /*error*/)
{
    m_run->state = AgentRun::State::Over;
    m_run->question.reset();
}

void AgentLoop::tellEnd() {}

} // namespace QtAgent
} // namespace MireloQtLib
