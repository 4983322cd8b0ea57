#include "support/pictured.h"

#include <qtagent/widgets/graphview.h>

#include <QLineEdit>
#include <QScrollBar>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What keys and the mouse do in the picture of a graph.
class TestGraphViewInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nodesAreSelectedByKeysAndClicks();
    void keysZoom();
    void wheelZoomsWithCtrlAndScrollsWithout();
    void zoomIsBounded_data();
    void zoomIsBounded();
    void draggingMovesThePicture();
    void toolTipTellsTheNode();
    void wholeGraphIsShownWhereItIsReadable();
    void tabLeavesTheView();
};

namespace {

QPoint middleOf(const GraphView &view, int row)
{
    constexpr qreal firstRow = 34;
    constexpr qreal rows = 108; // boxHeight + rowGap + an empty layer + rowGap
    return view.mapFromScene(view.sceneRect().center().x(), view.sceneRect().top() + firstRow + row * rows);
}

void turnWheel(GraphView *view, int steps, Qt::KeyboardModifiers modifiers)
{
    const QPointF place = view->viewport()->rect().center();
    QWheelEvent event(place, view->viewport()->mapToGlobal(place.toPoint()), {}, {0, 120 * steps},
                      Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(view->viewport(), &event);
}

} // namespace

void TestGraphViewInput::nodesAreSelectedByKeysAndClicks()
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

void TestGraphViewInput::keysZoom()
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

void TestGraphViewInput::wheelZoomsWithCtrlAndScrollsWithout()
{
    GraphView view;
    view.resize(400, 400);
    view.setGraph(Pictured::chain(100));
    view.show();
    turnWheel(&view, -1, {});
    QCOMPARE(view.transform().m11(), 1.0);
    QVERIFY(view.verticalScrollBar()->value() > view.verticalScrollBar()->minimum());
    turnWheel(&view, 1, Qt::ControlModifier);
    QCOMPARE(view.transform().m11(), 1.2);
    turnWheel(&view, -1, Qt::ControlModifier);
    turnWheel(&view, -1, Qt::ControlModifier);
    QVERIFY(view.transform().m11() < 1);
}

void TestGraphViewInput::zoomIsBounded_data()
{
    QTest::addColumn<Qt::Key>("key");
    QTest::addColumn<qreal>("bound");
    QTest::newRow("smaller") << Qt::Key_Minus << 0.1;
    QTest::newRow("larger") << Qt::Key_Plus << 5.0;
}

void TestGraphViewInput::zoomIsBounded()
{
    QFETCH(Qt::Key, key);
    QFETCH(qreal, bound);
    GraphView view;
    view.setGraph(Pictured::review());
    for (int i = 0; i < 100; ++i)
        QTest::keyClick(&view, key);
    QCOMPARE(view.transform().m11(), bound);
    turnWheel(&view, key == Qt::Key_Plus ? 1 : -1, Qt::ControlModifier);
    QCOMPARE(view.transform().m11(), bound);
}

void TestGraphViewInput::draggingMovesThePicture()
{
    GraphView view;
    view.resize(400, 400);
    view.setGraph(Pictured::chain(100));
    view.show();
    const int before = view.verticalScrollBar()->value();
    const QPoint place(20, 300); // beside the boxes
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, place);
    QTest::mouseMove(view.viewport(), place - QPoint(0, 40));
    QMouseEvent move(QEvent::MouseMove, place - QPoint(0, 100),
                     view.viewport()->mapToGlobal(place - QPoint(0, 100)), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QCoreApplication::sendEvent(view.viewport(), &move);
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, place - QPoint(0, 100));
    QCOMPARE(view.verticalScrollBar()->value(), before + 100);
    QCOMPARE(view.selectedNode(), "");
}

void TestGraphViewInput::toolTipTellsTheNode()
{
    GraphView view;
    view.resize(600, 600);
    view.setGraph(Pictured::longNames());
    view.show();
    const auto toolTipAt = [&view](const QPoint &place) {
        QHelpEvent event(QEvent::ToolTip, place, view.viewport()->mapToGlobal(place));
        QCoreApplication::sendEvent(view.viewport(), &event);
        return QToolTip::isVisible() ? QToolTip::text() : QString();
    };
    const QString text = toolTipAt(middleOf(view, 0));
    QVERIFY2(text.contains("__start__：未运行；→ 这是一个非常长的节点名称，需要被截断才能显示在图中"),
             qPrintable(text));
    QTRY_COMPARE(toolTipAt(QPoint(1, 1)), "");
}

void TestGraphViewInput::wholeGraphIsShownWhereItIsReadable()
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

void TestGraphViewInput::tabLeavesTheView()
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

QTEST_MAIN(TestGraphViewInput)
#include "tst_graphview_input.moc"
