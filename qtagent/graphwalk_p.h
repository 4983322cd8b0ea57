#ifndef MIRELOQTLIB_QTAGENT_GRAPHWALK_P_H
#define MIRELOQTLIB_QTAGENT_GRAPHWALK_P_H

#include "graphstate_p.h"
#include "stategraph.h"

namespace MireloQtLib {
namespace QtAgent {

/// The way of one run through a graph: the state, the records and the node that stands next.
///
/// @code
/// GraphWalk walk(graph, input);
/// walk.start();
/// while (walk.goesOn() && walk.findNode())
///     walk.advance(walk.callFunction());
/// return walk.result();
/// @endcode
///
/// It has a graph of its own, since the functions may change or destroy the one it was made from. They may
/// not destroy the walk while it calls them. Exceptions of functions pass through.
class GraphWalk
{
public:
    GraphWalk(StateGraph graph, const QJsonObject &state);

    /// Puts @p saved in the place of the state and merges @p input into it.
    void restore(const QJsonObject &saved, const QJsonObject &input);

    /// Routes from "__start__".
    void start();

    /// Stands before @p node, where it stops for the end and for the limit only.
    void standBefore(const QString &node);

    /// Whether the node next() is to be executed. False at the end, at the limit, before an interrupt and
    /// after an error.
    bool goesOn() const { return m_goesOn; }

    /// The node that stands next, "__end__" where the walk is over.
    const QString &next() const { return m_next; }

    /// Returns whether the node next() exists; the walk fails where it does not.
    bool findNode();

    /// Calls the function of the node next() and returns its update.
    QJsonObject callFunction() const;

    /// Merges the update of the node next(), records its step and routes on.
    void advance(const QJsonObject &update);

    /// Ends the walk with @p error.
    void fail(const QString &error);

    /// Whether the walk ended with an error other than the limit, after which no state is saved.
    bool hasFailed() const { return m_hasFailed; }

    /// Whether the walk stopped before next() on purpose.
    bool isInterrupted() const { return m_result.interrupted; }

    /// The state that was reached.
    const QJsonObject &state() const { return m_state.values(); }

    /// The latest step. There must have been one.
    const GraphStep &lastStep() const { return m_result.steps.last(); }

    /// The outcome so far.
    GraphRunResult result() const;

private:
    QString goOnFrom(const QString &from);
    void stopForInterrupt();

    const StateGraph m_graph;
    GraphState m_state;
    GraphRunResult m_result;
    QString m_next;
    bool m_goesOn = false;
    bool m_hasFailed = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
