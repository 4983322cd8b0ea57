// What the body of a request costs: a conversation of 1,000 messages of 2 KB, beside the same object put
// together by hand and written by QJsonDocument.
//
// Both run in turn within one benchmark, each first in every other iteration. The counter "ratio" is the
// median of requestBody() time / hand-written time over its iterations. The two bodies must be equal.

#include <qtagent/chatcompletion_p.h>

#include <QJsonDocument>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int messageCount = 1000;
constexpr int messageBytes = 2048;

QString textOfSize(const QString &sentence, int bytes)
{
    QString text = sentence;
    while (text.toUtf8().size() + sentence.toUtf8().size() <= bytes)
        text += sentence;
    return text + QString(bytes - text.toUtf8().size(), '.');
}

QVector<ChatMessage> conversationOf(const QString &sentence)
{
    QVector<ChatMessage> messages;
    for (int number = 0; number < messageCount; ++number) {
        const QString text = textOfSize(QString::number(number) + sentence, messageBytes);
        messages.append(number % 2 == 0 ? ChatMessage::user(text) : ChatMessage::assistant(text));
    }
    return messages;
}

QByteArray handWrittenBody(const ModelConfig &config, const QVector<ChatMessage> &messages)
{
    QJsonArray array;
    for (const ChatMessage &message : messages)
        array.append(QJsonObject{{"role", message.role}, {"content", message.content}});
    const QJsonObject body{{"model", config.model},
                           {"messages", array},
                           {"temperature", config.temperature},
                           {"max_tokens", config.maxTokens},
                           {"stream", true}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

template<typename Function>
double secondsOf(const Function &function)
{
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void requestBodyBesideHandWritten(benchmark::State &state, const QString &sentence)
{
    const ModelConfig config;
    const QVector<ChatMessage> messages = conversationOf(sentence);
    if (requestBody(config, messages, {}, true) != handWrittenBody(config, messages)) {
        state.SkipWithError("the bodies differ");
        return;
    }

    const auto ours = [&] { benchmark::DoNotOptimize(requestBody(config, messages, {}, true)); };
    const auto byHand = [&] { benchmark::DoNotOptimize(handWrittenBody(config, messages)); };
    std::vector<double> ratios;
    for ([[maybe_unused]] auto iteration : state) {
        const bool oursFirst = ratios.size() % 2 == 0;
        const double first = oursFirst ? secondsOf(ours) : secondsOf(byHand);
        const double second = oursFirst ? secondsOf(byHand) : secondsOf(ours);
        ratios.push_back(oursFirst ? first / second : second / first);
        state.SetIterationTime(oursFirst ? first : second);
    }
    state.counters["ratio"] = medianOf(ratios);
}

BENCHMARK_CAPTURE(requestBodyBesideHandWritten, English, QStringLiteral(" \"Pumps\" move water.\n"))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(requestBodyBesideHandWritten, Chinese, QStringLiteral(" 水泵输送“水”。\n"))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
