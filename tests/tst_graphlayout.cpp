#include "support/pictured.h"

#include <qtagent/widgets/graphpicture_p.h>

#include <QImage>
#include <QPainter>
#include <QRandomGenerator>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

StateGraph withEdgesOfTheEnd(const QMap<QString, QString> &more)
{
    StateGraph graph;
    Pictured::addNodes(&graph, {"a", "log"});
    graph.addEdge(StartNode, "a");
    graph.addEdge("a", EndNode);
    for (auto edge = more.cbegin(); edge != more.cend(); ++edge)
        graph.addEdge(edge.key(), edge.value());
    return graph;
}

// Anything may lead anywhere: loops, edges of the end, names that no node has, and nodes named like the
// start and the end.
StateGraph randomGraph(quint32 seed)
{
    QRandomGenerator random(seed);
    QStringList names{StartNode, EndNode, "ghost"};
    const int size = random.bounded(12);
    for (int i = 0; i < size; ++i)
        names.append(QString("node %1").arg(i));
    const auto any = [&] { return names.at(random.bounded(int(names.size()))); };
    StateGraph graph;
    Pictured::addNodes(&graph, names.mid(random.bounded(4)));
    const int count = random.bounded(2 * int(names.size()));
    for (int i = 0; i < count; ++i) {
        QMap<QString, QString> routes;
        for (int route = random.bounded(5); route > 0; --route)
            routes.insert(QString(1 + random.bounded(30), 'k'), any());
        if (random.bounded(3) == 0)
            Pictured::addRoutes(&graph, any(), {}, routes);
        else
            graph.addEdge(any(), any());
        graph.addInterruptBefore(any());
    }
    return graph;
}

// Boxes and texts that are not where they can be read, in words.
QString faultIn(const GraphLayout &layout)
{
    QVector<QRectF> areas;
    for (const GraphBox &box : layout.boxes)
        areas.append(box.rect);
    for (const GraphArrow &arrow : layout.arrows) {
        if (arrow.isRoute)
            areas.append(arrow.labelRect);
        const QRectF line = arrow.line.boundingRect();
        if (!layout.bounds.contains(line.topLeft()) || !layout.bounds.contains(line.bottomRight()))
            return QString("a line is outside");
    }
    for (int i = 0; i < areas.size(); ++i) {
        if (!areas.at(i).isValid() || !layout.bounds.contains(areas.at(i)))
            return QString("%1 has no place").arg(i);
        for (int j = 0; j < i; ++j) {
            if (areas.at(i).intersects(areas.at(j)))
                return QString("%1 and %2 overlap").arg(i).arg(j);
        }
    }
    return {};
}

} // namespace

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StateGraph)

// Where the parts of a graph's picture are placed, and in which colours.
class TestGraphLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingOverlaps_data();
    void nothingOverlaps();
    void nothingOverlapsWhateverTheGraph();
    void nodesAreBelowThoseThatLeadToThem();
    void arrowThatClosesACircleLeadsUp();
    void everyNodeAndArrowIsDrawn();
    void longNamesAreCut();
    void chainOfThousandsIsPlaced();
    void everyColourIsReadable_data();
    void everyColourIsReadable();
    void marksAreToldApartWithoutColours_data();
    void marksAreToldApartWithoutColours();
    void nodesWithProblemsAreRed();
};

void TestGraphLayout::nothingOverlaps_data()
{
    QTest::addColumn<StateGraph>("graph");
    const QMap<QString, StateGraph> graphs = Pictured::all();
    for (auto graph = graphs.cbegin(); graph != graphs.cend(); ++graph)
        QTest::newRow(qPrintable(graph.key())) << *graph;
    QTest::newRow("edge of the end") << withEdgesOfTheEnd({{EndNode, "log"}});
    QTest::newRow("edge of the end and back") << withEdgesOfTheEnd({{EndNode, "log"}, {"log", EndNode}});
    QTest::newRow("edge of the end to what is below") << withEdgesOfTheEnd({{EndNode, "z"}, {"log", "z"}});
    QTest::newRow("edge of the end to the start") << withEdgesOfTheEnd({{EndNode, StartNode}});
    QTest::newRow("edge of the end to itself") << withEdgesOfTheEnd({{EndNode, EndNode}});
    StateGraph routed = withEdgesOfTheEnd({});
    Pictured::addRoutes(&routed, EndNode, {}, {{"one", "log"}, {"two", "log"}, {"three", EndNode}});
    QTest::newRow("routes of the end") << routed;
}

void TestGraphLayout::nothingOverlaps()
{
    QFETCH(StateGraph, graph);
    QCOMPARE(faultIn(layoutOf(graph)), QString());
}

void TestGraphLayout::nothingOverlapsWhateverTheGraph()
{
    constexpr quint32 graphCount = 1000;
    for (quint32 seed = 0; seed < graphCount; ++seed) {
        const QString fault = faultIn(layoutOf(randomGraph(seed)));
        QVERIFY2(fault.isEmpty(), qPrintable(QString("seed %1: %2").arg(QString::number(seed), fault)));
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
    QCOMPARE(names, QStringList({"__start__", "merge", "mergee missing", "pumps", "router", "stuck",
                                 "unreached", "valves", "valvess missing", "__end__"}));
    QStringList arrows;
    for (const GraphArrow &arrow : layout.arrows) {
        arrows.append(layout.boxes.at(arrow.from).name + " " + arrow.key + "> "
                      + layout.boxes.at(arrow.to).name);
        QVERIFY(!arrow.line.isEmpty());
        QVERIFY(!arrow.head.isEmpty());
    }
    QCOMPARE(arrows, QStringList({"__start__ a> router", "__start__ skip> merge", "merge > __end__",
                                  "pumps > merge", "router none> mergee", "router 泵> pumps",
                                  "router 阀门> valves", "valves > merge", "valvess > stuck"}));
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

static QPalette sheet(const QColor &ground, const QColor &text)
{
    QPalette palette;
    palette.setColor(QPalette::Base, ground);
    palette.setColor(QPalette::Text, text);
    return palette;
}

// The box of a node, as it is drawn.
static QImage drawn(const GraphPicture &picture, const QString &node, const GraphColors &colors)
{
    const QRectF box = picture.layout.boxes.at(picture.layout.indexOf(node)).rect;
    QImage image(box.size().toSize(), QImage::Format_RGB32);
    image.fill(colors.ground);
    QPainter painter(&image);
    painter.translate(-box.topLeft());
    paint(picture.shapes(colors), &painter);
    return image;
}

void TestGraphLayout::marksAreToldApartWithoutColours_data()
{
    QTest::addColumn<QPalette>("palette");
    QTest::newRow("paper") << sheet(Qt::white, Qt::black);
    QTest::newRow("dark sheet") << sheet("#1e232b", "#eef1f6");
}

// In grey, every two signs differ in many pixels, each by far.
void TestGraphLayout::marksAreToldApartWithoutColours()
{
    QFETCH(QPalette, palette);
    constexpr int enoughPixels = 20;
    constexpr int far = 64;
    const QRect place(8, 8, 18, 20); // of the sign
    QVector<QImage> signs;
    for (const GraphMark mark :
         {GraphMark::None, GraphMark::Done, GraphMark::Current, GraphMark::Waiting, GraphMark::Failed}) {
        GraphPicture picture;
        picture.setGraph(Pictured::chain(1));
        picture.marks.fill(mark);
        const QImage box = drawn(picture, "step 0", GraphColors(palette));
        signs.append(box.convertToFormat(QImage::Format_Grayscale8).copy(place));
    }
    for (int i = 0; i < signs.size(); ++i) {
        for (int j = 0; j < i; ++j) {
            int different = 0;
            for (int y = 0; y < place.height(); ++y) {
                for (int x = 0; x < place.width(); ++x) {
                    const int left = qGray(signs.at(i).pixel(x, y));
                    different += std::abs(left - qGray(signs.at(j).pixel(x, y))) > far ? 1 : 0;
                }
            }
            QVERIFY2(different >= enoughPixels,
                     qPrintable(QString("%1 and %2: %3").arg(i).arg(j).arg(different)));
        }
    }
}

void TestGraphLayout::nodesWithProblemsAreRed()
{
    GraphPicture picture;
    picture.setGraph(Pictured::faulty());
    const GraphColors colors(sheet(Qt::white, Qt::black));
    QStringList red;
    for (const GraphBox &box : qAsConst(picture.layout.boxes)) {
        const QImage image = drawn(picture, box.name, colors);
        int pixels = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor color = image.pixelColor(x, y);
                pixels += color.red() > color.green() + 100 && color.red() > color.blue() + 100 ? 1 : 0;
            }
        }
        constexpr int outline = 100;
        if (pixels > outline)
            red.append(box.name);
    }
    QCOMPARE(red, QStringList({"mergee", "stuck", "unreached", "valvess", "__end__"}));
}

QTEST_MAIN(TestGraphLayout)
#include "tst_graphlayout.moc"
