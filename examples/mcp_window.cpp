// A chat with an agent that may use the tools of an MCP server:
//   mcp_window npx -y @modelcontextprotocol/server-everything
//   mcp_window http://127.0.0.1:3001/mcp
// The model is that of the active profile; the mock model does not know the tools of other programs. The user
// is asked about the list of tools before a model sees it, and then about every call.

#include <qtagent/agentsession.h>
#include <qtagent/mcp/mcpserver.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/modelprofiles.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

static ChatModel *createModel(QObject *parent)
{
    const ModelProfiles profiles = loadModelProfiles();
    const ModelConfig config = profiles.profiles.at(profiles.currentIndex);
    if (config.provider == QLatin1String("mock"))
        return new MockChatModel(parent);
    auto *model = new OpenAICompatibleModel(parent);
    model->setConfig(config);
    return model;
}

static void start(McpServer *server, const QStringList &command)
{
    const QUrl url(command.first());
    if (url.scheme().startsWith(QLatin1String("http")))
        server->connectTo(url);
    else
        server->startProcess(command.first(), command.mid(1));
}

// What a server writes about its tools is text by a stranger: it is shown as it stands, and cut.
static void askAboutTools(McpServer *server, ToolRegistry *registry, AgentChatPanel *panel)
{
    QStringList names;
    QStringList lines;
    for (const ToolDefinition &tool : server->tools()) {
        names.append(tool.name.simplified().left(64));
        lines.append(QStringLiteral("%1: %2").arg(names.last(), tool.description.simplified().left(200)));
    }
    auto *question = new QMessageBox(
        QMessageBox::Question, QStringLiteral("MCP"),
        QStringLiteral("May the model use these tools?\n%1").arg(names.join(QLatin1String(", "))),
        QMessageBox::Yes | QMessageBox::No, panel);
    question->setTextFormat(Qt::PlainText);
    question->setAttribute(Qt::WA_DeleteOnClose);
    question->setDetailedText(lines.join(QLatin1Char('\n')));
    QObject::connect(question, &QMessageBox::accepted, server, [=] {
        QString error;
        if (!server->registerTools(registry, &error))
            panel->appendSystemMessage(error);
    });
    // The answer counts for this list only.
    QObject::connect(server, &McpServer::toolsChanged, question, &QMessageBox::reject);
    QObject::connect(server, &McpServer::ended, question, &QMessageBox::reject);
    question->open();
}

static void connectSession(AgentSession *session, AgentChatPanel *panel, ToolCallTraceView *traces)
{
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::appendUserMessage);
    QObject::connect(panel, &AgentChatPanel::sendRequested, session, &AgentSession::send);
    QObject::connect(panel, &AgentChatPanel::stopRequested, session, &AgentSession::cancel);
    QObject::connect(panel, &AgentChatPanel::clearRequested, session, [session] {
        session->cancel();
        session->setConversation({});
    });
    QObject::connect(session, &AgentSession::runningChanged, panel, &AgentChatPanel::setBusy);
    QObject::connect(session, &AgentSession::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(session, &AgentSession::toolStarted, traces, &ToolCallTraceView::showRunning);
    QObject::connect(session, &AgentSession::traceAdded, traces, &ToolCallTraceView::addTrace);
    QObject::connect(session, &AgentSession::runEnded, panel, [=](const RunOutcome &outcome) {
        traces->clearRunning();
        panel->finishAgentMessage();
        if (outcome.end == RunEnd::Failed)
            panel->appendSystemMessage(outcome.error);
    });
    QObject::connect(session, &AgentSession::approvalRequired, panel, [=](const ApprovalRequest &request) {
        auto *dialog = new ApprovalDialog(request, panel->window());
        QObject::connect(dialog, &QDialog::finished, session, [session, request](int result) {
            session->answerApproval(request, result == QDialog::Accepted);
        });
        session->whenApprovalOver(dialog, [dialog] { dialog->deleteLater(); });
        dialog->open();
    });
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList command = QCoreApplication::arguments().mid(1);
    if (command.isEmpty()) {
        qCritical("Usage: mcp_window ADDRESS, or mcp_window PROGRAM ARGUMENTS");
        return EXIT_FAILURE;
    }

    McpServer server(QStringLiteral("mcp"));
    ToolRegistry registry;
    AgentSession session;
    session.setModel(createModel(&session));
    session.setToolRegistry(&registry);
    session.setTellsModelOfBadCalls(true);

    QSplitter window(Qt::Vertical);
    auto *panel = new AgentChatPanel(&window);
    auto *traces = new ToolCallTraceView(&window);
    connectSession(&session, panel, traces);
    const auto ask = [&, panel] { askAboutTools(&server, &registry, panel); };
    QObject::connect(&server, &McpServer::ready, panel, ask);
    QObject::connect(&server, &McpServer::toolsChanged, panel, ask);
    QObject::connect(&server, &McpServer::ended, panel, &AgentChatPanel::appendSystemMessage);
    start(&server, command);
    window.resize(720, 560);
    window.show();
    return QApplication::exec();
}
