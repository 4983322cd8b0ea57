#include <qtagent/awaitable.h>

#include "support/coroutines.h"
#include "support/eventloop.h"

#include <qtagent/testing/scriptedmodel.h>

#include <QtTest>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

Task waitFor(AgentSession *session, std::optional<RunOutcome> *outcome)
{
    *outcome = co_await runOf(session);
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

// A run or call that is in flight, until end().
struct Work
{
    virtual ~Work() = default;
    virtual Task wait(int *resumed) = 0;
    virtual void end() = 0;
};

struct SessionWork : Work
{
    explicit SessionWork(const std::function<void(SessionWork *)> &action)
        : act(action)
    {
        model.addSilence();
        model.addSilence();
        session->setModel(&model);
        session->send("question");
    }

    Task wait(int *resumed) override
    {
        co_await runOf(session.get());
        ++*resumed;
    }

    void end() override { act(this); }

    ScriptedModel model;
    std::unique_ptr<AgentSession> session = std::make_unique<AgentSession>();
    std::function<void(SessionWork *)> act;
};

struct GraphWork : Work
{
    explicit GraphWork(const std::function<void(GraphWork *)> &action)
        : act(action)
    {
        run->setAsyncNode("wait", [this](GraphTask *begun) { task = begun; });
        run->start({});
        runUntilQuiet();
    }

    Task wait(int *resumed) override
    {
        co_await resultOf(run.get());
        ++*resumed;
    }

    void end() override { act(this); }

    std::unique_ptr<GraphRun> run = std::make_unique<GraphRun>(graphOfOneNode());
    QPointer<GraphTask> task;
    std::function<void(GraphWork *)> act;
};

struct ToolWork : Work
{
    explicit ToolWork(const std::function<void(ToolWork *)> &action)
        : act(action)
    {}

    Task wait(int *resumed) override
    {
        co_await *reply;
        ++*resumed;
    }

    void end() override { act(this); }

    std::unique_ptr<ToolReply> reply = std::make_unique<ToolReply>();
    std::function<void(ToolWork *)> act;
};

using MakeWork = std::function<std::unique_ptr<Work>()>;

template<typename Kind, typename Action>
void addWork(const char *name, const Action &action)
{
    QTest::newRow(name) << MakeWork([action] { return std::make_unique<Kind>(action); });
}

void addEveryEnd()
{
    QTest::addColumn<MakeWork>("makeWork");
    const auto replyOf = [](SessionWork *work) { return work->session->findChild<ChatReply *>(); };
    addWork<SessionWork>("session finished", [=](SessionWork *work) { replyOf(work)->finish("ab"); });
    addWork<SessionWork>("session failed", [=](SessionWork *work) { replyOf(work)->fail("no"); });
    addWork<SessionWork>("session canceled", [](SessionWork *work) { work->session->cancel(); });
    addWork<SessionWork>("session replaced", [](SessionWork *work) { work->session->send("another"); });
    addWork<SessionWork>("session abandoned", [=](SessionWork *work) { delete replyOf(work); });
    addWork<SessionWork>("session deleted", [](SessionWork *work) { work->session.reset(); });
    addWork<GraphWork>("graph finished", [](GraphWork *work) { work->task->finish({}); });
    addWork<GraphWork>("graph failed", [](GraphWork *work) { work->task->fail("no"); });
    addWork<GraphWork>("graph canceled", [](GraphWork *work) { work->run->cancel(); });
    addWork<GraphWork>("graph started again", [](GraphWork *work) { work->run->start({}); });
    addWork<GraphWork>("graph deleted", [](GraphWork *work) { work->run.reset(); });
    addWork<ToolWork>("tool finished", [](ToolWork *work) { work->reply->finish({}); });
    addWork<ToolWork>("tool canceled", [](ToolWork *work) { work->reply->cancel(); });
    addWork<ToolWork>("tool deleted", [](ToolWork *work) { work->reply.reset(); });
}

} // namespace

Q_DECLARE_METATYPE(MakeWork)

class TestAwaitableRuns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyEndResumesFromTheEventLoop_data() { addEveryEnd(); }
    void everyEndResumesFromTheEventLoop();
    void coroutineThatIsGoneIsNotResumed_data() { addEveryEnd(); }
    void coroutineThatIsGoneIsNotResumed();
    void coroutineMayGoBetweenTheEndAndItsTurn_data() { addEveryEnd(); }
    void coroutineMayGoBetweenTheEndAndItsTurn();
    void tenThousandAwaits_data() { addEveryEnd(); }
    void tenThousandAwaits();
    void everyEndOfARunResumes();
    void runThatWasOverGivesItsOutcome();
    void deletedSessionIsAbandoned();
    void outcomeIsKnownBeforeItIsTold();
    void everyEndOfAGraphRunResumes();
    void graphRunThatIsFollowedByAnotherGivesItsOwnResult();
    void graphRunThatWasOverGivesItsResult();
    void everyEndOfAToolReplyResumes();
    void toolReplyThatHadEndedResumes();
};

void TestAwaitableRuns::everyEndResumesFromTheEventLoop()
{
    QFETCH(MakeWork, makeWork);
    const std::unique_ptr<Work> work = makeWork();
    int resumed = 0;
    const Task task = work->wait(&resumed);
    runUntilQuiet();
    QCOMPARE(resumed, 0);
    work->end();
    QCOMPARE(resumed, 0);
    runUntilQuiet();
    QCOMPARE(resumed, 1);
    QVERIFY(task.isDone());
}

void TestAwaitableRuns::coroutineThatIsGoneIsNotResumed()
{
    QFETCH(MakeWork, makeWork);
    const std::unique_ptr<Work> work = makeWork();
    int resumed = 0;
    {
        const Task task = work->wait(&resumed);
    }
    work->end();
    runUntilQuiet();
    QCOMPARE(resumed, 0);
}

void TestAwaitableRuns::coroutineMayGoBetweenTheEndAndItsTurn()
{
    QFETCH(MakeWork, makeWork);
    const std::unique_ptr<Work> work = makeWork();
    int resumed = 0;
    {
        const Task task = work->wait(&resumed);
        work->end();
    }
    runUntilQuiet();
    QCOMPARE(resumed, 0);
}

void TestAwaitableRuns::tenThousandAwaits()
{
    QFETCH(MakeWork, makeWork);
    constexpr int awaits = 10000;
    int resumed = 0;
    for (int i = 0; i < awaits; ++i) {
        const std::unique_ptr<Work> work = makeWork();
        const Task task = work->wait(&resumed);
        work->end();
        QCOMPARE(resumed, i);
        runUntilQuiet();
    }
    QCOMPARE(resumed, awaits);
}

void TestAwaitableRuns::everyEndOfARunResumes()
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
        const bool isEarly = outcome.has_value();
        runUntilQuiet();
        return isEarly ? RunOutcome() : outcome.value();
    };
    QCOMPARE(outcomeOf([] {}), (RunOutcome{RunEnd::Finished, "Hello", "", 1}));
    QCOMPARE(outcomeOf([] {}), (RunOutcome{RunEnd::Failed, "", "refused", 1}));
    QCOMPARE(outcomeOf([&] { session.cancel(); }).end, RunEnd::Canceled);
    QCOMPARE(outcomeOf([&] { session.send("another"); }).end, RunEnd::Replaced);
}

void TestAwaitableRuns::runThatWasOverGivesItsOutcome()
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

void TestAwaitableRuns::deletedSessionIsAbandoned()
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
void TestAwaitableRuns::outcomeIsKnownBeforeItIsTold()
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

void TestAwaitableRuns::everyEndOfAGraphRunResumes()
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
        const bool isEarly = result.has_value();
        runUntilQuiet();
        delete run;
        return isEarly ? GraphRunResult() : result.value_or(GraphRunResult());
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

void TestAwaitableRuns::graphRunThatIsFollowedByAnotherGivesItsOwnResult()
{
    GraphRun run(graphOfOneNode());
    run.setAsyncNode("wait", [](GraphTask *) {});
    connect(&run, &GraphRun::canceled, this, [&run] { run.start({{"run", 2}}); });
    run.start({{"run", 1}});
    std::optional<GraphRunResult> result;
    const Task waiting = waitFor(&run, &result);
    run.cancel();
    QVERIFY(run.isRunning());
    runUntilQuiet();
    QCOMPARE(result->state, (QJsonObject{{"run", 1}}));
    QCOMPARE(result->error, "Graph run was canceled.");
    run.disconnect(this);
}

void TestAwaitableRuns::graphRunThatWasOverGivesItsResult()
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

void TestAwaitableRuns::everyEndOfAToolReplyResumes()
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
        const bool isEarly = result.has_value();
        runUntilQuiet();
        delete reply;
        return isEarly ? ToolResult() : result.value_or(ToolResult());
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

void TestAwaitableRuns::toolReplyThatHadEndedResumes()
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

QTEST_GUILESS_MAIN(TestAwaitableRuns)
#include "tst_awaitable_runs.moc"
