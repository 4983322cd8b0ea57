// What a long conversation costs in the assistant: "open_ms" is the time until one of 5,000 messages is
// painted after it was chosen. "ratio" is the time of an answer of 500 deltas in that window by that of the
// same answer in an empty one, measured in turn; "long_us" and "empty_us" are microseconds a delta. All are
// medians.

#include <assistant/assistantsettings.h>
#include <assistant/assistantwindow.h>

#include <qtagent/chatmodel.h>
#include <qtagent/store/conversationstore.h>

#include <benchmark/benchmark.h>

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTemporaryDir>
#include <QTextBrowser>

#include <algorithm>
#include <ctime>
#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int longLength = 5000;

// Leaves its answers to the benchmark.
class HeldModel : public ChatModel
{
public:
    QPointer<ChatReply> reply;

    ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        reply = new ChatReply(parent);
        return reply.data();
    }
};

void turn()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();
}

double secondsSince(std::clock_t begin)
{
    return double(std::clock() - begin) / CLOCKS_PER_SEC;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

class OpenWindow
{
public:
    // Opens a conversation of @p length messages.
    explicit OpenWindow(int length)
        : m_settings(m_folder.filePath(QStringLiteral("assistant.ini")))
    {
        if (!m_store.open(m_folder.filePath(QStringLiteral("conversations.sqlite"))))
            qFatal("no store");
        keep(length);
        m_window.reset(new AssistantWindow(&m_store, &m_settings));
        m_window->setModel(&m_model, QStringLiteral("held"));
        m_window->show();
        m_transcript = m_window->findChild<QTextBrowser *>(QStringLiteral("transcript"));
        paint();
    }

    double secondsToOpen()
    {
        press("newConversation");
        paint();
        const std::clock_t begin = std::clock();
        auto *list = m_window->findChild<QAbstractItemView *>(QStringLiteral("conversationList"));
        Q_EMIT list->clicked(list->model()->index(0, 0));
        paint();
        return secondsSince(begin);
    }

    double secondsToStream(int deltas)
    {
        m_window->findChild<QPlainTextEdit *>(QStringLiteral("chatInput"))
            ->setPlainText(QStringLiteral("Why?"));
        press("sendButton");
        paint();
        const std::clock_t begin = std::clock();
        for (int i = 0; i < deltas; ++i) {
            m_model.reply->appendDelta(i % 20 ? QStringLiteral("word ") : QStringLiteral("**line**\n\n"));
            turn();
        }
        paint();
        const double seconds = secondsSince(begin);
        m_model.reply->finish(m_model.reply->text());
        return seconds;
    }

private:
    void keep(int length)
    {
        if (length == 0)
            return;
        QVector<ChatMessage> messages;
        for (int i = 0; i < length; ++i) {
            const QString number = QString::number(i);
            messages.append(i % 2
                                ? ChatMessage::assistant(QStringLiteral("It *closes* when:\n\n- the pump %1 "
                                                                        "stops,\n- `valve()` says so.\n")
                                                             .arg(number))
                                : ChatMessage::user(QStringLiteral("What does valve %1 do?").arg(number)));
        }
        Conversation conversation = m_store.create(QStringLiteral("Valves"));
        conversation.setMessages(messages);
        if (!m_store.save(&conversation))
            qFatal("cannot save");
    }

    void press(const char *button) const
    {
        m_window->findChild<QAbstractButton *>(QLatin1String(button))->click();
    }

    void paint() const
    {
        turn();
        m_transcript->viewport()->repaint();
    }

    QTemporaryDir m_folder;
    ConversationStore m_store;
    AssistantSettings m_settings;
    HeldModel m_model;
    std::unique_ptr<AssistantWindow> m_window;
    QTextBrowser *m_transcript = nullptr;
};

void opened(benchmark::State &state)
{
    OpenWindow window(longLength);
    std::vector<double> times;
    for ([[maybe_unused]] auto iteration : state) {
        times.push_back(window.secondsToOpen());
        state.SetIterationTime(times.back());
    }
    state.counters["open_ms"] = median(times) * 1e3;
}

void streamed(benchmark::State &state)
{
    constexpr int deltas = 500;
    std::vector<double> ratios;
    std::vector<double> longTimes;
    std::vector<double> emptyTimes;
    for ([[maybe_unused]] auto iteration : state) {
        emptyTimes.push_back(OpenWindow(0).secondsToStream(deltas));
        longTimes.push_back(OpenWindow(longLength).secondsToStream(deltas));
        ratios.push_back(longTimes.back() / emptyTimes.back());
        state.SetIterationTime(longTimes.back());
    }
    state.counters["ratio"] = median(ratios);
    state.counters["long_us"] = median(longTimes) * 1e6 / deltas;
    state.counters["empty_us"] = median(emptyTimes) * 1e6 / deltas;
}

BENCHMARK(opened)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(streamed)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
