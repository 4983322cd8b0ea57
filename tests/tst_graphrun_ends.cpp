#include "support/graphfixture.h"

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

// Runs that are canceled, deleted, started again and resumed.
class TestGraphRunEnds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cancelEndsTheRunAtOnce();
    void cancelWithoutARunDoesNothing();
    void canceledRunHoldsWhatItReached();
    void startCancelsTheRunInFlight();
    void startReplacesWhatASlotOfItsCancelStarted();
    void endMayStartTheNextRun();
    void deletedRunEmitsNothing();
    void runMayBeDeletedInASlotOfTheCancelThatAStartMakes();
    void runWorksOnItsOwnGraph();
    void nodeMayStartItsRunAgain();
    void nodeMayDeleteItsRun_data();
    void nodeMayDeleteItsRun();
    void nodeMaySpinAnEventLoop();
    void argumentsMayDieInASlot();
    void resumeGoesOnWithTheLastRun_data();
    void resumeGoesOnWithTheLastRun();
    void resumeWithoutARunHasNothingToResume();
    void resumeOfARunThatDidNotBeginHasNothingToResume();
    void resumeOfAThreadNeedsAStorage();
    void resumeAfterTheEndHasNoSteps();
    void resumeWhileRunningTakesUpTheCanceledRun();
};

void TestGraphRunEnds::cancelEndsTheRunAtOnce()
{
    GraphFixture f;
    f.onEntry("step a", [&f] { f.run->cancel(); });
    f.start({});
    QCOMPARE(f.log, QStringList({"started a", "step a", "canceled"}));
    QVERIFY(!f.run->isRunning());
}

void TestGraphRunEnds::cancelWithoutARunDoesNothing()
{
    GraphFixture f;
    f.run->cancel();
    f.start({});
    f.run->cancel();
    QCOMPARE(f.log, logOfTwoNodes());
    QVERIFY(f.run->result().error.isEmpty());
}

void TestGraphRunEnds::canceledRunHoldsWhatItReached()
{
    GraphFixture f;
    f.run->start({{"input", "x"}});
    f.run->cancel();
    QCOMPARE(f.log, QStringList{"canceled"});
    QCOMPARE(f.run->result().state, (QJsonObject{{"input", "x"}}));
    runUntilQuiet();
    QCOMPARE(f.log, QStringList{"canceled"});
}

void TestGraphRunEnds::startCancelsTheRunInFlight()
{
    GraphFixture f;
    f.run->start({{"run", 1}});
    f.run->start({{"run", 2}});
    QCOMPARE(f.log, QStringList{"canceled"});
    runUntilQuiet();
    QCOMPARE(f.log, QStringList{"canceled"} + logOfTwoNodes());
    QCOMPARE(f.run->result().state["run"], QJsonValue(2));
}

void TestGraphRunEnds::startReplacesWhatASlotOfItsCancelStarted()
{
    GraphFixture f;
    int starts = 0;
    connect(f.run, &GraphRun::canceled, this, [&] {
        if (++starts == 1)
            f.run->start({{"run", "of the slot"}});
    });
    f.run->start({{"run", 1}});
    f.start({{"run", 2}});
    QCOMPARE(f.log, QStringList({"canceled", "canceled"}) + logOfTwoNodes());
    QCOMPARE(f.run->result().state["run"], QJsonValue(2));
}

void TestGraphRunEnds::endMayStartTheNextRun()
{
    GraphFixture f;
    connect(f.run, &GraphRun::finished, this, [&f](const GraphRunResult &result) {
        const int count = result.state["count"].toInt();
        if (count < 2)
            f.run->start({{"count", count + 1}});
    });
    f.start({});
    QCOMPARE(f.log, logOfTwoNodes() + logOfTwoNodes() + logOfTwoNodes());
}

void TestGraphRunEnds::deletedRunEmitsNothing()
{
    GraphFixture f;
    f.run->start({});
    delete f.run;
    runUntilQuiet();
    QCOMPARE(f.log, QStringList());
}

void TestGraphRunEnds::runMayBeDeletedInASlotOfTheCancelThatAStartMakes()
{
    GraphFixture f;
    connect(f.run, &GraphRun::canceled, this, [&f] { delete f.run; });
    f.run->start({});
    f.run->start({});
    QVERIFY(!f.run);
    QCOMPARE(f.log, QStringList{"canceled"});
}

void TestGraphRunEnds::runWorksOnItsOwnGraph()
{
    auto graph = std::make_unique<StateGraph>(twoNodes());
    GraphFixture f(*graph);
    graph->addEdge("a", EndNode);
    graph.reset();
    f.start({});
    QCOMPARE(f.log, logOfTwoNodes());
}

void TestGraphRunEnds::nodeMayStartItsRunAgain()
{
    QPointer<GraphRun> run;
    GraphFixture f(twoNodes([&run](const QJsonObject &state) {
        if (!state.contains("again"))
            run->start({{"again", true}});
        return QJsonObject{{"late", true}};
    }));
    run = f.run;
    f.start({});
    QCOMPARE(f.log, QStringList({"started a", "canceled"}) + logOfTwoNodes());
    QCOMPARE(f.run->result().steps.first().before, (QJsonObject{{"again", true}}));
}

void TestGraphRunEnds::nodeMayDeleteItsRun_data()
{
    QTest::addColumn<bool>("inRouter");
    QTest::newRow("in its function") << false;
    QTest::newRow("in its router") << true;
}

void TestGraphRunEnds::nodeMayDeleteItsRun()
{
    QFETCH(bool, inRouter);
    QPointer<GraphRun> run;
    const QString note(40, 'x');
    const auto destroy = [&run, note] {
        delete run;
        return note; // of the function, which was part of the run
    };
    StateGraph graph = twoNodes([destroy, inRouter](const QJsonObject &state) {
        return inRouter ? state : QJsonObject{{"note", destroy()}};
    });
    graph.addConditionalEdges("a", [destroy](const QJsonObject &) { return destroy(); }, {});
    GraphFixture f(graph);
    run = f.run;
    graph = StateGraph();
    f.start({});
    QVERIFY(!f.run);
    QCOMPARE(f.log, QStringList{"started a"});
}

void TestGraphRunEnds::nodeMaySpinAnEventLoop()
{
    GraphFixture f(twoNodes([](const QJsonObject &) {
        runUntilQuiet();
        return QJsonObject{{"a", 1}};
    }));
    f.start({});
    QCOMPARE(f.log, logOfTwoNodes());
}

void TestGraphRunEnds::argumentsMayDieInASlot()
{
    struct Arguments
    {
        QJsonObject state{{"input", "x"}};
        QString thread{"thread"};
    };
    GraphFixture f;
    auto arguments = std::make_unique<Arguments>();
    connect(f.run, &GraphRun::canceled, this, [&arguments] { arguments.reset(); });
    f.run->start({});
    f.start(arguments->state, arguments->thread);
    QCOMPARE(f.run->result().state["input"], QJsonValue("x"));
    QVERIFY(!arguments);
}

void TestGraphRunEnds::resumeGoesOnWithTheLastRun_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("end");
    QTest::newRow("after a cancel in a node") << "started b"
                                              << "canceled";
    QTest::newRow("after an interrupt") << ""
                                        << "interrupted b";
}

void TestGraphRunEnds::resumeGoesOnWithTheLastRun()
{
    QFETCH(QString, entry);
    StateGraph graph = twoNodes();
    if (entry.isEmpty())
        graph.addInterruptBefore("b");
    GraphFixture f(graph);
    f.onEntry(entry, [&f] { f.run->cancel(); });
    f.start({{"input", "x"}});
    QTEST(f.log.last(), "end");

    f.log.clear();
    f.run->resume({}, {{"approved", true}});
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"started b", "step b", "finished"}));
    const QJsonObject before{{"input", "x"}, {"a", 1}, {"approved", true}};
    QCOMPARE(f.run->result().steps.size(), 1);
    QCOMPARE(f.run->result().steps.at(0).before, before);
}

void TestGraphRunEnds::resumeWithoutARunHasNothingToResume()
{
    GraphFixture f;
    f.run->resume({}, {{"update", 1}});
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    f.resume();
    QCOMPARE(f.log, QStringList({"error: Nothing to resume.", "error: Nothing to resume."}));
}

void TestGraphRunEnds::resumeOfARunThatDidNotBeginHasNothingToResume()
{
    GraphFixture f;
    f.run->start({}, "job");
    f.run->cancel();
    f.resume({});
    QCOMPARE(f.log, QStringList({"canceled", "error: Nothing to resume."}));
}

void TestGraphRunEnds::resumeOfAThreadNeedsAStorage()
{
    GraphFixture f;
    f.resume("job %1");
    QCOMPARE(f.log, QStringList{"error: No checkpoint of thread 'job %1'."});
}

void TestGraphRunEnds::resumeAfterTheEndHasNoSteps()
{
    GraphFixture f;
    f.start({{"input", "x"}});
    const QJsonObject state = f.run->result().state;
    f.log.clear();
    f.resume({}, {{"late", true}});
    QCOMPARE(f.log, QStringList{"finished"});
    QCOMPARE(f.run->result(), (GraphRunResult{state, {}, false, {}, {}}));
}

void TestGraphRunEnds::resumeWhileRunningTakesUpTheCanceledRun()
{
    GraphFixture f;
    f.onEntry("started b", [&f] { f.run->resume({}); });
    f.start({});
    QCOMPARE(f.log, QStringList(
                        {"started a", "step a", "started b", "canceled", "started b", "step b", "finished"}));
}

QTEST_GUILESS_MAIN(TestGraphRunEnds)
#include "tst_graphrun_ends.moc"
