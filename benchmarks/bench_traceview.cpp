// What a tool call with a huge output costs the trace table, against a plain table of the same columns
// that holds the same text: add the row, fit the columns, paint the window, scroll across it. Each
// iteration measures both, one after the other. The counters are medians over the iterations: "ratio" is
// the view's time by that of the plain table, "view_ms" and "plain_ms" are milliseconds.

#include <qtagent/widgets/toolcalltraceview.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QScrollBar>

#include <algorithm>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int columns = 7;
constexpr int outputColumn = 5;
constexpr int nameColumn = 0;
constexpr QSize windowSize(1000, 300);

class PlainTable : public QTableWidget
{
public:
    PlainTable()
    {
        setColumnCount(columns);
        horizontalHeader()->setStretchLastSection(true);
        horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    }

    void addTrace(const ToolCallTrace &trace)
    {
        const int row = rowCount();
        insertRow(row);
        for (int column = 0; column < columns; ++column)
            setItem(row, column, new QTableWidgetItem(textOf(trace, column)));
        scrollToBottom();
    }

private:
    static QString textOf(const ToolCallTrace &trace, int column)
    {
        if (column == nameColumn)
            return trace.toolName;
        return column == outputColumn ? trace.output : QStringLiteral("text");
    }
};

ToolCallTrace traceWithOutput(int size)
{
    ToolCallTrace trace;
    trace.toolName = "read_log";
    trace.status = "success";
    trace.output = QString("12:00:00 Pump-002 74.5 0.42\n").repeated(size / 28);
    return trace;
}

ToolCallTrace traceNamed(int size)
{
    ToolCallTrace trace;
    trace.toolName = QString("read_log_").repeated(size / 9);
    trace.status = "success";
    return trace;
}

void paint()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();
}

template<typename Table>
double secondsFor(const ToolCallTrace &trace)
{
    Table table;
    table.resize(windowSize);
    table.show();
    paint();
    QElapsedTimer timer;
    timer.start();
    table.addTrace(trace);
    paint();
    table.resizeColumnsToContents();
    table.horizontalScrollBar()->setValue(table.horizontalScrollBar()->maximum() / 2);
    paint();
    return double(timer.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void shown(benchmark::State &state, ToolCallTrace (*makeTrace)(int))
{
    const ToolCallTrace trace = makeTrace(int(state.range(0)));
    std::vector<double> ratios;
    std::vector<double> viewTimes;
    std::vector<double> plainTimes;
    for ([[maybe_unused]] auto iteration : state) {
        plainTimes.push_back(secondsFor<PlainTable>(trace));
        viewTimes.push_back(secondsFor<ToolCallTraceView>(trace));
        ratios.push_back(viewTimes.back() / plainTimes.back());
        state.SetIterationTime(viewTimes.back());
    }
    state.counters["ratio"] = median(ratios);
    state.counters["view_ms"] = median(viewTimes) * 1e3;
    state.counters["plain_ms"] = median(plainTimes) * 1e3;
}

// A long session: the time of a row when the table holds many, by that of a row when it holds few.
void grown(benchmark::State &state)
{
    const ToolCallTrace trace = traceWithOutput(1000);
    std::vector<double> growths;
    for ([[maybe_unused]] auto iteration : state) {
        ToolCallTraceView view;
        view.resize(windowSize);
        view.show();
        std::vector<double> rowTimes;
        for (int row = 0; row < state.range(0); ++row) {
            QElapsedTimer timer;
            timer.start();
            view.addTrace(trace);
            paint();
            rowTimes.push_back(double(timer.nsecsElapsed()) / 1e9);
        }
        const auto tenth = std::ptrdiff_t(rowTimes.size() / 10);
        const double first = median({rowTimes.begin(), rowTimes.begin() + tenth});
        const double last = median({rowTimes.end() - tenth, rowTimes.end()});
        growths.push_back(last / first);
        state.SetIterationTime(last);
    }
    state.counters["growth"] = median(growths);
}

BENCHMARK_CAPTURE(shown, output, traceWithOutput)
    ->Arg(5 * 1000 * 1000)
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(shown, name, traceNamed)
    ->Arg(100 * 1000)
    ->Iterations(11)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(grown)->Arg(1000)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
