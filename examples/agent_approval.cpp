// A chat with an agent in a window: it calls a tool that writes a file, after the user has allowed that.
// Start agent_approval, send "Export the report", and see what the two answers lead to. Clear the chat in
// between: the mock model calls a tool once in a conversation.

#include <qtagent/agentsession.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvalprompt.h>
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
    AgentSession session;
    session.setModel(&model);
    session.setToolRegistry(&registry);

    QSplitter window(Qt::Vertical);
    auto *panel = new AgentChatPanel(&window);
    auto *traces = new ToolCallTraceView(&window);
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::appendUserMessage);
    QObject::connect(panel, &AgentChatPanel::sendRequested, &session, &AgentSession::send);
    QObject::connect(panel, &AgentChatPanel::stopRequested, &session, &AgentSession::cancel);
    QObject::connect(panel, &AgentChatPanel::clearRequested, &session, [&session] {
        session.cancel();
        session.setConversation({});
    });
    QObject::connect(&session, &AgentSession::runningChanged, panel, &AgentChatPanel::setBusy);
    QObject::connect(&session, &AgentSession::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(&session, &AgentSession::traceAdded, traces, &ToolCallTraceView::addTrace);
    QObject::connect(&session, &AgentSession::runEnded, panel, [panel](const RunOutcome &outcome) {
        panel->finishAgentMessage();
        if (outcome.end == RunEnd::Failed)
            panel->appendSystemMessage(outcome.error);
    });
    new ApprovalPrompt(&session, &window, &window);
    window.show();
    return QApplication::exec();
}
