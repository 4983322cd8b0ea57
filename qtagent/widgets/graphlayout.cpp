#include "graphlayout_p.h"

#include "plaintext_p.h"

#include <algorithm>
#include <numeric>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr qreal boxHeight = 36;
constexpr qreal labelHeight = 20;
constexpr qreal rowGap = 18;
constexpr qreal cellGap = 18;
constexpr qreal narrowestBox = 64;
constexpr qreal boxPadding = 60; // with room for a mark
constexpr qreal lineCell = 10;
constexpr qreal loopWidth = 26;
constexpr qreal headSize = 8;
constexpr qreal widestPort = 22;
constexpr qreal pictureMargin = 16;
constexpr int longestText = 24;
constexpr int sweeps = 12;

// How wide a text is drawn at most, in a font of 14 pixels.
qreal widthOf(const QString &text)
{
    constexpr ushort firstWide = 0x1100;
    return std::accumulate(text.begin(), text.end(), qreal(0), [](qreal sum, QChar character) {
        const bool isWide = character.unicode() >= firstWide;
        return sum + (isWide ? 14.5 : character.isUpper() ? 10.5 : 8.5);
    });
}

// One place in a layer: a box, or where an arrow passes. Boxes have even layers, texts of arrows odd ones.
struct Cell
{
    int layer = 0;
    qreal left = 0; // from the middle
    qreal right = 0;
    qreal x = 0;
    QVector<int> above;
    QVector<int> below;
};

class Layouter
{
public:
    explicit Layouter(const StateGraph &graph);

    GraphLayout layout();

private:
    void addBoxes(const StateGraph &graph);
    void addArrows(const StateGraph &graph);
    void addArrow(const QString &from, const QString &to, const QString &key, bool isRoute);
    void findLayers();
    void visit(int root);
    void addCells();
    void addPassages(int arrow);
    void order();
    int crossings() const;
    void sortLayer(int layer, QVector<int> Cell::*side);
    void findColumns();
    void alignLayer(int layer, QVector<int> Cell::*side);
    void findRows();
    void draw(int index);
    void drawLoop(GraphArrow *arrow);
    qreal portOf(int box, int neighbour, QVector<int> Cell::*side) const;

    GraphLayout m_result;
    QVector<QVector<int>> m_outgoing; // arrows, by box
    QVector<int> m_finished;          // boxes, each before those that it leads to
    QVector<bool> m_isBack;           // arrows, that lead up
    QVector<int> m_boxLayers;
    QVector<Cell> m_cells;            // those of the boxes first
    QVector<QVector<int>> m_passages; // cells, by arrow and from above
    QVector<QVector<int>> m_layers;   // cells, from the left
    QVector<qreal> m_tops;
    QVector<qreal> m_heights;
};

Layouter::Layouter(const StateGraph &graph)
{
    addBoxes(graph);
    addArrows(graph);
}

void Layouter::addBoxes(const StateGraph &graph)
{
    const QStringList nodes = graph.nodeNames();
    const QMap<QString, QString> edges = graph.edges();
    const QStringList routeSources = graph.routeSources();
    QStringList names = nodes + routeSources + edges.keys();
    for (const QString &from : routeSources)
        names += graph.routes(from).values();
    for (auto edge = edges.cbegin(); edge != edges.cend(); ++edge) {
        if (!routeSources.contains(edge.key()))
            names += edge.value();
    }
    names.removeAll(StartNode);
    names.removeAll(EndNode);
    names.sort();
    names.removeDuplicates();
    names.prepend(StartNode);
    names.append(EndNode);
    for (const QString &name : qAsConst(names)) {
        GraphBox box;
        box.name = name;
        box.label = cutText(singleLine(name), longestText);
        box.isVirtual = name == StartNode || name == EndNode;
        box.isMissing = !box.isVirtual && !nodes.contains(name);
        box.isInterrupted = !box.isVirtual && graph.interrupts().contains(name);
        m_result.boxes.append(box);
    }
}

void Layouter::addArrows(const StateGraph &graph)
{
    m_outgoing.resize(m_result.boxes.size());
    for (const GraphBox &box : qAsConst(m_result.boxes)) {
        const QMap<QString, QString> routes = graph.routes(box.name);
        const QMap<QString, QString> edges = graph.edges();
        for (auto route = routes.cbegin(); route != routes.cend(); ++route)
            addArrow(box.name, route.value(), route.key(), true);
        if (edges.contains(box.name) && !graph.routeSources().contains(box.name))
            addArrow(box.name, edges[box.name], {}, false);
    }
}

void Layouter::addArrow(const QString &from, const QString &to, const QString &key, bool isRoute)
{
    GraphArrow arrow;
    arrow.from = m_result.indexOf(from);
    arrow.to = m_result.indexOf(to);
    arrow.key = key;
    arrow.isRoute = isRoute;
    arrow.label = cutText(singleLine(key), longestText);
    m_outgoing[arrow.from].append(int(m_result.arrows.size()));
    m_result.arrows.append(arrow);
}

GraphLayout Layouter::layout()
{
    findLayers();
    addCells();
    order();
    findColumns();
    findRows();
    for (int i = 0; i < m_result.arrows.size(); ++i)
        draw(i);
    for (const GraphBox &box : qAsConst(m_result.boxes))
        m_result.bounds |= box.rect;
    for (const GraphArrow &arrow : qAsConst(m_result.arrows))
        m_result.bounds |= arrow.line.boundingRect() | arrow.labelRect;
    m_result.bounds.adjust(-pictureMargin, -pictureMargin, pictureMargin, pictureMargin);
    return m_result;
}

// Arrows that close a circle lead up, and those from the end, the others down.
void Layouter::findLayers()
{
    m_isBack.fill(false, m_result.arrows.size());
    for (int arrow : qAsConst(m_outgoing.last()))
        m_isBack[arrow] = true;
    m_boxLayers.fill(-1, m_result.boxes.size());
    for (int box = 0; box < m_result.boxes.size(); ++box)
        visit(box);
    m_boxLayers.fill(0);
    for (int box : qAsConst(m_finished)) {
        for (int arrow : qAsConst(m_outgoing[box])) {
            int &layer = m_boxLayers[m_result.arrows.at(arrow).to];
            if (!m_isBack.at(arrow))
                layer = qMax(layer, m_boxLayers.at(box) + 2);
        }
    }
    m_boxLayers.last() = *std::max_element(m_boxLayers.cbegin(), m_boxLayers.cend());
    for (int arrow : qAsConst(m_outgoing.last())) {
        const GraphArrow &drawn = m_result.arrows.at(arrow);
        if (drawn.to != drawn.from)
            m_boxLayers.last() = qMax(m_boxLayers.last(), m_boxLayers.at(drawn.to) + 2);
    }
}

// Walks from @p root in depth, without recursion, for a graph may be one long chain.
void Layouter::visit(int root)
{
    enum { Unseen = -1, Open, Closed };
    struct Place
    {
        int box;
        int next;
    };
    QVector<int> closed;
    QVector<Place> places;
    const auto enter = [&](int box) {
        m_boxLayers[box] = Open;
        places.append({box, 0});
    };
    if (m_boxLayers.at(root) == Unseen)
        enter(root);
    while (!places.isEmpty()) {
        Place &place = places.last();
        if (place.next == m_outgoing.at(place.box).size()) {
            m_boxLayers[place.box] = Closed;
            closed.prepend(place.box);
            places.removeLast();
            continue;
        }
        const int arrow = m_outgoing.at(place.box).at(place.next++);
        const int target = m_result.arrows.at(arrow).to;
        if (m_isBack.at(arrow))
            continue;
        m_isBack[arrow] = m_boxLayers.at(target) == Open;
        if (m_boxLayers.at(target) == Unseen)
            enter(target);
    }
    m_finished = closed + m_finished;
}

void Layouter::addCells()
{
    m_cells.resize(m_result.boxes.size());
    m_passages.resize(m_result.arrows.size());
    m_layers.resize(m_boxLayers.last() + 1);
    for (int box : qAsConst(m_finished)) {
        const qreal half = qMax(narrowestBox, widthOf(m_result.boxes.at(box).label) + boxPadding) / 2;
        m_cells[box].layer = m_boxLayers.at(box);
        m_cells[box].left = half;
        m_cells[box].right = half;
        m_layers[m_boxLayers.at(box)].append(box);
        for (int arrow : qAsConst(m_outgoing[box]))
            addPassages(arrow);
    }
}

// An arrow from a box to itself makes the box wider on its right, any other passes through the layers
// between.
void Layouter::addPassages(int arrow)
{
    const GraphArrow &drawn = m_result.arrows.at(arrow);
    const qreal labelWidth = drawn.isRoute ? widthOf(drawn.label) + lineCell : lineCell;
    if (drawn.from == drawn.to) {
        m_cells[drawn.from].right += loopWidth + labelWidth;
        return;
    }
    const int top = m_isBack.at(arrow) ? drawn.to : drawn.from;
    const int bottom = m_isBack.at(arrow) ? drawn.from : drawn.to;
    const int labelLayer = m_isBack.at(arrow) ? m_boxLayers.at(bottom) - 1 : m_boxLayers.at(top) + 1;
    int above = top;
    for (int layer = m_boxLayers.at(top) + 1; layer <= m_boxLayers.at(bottom); ++layer) {
        const bool isEnd = layer == m_boxLayers.at(bottom);
        const int cell = isEnd ? bottom : int(m_cells.size());
        if (!isEnd) {
            const qreal half = (layer == labelLayer ? labelWidth : lineCell) / 2;
            m_cells.append({layer, half, half, 0, {}, {}});
            m_layers[layer].append(cell);
            m_passages[arrow].append(cell);
        }
        m_cells[above].below.append(cell);
        m_cells[cell].above.append(above);
        above = cell;
    }
}

// The order of the fewest crossings that was met.
void Layouter::order()
{
    QVector<QVector<int>> best = m_layers;
    int fewest = std::numeric_limits<int>::max();
    for (int sweep = 0; sweep < sweeps && fewest > 0; ++sweep) {
        for (int i = 0; i < m_layers.size(); ++i) {
            const bool isDown = sweep % 2 == 0;
            sortLayer(isDown ? i : int(m_layers.size()) - 1 - i, isDown ? &Cell::above : &Cell::below);
        }
        const int count = crossings();
        if (count < fewest) {
            fewest = count;
            best = m_layers;
        }
    }
    m_layers = best;
    for (const QVector<int> &layer : qAsConst(m_layers)) {
        for (int i = 0; i < layer.size(); ++i)
            m_cells[layer.at(i)].x = i;
    }
}

// By the middle of the neighbours. While the order is looked for, x is the place in the layer.
void Layouter::sortLayer(int layer, QVector<int> Cell::*side)
{
    QVector<int> &cells = m_layers[layer];
    for (int i = 0; i < cells.size(); ++i)
        m_cells[cells.at(i)].x = i;
    QVector<qreal> middles(m_cells.size());
    for (int cell : qAsConst(cells)) {
        const QVector<int> &neighbours = m_cells.at(cell).*side;
        qreal sum = 0;
        for (int neighbour : neighbours)
            sum += m_cells.at(neighbour).x;
        middles[cell] = neighbours.isEmpty() ? m_cells.at(cell).x : sum / qreal(neighbours.size());
    }
    std::stable_sort(cells.begin(), cells.end(),
                     [&middles](int left, int right) { return middles.at(left) < middles.at(right); });
    for (int i = 0; i < cells.size(); ++i)
        m_cells[cells.at(i)].x = i;
}

int Layouter::crossings() const
{
    int count = 0;
    for (const QVector<int> &layer : m_layers) {
        QVector<qreal> ends; // of the lines to the next layer, from the left
        for (int cell : layer) {
            QVector<qreal> own;
            for (int neighbour : m_cells.at(cell).below)
                own.append(m_cells.at(neighbour).x);
            for (qreal end : qAsConst(own))
                count += int(std::count_if(ends.cbegin(), ends.cend(), [end](qreal e) { return e > end; }));
            ends += own;
        }
    }
    return count;
}

void Layouter::findColumns()
{
    for (int layer = 0; layer < m_layers.size(); ++layer)
        alignLayer(layer, &Cell::above);
    for (int sweep = 0; sweep < sweeps; ++sweep) {
        for (int i = 0; i < m_layers.size(); ++i) {
            const bool isUp = sweep % 2 == 0;
            alignLayer(isUp ? int(m_layers.size()) - 1 - i : i, isUp ? &Cell::below : &Cell::above);
        }
    }
}

// Puts each cell of a layer as near to the middle of its neighbours as the others leave room. Cells that push
// each other move as one block.
void Layouter::alignLayer(int layer, QVector<int> Cell::*side)
{
    struct Block
    {
        int first;
        qreal weight;
        qreal x; // of its first cell, wanted
    };
    constexpr qreal weightOfPassages = 3; // long lines are to be straight
    constexpr qreal weightOfTheAlone = 0.01;
    QVector<Block> blocks;
    QVector<qreal> offsets;
    const QVector<int> &cells = m_layers.at(layer);
    for (int i = 0; i < cells.size(); ++i) {
        const Cell &cell = m_cells.at(cells.at(i));
        const qreal before =
            i > 0 ? offsets.last() + m_cells.at(cells.at(i - 1)).right + cellGap + cell.left : 0;
        offsets.append(before);
        const QVector<int> &neighbours = cell.*side;
        qreal wanted = neighbours.isEmpty() ? cell.x : 0;
        for (int neighbour : neighbours)
            wanted += m_cells.at(neighbour).x / qreal(neighbours.size());
        const bool isAlone = cell.above.isEmpty() && cell.below.isEmpty();
        if (isAlone && cells.size() > 1)
            wanted = m_cells.at(cells.at(i == 0 ? 1 : i - 1)).x;
        const bool isPassage = cells.at(i) >= m_result.boxes.size();
        blocks.append({i, isAlone ? weightOfTheAlone : isPassage ? weightOfPassages : 1, wanted - before});
        while (blocks.size() > 1 && blocks.at(blocks.size() - 2).x > blocks.last().x) {
            const Block last = blocks.takeLast();
            Block &merged = blocks.last();
            merged.x = (merged.x * merged.weight + last.x * last.weight) / (merged.weight + last.weight);
            merged.weight += last.weight;
        }
    }
    for (int block = 0; block < blocks.size(); ++block) {
        const int end = block + 1 < blocks.size() ? blocks.at(block + 1).first : int(cells.size());
        for (int i = blocks.at(block).first; i < end; ++i)
            m_cells[cells.at(i)].x = blocks.at(block).x + offsets.at(i);
    }
}

void Layouter::findRows()
{
    m_heights.fill(0, m_layers.size());
    for (int layer : qAsConst(m_boxLayers))
        m_heights[layer] = boxHeight;
    for (int i = 0; i < m_result.arrows.size(); ++i) {
        const QVector<int> &passages = m_passages.at(i);
        if (m_result.arrows.at(i).isRoute && !passages.isEmpty())
            m_heights[m_cells.at(m_isBack.at(i) ? passages.last() : passages.first()).layer] = labelHeight;
    }
    qreal top = 0;
    for (qreal height : qAsConst(m_heights)) {
        m_tops.append(top);
        top += height + rowGap;
    }
    for (int i = 0; i < m_result.boxes.size(); ++i) {
        const Cell &cell = m_cells.at(i);
        const qreal width = 2 * cell.left;
        m_result.boxes[i].rect = QRectF(cell.x - cell.left, m_tops.at(cell.layer), width, boxHeight);
    }
}

// Where an arrow leaves or enters a box: side by side, in the order of where they come from.
qreal Layouter::portOf(int box, int neighbour, QVector<int> Cell::*side) const
{
    const QVector<int> &neighbours = m_cells.at(box).*side;
    const qreal x = m_cells.at(neighbour).x;
    const auto index = std::count_if(neighbours.cbegin(), neighbours.cend(),
                                     [this, x](int other) { return m_cells.at(other).x < x; });
    const qreal room = (2 * m_cells.at(box).left - 2 * headSize) / qreal(neighbours.size());
    return m_cells.at(box).x + (qreal(index) - qreal(neighbours.size() - 1) / 2) * qMin(widestPort, room);
}

void Layouter::draw(int index)
{
    GraphArrow &arrow = m_result.arrows[index];
    if (arrow.from == arrow.to) {
        drawLoop(&arrow);
        return;
    }
    const QVector<int> &passages = m_passages.at(index);
    const bool isBack = m_isBack.at(index);
    const int top = isBack ? arrow.to : arrow.from;
    const int bottom = isBack ? arrow.from : arrow.to;
    QPolygonF points(QVector<QPointF>{
        QPointF(portOf(top, passages.first(), &Cell::below), m_result.boxes.at(top).rect.bottom())});
    for (int passage : passages) {
        const Cell &cell = m_cells.at(passage);
        points << QPointF(cell.x, m_tops.at(cell.layer))
               << QPointF(cell.x, m_tops.at(cell.layer) + m_heights.at(cell.layer));
    }
    points << QPointF(portOf(bottom, passages.last(), &Cell::above), m_result.boxes.at(bottom).rect.top());
    if (isBack)
        std::reverse(points.begin(), points.end());

    const QPointF tip = points.last();
    const qreal back = isBack ? headSize : -headSize;
    points.last() += QPointF(0, back);
    arrow.line.moveTo(points.first());
    for (int i = 1; i < points.size(); ++i) {
        const qreal middle = (points.at(i - 1).y() + points.at(i).y()) / 2;
        arrow.line.cubicTo(points.at(i - 1).x(), middle, points.at(i).x(), middle, points.at(i).x(),
                           points.at(i).y());
    }
    arrow.head.addPolygon(QPolygonF(
        QVector<QPointF>{tip, tip + QPointF(-headSize / 2, back), tip + QPointF(headSize / 2, back), tip}));
    if (arrow.isRoute) {
        const Cell &cell = m_cells.at(isBack ? passages.last() : passages.first());
        arrow.labelRect =
            QRectF(cell.x - cell.left, m_tops.at(cell.layer), cell.left + cell.right, labelHeight);
    }
}

// All loops of a box have one line, with their texts side by side.
void Layouter::drawLoop(GraphArrow *arrow)
{
    const QRectF box = m_result.boxes.at(arrow->from).rect;
    const qreal x = box.right() + loopWidth;
    const qreal upper = box.center().y() - boxHeight / 4;
    const qreal lower = box.center().y() + boxHeight / 4;
    const QPointF tip(box.right(), lower);
    arrow->line.moveTo(box.right(), upper);
    arrow->line.cubicTo(x, upper - 2, x, lower + 2, tip.x() + headSize, tip.y());
    arrow->head.addPolygon(QPolygonF(QVector<QPointF>{tip, tip + QPointF(headSize, -headSize / 2),
                                                      tip + QPointF(headSize, headSize / 2), tip}));
    if (!arrow->isRoute)
        return;
    qreal left = x;
    for (const GraphArrow &other : qAsConst(m_result.arrows)) {
        if (other.from == arrow->from && other.to == arrow->to && !other.labelRect.isEmpty())
            left = qMax(left, other.labelRect.right() + lineCell);
    }
    arrow->labelRect =
        QRectF(left, box.center().y() - labelHeight / 2, widthOf(arrow->label) + lineCell, labelHeight);
}

} // namespace

int GraphLayout::indexOf(const QString &name) const
{
    const auto box =
        std::find_if(boxes.cbegin(), boxes.cend(), [&name](const GraphBox &box) { return box.name == name; });
    return box == boxes.cend() ? -1 : int(box - boxes.cbegin());
}

GraphLayout layoutOf(const StateGraph &graph)
{
    return Layouter(graph).layout();
}

} // namespace QtAgent
} // namespace MireloQtLib
