#include "support/storedfixture.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StateGraph)

namespace {

StateGraph interruptedBeforeB()
{
    StateGraph graph = twoNodes();
    graph.addInterruptBefore("b");
    return graph;
}

} // namespace

// What a run writes into its storage and when, and where it goes on from there.
class TestGraphRunCheckpoints : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stateIsSavedBeforeTheFirstNodeAndAfterEach();
    void interruptIsSavedWithoutAnAttempt();
    void whatIsSavedAtTheEndOfARun_data();
    void whatIsSavedAtTheEndOfARun();
    void checkpointHoldsTheFingerprint();
    void emptyThreadIdNeverTouchesTheStorage();
    void runWithoutAStorageSavesNothing();
    void startLaysItsInputOverTheSavedState();
    void startBeginsAtTheStartOfAThreadThatWasInterrupted();
    void startDoesNotMindAChangedGraph();

    void resumeRunsTheNodeThatTheRunStoppedBefore();
    void resumeStopsBeforeTheNodeWhenALoopLeadsThereAgain();
    void resumeAfterAFailureRunsTheNodeAgain();
    void resumeAfterAKillRunsTheNodeAgain();
    void resumeAfterACancelRunsTheNodeAgain();
    void resumeCountsAttemptsThroughEverything();
    void resumeOfAThreadThatIsOverHasNoSteps();
    void resumeOfAnUnknownThreadFails();
    void resumeOfAnEmptyIdReadsTheStorage();
    void resumeOfAnEmptyIdOutlivesTheRemovedThread();
    void resumeCountsStepsAnew();
    void resumeAfterTheLimitGoesOn();
    void resumeOfAChangedGraphIsRefused_data();
    void resumeOfAChangedGraphIsRefused();
    void overThreadMayBelongToAnyGraph();
    void resumeOfANodeThatIsGoneFails();

    void cancelLeavesTheCheckpointAndGivesTheThreadBack();
    void startWhileRunningClaimsTheThreadAnew();
    void deletedRunGivesTheThreadBack();
    void threadsAreSeparate();
};

void TestGraphRunCheckpoints::stateIsSavedBeforeTheFirstNodeAndAfterEach()
{
    StoredFixture f;
    f.run->start({{"input", "x"}}, "t");
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({
                        "claim t",
                        "load t",
                        R"(save t: a 1 {"input":"x"})",
                        "started a",
                        R"(save t: b 1 {"a":1,"input":"x"})",
                        "step a",
                        "started b",
                        R"(save t: __end__ 1 {"a":1,"b":2,"input":"x"})",
                        "step b",
                        "release t",
                        "finished",
                    }));
    QVERIFY(f.storage.claims.isEmpty());
}

void TestGraphRunCheckpoints::interruptIsSavedWithoutAnAttempt()
{
    StoredFixture f(interruptedBeforeB());
    f.start({}, "t");
    QCOMPARE(f.log.mid(4),
             QStringList({R"(save t: b interrupted 0 {"a":1})", "step a", "release t", "interrupted b"}));
}

void TestGraphRunCheckpoints::whatIsSavedAtTheEndOfARun_data()
{
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QString>("stored");
    StateGraph graph;
    graph.addEdge(StartNode, EndNode);
    QTest::newRow("the end at once") << graph << R"(__end__ 1 {"input":"x"})";
    graph = twoNodes();
    graph.addInterruptBefore("a");
    QTest::newRow("an interrupt at the first node") << graph << R"(a interrupted 0 {"input":"x"})";
    graph = twoNodes();
    graph.maxSteps = 0;
    QTest::newRow("a limit of 0") << graph << R"(a 1 {"input":"x"})";
    graph.maxSteps = 1;
    QTest::newRow("the limit") << graph << R"(b 1 {"a":1,"input":"x"})";
    graph.addInterruptBefore("b");
    QTest::newRow("the limit before an interrupt") << graph << R"(b 1 {"a":1,"input":"x"})";
    graph = twoNodes();
    graph.addEdge("a", "ghost");
    QTest::newRow("a missing node") << graph << R"(ghost 1 {"a":1,"input":"x"})";
    graph = twoNodes();
    graph.addConditionalEdges("a", chooses("retry"), {});
    QTest::newRow("no route behind a node") << graph << R"(a 1 {"input":"x"})";
    graph = twoNodes();
    graph.addConditionalEdges("b", [](const QJsonObject &) -> QString { throw 7; }, {});
    QTest::newRow("a router that throws") << graph << R"(b 1 {"a":1,"input":"x"})";
    QTest::newRow("a node that throws") << twoNodes(returns({}), {}) << R"(b 1 {"input":"x"})";
    QTest::newRow("no edge from the start saves nothing") << StateGraph() << "";
}

void TestGraphRunCheckpoints::whatIsSavedAtTheEndOfARun()
{
    QFETCH(StateGraph, graph);
    QFETCH(QString, stored);
    StoredFixture f(graph);
    f.start({{"input", "x"}}, "t");
    QCOMPARE(f.storage.checkpoints.isEmpty(), stored.isEmpty());
    if (!stored.isEmpty())
        QCOMPARE(f.stored(), stored);
    QCOMPARE(f.log.mid(f.log.size() - 2), QStringList({"release t", GraphRunLog::textOf(f.run->result())}));
}

void TestGraphRunCheckpoints::checkpointHoldsTheFingerprint()
{
    StoredFixture f;
    f.run->setAsyncNode("extra", finishesWith({}));
    f.start({}, "t");
    QCOMPARE(f.storage.checkpoints["t"].threadId, "t");
    QCOMPARE(f.storage.checkpoints["t"].fingerprint, f.run->graph().fingerprint());
}

void TestGraphRunCheckpoints::emptyThreadIdNeverTouchesTheStorage()
{
    StoredFixture f;
    f.start();
    f.resume();
    QCOMPARE(f.storage.log, QStringList());
}

void TestGraphRunCheckpoints::runWithoutAStorageSavesNothing()
{
    StoredFixture f;
    f.run->setCheckpoints(nullptr);
    f.start({}, "t");
    QCOMPARE(f.log, logOfTwoNodes());
    QCOMPARE(f.storage.log, QStringList());
}

void TestGraphRunCheckpoints::startLaysItsInputOverTheSavedState()
{
    StoredFixture f;
    f.start({{"question", "old"}, {"history", "h"}}, "t");
    f.start({{"question", "new"}}, "t");
    const QJsonObject restored{{"question", "new"}, {"history", "h"}, {"a", 1}, {"b", 2}};
    QCOMPARE(f.run->result().steps.at(0).before, restored);
}

void TestGraphRunCheckpoints::startBeginsAtTheStartOfAThreadThatWasInterrupted()
{
    StoredFixture f(interruptedBeforeB());
    f.start({}, "t");
    f.log.clear();
    f.start({}, "t");
    QCOMPARE(f.log.filter("started"), QStringList{"started a"});
    QCOMPARE(f.log.last(), "interrupted b");
}

void TestGraphRunCheckpoints::startDoesNotMindAChangedGraph()
{
    StoredFixture f;
    f.start({{"input", "x"}}, "t");
    f.run->setAsyncNode("extra", finishesWith({}));
    f.start({}, "t");
    QCOMPARE(f.log.last(), "finished");
    QCOMPARE(f.run->result().state["input"], QJsonValue("x"));
}

void TestGraphRunCheckpoints::resumeRunsTheNodeThatTheRunStoppedBefore()
{
    StoredFixture f(interruptedBeforeB());
    f.start({{"input", "x"}}, "t");
    f.log.clear();
    f.run->resume("t", {{"approved", true}});
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({
                        "claim t",
                        "load t",
                        R"(save t: b 1 {"a":1,"approved":true,"input":"x"})",
                        "started b",
                        R"(save t: __end__ 1 {"a":1,"approved":true,"b":2,"input":"x"})",
                        "step b",
                        "release t",
                        "finished",
                    }));
    QCOMPARE(f.run->result().steps.size(), 1);
    QVERIFY(!f.run->result().interrupted);
}

void TestGraphRunCheckpoints::resumeStopsBeforeTheNodeWhenALoopLeadsThereAgain()
{
    StateGraph graph = interruptedBeforeB();
    graph.addConditionalEdges("b", chooses("again"), {{"again", "a"}});
    StoredFixture f(graph);
    f.start({}, "t");
    f.log.clear();
    f.resume("t");
    QCOMPARE(f.log.filter("started"), QStringList({"started b", "started a"}));
    QCOMPARE(f.log.last(), "interrupted b");
}

void TestGraphRunCheckpoints::resumeAfterAFailureRunsTheNodeAgain()
{
    StoredFixture f;
    f.run->setAsyncNode("b", [](GraphTask *task) { task->fail("no network"); });
    f.start({{"input", "x"}}, "t");
    QCOMPARE(f.log.last(), "error: Node 'b' failed: no network");
    QCOMPARE(f.stored(), R"(b 1 {"a":1,"input":"x"})");

    f.run->setAsyncNode("b", finishesWith({{"b", 2}}));
    f.log.clear();
    f.resume("t");
    QCOMPARE(f.log.mid(2, 2), QStringList({R"(save t: b 2 {"a":1,"input":"x"})", "started b"}));
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunCheckpoints::resumeAfterAKillRunsTheNodeAgain()
{
    StoredFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("b", keepsIn(&task));
    f.start({{"input", "x"}}, "t");
    // The other program finds what this one had stored when it was killed.
    StoredFixture other;
    other.storage.checkpoints = f.storage.checkpoints;
    other.storage.claims = f.storage.claims;
    other.run->setOwner("other");

    other.resume("t");
    QCOMPARE(other.log, QStringList({"claim t", "error: Thread 't' is running elsewhere."}));
    other.storage.nowMs += 30000;
    other.log.clear();
    other.resume("t");
    QCOMPARE(other.log.mid(2, 2), QStringList({R"(save t: b 2 {"a":1,"input":"x"})", "started b"}));
    QCOMPARE(other.log.last(), "finished");
}

void TestGraphRunCheckpoints::resumeAfterACancelRunsTheNodeAgain()
{
    StoredFixture f;
    f.onEntry("started b", [&f] { f.run->cancel(); });
    f.start({}, "t");
    QCOMPARE(f.log.mid(f.log.size() - 3), QStringList({"started b", "release t", "canceled"}));
    QCOMPARE(f.stored(), R"(b 1 {"a":1})");
    f.resume("t");
    QCOMPARE(f.log.last(), "finished");
    QCOMPARE(f.run->result().steps.size(), 1);
}

void TestGraphRunCheckpoints::resumeCountsAttemptsThroughEverything()
{
    StoredFixture f(interruptedBeforeB());
    QVector<int> attempts;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("b", [&](GraphTask *started) {
        attempts.append(started->attempt());
        task = started;
    });
    f.start({}, "t");
    QCOMPARE(attempts, QVector<int>());
    f.resume("t");
    task->fail("broken");
    runUntilQuiet();
    f.resume("t");
    f.run->cancel();
    f.resume("t");
    task->finish({});
    runUntilQuiet();
    QCOMPARE(attempts, QVector<int>({1, 2, 3}));
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunCheckpoints::resumeOfAThreadThatIsOverHasNoSteps()
{
    StoredFixture f;
    f.start({{"input", "x"}}, "t");
    const Checkpoint over = f.storage.checkpoints["t"];
    f.log.clear();
    f.resume("t", {{"late", true}});
    QCOMPARE(f.log, QStringList({"claim t", "load t", "release t", "finished"}));
    QCOMPARE(f.run->result(), (GraphRunResult{over.state, {}, false, {}, {}}));
    QCOMPARE(f.storage.checkpoints["t"], over);
}

void TestGraphRunCheckpoints::resumeOfAnUnknownThreadFails()
{
    StoredFixture f;
    f.resume("%1", {{"late", true}});
    QCOMPARE(f.log,
             QStringList({"claim %1", "load %1", "release %1", "error: No checkpoint of thread '%1'."}));
    QVERIFY(f.storage.checkpoints.isEmpty());
}

void TestGraphRunCheckpoints::resumeOfAnEmptyIdReadsTheStorage()
{
    StoredFixture f(interruptedBeforeB());
    f.start({}, "t");
    f.storage.checkpoints["t"].state = {{"changed", "by another program"}};
    f.log.clear();
    f.resume();
    QCOMPARE(f.log.first(), "claim t");
    QCOMPARE(f.run->result().steps.at(0).before, (QJsonObject{{"changed", "by another program"}}));
}

void TestGraphRunCheckpoints::resumeOfAnEmptyIdOutlivesTheRemovedThread()
{
    StoredFixture f(interruptedBeforeB());
    f.start({{"input", "x"}}, "t");
    QVERIFY(f.storage.remove("t", nullptr));
    f.resume();
    QCOMPARE(f.log.last(), "finished");
    QCOMPARE(f.stored(), R"(__end__ 1 {"a":1,"b":2,"input":"x"})");
}

void TestGraphRunCheckpoints::resumeCountsStepsAnew()
{
    StateGraph graph = interruptedBeforeB();
    graph.maxSteps = 1;
    StoredFixture f(graph);
    f.start({}, "t");
    // The limit comes first.
    QCOMPARE(f.log.last(), "error: Graph exceeded max steps: 1");
    f.resume("t");
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunCheckpoints::resumeAfterTheLimitGoesOn()
{
    StateGraph graph = twoNodes();
    graph.addEdge("b", "a");
    graph.maxSteps = 3;
    StoredFixture f(graph);
    f.start({}, "t");
    f.log.clear();
    f.resume("t");
    QCOMPARE(f.log.filter("started"), QStringList({"started b", "started a", "started b"}));
    QCOMPARE(f.log.last(), "error: Graph exceeded max steps: 3");
    StateGraph none = graph;
    none.maxSteps = 0;
    StoredFixture limited(none);
    limited.storage.checkpoints = f.storage.checkpoints;
    limited.resume("t");
    QCOMPARE(limited.log.last(), "error: Graph exceeded max steps: 0");
}

void TestGraphRunCheckpoints::resumeOfAChangedGraphIsRefused_data()
{
    QTest::addColumn<StateGraph>("graph");
    StateGraph graph = twoNodes();
    graph.addNode("c", returns({}));
    QTest::newRow("another node") << graph;
    graph = twoNodes();
    graph.addEdge("b", "a");
    QTest::newRow("another edge") << graph;
}

void TestGraphRunCheckpoints::resumeOfAChangedGraphIsRefused()
{
    QFETCH(StateGraph, graph);
    StoredFixture f(interruptedBeforeB());
    f.start({}, "t");
    graph.maxSteps = 1;
    StoredFixture changed(graph);
    changed.storage.checkpoints = f.storage.checkpoints;

    changed.resume("t", {{"approved", true}});
    QCOMPARE(changed.log,
             QStringList({"claim t", "load t", "release t", "error: The graph of thread 't' has changed."}));
    QCOMPARE(changed.storage.checkpoints, f.storage.checkpoints);
    QCOMPARE(changed.run->result().state, (QJsonObject{{"a", 1}}));

    changed.run->setAcceptsChangedGraph(true);
    changed.resume("t", {{"approved", true}});
    QCOMPARE(changed.run->result().steps.size(), 1);
    QCOMPARE(changed.storage.checkpoints["t"].fingerprint, graph.fingerprint());
}

void TestGraphRunCheckpoints::overThreadMayBelongToAnyGraph()
{
    StoredFixture f;
    f.start({}, "t");
    f.run->setAsyncNode("extra", finishesWith({}));
    f.resume("t");
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunCheckpoints::resumeOfANodeThatIsGoneFails()
{
    StoredFixture f(interruptedBeforeB());
    f.start({}, "t");
    StateGraph graph;
    graph.addNode("a", returns({}));
    graph.addEdge(StartNode, "a");
    StoredFixture changed(graph);
    changed.storage.checkpoints = f.storage.checkpoints;
    changed.run->setAcceptsChangedGraph(true);
    changed.resume("t");
    QCOMPARE(changed.log.last(), "error: Missing graph node: b");
}

void TestGraphRunCheckpoints::cancelLeavesTheCheckpointAndGivesTheThreadBack()
{
    StoredFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start({}, "t");
    logCancel(task, &f.log);
    f.log.clear();
    f.run->cancel();
    QCOMPARE(f.log, QStringList({"task canceled a", "release t", "canceled"}));
    QCOMPARE(f.stored(), "a 1 {}");
}

void TestGraphRunCheckpoints::startWhileRunningClaimsTheThreadAnew()
{
    StoredFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start({}, "t");
    f.log.clear();
    f.start({}, "t");
    QCOMPARE(f.log,
             QStringList({"release t", "canceled", "claim t", "load t", "save t: a 1 {}", "started a"}));
}

void TestGraphRunCheckpoints::deletedRunGivesTheThreadBack()
{
    StoredFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start({}, "t");
    f.log.clear();
    delete f.run;
    QCOMPARE(f.log, QStringList{"release t"});
    QVERIFY(f.storage.claims.isEmpty());
}

void TestGraphRunCheckpoints::threadsAreSeparate()
{
    StoredFixture f;
    f.start({{"run", 1}}, "one");
    f.start({{"run", 2}}, "two");
    QCOMPARE(f.storage.checkpoints["one"].state["run"], QJsonValue(1));
    QCOMPARE(f.storage.checkpoints["two"].state["run"], QJsonValue(2));
    QCOMPARE(f.storage.checkpoints.keys(), QStringList({"one", "two"}));
}

QTEST_GUILESS_MAIN(TestGraphRunCheckpoints)
#include "tst_graphrun_checkpoints.moc"
