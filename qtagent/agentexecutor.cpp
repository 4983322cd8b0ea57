#include "agentexecutor.h"

#include "toolcallrequest_p.h"

#include <QElapsedTimer>
#include <QQueue>
#include <QTimer>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

// What belongs to one run. The slots and the posted steps of a run are bound to this object: they are gone
// when the next run replaces it or the executor dies. Code that calls into the application (a signal, a
// tool, the model) keeps a QPointer to it and goes no further once that is null.
class AgentExecutor::Run : public QObject
{
public:
    QVector<ChatMessage> conversation;
    QQueue<ToolCallRequest> pendingCalls;
    // Its id is empty while no approval is pending.
    ToolCallRequest pendingApproval;
    int iteration = 0;
    bool canceled = false;
};

namespace {

ToolCallTrace traceOf(const ToolCallRequest &call, ToolPermission permission)
{
    ToolCallTrace trace;
    trace.callId = call.id;
    trace.toolName = call.name;
    trace.permission = permission;
    trace.arguments = call.arguments;
    return trace;
}

} // namespace

AgentExecutor::AgentExecutor(QObject *parent)
    : QObject(parent)
{
    // A program that links the static library may leave out the file that registers the records.
    qRegisterMetaType<ToolCallTrace>();
    qRegisterMetaType<ApprovalRequest>();
}

AgentExecutor::~AgentExecutor() = default;

void AgentExecutor::setModel(ChatModel *model)
{
    m_model = model;
}

void AgentExecutor::setToolRegistry(ToolRegistry *registry)
{
    m_registry = registry;
}

void AgentExecutor::setSystemPrompt(const QString &systemPrompt)
{
    m_systemPrompt = systemPrompt;
}

void AgentExecutor::setMaxIterations(int maxIterations)
{
    m_maxIterations = qMax(1, maxIterations);
}

void AgentExecutor::run(const QString &input)
{
    const ChatMessage question = ChatMessage::user(input);
    m_run = std::make_unique<Run>();
    if (!m_systemPrompt.trimmed().isEmpty())
        m_run->conversation.append(ChatMessage::system(m_systemPrompt));
    m_run->conversation.append(question);
    requestAnswer();
}

void AgentExecutor::requestAnswer()
{
    if (m_run->canceled)
        return;
    if (!m_model) {
        Q_EMIT failed(QStringLiteral("智能体模型尚未配置。"));
        return;
    }
    if (m_run->iteration >= m_maxIterations) {
        Q_EMIT failed(QStringLiteral("Agent exceeded max iterations."));
        return;
    }

    ++m_run->iteration;
    const QPointer<Run> run(m_run.get());
    const QVector<ChatMessage> conversation = m_run->conversation;
    const QVector<ToolDefinition> tools = m_registry ? m_registry->definitions() : QVector<ToolDefinition>();
    ChatReply *reply = m_model->chat(conversation, tools, this);
    if (run)
        awaitAnswer(reply);
}

void AgentExecutor::awaitAnswer(ChatReply *reply)
{
    m_currentReply = reply;
    if (m_run->canceled) {
        cancel();
        return;
    }
    if (!reply) {
        Q_EMIT failed(QStringLiteral("Model returned no reply."));
        return;
    }
    Run *const run = m_run.get();
    connect(reply, &ChatReply::deltaReceived, run,
            [this](const QString &delta) { Q_EMIT assistantDelta(delta); });
    connect(reply, &ChatReply::finished, run,
            [this, reply](const QString &text) { handleAnswer(reply, text); });
    connect(reply, &ChatReply::failed, run, [this](const QString &error) { Q_EMIT failed(error); });
}

void AgentExecutor::handleAnswer(ChatReply *reply, const QString &text)
{
    reply->disconnect(m_run.get());
    const QJsonArray toolCalls = reply->toolCalls();
    if (toolCalls.isEmpty()) {
        Q_EMIT assistantFinished(text);
        return;
    }
    m_run->conversation.append(reply->message());

    QQueue<ToolCallRequest> calls;
    for (const QJsonValue &toolCall : toolCalls) {
        QString error;
        calls.enqueue(parseToolCall(toolCall.toObject(), &error));
        if (!error.isEmpty()) {
            Q_EMIT failed(error);
            return;
        }
    }
    m_run->pendingCalls = calls;
    processNextCall();
}

void AgentExecutor::processNextCall()
{
    if (m_run->canceled)
        return;
    if (m_run->pendingCalls.isEmpty()) {
        post(&AgentExecutor::requestAnswer);
        return;
    }
    const ToolCallRequest call = m_run->pendingCalls.dequeue();
    AgentTool *tool = findTool(call.name);
    if (!tool)
        return;
    if (requiresApproval(tool->permission()))
        askForApproval(call, tool->permission());
    else
        execute(call, tool);
}

AgentTool *AgentExecutor::findTool(const QString &name)
{
    if (!m_registry) {
        Q_EMIT failed(QStringLiteral("工具注册表尚未配置。"));
        return nullptr;
    }
    AgentTool *tool = m_registry->tool(name);
    if (!tool)
        Q_EMIT failed(QStringLiteral("未找到工具：%1").arg(name));
    return tool;
}

// Nothing is posted here: resolveApproval() carries the run on, be it from a slot of this signal or later.
void AgentExecutor::askForApproval(const ToolCallRequest &call, ToolPermission permission)
{
    m_run->pendingApproval = call;
    ApprovalRequest request;
    request.approvalId = call.id;
    request.toolName = call.name;
    request.permission = permission;
    request.arguments = call.arguments;
    request.reason =
        QStringLiteral("该工具拥有 %1 权限，需要用户确认后才能执行。").arg(permissionToString(permission));
    Q_EMIT approvalRequired(request);
}

// A tool that has run is always recorded in its run, even where it canceled the run itself.
void AgentExecutor::execute(const ToolCallRequest &call, AgentTool *tool)
{
    const QPointer<Run> run(m_run.get());
    ToolCallTrace trace = traceOf(call, tool->permission());
    QElapsedTimer timer;
    timer.start();
    const ToolResult result = tool->invoke(call.arguments);
    trace.durationMs = timer.elapsed();
    trace.timestamp = QDateTime::currentDateTime();
    trace.status = result.success ? QStringLiteral("success") : QStringLiteral("failed");
    trace.output = toolResultText(result);
    trace.error = result.error;

    if (run)
        Q_EMIT traceAdded(trace);
    if (!run)
        return;
    run->conversation.append(ChatMessage::tool(call.id, call.name, trace.output));
    post(&AgentExecutor::processNextCall);
}

// Posts nothing: the run ends with the denial.
void AgentExecutor::deny(const ToolCallRequest &call)
{
    const QPointer<Run> run(m_run.get());
    const AgentTool *tool = m_registry ? m_registry->tool(call.name) : nullptr;
    ToolCallTrace trace = traceOf(call, tool ? tool->permission() : ToolPermission::ReadOnly);
    trace.status = QStringLiteral("denied");
    trace.error = QStringLiteral("用户拒绝了审批。");
    trace.timestamp = QDateTime::currentDateTime();
    Q_EMIT traceAdded(trace);
    if (run)
        run->conversation.append(ChatMessage::tool(call.id, call.name, trace.error));
}

void AgentExecutor::post(void (AgentExecutor::*step)())
{
    QTimer::singleShot(0, m_run.get(), [this, step] { (this->*step)(); });
}

void AgentExecutor::cancel()
{
    if (!m_run)
        return;
    m_run->canceled = true;
    m_run->pendingCalls.clear();
    m_run->pendingApproval = {};
    if (!m_currentReply)
        return;
    m_currentReply->disconnect(m_run.get());
    m_currentReply->cancel();
}

void AgentExecutor::resolveApproval(const QString &approvalId, bool allowed)
{
    if (!m_run || approvalId.isEmpty() || approvalId != m_run->pendingApproval.id)
        return;
    const ToolCallRequest call = std::exchange(m_run->pendingApproval, {});
    if (!allowed)
        deny(call);
    else if (AgentTool *tool = findTool(call.name))
        execute(call, tool);
}

} // namespace QtAgent
} // namespace MireloQtLib
