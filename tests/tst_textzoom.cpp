#include <assistant/textzoom.h>

#include <QPlainTextEdit>
#include <QtTest>

class TestTextZoom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textsGrowTogetherInSteps();
    void stepsStayWithinTheLimits();
    void wheelWithCtrlTurnsSteps();
    void finePartsOfTheWheelAddUp();
    void wheelAloneScrolls();
    void deletedWidgetIsForgotten();
};

static bool turnWheel(QWidget *widget, int angle, Qt::KeyboardModifiers modifiers)
{
    const QPointF middle = widget->rect().center();
    QWheelEvent event(middle, widget->mapToGlobal(middle.toPoint()), {}, {0, angle}, Qt::NoButton, modifiers,
                      Qt::NoScrollPhase, false);
    event.setAccepted(false);
    return QCoreApplication::sendEvent(widget, &event) && event.isAccepted();
}

void TestTextZoom::textsGrowTogetherInSteps()
{
    QPlainTextEdit one;
    QPlainTextEdit other;
    const double size = one.font().pointSizeF();
    TextZoom zoom;
    QSignalSpy changed(&zoom, &TextZoom::stepsChanged);
    zoom.add(&one);
    zoom.enlarge();
    zoom.enlarge();
    zoom.add(&other);
    QVERIFY(qAbs(one.font().pointSizeF() - size * 1.21) < 0.01);
    QCOMPARE(other.font(), one.font());
    zoom.reduce();
    QVERIFY(qAbs(other.font().pointSizeF() - size * 1.1) < 0.01);
    zoom.reset();
    QCOMPARE(one.font().pointSizeF(), size);
    QCOMPARE(changed, QList<QVariantList>({{1}, {2}, {1}, {0}}));
}

void TestTextZoom::stepsStayWithinTheLimits()
{
    TextZoom zoom;
    QSignalSpy changed(&zoom, &TextZoom::stepsChanged);
    zoom.setSteps(1000);
    zoom.enlarge();
    zoom.setSteps(-1000);
    QCOMPARE(changed, QList<QVariantList>({{TextZoom::mostSteps}, {TextZoom::fewestSteps}}));
}

void TestTextZoom::wheelWithCtrlTurnsSteps()
{
    QPlainTextEdit edit;
    TextZoom zoom;
    zoom.add(&edit);
    QVERIFY(turnWheel(edit.viewport(), 240, Qt::ControlModifier));
    QCOMPARE(zoom.steps(), 2);
    QVERIFY(turnWheel(edit.viewport(), -120, Qt::ControlModifier));
    QCOMPARE(zoom.steps(), 1);
}

void TestTextZoom::finePartsOfTheWheelAddUp()
{
    QPlainTextEdit edit;
    TextZoom zoom;
    zoom.add(&edit);
    for (int i = 0; i < 4; ++i)
        turnWheel(edit.viewport(), 30, Qt::ControlModifier);
    QCOMPARE(zoom.steps(), 1);
}

void TestTextZoom::wheelAloneScrolls()
{
    QPlainTextEdit edit;
    edit.setPlainText(QString(1000, '\n'));
    edit.show();
    edit.moveCursor(QTextCursor::End);
    const int end = edit.verticalScrollBar()->value();
    TextZoom zoom;
    zoom.add(&edit);
    turnWheel(edit.viewport(), 120, Qt::NoModifier);
    QCOMPARE(zoom.steps(), 0);
    QVERIFY(edit.verticalScrollBar()->value() < end);
}

void TestTextZoom::deletedWidgetIsForgotten()
{
    TextZoom zoom;
    {
        QPlainTextEdit edit;
        zoom.add(&edit);
    }
    zoom.enlarge();
    QCOMPARE(zoom.steps(), 1);
}

QTEST_MAIN(TestTextZoom)
#include "tst_textzoom.moc"
