// Placing and drawing a graph of 100 nodes, about half of which have three routes each; the next picture when
// a step is done; and a loop of many steps that is followed, beside one that is not.

#include <qtagent/graphrun.h>
#include <qtagent/widgets/graphview.h>
#include <tests/support/pictured.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QEventLoop>
#include <QImage>
#include <QPainter>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr QSize windowSize(1000, 800);

void draw(GraphView *view)
{
    QImage image(windowSize, QImage::Format_ARGB32_Premultiplied);
    view->viewport()->render(&image);
}

void placeAndDraw(benchmark::State &state)
{
    const StateGraph graph = Pictured::web(int(state.range(0)));
    GraphView view;
    view.resize(windowSize);
    for ([[maybe_unused]] auto iteration : state) {
        view.setGraph(graph);
        draw(&view);
    }
}

void drawNextStep(benchmark::State &state)
{
    const StateGraph graph = Pictured::web(int(state.range(0)));
    GraphView view;
    view.resize(windowSize);
    view.setGraph(graph);
    view.showResult(graph.run({}));
    int step = 0;
    for ([[maybe_unused]] auto iteration : state) {
        view.setStep(++step % 10);
        draw(&view);
    }
}

StateGraph loopOf(int steps)
{
    StateGraph graph;
    Pictured::addNodes(&graph, {"turn"});
    graph.addEdge(StartNode, "turn");
    graph.addEdge("turn", "turn");
    graph.maxSteps = steps;
    return graph;
}

void runLoop(benchmark::State &state)
{
    const bool isFollowed = state.range(1) != 0;
    GraphRun run(loopOf(int(state.range(0))));
    GraphView view;
    view.follow(isFollowed ? &run : nullptr);
    QEventLoop loop;
    QObject::connect(&run, &GraphRun::finished, &loop, &QEventLoop::quit);
    for ([[maybe_unused]] auto iteration : state) {
        run.start({});
        loop.exec();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(runLoop)
    ->ArgNames({"steps", "followed"})
    ->Args({500, 0})
    ->Args({500, 1})
    ->Args({2000, 0})
    ->Args({2000, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(placeAndDraw)->Arg(40)->Arg(100)->Unit(benchmark::kMillisecond);
BENCHMARK(drawNextStep)->Arg(40)->Arg(100)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
