// A tool that takes its time in a window that does not wait for it. Start slow_tool, send "Which device is
// abnormal?", and stop it half-way.

#include <qtagent/agentsession.h>
#include <qtagent/asynctool.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

// Asks one device after another, each of which answers after a while.
class DeviceCheck : public AsyncTool
{
public:
    using AsyncTool::AsyncTool;

    QString name() const override { return QStringLiteral("find_abnormal_devices"); }
    QString description() const override { return QStringLiteral("Asks each device for its state."); }
    QJsonObject parameters() const override { return {{QStringLiteral("type"), QStringLiteral("object")}}; }
    ToolPermission permission() const override { return ToolPermission::ReadOnly; }

    ToolReply *start(const QJsonObject & /*arguments*/, QObject *parent) override
    {
        auto *reply = new ToolReply(parent);
        auto *timer = new QTimer(reply);
        connect(timer, &QTimer::timeout, reply, [reply, asked = 0]() mutable {
            if (++asked == deviceCount)
                reply->finish(report());
            else
                reply->progress(QStringLiteral("%1 of %2 devices").arg(asked).arg(deviceCount));
        });
        connect(reply, &ToolReply::finished, timer, &QTimer::stop);
        connect(reply, &ToolReply::canceled, timer, &QTimer::stop);
        timer->start(answerMs);
        return reply;
    }

private:
    static constexpr int deviceCount = 20;
    static constexpr int answerMs = 100;

    static ToolResult report()
    {
        ToolResult result;
        result.success = true;
        result.content = QStringLiteral("Pump-003 is too hot.");
        return result;
    }
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    ToolRegistry registry;
    registry.registerTool(new DeviceCheck);
    MockChatModel model;
    AgentSession session;
    session.setModel(&model);
    session.setToolRegistry(&registry);

    QSplitter window(Qt::Vertical);
    auto *panel = new AgentChatPanel(&window);
    auto *traces = new ToolCallTraceView(&window);
    auto *progress = new QLabel(&window);
    progress->setTextFormat(Qt::PlainText);
    QObject::connect(panel, &AgentChatPanel::sendRequested, panel, &AgentChatPanel::appendUserMessage);
    QObject::connect(panel, &AgentChatPanel::sendRequested, &session, &AgentSession::send);
    QObject::connect(panel, &AgentChatPanel::stopRequested, &session, &AgentSession::cancel);
    QObject::connect(panel, &AgentChatPanel::clearRequested, &session, [&session] {
        session.cancel();
        session.setConversation({});
    });
    QObject::connect(&session, &AgentSession::runningChanged, panel, &AgentChatPanel::setBusy);
    QObject::connect(&session, &AgentSession::assistantDelta, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(&session, &AgentSession::toolStarted, traces, &ToolCallTraceView::showRunning);
    QObject::connect(
        &session, &AgentSession::toolProgressed, progress,
        [progress](const QString & /*callId*/, const QString &text) { progress->setText(text); });
    QObject::connect(&session, &AgentSession::traceAdded, traces, &ToolCallTraceView::addTrace);
    QObject::connect(&session, &AgentSession::runEnded, panel, [=](const RunOutcome &outcome) {
        traces->clearRunning();
        progress->clear();
        panel->finishAgentMessage();
        if (outcome.end == RunEnd::Failed)
            panel->appendSystemMessage(outcome.error);
    });
    window.resize(720, 560);
    window.show();
    return QApplication::exec();
}
