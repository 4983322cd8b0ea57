// Writes drafts until there are enough, stops for a review, and once the user agrees goes on from the
// checkpoint: review_graph 3 asks after three drafts. More drafts than a run may have steps are an error.

#include <qtagent/stategraph.h>

#include <QJsonDocument>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

static StateGraph reviewGraph(int wantedDrafts)
{
    const QString draft = QStringLiteral("draft");
    const QString send = QStringLiteral("send");
    StateGraph graph;
    graph.addNode(draft, [](const QJsonObject &state) -> QJsonObject {
        return {{QStringLiteral("drafts"), state[QLatin1String("drafts")].toInt() + 1}};
    });
    graph.addNode(send, [](const QJsonObject &) { return QJsonObject{{QStringLiteral("sent"), true}}; });
    const auto afterStart = [=](const QJsonObject &state) {
        return state[QLatin1String("approved")].toBool() ? send : draft;
    };
    const auto afterDraft = [=](const QJsonObject &state) {
        return state[QLatin1String("drafts")].toInt() < wantedDrafts ? draft : send;
    };
    const QMap<QString, QString> routes{{draft, draft}, {send, send}};
    graph.addConditionalEdges(StartNode, afterStart, routes);
    graph.addConditionalEdges(draft, afterDraft, routes);
    graph.addEdge(send, EndNode);
    return graph;
}

static int print(const GraphRunResult &result)
{
    for (const GraphStep &step : result.steps)
        std::printf("%s %s\n", qUtf8Printable(step.node),
                    QJsonDocument(step.after).toJson(QJsonDocument::Compact).data());
    if (result.interrupted)
        std::printf("Go on with %s? [y/n] ", qUtf8Printable(result.interruptedNode));
    std::fflush(stdout);
    if (!result.error.isEmpty())
        qCritical("%s", qUtf8Printable(result.error));
    return result.error.isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char *argv[])
{
    const StateGraph graph = reviewGraph(argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 3);
    StateGraph reviewed = graph;
    reviewed.addInterruptBefore(QStringLiteral("send"));
    const QString thread = QStringLiteral("report");
    CheckpointStore checkpoints;

    const GraphRunResult result = reviewed.run({}, thread, &checkpoints);
    const int status = print(result);
    if (!result.interrupted || std::getchar() != 'y')
        return status;
    return print(graph.run({{QStringLiteral("approved"), true}}, thread, &checkpoints));
}
