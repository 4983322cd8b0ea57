// What it costs to stream an answer into the chat panel, against the three plain calls on a text browser:
// move to the end, insert, move to the end. Each iteration measures both, one after the other, on shown
// windows of the same size. The counters are medians over the iterations: "ratio" is the panel's time by
// that of the plain calls, "panel_us" and "plain_us" are microseconds a delta. The time ends when the whole
// answer is painted.

#include <qtagent/widgets/agentchatpanel.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTextBrowser>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

enum Shape { LineBreaks, Latin, Chinese, Unbroken };
enum Delivery { Burst, TurnPerDelta };

constexpr int charactersPerLine = 60;
constexpr QSize windowSize(800, 600);

QChar characterAt(Shape shape, int position)
{
    if (shape == Unbroken)
        return QLatin1Char('x');
    if (shape == Chinese)
        return QChar(0x4e00 + position * 31 % 2000);
    if (shape == LineBreaks && position % charactersPerLine == charactersPerLine - 1)
        return QLatin1Char('\n');
    return position % 6 == 5 ? QLatin1Char(' ') : QLatin1Char(char('a' + position * 7 % 26));
}

// Deltas of four to eight characters.
QStringList deltasOf(Shape shape, int count)
{
    QStringList deltas;
    int position = 0;
    for (int i = 0; i < count; ++i) {
        QString delta;
        for (int length = 4 + i * 3 % 5; length > 0; --length)
            delta += characterAt(shape, position++);
        deltas += delta;
    }
    return deltas;
}

class PlainTranscript
{
public:
    PlainTranscript()
    {
        m_browser.resize(windowSize);
        m_browser.show();
    }

    void append(const QString &delta)
    {
        m_browser.moveCursor(QTextCursor::End);
        m_browser.insertPlainText(delta);
        m_browser.moveCursor(QTextCursor::End);
    }

    void paint() { m_browser.viewport()->repaint(); }

private:
    QTextBrowser m_browser;
};

class PanelTranscript
{
public:
    PanelTranscript()
    {
        m_panel.resize(windowSize + QSize(0, m_panel.sizeHint().height() - historyHeightHint()));
        m_panel.show();
        m_panel.beginAgentMessage();
    }

    void append(const QString &delta) { m_panel.appendAgentDelta(delta); }
    void paint() { m_panel.findChild<QTextBrowser *>()->viewport()->repaint(); }

private:
    int historyHeightHint() const { return m_panel.findChild<QTextBrowser *>()->sizeHint().height(); }

    AgentChatPanel m_panel;
};

void turn()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();
}

template<typename Transcript>
double secondsFor(const QStringList &deltas, Delivery delivery)
{
    Transcript transcript;
    turn();
    QElapsedTimer timer;
    timer.start();
    for (const QString &delta : deltas) {
        transcript.append(delta);
        if (delivery == TurnPerDelta)
            turn();
    }
    turn();
    transcript.paint();
    return double(timer.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void streamed(benchmark::State &state, Shape shape, Delivery delivery)
{
    const QStringList deltas = deltasOf(shape, int(state.range(0)));
    std::vector<double> ratios;
    std::vector<double> panelTimes;
    std::vector<double> plainTimes;
    for ([[maybe_unused]] auto iteration : state) {
        plainTimes.push_back(secondsFor<PlainTranscript>(deltas, delivery));
        panelTimes.push_back(secondsFor<PanelTranscript>(deltas, delivery));
        ratios.push_back(panelTimes.back() / plainTimes.back());
        state.SetIterationTime(panelTimes.back());
    }
    state.counters["ratio"] = median(ratios);
    state.counters["panel_us"] = median(panelTimes) * 1e6 / deltas.size();
    state.counters["plain_us"] = median(plainTimes) * 1e6 / deltas.size();
}

// The panel alone, because the plain calls take minutes for the longer answer: "growth" is its time a delta
// of 50,000 deltas by that of 5,000.
void grown(benchmark::State &state, Shape shape)
{
    const QStringList shortAnswer = deltasOf(shape, 5000);
    const QStringList longAnswer = deltasOf(shape, 50000);
    std::vector<double> growths;
    for ([[maybe_unused]] auto iteration : state) {
        const double shortTime = secondsFor<PanelTranscript>(shortAnswer, Burst) / shortAnswer.size();
        const double longTime = secondsFor<PanelTranscript>(longAnswer, Burst) / longAnswer.size();
        growths.push_back(longTime / shortTime);
        state.SetIterationTime(longTime * longAnswer.size());
    }
    state.counters["growth"] = median(growths);
}

// How long the window is deaf at most while a long paragraph streams in, a thousand characters a turn:
// "gap_ms" is the longest time between two turns of the event loop.
void deaf(benchmark::State &state, Shape shape)
{
    std::vector<double> gaps;
    for ([[maybe_unused]] auto iteration : state) {
        PanelTranscript transcript;
        int position = 0;
        QEventLoop loop;
        QTimer stream;
        QObject::connect(&stream, &QTimer::timeout, &loop, [&] {
            QString delta;
            while (delta.size() < 1000)
                delta += characterAt(shape, position++);
            transcript.append(delta);
            if (position >= state.range(0))
                loop.quit();
        });
        QTimer clock;
        QElapsedTimer sinceTurn;
        qint64 longest = 0;
        QObject::connect(&clock, &QTimer::timeout, &loop,
                         [&] { longest = std::max(longest, sinceTurn.restart()); });
        turn();
        sinceTurn.start();
        stream.start(0);
        clock.start(1);
        loop.exec();
        gaps.push_back(double(longest));
    }
    state.counters["gap_ms"] = median(gaps);
}

#define BENCHMARK_SHAPE(shape) \
    BENCHMARK_CAPTURE(streamed, shape##_burst, shape, Burst) \
        ->Arg(2000) \
        ->Iterations(5) \
        ->UseManualTime() \
        ->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(streamed, shape##_turn_per_delta, shape, TurnPerDelta) \
        ->Arg(2000) \
        ->Iterations(3) \
        ->UseManualTime() \
        ->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(grown, shape##_5000_to_50000, shape) \
        ->Iterations(5) \
        ->UseManualTime() \
        ->Unit(benchmark::kMillisecond)

BENCHMARK_SHAPE(LineBreaks);
BENCHMARK_SHAPE(Latin);
BENCHMARK_SHAPE(Chinese);
BENCHMARK_CAPTURE(deaf, Unbroken, Unbroken)->Arg(1000000)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(deaf, Latin, Latin)->Arg(1000000)->Iterations(3)->Unit(benchmark::kMillisecond);

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
