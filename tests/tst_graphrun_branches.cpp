#include "support/graphfixture.h"
#include "support/memorycheckpoints.h"

#include <QtTest>

#include <stdexcept>

using namespace MireloQtLib::QtAgent;

using TaskStep = std::function<void(GraphTask *)>;
Q_DECLARE_METATYPE(TaskStep)

namespace {

/// __start__ -> p -> __end__
StateGraph oneNode()
{
    StateGraph graph;
    graph.addEdge(StartNode, "p");
    graph.addEdge("p", EndNode);
    return graph;
}

/// A run of one parallel node, whose branches leave their tasks to the test.
struct BranchFixture : public GraphFixture
{
    explicit BranchFixture(const QStringList &names)
        : GraphFixture(oneNode())
    {
        for (const QString &name : names)
            functions.insert(name, [this](GraphTask *task) { tasks.insert(task->branch(), task); });
        run->setParallelNode("p", functions);
    }

    /// Gives a branch another function.
    void setBranch(const QString &name, const AsyncNodeFunction &function)
    {
        functions.insert(name, function);
        run->setParallelNode("p", functions);
    }

    QMap<QString, AsyncNodeFunction> functions;
    QMap<QString, QPointer<GraphTask>> tasks;
};

} // namespace

// Nodes whose branches work side by side.
class TestGraphRunBranches : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void branchesStartSideBySideWithTheSameState();
    void updatesOfBranchesAreMergedInTheOrderOfTheirNames();
    void updatesOfAnEarlierNodeAreGone();
    void branchThatFailsCancelsTheOthers();
    void firstOfTwoFailuresCounts();
    void branchThatFailsInsideItsFunctionLetsTheOthersBegin();
    void branchThatThrowsIsNamed_data();
    void branchThatThrowsIsNamed();
    void failureDoesNotWaitForAFunctionThatSpinsALoop();
    void deletedBranchIsNamed();
    void branchesShareTheAttemptAndAllRunAgain();
    void nodeWithoutBranchesHasAnEmptyUpdate();
    void branchMayHaveAnEmptyName();
    void cancelCancelsEveryBranch();
    void slotOfACanceledTaskMayDoAnything_data();
    void slotOfACanceledTaskMayDoAnything();
};

void TestGraphRunBranches::branchesStartSideBySideWithTheSameState()
{
    BranchFixture f({"x", "y"});
    f.start({{"input", 1}}, "job");
    QCOMPARE(f.log, QStringList{"started p"});
    QCOMPARE(f.tasks.keys(), QStringList({"x", "y"}));
    for (const QPointer<GraphTask> &task : qAsConst(f.tasks)) {
        QCOMPARE(task->node(), "p");
        QCOMPARE(task->threadId(), "job");
        QCOMPARE(task->state(), (QJsonObject{{"input", 1}}));
        QCOMPARE(task->attempt(), 1);
    }
    f.tasks["x"]->finish({});
    runUntilQuiet();
    QCOMPARE(f.log, QStringList{"started p"});
    f.tasks["y"]->finish({});
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"started p", "step p", "finished"}));
}

void TestGraphRunBranches::updatesOfBranchesAreMergedInTheOrderOfTheirNames()
{
    BranchFixture f({"x", "Y", "z"});
    f.start({{"input", 1}});
    f.tasks["z"]->finish({{"last", "z"}, {"z", true}});
    f.tasks["x"]->finish({{"last", "x"}, {"x", true}});
    f.tasks["Y"]->finish({{"last", "Y"}, {"Y", QJsonValue::Null}});
    runUntilQuiet();
    const QJsonObject update{{"last", "z"}, {"x", true}, {"Y", QJsonValue::Null}, {"z", true}};
    QCOMPARE(f.run->result().steps.size(), 1);
    QCOMPARE(f.run->result().steps.at(0).update, update);
    QCOMPARE(f.run->result().state["input"], QJsonValue(1));
}

void TestGraphRunBranches::updatesOfAnEarlierNodeAreGone()
{
    GraphFixture f;
    f.run->setParallelNode("a", {{"x", finishesWith({{"x", true}})}});
    f.run->setParallelNode("b", {{"y", finishesWith({{"y", true}})}});
    f.start();
    QCOMPARE(f.run->result().steps.at(1).update, (QJsonObject{{"y", true}}));
}

void TestGraphRunBranches::branchThatFailsCancelsTheOthers()
{
    BranchFixture f({"x", "y", "z"});
    f.start();
    for (const QPointer<GraphTask> &task : qAsConst(f.tasks))
        logCancel(task, &f.log);
    f.tasks["z"]->finish({{"z", true}});
    f.tasks["y"]->fail("no %1");
    runUntilQuiet();
    QCOMPARE(f.log,
             QStringList({"started p", "task canceled p/x", "error: Branch 'y' of node 'p' failed: no %1"}));
    QVERIFY(f.run->result().steps.isEmpty());
    QVERIFY(f.run->result().state.isEmpty());
}

void TestGraphRunBranches::firstOfTwoFailuresCounts()
{
    BranchFixture f({"x", "y"});
    f.start();
    f.tasks["y"]->fail("first");
    f.tasks["x"]->fail("second");
    runUntilQuiet();
    QCOMPARE(f.log.last(), "error: Branch 'y' of node 'p' failed: first");
}

void TestGraphRunBranches::branchThatFailsInsideItsFunctionLetsTheOthersBegin()
{
    BranchFixture f({"y"});
    f.setBranch("x", [](GraphTask *task) { task->fail("at once"); });
    f.setBranch("y", [&f](GraphTask *task) { logCancel(task, &f.log); });
    f.start();
    QCOMPARE(f.log, QStringList(
                        {"started p", "task canceled p/y", "error: Branch 'x' of node 'p' failed: at once"}));
}

void TestGraphRunBranches::branchThatThrowsIsNamed_data()
{
    QTest::addColumn<TaskStep>("function");
    QTest::addColumn<QString>("thrown");
    QTest::newRow("an exception") << TaskStep([](GraphTask *) { throw std::runtime_error("over"); })
                                  << "over";
    QTest::newRow("something else") << TaskStep([](GraphTask *) { throw 7; }) << "unknown exception";
    QTest::newRow("an empty function") << TaskStep() << QString(std::bad_function_call().what());
}

void TestGraphRunBranches::branchThatThrowsIsNamed()
{
    QFETCH(TaskStep, function);
    QFETCH(QString, thrown);
    BranchFixture f({"x"});
    f.setBranch("x", function);
    f.setBranch("y", [&f](GraphTask *task) { logCancel(task, &f.log); });
    f.start();
    QCOMPARE(f.log, QStringList({"started p", "task canceled p/y",
                                 "error: Branch 'x' of node 'p' failed: " + thrown}));
}

void TestGraphRunBranches::failureDoesNotWaitForAFunctionThatSpinsALoop()
{
    BranchFixture f({"x", "y", "z"});
    f.setBranch("y", [&f](GraphTask *task) {
        logCancel(task, &f.log);
        f.tasks["x"]->fail("broken");
        runUntilQuiet();
        f.log.append("y returns");
    });
    f.start();
    QCOMPARE(f.log, QStringList({"started p", "task canceled p/y",
                                 "error: Branch 'x' of node 'p' failed: broken", "y returns"}));
    QVERIFY(!f.tasks.contains("z"));
}

void TestGraphRunBranches::deletedBranchIsNamed()
{
    BranchFixture f({"x", "y"});
    f.start();
    delete f.tasks["x"];
    runUntilQuiet();
    QCOMPARE(f.log.last(), "error: Branch 'x' of node 'p' failed: abandoned");
}

void TestGraphRunBranches::branchesShareTheAttemptAndAllRunAgain()
{
    MemoryCheckpoints storage;
    BranchFixture f({"x", "y"});
    f.run->setCheckpoints(&storage);
    const auto attempts = [&f] {
        QVector<int> attempts;
        for (const QPointer<GraphTask> &task : qAsConst(f.tasks))
            attempts.append(task->attempt());
        return attempts;
    };
    f.start({}, "t");
    QCOMPARE(attempts(), QVector<int>({1, 1}));
    f.tasks["x"]->finish({{"x", "done, and lost"}});
    f.tasks["y"]->fail("broken");
    runUntilQuiet();
    QCOMPARE(f.log.last(), "error: Branch 'y' of node 'p' failed: broken");
    QCOMPARE(storage.checkpoints["t"].state, QJsonObject());

    f.tasks.clear();
    f.resume("t");
    QCOMPARE(f.tasks.keys(), QStringList({"x", "y"}));
    QCOMPARE(attempts(), QVector<int>({2, 2}));
    f.tasks["x"]->finish({{"x", 1}});
    f.tasks["y"]->finish({{"y", 2}});
    runUntilQuiet();
    QCOMPARE(f.log.last(), "finished");
    QCOMPARE(storage.checkpoints["t"].state, QJsonObject({{"x", 1}, {"y", 2}}));
}

void TestGraphRunBranches::nodeWithoutBranchesHasAnEmptyUpdate()
{
    BranchFixture f({});
    f.start({{"input", 1}});
    QCOMPARE(f.log, QStringList({"started p", "step p", "finished"}));
    QCOMPARE(f.run->result().steps.at(0).update, QJsonObject());
    QCOMPARE(f.run->result().state, (QJsonObject{{"input", 1}}));
}

void TestGraphRunBranches::branchMayHaveAnEmptyName()
{
    BranchFixture f({""});
    f.start();
    f.tasks[""]->fail("broken");
    runUntilQuiet();
    QCOMPARE(f.log.last(), "error: Branch '' of node 'p' failed: broken");
}

void TestGraphRunBranches::cancelCancelsEveryBranch()
{
    BranchFixture f({"x", "y"});
    f.start();
    for (const QPointer<GraphTask> &task : qAsConst(f.tasks))
        logCancel(task, &f.log);
    f.run->cancel();
    QCOMPARE(f.log, QStringList({"started p", "task canceled p/x", "task canceled p/y", "canceled"}));
}

void TestGraphRunBranches::slotOfACanceledTaskMayDoAnything_data()
{
    using RunStep = std::function<void(GraphRun *)>;
    const auto step = [](const RunStep &run) {
        return TaskStep([run](GraphTask *task) { run(qobject_cast<GraphRun *>(task->parent())); });
    };
    const QStringList others{"task canceled p/2", "task canceled p/3"};
    QTest::addColumn<TaskStep>("step");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("cancel") << step([](GraphRun *run) { run->cancel(); }) << others + QStringList{"canceled"};
    QTest::newRow("start again") << step([](GraphRun *run) {
        run->start({{"again", true}});
    }) << others + QStringList{"canceled", "started p", "step p", "finished"};
    QTest::newRow("delete the run") << step([](GraphRun *run) { delete run; }) << others;
    QTest::newRow("delete the task") << TaskStep([](GraphTask *task) { delete task; })
                                     << others + QStringList{"canceled"};
    QTest::newRow("spin an event loop")
        << TaskStep([](GraphTask *) { runUntilQuiet(); }) << others + QStringList{"canceled"};
    QTest::newRow("finish another") << step([](GraphRun *run) {
        for (auto *task : run->findChildren<GraphTask *>())
            task->finish({});
    }) << QStringList{"canceled"};
}

void TestGraphRunBranches::slotOfACanceledTaskMayDoAnything()
{
    QFETCH(TaskStep, step);
    QFETCH(QStringList, log);
    BranchFixture f({"1", "2", "3"});
    f.start();
    connect(f.tasks["1"], &GraphTask::canceled, this, [step, task = f.tasks["1"].data()] { step(task); });
    logCancel(f.tasks["2"], &f.log);
    logCancel(f.tasks["3"], &f.log);
    f.log.clear();
    f.run->setParallelNode("p", {});
    f.run->cancel();
    runUntilQuiet();
    QCOMPARE(f.log, log);
}

QTEST_GUILESS_MAIN(TestGraphRunBranches)
#include "tst_graphrun_branches.moc"
