#include "support/graphfixture.h"
#include "support/pictured.h"

#include <qtagent/widgets/graphview.h>

#include <QXmlStreamReader>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// The description of a node, as it is told when the node is selected.
QString told(GraphView *view, const QString &node)
{
    view->selectNode(node);
    return view->accessibleDescription();
}

QStringList textsIn(const QByteArray &svg, QStringList *elements = nullptr)
{
    QXmlStreamReader reader(svg);
    QStringList texts;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QString name = reader.name().toString();
        if (elements && !elements->contains(name))
            elements->append(name);
        if (name == "text")
            texts.append(reader.readElementText());
    }
    return reader.hasError() ? QStringList(reader.errorString()) : texts;
}

} // namespace

class TestGraphView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void viewWithoutAGraphDoesNothing();
    void graphHasNoMarksAtFirst();
    void resultMarksWhatRanAndWhereItStopped();
    void runThatStopsBeforeItsFirstNodeHasLeftTheStart();
    void graphWithoutNodesRunsToItsEnd();
    void loopIsCounted();
    void failedRunMarksWhereItFailed_data();
    void failedRunMarksWhereItFailed();
    void failedRunIsMarkedAsItEnds();
    void stepsPlayARunBack();
    void stepIsBounded();
    void newGraphForgetsTheResult();
    void resultOfAnotherGraphIsPassedOver();
    void problemsAreShown();
    void problemBelongsToItsOwnNode();
    void runIsFollowed();
    void runInFlightIsFollowedFromWhereItStands();
    void followedLoopIsCounted();
    void stepMayBeSetWhileARunIsFollowed();
    void runThatStartsAgainInASlotIsFollowed();
    void loopInAnEarlierSlotDoesNotMislead_data();
    void loopInAnEarlierSlotDoesNotMislead();
    void failureInsideANodeIsFollowed();
    void followedRunMayDie();
    void followEndsWithNull();
    void svgHoldsThePictureAndNoMore();
    void svgIsReadWhateverTheNames();
    void samePictureAtEveryCall();
    void paletteMayChange();
};

void TestGraphView::viewWithoutAGraphDoesNothing()
{
    GraphView view;
    view.show();
    QCOMPARE(view.accessibleName(), "流程图");
    QCOMPARE(view.currentStep(), -1);
    view.setStep(3);
    QCOMPARE(view.currentStep(), -1);
    view.selectNode("a");
    QTest::keyClick(&view, Qt::Key_Down);
    QTest::keyClick(&view, Qt::Key_0);
    view.showResult({{}, {{"a", {}, {}, {}, {}}}, false, {}, {}});
    QCOMPARE(view.selectedNode(), "");
    QVERIFY(!view.toSvg().isEmpty());
}

void TestGraphView::graphHasNoMarksAtFirst()
{
    GraphView view;
    view.setGraph(Pictured::review());
    view.setStep(0);
    QCOMPARE(view.currentStep(), -1);
    QCOMPARE(told(&view, "draft"), "draft：未运行；→ review");
    QCOMPARE(told(&view, "review"), "review：未运行；运行前暂停；again → draft；ok → send");
    QCOMPARE(told(&view, "nobody"), "");
}

void TestGraphView::resultMarksWhatRanAndWhereItStopped()
{
    GraphView view;
    view.setGraph(Pictured::review());
    view.showResult(Pictured::review().run({}));
    QCOMPARE(view.currentStep(), 1);
    QCOMPARE(told(&view, "draft"), "draft：已运行 1 次；→ review");
    QCOMPARE(told(&view, "review"), "review：等待继续；运行前暂停；again → draft；ok → send");
    QCOMPARE(told(&view, "send"), "send：未运行；→ __end__");
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；→ draft");
    QCOMPARE(told(&view, "__end__"), "__end__：未运行");
}

void TestGraphView::runThatStopsBeforeItsFirstNodeHasLeftTheStart()
{
    StateGraph graph = Pictured::review();
    graph.addInterruptBefore("draft");
    GraphView view;
    view.setGraph(graph);
    view.showResult(graph.run({}));
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；→ draft");
    QCOMPARE(told(&view, "draft"), "draft：等待继续；运行前暂停；→ review");
}

void TestGraphView::graphWithoutNodesRunsToItsEnd()
{
    StateGraph graph;
    graph.addEdge(StartNode, EndNode);
    GraphView view;
    view.setGraph(graph);
    view.showResult(graph.run({}));
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；→ __end__");
    QCOMPARE(told(&view, "__end__"), "__end__：已运行 1 次");
}

void TestGraphView::loopIsCounted()
{
    GraphView view;
    view.setGraph(Pictured::counter());
    view.showResult(Pictured::counter().run({}));
    QVERIFY(told(&view, "count").startsWith("count：已运行 3 次；again → count；"));
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；→ count");
    QCOMPARE(told(&view, "__end__"), "__end__：已运行 1 次");
    QVERIFY(textsIn(view.toSvg()).contains("×3"));
}

void TestGraphView::failedRunMarksWhereItFailed_data()
{
    const GraphStep ranA{"a", {}, {}, {}, {}};
    const GraphStep ranB{"b", {}, {}, {}, {}};
    QTest::addColumn<QVector<GraphStep>>("steps");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("failed");
    const auto row = [](const char *name, const QVector<GraphStep> &steps, const QString &error,
                        const QString &failed) { QTest::newRow(name) << steps << error << failed; };
    row("no edge from the start", {}, "No edge from node '__start__'.", "__start__");
    row("no route from the start", {}, "No route 'x' from node '__start__'.", "__start__");
    row("the start threw", {}, "Node '__start__' threw: x", "__start__");
    row("no edge from a node", {ranA, ranB}, "No edge from node 'b'.", "b");
    row("no route from a node", {ranA, ranB}, "No route 'x' from node 'b'.", "b");
    row("a missing node", {ranA}, "Missing graph node: b", "b");
    row("a missing node that the picture does not have", {ranA}, "Missing graph node: c", "a");
    row("a node failed", {ranA}, "Node 'b' failed: broken", "b");
    row("a node that was resumed failed", {}, "Node 'b' failed: broken", "b");
    row("a node threw", {ranA}, "Node 'b' threw: unknown exception", "b");
    row("a branch failed", {ranA}, "Branch 'x' of node 'b' failed: broken", "b");
    row("max steps", {ranA}, "Graph exceeded max steps: 1", "a");
    row("no steps allowed", {}, "Graph exceeded max steps: 0", "");
    row("not saved", {ranA}, "Checkpoint of thread 't' not saved: disk full", "a");
    row("not saved at the start", {}, "Checkpoint of thread 't' not saved: disk full", "");
    row("not read", {}, "Checkpoint of thread 't' not read: no connection", "");
    row("taken over", {ranA}, "Thread 't' was taken over.", "a");
    row("running elsewhere", {}, "Thread 't' is running elsewhere.", "");
    row("no checkpoint", {}, "No checkpoint of thread 't'.", "");
    row("a changed graph", {}, "The graph of thread 't' has changed.", "");
    row("nothing to resume", {}, "Nothing to resume.", "");
}

void TestGraphView::failedRunMarksWhereItFailed()
{
    QFETCH(QVector<GraphStep>, steps);
    QFETCH(QString, error);
    QFETCH(QString, failed);
    GraphView view;
    view.setGraph(twoNodes());
    view.showResult({{}, steps, false, {}, error});
    QStringList found;
    for (const QString &node : {QString("__start__"), QString("a"), QString("b"), QString("__end__")}) {
        if (told(&view, node).contains("：出错"))
            found.append(node);
    }
    QCOMPARE(found.join(' '), failed);
    QVERIFY(told(&view, "__end__").startsWith("__end__：未运行"));
}

void TestGraphView::failedRunIsMarkedAsItEnds()
{
    GraphView view;
    view.setGraph(Pictured::faulty());
    view.showResult(Pictured::faulty().run({}));
    QCOMPARE(told(&view, "router"), "router：出错；none → mergee；泵 → pumps；阀门 → valves");
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；a → router；skip → merge");
}

void TestGraphView::stepsPlayARunBack()
{
    GraphView view;
    view.setGraph(Pictured::counter());
    view.showResult(Pictured::counter().run({}));
    view.setStep(0);
    QVERIFY(told(&view, "count").startsWith("count：正在运行"));
    view.setStep(3);
    QVERIFY(told(&view, "count").startsWith("count：已运行 3 次"));
    QVERIFY(told(&view, "report").startsWith("report：正在运行"));
    view.setStep(-1);
    QVERIFY(told(&view, "count").startsWith("count：未运行"));
    QVERIFY(told(&view, "report").startsWith("report：未运行"));
}

void TestGraphView::stepIsBounded()
{
    GraphView view;
    view.setGraph(Pictured::review());
    view.showResult(Pictured::review().run({}));
    view.setStep(100);
    QCOMPARE(view.currentStep(), 1);
    QVERIFY(told(&view, "review").startsWith("review：等待继续"));
    view.setStep(-100);
    QCOMPARE(view.currentStep(), -1);
}

void TestGraphView::newGraphForgetsTheResult()
{
    GraphView view;
    view.setGraph(Pictured::review());
    view.showResult(Pictured::review().run({}));
    view.selectNode("draft");
    view.setGraph(Pictured::review());
    QCOMPARE(view.currentStep(), -1);
    QCOMPARE(view.selectedNode(), "");
    QCOMPARE(told(&view, "draft"), "draft：未运行；→ review");
}

void TestGraphView::resultOfAnotherGraphIsPassedOver()
{
    GraphView view;
    view.setGraph(Pictured::review());
    view.showResult(Pictured::chain(5).run({}));
    for (int step = -1; step <= 5; ++step)
        view.setStep(step);
    QCOMPARE(told(&view, "draft"), "draft：未运行；→ review");
}

void TestGraphView::problemsAreShown()
{
    GraphView view;
    view.setGraph(Pictured::faulty());
    const QStringList texts = textsIn(view.toSvg());
    const QStringList problems{"'__end__' is no name for a node.",  "Missing graph node: mergee",
                               "No edge from node 'unreached'.",    "No route from node 'stuck'.",
                               "Edge from unknown node 'valvess'.", "Interrupt before unknown node 'nobody'.",
                               "Node 'stuck' is never reached.",    "Node 'unreached' is never reached."};
    QCOMPARE(Pictured::faulty().problems(), problems);
    QCOMPARE(texts.mid(texts.size() - problems.size()), problems);
    QCOMPARE(told(&view, "mergee"), "mergee：未运行；Missing graph node: mergee");
    QCOMPARE(told(&view, "__end__"), "__end__：未运行；'__end__' is no name for a node.");
    QCOMPARE(told(&view, "stuck"),
             "stuck：未运行；No route from node 'stuck'.；Node 'stuck' is never reached.");
    QCOMPARE(told(&view, "valvess"), "valvess：未运行；→ stuck；Edge from unknown node 'valvess'.");
    QCOMPARE(told(&view, "unreached"),
             "unreached：未运行；No edge from node 'unreached'.；Node 'unreached' is never reached.");
}

// The names of some nodes are in the problems of others.
void TestGraphView::problemBelongsToItsOwnNode()
{
    StateGraph graph;
    Pictured::addNodes(&graph, {"a", "b: c", "c"});
    graph.addEdge(StartNode, "a");
    graph.addEdge("a", "c");
    graph.addEdge("c", EndNode);
    graph.addEdge("b: c", "a' or 'c");
    GraphView view;
    view.setGraph(graph);
    QCOMPARE(told(&view, "a"), "a：未运行；→ c");
    QCOMPARE(told(&view, "c"), "c：未运行；→ __end__");
    QCOMPARE(told(&view, "b: c"), "b: c：未运行；→ a' or 'c；Node 'b: c' is never reached.");
    QCOMPARE(told(&view, "a' or 'c"), "a' or 'c：未运行；Missing graph node: a' or 'c");
}

void TestGraphView::runIsFollowed()
{
    GraphView view;
    GraphFixture fixture;
    QPointer<GraphTask> task;
    fixture.run->setAsyncNode("b", keepsIn(&task));
    view.follow(fixture.run);
    QCOMPARE(told(&view, "b"), "b：未运行；→ __end__");
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：正在运行；→ __end__");
    task->finish({});
    fixture.waitForEnd();
    QCOMPARE(told(&view, "b"), "b：已运行 1 次；→ __end__");
    QCOMPARE(told(&view, "__start__"), "__start__：已运行 1 次；→ a");
    QCOMPARE(told(&view, "__end__"), "__end__：已运行 1 次");
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：正在运行；→ __end__");
    QCOMPARE(told(&view, "__end__"), "__end__：未运行");
    fixture.run->cancel();
    QCOMPARE(told(&view, "b"), "b：未运行；→ __end__");
}

void TestGraphView::runInFlightIsFollowedFromWhereItStands()
{
    GraphView view;
    GraphFixture fixture;
    QPointer<GraphTask> task;
    fixture.run->setAsyncNode("b", keepsIn(&task));
    fixture.start();
    view.follow(fixture.run);
    QCOMPARE(view.currentStep(), 1);
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：正在运行；→ __end__");
    task->finish({});
    fixture.waitForEnd();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：已运行 1 次；→ __end__");
}

void TestGraphView::followedLoopIsCounted()
{
    GraphView view;
    GraphFixture fixture(Pictured::counter());
    view.follow(fixture.run);
    QStringList counts;
    QObject::connect(fixture.run, &GraphRun::nodeStarted, &view,
                     [&] { counts.append(told(&view, "count").section(QString("；"), 0, 0)); });
    fixture.start();
    QCOMPARE(counts,
             QStringList({"count：正在运行", "count：正在运行", "count：正在运行", "count：已运行 3 次"}));
    QCOMPARE(view.currentStep(), 4);
    view.setStep(1);
    QVERIFY(told(&view, "report").startsWith("report：未运行"));
}

// Whoever has set another step sees the run go on at its next one.
void TestGraphView::stepMayBeSetWhileARunIsFollowed()
{
    GraphView view;
    GraphFixture fixture;
    QPointer<GraphTask> task;
    fixture.run->setAsyncNode("b", keepsIn(&task));
    view.follow(fixture.run);
    fixture.start();
    view.setStep(-1);
    QCOMPARE(told(&view, "a"), "a：未运行；→ b");
    task->finish({});
    fixture.waitForEnd();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：已运行 1 次；→ __end__");
}

void TestGraphView::runThatStartsAgainInASlotIsFollowed()
{
    GraphView view;
    GraphFixture fixture;
    fixture.onEntry("step a", [&fixture] { fixture.run->start({}); });
    view.follow(fixture.run);
    fixture.start();
    QCOMPARE(view.currentStep(), 2);
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：已运行 1 次；→ __end__");
}

void TestGraphView::loopInAnEarlierSlotDoesNotMislead_data()
{
    QTest::addColumn<QString>("entry");
    QTest::newRow("started") << "started a";
    QTest::newRow("step") << "step a";
}

// The run has gone on, or is over, when the view hears of it.
void TestGraphView::loopInAnEarlierSlotDoesNotMislead()
{
    QFETCH(QString, entry);
    GraphView view;
    GraphFixture fixture;
    QPointer<GraphTask> task;
    fixture.run->setAsyncNode("b", keepsIn(&task));
    fixture.onEntry(entry, [] { runUntilQuiet(); });
    view.follow(fixture.run);
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：正在运行；→ __end__");
    task->finish({});
    runUntilQuiet();
    fixture.run->setAsyncNode("b", finishesWith({}));
    fixture.onEntry(entry, [] { runUntilQuiet(); });
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    QCOMPARE(told(&view, "b"), "b：已运行 1 次；→ __end__");
    QCOMPARE(told(&view, "__end__"), "__end__：已运行 1 次");
}

void TestGraphView::failureInsideANodeIsFollowed()
{
    GraphView view;
    GraphFixture fixture;
    fixture.run->setAsyncNode("a", [](GraphTask *task) { task->fail("broken"); });
    view.follow(fixture.run);
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：出错；→ b");
}

void TestGraphView::followedRunMayDie()
{
    GraphView view;
    GraphFixture fixture;
    view.follow(fixture.run);
    fixture.start();
    delete fixture.run;
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
    view.follow(nullptr);
    QCOMPARE(told(&view, "a"), "a：已运行 1 次；→ b");
}

void TestGraphView::followEndsWithNull()
{
    GraphView view;
    GraphFixture fixture;
    view.follow(fixture.run);
    view.follow(nullptr);
    fixture.start();
    QCOMPARE(told(&view, "a"), "a：未运行；→ b");
}

void TestGraphView::svgHoldsThePictureAndNoMore()
{
    GraphView view;
    view.setGraph(Pictured::longNames());
    QStringList elements;
    const QStringList texts = textsIn(view.toSvg(), &elements);
    QVERIFY(texts.contains("<b>&\"markup\"</b> "));
    elements.sort();
    QCOMPARE(elements, QStringList({"path", "svg", "text"}));
    QVERIFY(!view.toSvg().contains("href"));
}

void TestGraphView::svgIsReadWhateverTheNames()
{
    StateGraph graph;
    for (const QString &name :
         {QString(QChar(0)), QString(QChar(0xfffe)), QString(QChar(0xd800)), QString("]]>")})
        graph.addNode(name, {});
    GraphView view;
    view.setGraph(graph);
    QVERIFY(textsIn(view.toSvg()).contains("]]>"));
}

void TestGraphView::samePictureAtEveryCall()
{
    GraphView view;
    GraphView other;
    view.setGraph(Pictured::web(40));
    other.setGraph(Pictured::web(40));
    QCOMPARE(view.toSvg(), other.toSvg());
}

void TestGraphView::paletteMayChange()
{
    GraphView view;
    view.setGraph(Pictured::review());
    const QByteArray light = view.toSvg();
    QPalette dark;
    dark.setColor(QPalette::Base, Qt::black);
    dark.setColor(QPalette::Text, Qt::white);
    view.setPalette(dark);
    QVERIFY(view.toSvg() != light);
    QCOMPARE(view.backgroundBrush().color(), QColor(Qt::black));
}

QTEST_MAIN(TestGraphView)
#include "tst_graphview.moc"
