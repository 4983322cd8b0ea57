// A test of an agent that needs no network and no key: it replays what a model answered once. CTest runs
//   tested_agent tested_agent.jsonl
// After a change of the prompt or the tool it tells the first difference. Where the change is meant, remove
// the recording and make a new one; a model that you have to pay stands in the place of the mock model then.
//   tested_agent tested_agent.jsonl --record

#include <qtagent/agentsession.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/testing/recordingmodel.h>
#include <qtagent/testing/replaymodel.h>

#include <QCoreApplication>

#include <memory>

using namespace MireloQtLib::QtAgent;

static ToolResult findAbnormalDevices(const QJsonObject &)
{
    ToolResult result;
    result.success = true;
    result.content = QStringLiteral("Pump-001: pressure too high");
    return result;
}

static std::unique_ptr<ChatModel> testedModel(ChatModel *realModel)
{
    const QString path = QCoreApplication::arguments().value(1);
    if (!QCoreApplication::arguments().contains(QStringLiteral("--record")))
        return std::make_unique<ReplayModel>(path);
    auto recording = std::make_unique<RecordingModel>(realModel, path);
    if (!recording->error().isEmpty())
        qFatal("%s", qUtf8Printable(recording->error()));
    return recording;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ToolRegistry registry;
    registry.registerTool(new FunctionTool(QStringLiteral("find_abnormal_devices"),
                                           QStringLiteral("Lists the devices that need attention."),
                                           {{QStringLiteral("type"), QStringLiteral("object")}},
                                           ToolPermission::ReadOnly, &findAbnormalDevices));
    MockChatModel realModel;
    const std::unique_ptr<ChatModel> model = testedModel(&realModel);
    AgentSession session;
    session.setModel(model.get());
    session.setToolRegistry(&registry);
    QObject::connect(&session, &AgentSession::runEnded, &application, [](const RunOutcome &outcome) {
        const bool passed = outcome.requests == 2 && outcome.text.contains(QLatin1String("Pump-001"));
        if (!passed)
            qCritical("The answer was: %s%s", qUtf8Printable(outcome.text), qUtf8Printable(outcome.error));
        QCoreApplication::exit(passed ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    session.send(QStringLiteral("Which device is abnormal?"));
    return QCoreApplication::exec();
}
