#ifndef MIRELOQTLIB_QTAGENT_AGENTEXECUTOR_H
#define MIRELOQTLIB_QTAGENT_AGENTEXECUTOR_H

#include <qtagent/chatmodel.h>
#include <qtagent/qtagent_export.h>
#include <qtagent/toolcalltrace.h>
#include <qtagent/toolregistry.h>

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

struct ToolCallRequest;

/// Lets a model answer a question with the help of tools.
///
/// A run sends the conversation to the model, executes the tool calls that the model answers with, sends
/// their results back, and so on until the model answers without a tool call. The user is asked before a
/// tool runs whose permission is not ToolPermission::ReadOnly.
///
/// @code
/// auto *executor = new AgentExecutor(this);
/// executor->setModel(model);
/// executor->setToolRegistry(registry);
/// executor->setSystemPrompt(tr("You look after the pumps."));
/// connect(executor, &AgentExecutor::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
/// connect(executor, &AgentExecutor::approvalRequired, this, [=](const ApprovalRequest &request) {
///     const auto answer = QMessageBox::question(this, request.toolName, request.reason);
///     executor->resolveApproval(request.approvalId, answer == QMessageBox::Yes);
/// });
/// connect(executor, &AgentExecutor::assistantFinished, this, &Window::showAnswer);
/// connect(executor, &AgentExecutor::failed, this, &Window::showError);
/// executor->run(question);
/// @endcode
///
/// The signals of a run, in their order:
/// - for every response, assistantDelta() for its pieces of text as they arrive;
/// - for every tool call of a response, one after another, approvalRequired() if the tool needs it, then
///   traceAdded();
/// - at the end exactly one of assistantFinished() and failed().
///
/// A run ends without either of them where the user denies a tool call, where cancel() is called, where
/// run() starts the next one, and where the model ends a request without a signal (its reply is deleted,
/// or the model while it waits for a network).
///
/// The executor owns neither the model nor the registry, and does not mind when they are deleted. It may
/// itself be deleted, canceled or started again from a slot connected to any of its signals and from
/// inside a tool. The replies of its requests are its children and live as long as it does.
class QTAGENT_EXPORT AgentExecutor : public QObject
{
    Q_OBJECT

public:
    /// Creates an executor without a model and without tools.
    explicit AgentExecutor(QObject *parent = nullptr);
    ~AgentExecutor() override;

    /// Sets the model that the next requests go to, also those of a run that has started already.
    void setModel(ChatModel *model);

    /// Sets the tools that are offered with the next requests and that the next calls are looked up in.
    /// Without a registry no tools are offered.
    void setToolRegistry(ToolRegistry *registry);

    /// Sets the instruction that stands before the question from the next run() on. A blank one, which is
    /// the default, is left out.
    void setSystemPrompt(const QString &systemPrompt);

    /// Sets how many requests a run may send: at least 1, by default 6.
    void setMaxIterations(int maxIterations);

    /// Starts a new conversation with the question @p input. Returns once the first request is sent; what
    /// the model answers arrives through the signals. Only a missing model, and one that returns no reply, are
    /// reported by failed() before the call returns.
    ///
    /// A run that is in flight is dropped without a signal, with its open approval and its remaining tool
    /// calls. Its request is not canceled, but nothing of it arrives any more: call cancel() first to stop
    /// that, too.
    void run(const QString &input);

public Q_SLOTS:
    /// Ends the run and cancels its request. Nothing is emitted, except for the trace of a tool that is
    /// running at this moment. Where the run has ended already, its last reply is marked as canceled and
    /// nothing else happens.
    void cancel();

    /// Answers approvalRequired(). Does nothing unless @p approvalId is the id of the call that is waiting
    /// now.
    ///
    /// If @p allowed, the tool runs and traceAdded() is emitted before this returns; the run goes on
    /// from the event loop. Otherwise traceAdded() is emitted with the status "denied" and the run ends
    /// there: no further tool, request or signal.
    ///
    /// Ids come from the model and may repeat from run to run: do not pass on the answer of a dialog whose
    /// run has ended.
    void resolveApproval(const QString &approvalId, bool allowed);

Q_SIGNALS:
    /// The piece @p delta of the model's text arrived.
    void assistantDelta(const QString &delta);

    /// The run is complete. @p text is the model's last answer.
    void assistantFinished(const QString &text);

    /// A tool call was executed or denied. A tool that failed does not end the run: its result goes back
    /// to the model like any other.
    void traceAdded(const MireloQtLib::QtAgent::ToolCallTrace &trace);

    /// The run waits for the user's decision on a tool call, until resolveApproval() is called with the
    /// request's approvalId. That may happen in the slot, also from a modal dialog, or at any later time.
    void approvalRequired(const MireloQtLib::QtAgent::ApprovalRequest &request);

    /// The run ended with @p error:
    /// - "智能体模型尚未配置。" without a model,
    /// - "Agent exceeded max iterations." where another request would be one too many,
    /// - the model's own report (see ChatReply::failed()),
    /// - "Model returned no reply." where ChatModel::chat() returns null,
    /// - "Tool call is missing function name." and
    /// - "Invalid tool arguments for " with the tool's name, ": " and the JSON parser's text, before any
    ///   call of that response is executed,
    /// - "工具注册表尚未配置。" for a tool call without a registry,
    /// - "未找到工具：" with the name of a tool that is not registered.
    void failed(const QString &error);

private:
    class Run;

    void requestAnswer();
    void awaitAnswer(ChatReply *reply);
    void handleAnswer(ChatReply *reply, const QString &text);
    void processNextCall();
    AgentTool *findTool(const QString &name);
    void askForApproval(const ToolCallRequest &call, ToolPermission permission);
    void execute(const ToolCallRequest &call, AgentTool *tool);
    void deny(const ToolCallRequest &call);
    void post(void (AgentExecutor::*step)());

    QPointer<ChatModel> m_model;
    QPointer<ToolRegistry> m_registry;
    QPointer<ChatReply> m_currentReply;
    QString m_systemPrompt;
    int m_maxIterations = 6;
    std::unique_ptr<Run> m_run;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
