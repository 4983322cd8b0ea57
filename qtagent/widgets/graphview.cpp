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

#include <algorithm>
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

// Makes the shapes when they are drawn, for a run may go on many times in between.
class PictureItem : public QGraphicsItem
{
public:
    PictureItem(const GraphPicture &picture, const QWidget *view)
        : m_picture(picture)
        , m_view(view)
    {}

    void setBounds(const QRectF &bounds)
    {
        prepareGeometryChange();
        m_bounds = bounds;
    }

    void outdate()
    {
        m_shapes.clear();
        update();
    }

    QRectF boundingRect() const override { return m_bounds; }

    void paint(QPainter *painter, const QStyleOptionGraphicsItem *, QWidget *widget) override
    {
        if (m_shapes.isEmpty())
            m_shapes = m_picture.shapes(GraphColors(m_view->palette()));
        if (widget)
            painter->setFont(widget->font());
        QtAgent::paint(m_shapes, painter);
    }

private:
    const GraphPicture &m_picture;
    const QWidget *const m_view;
    QVector<GraphShape> m_shapes;
    QRectF m_bounds;
};

namespace {

// Whether an error of a run is that of the node.
bool namesNode(const QString &error, const QString &node)
{
    const auto filled = [&node](const char *text) { return QString::fromLatin1(text).arg(node); };
    return error == filled("Missing graph node: %1") || error == filled("No edge from node '%1'.")
        || (error.startsWith(QLatin1String("No route '")) && error.endsWith(filled("' from node '%1'.")))
        || error.startsWith(filled("Node '%1' failed: ")) || error.startsWith(filled("Node '%1' threw: "))
        || (error.startsWith(QLatin1String("Branch '")) && error.contains(filled("' of node '%1' failed: ")));
}

// What waits in a run, does so in tasks.
QString nodeWithTasks(const GraphRun &run)
{
    const QList<GraphTask *> tasks = run.findChildren<GraphTask *>(QString(), Qt::FindDirectChildrenOnly);
    const auto task =
        std::find_if(tasks.cbegin(), tasks.cend(), [](const GraphTask *each) { return each->isRunning(); });
    return task == tasks.cend() ? QString() : (*task)->node();
}

} // namespace

class GraphView::Private
{
    Q_DISABLE_COPY(Private)

public:
    explicit Private(GraphView *view);

    void setGraph(const StateGraph &graph);
    // Of the run that is shown.
    enum class Stage { Running, Stopped, Over };

    void setResult(const GraphRunResult &newResult, const QString &runningNode, Stage newStage);
    void goOn(const GraphRunResult &now, const QString &runningNode, Stage newStage);
    void showRun(const QString &startedNode);
    void showEnd(Stage end);
    void mark();
    void markOn();
    void enter();
    void pass(const GraphStep &past);
    void standAt(const QString &node, GraphMark mark);
    void markEnd();
    int failedBox() const;
    void redraw();
    void describe();
    QString description(int box) const;
    QString stateText(int box) const;

    void fit();
    void zoom(qreal factor);
    int boxAt(const QPoint &position) const;
    int boxTowards(int key) const;
    void select(int box);

    GraphView *const q;
    QGraphicsScene scene;
    GraphPicture picture;
    PictureItem *const item; // the scene's
    GraphRunResult result;
    bool hasResult = false;
    Stage stage = Stage::Stopped;
    QString running; // the node that a run that is followed executes
    int step = -1;
    // What is marked.
    bool isEntered = false; // whether the way from the start is
    int marked = 0;         // how many steps
    int current = -1;       // the box where the run stands
    bool isZoomed = false;
    QPointer<GraphRun> run;

private:
    int arrowAfter(int box, const QString &route) const;
    int arrowBetween(int from, int to) const;
    void take(int arrow);
};

GraphView::Private::Private(GraphView *view)
    : q(view)
    , item(new PictureItem(picture, view))
{
    scene.addItem(item);
}

void GraphView::Private::setGraph(const StateGraph &graph)
{
    picture.setGraph(graph);
    item->setBounds(picture.bounds());
    scene.setSceneRect(picture.bounds());
    result = {};
    hasResult = false;
    stage = Stage::Stopped;
    running.clear();
    step = -1;
    isZoomed = false;
    mark();
    fit();
}

void GraphView::Private::setResult(const GraphRunResult &newResult, const QString &runningNode,
                                   Stage newStage)
{
    result = newResult;
    hasResult = true;
    running = runningNode;
    stage = newStage;
    step = int(result.steps.size());
    mark();
}

// Takes over what has come since the last call, and keeps no other copy of the steps: the run would have to
// copy all of them before its next one.
void GraphView::Private::goOn(const GraphRunResult &now, const QString &runningNode, Stage newStage)
{
    const auto more = now.steps.size() - result.steps.size();
    if (stage != Stage::Running || more < 0 || more > 1) {
        setResult(now, runningNode, newStage);
        return;
    }
    QVector<GraphStep> steps = std::move(result.steps);
    if (more == 1)
        steps.append(now.steps.last());
    result = {now.state, std::move(steps), now.interrupted, now.interruptedNode, now.error};
    running = runningNode;
    stage = newStage;
    step = int(result.steps.size());
    markOn();
}

// A slot before this one may have run an event loop, or begun another run: what counts is where the run
// stands by now.
void GraphView::Private::showRun(const QString &startedNode)
{
    if (!run->isRunning())
        return;
    const QString waiting = nodeWithTasks(*run);
    goOn(run->result(), waiting.isEmpty() ? startedNode : waiting, Stage::Running);
}

void GraphView::Private::showEnd(Stage end)
{
    if (run->isRunning()) {
        showRun({});
        return;
    }
    const GraphRunResult last = run->result();
    goOn(last, last.error.isEmpty() ? QString() : running, end);
}

void GraphView::Private::mark()
{
    picture.clearMarks();
    isEntered = false;
    marked = 0;
    current = -1;
    markOn();
}

// Marks the steps since those that are marked, and where the run stands.
void GraphView::Private::markOn()
{
    standAt({}, GraphMark::None);
    if (hasResult && step >= 0) {
        if (!isEntered)
            enter();
        while (marked < step)
            pass(result.steps.at(marked++));
        if (step < result.steps.size())
            standAt(result.steps.at(step).node, GraphMark::Current);
        else if (!running.isEmpty())
            standAt(running, result.error.isEmpty() ? GraphMark::Current : GraphMark::Failed);
        else
            markEnd();
    }
    redraw();
}

// No record says which route led from the start, or whether the run came from there at all: one that was
// resumed at another node did not.
void GraphView::Private::enter()
{
    QString first = running.isEmpty() ? result.interruptedNode : running;
    if (!result.steps.isEmpty())
        first = result.steps.first().node;
    else if (first.isEmpty() && stage == Stage::Over && result.error.isEmpty())
        first = EndNode;
    const int start = picture.layout.indexOf(StartNode);
    const int arrow = arrowBetween(start, picture.layout.indexOf(first));
    isEntered = !first.isEmpty();
    if (arrow < 0)
        return;
    picture.count(start);
    take(arrow);
}

void GraphView::Private::pass(const GraphStep &past)
{
    const int box = picture.layout.indexOf(past.node);
    if (box < 0)
        return;
    picture.count(box);
    take(arrowAfter(box, past.route));
}

// An empty name stands for nowhere.
void GraphView::Private::standAt(const QString &node, GraphMark mark)
{
    if (current >= 0)
        picture.marks[current] = picture.runs.at(current) > 0 ? GraphMark::Done : GraphMark::None;
    current = node.isEmpty() ? -1 : picture.layout.indexOf(node);
    if (current >= 0)
        picture.marks[current] = mark;
}

void GraphView::Private::markEnd()
{
    if (result.interrupted) {
        standAt(result.interruptedNode, GraphMark::Waiting);
        return;
    }
    if (!result.error.isEmpty()) {
        current = failedBox();
        if (current >= 0)
            picture.marks[current] = GraphMark::Failed;
        return;
    }
    const int end = picture.layout.indexOf(EndNode);
    const int last = result.steps.isEmpty() ? arrowBetween(picture.layout.indexOf(StartNode), end)
                                            : arrowAfter(picture.layout.indexOf(result.steps.last().node),
                                                         result.steps.last().route);
    if (stage == Stage::Over && last >= 0 && picture.layout.arrows.at(last).to == end)
        picture.count(end);
}

// The node that the error names, else the last one that has run, for nothing else is known of the error.
int GraphView::Private::failedBox() const
{
    const QVector<GraphBox> &boxes = picture.layout.boxes;
    const auto named = std::find_if(boxes.cbegin(), boxes.cend(), [this](const GraphBox &box) {
        return namesNode(result.error, box.name);
    });
    if (named != boxes.cend())
        return int(named - boxes.cbegin());
    return result.steps.isEmpty() ? -1 : picture.layout.indexOf(result.steps.last().node);
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
    item->outdate();
    describe();
}

void GraphView::Private::describe()
{
    q->setAccessibleDescription(picture.selected < 0 ? QString() : description(picture.selected));
}

QString GraphView::Private::description(int box) const
{
    const auto nameOf = [this](int index) { return singleLine(picture.layout.boxes.at(index).name); };
    QStringList parts{GraphView::tr("%1：%2").arg(nameOf(box), stateText(box))};
    if (picture.layout.boxes.at(box).isInterrupted)
        parts += GraphView::tr("运行前暂停");
    for (const GraphArrow &arrow : picture.layout.arrows) {
        if (arrow.from == box)
            parts += arrow.isRoute ? QStringLiteral("%1 → %2").arg(singleLine(arrow.key), nameOf(arrow.to))
                                   : QStringLiteral("→ %1").arg(nameOf(arrow.to));
    }
    for (const QString &problem : picture.problemsOf(box))
        parts += singleLine(problem);
    return parts.join(GraphView::tr("；"));
}

QString GraphView::Private::stateText(int box) const
{
    switch (picture.marks.at(box)) {
    case GraphMark::None:
        return GraphView::tr("未运行");
    case GraphMark::Done:
        return GraphView::tr("已运行 %n 次", nullptr, picture.runs.at(box));
    case GraphMark::Current:
        return GraphView::tr("正在运行");
    case GraphMark::Waiting:
        return GraphView::tr("等待继续");
    case GraphMark::Failed:
        return GraphView::tr("出错");
    }
    return {};
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
    d->setResult(result, {}, Private::Stage::Over);
}

void GraphView::setStep(int step)
{
    d->step = d->hasResult ? qBound(-1, step, int(d->result.steps.size())) : -1;
    d->mark();
}

int GraphView::currentStep() const
{
    return d->step;
}

void GraphView::follow(GraphRun *run)
{
    using Stage = Private::Stage;
    if (d->run)
        d->run->disconnect(this);
    d->run = run;
    if (!run)
        return;
    d->setGraph(run->graph());
    d->showRun({});
    connect(run, &GraphRun::nodeStarted, this, [this](const QString &node) { d->showRun(node); });
    connect(run, &GraphRun::stepFinished, this, [this] { d->showRun({}); });
    connect(run, &GraphRun::finished, this, [this] { d->showEnd(Stage::Over); });
    connect(run, &GraphRun::canceled, this, [this] { d->showEnd(Stage::Stopped); });
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
