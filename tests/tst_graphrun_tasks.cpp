#include "support/graphfixture.h"

#include <QtTest>

#include <stdexcept>

using namespace MireloQtLib::QtAgent;

using RunStep = std::function<void(GraphRun *)>;
using TaskStep = std::function<void(GraphTask *)>;
Q_DECLARE_METATYPE(RunStep)
Q_DECLARE_METATYPE(TaskStep)

// Nodes that take their time, and what becomes of their tasks.
class TestGraphRunTasks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runWaitsForTheTask();
    void taskKnowsItsPlace();
    void taskEndsOnce_data();
    void taskEndsOnce();
    void taskMayEndInsideItsFunction_data();
    void taskMayEndInsideItsFunction();
    void runGoesOnOnceTheFunctionHasReturned();
    void endOfTheTaskIsToldFromTheEventLoop();
    void endedTaskIsDeletedLater();
    void deletedTaskFailsItsNode_data();
    void deletedTaskFailsItsNode();
    void throwingFunctionFailsItsNode_data();
    void throwingFunctionFailsItsNode();
    void cancelCancelsTheTask();
    void deletedRunCancelsTheTask();
    void slotOfATaskCannotReviveADeletedRun_data();
    void slotOfATaskCannotReviveADeletedRun();
    void taskThatHasEndedIsNotCanceled();
    void functionMayDeleteTheRun();

    void asynchronousNodeNeedsNoNodeInTheGraph();
    void asynchronousNodeWinsOverAPlainOne();
    void lastFunctionWins();
    void settingsCountFromTheNextStart();
    void virtualNodesAreNoAsynchronousNodes();
    void fingerprintCountsAsynchronousNodes();
    void resumeCountsAttempts();
};

void TestGraphRunTasks::runWaitsForTheTask()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start({{"input", "x"}});
    QCOMPARE(f.log, QStringList{"started a"});
    QVERIFY(f.run->isRunning());

    task->finish({{"a", "late"}});
    runUntilQuiet();
    QCOMPARE(f.log, logOfTwoNodes());
    QCOMPARE(f.run->result(), twoNodes(returns({{"a", "late"}})).run({{"input", "x"}}));
}

void TestGraphRunTasks::taskKnowsItsPlace()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("b", keepsIn(&task));
    f.start({{"input", "x"}}, "job");
    QCOMPARE(task->node(), "b");
    QCOMPARE(task->branch(), "");
    QCOMPARE(task->threadId(), "job");
    QCOMPARE(task->state(), (QJsonObject{{"input", "x"}, {"a", 1}}));
    QCOMPARE(task->attempt(), 1);
    QVERIFY(task->isRunning());
    QCOMPARE(task->parent(), f.run.data());
}

void TestGraphRunTasks::taskEndsOnce_data()
{
    const TaskStep finish = [](GraphTask *task) { task->finish({{"a", "first"}}); };
    const TaskStep fail = [](GraphTask *task) { task->fail("first"); };
    const TaskStep finishLate = [](GraphTask *task) { task->finish({{"a", "second"}}); };
    const TaskStep failLate = [](GraphTask *task) { task->fail("second"); };
    QTest::addColumn<TaskStep>("first");
    QTest::addColumn<TaskStep>("second");
    QTest::addColumn<QString>("end");
    QTest::newRow("finished twice") << finish << finishLate << "finished";
    QTest::newRow("failed after finishing") << finish << failLate << "finished";
    QTest::newRow("finished after failing") << fail << finishLate << "error: Node 'a' failed: first";
    QTest::newRow("failed twice") << fail << failLate << "error: Node 'a' failed: first";
}

void TestGraphRunTasks::taskEndsOnce()
{
    QFETCH(TaskStep, first);
    QFETCH(TaskStep, second);
    QFETCH(QString, end);
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    first(task);
    QVERIFY(!task->isRunning());
    second(task);
    runUntilQuiet();
    QCOMPARE(f.log.last(), end);
    QCOMPARE(f.run->result().state.contains("a"), end == "finished");
    if (end == "finished")
        QCOMPARE(f.run->result().state["a"], QJsonValue("first"));
}

void TestGraphRunTasks::taskMayEndInsideItsFunction_data()
{
    QTest::addColumn<TaskStep>("step");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("by finishing") << TaskStep([](GraphTask *task) {
        task->finish({{"a", 1}});
    }) << logOfTwoNodes();
    QTest::newRow("by failing") << TaskStep([](GraphTask *task) { task->fail("no %1"); })
                                << QStringList{"started a", "error: Node 'a' failed: no %1"};
}

void TestGraphRunTasks::taskMayEndInsideItsFunction()
{
    QFETCH(TaskStep, step);
    GraphFixture f;
    f.run->setAsyncNode("a", step);
    f.start();
    QTEST(f.log, "log");
}

void TestGraphRunTasks::runGoesOnOnceTheFunctionHasReturned()
{
    GraphFixture f;
    f.run->setAsyncNode("a", [&f](GraphTask *task) {
        task->finish({});
        runUntilQuiet();
        f.log.append(task->isRunning() ? "still running" : "returns");
    });
    f.start();
    QCOMPARE(f.log, QStringList({"started a", "returns", "step a", "started b", "step b", "finished"}));
}

void TestGraphRunTasks::endOfTheTaskIsToldFromTheEventLoop()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    task->fail("broken");
    QCOMPARE(f.log, QStringList{"started a"});
    QVERIFY(f.run->isRunning());
}

void TestGraphRunTasks::endedTaskIsDeletedLater()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    task->finish({});
    f.onEntry("step a", [&] { QVERIFY(task); });
    runUntilQuiet();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!task);
}

void TestGraphRunTasks::deletedTaskFailsItsNode_data()
{
    QTest::addColumn<bool>("inFunction");
    QTest::newRow("later") << false;
    QTest::newRow("inside its function") << true;
}

void TestGraphRunTasks::deletedTaskFailsItsNode()
{
    QFETCH(bool, inFunction);
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", [&](GraphTask *started) {
        task = started;
        if (inFunction)
            delete started;
    });
    f.start();
    delete task;
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"started a", "error: Node 'a' failed: abandoned"}));
}

void TestGraphRunTasks::throwingFunctionFailsItsNode_data()
{
    QTest::addColumn<TaskStep>("function");
    QTest::addColumn<QString>("thrown");
    QTest::newRow("at once") << TaskStep([](GraphTask *) { throw std::runtime_error("over"); }) << "over";
    QTest::newRow("something else") << TaskStep([](GraphTask *) { throw 7; }) << "unknown exception";
    QTest::newRow("after it finished") << TaskStep([](GraphTask *task) {
        task->finish({});
        throw std::runtime_error("over");
    }) << "over";
    QTest::newRow("because it is empty") << TaskStep() << QString(std::bad_function_call().what());
}

void TestGraphRunTasks::throwingFunctionFailsItsNode()
{
    QFETCH(TaskStep, function);
    QFETCH(QString, thrown);
    GraphFixture f;
    f.run->setAsyncNode("a", function);
    f.start();
    QCOMPARE(f.log, QStringList({"started a", "error: Node 'a' threw: " + thrown}));
}

void TestGraphRunTasks::cancelCancelsTheTask()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    logCancel(task, &f.log);
    f.run->cancel();
    task->finish({});
    task->fail("late");
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"started a", "task canceled a", "canceled"}));
    QVERIFY(f.run->result().steps.isEmpty());
}

void TestGraphRunTasks::deletedRunCancelsTheTask()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    logCancel(task, &f.log);
    delete f.run;
    QCOMPARE(f.log, QStringList({"started a", "task canceled a"}));
    QVERIFY(!task);
}

void TestGraphRunTasks::slotOfATaskCannotReviveADeletedRun_data()
{
    QTest::addColumn<RunStep>("step");
    QTest::newRow("by cancel") << RunStep([](GraphRun *run) { run->cancel(); });
    QTest::newRow("by start") << RunStep([](GraphRun *run) { run->start({}); });
    QTest::newRow("by resume") << RunStep([](GraphRun *run) { run->resume({}); });
}

void TestGraphRunTasks::slotOfATaskCannotReviveADeletedRun()
{
    QFETCH(RunStep, step);
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    connect(task, &GraphTask::canceled, this, [step, run = f.run.data()] { step(run); });
    delete f.run;
    runUntilQuiet();
    QCOMPARE(f.log, QStringList{"started a"});
}

void TestGraphRunTasks::taskThatHasEndedIsNotCanceled()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.start();
    logCancel(task, &f.log);
    task->finish({});
    f.run->cancel();
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"started a", "canceled"}));
}

void TestGraphRunTasks::functionMayDeleteTheRun()
{
    GraphFixture f;
    QPointer<GraphTask> task;
    const QString note(40, 'x');
    QString after;
    f.run->setAsyncNode("a", [&, note](GraphTask *started) {
        task = started;
        delete f.run;
        after = note; // of the function, which was part of the run
    });
    f.start();
    QVERIFY(!task);
    QCOMPARE(after, note);
    QCOMPARE(f.log, QStringList{"started a"});
}

void TestGraphRunTasks::asynchronousNodeNeedsNoNodeInTheGraph()
{
    StateGraph graph = twoNodes();
    graph.addEdge("b", "model");
    graph.addEdge("model", EndNode);
    GraphFixture f(graph);
    QCOMPARE(f.run->graph().problems(),
             QStringList({"Missing graph node: model", "Edge from unknown node 'model'."}));
    f.run->setAsyncNode("model", finishesWith({{"answer", "Hi"}}));
    QCOMPARE(f.run->graph().problems(), QStringList());
    QCOMPARE(f.run->graph().nodeNames(), QStringList({"a", "b", "model"}));
    f.start();
    QCOMPARE(f.run->result().state, (QJsonObject{{"a", 1}, {"b", 2}, {"answer", "Hi"}}));
}

void TestGraphRunTasks::asynchronousNodeWinsOverAPlainOne()
{
    GraphFixture f;
    f.run->setAsyncNode("a", finishesWith({{"a", "asynchronous"}}));
    f.start();
    QCOMPARE(f.run->result().state["a"], QJsonValue("asynchronous"));
    QCOMPARE(f.run->graph().run({}).state["a"], QJsonValue(1));
}

void TestGraphRunTasks::lastFunctionWins()
{
    GraphFixture f;
    f.run->setParallelNode("a", {{"x", finishesWith({{"a", "parallel"}})}});
    f.run->setAsyncNode("a", finishesWith({{"a", "first"}}));
    f.run->setAsyncNode("a", finishesWith({{"a", "second"}}));
    f.start();
    QCOMPARE(f.run->result().state["a"], QJsonValue("second"));
    f.run->setParallelNode("a", {{"x", finishesWith({{"a", "parallel"}})}});
    f.start();
    QCOMPARE(f.run->result().state["a"], QJsonValue("parallel"));
}

void TestGraphRunTasks::settingsCountFromTheNextStart()
{
    GraphFixture f;
    f.onEntry("started a", [&f] { f.run->setAsyncNode("b", finishesWith({{"b", "asynchronous"}})); });
    f.start();
    QCOMPARE(f.run->result().state["b"], QJsonValue(2));
    f.start();
    QCOMPARE(f.run->result().state["b"], QJsonValue("asynchronous"));
}

void TestGraphRunTasks::virtualNodesAreNoAsynchronousNodes()
{
    GraphFixture f;
    f.run->setAsyncNode(StartNode, finishesWith({{"start", true}}));
    f.run->setParallelNode(EndNode, {{"x", finishesWith({{"end", true}})}});
    QCOMPARE(f.run->graph().problems(), QStringList());
    f.start();
    QCOMPARE(f.run->result(), twoNodes().run({}));
}

void TestGraphRunTasks::fingerprintCountsAsynchronousNodes()
{
    GraphFixture f;
    f.run->setAsyncNode("a", finishesWith({}));
    QCOMPARE(f.run->graph().fingerprint(), twoNodes().fingerprint());
    f.run->setAsyncNode("c", finishesWith({}));
    QVERIFY(f.run->graph().fingerprint() != twoNodes().fingerprint());
}

void TestGraphRunTasks::resumeCountsAttempts()
{
    GraphFixture f;
    QVector<int> attempts;
    f.run->setAsyncNode("b", [&attempts](GraphTask *task) {
        attempts.append(task->attempt());
        if (attempts.size() < 3)
            task->fail("not yet");
        else
            task->finish({});
    });
    f.start();
    f.resume();
    f.resume();
    QCOMPARE(attempts, QVector<int>({1, 2, 3}));
    QCOMPARE(f.log.last(), "finished");
    f.start();
    QCOMPARE(attempts.last(), 1);
}

QTEST_GUILESS_MAIN(TestGraphRunTasks)
#include "tst_graphrun_tasks.moc"
