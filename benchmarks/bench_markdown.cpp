// What it costs to stream an answer into a MarkdownTranscript, in CPU time. Every text arrives in deltas of
// four characters, a turn of the event loop each, in a shown window of 800x600.
//
// beside_plain: the same deltas inserted by QTextCursor at the end of a QTextBrowser, one after the other in
//   each iteration. "ratio" is the transcript's time by that of the browser, "worst_ms" its longest turn.
// beside_everything: all of the text rendered at each delta. "ratio" is that time by the transcript's.
// endless_block: a paragraph that never closes. "share" is the part of the time that rendering and layout
//   take, painting apart.
// finish_with_references: the turn in which an answer ends that uses a definition in its first line.
// The counters are medians over the iterations.

#include <qtagent/widgets/markdowntranscript.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QTextBrowser>

#include <algorithm>
#include <ctime>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr QSize windowSize(800, 600);
constexpr int deltaLength = 4;

QString ordinaryBlocks(int number)
{
    return QStringLiteral(
               "## Step %1\n\n"
               "Open the **settings** and look for `proxy`; the [manual](https://example.com/%1) says "
               "more. Some networks need an address of their own, which is what this paragraph of a "
               "few lines is about, as answers are.\n\n"
               "- the first item of a list\n"
               "- one with *emphasis* in it\n"
               "  - a nested one\n"
               "- the last item\n\n"
               "先检查冷却水阀门是否全开，**流量**是否低于 12 m³/h，然后看过滤器前后的压差。\n\n"
               "```cpp\n"
               "int main()\n"
               "{\n"
               "    return %1;\n"
               "}\n"
               "```\n\n"
               "| name | value | unit |\n"
               "|------|-------|------|\n"
               "| flow | 11.5 | m³/h |\n"
               "| pressure | 0.8 | bar |\n\n"
               "> Never open the valve while the pump runs.\n\n")
        .arg(number);
}

QString paragraph(int)
{
    return QStringLiteral("Some **bold** text of a paragraph with about nine hundred characters and `code`. ")
               .repeated(11)
         + QStringLiteral("\n\n");
}

QString listBlock(int)
{
    return QStringLiteral("Text before it.\n\n")
         + QStringLiteral("- an item with *some* text of fifty characters\n").repeated(18)
         + QStringLiteral("\n");
}

QString tableBlock(int)
{
    return QStringLiteral("Text before it.\n\n| name | value | remark |\n|------|-------|--------|\n")
         + QStringLiteral("| some row | 17 | with a little text |\n").repeated(20) + QStringLiteral("\n");
}

QString textOf(QString (*block)(int), int length)
{
    QString text;
    for (int number = 1; text.size() < length; ++number)
        text += block(number);
    return text.left(length);
}

QString openFence(int length)
{
    return (QStringLiteral("```cpp\n")
            + QStringLiteral("    int value = compute(17); // what it is for\n").repeated(length / 40))
        .left(length);
}

QString endlessParagraph(int length)
{
    return QStringLiteral("words of a paragraph that goes on *and* on\n").repeated(length / 40).left(length);
}

double seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

void turn()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();
}

struct Cost
{
    double total = 0;
    double worstTurn = 0;
};

template<typename Append>
Cost costOf(const QString &text, const Append &append)
{
    Cost cost;
    for (int begin = 0; begin < text.size(); begin += deltaLength) {
        const double start = seconds();
        append(text.mid(begin, deltaLength));
        turn();
        const double time = seconds() - start;
        cost.total += time;
        cost.worstTurn = qMax(cost.worstTurn, time);
    }
    return cost;
}

Cost plainCost(const QString &text)
{
    QTextBrowser browser;
    browser.resize(windowSize);
    browser.show();
    turn();
    return costOf(text, [&](const QString &delta) {
        QTextCursor cursor(browser.document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(delta);
    });
}

Cost everythingCost(const QString &text)
{
    QTextBrowser browser;
    browser.resize(windowSize);
    browser.show();
    turn();
    QString shown;
    return costOf(text, [&](const QString &delta) {
        shown += delta;
        browser.setMarkdown(shown);
    });
}

Cost transcriptCost(const QString &text)
{
    MarkdownTranscript transcript;
    transcript.resize(windowSize);
    transcript.show();
    transcript.beginMessage(QStringLiteral("智能体"), QColor());
    turn();
    return costOf(text, [&](const QString &delta) { transcript.appendDelta(delta); });
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void besidePlain(benchmark::State &state, const QString &text)
{
    std::vector<double> ratios;
    std::vector<double> times;
    std::vector<double> worst;
    for ([[maybe_unused]] auto iteration : state) {
        const Cost plain = plainCost(text);
        const Cost transcript = transcriptCost(text);
        ratios.push_back(transcript.total / plain.total);
        times.push_back(transcript.total / (double(text.size()) / deltaLength));
        worst.push_back(transcript.worstTurn);
        state.SetIterationTime(transcript.total);
    }
    state.counters["ratio"] = median(ratios);
    state.counters["delta_us"] = median(times) * 1e6;
    state.counters["worst_ms"] = median(worst) * 1e3;
}

void besideEverything(benchmark::State &state)
{
    const QString text = textOf(ordinaryBlocks, int(state.range(0)));
    std::vector<double> ratios;
    for ([[maybe_unused]] auto iteration : state) {
        const double everything = everythingCost(text).total;
        const double transcript = transcriptCost(text).total;
        ratios.push_back(everything / transcript);
        state.SetIterationTime(transcript);
    }
    state.counters["ratio"] = median(ratios);
}

// The transcript renders in a posted call.
double shareOfRendering(const QString &text)
{
    MarkdownTranscript transcript;
    transcript.resize(windowSize);
    transcript.show();
    transcript.beginMessage({}, QColor());
    turn();
    QElapsedTimer clock;
    clock.start();
    qint64 rendering = 0;
    for (int begin = 0; begin < text.size(); begin += deltaLength) {
        transcript.appendDelta(text.mid(begin, deltaLength));
        const qint64 start = clock.nsecsElapsed();
        QCoreApplication::sendPostedEvents(&transcript, QEvent::MetaCall);
        rendering += clock.nsecsElapsed() - start;
        turn();
    }
    return double(rendering) / double(clock.nsecsElapsed());
}

void endlessBlock(benchmark::State &state)
{
    const QString text = endlessParagraph(int(state.range(0)));
    std::vector<double> shares;
    for ([[maybe_unused]] auto iteration : state)
        shares.push_back(shareOfRendering(text));
    state.counters["share"] = median(shares);
}

void finishWithReferences(benchmark::State &state)
{
    const QString text = QStringLiteral("See [1].\n\n") + textOf(ordinaryBlocks, int(state.range(0)))
                       + QStringLiteral("\n\n[1]: https://example.com\n");
    for ([[maybe_unused]] auto iteration : state) {
        MarkdownTranscript transcript;
        transcript.resize(windowSize);
        transcript.show();
        transcript.appendDelta(text);
        turn();
        const double start = seconds();
        transcript.finishMessage();
        turn();
        state.SetIterationTime(seconds() - start);
    }
}

constexpr int answerLength = 32000;
constexpr int iterations = 3;

#define BENCHMARK_BESIDE_PLAIN(name, text) \
    BENCHMARK_CAPTURE(besidePlain, name, text) \
        ->Iterations(iterations) \
        ->UseManualTime() \
        ->Unit(benchmark::kMillisecond)

BENCHMARK_BESIDE_PLAIN(ordinary_blocks, textOf(ordinaryBlocks, answerLength));
BENCHMARK_BESIDE_PLAIN(paragraphs, textOf(paragraph, answerLength));
BENCHMARK_BESIDE_PLAIN(lists, textOf(listBlock, answerLength));
BENCHMARK_BESIDE_PLAIN(tables, textOf(tableBlock, answerLength));
BENCHMARK_BESIDE_PLAIN(open_fence, openFence(answerLength));
BENCHMARK(besideEverything)
    ->Arg(2000)
    ->Iterations(iterations)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(finishWithReferences)
    ->Arg(answerLength)
    ->Iterations(iterations)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(endlessBlock)->Arg(answerLength)->Iterations(iterations)->Unit(benchmark::kMillisecond);

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
