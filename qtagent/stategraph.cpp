#include "stategraph.h"

#include "graphstate_p.h"

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

/// One run. It has a graph of its own, since node functions may change or destroy the one it was started on.
class GraphRun
{
public:
    GraphRun(StateGraph graph, GraphState state)
        : m_graph(std::move(graph))
        , m_state(std::move(state))
    {}

    /// Runs node after node. Returns whether the state reached is one to save.
    bool execute();

    GraphRunResult result() const;

private:
    bool executeNode(const QString &node);
    bool goOnFrom(const QString &from, QString *route);

    const StateGraph m_graph;
    GraphState m_state;
    GraphRunResult m_result;
    QString m_next;
};

bool GraphRun::execute()
{
    QString route;
    if (!goOnFrom(QStringLiteral("__start__"), &route))
        return false;
    for (qint32 count = 0; count < m_graph.maxSteps && m_next != EndNode; ++count) {
        if (m_graph.m_interruptBefore.contains(m_next)) {
            m_result.interrupted = true;
            m_result.interruptedNode = m_next;
            return true;
        }
        if (!executeNode(QString(m_next)))
            return false;
    }
    if (m_next != EndNode)
        m_result.error = QStringLiteral("Graph exceeded max steps: %1").arg(m_graph.maxSteps);
    return true;
}

bool GraphRun::executeNode(const QString &node)
{
    const auto function = m_graph.m_nodes.constFind(node);
    if (function == m_graph.m_nodes.constEnd()) {
        m_result.error = QStringLiteral("Missing graph node: %1").arg(node);
        return false;
    }
    GraphStep step;
    step.node = node;
    step.before = m_state.values();
    step.update = (*function)(step.before);
    m_state.merge(step.update);
    step.after = m_state.values();
    const bool goesOn = goOnFrom(node, &step.route);
    m_result.steps.append(std::move(step));
    return goesOn;
}

bool GraphRun::goOnFrom(const QString &from, QString *route)
{
    m_next = m_graph.nextNode(from, m_state.values(), route, &m_result.error);
    return m_result.error.isEmpty();
}

GraphRunResult GraphRun::result() const
{
    GraphRunResult result = m_result;
    result.state = m_state.values();
    return result;
}

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
    GraphRun run(*this, startState(initialState, thread, store));
    const bool saves = run.execute();
    GraphRunResult result = run.result();
    if (saves && store)
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
