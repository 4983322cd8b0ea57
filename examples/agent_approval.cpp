// An agent in a window: it calls a tool that writes a file, after the user has allowed that.
// Start agent_approval, send "Export the report", and see what the two answers lead to.

#include <qtagent/agentexecutor.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

// The arguments come from a model: a path in the name must not lead out of the folder.
static ToolResult exportReport(const QJsonObject &arguments)
{
    const QString name = QFileInfo(arguments[QLatin1String("fileName")].toString()).fileName();
    QSaveFile file(QDir::temp().filePath(name));
    ToolResult result;
    result.success = file.open(QIODevice::WriteOnly) && file.write("All pumps run.\n") > 0 && file.commit();
    result.content = result.success ? file.fileName() : QString();
    result.error = result.success ? QString() : file.errorString();
    return result;
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const char *schema = R"({"type": "object", "properties": {"fileName": {"type": "string"}}})";
    ToolRegistry registry;
    registry.registerTool(new FunctionTool(
        QStringLiteral("export_report"), QStringLiteral("Writes the report to a file."),
        QJsonDocument::fromJson(schema).object(), ToolPermission::FileSystem, &exportReport, &registry));
    MockChatModel model;
    AgentExecutor executor;
    executor.setModel(&model);
    executor.setToolRegistry(&registry);

    QSplitter window(Qt::Vertical);
    auto *panel = new AgentChatPanel(&window);
    auto *traces = new ToolCallTraceView(&window);
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::finishAgentMessage);
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::appendUserMessage);
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, [panel] { panel->setBusy(true); });
    QObject::connect(panel, &AgentChatPanel::sendRequested, &executor, &AgentExecutor::run);
    QObject::connect(panel, &AgentChatPanel::stopRequested, &executor, &AgentExecutor::cancel);
    QObject::connect(panel, &AgentChatPanel::stopRequested, panel, [panel] { panel->setBusy(false); });
    QObject::connect(&executor, &AgentExecutor::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(&executor, &AgentExecutor::assistantFinished, panel, [panel] { panel->setBusy(false); });
    QObject::connect(&executor, &AgentExecutor::failed, panel, &AgentChatPanel::appendSystemMessage);
    QObject::connect(&executor, &AgentExecutor::failed, panel, [panel] { panel->setBusy(false); });
    QObject::connect(&executor, &AgentExecutor::traceAdded, traces, &ToolCallTraceView::addTrace);
    QObject::connect(&executor, &AgentExecutor::approvalRequired, panel, [&](const ApprovalRequest &request) {
        const bool allowed = ApprovalDialog::ask(request, &window);
        panel->setBusy(allowed); // a denial ends the run without a further signal
        executor.resolveApproval(request.approvalId, allowed);
    });
    window.show();
    return QApplication::exec();
}
