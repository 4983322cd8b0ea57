// A test of a graph run that needs no network and no key: a script says what the model answers, and the test
// sees the way through the graph, up to the interrupt and beyond. CTest runs it.

#include <qtagent/graphrun.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QCoreApplication>

using namespace MireloQtLib::QtAgent;

// What is tested: a draft of a model, which a user looks at before it is sent.
static void setUp(GraphRun *run, ChatModel *model)
{
    run->setAsyncNode(QStringLiteral("draft"), [model](GraphTask *task) {
        const QString alarm = task->state()[QLatin1String("alarm")].toString();
        task->ask(model, {ChatMessage::user(QStringLiteral("Report: ") + alarm)}, QStringLiteral("report"));
    });
}

static StateGraph reportGraph()
{
    StateGraph graph;
    graph.addNode(QStringLiteral("send"), [](const QJsonObject &state) -> QJsonObject {
        return {{QStringLiteral("sent"), state[QLatin1String("approved")]}};
    });
    graph.addEdge(StartNode, QStringLiteral("draft"));
    graph.addEdge(QStringLiteral("draft"), QStringLiteral("send"));
    graph.addEdge(QStringLiteral("send"), EndNode);
    graph.addInterruptBefore(QStringLiteral("send"));
    return graph;
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    ScriptedModel model;
    model.addText({QStringLiteral("The pressure "), QStringLiteral("is too high.")});
    GraphRun run(reportGraph());
    setUp(&run, &model);
    QObject::connect(&run, &GraphRun::finished, &run, [&](const GraphRunResult &result) {
        const QJsonObject &state = result.state;
        if (result.interrupted
            && state[QLatin1String("report")] == QLatin1String("The pressure is too high."))
            return run.resume({}, {{QStringLiteral("approved"), true}});
        const bool passed =
            !result.interrupted && state[QLatin1String("sent")].toBool()
            && model.requests().first().messages.last().content == QLatin1String("Report: 9 bar");
        if (!passed)
            qCritical("The run ended with: %s", qUtf8Printable(result.error));
        QCoreApplication::exit(passed ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    run.start({{QStringLiteral("alarm"), QStringLiteral("9 bar")}});
    return QCoreApplication::exec();
}
