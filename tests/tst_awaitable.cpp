#include <qtagent/awaitable.h> // the first: it brings what it needs

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

// A coroutine that begins at once, and whose frame lives as long as this object.
class Task
{
public:
    struct promise_type
    {
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };

    Task(Task &&other) noexcept
        : m_handle(std::exchange(other.m_handle, {}))
    {}
    Task &operator=(Task &&) = delete;
    ~Task()
    {
        if (m_handle)
            m_handle.destroy();
    }

    bool isDone() const { return m_handle.done(); }

private:
    explicit Task(std::coroutine_handle<promise_type> handle)
        : m_handle(handle)
    {}

    std::coroutine_handle<promise_type> m_handle;
};

// A coroutine whose frame is gone with its last line, as that of a slot.
struct Detached
{
    struct promise_type
    {
        Detached get_return_object() { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
};

Task waitFor(ChatReply *reply, std::optional<ChatResult> *result)
{
    *result = co_await *reply;
}

Task waitFor(GraphRun *run, std::optional<GraphRunResult> *result)
{
    *result = co_await resultOf(run);
}

Task waitFor(ToolReply *reply, std::optional<ToolResult> *result)
{
    *result = co_await *reply;
}

// A graph whose one node ends when its task is told to.
StateGraph graphOfOneNode()
{
    StateGraph graph;
    graph.addEdge(StartNode, "wait");
    graph.addEdge("wait", EndNode);
    return graph;
}

Task waitFor(AgentSession *session, std::optional<RunOutcome> *outcome)
{
    *outcome = co_await runOf(session);
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
    void everyEndOfARunResumes();
    void runThatWasOverGivesItsOutcome();
    void deletedSessionIsAbandoned();
    void outcomeIsKnownBeforeItIsTold();
    void everyEndOfAGraphRunResumes();
    void graphRunThatWasOverGivesItsResult();
    void everyEndOfAToolReplyResumes();
    void toolReplyThatHadEndedResumes();
    void windowAsksInStraightCode();
    void windowMayBeDeletedWhileItWaits();
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

void TestAwaitable::everyEndOfARunResumes()
{
    ScriptedModel model;
    model.addText({"Hel", "lo"});
    model.addFailure("refused");
    model.addSilence();
    model.addSilence();
    model.addText({"new"});
    AgentSession session;
    session.setModel(&model);
    const auto outcomeOf = [&session](auto act) {
        std::optional<RunOutcome> outcome;
        session.send("question");
        const Task task = waitFor(&session, &outcome);
        act();
        runUntilQuiet();
        return outcome.value();
    };
    QCOMPARE(outcomeOf([] {}), (RunOutcome{RunEnd::Finished, "Hello", "", 1}));
    QCOMPARE(outcomeOf([] {}), (RunOutcome{RunEnd::Failed, "", "refused", 1}));
    QCOMPARE(outcomeOf([&] { session.cancel(); }).end, RunEnd::Canceled);
    QCOMPARE(outcomeOf([&] { session.send("another"); }).end, RunEnd::Replaced);
}

void TestAwaitable::runThatWasOverGivesItsOutcome()
{
    AgentSession session;
    std::optional<RunOutcome> outcome;
    const Task first = waitFor(&session, &outcome);
    QVERIFY(!outcome);
    runUntilQuiet();
    QCOMPARE(*outcome, RunOutcome());
    session.send("question"); // there is no model: the run is over
    QVERIFY(!session.isRunning());
    const Task second = waitFor(&session, &outcome);
    runUntilQuiet();
    QCOMPARE(*outcome, (RunOutcome{RunEnd::Failed, "", "智能体模型尚未配置。", 0}));
}

void TestAwaitable::deletedSessionIsAbandoned()
{
    ScriptedModel model;
    model.addSilence();
    auto session = std::make_unique<AgentSession>();
    session->setModel(&model);
    session->send("question");
    std::optional<RunOutcome> outcome;
    const Task task = waitFor(session.get(), &outcome);
    session.reset();
    QVERIFY(!outcome);
    runUntilQuiet();
    QCOMPARE(outcome->end, RunEnd::Abandoned);
    outcome.reset();
    const Task withoutSession = waitFor(session.get(), &outcome);
    runUntilQuiet();
    QCOMPARE(outcome->end, RunEnd::Abandoned);
}

// A slot of a signal that comes before runEnded() is told the run that is just over.
void TestAwaitable::outcomeIsKnownBeforeItIsTold()
{
    ScriptedModel model;
    model.addText({"Hello"});
    AgentSession session;
    session.setModel(&model);
    std::optional<RunOutcome> outcome;
    std::optional<Task> task;
    connect(&session, &AgentSession::runningChanged, this, [&](bool running) {
        if (!running)
            task.emplace(waitFor(&session, &outcome));
    });
    session.send("question");
    runUntilQuiet();
    QCOMPARE(outcome->text, "Hello");
}

void TestAwaitable::everyEndOfAGraphRunResumes()
{
    const auto resultOfEnd = [](const std::function<void(GraphRun *, GraphTask *)> &end) {
        const QPointer<GraphRun> run(new GraphRun(graphOfOneNode()));
        QPointer<GraphTask> task;
        run->setAsyncNode("wait", [&task](GraphTask *begun) { task = begun; });
        run->start({{"a", 1}});
        std::optional<GraphRunResult> result;
        const Task waiting = waitFor(run, &result);
        runUntilQuiet();
        if (result || !task)
            return GraphRunResult();
        end(run, task);
        runUntilQuiet();
        delete run;
        return result.value_or(GraphRunResult());
    };
    const GraphRunResult finished = resultOfEnd([](GraphRun *, GraphTask *task) {
        task->finish({{"b", 2}});
    });
    QCOMPARE(finished.state, (QJsonObject{{"a", 1}, {"b", 2}}));
    QCOMPARE(finished.error, "");
    const GraphRunResult failed = resultOfEnd([](GraphRun *, GraphTask *task) { task->fail("no"); });
    QCOMPARE(failed.error, "Node 'wait' failed: no");
    const GraphRunResult canceled = resultOfEnd([](GraphRun *run, GraphTask *) { run->cancel(); });
    QCOMPARE(canceled.error, "Graph run was canceled.");
    QCOMPARE(canceled.state, (QJsonObject{{"a", 1}}));
    const GraphRunResult deleted = resultOfEnd([](GraphRun *run, GraphTask *) { delete run; });
    QCOMPARE(deleted.error, "Graph run was deleted.");
}

void TestAwaitable::graphRunThatWasOverGivesItsResult()
{
    GraphRun run(graphOfOneNode());
    run.setAsyncNode("wait", [](GraphTask *task) { task->finish({{"b", 2}}); });
    run.start({});
    runUntilQuiet();
    std::optional<GraphRunResult> result;
    const Task waiting = waitFor(&run, &result);
    QVERIFY(!result);
    runUntilQuiet();
    QCOMPARE(result->state, (QJsonObject{{"b", 2}}));
    std::optional<GraphRunResult> none;
    const Task withoutRun = waitFor(static_cast<GraphRun *>(nullptr), &none);
    runUntilQuiet();
    QCOMPARE(none->error, "Graph run was deleted.");
}

void TestAwaitable::everyEndOfAToolReplyResumes()
{
    const auto resultOfEnd = [](const std::function<void(ToolReply *)> &end) {
        const QPointer<ToolReply> reply(new ToolReply);
        std::optional<ToolResult> result;
        const Task waiting = waitFor(reply, &result);
        reply->progress("half");
        runUntilQuiet();
        if (result)
            return ToolResult();
        end(reply);
        runUntilQuiet();
        delete reply;
        return result.value_or(ToolResult());
    };
    ToolResult success;
    success.success = true;
    success.content = "done";
    QCOMPARE(resultOfEnd([&](ToolReply *reply) { reply->finish(success); }), success);
    ToolResult failure;
    failure.error = "Tool call was canceled.";
    QCOMPARE(resultOfEnd([](ToolReply *reply) { reply->cancel(); }), failure);
    failure.error = "Tool reply was deleted.";
    QCOMPARE(resultOfEnd([](ToolReply *reply) { delete reply; }), failure);
}

void TestAwaitable::toolReplyThatHadEndedResumes()
{
    ToolResult success;
    success.success = true;
    ToolReply finished;
    finished.finish(success);
    ToolReply canceled;
    canceled.cancel();
    std::optional<ToolResult> first;
    std::optional<ToolResult> second;
    const Task firstTask = waitFor(&finished, &first);
    const Task secondTask = waitFor(&canceled, &second);
    QVERIFY(!first && !second);
    runUntilQuiet();
    QVERIFY(first->success);
    QCOMPARE(second->error, "Tool call was canceled.");
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

QTEST_MAIN(TestAwaitable)
#include "tst_awaitable.moc"
