// What a step of a run costs that is kept in a file of SQLite, beside the same run without a storage. Both
// run in turn within one benchmark. The counters are medians over the iterations: "ms_per_step" is what
// keeping a step takes, "without_ms_per_step" what the step takes without.

#include <qtagent/graphrun.h>
#include <qtagent/store/sqlcheckpoints.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int steps = 1000;

StateGraph loopGraph()
{
    StateGraph graph;
    graph.maxSteps = std::numeric_limits<qint32>::max();
    graph.addNode("count", [](const QJsonObject &state) {
        return QJsonObject{{"count", state["count"].toInt() + 1}};
    });
    graph.addEdge(StartNode, "count");
    const auto isDone = [](const QJsonObject &state) -> QString {
        return state["count"].toInt() < steps ? "again" : "done";
    };
    graph.addConditionalEdges("count", isDone, {{"again", "count"}, {"done", EndNode}});
    return graph;
}

double millisecondsOf(CheckpointStorage *storage, const QString &text, QString *error)
{
    GraphRun run(loopGraph());
    run.setCheckpoints(storage);
    QEventLoop loop;
    QObject::connect(&run, &GraphRun::finished, &loop, &QEventLoop::quit);
    QElapsedTimer clock;
    clock.start();
    run.start({{"count", 0}, {"text", text}}, "t");
    loop.exec();
    *error = run.result().error;
    return double(clock.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values.at(values.size() / 2);
}

void keepSteps(benchmark::State &state)
{
    const QTemporaryDir folder;
    const auto checkpoints = SqlCheckpoints::openSqlite(folder.filePath("checkpoints.sqlite"));
    const QString text(int(state.range(0)), 'x');
    std::vector<double> without;
    std::vector<double> keeping;
    for ([[maybe_unused]] auto iteration : state) {
        QString error;
        without.push_back(millisecondsOf(nullptr, text, &error) / steps);
        keeping.push_back(millisecondsOf(checkpoints.get(), text, &error) / steps - without.back());
        if (!error.isEmpty())
            state.SkipWithError(qPrintable(error));
    }
    state.counters["ms_per_step"] = median(keeping);
    state.counters["without_ms_per_step"] = median(without);
}

BENCHMARK(keepSteps)->Arg(100)->Arg(10000)->Iterations(15)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
