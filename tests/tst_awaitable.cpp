#include <qtagent/awaitable.h> // the first: it brings what it needs

#include "support/coroutines.h"
#include "support/eventloop.h"
#include "support/heapusage.h"

#include <qtagent/testing/scriptedmodel.h>

#include <QPushButton>
#include <QWidget>
#include <QtTest>

#include <memory>
#include <optional>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

Task waitFor(ChatReply *reply, std::optional<ChatResult> *result)
{
    *result = co_await *reply;
}

using EndReply = void (*)(ChatReply *);

struct ReplyEnd
{
    const char *name;
    EndReply end;
    ChatResult result;
};

const std::vector<ReplyEnd> &replyEnds()
{
    using End = ChatResult::End;
    static const std::vector<ReplyEnd> ends{
        {"finished", [](ChatReply *reply) { reply->finish("ab"); }, {End::Finished, "ab", "", {}}},
        {"failed", [](ChatReply *reply) { reply->fail("no"); }, {End::Failed, "a", "no", {}}},
        {"canceled", [](ChatReply *reply) { reply->cancel(); }, {End::Canceled, "a", "", {}}},
        {"deleted", [](ChatReply *reply) { delete reply; }, {End::Deleted, "a", "", {}}},
    };
    return ends;
}

// A coroutine type like that of libraries: its promise lets pass what can be awaited, and nothing else.
struct ChoosingTask
{
    struct promise_type : Detached::promise_type
    {
        ChoosingTask get_return_object() { return {}; }

        template<typename Awaitable>
        requires requires(Awaitable &&awaitable) { operator co_await(std::forward<Awaitable>(awaitable)); }
        Awaitable &&await_transform(Awaitable &&awaitable) { return std::forward<Awaitable>(awaitable); }

        template<typename Awaiter>
        requires requires(Awaiter &&awaiter, std::coroutine_handle<> coroutine)
        {
            awaiter.await_ready();
            awaiter.await_suspend(coroutine);
            awaiter.await_resume();
        }
        Awaiter &&await_transform(Awaiter &&awaiter) { return std::forward<Awaiter>(awaiter); }
    };
};

// The window of the header's sample.
class Window : public QWidget
{
public:
    Window() { m_session->setModel(m_model); }

    Task ask(QString question);
    void show(const QString &text) { shown.append(text); }

    ScriptedModel *const m_model = new ScriptedModel(this);
    AgentSession *const m_session = new AgentSession(this);
    QPushButton *const m_stopButton = new QPushButton(this);
    QStringList shown;
};

#include "awaitable_1.inc"

// The window of the page.
class TalkWindow : public QWidget
{
public:
    TalkWindow() { m_session.setModel(&m_model); }

    Task talk()
    {
        QVector<ChatMessage> conversation;
#include "await_1.inc"
        showLine("Which device is abnormal?", outcome.text + outcome.error);
        setBusy(false);
    }
    void showLine(const QString &speaker, const QString &text)
    {
        lines.append(speaker + ' ' + text);
    }
    void setBusy(bool busy)
    {
        isBusy = busy;
    }

    ScriptedModel m_model;
    AgentSession m_session;
    QPushButton *const m_stop = new QPushButton(this);
    QStringList lines;
    bool isBusy = true;
};

} // namespace

Q_DECLARE_METATYPE(ReplyEnd)

class TestAwaitable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyEndOfAReplyResumes_data();
    void everyEndOfAReplyResumes();
    void endedReplyResumesInTheNextTurn();
    void firstEndCounts();
    void severalMayWaitForOneReply();
    void replyMayBeDeletedBetweenTheCallAndTheWait();
    void replyMayBeDeletedWhereItIsAwaited();
    void coroutineThatIsGoneIsNotResumed_data();
    void coroutineThatIsGoneIsNotResumed();
    void coroutineMayGoBetweenTheEndAndItsTurn();
    void givingUpLeavesNothingInTheReply();
    void tenThousandAwaitsOfEveryEnd();
    void promiseMayChooseWhatIsAwaited();
    void windowAsksInStraightCode();
    void windowMayBeDeletedWhileItWaits();
    void windowTalksUntilTheModelFails_data();
    void windowTalksUntilTheModelFails();
};

void TestAwaitable::everyEndOfAReplyResumes_data()
{
    QTest::addColumn<ReplyEnd>("end");
    for (const ReplyEnd &end : replyEnds())
        QTest::newRow(end.name) << end;
}

void TestAwaitable::everyEndOfAReplyResumes()
{
    QFETCH(ReplyEnd, end);
    const QPointer<ChatReply> reply(new ChatReply(this));
    std::optional<ChatResult> result;
    const Task task = waitFor(reply, &result);
    reply->appendDelta("a");
    runUntilQuiet();
    QVERIFY(!result);
    end.end(reply);
    QVERIFY(!result); // from the event loop
    runUntilQuiet();
    QVERIFY(task.isDone());
    QCOMPARE(*result, end.result);
    delete reply;
}

void TestAwaitable::endedReplyResumesInTheNextTurn()
{
    ChatReply reply;
    reply.finish("ab");
    std::optional<ChatResult> result;
    const Task task = waitFor(&reply, &result);
    QVERIFY(!result);
    QCoreApplication::processEvents();
    QCOMPARE(result->text, "ab");
}

void TestAwaitable::firstEndCounts()
{
    auto reply = std::make_unique<ChatReply>();
    std::optional<ChatResult> result;
    const Task task = waitFor(reply.get(), &result);
    reply->finish("ab");
    reply->cancel();
    reply.reset();
    runUntilQuiet();
    QCOMPARE(result->end, ChatResult::End::Finished);
}

void TestAwaitable::severalMayWaitForOneReply()
{
    ChatReply reply;
    std::optional<ChatResult> first;
    std::optional<ChatResult> second;
    const Task firstTask = waitFor(&reply, &first);
    const Task secondTask = waitFor(&reply, &second);
    reply.finish("ab");
    runUntilQuiet();
    QCOMPARE(first->text, "ab");
    QCOMPARE(second->text, "ab");
}

void TestAwaitable::replyMayBeDeletedBetweenTheCallAndTheWait()
{
    auto *reply = new ChatReply;
    std::optional<ChatResult> result;
    const Task task = [](ChatReply *reply, std::optional<ChatResult> *result) -> Task {
        ReplyAwaiter end = operator co_await(*reply);
        delete reply;
        *result = co_await end;
    }(reply, &result);
    runUntilQuiet();
    QCOMPARE(result->end, ChatResult::End::Deleted);
}

void TestAwaitable::replyMayBeDeletedWhereItIsAwaited()
{
    const QPointer<ChatReply> reply(new ChatReply);
    [](QPointer<ChatReply> reply) -> Detached {
        co_await *reply;
        delete reply;
    }(reply);
    reply->finish("ab");
    runUntilQuiet();
    QVERIFY(!reply);
}

void TestAwaitable::coroutineThatIsGoneIsNotResumed_data()
{
    everyEndOfAReplyResumes_data();
}

void TestAwaitable::coroutineThatIsGoneIsNotResumed()
{
    QFETCH(ReplyEnd, end);
    const QPointer<ChatReply> reply(new ChatReply(this));
    std::optional<ChatResult> result;
    {
        const Task task = waitFor(reply, &result);
    }
    end.end(reply);
    runUntilQuiet();
    QVERIFY(!result);
    delete reply;
}

void TestAwaitable::coroutineMayGoBetweenTheEndAndItsTurn()
{
    ChatReply reply;
    std::optional<ChatResult> result;
    {
        const Task task = waitFor(&reply, &result);
        reply.finish("ab");
    }
    runUntilQuiet();
    QVERIFY(!result);
}

void TestAwaitable::givingUpLeavesNothingInTheReply()
{
    ChatReply reply;
    std::optional<ChatResult> result;
    const auto giveUp = [&](int times) {
        for (int i = 0; i < times; ++i)
            const Task task = waitFor(&reply, &result);
    };
    giveUp(100);
    const std::optional<qint64> before = heapUsage();
    if (!before)
        QSKIP("The C library cannot tell what is allocated.");
    giveUp(10000);
    QVERIFY(*heapUsage() - *before < 10000);
}

void TestAwaitable::tenThousandAwaitsOfEveryEnd()
{
    constexpr int awaits = 10000;
    for (const ReplyEnd &end : replyEnds()) {
        int resumed = 0;
        for (int i = 0; i < awaits; ++i) {
            const QPointer<ChatReply> reply(new ChatReply);
            [](ChatReply *reply, ChatResult::End end, int *resumed) -> Detached {
                const ChatResult result = co_await *reply;
                *resumed += result.end == end ? 1 : 0;
            }(reply, end.result.end, &resumed);
            end.end(reply);
            if (reply)
                reply->deleteLater();
        }
        QCOMPARE(resumed, 0);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        runUntilQuiet();
        QCOMPARE(resumed, awaits);
    }
}

void TestAwaitable::promiseMayChooseWhatIsAwaited()
{
    ChatReply reply;
    ToolReply call;
    AgentSession session;
    GraphRun run{StateGraph()};
    int resumed = 0;
    [](ChatReply *reply, ToolReply *call, AgentSession *session, GraphRun *run,
       int *resumed) -> ChoosingTask {
        co_await *reply;
        co_await *call;
        co_await runOf(session);
        co_await resultOf(run);
        ++*resumed;
    }(&reply, &call, &session, &run, &resumed);
    reply.finish("ab");
    call.finish({});
    runUntilQuiet();
    QCOMPARE(resumed, 1);
}

void TestAwaitable::windowAsksInStraightCode()
{
    Window window;
    window.m_model->addText({"A valve", " opens."});
    window.m_model->addText({"It opens."});
    const Task task = window.ask("What is a valve?");
    runUntilQuiet();
    QCOMPARE(window.shown, QStringList({"A valve opens.", "It opens."}));
    QVERIFY(task.isDone());
}

void TestAwaitable::windowMayBeDeletedWhileItWaits()
{
    auto window = std::make_unique<Window>();
    window->m_model->addSilence();
    {
        const Task task = window->ask("What is a valve?");
        QTest::mouseClick(window->m_stopButton, Qt::LeftButton);
    }
    window.reset();
    runUntilQuiet();
}

void TestAwaitable::windowTalksUntilTheModelFails_data()
{
    QTest::addColumn<int>("answers");
    QTest::addColumn<QString>("lastLine");
    QTest::newRow("reply") << 1 << "Who opens it? no network";
    QTest::newRow("run") << 3 << "Which device is abnormal? no network";
    QTest::newRow("never") << 4 << "Which device is abnormal? Yes.";
}

void TestAwaitable::windowTalksUntilTheModelFails()
{
    QFETCH(int, answers);
    TalkWindow window;
    for (int i = 0; i < answers; ++i)
        window.m_model.addText({"Yes."});
    window.m_model.addFailure("no network");
    const Task task = window.talk();
    runUntilQuiet();
    QTEST(window.lines.last(), "lastLine");
    QVERIFY(!window.isBusy);
    QVERIFY(task.isDone());
}

QTEST_MAIN(TestAwaitable)
#include "tst_awaitable.moc"
