#ifndef MIRELOQTLIB_QTAGENT_AGENTEXECUTOR_H
#define MIRELOQTLIB_QTAGENT_AGENTEXECUTOR_H

#include <qtagent/chatmodel.h>
#include <qtagent/qtagent_export.h>
#include <qtagent/toolcalltrace.h>
#include <qtagent/toolregistry.h>

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class AgentLoop;

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
/// connect(executor, &AgentExecutor::approvalRequired, this, &Window::askUser); // see answerApproval()
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
/// An AsyncTool is started where another tool is invoked, and the run goes on once its reply has ended:
/// traceAdded() comes inside ToolReply::finish(), and its duration counts from the start to there. Replies
/// are children of the executor, which deletes them later. cancel(), the next run() and the death of the
/// executor cancel the reply of a tool that is at work, and no trace of that call follows. Otherwise a call
/// without a result fails in words, and the run goes on:
/// - "Tool returned no reply.", where AsyncTool::start() returns null,
/// - "Tool reply was deleted.", from the event loop,
/// - "Tool call was canceled.", by somebody else.
///
/// The executor owns neither the model nor the registry, and does not mind when they are deleted. It may
/// itself be deleted, canceled or started again from a slot connected to any of its signals and from
/// inside a tool. The replies of its requests are its children and live as long as it does. All of these
/// belong to one thread.
///
/// An AgentSession is an executor that also remembers what was said before and tells every end.
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
    /// the model answers arrives through the signals. Only a missing model, and one that returns no reply,
    /// are reported by failed() before the call returns.
    ///
    /// A run that is in flight is dropped without a signal, with its open approval and its remaining tool
    /// calls; a tool that is at work is canceled before the request is sent. Its request is not canceled, but
    /// nothing of it arrives any more: call cancel() first to stop that, too.
    void run(const QString &input);

    /// Returns whether a run is in flight: one that waits for the model or the user, or executes a tool.
    /// False already in the slots of assistantFinished(), of failed() and of the trace of a denial that ends
    /// the run, and from when the reply, or the model that was asked, dies while its answer is awaited.
    bool isRunning() const;

    /// Answers the question @p shown, as approvalRequired() brought it, and returns whether the answer
    /// counts: only while a call with this id, tool and arguments is waiting. So the answer of a dialog that
    /// was left open can never allow another call, although ids come from the model and may repeat.
    ///
    /// If @p allowed, the tool runs and traceAdded() is emitted before this returns, or an AsyncTool is
    /// started; the run goes on from the event loop. Otherwise traceAdded() is emitted with the status
    /// "denied" and the run ends there: no further tool, request or signal.
    ///
    /// Where the registry meanwhile holds another tool of that name, or the tool has got another permission,
    /// an answer that allows does not count: the user was asked about something else. The call is then taken
    /// up anew from the event loop, and approvalRequired() comes again if its tool needs it.
    /// @code
    /// void Window::askUser(const ApprovalRequest &request)
    /// {
    ///     auto *dialog = new ApprovalDialog(request, this);
    ///     connect(dialog, &QDialog::finished, m_executor, [this, request](int result) {
    ///         m_executor->answerApproval(request, result == QDialog::Accepted);
    ///     });
    ///     m_executor->whenApprovalOver(dialog, [dialog] { dialog->deleteLater(); });
    ///     dialog->open();
    /// }
    /// @endcode
    bool answerApproval(const ApprovalRequest &shown, bool allowed);

    /// Calls @p callback once, from the next turn of the event loop after the call that is waiting now was
    /// answered or withdrawn: by cancel(), by another run, by the death of the executor. Where none is
    /// waiting, from the next turn. Never once @p context is deleted; with a null @p context or an empty
    /// @p callback not at all. Callbacks come in the order in which they were registered.
    void whenApprovalOver(QObject *context, const std::function<void()> &callback);

public Q_SLOTS:
    /// Ends the run and cancels its request, and the tool that is at work. Nothing is emitted, except for the
    /// trace of a tool that is being invoked at this moment. Where the run has ended already, its last reply
    /// is marked as canceled and nothing else happens.
    void cancel();

    /// Answers approvalRequired() by the id alone. Does nothing unless @p approvalId is the id of the call
    /// that is waiting now, which need not be the one that the user was shown: ids may repeat from run to run
    /// and within one. A dialog answers with answerApproval(), whose effects are the same.
    void resolveApproval(const QString &approvalId, bool allowed);

Q_SIGNALS:
    /// The piece @p delta of the model's text arrived.
    void assistantDelta(const QString &delta);

    /// The run is complete. @p text is the model's last answer.
    void assistantFinished(const QString &text);

    /// A tool call was executed or denied. A tool that failed does not end the run: its result goes back
    /// to the model like any other.
    void traceAdded(const MireloQtLib::QtAgent::ToolCallTrace &trace);

    /// The run waits for the user's decision on a tool call, until answerApproval() is called with
    /// @p request. That may happen in the slot, also from a modal dialog, or at any later time.
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
    friend class AgentSession;
    friend class ApprovalPrompt;

    AgentExecutor(std::unique_ptr<AgentLoop> loop, QObject *parent);

    bool isWaitingFor(const ApprovalRequest &shown) const;

    const std::unique_ptr<AgentLoop> m_loop;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
