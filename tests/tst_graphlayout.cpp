#include "support/pictured.h"

#include <qtagent/widgets/graphpicture_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// Where the parts of a graph's picture are placed, and in which colours.
class TestGraphLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingOverlaps_data();
    void nothingOverlaps();
    void nodesAreBelowThoseThatLeadToThem();
    void arrowThatClosesACircleLeadsUp();
    void everyNodeAndArrowIsDrawn();
    void longNamesAreCut();
    void chainOfThousandsIsPlaced();
    void everyColourIsReadable_data();
    void everyColourIsReadable();
};

void TestGraphLayout::nothingOverlaps_data()
{
    QTest::addColumn<QString>("name");
    for (const QString &name : Pictured::all().keys())
        QTest::newRow(qPrintable(name)) << name;
}

void TestGraphLayout::nothingOverlaps()
{
    QFETCH(QString, name);
    const GraphLayout layout = layoutOf(Pictured::all()[name]);
    QVector<QRectF> areas;
    for (const GraphBox &box : layout.boxes)
        areas.append(box.rect);
    for (const GraphArrow &arrow : layout.arrows) {
        if (arrow.isRoute)
            areas.append(arrow.labelRect);
    }
    for (int i = 0; i < areas.size(); ++i) {
        QVERIFY(areas.at(i).isValid());
        QVERIFY(layout.bounds.contains(areas.at(i)));
        for (int j = 0; j < i; ++j)
            QVERIFY2(!areas.at(i).intersects(areas.at(j)), qPrintable(QString("%1 and %2").arg(i).arg(j)));
    }
}

void TestGraphLayout::nodesAreBelowThoseThatLeadToThem()
{
    const GraphLayout layout = layoutOf(Pictured::skipping());
    for (const GraphArrow &arrow : layout.arrows) {
        const bool isBelow = layout.boxes.at(arrow.from).rect.bottom() < layout.boxes.at(arrow.to).rect.top();
        QCOMPARE(isBelow, arrow.key != "from the very beginning");
    }
    QCOMPARE(layout.boxes.first().name, "__start__");
    QCOMPARE(layout.boxes.last().name, "__end__");
}

void TestGraphLayout::arrowThatClosesACircleLeadsUp()
{
    const GraphLayout layout = layoutOf(Pictured::agent());
    const QRectF agent = layout.boxes.at(layout.indexOf("agent")).rect;
    for (const GraphArrow &arrow : layout.arrows) {
        if (layout.boxes.at(arrow.from).name == "tools")
            QCOMPARE(arrow.head.elementAt(0).y, agent.bottom());
    }
}

void TestGraphLayout::everyNodeAndArrowIsDrawn()
{
    const GraphLayout layout = layoutOf(Pictured::faulty());
    QStringList names;
    for (const GraphBox &box : layout.boxes)
        names.append(box.name + (box.isMissing ? " missing" : ""));
    QCOMPARE(names, QStringList({"__start__", "merge", "mergee missing", "pumps", "router", "unreached",
                                 "valves", "__end__"}));
    QStringList arrows;
    for (const GraphArrow &arrow : layout.arrows) {
        arrows.append(layout.boxes.at(arrow.from).name + " " + arrow.key + "> "
                      + layout.boxes.at(arrow.to).name);
        QVERIFY(!arrow.line.isEmpty());
        QVERIFY(!arrow.head.isEmpty());
    }
    QCOMPARE(arrows, QStringList({"__start__ a> router", "__start__ skip> merge", "merge > __end__",
                                  "pumps > merge", "router none> mergee", "router 泵> pumps",
                                  "router 阀门> valves", "valves > merge"}));
}

void TestGraphLayout::longNamesAreCut()
{
    for (const GraphBox &box : layoutOf(Pictured::longNames()).boxes) {
        QVERIFY(box.label.size() <= 25);
        QVERIFY(!box.label.contains('\n'));
        QVERIFY(box.rect.width() < 500);
    }
}

void TestGraphLayout::chainOfThousandsIsPlaced()
{
    constexpr int length = 3000;
    QCOMPARE(layoutOf(Pictured::chain(length)).boxes.size(), length + 2);
}

void TestGraphLayout::everyColourIsReadable_data()
{
    QTest::addColumn<QColor>("ground");
    QTest::addColumn<QColor>("text");
    QTest::newRow("paper") << QColor(Qt::white) << QColor(Qt::black);
    QTest::newRow("dark sheet") << QColor("#1e232b") << QColor("#eef1f6");
    QTest::newRow("grey") << QColor("#808080") << QColor("#808080");
    QTest::newRow("red") << QColor("#ff0000") << QColor("#0000ff");
}

// The contrast of WCAG, written here anew.
static double contrastOf(const QColor &a, const QColor &b)
{
    const auto luminance = [](const QColor &color) {
        double sum = 0;
        const double parts[] = {color.redF(), color.greenF(), color.blueF()};
        const double weights[] = {0.2126, 0.7152, 0.0722};
        for (int i = 0; i < 3; ++i)
            sum += weights[i]
                 * (parts[i] <= 0.03928 ? parts[i] / 12.92 : std::pow((parts[i] + 0.055) / 1.055, 2.4));
        return sum + 0.05;
    };
    return std::max(luminance(a), luminance(b)) / std::min(luminance(a), luminance(b));
}

void TestGraphLayout::everyColourIsReadable()
{
    QFETCH(QColor, ground);
    QFETCH(QColor, text);
    QPalette palette;
    palette.setColor(QPalette::Base, ground);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Highlight, ground);
    const GraphColors colors(palette);
    constexpr double enough = 4.5;
    for (const GraphMark mark :
         {GraphMark::None, GraphMark::Done, GraphMark::Current, GraphMark::Waiting, GraphMark::Failed}) {
        GraphPicture picture;
        picture.setGraph(Pictured::faulty());
        picture.marks.fill(mark);
        picture.runs.fill(2);
        picture.taken = {0, 1};
        QColor fill = ground;
        for (const GraphShape &shape : picture.shapes(colors)) {
            if (shape.fill.isValid() && shape.stroke.isValid())
                fill = shape.fill; // a box, whose texts follow
            const bool isProblem = shape.isLeft;
            if (!shape.text.isEmpty())
                QVERIFY2(contrastOf(shape.stroke, isProblem ? ground : fill) >= enough,
                         qPrintable(shape.text));
        }
    }
}

QTEST_MAIN(TestGraphLayout)
#include "tst_graphlayout.moc"
