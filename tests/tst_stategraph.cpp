#include <qtagent/stategraph.h>

#include <tests/support/heapusage.h>

#include <QRandomGenerator>
#include <QtTest>

#include <limits>
#include <memory>
#include <stdexcept>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StateGraph)

namespace {

NodeFunction returns(const QJsonObject &update)
{
    return [update](const QJsonObject &) { return update; };
}

RouterFunction chooses(const QString &key)
{
    return [key](const QJsonObject &) { return key; };
}

QJsonObject countUp(const QJsonObject &state)
{
    return {{"count", state["count"].toInt() + 1}};
}

QString moreUntilThree(const QJsonObject &state)
{
    return state["count"].toInt() < 3 ? QStringLiteral("more") : QStringLiteral("done");
}

/// __start__ -> a -> __end__
StateGraph graphOfOneNode(const NodeFunction &function)
{
    StateGraph graph;
    graph.addNode("a", function);
    graph.addEdge("__start__", "a");
    graph.addEdge("a", "__end__");
    return graph;
}

/// A node "loop" that counts up and is run until the count is three.
StateGraph graphThatCountsToThree()
{
    StateGraph graph;
    graph.addNode("loop", countUp);
    graph.addEdge("__start__", "loop");
    graph.addConditionalEdges("loop", moreUntilThree, {{"more", "loop"}, {"done", "__end__"}});
    return graph;
}

/// A node "loop" that counts up and never ends.
StateGraph endlessGraph()
{
    StateGraph graph;
    graph.addNode("loop", countUp);
    graph.addEdge("__start__", "loop");
    graph.addConditionalEdges("loop", chooses("again"), {{"again", "loop"}});
    return graph;
}

QStringList nodesOf(const GraphRunResult &result)
{
    QStringList nodes;
    for (const GraphStep &step : result.steps)
        nodes.append(step.node);
    return nodes;
}

QJsonObject mergedPlainly(QJsonObject state, const QJsonObject &update)
{
    for (auto it = update.begin(); it != update.end(); ++it)
        state.insert(it.key(), it.value());
    return state;
}

} // namespace

class TestStateGraph : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resultsAreEmptyByDefault();
    void graphsRunAtMost32NodesByDefault();

    void plainEdgesRunEachNodeOnceWithAnEmptyRoute();
    void stepsHoldTheNodeTheRouteAndTheStatesAroundIt();
    void nodesAndRoutersReceiveTheStateAsItStands();
    void conditionalEdgeAtTheStartLeavesNoRouteBehind();
    void conditionalEdgeWinsOverAPlainEdge_data();
    void conditionalEdgeWinsOverAPlainEdge();
    void routeToTheEndAtOnceRunsNothing();
    void edgesFromTheEndAreNotFollowed();
    void namesAreComparedExactly();
    void nodeMayBeCalledLikeAPlaceholder();

    void mergeReplacesTopLevelValues_data();
    void mergeReplacesTopLevelValues();
    void mergesOfManyStepsEqualPlainInsertion_data();
    void mergesOfManyStepsEqualPlainInsertion();
    void replacedTextsDoNotPileUpInTheSteps_data();
    void replacedTextsDoNotPileUpInTheSteps();

    void missingRouteIsReportedAfterTheStep();
    void missingEdgeIsReportedAfterTheStep();
    void missingEdgeFromTheStartIsReported();
    void missingRouteFromTheStartIsReported();
    void missingNodeIsReported_data();
    void missingNodeIsReported();
    void errorTextsShowNamesThatLookLikePlaceholders_data();
    void errorTextsShowNamesThatLookLikePlaceholders();

    void limitCountsNodeRuns_data();
    void limitCountsNodeRuns();
    void limitOfEndlessLoopIs32ByDefault();
    void limitIsNoErrorWhereNothingHasToRun();
    void limitComesBeforeAnInterrupt();

    void interruptStopsBeforeTheNode();
    void interruptAtTheFirstNodeRunsNothing();
    void interruptInALoopStopsBeforeTheFirstPass();
    void interruptStopsBeforeANameThatIsNoNode();
    void interruptNamesAreComparedExactly();
    void interruptBeforeTheEndIsNone();
    void interruptMayBeAddedTwice();
    void interruptedRunIsResumedByAGraphWithoutTheInterrupt();

    void exitsSaveTheStateOrLeaveTheStoreAlone_data();
    void exitsSaveTheStateOrLeaveTheStoreAlone();
    void newInputIsLaidOverTheSavedState();
    void startIsRoutedWithTheRestoredState();
    void failedRunReturnsTheRestoredState();
    void threadsAreSeparate();
    void emptyThreadIdNeverTouchesTheStore();
    void runWithoutAStoreKeepsNothing();

    void nodesAreReplaced();
    void edgesAreReplaced();
    void conditionalEdgesAreReplacedWhole();
    void copiesAreIndependent();
    void copiesShareWhatTheirFunctionsHold();
    void graphMayBeRunManyTimes();

    void exceptionsPassThroughAndNothingIsSaved_data();
    void exceptionsPassThroughAndNothingIsSaved();
    void emptyFunctionsThrowBadFunctionCall_data();
    void emptyFunctionsThrowBadFunctionCall();

    void runKeepsTheGraphThatANodeChanges();
    void runKeepsTheGraphThatANodeReplaces();
    void runKeepsTheGraphThatARouterReplaces();
    void runSurvivesTheGraphThatANodeDestroys();
    void nodeMayRunItsGraphAgain();
    void nodeMayChangeTheStore();
    void nodeMayEmptyTheStoreThatTheArgumentsLieIn();
};

void TestStateGraph::resultsAreEmptyByDefault()
{
    const GraphRunResult result;
    QVERIFY(result.state.isEmpty());
    QVERIFY(result.steps.isEmpty());
    QVERIFY(!result.interrupted);
    QVERIFY(result.interruptedNode.isEmpty());
    QVERIFY(result.error.isEmpty());
}

void TestStateGraph::graphsRunAtMost32NodesByDefault()
{
    QCOMPARE(StateGraph().maxSteps, 32);
}

void TestStateGraph::plainEdgesRunEachNodeOnceWithAnEmptyRoute()
{
    StateGraph graph;
    graph.addNode("b", returns({{"b", 2}}));
    graph.addNode("a", returns({{"a", 1}}));
    graph.addEdge("__start__", "a");
    graph.addEdge("a", "b");
    graph.addEdge("b", "__end__");

    const GraphRunResult result = graph.run({{"input", "x"}});
    QCOMPARE(nodesOf(result), QStringList({"a", "b"}));
    QVERIFY(result.steps[0].route.isEmpty());
    QVERIFY(result.steps[1].route.isEmpty());
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}, {"a", 1}, {"b", 2}}));
    QVERIFY(!result.interrupted);
    QVERIFY(result.interruptedNode.isEmpty());
    QCOMPARE(result.error, "");
}

void TestStateGraph::stepsHoldTheNodeTheRouteAndTheStatesAroundIt()
{
    const GraphRunResult result = graphThatCountsToThree().run({{"count", 1}, {"topic", "x"}});
    QCOMPARE(result.steps.size(), 2);

    const GraphStep first = result.steps[0];
    QCOMPARE(first.node, "loop");
    QCOMPARE(first.route, "more");
    QCOMPARE(first.before, (QJsonObject{{"count", 1}, {"topic", "x"}}));
    QCOMPARE(first.update, (QJsonObject{{"count", 2}}));
    QCOMPARE(first.after, (QJsonObject{{"count", 2}, {"topic", "x"}}));

    const GraphStep second = result.steps[1];
    QCOMPARE(second.route, "done");
    QCOMPARE(second.before, first.after);
    QCOMPARE(second.update, (QJsonObject{{"count", 3}}));
    QCOMPARE(second.after, result.state);
}

void TestStateGraph::nodesAndRoutersReceiveTheStateAsItStands()
{
    QVector<QJsonObject> received;
    StateGraph graph;
    graph.addNode("a", [&](const QJsonObject &state) {
        received.append(state);
        return QJsonObject{{"answer", 1}};
    });
    const auto router = [&](const QJsonObject &state) {
        received.append(state);
        return QStringLiteral("go");
    };
    graph.addConditionalEdges("__start__", router, {{"go", "a"}});
    graph.addConditionalEdges("a", router, {{"go", "__end__"}});

    graph.run({{"input", "x"}});
    const QJsonObject before{{"input", "x"}};
    const QJsonObject after{{"input", "x"}, {"answer", 1}};
    QCOMPARE(received, (QVector<QJsonObject>{before, before, after}));
}

void TestStateGraph::conditionalEdgeAtTheStartLeavesNoRouteBehind()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addConditionalEdges("__start__", chooses("begin"), {{"begin", "a"}});
    const GraphRunResult result = graph.run({});
    QCOMPARE(nodesOf(result), QStringList({"a"}));
    QCOMPARE(result.steps[0].route, "");
}

void TestStateGraph::conditionalEdgeWinsOverAPlainEdge_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QStringList>("nodes");
    QTest::newRow("at the start") << "__start__" << QStringList{"b"};
    QTest::newRow("at a node") << "a" << QStringList{"a", "b"};
}

void TestStateGraph::conditionalEdgeWinsOverAPlainEdge()
{
    QFETCH(QString, from);
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addNode("b", returns({}));
    graph.addEdge("b", "__end__");
    graph.addConditionalEdges(from, chooses("other"), {{"other", "b"}});
    QTEST(nodesOf(graph.run({})), "nodes");
}

void TestStateGraph::routeToTheEndAtOnceRunsNothing()
{
    StateGraph graph;
    graph.addEdge("__start__", "__end__");
    CheckpointStore store;
    const GraphRunResult result = graph.run({{"input", "x"}}, "t", &store);
    QVERIFY(result.steps.isEmpty());
    QCOMPARE(result.error, "");
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}}));
    QCOMPARE(store, (CheckpointStore{{"t", result.state}}));
}

void TestStateGraph::edgesFromTheEndAreNotFollowed()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addNode("__end__", returns({{"ran", "end"}}));
    graph.addEdge("__end__", "a");
    graph.addConditionalEdges("__end__", chooses("on"), {{"on", "a"}});
    const GraphRunResult result = graph.run({});
    QCOMPARE(nodesOf(result), QStringList({"a"}));
    QVERIFY(result.state.isEmpty());
    QCOMPARE(result.error, "");
}

void TestStateGraph::namesAreComparedExactly()
{
    StateGraph graph = graphOfOneNode(returns({{"ran", "a"}}));
    graph.addNode("A", returns({{"ran", "A"}}));
    graph.addEdge("A", "nowhere");
    QCOMPARE(graph.run({}).state, (QJsonObject{{"ran", "a"}}));
}

void TestStateGraph::nodeMayBeCalledLikeAPlaceholder()
{
    StateGraph graph;
    graph.addNode("%1", returns({{"ran", true}}));
    graph.addEdge("__start__", "%1");
    graph.addEdge("%1", "__end__");
    QCOMPARE(graph.run({}).state, (QJsonObject{{"ran", true}}));
}

void TestStateGraph::mergeReplacesTopLevelValues_data()
{
    const QJsonObject nested{{"inner", QJsonObject{{"x", 1}, {"y", 2}}}};
    QTest::addColumn<QJsonObject>("state");
    QTest::addColumn<QJsonObject>("update");
    QTest::addColumn<QJsonObject>("merged");
    QTest::newRow("the last writer wins, other keys survive")
        << QJsonObject{{"count", 1}, {"topic", "x"}} << QJsonObject{{"count", 2}}
        << QJsonObject{{"count", 2}, {"topic", "x"}};
    QTest::newRow("new keys are added") << QJsonObject{{"m", 1}} << QJsonObject{{"z", 3}, {"a", 2}}
                                        << QJsonObject{{"a", 2}, {"m", 1}, {"z", 3}};
    QTest::newRow("an empty update changes nothing")
        << QJsonObject{{"count", 1}} << QJsonObject() << QJsonObject{{"count", 1}};
    QTest::newRow("an empty state takes the update")
        << QJsonObject() << QJsonObject{{"count", 1}} << QJsonObject{{"count", 1}};
    QTest::newRow("arrays are replaced, not appended")
        << QJsonObject{{"list", QJsonArray{1, 2}}} << QJsonObject{{"list", QJsonArray{3}}}
        << QJsonObject{{"list", QJsonArray{3}}};
    QTest::newRow("nested objects are replaced whole")
        << nested << QJsonObject{{"inner", QJsonObject{{"y", 3}}}}
        << QJsonObject{{"inner", QJsonObject{{"y", 3}}}};
    QTest::newRow("nested objects beside a text survive")
        << nested << QJsonObject{{"text", "t"}} << mergedPlainly(nested, {{"text", "t"}});
    QTest::newRow("null stays in the state")
        << QJsonObject{{"count", 1}, {"topic", "x"}} << QJsonObject{{"count", QJsonValue::Null}}
        << QJsonObject{{"count", QJsonValue::Null}, {"topic", "x"}};
    QTest::newRow("types change") << QJsonObject{{"v", "text"}} << QJsonObject{{"v", 2}}
                                  << QJsonObject{{"v", 2}};
    QTest::newRow("the empty key and the empty text are values like others")
        << QJsonObject{{"", "x"}, {"v", "text"}} << QJsonObject{{"", "y"}, {"v", ""}}
        << QJsonObject{{"", "y"}, {"v", ""}};
    QTest::newRow("texts beyond ASCII")
        << QJsonObject{{"输入", "一"}} << QJsonObject{{"输入", "二"}} << QJsonObject{{"输入", "二"}};
}

void TestStateGraph::mergeReplacesTopLevelValues()
{
    QFETCH(QJsonObject, state);
    QFETCH(QJsonObject, update);
    const GraphRunResult result = graphOfOneNode(returns(update)).run(state);
    QTEST(result.state, "merged");
    QCOMPARE(result.steps[0].before, state);
    QCOMPARE(result.steps[0].update, update);
    QCOMPARE(result.steps[0].after, result.state);
}

static QJsonValue randomValue(QRandomGenerator *random)
{
    const QString text(random->bounded(60), QChar(random->bounded(2) ? 'x' : 0x6587));
    switch (random->bounded(6)) {
    case 0:
        return QJsonValue::Null;
    case 1:
        return random->bounded(1000);
    case 2:
        return QJsonArray{text, random->bounded(10)};
    case 3:
        return QJsonObject{{"inner", text}};
    default:
        return text;
    }
}

static QJsonObject randomUpdate(QRandomGenerator *random)
{
    QJsonObject update;
    const int keys = random->bounded(4);
    for (int i = 0; i < keys; ++i)
        update.insert(QStringLiteral("key%1").arg(random->bounded(12)), randomValue(random));
    return update;
}

void TestStateGraph::mergesOfManyStepsEqualPlainInsertion_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 8; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void TestStateGraph::mergesOfManyStepsEqualPlainInsertion()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    StateGraph graph = endlessGraph();
    graph.maxSteps = 500;
    graph.addNode("loop", [&](const QJsonObject &) { return randomUpdate(&random); });

    QJsonObject expected{{"kept", "from the start"}};
    const GraphRunResult result = graph.run(expected);
    QCOMPARE(result.steps.size(), 500);
    for (const GraphStep &step : result.steps) {
        QCOMPARE(step.before, expected);
        expected = mergedPlainly(expected, step.update);
        QCOMPARE(step.after, expected);
    }
    QCOMPARE(result.state, expected);
}

void TestStateGraph::replacedTextsDoNotPileUpInTheSteps_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("a short text") << 5;
    QTest::newRow("an empty text") << 0;
    QTest::newRow("a line") << 60;
}

void TestStateGraph::replacedTextsDoNotPileUpInTheSteps()
{
    QFETCH(int, length);
    if (!heapUsage())
        QSKIP("The heap cannot be measured here.");
    StateGraph graph = endlessGraph();
    graph.maxSteps = 2000;
    graph.addNode("loop", returns({{"text", QString(length, 'x')}}));

    const qint64 before = *heapUsage();
    const GraphRunResult result = graph.run({{"a", "one"}, {"b", "two"}, {"c", "three"}, {"d", 4}});
    const qint64 bytesPerStep = (*heapUsage() - before) / result.steps.size();
    QVERIFY2(bytesPerStep < 1300, qPrintable(QString::number(bytesPerStep)));
}

void TestStateGraph::missingRouteIsReportedAfterTheStep()
{
    StateGraph graph;
    graph.addNode("check", returns({{"checked", true}}));
    graph.addEdge("__start__", "check");
    graph.addEdge("check", "__end__");
    graph.addConditionalEdges("check", chooses("retry"), {{"ok", "__end__"}});

    const GraphRunResult result = graph.run({});
    QCOMPARE(result.error, "No route 'retry' from node 'check'.");
    QCOMPARE(nodesOf(result), QStringList({"check"}));
    QCOMPARE(result.steps[0].route, "retry");
    QCOMPARE(result.steps[0].after, (QJsonObject{{"checked", true}}));
    QCOMPARE(result.state, (QJsonObject{{"checked", true}}));
}

void TestStateGraph::missingEdgeIsReportedAfterTheStep()
{
    StateGraph graph;
    graph.addNode("a", returns({{"ran", true}}));
    graph.addEdge("__start__", "a");

    const GraphRunResult result = graph.run({});
    QCOMPARE(result.error, "No edge from node 'a'.");
    QCOMPARE(nodesOf(result), QStringList({"a"}));
    QCOMPARE(result.steps[0].route, "");
    QCOMPARE(result.state, (QJsonObject{{"ran", true}}));
}

void TestStateGraph::missingEdgeFromTheStartIsReported()
{
    const GraphRunResult result = StateGraph().run({{"input", "x"}});
    QCOMPARE(result.error, "No edge from node '__start__'.");
    QVERIFY(result.steps.isEmpty());
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}}));
}

void TestStateGraph::missingRouteFromTheStartIsReported()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addConditionalEdges("__start__", chooses("left"), {{"right", "a"}});
    const GraphRunResult result = graph.run({{"input", "x"}});
    QCOMPARE(result.error, "No route 'left' from node '__start__'.");
    QVERIFY(result.steps.isEmpty());
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}}));
}

void TestStateGraph::missingNodeIsReported_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QStringList>("nodes");
    QTest::newRow("at the start") << "__start__"
                                  << "ghost" << QStringList();
    QTest::newRow("after a node") << "a"
                                  << "ghost" << QStringList{"a"};
    QTest::newRow("an edge back to the start") << "a"
                                               << "__start__" << QStringList{"a"};
    QTest::newRow("an empty name") << "a"
                                   << "" << QStringList{"a"};
}

void TestStateGraph::missingNodeIsReported()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addEdge(from, to);
    const GraphRunResult result = graph.run({{"input", "x"}});
    QCOMPARE(result.error, "Missing graph node: " + to);
    QTEST(nodesOf(result), "nodes");
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}}));
}

void TestStateGraph::errorTextsShowNamesThatLookLikePlaceholders_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("node");
    QTest::addColumn<QString>("error");
    QTest::newRow("key") << "%2"
                         << "n"
                         << "No route '%2' from node 'n'.";
    QTest::newRow("node") << "k"
                          << "%1"
                          << "No route 'k' from node '%1'.";
    QTest::newRow("both") << "%2%1"
                          << "%1%2"
                          << "No route '%2%1' from node '%1%2'.";
}

void TestStateGraph::errorTextsShowNamesThatLookLikePlaceholders()
{
    QFETCH(QString, key);
    QFETCH(QString, node);
    StateGraph graph;
    graph.addNode(node, returns({}));
    graph.addEdge("__start__", node);
    graph.addConditionalEdges(node, chooses(key), {});
    QTEST(graph.run({}).error, "error");
}

void TestStateGraph::limitCountsNodeRuns_data()
{
    const qint32 lowest = std::numeric_limits<qint32>::min();
    QTest::addColumn<qint32>("maxSteps");
    QTest::addColumn<int>("steps");
    QTest::addColumn<QString>("error");
    QTest::newRow("above the steps needed") << 4 << 3 << "";
    QTest::newRow("the steps needed") << 3 << 3 << "";
    QTest::newRow("one too few") << 2 << 2 << "Graph exceeded max steps: 2";
    QTest::newRow("0") << 0 << 0 << "Graph exceeded max steps: 0";
    QTest::newRow("negative") << -5 << 0 << "Graph exceeded max steps: -5";
    QTest::newRow("the lowest number") << lowest << 0 << "Graph exceeded max steps: -2147483648";
}

void TestStateGraph::limitCountsNodeRuns()
{
    QFETCH(qint32, maxSteps);
    QFETCH(int, steps);
    StateGraph graph = graphThatCountsToThree();
    graph.maxSteps = maxSteps;
    const GraphRunResult result = graph.run({{"count", 0}});
    QTEST(result.error, "error");
    QCOMPARE(result.steps.size(), steps);
    QCOMPARE(result.state, (QJsonObject{{"count", steps}}));
    QVERIFY(!result.interrupted);
}

void TestStateGraph::limitOfEndlessLoopIs32ByDefault()
{
    const GraphRunResult result = endlessGraph().run({});
    QCOMPARE(result.steps.size(), 32);
    QCOMPARE(result.steps.last().route, "again");
    QCOMPARE(result.error, "Graph exceeded max steps: 32");
    QCOMPARE(result.state, (QJsonObject{{"count", 32}}));
}

void TestStateGraph::limitIsNoErrorWhereNothingHasToRun()
{
    StateGraph graph;
    graph.addEdge("__start__", "__end__");
    graph.maxSteps = 0;
    QCOMPARE(graph.run({}).error, "");
}

void TestStateGraph::limitComesBeforeAnInterrupt()
{
    StateGraph graph = graphThatCountsToThree();
    graph.addInterruptBefore("loop");
    graph.maxSteps = 0;
    const GraphRunResult result = graph.run({});
    QCOMPARE(result.error, "Graph exceeded max steps: 0");
    QVERIFY(!result.interrupted);
}

void TestStateGraph::interruptStopsBeforeTheNode()
{
    StateGraph graph;
    graph.addNode("draft", returns({{"draft", "d"}}));
    graph.addNode("review", returns({{"reviewed", true}}));
    graph.addEdge("__start__", "draft");
    graph.addEdge("draft", "review");
    graph.addEdge("review", "__end__");
    graph.addInterruptBefore("review");

    const GraphRunResult result = graph.run({});
    QVERIFY(result.interrupted);
    QCOMPARE(result.interruptedNode, "review");
    QCOMPARE(result.error, "");
    QCOMPARE(nodesOf(result), QStringList({"draft"}));
    QCOMPARE(result.state, (QJsonObject{{"draft", "d"}}));
}

void TestStateGraph::interruptAtTheFirstNodeRunsNothing()
{
    StateGraph graph = graphOfOneNode(returns({{"ran", true}}));
    graph.addInterruptBefore("a");
    const GraphRunResult result = graph.run({{"input", "x"}});
    QVERIFY(result.interrupted);
    QCOMPARE(result.interruptedNode, "a");
    QVERIFY(result.steps.isEmpty());
    QCOMPARE(result.state, (QJsonObject{{"input", "x"}}));
}

void TestStateGraph::interruptInALoopStopsBeforeTheFirstPass()
{
    StateGraph graph = graphThatCountsToThree();
    graph.addNode("ask", returns({{"asked", true}}));
    graph.addEdge("ask", "loop");
    graph.addConditionalEdges("loop", moreUntilThree, {{"more", "ask"}, {"done", "__end__"}});
    graph.addInterruptBefore("ask");

    const GraphRunResult result = graph.run({{"count", 0}});
    QCOMPARE(result.interruptedNode, "ask");
    QCOMPARE(nodesOf(result), QStringList({"loop"}));
    QCOMPARE(result.steps[0].route, "more");
    QCOMPARE(graph.run({{"count", 2}}).interrupted, false);
}

void TestStateGraph::interruptStopsBeforeANameThatIsNoNode()
{
    StateGraph graph;
    graph.addEdge("__start__", "ghost");
    graph.addInterruptBefore("ghost");
    const GraphRunResult result = graph.run({});
    QVERIFY(result.interrupted);
    QCOMPARE(result.interruptedNode, "ghost");
    QCOMPARE(result.error, "");
}

void TestStateGraph::interruptNamesAreComparedExactly()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addInterruptBefore("A");
    QVERIFY(!graph.run({}).interrupted);
    graph.addInterruptBefore("a");
    QVERIFY(graph.run({}).interrupted);
}

void TestStateGraph::interruptBeforeTheEndIsNone()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addInterruptBefore("__start__");
    graph.addInterruptBefore("__end__");
    const GraphRunResult result = graph.run({});
    QVERIFY(!result.interrupted);
    QCOMPARE(nodesOf(result), QStringList({"a"}));
}

void TestStateGraph::interruptMayBeAddedTwice()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addInterruptBefore("a");
    graph.addInterruptBefore("a");
    QCOMPARE(graph.run({}).interruptedNode, "a");
}

void TestStateGraph::interruptedRunIsResumedByAGraphWithoutTheInterrupt()
{
    const StateGraph graph = graphOfOneNode(returns({{"ran", true}}));
    StateGraph interrupting = graph;
    interrupting.addInterruptBefore("a");
    CheckpointStore store;

    QVERIFY(interrupting.run({{"input", "x"}}, "t", &store).interrupted);
    QCOMPARE(store["t"], (QJsonObject{{"input", "x"}}));
    const GraphRunResult resumed = graph.run({{"approved", true}}, "t", &store);
    QCOMPARE(resumed.state, (QJsonObject{{"input", "x"}, {"approved", true}, {"ran", true}}));
    QCOMPARE(store["t"], resumed.state);
}

void TestStateGraph::exitsSaveTheStateOrLeaveTheStoreAlone_data()
{
    const QJsonObject saved{{"old", 1}};
    const QJsonObject input{{"old", 1}, {"new", 2}};
    const QJsonObject ran{{"old", 1}, {"new", 2}, {"ran", true}};
    const StateGraph graph = graphOfOneNode(returns({{"ran", true}}));

    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QJsonObject>("reached");
    QTest::addColumn<QJsonObject>("stored");

    QTest::newRow("the end is saved") << graph << ran << ran;
    StateGraph atTheFirstNode = graph;
    atTheFirstNode.addInterruptBefore("a");
    QTest::newRow("an interrupt at the first node is saved") << atTheFirstNode << input << input;
    StateGraph atTheSecondNode = graph;
    atTheSecondNode.addEdge("a", "review");
    atTheSecondNode.addInterruptBefore("review");
    QTest::newRow("an interrupt after a node is saved") << atTheSecondNode << ran << ran;
    StateGraph limited = graph;
    limited.addEdge("a", "a");
    QTest::newRow("the limit is saved") << limited << ran << ran;
    limited.maxSteps = 0;
    QTest::newRow("a limit of 0 is saved") << limited << input << input;

    QTest::newRow("no edge from the start is not saved") << StateGraph() << input << saved;
    StateGraph noStartRoute;
    noStartRoute.addConditionalEdges("__start__", chooses("x"), {});
    QTest::newRow("no route from the start is not saved") << noStartRoute << input << saved;
    StateGraph missingFirst = graph;
    missingFirst.addEdge("__start__", "ghost");
    QTest::newRow("a missing first node is not saved") << missingFirst << input << saved;
    StateGraph missingSecond = graph;
    missingSecond.addEdge("a", "ghost");
    QTest::newRow("a missing second node is not saved") << missingSecond << ran << saved;
    StateGraph noRoute = graph;
    noRoute.addConditionalEdges("a", chooses("x"), {});
    QTest::newRow("no route from a node is not saved") << noRoute << ran << saved;
    StateGraph noEdge;
    noEdge.addNode("a", returns({{"ran", true}}));
    noEdge.addEdge("__start__", "a");
    QTest::newRow("no edge from a node is not saved") << noEdge << ran << saved;
}

void TestStateGraph::exitsSaveTheStateOrLeaveTheStoreAlone()
{
    QFETCH(StateGraph, graph);
    QFETCH(QJsonObject, stored);
    CheckpointStore store{{"t", {{"old", 1}}}, {"other", {{"x", "y"}}}};
    QTEST(graph.run({{"new", 2}}, "t", &store).state, "reached");
    QCOMPARE(store, (CheckpointStore{{"t", stored}, {"other", {{"x", "y"}}}}));
}

void TestStateGraph::newInputIsLaidOverTheSavedState()
{
    const StateGraph graph = graphOfOneNode(returns({}));
    CheckpointStore store{{"t", {{"history", "h"}, {"list", QJsonArray{1}}, {"question", "old"}}}};
    const GraphRunResult result =
        graph.run({{"list", QJsonArray{2}}, {"question", "new"}, {"extra", QJsonValue::Null}}, "t", &store);
    const QJsonObject restored{
        {"history", "h"}, {"list", QJsonArray{2}}, {"question", "new"}, {"extra", QJsonValue::Null}};
    QCOMPARE(result.steps[0].before, restored);
    QCOMPARE(store["t"], restored);
}

void TestStateGraph::startIsRoutedWithTheRestoredState()
{
    StateGraph graph;
    graph.addNode("resumed", returns({}));
    graph.addEdge("resumed", "__end__");
    const auto router = [](const QJsonObject &state) {
        return state.contains("draft") ? QStringLiteral("resume") : QStringLiteral("stop");
    };
    graph.addConditionalEdges("__start__", router, {{"resume", "resumed"}, {"stop", "__end__"}});
    CheckpointStore store{{"t", {{"draft", "d"}}}};
    QCOMPARE(nodesOf(graph.run({}, "t", &store)), QStringList({"resumed"}));
    QVERIFY(graph.run({}, "other", &store).steps.isEmpty());
}

void TestStateGraph::failedRunReturnsTheRestoredState()
{
    CheckpointStore store{{"t", {{"old", 1}}}};
    const GraphRunResult result = StateGraph().run({{"new", 2}}, "t", &store);
    QCOMPARE(result.state, (QJsonObject{{"old", 1}, {"new", 2}}));
}

void TestStateGraph::threadsAreSeparate()
{
    const StateGraph graph = graphOfOneNode(countUp);
    CheckpointStore store;
    graph.run({}, "one", &store);
    graph.run({}, "one", &store);
    graph.run({}, "two", &store);
    QCOMPARE(store, (CheckpointStore{{"one", {{"count", 2}}}, {"two", {{"count", 1}}}}));
}

void TestStateGraph::emptyThreadIdNeverTouchesTheStore()
{
    const StateGraph graph = graphOfOneNode(countUp);
    const CheckpointStore initial{{"", {{"count", 5}}}};
    CheckpointStore store = initial;
    QCOMPARE(graph.run({}, "", &store).state, (QJsonObject{{"count", 1}}));
    QCOMPARE(graph.run({}, QString(), &store).state, (QJsonObject{{"count", 1}}));
    QCOMPARE(store, initial);
}

void TestStateGraph::runWithoutAStoreKeepsNothing()
{
    const StateGraph graph = graphOfOneNode(countUp);
    QCOMPARE(graph.run({}, "t").state, (QJsonObject{{"count", 1}}));
    QCOMPARE(graph.run({}, "t", nullptr).state, (QJsonObject{{"count", 1}}));
}

void TestStateGraph::nodesAreReplaced()
{
    StateGraph graph = graphOfOneNode(returns({{"first", true}}));
    graph.addNode("a", returns({{"second", true}}));
    QCOMPARE(graph.run({}).state, (QJsonObject{{"second", true}}));
}

void TestStateGraph::edgesAreReplaced()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addNode("b", returns({}));
    graph.addEdge("b", "__end__");
    graph.addEdge("a", "b");
    QCOMPARE(nodesOf(graph.run({})), QStringList({"a", "b"}));
}

void TestStateGraph::conditionalEdgesAreReplacedWhole()
{
    StateGraph graph = graphOfOneNode(returns({}));
    graph.addConditionalEdges("a", chooses("old"), {{"old", "a"}, {"new", "a"}});
    graph.addConditionalEdges("a", chooses("new"), {{"new", "__end__"}});
    QCOMPARE(nodesOf(graph.run({})), QStringList({"a"}));

    graph.addConditionalEdges("a", chooses("old"), {{"new", "__end__"}});
    QCOMPARE(graph.run({}).error, "No route 'old' from node 'a'.");
}

void TestStateGraph::copiesAreIndependent()
{
    const StateGraph graph = graphOfOneNode(returns({{"from", "original"}}));
    StateGraph copy = graph;
    copy.addNode("a", returns({{"from", "copy"}}));
    copy.addInterruptBefore("b");
    copy.addEdge("a", "b");
    copy.maxSteps = 1;
    QCOMPARE(graph.run({}).state, (QJsonObject{{"from", "original"}}));
    QCOMPARE(graph.maxSteps, 32);
    QCOMPARE(copy.run({}).error, "Graph exceeded max steps: 1");
}

void TestStateGraph::copiesShareWhatTheirFunctionsHold()
{
    const auto calls = std::make_shared<int>(0);
    const StateGraph graph = graphOfOneNode([calls](const QJsonObject &) {
        return QJsonObject{{"calls", ++*calls}};
    });
    StateGraph copy = graph;
    copy.addNode("b", returns({}));
    QCOMPARE(graph.run({}).state, (QJsonObject{{"calls", 1}}));
    QCOMPARE(copy.run({}).state, (QJsonObject{{"calls", 2}}));
    QCOMPARE(graph.run({}).state, (QJsonObject{{"calls", 3}}));
}

void TestStateGraph::graphMayBeRunManyTimes()
{
    const StateGraph graph = graphThatCountsToThree();
    for (int i = 0; i < 3; ++i) {
        const GraphRunResult result = graph.run({{"count", 0}});
        QCOMPARE(result.steps.size(), 3);
        QCOMPARE(result.state, (QJsonObject{{"count", 3}}));
    }
}

void TestStateGraph::exceptionsPassThroughAndNothingIsSaved_data()
{
    const NodeFunction throwingNode = [](const QJsonObject &) -> QJsonObject {
        throw std::runtime_error("from a node");
    };
    const RouterFunction throwingRouter = [](const QJsonObject &) -> QString {
        throw std::runtime_error("from a router");
    };
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("from a node") << graphOfOneNode(throwingNode) << QByteArray("from a node");
    StateGraph second = graphOfOneNode(returns({{"ran", true}}));
    second.addEdge("a", "b");
    second.addNode("b", throwingNode);
    QTest::newRow("from a second node") << second << QByteArray("from a node");
    StateGraph router = graphOfOneNode(returns({{"ran", true}}));
    router.addConditionalEdges("a", throwingRouter, {});
    QTest::newRow("from a router") << router << QByteArray("from a router");
    StateGraph startRouter = router;
    startRouter.addConditionalEdges("__start__", throwingRouter, {});
    QTest::newRow("from a router at the start") << startRouter << QByteArray("from a router");
}

void TestStateGraph::exceptionsPassThroughAndNothingIsSaved()
{
    QFETCH(StateGraph, graph);
    const CheckpointStore initial{{"t", {{"old", 1}}}};
    CheckpointStore store = initial;
    QByteArray message;
    try {
        graph.run({{"new", 2}}, "t", &store);
    } catch (const std::runtime_error &error) {
        message = error.what();
    }
    QTEST(message, "message");
    QCOMPARE(store, initial);
}

void TestStateGraph::emptyFunctionsThrowBadFunctionCall_data()
{
    QTest::addColumn<StateGraph>("graph");
    QTest::newRow("node") << graphOfOneNode(NodeFunction());
    StateGraph router = graphOfOneNode(returns({}));
    router.addConditionalEdges("a", RouterFunction(), {});
    QTest::newRow("router") << router;
    StateGraph startRouter = graphOfOneNode(returns({}));
    startRouter.addConditionalEdges("__start__", nullptr, {});
    QTest::newRow("router at the start") << startRouter;
}

void TestStateGraph::emptyFunctionsThrowBadFunctionCall()
{
    QFETCH(StateGraph, graph);
    CheckpointStore store;
    QVERIFY_EXCEPTION_THROWN(graph.run({}, "t", &store), std::bad_function_call);
    QVERIFY(store.isEmpty());
}

void TestStateGraph::runKeepsTheGraphThatANodeChanges()
{
    StateGraph graph = graphThatCountsToThree();
    graph.addNode("loop", [&graph](const QJsonObject &state) {
        graph.addNode("loop", returns({{"count", 100}}));
        graph.addConditionalEdges("loop", chooses("nowhere"), {});
        graph.addInterruptBefore("loop");
        graph.maxSteps = 1;
        return countUp(state);
    });
    const GraphRunResult result = graph.run({{"count", 0}});
    QCOMPARE(result.error, "");
    QVERIFY(!result.interrupted);
    QCOMPARE(result.state, (QJsonObject{{"count", 3}}));
    QVERIFY(graph.run({}).interrupted);
}

void TestStateGraph::runKeepsTheGraphThatANodeReplaces()
{
    const QString note(40, 'x');
    StateGraph graph = graphThatCountsToThree();
    graph.addNode("loop", [&graph, note](const QJsonObject &state) {
        graph = StateGraph();
        return mergedPlainly(countUp(state), {{"note", note}});
    });
    QCOMPARE(graph.run({{"count", 0}}).state, (QJsonObject{{"count", 3}, {"note", note}}));
    QCOMPARE(graph.run({}).error, "No edge from node '__start__'.");
}

void TestStateGraph::runKeepsTheGraphThatARouterReplaces()
{
    StateGraph graph = graphThatCountsToThree();
    const QMap<QString, QString> routes{{"more", "loop"}, {"done", "__end__"}};
    const auto router = [&graph, more = QString("more"), done = QString("done")](const QJsonObject &state) {
        graph = StateGraph();
        return state["count"].toInt() < 3 ? more : done;
    };
    graph.addConditionalEdges("loop", router, routes);
    QCOMPARE(graph.run({{"count", 0}}).state, (QJsonObject{{"count", 3}}));
}

void TestStateGraph::runSurvivesTheGraphThatANodeDestroys()
{
    const QString note(40, 'x');
    auto graph = std::make_unique<StateGraph>(graphThatCountsToThree());
    graph->addNode("loop", [&graph, note](const QJsonObject &state) {
        graph.reset();
        return mergedPlainly(countUp(state), {{"note", note}});
    });
    CheckpointStore store;
    const GraphRunResult result = graph->run({{"count", 0}}, "t", &store);
    QVERIFY(!graph);
    QCOMPARE(result.steps.size(), 3);
    QCOMPARE(store["t"], (QJsonObject{{"count", 3}, {"note", note}}));
}

void TestStateGraph::nodeMayRunItsGraphAgain()
{
    StateGraph graph;
    graph.addNode("a", [&graph](const QJsonObject &state) {
        const int depth = state["depth"].toInt();
        const int below = depth == 3 ? 0 : graph.run({{"depth", depth + 1}}).state["runs"].toInt();
        return QJsonObject{{"runs", below + 1}};
    });
    graph.addEdge("__start__", "a");
    graph.addEdge("a", "__end__");
    QCOMPARE(graph.run({{"depth", 0}}).state, (QJsonObject{{"depth", 0}, {"runs", 4}}));
}

void TestStateGraph::nodeMayChangeTheStore()
{
    CheckpointStore store{{"t", {{"old", 1}}}, {"other", {}}};
    const StateGraph graph = graphOfOneNode([&store](const QJsonObject &) {
        store = {{"t", {{"by the node", true}}}, {"more", {}}};
        return QJsonObject{{"ran", true}};
    });
    graph.run({}, "t", &store);
    QCOMPARE(store, (CheckpointStore{{"t", {{"old", 1}, {"ran", true}}}, {"more", {}}}));
}

void TestStateGraph::nodeMayEmptyTheStoreThatTheArgumentsLieIn()
{
    CheckpointStore store{{"thread", {{"old", "state"}}}};
    const StateGraph graph = graphOfOneNode([&store](const QJsonObject &) {
        store.clear();
        return QJsonObject{{"ran", true}};
    });
    graph.run(store.first(), store.firstKey(), &store);
    QCOMPARE(store, (CheckpointStore{{"thread", {{"old", "state"}, {"ran", true}}}}));
}

QTEST_APPLESS_MAIN(TestStateGraph)
#include "tst_stategraph.moc"
