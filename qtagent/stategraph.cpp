#include "stategraph.h"

#include "graphwalk_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

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

static const QLatin1String EndNode("__end__");

static GraphState startState(const QJsonObject &input, const QString &threadId,
                             const CheckpointStore *checkpoints)
{
    if (!checkpoints || !checkpoints->contains(threadId))
        return GraphState(input);
    GraphState state(checkpoints->value(threadId));
    state.merge(input);
    return state;
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
    GraphWalk walk(*this, startState(initialState, thread, store));
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

} // namespace QtAgent
} // namespace MireloQtLib
