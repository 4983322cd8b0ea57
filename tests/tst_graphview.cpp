#include "support/graphfixture.h"
#include "support/pictured.h"

#include <qtagent/widgets/graphview.h>

#include <QLineEdit>
#include <QScrollBar>
#include <QVBoxLayout>
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
    void loopIsCounted();
    void failedRunMarksWhereItFailed();
    void stepsPlayARunBack();
    void stepIsBounded();
    void newGraphForgetsTheResult();
    void resultOfAnotherGraphIsPassedOver();
    void problemsAreShown();
    void runIsFollowed();
    void failureInsideANodeIsFollowed();
    void followedRunMayDie();
    void followEndsWithNull();
    void nodesAreSelectedByKeysAndClicks();
    void keysZoom();
    void wholeGraphIsShownWhereItIsReadable();
    void tabLeavesTheView();
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
}

void TestGraphView::loopIsCounted()
{
    GraphView view;
    view.setGraph(Pictured::counter());
    view.showResult(Pictured::counter().run({}));
    QVERIFY(told(&view, "count").startsWith("count：已运行 3 次；again → count；"));
    QVERIFY(told(&view, "__end__").startsWith("__end__：已运行"));
    QVERIFY(textsIn(view.toSvg()).contains("×3"));
}

void TestGraphView::failedRunMarksWhereItFailed()
{
    GraphView view;
    view.setGraph(Pictured::faulty());
    view.showResult(Pictured::faulty().run({}));
    QVERIFY(told(&view, "router").startsWith("router：出错；"));
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
    for (const QString &problem : Pictured::faulty().problems())
        QVERIFY2(texts.contains(problem), qPrintable(problem));
    QCOMPARE(told(&view, "mergee"), "mergee：未运行；Missing graph node: mergee");
    QCOMPARE(told(&view, "unreached"),
             "unreached：未运行；No edge from node 'unreached'.；Node 'unreached' is never reached.");
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
    QVERIFY(told(&view, "__end__").startsWith("__end__：已运行"));
    fixture.start();
    QCOMPARE(told(&view, "b"), "b：正在运行；→ __end__");
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

void TestGraphView::nodesAreSelectedByKeysAndClicks()
{
    GraphView view;
    view.resize(600, 600);
    view.setGraph(Pictured::agent());
    view.show();
    QTest::keyClick(&view, Qt::Key_Down);
    QCOMPARE(view.selectedNode(), "__start__");
    QTest::keyClick(&view, Qt::Key_Down);
    QCOMPARE(view.selectedNode(), "agent");
    QTest::keyClick(&view, Qt::Key_Down);
    const QString middle = view.selectedNode();
    QTest::keyClick(&view, Qt::Key_Right);
    const QString right = view.selectedNode();
    QVERIFY(right != middle);
    QTest::keyClick(&view, Qt::Key_Left);
    QCOMPARE(view.selectedNode(), middle);
    QTest::keyClick(&view, Qt::Key_Up);
    QTest::keyClick(&view, Qt::Key_Up);
    QTest::keyClick(&view, Qt::Key_Up);
    QCOMPARE(view.selectedNode(), "__start__");

    const QPoint start = view.mapFromScene(view.sceneRect().center().x(), view.sceneRect().top() + 34);
    view.selectNode({});
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, start);
    QCOMPARE(view.selectedNode(), "__start__");
}

void TestGraphView::keysZoom()
{
    GraphView view;
    view.resize(400, 400);
    view.setGraph(Pictured::review());
    view.show();
    const qreal atFirst = view.transform().m11();
    QTest::keyClick(&view, Qt::Key_Plus);
    QVERIFY(view.transform().m11() > atFirst);
    view.resize(500, 500); // what the user has chosen stays
    QVERIFY(view.transform().m11() > atFirst);
    QTest::keyClick(&view, Qt::Key_Minus);
    QTest::keyClick(&view, Qt::Key_Minus);
    QVERIFY(view.transform().m11() < atFirst);
    view.resize(400, 400);
    QTest::keyClick(&view, Qt::Key_0);
    QCOMPARE(view.transform().m11(), atFirst);
    for (int i = 0; i < 100; ++i)
        QTest::keyClick(&view, Qt::Key_Minus);
    QVERIFY(view.transform().m11() > 0.05);
}

void TestGraphView::wholeGraphIsShownWhereItIsReadable()
{
    GraphView view;
    view.resize(600, 600);
    view.show();
    view.setGraph(Pictured::review());
    const QRectF shown = view.mapToScene(view.viewport()->rect()).boundingRect();
    QVERIFY(shown.contains(view.sceneRect()));
    QVERIFY(view.transform().m11() <= 1.5);
    view.setGraph(Pictured::chain(100));
    QCOMPARE(view.transform().m11(), 1.0);
    QCOMPARE(view.verticalScrollBar()->value(), view.verticalScrollBar()->minimum());
}

void TestGraphView::tabLeavesTheView()
{
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    auto *view = new GraphView;
    auto *edit = new QLineEdit;
    layout->addWidget(view);
    layout->addWidget(edit);
    view->setGraph(Pictured::review());
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    view->setFocus();
    QTest::keyClick(view, Qt::Key_Tab);
    QVERIFY(edit->hasFocus());
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
