#ifndef QTAGENT_TESTS_AGENTFIXTURE_H
#define QTAGENT_TESTS_AGENTFIXTURE_H

#include "eventloop.h"
#include "streamedmodel.h"

#include <qtagent/agentexecutor.h>

/// An executor with a scripted model and a registry, and the log of what it emits.
///
/// The tools "read" (ReadOnly) and "write" (Write) are registered; calls of them are logged, too. Where
/// STREAMED_TOOL_CALLS is in the environment, the answers come as streams.
class AgentFixture : public QObject
{
public:
    using AgentExecutor = MireloQtLib::QtAgent::AgentExecutor;
    using ApprovalRequest = MireloQtLib::QtAgent::ApprovalRequest;
    using FunctionTool = MireloQtLib::QtAgent::FunctionTool;
    using ToolCallTrace = MireloQtLib::QtAgent::ToolCallTrace;
    using ToolPermission = MireloQtLib::QtAgent::ToolPermission;
    using ToolRegistry = MireloQtLib::QtAgent::ToolRegistry;
    using ToolResult = MireloQtLib::QtAgent::ToolResult;

    /// Owns both.
    explicit AgentFixture(AgentExecutor *usedExecutor = new AgentExecutor,
                          HeldModel *usedModel = createModel())
        : model(usedModel)
        , executor(usedExecutor)
    {
        model->setParent(this);
        logSignals();
        if (isStreamed())
            logEmptyTexts();
        executor->setModel(model);
        executor->setToolRegistry(registry);
        addTool("read", ToolPermission::ReadOnly);
        addTool("write", ToolPermission::Write);
    }

    ~AgentFixture() override { delete executor; }

    static bool isStreamed() { return qEnvironmentVariableIsSet("STREAMED_TOOL_CALLS"); }

    /// Registers a tool that logs its call, does @p work and succeeds with its name and " done".
    FunctionTool *addTool(const QString &name, ToolPermission permission,
                          const std::function<void()> &work = {})
    {
        const auto handler = [this, name, work](const QJsonObject &) {
            log.append("call " + name);
            if (work)
                work();
            return success(name + " done");
        };
        auto *tool =
            new FunctionTool(name, "Does things.", {{"type", "object"}}, permission, handler, registry);
        registry->registerTool(tool);
        return tool;
    }

    static ToolResult success(const QString &content)
    {
        ToolResult result;
        result.success = true;
        result.content = content;
        return result;
    }

    /// Calls of the tools @p names with the ids "c1", "c2" and so on.
    static QJsonArray callsOf(const QStringList &names)
    {
        QJsonArray calls;
        for (const QString &name : names)
            calls.append(MireloQtLib::QtAgent::makeToolCall(QString("c%1").arg(calls.size() + 1), name, {}));
        return calls;
    }

    /// A call whose arguments are @p arguments, of whatever kind.
    static QJsonObject callWith(const QString &name, const QJsonValue &arguments)
    {
        const QJsonObject function{{"name", name}, {"arguments", arguments}};
        return {{"id", "c1"}, {"type", "function"}, {"function", function}};
    }

    /// Asks @p question and returns when the event loop is quiet.
    void run(const QString &question = "question")
    {
        executor->run(question);
        runUntilQuiet();
    }

    /// Answers the latest approval request and returns when the event loop is quiet.
    void resolve(bool allowed)
    {
        executor->resolveApproval(approvals.last().approvalId, allowed);
        runUntilQuiet();
    }

    int requestCount() const { return model->calls().size(); }

    /// The messages of the request @p index as JSON.
    QJsonArray messages(int index) const
    {
        QJsonArray array;
        for (const auto &message : model->calls().at(index).messages)
            array.append(MireloQtLib::QtAgent::messageToJson(message));
        return array;
    }

    /// What was emitted and called, for example "delta Hi", "call read", "trace read success".
    QStringList log;
    QVector<ToolCallTrace> traces;
    QVector<ApprovalRequest> approvals;

    const QPointer<HeldModel> model;
    const QPointer<ToolRegistry> registry{new ToolRegistry(this)};
    const QPointer<AgentExecutor> executor;

private:
    static HeldModel *createModel() { return isStreamed() ? new StreamedModel : new HeldModel; }

    // A whole answer without a text emits an empty delta, a stream none: the log is that of whole answers.
    void logEmptyTexts()
    {
        model->onReply = [this](HeldModel::ChatReply *reply) {
            connect(reply, &HeldModel::ChatReply::responseReceived, this, [this, reply] {
                if (reply->text().isEmpty())
                    log.append("delta ");
            });
        };
    }

    void logSignals()
    {
        connect(executor, &AgentExecutor::assistantDelta, this,
                [this](const QString &delta) { log.append("delta " + delta); });
        connect(executor, &AgentExecutor::assistantFinished, this,
                [this](const QString &text) { log.append("finished " + text); });
        connect(executor, &AgentExecutor::failed, this,
                [this](const QString &error) { log.append("failed " + error); });
        connect(executor, &AgentExecutor::traceAdded, this, [this](const ToolCallTrace &trace) {
            log.append("trace " + trace.toolName + " " + trace.status);
            traces.append(trace);
        });
        connect(executor, &AgentExecutor::approvalRequired, this, [this](const ApprovalRequest &request) {
            log.append("approval " + request.toolName);
            approvals.append(request);
        });
    }
};

#endif
