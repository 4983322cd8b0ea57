// Placing and drawing a graph of 100 nodes, about half of which have three routes each; and the next picture
// when a step is done.

#include <qtagent/widgets/graphview.h>
#include <tests/support/pictured.h>

#include <benchmark/benchmark.h>

#include <QApplication>
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
