// What a question costs SimpleRagChain: 100,000 documents of about 300 characters, twelve terms, the best
// three, beside the plain way: lower-case each document, search it for each term, sort all documents.
//
// Both run in turn within one benchmark, each first in every other iteration. "time_ratio" is the median of
// the chain's time / the plain time over its iterations. "memory_ratio" is the chain's peak of resident
// memory / the plain one, the documents included; the "extra" counters are what the peak adds to the
// documents. The benchmark fails where the two rankings differ.

#include <qtagent/simpleragchain.h>

#include <QFile>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include <malloc.h>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int documentCount = 100000;
constexpr int documentLength = 300;
constexpr int best = 3;

const QStringList &terms()
{
    static const QStringList list{"pump", "valve",  "vibration", "temperature", "alarm",   "bearing",
                                  "rpm",  "sensor", "pressure",  "motor",       "line_07", "threshold"};
    return list;
}

QString question()
{
    return QStringLiteral("哪些设备异常？请检查 %1。").arg(terms().join(QStringLiteral("，")));
}

const QStringList &englishWords()
{
    static const QStringList list = QStringLiteral("The operator on duty reported a leak near inlet Pump-001 "
                                                   "was restarted after maintenance bearing Noise at "
                                                   "2950 RPM control system logged warning and continued "
                                                   "Valve position feedback does not match command "
                                                   "Temperature sensor T-17 drifts by 3 degrees calibration "
                                                   "is planned for next shutdown of LINE_07 LINE_12 no "
                                                   "further action needed this time Motor current within "
                                                   "limits vibration above threshold alarm confirmed "
                                                   "Network gateway lost connection twice since Monday "
                                                   "Pressure stable again replaced seals during night shift")
                                        .split(' ');
    return list;
}

const QStringList &chineseWords()
{
    static const QStringList list = QStringLiteral("设备 运行 正常 振动值 超过 阈值 需要 停机 检查 巡检 记录 "
                                                   "显示 温度 略有 上升 请 在 下一个 班次 更换 密封件 "
                                                   "冷却水 流量 低于 设定值 已 通知 维修 班组 报警 确认 并 "
                                                   "的 了 水泵 阀门 电机 风机 传感器 压力 稳定 异常 报告")
                                        .split(' ');
    return list;
}

class TextSource
{
public:
    QString record(int number)
    {
        QString text = QStringLiteral("记录 %1：").arg(number);
        while (text.size() < documentLength)
            text += next(2) == 0 ? sentence(englishWords(), " ", ". ") : sentence(chineseWords(), "", "。");
        return text;
    }

private:
    int next(int limit)
    {
        m_seed = m_seed * 6364136223846793005u + 1442695040888963407u;
        return static_cast<int>((m_seed >> 33) % static_cast<quint64>(limit));
    }

    QString sentence(const QStringList &words, const QString &gap, const QString &end)
    {
        QStringList chosen;
        for (int count = 4 + next(8); count > 0; --count)
            chosen.append(words.at(next(static_cast<int>(words.size()))));
        return chosen.join(gap) + end;
    }

    quint64 m_seed = 7;
};

QStringList corpus()
{
    TextSource source;
    QStringList documents;
    documents.reserve(documentCount);
    for (int number = 0; number < documentCount; ++number)
        documents.append(source.record(number));
    return documents;
}

QList<ScoredDocument> retrievedThePlainWay(const QStringList &documents, int topK)
{
    QList<ScoredDocument> scored;
    for (const QString &document : documents) {
        const QString lowered = document.toLower();
        const auto score = std::count_if(terms().cbegin(), terms().cend(),
                                         [&lowered](const QString &term) { return lowered.contains(term); });
        scored.append({document, static_cast<qint32>(score)});
    }
    std::stable_sort(
        scored.begin(), scored.end(),
        [](const ScoredDocument &left, const ScoredDocument &right) { return left.score > right.score; });
    return scored.mid(0, topK);
}

bool areEqual(const QList<ScoredDocument> &left, const QList<ScoredDocument> &right)
{
    return std::equal(left.cbegin(), left.cend(), right.cbegin(), right.cend(),
                      [](const ScoredDocument &one, const ScoredDocument &other) {
                          return one.score == other.score && one.text == other.text;
                      });
}

/// Returns a figure of this process in KiB, or 0 where the system does not tell.
double statusValue(const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').first().toDouble();
    }
    return 0;
}

bool resetPeak()
{
    malloc_trim(0);
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write("5") == 1;
}

struct Measurement
{
    QList<ScoredDocument> result;
    double seconds = 0;
    double peak = 0;
    double extra = 0;
};

template<typename Function>
Measurement measured(const Function &function)
{
    Measurement measurement;
    if (!resetPeak())
        return measurement;
    const double before = statusValue("VmRSS");
    const auto start = std::chrono::steady_clock::now();
    measurement.result = function();
    measurement.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    measurement.peak = statusValue("VmHWM");
    measurement.extra = measurement.peak - before;
    return measurement;
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void retrieveBesideThePlainWay(benchmark::State &state)
{
    const QStringList documents = corpus();
    SimpleRagChain chain;
    chain.setDocuments(documents);
    const auto ours = [&] { return chain.retrieve(question(), best); };
    const auto plain = [&] { return retrievedThePlainWay(documents, best); };

    if (!areEqual(chain.retrieve(question(), documentCount),
                  retrievedThePlainWay(documents, documentCount))) {
        state.SkipWithError("the rankings of all documents differ");
        return;
    }

    std::vector<double> timeRatios;
    std::vector<double> memoryRatios;
    Measurement oursMeasured;
    Measurement plainMeasured;
    for ([[maybe_unused]] auto iteration : state) {
        if (timeRatios.size() % 2 == 0) {
            oursMeasured = measured(ours);
            plainMeasured = measured(plain);
        } else {
            plainMeasured = measured(plain);
            oursMeasured = measured(ours);
        }
        if (oursMeasured.peak <= 0 || !areEqual(oursMeasured.result, plainMeasured.result)) {
            state.SkipWithError("the rankings differ, or the peak of memory cannot be read");
            break;
        }
        timeRatios.push_back(oursMeasured.seconds / plainMeasured.seconds);
        memoryRatios.push_back(oursMeasured.peak / plainMeasured.peak);
        state.SetIterationTime(oursMeasured.seconds);
    }
    if (timeRatios.empty())
        return;
    state.counters["time_ratio"] = medianOf(timeRatios);
    state.counters["memory_ratio"] = medianOf(memoryRatios);
    state.counters["extra_KiB"] = oursMeasured.extra;
    state.counters["plain_extra_KiB"] = plainMeasured.extra;
}

BENCHMARK(retrieveBesideThePlainWay)->UseManualTime()->Iterations(15)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
