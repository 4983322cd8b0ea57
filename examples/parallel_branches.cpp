// Asks a model for three opinions side by side, prints them when all are there, and has a fourth question sum
// them up.

#include <qtagent/graphrun.h>
#include <qtagent/mockchatmodel.h>

#include <QCoreApplication>
#include <QJsonDocument>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

static AsyncNodeFunction opinion(MockChatModel *model, const QString &role)
{
    return [model, role](GraphTask *task) {
        const QString question = task->state()[QLatin1String("question")].toString();
        task->ask(model, {ChatMessage::system(role), ChatMessage::user(question)}, task->branch());
    };
}

static void merge(MockChatModel *model, GraphTask *task)
{
    const QByteArray opinions = QJsonDocument(task->state()).toJson();
    task->ask(model, {ChatMessage::user(QString::fromUtf8("Sum up:\n" + opinions))},
              QStringLiteral("summary"));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    MockChatModel model;

    StateGraph graph;
    graph.addEdge(StartNode, QStringLiteral("opinions"));
    graph.addEdge(QStringLiteral("opinions"), QStringLiteral("summary"));
    graph.addEdge(QStringLiteral("summary"), EndNode);
    GraphRun run(graph);
    run.setParallelNode(QStringLiteral("opinions"),
                        {{QStringLiteral("cost"), opinion(&model, QStringLiteral("You watch the costs."))},
                         {QStringLiteral("safety"), opinion(&model, QStringLiteral("You watch the safety."))},
                         {QStringLiteral("time"), opinion(&model, QStringLiteral("You watch the time."))}});
    run.setAsyncNode(QStringLiteral("summary"), [&model](GraphTask *task) { merge(&model, task); });

    QObject::connect(&run, &GraphRun::stepFinished, [](const GraphStep &step) {
        const QStringList keys = step.update.keys();
        for (const QString &key : keys)
            std::printf("%s/%s: %s\n", qUtf8Printable(step.node), qUtf8Printable(key),
                        qUtf8Printable(step.update[key].toString()));
    });
    QObject::connect(&run, &GraphRun::finished, [](const GraphRunResult &result) {
        if (!result.error.isEmpty())
            qCritical("%s", qUtf8Printable(result.error));
        QCoreApplication::exit(result.error.isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    run.start({{QStringLiteral("question"), QStringLiteral("Shall we replace the pump?")}});
    return QCoreApplication::exec();
}
