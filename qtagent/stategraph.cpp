#include "stategraph.h"

#include "graphwalk_p.h"

#include <QCryptographicHash>
#include <QSet>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Where a run may go from each name that something leads on from.
QMap<QString, QStringList> waysOn(const StateGraph &graph)
{
    QMap<QString, QStringList> ways;
    const QMap<QString, QString> edges = graph.edges();
    for (auto edge = edges.cbegin(); edge != edges.cend(); ++edge)
        ways.insert(edge.key(), {edge.value()});
    const QStringList routeSources = graph.routeSources();
    for (const QString &from : routeSources)
        ways.insert(from, graph.routes(from).values());
    return ways;
}

using Names = QSet<QString>;

Names namesIn(const QStringList &list)
{
    return Names(list.cbegin(), list.cend());
}

Names reachable(const QMap<QString, QStringList> &ways)
{
    QStringList reached{StartNode};
    Names known{StartNode, EndNode};
    for (int i = 0; i < reached.size(); ++i) {
        const QStringList targets = ways.value(reached.at(i));
        for (const QString &target : targets) {
            if (!known.contains(target))
                reached.append(target);
            known.insert(target);
        }
    }
    return known;
}

// @p text filled with each of @p names.
QStringList listed(const QString &text, const Names &names)
{
    QStringList sorted = names.values();
    sorted.sort();
    for (QString &entry : sorted)
        entry = text.arg(entry);
    return sorted;
}

// With its length before it, so that no two lists of texts are written alike, and in an order of bytes that
// no machine changes.
void write(const QString &text, QByteArray *bytes)
{
    bytes->append(QByteArray::number(text.size())).append(':');
    for (const QChar character : text)
        bytes->append(char(character.row())).append(char(character.cell()));
}

void write(const QStringList &texts, QByteArray *bytes)
{
    bytes->append(QByteArray::number(texts.size())).append('#');
    for (const QString &text : texts)
        write(text, bytes);
}

} // namespace

bool operator==(const GraphStep &left, const GraphStep &right)
{
    return left.node == right.node && left.route == right.route && left.before == right.before
        && left.update == right.update && left.after == right.after;
}

bool operator==(const GraphRunResult &left, const GraphRunResult &right)
{
    return left.state == right.state && left.steps == right.steps && left.interrupted == right.interrupted
        && left.interruptedNode == right.interruptedNode && left.error == right.error;
}

void StateGraph::addNode(const QString &name, const NodeFunction &function)
{
    m_nodes.insert(name, function);
}

void StateGraph::addEdge(const QString &from, const QString &to)
{
    m_edges.insert(from, to);
}

void StateGraph::addConditionalEdges(const QString &from, RouterFunction router,
                                     const QMap<QString, QString> &routes)
{
    m_conditionalEdges.insert(from, {std::move(router), routes});
}

void StateGraph::addInterruptBefore(const QString &name)
{
    if (!m_interruptBefore.contains(name))
        m_interruptBefore.append(name);
}

GraphRunResult StateGraph::run(const QJsonObject &initialState, const QString &threadId,
                               CheckpointStore *checkpoints) const
{
    // A node may destroy what the id was taken from, the store's own key for one.
    const QString thread = threadId; // NOLINT(performance-unnecessary-copy-initialization)
    CheckpointStore *store = thread.isEmpty() ? nullptr : checkpoints;
    GraphWalk walk(*this, initialState);
    if (store && store->contains(thread))
        walk.restore(store->value(thread), initialState);
    walk.start();
    while (walk.goesOn() && walk.findNode())
        walk.advance(walk.callFunction());
    GraphRunResult result = walk.result();
    if (store && !walk.hasFailed())
        store->insert(thread, result.state);
    return result;
}

QString StateGraph::nextNode(const QString &from, const QJsonObject &state, QString *routeKey,
                             QString *error) const
{
    const auto conditional = m_conditionalEdges.constFind(from);
    if (conditional != m_conditionalEdges.constEnd()) {
        *routeKey = conditional->router(state);
        const auto target = conditional->routes.constFind(*routeKey);
        if (target != conditional->routes.constEnd())
            return *target;
        *error = QStringLiteral("No route '%1' from node '%2'.").arg(*routeKey, from);
        return EndNode;
    }
    const auto edge = m_edges.constFind(from);
    if (edge != m_edges.constEnd())
        return *edge;
    *error = QStringLiteral("No edge from node '%1'.").arg(from);
    return EndNode;
}

QStringList StateGraph::nodeNames() const
{
    return m_nodes.keys();
}

QMap<QString, QString> StateGraph::edges() const
{
    return m_edges;
}

QStringList StateGraph::routeSources() const
{
    return m_conditionalEdges.keys();
}

QMap<QString, QString> StateGraph::routes(const QString &from) const
{
    return m_conditionalEdges.value(from).routes;
}

QStringList StateGraph::interrupts() const
{
    return m_interruptBefore;
}

QStringList StateGraph::problems() const
{
    const QMap<QString, QStringList> ways = waysOn(*this);
    const Names start{StartNode};
    const Names end{EndNode};
    const Names nodes = namesIn(nodeNames());
    const Names sources = namesIn(ways.keys());
    Names targets;
    for (const QStringList &way : ways)
        targets.unite(namesIn(way));
    const Names withoutRoute = namesIn(ways.keys({}));

    return listed(QStringLiteral("'%1' is no name for a node."), nodes & (start + end))
         + listed(QStringLiteral("Missing graph node: %1"), targets - nodes - end)
         + listed(QStringLiteral("No edge from node '%1'."), nodes + start - end - sources)
         + listed(QStringLiteral("No route from node '%1'."), withoutRoute)
         + listed(QStringLiteral("Edge from unknown node '%1'."), sources - nodes - start)
         + listed(QStringLiteral("Interrupt before unknown node '%1'."), namesIn(m_interruptBefore) - nodes)
         + listed(QStringLiteral("Node '%1' is never reached."), nodes - reachable(ways));
}

QString StateGraph::fingerprint() const
{
    QByteArray bytes;
    write(m_nodes.keys(), &bytes);
    write(m_edges.keys(), &bytes);
    write(m_edges.values(), &bytes);
    write(m_conditionalEdges.keys(), &bytes);
    for (const ConditionalEdge &edge : m_conditionalEdges) {
        write(edge.routes.keys(), &bytes);
        write(edge.routes.values(), &bytes);
    }
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

} // namespace QtAgent
} // namespace MireloQtLib
