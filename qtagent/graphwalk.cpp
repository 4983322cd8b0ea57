#include "graphwalk_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

GraphWalk::GraphWalk(StateGraph graph, const QJsonObject &state)
    : m_graph(std::move(graph))
    , m_state(state)
{}

void GraphWalk::restore(const QJsonObject &saved, const QJsonObject &input)
{
    m_state = GraphState(saved);
    m_state.merge(input);
}

void GraphWalk::start()
{
    goOnFrom(StartNode);
}

bool GraphWalk::findNode()
{
    if (m_graph.m_nodes.contains(m_next))
        return true;
    fail(QStringLiteral("Missing graph node: %1").arg(m_next));
    return false;
}

QJsonObject GraphWalk::callFunction() const
{
    return (*m_graph.m_nodes.constFind(m_next))(m_state.values());
}

void GraphWalk::advance(const QJsonObject &update)
{
    GraphStep step;
    step.node = m_next;
    step.before = m_state.values();
    step.update = update;
    m_state.merge(update);
    step.after = m_state.values();
    m_result.steps.append(std::move(step));
    const QString route = goOnFrom(QString(m_next));
    m_result.steps.last().route = route;
}

// Returns the key of the route taken.
QString GraphWalk::goOnFrom(const QString &from)
{
    QString route;
    QString error;
    const QString next = m_graph.nextNode(from, m_state.values(), &route, &error);
    standBefore(next);
    if (!error.isEmpty())
        fail(error);
    else if (m_goesOn && m_graph.m_interruptBefore.contains(next))
        stopForInterrupt();
    return route;
}

void GraphWalk::standBefore(const QString &node)
{
    m_next = node;
    m_goesOn = m_next != EndNode && m_result.steps.size() < m_graph.maxSteps;
    if (m_next != EndNode && !m_goesOn)
        m_result.error = QStringLiteral("Graph exceeded max steps: %1").arg(m_graph.maxSteps);
}

void GraphWalk::stopForInterrupt()
{
    m_goesOn = false;
    m_result.interrupted = true;
    m_result.interruptedNode = m_next;
}

void GraphWalk::fail(const QString &error)
{
    m_result.error = error;
    m_result.interrupted = false;
    m_result.interruptedNode.clear();
    m_goesOn = false;
    m_hasFailed = true;
}

GraphRunResult GraphWalk::result() const
{
    GraphRunResult result = m_result;
    result.state = m_state.values();
    return result;
}

} // namespace QtAgent
} // namespace MireloQtLib
