// Shows that memory stays flat over a long session: orvane-soak [PERCENT], 100 by default.
//
// Streamed requests to a server (5,000), agent runs (1,000), runs of one session with answers of 100 KB
// (1,000), visits of the demo's pages that keep nothing (1,000) and of those that keep their runs (100) are
// repeated; a line per thousand shows the memory. A transcript of 5 MB is shown and cleared, twice. PERCENT
// shortens all of it. The exit status is 1 where memory has grown beyond the bounds below.
//
// The server is a process of its own, this program once more, so that what it keeps does not count.

#include "support/agentfixture.h"
#include "support/completions.h"
#include "support/heapusage.h"
#include "support/loopbackserver.h"
#include "support/offlineconfiguration.h"

#include <demo/orvanedemowindow.h>
#include <qtagent/agentsession.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>

#include <QApplication>
#include <QEventLoop>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QTreeWidget>

#include <algorithm>
#include <cstdio>
#include <iostream>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr qint64 kilobyte = 1024;
constexpr qint64 megabyte = 1024 * kilobyte;

constexpr char answerText[] = "A streamed answer.";

// Memory

struct Memory
{
    std::optional<qint64> heap;
    qint64 resident = 0;
};

qint64 residentMemory()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("VmRSS:"))
            return line.simplified().split(' ').at(1).toLongLong() * kilobyte;
    }
    return 0;
}

// The C library keeps pages that are free, for a while or for ever: they are given back first.
Memory measureMemory()
{
    runUntilQuiet();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    return {heapUsage(), residentMemory()};
}

Memory printMemory(const QString &moment)
{
    const Memory memory = measureMemory();
    std::printf("%-44s resident %7.1f MB, heap %8.3f MB\n", qPrintable(moment),
                double(memory.resident) / megabyte, double(memory.heap.value_or(0)) / megabyte);
    std::fflush(stdout);
    return memory;
}

// How much more a section may occupy at its end than after its warm-up.
struct Bounds
{
    qint64 heap = 0;
    qint64 resident = 0;
};

// The smallest leak is a QObject, with more than 100 bytes. What is resident changes by whole pages, and by
// how the heap happens to be cut up.
Bounds boundsFor(int rounds, qint64 keptBytesPerRound)
{
    constexpr qint64 roundBytes = 64;
    const qint64 heap = 128 * kilobyte + rounds * (roundBytes + keptBytesPerRound);
    return {heap, 2 * megabyte + heap};
}

bool isWithin(const Bounds &bounds, const Memory &before, const Memory &after)
{
    if (!before.heap || !after.heap)
        return true; // the sanitizer that allocates in place of the C library looks for leaks itself
    const qint64 heap = *after.heap - *before.heap;
    const qint64 resident = after.resident - before.resident;
    const bool holds = heap <= bounds.heap && resident <= bounds.resident;
    std::printf("  growth: heap %.1f KB of at most %.1f KB, resident %.1f KB of at most %.1f KB%s\n",
                double(heap) / kilobyte, double(bounds.heap) / kilobyte, double(resident) / kilobyte,
                double(bounds.resident) / kilobyte, holds ? "" : ": FAILED");
    return holds;
}

bool staysFlat(const QString &what, int rounds, const std::function<void()> &round,
               qint64 keptBytesPerRound = 0)
{
    const int warmUp = qMax(100, rounds / 10);
    for (int i = 0; i < warmUp; ++i)
        round();
    const Memory before = printMemory(QString("%1: warm-up of %2").arg(what).arg(warmUp));
    Memory after = before;
    for (int i = 1; i <= rounds; ++i) {
        round();
        if (i % 1000 == 0 || i == rounds)
            after = printMemory(QString("%1: %2").arg(what).arg(i));
    }
    return isWithin(boundsFor(rounds, keptBytesPerRound), before, after);
}

// The server

// Streams an answer; answers a question that comes with tools with calls of two, one of which needs an
// approval.
LoopbackAnswer answerTo(const LoopbackRequest &request)
{
    if (request.json["stream"].toBool())
        return LoopbackAnswer::stream({deltaEvent("A streamed "), deltaEvent("answer."), doneEvent()});
    const QJsonArray messages = request.json["messages"].toArray();
    if (messages.last().toObject()["role"] == "tool")
        return LoopbackAnswer::json(completion("The report is written."));
    return LoopbackAnswer::json(completion(
        "", {makeToolCall("c1", "find_abnormal_devices", {}), makeToolCall("c2", "export_report", {})}));
}

// Prints the address and serves until the standard input is closed.
int serve()
{
    LoopbackServer server;
    server.setHandler(answerTo);
    std::cout << server.baseUrl().toStdString() << std::endl;
    std::cin.get();
    return 0;
}

class ServerProcess
{
public:
    ServerProcess()
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(), {"--serve"});
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead())
                qFatal("The server does not start.");
        }
        m_baseUrl = QString::fromUtf8(m_process.readLine().trimmed());
    }

    ~ServerProcess()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY(ServerProcess)

    QString baseUrl() const { return m_baseUrl; }

private:
    QProcess m_process;
    QString m_baseUrl;
};

// What is repeated

void waitUntil(const std::function<bool()> &condition)
{
    constexpr int timeLimitMs = 30000;
    QTimer limit;
    QObject::connect(&limit, &QTimer::timeout, [] { qFatal("A page does not come to rest."); });
    limit.start(timeLimitMs);
    while (!condition())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

bool requestsStayFlat(int count, const QString &baseUrl)
{
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.model = "soak";
    model.setConfig(config);
    return staysFlat("streamed requests", count, [&model] {
        ChatReply *reply = model.chat({ChatMessage::user("question")}, {}, nullptr);
        QEventLoop loop;
        QObject::connect(reply, &ChatReply::finished, &loop, &QEventLoop::quit);
        QObject::connect(reply, &ChatReply::failed, &loop,
                         [](const QString &error) { qFatal("%s", qPrintable(error)); });
        loop.exec();
        if (reply->text() != answerText)
            qFatal("wrong answer: %s", qPrintable(reply->text()));
        delete reply;
    });
}

// Each run has a new executor, with a tool call that is approved before the answer.
bool agentRunsStayFlat(int count)
{
    return staysFlat("agent runs", count, [] {
        AgentFixture fixture;
        fixture.model->addToolCalls(AgentFixture::callsOf({"read", "write"}));
        fixture.model->addText({"All ", "done"});
        fixture.run();
        fixture.resolve(true);
        if (fixture.log.last() != "finished All done")
            qFatal("the run did not finish: %s", qPrintable(fixture.log.join(", ")));
    });
}

// Asks for a tool, and answers with 100 KB once it has the result.
class LongModel : public ChatModel
{
public:
    const QString answer{100 * kilobyte, 'x'};

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        auto *reply = new ChatReply(parent);
        const bool hasResult = messages.last().role == "tool";
        QTimer::singleShot(0, reply, [this, reply, hasResult] {
            if (hasResult)
                reply->appendDelta(answer);
            else
                reply->setToolCalls("", AgentFixture::callsOf({"read"}));
            reply->finish(reply->text());
        });
        return reply;
    }
};

// One session for all runs, each a conversation of its own.
bool sessionRunsStayFlat(int count)
{
    LongModel model;
    ToolRegistry registry;
    registry.registerTool(new FunctionTool("read", "", {}, ToolPermission::ReadOnly,
                                           [](const QJsonObject &) { return ToolResult(); }));
    AgentSession session;
    session.setModel(&model);
    session.setToolRegistry(&registry);
    int finishedRuns = 0;
    QObject::connect(&session, &AgentSession::runEnded, &session, [&](const RunOutcome &outcome) {
        finishedRuns += outcome.text == model.answer ? 1 : 0;
    });
    int runs = 0;
    return staysFlat("session runs", count, [&] {
        session.run("question");
        runUntilQuiet();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (finishedRuns != ++runs)
            qFatal("the run did not finish");
    });
}

// Allows what the pages ask for.
class Approver : public QObject
{
protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (auto *dialog = qobject_cast<ApprovalDialog *>(watched)) {
            if (event->type() == QEvent::Show)
                QMetaObject::invokeMethod(dialog, &QDialog::accept, Qt::QueuedConnection);
        }
        return false;
    }
};

// Three pages keep something of every run: the replies of the window's executor live as long as the window,
// the traces of earlier runs stay, and the history of a thread stays in the checkpoints.
enum class PageKind { KeepsNothing, KeepsRuns };

PageKind kindOf(const QString &title)
{
    const QStringList keeping{"数据分析", "工具调用", "记忆检查点"};
    return keeping.contains(title) ? PageKind::KeepsRuns : PageKind::KeepsNothing;
}

// Visits one page of the demo's window after the other, presses its buttons and waits until it is at rest.
class PageVisits
{
public:
    explicit PageVisits(PageKind kind)
    {
        for (QTreeWidgetItemIterator it(m_navigation); *it; ++it) {
            if ((*it)->data(0, Qt::UserRole).isValid() && kindOf((*it)->text(0)) == kind)
                m_entries.append(*it);
        }
        qApp->installEventFilter(&m_approver);
        m_window.show();
    }

    int pageCount() const { return int(m_entries.size()); }

    void visitNext()
    {
        m_navigation->setCurrentItem(m_entries.at(m_next));
        m_next = (m_next + 1) % pageCount();
        m_page = m_pages->currentWidget();
        press("agentChatClear"); // a transcript is kept
        if (auto *input = m_page->findChild<QPlainTextEdit *>("agentChatInput"))
            input->setPlainText("查找异常设备并导出报告");
        for (const char *name : {"agentChatSend", "runButton", "firstTurnButton", "secondTurnButton"})
            press(name);
        requireNoErrorOn<QPlainTextEdit>();
        requireNoErrorOn<QTextBrowser>();
    }

private:
    void press(const char *name)
    {
        auto *button = m_page->findChild<QPushButton *>(name);
        if (!button)
            return;
        button->click();
        waitUntil([this] { return isAtRest(); });
    }

    bool isAtRest() const
    {
        for (const char *name : {"agentChatStop", "stopButton"}) {
            const auto *stop = m_page->findChild<QPushButton *>(name);
            if (stop && stop->isEnabled())
                return false;
        }
        const QList<ChatReply *> replies = m_window.findChildren<ChatReply *>();
        return std::all_of(replies.cbegin(), replies.cend(), [](const ChatReply *reply) {
            return qobject_cast<AgentExecutor *>(reply->parent()) != nullptr;
        });
    }

    template<typename Editor>
    void requireNoErrorOn() const
    {
        for (const Editor *editor : m_page->template findChildren<Editor *>()) {
            const QString text = editor->toPlainText();
            if (text.contains("错误：") || text.contains("failed."))
                qFatal("%s: %s", qPrintable(m_navigation->currentItem()->text(0)), qPrintable(text));
        }
    }

    Approver m_approver;
    OrvaneDemoWindow m_window;
    QTreeWidget *const m_navigation = m_window.findChild<QTreeWidget *>("navigationTree");
    QStackedWidget *const m_pages = m_window.findChild<QStackedWidget *>("pageStack");
    QList<QTreeWidgetItem *> m_entries;
    QWidget *m_page = nullptr;
    int m_next = 0;
};

bool pageVisitsStayFlat(int percent, const QString &baseUrl)
{
    const OfflineConfiguration configuration;
    configuration.write({{"provider", "openai"}, {"baseUrl", baseUrl}, {"model", "soak"}});
    qputenv("TMPDIR", configuration.path().toLocal8Bit()); // for the report
    const auto visitsStayFlat = [](PageKind kind, int count, qint64 keptBytesPerVisit) {
        PageVisits visits(kind);
        return staysFlat(
            QString("visits of %1 pages").arg(visits.pageCount()), count, [&visits] { visits.visitNext(); },
            keptBytesPerVisit);
    };
    const bool holds = visitsStayFlat(PageKind::KeepsNothing, 10 * percent, 0);
    return visitsStayFlat(PageKind::KeepsRuns, percent, 8 * kilobyte) && holds;
}

// The transcript

void streamTranscript(AgentChatPanel *panel, qint64 bytes)
{
    constexpr int deltasPerTurn = 100;
    const QString delta("The pump runs at 53.2 degrees, and the valve is open. ");
    panel->beginAgentMessage();
    for (qint64 i = 0; i * delta.size() < bytes; ++i) {
        panel->appendAgentDelta(i % 10 == 9 ? delta + '\n' : delta);
        if (i % deltasPerTurn == 0)
            QCoreApplication::processEvents();
    }
    panel->finishAgentMessage();
}

// Two bytes of a character are the text itself, the others its layout.
bool transcriptIsGivenBack(qint64 bytes)
{
    constexpr int heapPerByte = 16;
    const QString size = QString("%1 MB").arg(double(bytes) / megabyte);
    AgentChatPanel panel;
    panel.resize(800, 600);
    panel.show();
    auto *clear = panel.findChild<QPushButton *>("agentChatClear");
    streamTranscript(&panel, bytes);
    clear->click();
    const Memory before = printMemory(QString("transcript: warm-up of %1, cleared").arg(size));
    streamTranscript(&panel, bytes);
    const Memory shown = printMemory(QString("transcript: %1").arg(size));
    clear->click();
    const Memory cleared = printMemory(QString("transcript: %1, cleared").arg(size));
    const Bounds shownBounds{heapPerByte * bytes, heapPerByte * bytes};
    const bool isShownWithin = isWithin(shownBounds, before, shown);
    return isWithin(boundsFor(1, 0), before, cleared) && isShownWithin;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && qstrcmp(argv[1], "--serve") == 0)
        return serve();
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    const int percent = argc == 2 ? QByteArray(argv[1]).toInt() : 100;
    if (argc > 2 || percent < 1) {
        std::fprintf(stderr, "usage: %s [PERCENT]\n", argv[0]);
        return 2;
    }
    if (!heapUsage())
        std::puts("The heap cannot be measured here: nothing is compared.");

    const ServerProcess server;
    bool holds = requestsStayFlat(50 * percent, server.baseUrl());
    holds = agentRunsStayFlat(10 * percent) && holds;
    holds = sessionRunsStayFlat(10 * percent) && holds;
    holds = pageVisitsStayFlat(percent, server.baseUrl()) && holds;
    holds = transcriptIsGivenBack(5 * megabyte * percent / 100) && holds;
    return holds ? 0 : 1;
}
