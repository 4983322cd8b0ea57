// What a step of StateGraph costs: a loop of one node and one router, beside a bare loop that calls the
// same functions, inserts the update into a QJsonObject and keeps the same snapshots.
//
// Both run in turn within one benchmark. The counter "ratio" is the median of graph time / bare time over
// its iterations; "bytes_per_step" is what a result holds on the heap.
//
// besideARunAtOnce: what a step costs in a GraphRun, beside StateGraph::run(). The turns of the event loop,
// one for each node and one to begin with, are measured by a timer that does nothing else and taken off.

#include <qtagent/graphrun.h>
#include <tests/support/heapusage.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

struct Workload
{
    QJsonObject initialState;
    NodeFunction node;
};

QString textOf(int length)
{
    return QString(length, 'x');
}

QJsonObject stateOf(int keys)
{
    QJsonObject state{{"count", 0}};
    while (state.size() < keys)
        state.insert(QStringLiteral("key%1").arg(state.size()), QStringLiteral("value"));
    return state;
}

QJsonObject countUp(const QJsonObject &state)
{
    return {{"count", state["count"].toInt() + 1}};
}

QJsonObject replaceText(const QJsonObject &state)
{
    const int number = state["text"].toString().section(' ', -1).toInt();
    return {{"text", QStringLiteral("This is the note of step number %1").arg(number + 1)}};
}

QString chooseAgain(const QJsonObject &)
{
    return QStringLiteral("again");
}

Workload fiveKeys()
{
    return {stateOf(5), countUp};
}

Workload thousandKeys()
{
    return {stateOf(1000), countUp};
}

Workload longText()
{
    return {{{"count", 0}, {"text", textOf(200 * 1024)}}, countUp};
}

Workload replacedText()
{
    QJsonObject state = stateOf(4);
    state.insert("text", QStringLiteral("0"));
    return {state, replaceText};
}

QVector<GraphStep> runBare(const Workload &workload, const RouterFunction &router, int steps)
{
    const QMap<QString, QString> routes{{"again", "node"}};
    QJsonObject state = workload.initialState;
    QVector<GraphStep> record;
    for (int i = 0; i < steps; ++i) {
        GraphStep step;
        step.before = state;
        step.update = workload.node(state);
        for (auto it = step.update.begin(); it != step.update.end(); ++it)
            state.insert(it.key(), it.value());
        step.route = router(state);
        step.node = routes[step.route];
        step.after = state;
        record.append(std::move(step));
    }
    return record;
}

StateGraph loopGraph(const Workload &workload, int steps)
{
    StateGraph graph;
    graph.maxSteps = steps;
    graph.addNode("node", workload.node);
    graph.addEdge("__start__", "node");
    graph.addConditionalEdges("node", chooseAgain, {{"again", "node"}});
    return graph;
}

std::unique_ptr<GraphRun> runWithTheEventLoop(const StateGraph &graph, const QJsonObject &initialState)
{
    auto run = std::make_unique<GraphRun>(graph);
    QEventLoop loop;
    QObject::connect(run.get(), &GraphRun::finished, &loop, &QEventLoop::quit);
    run->start(initialState);
    loop.exec();
    return run;
}

int turnTheEventLoop(int turns)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    int count = 0;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (++count == turns)
            loop.quit();
        else
            timer.start();
    });
    timer.start();
    loop.exec();
    return count;
}

/// Seconds that @p work takes. Freeing what it returns is not part of it.
template<typename Work>
double secondsOf(const Work &work)
{
    const auto start = std::chrono::steady_clock::now();
    const auto result = work();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    benchmark::DoNotOptimize(result);
    return elapsed.count();
}

/// Bytes on the heap that the result of @p work holds, for each of @p steps.
template<typename Work>
double bytesPerStep(const Work &work, int steps)
{
    const qint64 before = heapUsage().value_or(0);
    const auto result = work();
    return static_cast<double>(heapUsage().value_or(0) - before) / steps;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The pair of times of each iteration, and what becomes of them in the report.
class Pairs
{
public:
    void add(double first, double second)
    {
        m_first.push_back(first);
        m_second.push_back(second);
        m_ratio.push_back(first / second);
    }
    double first() const { return median(m_first); }
    double second() const { return median(m_second); }
    double ratio() const { return median(m_ratio); }

private:
    std::vector<double> m_first;
    std::vector<double> m_second;
    std::vector<double> m_ratio;
};

void besideABareLoop(benchmark::State &state, const Workload &workload)
{
    const int steps = static_cast<int>(state.range(0));
    const StateGraph graph = loopGraph(workload, steps);
    Pairs pairs;
    for ([[maybe_unused]] auto iteration : state) {
        const double bare = secondsOf([&] { return runBare(workload, chooseAgain, steps); });
        const double graphs = secondsOf([&] { return graph.run(workload.initialState); });
        pairs.add(graphs, bare);
        state.SetIterationTime(graphs);
    }
    state.counters["ratio"] = pairs.ratio();
    state.counters["ns_per_step"] = pairs.first() / steps * 1e9;
    state.counters["bare_ns_per_step"] = pairs.second() / steps * 1e9;
}

void besideAShortLoop(benchmark::State &state, const Workload &workload)
{
    const int shortSteps = static_cast<int>(state.range(0));
    const int longSteps = static_cast<int>(state.range(1));
    const StateGraph shortLoop = loopGraph(workload, shortSteps);
    const StateGraph longLoop = loopGraph(workload, longSteps);
    Pairs pairs;
    for ([[maybe_unused]] auto iteration : state) {
        const double ofShort = secondsOf([&] { return shortLoop.run(workload.initialState); });
        const double ofLong = secondsOf([&] { return longLoop.run(workload.initialState); });
        pairs.add(ofLong / longSteps, ofShort / shortSteps);
        state.SetIterationTime(ofLong);
    }
    const double shortBytes = bytesPerStep([&] { return shortLoop.run(workload.initialState); }, shortSteps);
    const double longBytes = bytesPerStep([&] { return longLoop.run(workload.initialState); }, longSteps);
    state.counters["ratio"] = pairs.ratio();
    state.counters["ns_per_step"] = pairs.first() * 1e9;
    state.counters["bytes_ratio"] = longBytes / shortBytes;
    state.counters["bytes_per_step"] = longBytes;
}

void besideARunAtOnce(benchmark::State &state, const Workload &workload)
{
    const int steps = static_cast<int>(state.range(0));
    const StateGraph graph = loopGraph(workload, steps);
    Pairs pairs;
    std::vector<double> turnTimes;
    for ([[maybe_unused]] auto iteration : state) {
        const double atOnce = secondsOf([&] { return graph.run(workload.initialState); });
        const double turns = secondsOf([&] { return turnTheEventLoop(steps + 1); });
        const double withLoop = secondsOf([&] { return runWithTheEventLoop(graph, workload.initialState); });
        pairs.add(withLoop - turns, atOnce);
        turnTimes.push_back(turns);
        state.SetIterationTime(withLoop);
    }
    state.counters["ratio"] = pairs.ratio();
    state.counters["ns_per_step"] = pairs.first() / steps * 1e9;
    state.counters["at_once_ns_per_step"] = pairs.second() / steps * 1e9;
    state.counters["ns_per_turn"] = median(turnTimes) / (steps + 1) * 1e9;
}

} // namespace

BENCHMARK_CAPTURE(besideABareLoop, fiveKeys, fiveKeys())->Arg(10000)->Iterations(41)->UseManualTime();
BENCHMARK_CAPTURE(besideABareLoop, thousandKeys, thousandKeys())->Arg(1000)->Iterations(21)->UseManualTime();
BENCHMARK_CAPTURE(besideABareLoop, longText, longText())->Arg(10000)->Iterations(41)->UseManualTime();
BENCHMARK_CAPTURE(besideABareLoop, replacedText, replacedText())->Arg(1000)->Iterations(21)->UseManualTime();
BENCHMARK_CAPTURE(besideAShortLoop, replacedText, replacedText())
    ->Args({2000, 20000})
    ->Iterations(41)
    ->UseManualTime();
BENCHMARK_CAPTURE(besideARunAtOnce, fiveKeys, fiveKeys())->Arg(10000)->Iterations(41)->UseManualTime();
BENCHMARK_CAPTURE(besideARunAtOnce, thousandKeys, thousandKeys())->Arg(1000)->Iterations(21)->UseManualTime();
BENCHMARK_CAPTURE(besideARunAtOnce, replacedText, replacedText())
    ->Arg(10000)
    ->Iterations(41)
    ->UseManualTime();

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
