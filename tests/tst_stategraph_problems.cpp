#include <qtagent/stategraph.h>

#include <QRandomGenerator>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StateGraph)

namespace {

// They are there before any code of this file runs.
const QMap<QString, QString> routesOfAReview{{"accept", EndNode}, {"again", "draft"}};
const QStringList virtualNodes{StartNode, EndNode};

const RouterFunction router = [](const QJsonObject &) { return QString(); };

/// __start__ -> draft -> review -> __end__ or back to draft
StateGraph soundGraph()
{
    StateGraph graph;
    graph.addNode("review", {});
    graph.addNode("draft", {});
    graph.addEdge(StartNode, "draft");
    graph.addEdge("draft", "review");
    graph.addConditionalEdges("review", router, routesOfAReview);
    graph.addInterruptBefore("review");
    return graph;
}

using Change = std::function<void(StateGraph *)>;

StateGraph changed(const Change &change)
{
    StateGraph graph = soundGraph();
    change(&graph);
    return graph;
}

} // namespace

Q_DECLARE_METATYPE(Change)

// What a graph tells of itself without being run.
class TestStateGraphProblems : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void virtualNodesHaveNames();
    void graphShowsWhatItWasBuiltOf();
    void graphShowsNothingWhereNothingWasAdded();
    void resultsWithTheSameFieldsAreEqual_data();
    void resultsWithTheSameFieldsAreEqual();

    void problemsNameWhatIsWrong_data();
    void problemsNameWhatIsWrong();
    void problemsComeByKindAndThenByName();
    void problemsShowNamesThatLookLikePlaceholders();
    void problemsOfALargeGraphAreFound();
    void everyErrorOfARunIsAProblemBefore();

    void fingerprintIsTheSameEverywhere_data();
    void fingerprintIsTheSameEverywhere();
    void fingerprintTellsGraphsApart_data();
    void fingerprintTellsGraphsApart();
    void fingerprintLeavesOutWhatMayChange_data();
    void fingerprintLeavesOutWhatMayChange();
};

void TestStateGraphProblems::virtualNodesHaveNames()
{
    QCOMPARE(virtualNodes, QStringList({"__start__", "__end__"}));
    QCOMPARE(routesOfAReview.value("accept"), "__end__");
}

void TestStateGraphProblems::graphShowsWhatItWasBuiltOf()
{
    StateGraph graph = soundGraph();
    graph.addEdge("review", "overridden");
    graph.addInterruptBefore("draft");
    QCOMPARE(graph.nodeNames(), QStringList({"draft", "review"}));
    QCOMPARE(graph.edges(),
             (QMap<QString, QString>{{"__start__", "draft"}, {"draft", "review"}, {"review", "overridden"}}));
    QCOMPARE(graph.routeSources(), QStringList{"review"});
    QCOMPARE(graph.routes("review"), routesOfAReview);
    QCOMPARE(graph.routes("draft"), (QMap<QString, QString>()));
    QCOMPARE(graph.interrupts(), QStringList({"review", "draft"}));
}

void TestStateGraphProblems::graphShowsNothingWhereNothingWasAdded()
{
    const StateGraph graph;
    QVERIFY(graph.nodeNames().isEmpty());
    QVERIFY(graph.edges().isEmpty());
    QVERIFY(graph.routeSources().isEmpty());
    QVERIFY(graph.interrupts().isEmpty());
    QCOMPARE(graph.problems(), QStringList{"No edge from node '__start__'."});
}

void TestStateGraphProblems::resultsWithTheSameFieldsAreEqual_data()
{
    const GraphStep step{"a", "route", {{"before", 1}}, {{"update", 1}}, {{"after", 1}}};
    QTest::addColumn<GraphRunResult>("changed");
    QTest::addColumn<bool>("isEqual");
    const auto add = [step](const char *name, const std::function<void(GraphRunResult *)> &change) {
        GraphRunResult result{{{"after", 1}}, {step}, true, "b", "error"};
        change(&result);
        QTest::newRow(name) << result << (qstrcmp(name, "nothing") == 0);
    };
    add("nothing", [](GraphRunResult *) {});
    add("state", [](GraphRunResult *result) { result->state = {}; });
    add("number of steps", [](GraphRunResult *result) { result->steps.clear(); });
    add("node", [](GraphRunResult *result) { result->steps[0].node = "x"; });
    add("route", [](GraphRunResult *result) { result->steps[0].route = "x"; });
    add("before", [](GraphRunResult *result) { result->steps[0].before = {}; });
    add("update", [](GraphRunResult *result) { result->steps[0].update = {}; });
    add("after", [](GraphRunResult *result) { result->steps[0].after = {}; });
    add("interrupted", [](GraphRunResult *result) { result->interrupted = false; });
    add("interruptedNode", [](GraphRunResult *result) { result->interruptedNode = "x"; });
    add("error", [](GraphRunResult *result) { result->error = "x"; });
}

void TestStateGraphProblems::resultsWithTheSameFieldsAreEqual()
{
    QFETCH(GraphRunResult, changed);
    QFETCH(bool, isEqual);
    const GraphStep step{"a", "route", {{"before", 1}}, {{"update", 1}}, {{"after", 1}}};
    const GraphRunResult result{{{"after", 1}}, {step}, true, "b", "error"};
    QCOMPARE(changed == result, isEqual);
    QCOMPARE(changed != result, !isEqual);
}

void TestStateGraphProblems::problemsNameWhatIsWrong_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("problems");
    const auto add = [](const char *name, const QStringList &problems, const Change &change) {
        QTest::newRow(name) << change << problems;
    };
    add("none", {}, [](StateGraph *) {});
    add("a node called as the start", {"'__start__' is no name for a node."},
        [](StateGraph *graph) { graph->addNode(StartNode, {}); });
    add("a node called as the end", {"'__end__' is no name for a node."},
        [](StateGraph *graph) { graph->addNode("__end__", {}); });
    add("a misspelt target shows twice", {"Missing graph node: reviwe", "Node 'review' is never reached."},
        [](StateGraph *graph) { graph->addEdge("draft", "reviwe"); });
    add("a misspelt target of a route", {"Missing graph node: drafft"}, [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"accept", EndNode}, {"again", "drafft"}});
    });
    add("an edge back to the start", {"Missing graph node: __start__"}, [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"again", StartNode}});
    });
    add("a target that two edges lead to shows once", {"Missing graph node: ghost"}, [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"a", "ghost"}, {"b", "ghost"}, {"c", "draft"}});
    });
    add("a node without a way out", {"No edge from node 'last'."}, [](StateGraph *graph) {
        graph->addNode("last", {});
        graph->addConditionalEdges("review", router, {{"accept", "last"}, {"again", "draft"}});
    });
    add("an empty table of routes", {"No route from node 'review'."},
        [](StateGraph *graph) { graph->addConditionalEdges("review", router, {}); });
    add("a misspelt source", {"Edge from unknown node 'reviwe'."},
        [](StateGraph *graph) { graph->addEdge("reviwe", EndNode); });
    add("a misspelt source of routes", {"Edge from unknown node 'reviwe'."}, [](StateGraph *graph) {
        graph->addConditionalEdges("reviwe", router, {{"a", EndNode}});
    });
    add("both edges from an unknown node show once", {"Edge from unknown node 'x'."}, [](StateGraph *graph) {
        graph->addEdge("x", EndNode);
        graph->addConditionalEdges("x", router, {{"a", EndNode}});
    });
    add("an edge from the end", {"Edge from unknown node '__end__'."},
        [](StateGraph *graph) { graph->addEdge(EndNode, "draft"); });
    add("a misspelt interrupt", {"Interrupt before unknown node 'reviwe'."},
        [](StateGraph *graph) { graph->addInterruptBefore("reviwe"); });
    add("interrupts before what is no node",
        {"Interrupt before unknown node '__end__'.", "Interrupt before unknown node '__start__'."},
        [](StateGraph *graph) {
            graph->addInterruptBefore(StartNode);
            graph->addInterruptBefore(EndNode);
        });
    add("a node that nothing leads to", {"Node 'island' is never reached."}, [](StateGraph *graph) {
        graph->addNode("island", {});
        graph->addEdge("island", EndNode);
    });
    add("a loop that nothing leads to", {"Node 'a' is never reached.", "Node 'b' is never reached."},
        [](StateGraph *graph) {
            graph->addNode("a", {});
            graph->addNode("b", {});
            graph->addEdge("a", "b");
            graph->addEdge("b", "a");
        });
    add("a plain edge that a route overrides leads nowhere", {"Node 'island' is never reached."},
        [](StateGraph *graph) {
            graph->addNode("island", {});
            graph->addEdge("island", EndNode);
            graph->addEdge("review", "island");
        });
    add("a forgotten node does not hide what it leads to",
        {"Missing graph node: send", "Edge from unknown node 'send'."}, [](StateGraph *graph) {
            graph->addConditionalEdges("review", router, {{"accept", "send"}, {"again", "draft"}});
            graph->addNode("log", {});
            graph->addEdge("send", "log");
            graph->addEdge("log", EndNode);
        });
    add("no way leads on from the end", {"Edge from unknown node '__end__'.", "Node 'log' is never reached."},
        [](StateGraph *graph) {
            graph->addNode("log", {});
            graph->addEdge(EndNode, "log");
            graph->addEdge("log", EndNode);
        });
}

void TestStateGraphProblems::problemsNameWhatIsWrong()
{
    QFETCH(Change, change);
    QTEST(changed(change).problems(), "problems");
}

void TestStateGraphProblems::problemsComeByKindAndThenByName()
{
    StateGraph graph;
    for (const char *name : {"b", "a", "Z", "__start__", "__end__", "open", "empty"})
        graph.addNode(name, {});
    graph.addEdge(StartNode, "open");
    graph.addEdge("a", "ghost 2");
    graph.addEdge("b", "ghost 1");
    graph.addEdge("Z", EndNode);
    graph.addEdge("stranger 2", EndNode);
    graph.addConditionalEdges("stranger 1", router, {{"x", "Z"}});
    graph.addConditionalEdges("empty", router, {});
    graph.addInterruptBefore("nobody 2");
    graph.addInterruptBefore("nobody 1");
    QCOMPARE(graph.problems(), QStringList({
                                   "'__end__' is no name for a node.",
                                   "'__start__' is no name for a node.",
                                   "Missing graph node: ghost 1",
                                   "Missing graph node: ghost 2",
                                   "No edge from node 'open'.",
                                   "No route from node 'empty'.",
                                   "Edge from unknown node 'stranger 1'.",
                                   "Edge from unknown node 'stranger 2'.",
                                   "Interrupt before unknown node 'nobody 1'.",
                                   "Interrupt before unknown node 'nobody 2'.",
                                   "Node 'Z' is never reached.",
                                   "Node 'a' is never reached.",
                                   "Node 'b' is never reached.",
                                   "Node 'empty' is never reached.",
                               }));
}

void TestStateGraphProblems::problemsShowNamesThatLookLikePlaceholders()
{
    StateGraph graph;
    graph.addEdge(StartNode, "%1 %2");
    QCOMPARE(graph.problems(), QStringList{"Missing graph node: %1 %2"});
}

void TestStateGraphProblems::problemsOfALargeGraphAreFound()
{
    constexpr int size = 20000;
    StateGraph graph;
    graph.addEdge(StartNode, "0");
    for (int i = 0; i < size; ++i) {
        graph.addNode(QString::number(i), {});
        graph.addEdge(QString::number(i), QString::number(i + 1));
    }
    QCOMPARE(graph.problems(), QStringList{"Missing graph node: 20000"});
}

void TestStateGraphProblems::everyErrorOfARunIsAProblemBefore()
{
    QRandomGenerator random(1);
    const auto someName = [&random] { return QString(QChar('a' + random.bounded(6))); };
    QSet<QString> errors;
    for (int round = 0; round < 2000; ++round) {
        StateGraph graph;
        graph.maxSteps = 20;
        graph.addEdge(StartNode, someName());
        for (int i = 0; i < 8; ++i) {
            const QMap<QString, QString> routes{{"0", someName()}, {"1", someName()}, {"2", EndNode}};
            const auto choose = [&random](const QJsonObject &) { return QString::number(random.bounded(3)); };
            graph.addNode(someName(), [](const QJsonObject &) { return QJsonObject(); });
            graph.addEdge(someName(), someName());
            graph.addConditionalEdges(someName(), choose, routes);
        }
        const GraphRunResult result = graph.run({});
        const QStringList problems = graph.problems();
        for (const GraphStep &step : result.steps)
            QVERIFY(!problems.contains(QString("Node '%1' is never reached.").arg(step.node)));
        if (result.error.isEmpty() || result.error == "Graph exceeded max steps: 20")
            continue;
        QVERIFY2(problems.contains(result.error), qPrintable(result.error));
        errors.insert(result.error.left(10));
    }
    QCOMPARE(errors, (QSet<QString>{"Missing gr", "No edge fr"}));
}

void TestStateGraphProblems::fingerprintIsTheSameEverywhere_data()
{
    QTest::addColumn<StateGraph>("graph");
    QTest::addColumn<QString>("fingerprint");
    QTest::newRow("an empty graph")
        << StateGraph() << QString("523b1dd96ddca658398e97624db2a37be0d0fb527cac88bc8fe5d3c10958ebd2");
    QTest::newRow("a graph with routes")
        << soundGraph() << QString("e10bbf68bcd8184982efd23df06a0778372d90e055333d139536032c04b0caf5");
    StateGraph graph;
    graph.addNode("审核", {});
    graph.addNode(QString(QChar(0xd800)), {});
    graph.addEdge(StartNode, "审核");
    QTest::newRow("names beyond ASCII")
        << graph << QString("b7a9cda1413074da77fd03968f673257bfb680a1bb7ad6bdfb925d3bf7cebedd");
}

void TestStateGraphProblems::fingerprintIsTheSameEverywhere()
{
    QFETCH(StateGraph, graph);
    QTEST(graph.fingerprint(), "fingerprint");
}

void TestStateGraphProblems::fingerprintTellsGraphsApart_data()
{
    QTest::addColumn<Change>("change");
    const auto add = [](const char *name, const Change &change) { QTest::newRow(name) << change; };
    add("another node", [](StateGraph *graph) { graph->addNode("send", {}); });
    add("another edge", [](StateGraph *graph) { graph->addEdge("review", EndNode); });
    add("another target", [](StateGraph *graph) { graph->addEdge("draft", EndNode); });
    add("another route", [](StateGraph *graph) {
        graph->addConditionalEdges("review", router,
                                   {{"accept", EndNode}, {"again", "draft"}, {"stop", EndNode}});
    });
    add("another key", [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"accept", EndNode}, {"redo", "draft"}});
    });
    add("another target of a route", [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"accept", EndNode}, {"again", "review"}});
    });
    add("targets of routes swapped", [](StateGraph *graph) {
        graph->addConditionalEdges("review", router, {{"accept", "draft"}, {"again", EndNode}});
    });
    add("an empty table", [](StateGraph *graph) { graph->addConditionalEdges("draft", router, {}); });
    add("another letter case", [](StateGraph *graph) { graph->addEdge("draft", "Review"); });
}

void TestStateGraphProblems::fingerprintTellsGraphsApart()
{
    QFETCH(Change, change);
    QVERIFY(changed(change).fingerprint() != soundGraph().fingerprint());
}

void TestStateGraphProblems::fingerprintLeavesOutWhatMayChange_data()
{
    QTest::addColumn<Change>("change");
    const auto add = [](const char *name, const Change &change) { QTest::newRow(name) << change; };
    add("interrupts", [](StateGraph *graph) { graph->addInterruptBefore("draft"); });
    add("the limit", [](StateGraph *graph) { graph->maxSteps = 1; });
    add("the functions", [](StateGraph *graph) {
        graph->addNode("draft", [](const QJsonObject &state) { return state; });
        graph->addConditionalEdges("review", {}, routesOfAReview);
    });
    add("the order of building", [](StateGraph *graph) {
        *graph = StateGraph();
        graph->addConditionalEdges("review", router, routesOfAReview);
        graph->addEdge("draft", "review");
        graph->addEdge(StartNode, "draft");
        graph->addNode("draft", {});
        graph->addNode("review", {});
    });
}

void TestStateGraphProblems::fingerprintLeavesOutWhatMayChange()
{
    QFETCH(Change, change);
    QCOMPARE(changed(change).fingerprint(), soundGraph().fingerprint());
}

QTEST_APPLESS_MAIN(TestStateGraphProblems)
#include "tst_stategraph_problems.moc"
