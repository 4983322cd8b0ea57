#include "support/graphfixture.h"

#include <QtTest>

#include <stdexcept>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StateGraph)

// What a run of plain nodes emits and when.
class TestGraphRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingRunsBeforeAStart();
    void stepsAreToldOneAfterAnother();
    void resultIsThatOfTheGraphRunAtOnce();
    void functionsAreCalledBetweenTheSignals();
    void nothingIsEmittedBeforeStartReturns_data();
    void nothingIsEmittedBeforeStartReturns();
    void otherTimersHaveTheirTurnBetweenNodes();
    void stepHoldsWhatTheNodeDid();
    void errorsComeLastAndAfterTheirStep_data();
    void errorsComeLastAndAfterTheirStep();
    void exceptionsAreErrors_data();
    void exceptionsAreErrors();
    void resultGrowsWhileTheRunIsInFlight();
    void recordsTravelThroughQueuedConnections();
};

void TestGraphRun::nothingRunsBeforeAStart()
{
    GraphFixture f;
    runUntilQuiet();
    QVERIFY(!f.run->isRunning());
    QCOMPARE(f.run->result(), GraphRunResult());
    QCOMPARE(f.log, QStringList());
}

void TestGraphRun::stepsAreToldOneAfterAnother()
{
    GraphFixture f;
    f.run->start({{"input", "x"}});
    QVERIFY(f.run->isRunning());
    runUntilQuiet();
    QCOMPARE(f.log, logOfTwoNodes());
    QVERIFY(!f.run->isRunning());
}

void TestGraphRun::resultIsThatOfTheGraphRunAtOnce()
{
    GraphFixture f;
    f.start({{"input", "x"}});
    QCOMPARE(f.run->result(), twoNodes().run({{"input", "x"}}));
}

void TestGraphRun::functionsAreCalledBetweenTheSignals()
{
    QStringList *log = nullptr;
    const auto note = [&log](const QString &entry) {
        return [&log, entry](const QJsonObject &) {
            log->append(entry);
            return QJsonObject();
        };
    };
    StateGraph graph = twoNodes(note("function a"), note("function b"));
    const auto route = [&log](const QJsonObject &) {
        log->append("router");
        return QString("on");
    };
    graph.addConditionalEdges(StartNode, route, {{"on", "a"}});
    graph.addConditionalEdges("a", route, {{"on", "b"}});
    GraphFixture f(graph);
    log = &f.log;
    f.run->start({});
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    QCOMPARE(f.log, QStringList({"router", "started a", "function a", "router", "step a", "started b",
                                 "function b", "step b", "finished"}));
}

void TestGraphRun::nothingIsEmittedBeforeStartReturns_data()
{
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QString>("end");
    QTest::newRow("no node") << StateGraph() << "error: No edge from node '__start__'.";
    StateGraph atOnce;
    atOnce.addEdge(StartNode, EndNode);
    QTest::newRow("the end at once") << atOnce << "finished";
    StateGraph interrupted = twoNodes();
    interrupted.addInterruptBefore("a");
    QTest::newRow("an interrupt at once") << interrupted << "interrupted a";
    StateGraph limited = twoNodes();
    limited.maxSteps = 0;
    QTest::newRow("the limit at once") << limited << "error: Graph exceeded max steps: 0";
    StateGraph missing;
    missing.addEdge(StartNode, "ghost");
    QTest::newRow("a missing node") << missing << "error: Missing graph node: ghost";
}

void TestGraphRun::nothingIsEmittedBeforeStartReturns()
{
    QFETCH(StateGraph, graph);
    QFETCH(QString, end);
    GraphFixture f(graph);
    f.run->start({{"input", "x"}});
    QCOMPARE(f.log, QStringList());
    QCOMPARE(f.run->result().state, (QJsonObject{{"input", "x"}}));
    runUntilQuiet();
    QCOMPARE(f.log, QStringList{end});
}

void TestGraphRun::otherTimersHaveTheirTurnBetweenNodes()
{
    GraphFixture f;
    QTimer window;
    connect(&window, &QTimer::timeout, this, [&f] { f.log.append("window"); });
    window.start(0);
    f.run->start({});
    f.waitForEnd();
    const auto isBetween = [&f](const QString &first, const QString &second) {
        return f.log.mid(f.log.indexOf(first), f.log.indexOf(second) - f.log.indexOf(first))
            .contains("window");
    };
    QVERIFY2(isBetween("step a", "started b"), qPrintable(f.log.join(", ")));
}

void TestGraphRun::stepHoldsWhatTheNodeDid()
{
    GraphFixture f;
    QVector<GraphStep> steps;
    connect(f.run, &GraphRun::stepFinished, this, [&](const GraphStep &step) { steps.append(step); });
    f.start({{"input", "x"}});
    QCOMPARE(steps, f.run->result().steps);
    QCOMPARE(steps.at(0), (GraphStep{"a", "", {{"input", "x"}}, {{"a", 1}}, {{"input", "x"}, {"a", 1}}}));
}

void TestGraphRun::errorsComeLastAndAfterTheirStep_data()
{
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QStringList>("log");
    StateGraph noEdge;
    noEdge.addNode("a", returns({{"a", 1}}));
    noEdge.addEdge(StartNode, "a");
    QTest::newRow("no edge") << noEdge << QStringList{"started a", "step a", "error: No edge from node 'a'."};
    StateGraph noRoute = twoNodes();
    noRoute.addConditionalEdges("a", chooses("retry"), {});
    QTest::newRow("no route") << noRoute
                              << QStringList{"started a", "step a", "error: No route 'retry' from node 'a'."};
    StateGraph missing = twoNodes();
    missing.addEdge("a", "ghost");
    QTest::newRow("a missing node") << missing
                                    << QStringList{"started a", "step a", "error: Missing graph node: ghost"};
    StateGraph limited = twoNodes();
    limited.maxSteps = 1;
    QTest::newRow("the limit") << limited
                               << QStringList{"started a", "step a", "error: Graph exceeded max steps: 1"};
}

void TestGraphRun::errorsComeLastAndAfterTheirStep()
{
    QFETCH(StateGraph, graph);
    GraphFixture f(graph);
    f.start({{"input", "x"}});
    QTEST(f.log, "log");
    QCOMPARE(f.run->result(), graph.run({{"input", "x"}}));
}

void TestGraphRun::exceptionsAreErrors_data()
{
    const auto throwing = [](const QJsonObject &) -> QJsonObject { throw std::runtime_error("over %1"); };
    const auto strange = [](const QJsonObject &) -> QJsonObject { throw 7; };
    const auto throwingRouter = [](const QJsonObject &) -> QString { throw std::runtime_error("lost"); };
    const QStringList untilA{"started a", "step a"};
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("of a node") << twoNodes(returns({}), throwing)
                               << untilA + QStringList{"started b", "error: Node 'b' threw: over %1"};
    QTest::newRow("of another kind") << twoNodes(
        returns({}),
        strange) << untilA + QStringList{"started b", "error: Node 'b' threw: unknown exception"};
    QTest::newRow("of an empty node")
        << twoNodes({})
        << QStringList{"started a", QString("error: Node 'a' threw: ") + std::bad_function_call().what()};
    StateGraph router = twoNodes();
    router.addConditionalEdges("a", throwingRouter, {});
    QTest::newRow("of a router, whose step is kept")
        << router << untilA + QStringList{"error: Node 'a' threw: lost"};
    StateGraph startRouter = twoNodes();
    startRouter.addConditionalEdges(StartNode, throwingRouter, {});
    QTest::newRow("of a router at the start")
        << startRouter << QStringList{"error: Node '__start__' threw: lost"};
}

void TestGraphRun::exceptionsAreErrors()
{
    QFETCH(StateGraph, graph);
    QFETCH(QStringList, log);
    GraphFixture f(graph);
    f.start({});
    QCOMPARE(f.log, log);
    QCOMPARE(f.run->result().steps.size(), log.filter("step").size());
}

void TestGraphRun::resultGrowsWhileTheRunIsInFlight()
{
    GraphFixture f;
    QVector<GraphRunResult> results;
    f.signalLog.onEntry([&](const QString &) { results.append(f.run->result()); });
    f.start({});
    QVector<int> steps;
    for (const GraphRunResult &result : results)
        steps.append(int(result.steps.size()));
    QCOMPARE(steps, QVector<int>({0, 1, 1, 2, 2}));
    QCOMPARE(results.at(1).state, (QJsonObject{{"a", 1}}));
}

void TestGraphRun::recordsTravelThroughQueuedConnections()
{
    GraphFixture f;
    GraphStep last;
    GraphRunResult end;
    connect(
        f.run, &GraphRun::stepFinished, this, [&](const GraphStep &step) { last = step; },
        Qt::QueuedConnection);
    connect(
        f.run, &GraphRun::finished, this, [&](const GraphRunResult &result) { end = result; },
        Qt::QueuedConnection);
    f.start({});
    QCOMPARE(last.node, "b");
    QCOMPARE(end, f.run->result());
}

QTEST_GUILESS_MAIN(TestGraphRun)
#include "tst_graphrun.moc"
