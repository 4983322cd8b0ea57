#include "graphview.h"

#include "graphpicture_p.h"
#include "plaintext_p.h"

#include <qtagent/graphrun.h>

#include <QGraphicsItem>
#include <QGraphicsScene>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPointer>
#include <QScrollBar>
#include <QToolTip>

#include <cmath>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr qreal smallestReadable = 0.5;
constexpr qreal largestAtFirst = 1.5;
constexpr qreal smallestZoom = 0.1;
constexpr qreal largestZoom = 5;
constexpr qreal zoomStep = 1.2;

} // namespace

class PictureItem : public QGraphicsItem
{
public:
    void set(const QVector<GraphShape> &shapes, const QRectF &bounds)
    {
        prepareGeometryChange();
        m_shapes = shapes;
        m_bounds = bounds;
        update();
    }

    QRectF boundingRect() const override { return m_bounds; }

    void paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *widget) override
    {
        if (widget)
            painter->setFont(widget->font());
        QtAgent::paint(m_shapes, painter);
    }

private:
    QVector<GraphShape> m_shapes;
    QRectF m_bounds;
};

namespace {

// In the order of the marks.
QString stateText(GraphMark mark, int runs)
{
    const QString texts[] = {GraphView::tr("未运行"), GraphView::tr("已运行 %1 次").arg(runs),
                             GraphView::tr("正在运行"), GraphView::tr("等待继续"), GraphView::tr("出错")};
    return texts[int(mark)];
}

} // namespace

class GraphView::Private
{
public:
    explicit Private(GraphView *view);

    void setGraph(const StateGraph &graph);
    void setResult(const GraphRunResult &result, const QString &running);
    void mark();
    void markEnd();
    int markSteps();
    void redraw();
    void describe();
    QString description(int box) const;

    void fit();
    void zoom(qreal factor);
    int boxAt(const QPoint &position) const;
    int boxTowards(int key) const;
    void select(int box);

    GraphView *const q;
    QGraphicsScene scene;
    PictureItem *const item = new PictureItem;
    GraphPicture picture;
    GraphRunResult result;
    bool hasResult = false;
    QString running; // the node that a run that is followed executes
    int step = -1;
    bool isZoomed = false;
    QPointer<GraphRun> run;

private:
    int arrowAfter(int box, const QString &route) const;
    int arrowBetween(int from, int to) const;
    void take(int arrow);
};

GraphView::Private::Private(GraphView *view)
    : q(view)
{
    scene.addItem(item);
}

void GraphView::Private::setGraph(const StateGraph &graph)
{
    picture.setGraph(graph);
    result = {};
    hasResult = false;
    running.clear();
    step = -1;
    isZoomed = false;
    redraw();
    fit();
}

void GraphView::Private::setResult(const GraphRunResult &newResult, const QString &newRunning)
{
    result = newResult;
    hasResult = true;
    running = newRunning;
    step = int(result.steps.size());
    mark();
}

void GraphView::Private::mark()
{
    picture.marks.fill(GraphMark::None);
    picture.runs.fill(0);
    picture.taken.clear();
    if (hasResult && step >= 0) {
        const int box = markSteps();
        if (box >= 0 && step < result.steps.size()) {
            picture.marks[box] = GraphMark::Current;
        } else if (const int node = picture.layout.indexOf(running); node >= 0) {
            picture.marks[node] = result.error.isEmpty() ? GraphMark::Current : GraphMark::Failed;
        } else {
            markEnd();
        }
    }
    redraw();
}

// Marks what was done before the current step. Returns the box that the run came to, or -1.
int GraphView::Private::markSteps()
{
    int box = picture.layout.indexOf(StartNode);
    if (!result.steps.isEmpty())
        take(arrowBetween(box, picture.layout.indexOf(result.steps.first().node)));
    if (!result.steps.isEmpty())
        box = picture.layout.indexOf(result.steps.first().node);
    for (int i = 0; i < qMin(step, int(result.steps.size())) && box >= 0; ++i) {
        picture.marks[box] = GraphMark::Done;
        ++picture.runs[box];
        const int arrow = arrowAfter(box, result.steps.at(i).route);
        const bool isLast = i + 1 == result.steps.size();
        take(arrow);
        const int next = arrow < 0 ? -1 : picture.layout.arrows.at(arrow).to;
        box = isLast ? next : picture.layout.indexOf(result.steps.at(i + 1).node);
    }
    return box;
}

void GraphView::Private::markEnd()
{
    const GraphRunResult &end = result;
    if (end.interrupted) {
        if (const int box = picture.layout.indexOf(end.interruptedNode); box >= 0)
            picture.marks[box] = GraphMark::Waiting;
        return;
    }
    const int last = end.steps.isEmpty() ? picture.layout.indexOf(StartNode)
                                         : picture.layout.indexOf(end.steps.last().node);
    if (last < 0)
        return;
    const int arrow = end.steps.isEmpty() ? arrowAfter(last, {}) : arrowAfter(last, end.steps.last().route);
    const int reached = arrow < 0 ? last : picture.layout.arrows.at(arrow).to;
    if (!end.error.isEmpty())
        picture.marks[reached] = GraphMark::Failed;
    else if (picture.layout.boxes.at(reached).name == EndNode)
        picture.marks[reached] = GraphMark::Done;
}

int GraphView::Private::arrowAfter(int box, const QString &route) const
{
    for (int i = 0; i < picture.layout.arrows.size(); ++i) {
        const GraphArrow &arrow = picture.layout.arrows.at(i);
        if (arrow.from == box && (!arrow.isRoute || arrow.key == route))
            return i;
    }
    return -1;
}

// No record says which route led from the start. A run that was resumed did not come from there.
int GraphView::Private::arrowBetween(int from, int to) const
{
    const QVector<GraphArrow> &arrows = picture.layout.arrows;
    const auto arrow = std::find_if(arrows.cbegin(), arrows.cend(), [from, to](const GraphArrow &candidate) {
        return candidate.from == from && candidate.to == to;
    });
    return arrow == arrows.cend() ? -1 : int(arrow - arrows.cbegin());
}

void GraphView::Private::take(int arrow)
{
    if (arrow >= 0)
        picture.taken.insert(arrow);
}

void GraphView::Private::redraw()
{
    const GraphColors colors(q->palette());
    q->setBackgroundBrush(colors.ground);
    item->set(picture.shapes(colors), picture.bounds());
    scene.setSceneRect(picture.bounds());
    describe();
}

void GraphView::Private::describe()
{
    q->setAccessibleDescription(picture.selected < 0 ? QString() : description(picture.selected));
}

QString GraphView::Private::description(int box) const
{
    const auto nameOf = [this](int index) { return singleLine(picture.layout.boxes.at(index).name); };
    QStringList parts{tr("%1：%2").arg(nameOf(box), stateText(picture.marks.at(box), picture.runs.at(box)))};
    if (picture.layout.boxes.at(box).isInterrupted)
        parts += tr("运行前暂停");
    for (const GraphArrow &arrow : picture.layout.arrows) {
        if (arrow.from == box)
            parts += arrow.isRoute ? QStringLiteral("%1 → %2").arg(singleLine(arrow.key), nameOf(arrow.to))
                                   : QStringLiteral("→ %1").arg(nameOf(arrow.to));
    }
    for (const QString &problem : picture.problemsOf(box))
        parts += singleLine(problem);
    return parts.join(tr("；"));
}

void GraphView::Private::fit()
{
    const QRectF bounds = picture.bounds();
    const QSizeF room = q->maximumViewportSize() - QSize(2, 2);
    if (bounds.isEmpty() || room.isEmpty())
        return;
    const qreal whole = qMin(room.width() / bounds.width(), room.height() / bounds.height());
    const qreal scale = whole < smallestReadable ? 1 : qMin(whole, largestAtFirst);
    q->setTransform(QTransform::fromScale(scale, scale));
    const QRectF start = picture.layout.boxes.first().rect;
    if (whole < smallestReadable)
        q->centerOn(start.center().x(), bounds.top() + room.height() / scale / 2);
    else
        q->centerOn(bounds.center());
}

void GraphView::Private::zoom(qreal factor)
{
    const qreal scale = qBound(smallestZoom, q->transform().m11() * factor, largestZoom);
    q->setTransform(QTransform::fromScale(scale, scale));
    isZoomed = true;
}

int GraphView::Private::boxAt(const QPoint &position) const
{
    const QPointF point = q->mapToScene(position);
    for (int i = 0; i < picture.layout.boxes.size(); ++i) {
        if (picture.layout.boxes.at(i).rect.contains(point))
            return i;
    }
    return -1;
}

// The nearest box in the direction of an arrow key; those that lie aside count as farther away.
int GraphView::Private::boxTowards(int key) const
{
    if (picture.selected < 0)
        return picture.layout.boxes.isEmpty() ? -1 : 0;
    const bool isVertical = key == Qt::Key_Up || key == Qt::Key_Down;
    const qreal sign = key == Qt::Key_Up || key == Qt::Key_Left ? -1 : 1;
    const QPointF from = picture.layout.boxes.at(picture.selected).rect.center();
    int nearest = picture.selected;
    qreal shortest = std::numeric_limits<qreal>::max();
    for (int i = 0; i < picture.layout.boxes.size(); ++i) {
        const QPointF way = picture.layout.boxes.at(i).rect.center() - from;
        const qreal ahead = sign * (isVertical ? way.y() : way.x());
        const qreal aside = std::abs(isVertical ? way.x() : way.y());
        if (ahead > 1 && ahead + 2 * aside < shortest) {
            shortest = ahead + 2 * aside;
            nearest = i;
        }
    }
    return nearest;
}

void GraphView::Private::select(int box)
{
    picture.selected = box;
    redraw();
    if (box >= 0)
        q->ensureVisible(picture.layout.boxes.at(box).rect);
}

GraphView::GraphView(QWidget *parent)
    : QGraphicsView(parent)
    , d(std::make_unique<Private>(this))
{
    setScene(&d->scene);
    setDragMode(ScrollHandDrag);
    setTransformationAnchor(AnchorUnderMouse);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("流程图"));
    viewport()->setCursor(Qt::ArrowCursor);
}

GraphView::~GraphView()
{
    setScene(nullptr);
}

void GraphView::setGraph(const StateGraph &graph)
{
    follow(nullptr);
    d->setGraph(graph);
}

void GraphView::showResult(const GraphRunResult &result)
{
    d->setResult(result, {});
}

void GraphView::setStep(int step)
{
    d->step = qBound(-1, step, int(d->result.steps.size()));
    d->mark();
}

int GraphView::currentStep() const
{
    return d->step;
}

void GraphView::follow(GraphRun *run)
{
    if (d->run)
        d->run->disconnect(this);
    d->run = run;
    if (!run)
        return;
    d->setGraph(run->graph());
    connect(run, &GraphRun::nodeStarted, this,
            [this, run](const QString &node) { d->setResult(run->result(), node); });
    connect(run, &GraphRun::stepFinished, this, [this, run] { d->setResult(run->result(), {}); });
    connect(run, &GraphRun::finished, this, [this](const GraphRunResult &result) {
        const bool hasFailedInside = !result.error.isEmpty() && !d->running.isEmpty();
        d->setResult(result, hasFailedInside ? d->running : QString());
    });
    connect(run, &GraphRun::canceled, this, [this, run] { d->setResult(run->result(), {}); });
}

void GraphView::selectNode(const QString &name)
{
    d->select(d->picture.layout.indexOf(name));
}

QString GraphView::selectedNode() const
{
    return d->picture.selected < 0 ? QString() : d->picture.layout.boxes.at(d->picture.selected).name;
}

QByteArray GraphView::toSvg() const
{
    const GraphColors colors(palette());
    return QtAgent::toSvg(d->picture.shapes(colors), d->picture.bounds(), colors.ground);
}

bool GraphView::viewportEvent(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QGraphicsView::viewportEvent(event);
    const auto *help = static_cast<QHelpEvent *>(event);
    const int box = d->boxAt(help->pos());
    QToolTip::showText(help->globalPos(), box < 0 ? QString() : plainToolTip(d->description(box)),
                       viewport());
    return true;
}

void GraphView::changeEvent(QEvent *event)
{
    QGraphicsView::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange)
        d->redraw();
}

void GraphView::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Left:
    case Qt::Key_Right:
        d->select(d->boxTowards(event->key()));
        break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        d->zoom(zoomStep);
        break;
    case Qt::Key_Minus:
        d->zoom(1 / zoomStep);
        break;
    case Qt::Key_0:
        d->isZoomed = false;
        d->fit();
        break;
    default:
        QGraphicsView::keyPressEvent(event);
    }
}

void GraphView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && d->boxAt(event->pos()) >= 0)
        d->select(d->boxAt(event->pos()));
    QGraphicsView::mousePressEvent(event);
}

void GraphView::resizeEvent(QResizeEvent *event)
{
    QGraphicsView::resizeEvent(event);
    if (!d->isZoomed)
        d->fit();
}

void GraphView::wheelEvent(QWheelEvent *event)
{
    if (event->modifiers() & Qt::ControlModifier)
        d->zoom(event->angleDelta().y() > 0 ? zoomStep : 1 / zoomStep);
    else
        QGraphicsView::wheelEvent(event);
}

} // namespace QtAgent
} // namespace MireloQtLib
