// What ConversationStore costs with 20,000 messages of 300 characters in 2,000 conversations: a search, and
// saving an answer that has grown by 400 characters to the first number, behind as many messages as the
// second.
//
// "plain_ms" is what the plain way takes: read every text from the file and look for the words in it. The
// benchmark fails where the two find different numbers of messages.

#include <qtagent/store/conversationstore.h>

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QVariant>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int conversationCount = 2000;
constexpr int messagesEach = 10;
constexpr int messageLength = 300;
constexpr int limit = 100;

const QStringList &words()
{
    static const QStringList list =
        QStringLiteral(
            "The operator on duty reported a leak near inlet Pump-001 was restarted after "
            "maintenance bearing Noise at 2950 RPM control system logged warning and continued "
            "Temperature sensor T-17 drifts by 3 degrees calibration is planned for next shutdown "
            "设备 运行 正常 振动值 超过 阈值 需要 停机 检查 巡检 记录 显示 温度 略有 上升 请 在 下一个 "
            "班次 更换 密封件 冷却水 流量 低于 设定值 已 通知 维修 班组 报警 确认 并 的 了 水泵 阀门")
            .split(' ');
    return list;
}

class TextSource
{
public:
    QString text(int length)
    {
        QString text;
        while (text.size() < length) {
            const QString &word = words().at(next(static_cast<int>(words().size())));
            text += word.at(0).unicode() < 0x80 ? word + ' ' : word;
        }
        return text.left(length);
    }

private:
    int next(int bound)
    {
        m_seed = m_seed * 6364136223846793005u + 1442695040888963407u;
        return static_cast<int>((m_seed >> 33) % static_cast<quint64>(bound));
    }

    quint64 m_seed = 7;
};

#define LONG_HEAD \
    "https://plant.example/lines/7/machines/press-12/reports/maintenance/bearings/vibration/limits" \
    "?language=zh-CN&format=table&number="

// Every message ends in what only it has, and begins with what all have.
QString contentOf(int number, TextSource *source)
{
    const QString head =
        QStringLiteral("这台设备的压力超过了设定值，请通知维修班组并停机检查。at the edge: " LONG_HEAD "%1 ");
    const QString end = QStringLiteral(" #%1").arg(number);
    const QString begin = head.arg(number);
    return begin + source->text(messageLength - static_cast<int>(begin.size() + end.size())) + end;
}

// The store is filled once.
class FilledStore
{
public:
    FilledStore()
    {
        TextSource source;
        m_store.open(path());
        for (int number = 0; number < conversationCount; ++number) {
            Conversation conversation = m_store.create(QStringLiteral("Conversation %1").arg(number));
            for (int i = 0; i < messagesEach; ++i) {
                const QString content = contentOf(number * messagesEach + i, &source);
                conversation.messages.append(
                    {i % 2 == 0 ? ChatMessage::user(content) : ChatMessage::assistant(content), {}, {}});
            }
            m_isFilled = m_store.save(&conversation);
        }
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "plain");
        database.setDatabaseName(path());
        m_isFilled = m_isFilled && database.open();
    }

    ~FilledStore() { QSqlDatabase::removeDatabase("plain"); }

    static FilledStore &instance()
    {
        static FilledStore filled;
        return filled;
    }

    bool isFilled() const { return m_isFilled; }
    ConversationStore *store() { return &m_store; }

    int countThePlainWay(const QString &text) const
    {
        const QStringList searched = text.toCaseFolded().split(' ', Qt::SkipEmptyParts);
        QSqlQuery query(QSqlDatabase::database("plain"));
        query.setForwardOnly(true);
        query.exec("SELECT content FROM messages");
        int count = 0;
        while (query.next()) {
            const QString content = query.value(0).toString().toCaseFolded();
            count += std::all_of(searched.cbegin(), searched.cend(),
                                 [&content](const QString &word) { return content.contains(word); });
        }
        return count;
    }

private:
    QString path() const { return m_folder.filePath("conversations.sqlite"); }

    QTemporaryDir m_folder;
    ConversationStore m_store;
    bool m_isFilled = false;
};

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void search(benchmark::State &state, const char *text)
{
    FilledStore &filled = FilledStore::instance();
    const QString searched = QString::fromUtf8(text);
    const auto start = std::chrono::steady_clock::now();
    const int expected = qMin(limit, filled.countThePlainWay(searched));
    state.counters["plain_ms"] = millisecondsSince(start);
    for ([[maybe_unused]] auto iteration : state) {
        const auto found = filled.store()->search(searched, limit).size();
        if (!filled.isFilled() || found != expected)
            state.SkipWithError("not what the plain way finds");
    }
}

void saveAGrowingAnswer(benchmark::State &state)
{
    constexpr int step = 400;
    const auto length = static_cast<int>(state.range(0));
    ConversationStore *store = FilledStore::instance().store();
    TextSource source;
    const QString answer = source.text(length);
    Conversation conversation = store->create();
    const auto history = static_cast<int>(state.range(1));
    conversation.setMessages(QVector<ChatMessage>(history, ChatMessage::user(source.text(messageLength))));
    conversation.messages.append({ChatMessage::assistant(answer.left(length - step)), {}, {}});
    bool isSaved = store->save(&conversation);
    for ([[maybe_unused]] auto iteration : state) {
        // Back to the shorter answer without measuring.
        state.PauseTiming();
        conversation.messages.last().message.content = answer.left(length - step);
        isSaved = isSaved && store->save(&conversation);
        conversation.messages.last().message.content = answer;
        state.ResumeTiming();
        isSaved = isSaved && store->save(&conversation);
    }
    if (!isSaved)
        state.SkipWithError("the answer was not saved");
    store->remove(conversation.id);
}

#define BENCHMARK_SEARCH(name, text) BENCHMARK_CAPTURE(search, name, text)->Unit(benchmark::kMillisecond)

BENCHMARK_SEARCH(two_characters_of_all, "设备");
BENCHMARK_SEARCH(two_letters_of_most, "th");
BENCHMARK_SEARCH(two_characters_of_none, "龙虎");
BENCHMARK_SEARCH(one_message, "#12345");
BENCHMARK_SEARCH(a_word_of_most, "temperature");
BENCHMARK_SEARCH(a_phrase_of_all, "这台设备的压力超过了设定值，请通知维修班组并停机检查");
BENCHMARK_SEARCH(a_phrase_with_another_end, "这台设备的压力超过了设定值，请通知维修班组并停机检验");
BENCHMARK_SEARCH(pairs_over_a_blank, "hed");
BENCHMARK_SEARCH(long_head_of_all, LONG_HEAD "54321");
BENCHMARK_SEARCH(pairs_of_all_in_another_order, "https://plant.example/machines/lines/7/press-12/reports");
BENCHMARK_SEARCH(words_of_most, "the operator on duty 设备 温度");
BENCHMARK_SEARCH(words_of_all_and_none, "设备 压力 停机 龙虎");
BENCHMARK_SEARCH(single_characters, "a 1 设 e");

BENCHMARK(saveAGrowingAnswer)
    ->Args({2000, 1})
    ->Args({8000, 1})
    ->Args({32000, 1})
    ->Args({8000, 1000})
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
