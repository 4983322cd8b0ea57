#include "graphpicture_p.h"

#include "plaintext_p.h"

#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int fontSize = 14; // pixels
constexpr qreal corner = 6;
constexpr qreal lineHeight = 22;
constexpr qreal markSize = 12;
constexpr qreal markPlace = 16; // its middle, from the edge of the box
constexpr qreal wideLine = 2.5;
constexpr int longestProblem = 120;

// Relative luminance and contrast as in the guidelines for accessible web content.
qreal luminance(const QColor &color)
{
    const auto linear = [](qreal value) {
        return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

qreal contrast(const QColor &left, const QColor &right)
{
    const qreal a = luminance(left) + 0.05;
    const qreal b = luminance(right) + 0.05;
    return qMax(a, b) / qMin(a, b);
}

QColor mixed(const QColor &color, const QColor &other, qreal share)
{
    const auto mix = [share](qreal a, qreal b) { return a + (b - a) * share; };
    return QColor::fromRgbF(mix(color.redF(), other.redF()), mix(color.greenF(), other.greenF()),
                            mix(color.blueF(), other.blueF()));
}

QPainterPath roundedBox(const QRectF &rect, qreal radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

// A sign for those who do not see the colours.
QPainterPath markPath(GraphMark mark, const QPointF &middle)
{
    constexpr qreal half = markSize / 2;
    QPainterPath path;
    if (mark == GraphMark::Done) {
        path.moveTo(middle + QPointF(-half, 0));
        path.lineTo(middle + QPointF(-half / 3, half - 1));
        path.lineTo(middle + QPointF(half, -half + 1));
    } else if (mark == GraphMark::Current) {
        path.addPolygon(QPolygonF(
            QVector<QPointF>{middle + QPointF(-half / 2, -half), middle + QPointF(half, 0),
                             middle + QPointF(-half / 2, half), middle + QPointF(-half / 2, -half)}));
    } else if (mark == GraphMark::Waiting) {
        path.addRect(QRectF(middle + QPointF(-half, -half), QSizeF(half * 2 / 3, markSize)));
        path.addRect(QRectF(middle + QPointF(half / 3, -half), QSizeF(half * 2 / 3, markSize)));
    } else if (mark == GraphMark::Failed) {
        path.moveTo(middle + QPointF(-half, -half));
        path.lineTo(middle + QPointF(half, half));
        path.moveTo(middle + QPointF(half, -half));
        path.lineTo(middle + QPointF(-half, half));
    }
    return path;
}

bool isFilled(GraphMark mark)
{
    return mark == GraphMark::Current || mark == GraphMark::Waiting;
}

GraphShape textShape(const QString &text, const QRectF &rect, const QColor &color, bool isLeft = false)
{
    GraphShape shape;
    shape.text = text;
    shape.textRect = rect;
    shape.stroke = color;
    shape.isLeft = isLeft;
    return shape;
}

QString numberText(qreal number)
{
    return QString::number(number, 'f', 1);
}

QString svgPath(const QPainterPath &path)
{
    QString text;
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        if (element.isMoveTo())
            text += QLatin1Char('M');
        else if (element.isLineTo())
            text += QLatin1Char('L');
        else if (element.isCurveTo())
            text += QLatin1Char('C');
        text += numberText(element.x) + QLatin1Char(' ') + numberText(element.y) + QLatin1Char(' ');
    }
    return text.trimmed();
}

QString svgColor(const QColor &color)
{
    return color.isValid() ? color.name() : QStringLiteral("none");
}

// XML knows neither the noncharacters nor halves of pairs; toUtf8() replaces those.
QString xmlText(const QString &text)
{
    return text.toHtmlEscaped()
        .replace(QChar(0xfffe), QLatin1Char('?'))
        .replace(QChar(0xffff), QLatin1Char('?'));
}

QString svgElement(const GraphShape &shape)
{
    if (shape.text.isEmpty())
        return QStringLiteral("<path d=\"%1\" fill=\"%2\" stroke=\"%3\" stroke-width=\"%4\"%5/>\n")
            .arg(svgPath(shape.path), svgColor(shape.fill), svgColor(shape.stroke), numberText(shape.width),
                 shape.isDashed ? QStringLiteral(" stroke-dasharray=\"5 3\"") : QString());
    constexpr qreal baseline = fontSize * 0.35;
    const QRectF &rect = shape.textRect;
    const QString anchor = shape.isLeft ? QStringLiteral("start") : QStringLiteral("middle");
    return QStringLiteral("<text x=\"%1\" y=\"%2\" fill=\"%3\" text-anchor=\"%4\">%5</text>\n")
        .arg(numberText(shape.isLeft ? rect.left() : rect.center().x()),
             numberText(rect.center().y() + baseline), svgColor(shape.stroke), anchor, xmlText(shape.text));
}

// Smaller where the font is wider than expected.
void paintText(const GraphShape &shape, QPainter *painter)
{
    const qreal width = QFontMetricsF(painter->font()).boundingRect(shape.text).width();
    const qreal scale = shape.isLeft ? 1 : qMin(qreal(1), shape.textRect.width() / qMax(qreal(1), width));
    const QSizeF size(shape.textRect.width() / scale, shape.textRect.height() / scale);
    painter->save();
    painter->setPen(shape.stroke);
    painter->translate(shape.textRect.center());
    painter->scale(scale, scale);
    painter->drawText(QRectF(QPointF(-size.width() / 2, -size.height() / 2), size),
                      int((shape.isLeft ? Qt::AlignLeft : Qt::AlignHCenter) | Qt::AlignVCenter)
                          | int(Qt::TextSingleLine),
                      shape.text);
    painter->restore();
}

} // namespace

QColor readableOn(const QColor &ground, const QColor &color)
{
    constexpr qreal enough = 4.5;
    constexpr int parts = 10;
    const QColor goal = contrast(ground, Qt::black) > contrast(ground, Qt::white) ? Qt::black : Qt::white;
    int part = 0;
    while (part < parts && contrast(ground, mixed(color, goal, qreal(part) / parts)) < enough)
        ++part;
    return mixed(color, goal, qreal(part) / parts);
}

GraphColors::GraphColors(const QPalette &palette)
    : ground(palette.color(QPalette::Base))
    , text(readableOn(ground, palette.color(QPalette::Text)))
    , line(readableOn(ground, mixed(ground, text, 0.6)))
    , selection(readableOn(ground, palette.color(QPalette::Highlight)))
    , failed(readableOn(ground, QColor(0xdc, 0x26, 0x26)))
    , m_done(readableOn(ground, QColor(0x16, 0x80, 0x3d)))
    , m_current(readableOn(ground, QColor(0x1d, 0x6e, 0xe8)))
    , m_waiting(readableOn(ground, QColor(0xb4, 0x70, 0x00)))
{}

QColor GraphColors::of(GraphMark mark) const
{
    switch (mark) {
    case GraphMark::None:
        return line;
    case GraphMark::Done:
        return m_done;
    case GraphMark::Current:
        return m_current;
    case GraphMark::Waiting:
        return m_waiting;
    case GraphMark::Failed:
        return failed;
    }
    return line;
}

QColor GraphColors::tint(const QColor &mark) const
{
    constexpr qreal share = 0.14;
    return mixed(ground, mark, share);
}

// The problems that StateGraph::problems() tells of a node.
static QStringList problemsOf(const QString &node, const QStringList &problems)
{
    const char *const texts[] = {"'%1' is no name for a node.",  "Missing graph node: %1",
                                 "No edge from node '%1'.",      "No route from node '%1'.",
                                 "Edge from unknown node '%1'.", "Interrupt before unknown node '%1'.",
                                 "Node '%1' is never reached."};
    QStringList found;
    for (const char *const text : texts) {
        const QString problem = QString::fromLatin1(text).arg(node);
        if (problems.contains(problem))
            found.append(problem);
    }
    return found;
}

void GraphPicture::setGraph(const StateGraph &graph)
{
    layout = layoutOf(graph);
    problems = graph.problems();
    m_problemsOf.clear();
    for (const GraphBox &box : qAsConst(layout.boxes))
        m_problemsOf.append(QtAgent::problemsOf(box.name, problems));
    clearMarks();
    selected = -1;
}

void GraphPicture::clearMarks()
{
    marks.fill(GraphMark::None, layout.boxes.size());
    runs.fill(0, layout.boxes.size());
    taken.clear();
}

void GraphPicture::count(int box)
{
    marks[box] = GraphMark::Done;
    ++runs[box];
}

const QStringList &GraphPicture::problemsOf(int box) const
{
    return m_problemsOf.at(box);
}

QRectF GraphPicture::bounds() const
{
    constexpr qreal widestProblem = 560;
    QRectF bounds = layout.bounds;
    if (!problems.isEmpty()) {
        bounds.setWidth(qMax(bounds.width(), widestProblem));
        bounds.setHeight(bounds.height() + qreal(problems.size() + 1) * lineHeight);
    }
    return bounds;
}

QVector<GraphShape> GraphPicture::shapes(const GraphColors &colors) const
{
    QVector<GraphShape> shapes;
    for (int i = 0; i < layout.arrows.size(); ++i)
        addArrow(i, colors, &shapes);
    for (int i = 0; i < layout.boxes.size(); ++i)
        addBox(i, colors, &shapes);
    QRectF line(layout.bounds.left() + lineHeight, layout.bounds.bottom(), bounds().width(), lineHeight);
    for (const QString &problem : problems) {
        shapes.append(textShape(cutText(singleLine(problem), longestProblem), line, colors.failed, true));
        line.translate(0, lineHeight);
    }
    return shapes;
}

void GraphPicture::addArrow(int index, const GraphColors &colors, QVector<GraphShape> *shapes) const
{
    const GraphArrow &arrow = layout.arrows.at(index);
    const bool isTaken = taken.contains(index);
    GraphShape line;
    line.path = arrow.line;
    line.stroke = colors.of(isTaken ? GraphMark::Done : GraphMark::None);
    line.width = isTaken ? wideLine : 1.2;
    shapes->append(line);
    GraphShape head;
    head.path = arrow.head;
    head.fill = line.stroke;
    shapes->append(head);
    if (!arrow.isRoute)
        return;
    GraphShape label;
    label.path.addRect(arrow.labelRect.adjusted(2, 0, -2, 0));
    label.fill = colors.ground;
    shapes->append(label);
    shapes->append(textShape(arrow.label, arrow.labelRect, isTaken ? line.stroke : colors.text));
}

void GraphPicture::addBox(int index, const GraphColors &colors, QVector<GraphShape> *shapes) const
{
    const GraphBox &box = layout.boxes.at(index);
    const GraphMark mark = marks.at(index);
    const bool isWrong = !problemsOf(index).isEmpty();
    const qreal radius = box.isVirtual ? box.rect.height() / 2 : corner;
    const QColor color = isWrong && mark == GraphMark::None ? colors.failed : colors.of(mark);
    const auto outline = [&](qreal distance, const QColor &stroke, qreal width) {
        GraphShape shape;
        shape.path =
            roundedBox(box.rect.adjusted(-distance, -distance, distance, distance), radius + distance);
        shape.stroke = stroke;
        shape.width = width;
        shapes->append(shape);
    };
    if (index == selected)
        outline(box.isInterrupted ? 8 : 5, colors.selection, wideLine);
    if (box.isInterrupted)
        outline(4, color, 1.2);
    outline(0, color, mark == GraphMark::None ? 1.4 : wideLine);
    const QColor ground = mark == GraphMark::None && !isWrong ? colors.ground : colors.tint(color);
    shapes->last().fill = ground;
    shapes->last().isDashed = box.isMissing || isWrong;

    const QPointF place(box.rect.left() + markPlace, box.rect.center().y());
    if (mark != GraphMark::None) {
        GraphShape sign;
        sign.path = markPath(mark, place);
        sign.width = wideLine;
        (isFilled(mark) ? sign.fill : sign.stroke) = readableOn(ground, color);
        shapes->append(sign);
    } else if (isWrong) {
        shapes->append(textShape(QStringLiteral("!"), QRectF(place, QSizeF()).adjusted(-8, -10, 8, 10),
                                 readableOn(ground, color)));
    }
    constexpr qreal side = 28;
    shapes->append(textShape(box.label, box.rect.adjusted(side, 0, -side, 0),
                             readableOn(ground, isWrong ? colors.failed : colors.text)));
    if (runs.at(index) > 1)
        shapes->append(textShape(QStringLiteral("×%1").arg(runs.at(index)),
                                 QRectF(box.rect.right() - side, box.rect.top(), side - 2, box.rect.height()),
                                 readableOn(ground, color)));
}

void paint(const QVector<GraphShape> &shapes, QPainter *painter)
{
    QFont font = painter->font();
    font.setPixelSize(fontSize);
    painter->setFont(font);
    painter->setRenderHint(QPainter::Antialiasing);
    for (const GraphShape &shape : shapes) {
        if (!shape.text.isEmpty()) {
            paintText(shape, painter);
            continue;
        }
        painter->setBrush(shape.fill.isValid() ? QBrush(shape.fill) : QBrush(Qt::NoBrush));
        painter->setPen(shape.stroke.isValid()
                            ? QPen(shape.stroke, shape.width, shape.isDashed ? Qt::DashLine : Qt::SolidLine)
                            : QPen(Qt::NoPen));
        painter->drawPath(shape.path);
    }
}

QByteArray toSvg(const QVector<GraphShape> &shapes, const QRectF &bounds, const QColor &ground)
{
    QString text =
        QStringLiteral(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%1\" height=\"%2\" viewBox=\"%3 %4 %1 "
            "%2\" font-family=\"sans-serif\" font-size=\"%5\">\n")
            .arg(numberText(bounds.width()), numberText(bounds.height()), numberText(bounds.left()),
                 numberText(bounds.top()), QString::number(fontSize));
    QPainterPath paper;
    paper.addRect(bounds);
    GraphShape background;
    background.path = paper;
    background.fill = ground;
    text += svgElement(background);
    for (const GraphShape &shape : shapes)
        text += svgElement(shape);
    return (text + QStringLiteral("</svg>\n")).toUtf8();
}

} // namespace QtAgent
} // namespace MireloQtLib
