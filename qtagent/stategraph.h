#ifndef MIRELOQTLIB_QTAGENT_STATEGRAPH_H
#define MIRELOQTLIB_QTAGENT_STATEGRAPH_H

#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

// With Qt 5 not every compiler counts the characters of a constant.

/// The virtual node that every run begins at, "__start__".
inline constexpr QLatin1String StartNode("__start__", 9);

/// The virtual node that a run ends at, "__end__".
inline constexpr QLatin1String EndNode("__end__", 7);

/// What a node does: reads the state and returns an update, the keys of the state to set.
using NodeFunction = std::function<QJsonObject(const QJsonObject &state)>;

/// What a conditional edge asks: reads the state and returns the key of the route to take.
using RouterFunction = std::function<QString(const QJsonObject &state)>;

/// Thread ids with the latest saved state of each. A thread is a conversation or a job that several runs
/// work on, one after another.
using CheckpointStore = QMap<QString, QJsonObject>;

/// The record of one executed node.
struct QTAGENT_EXPORT GraphStep
{
    Q_GADGET

public:
    /// The node that ran.
    QString node;
    /// The key that the router returned afterwards; empty where a plain edge led on, or none.
    QString route;
    /// The state that the node received.
    QJsonObject before;
    /// What the node returned.
    QJsonObject update;
    /// The state with the update merged in. It shares its data with the next step's before.
    QJsonObject after;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const GraphStep &left, const GraphStep &right);
    /// Returns whether a field differs.
    friend bool operator!=(const GraphStep &left, const GraphStep &right) { return !(left == right); }
};

/// The outcome of StateGraph::run() and of GraphRun.
struct QTAGENT_EXPORT GraphRunResult
{
    Q_GADGET

public:
    /// The state reached, whatever ended the run.
    QJsonObject state;
    /// The executed nodes, in order.
    QVector<GraphStep> steps;
    /// Whether the run stopped before a node that addInterruptBefore() named.
    bool interrupted = false;
    /// That node; empty unless interrupted.
    QString interruptedNode;
    /// Why the run failed, in words to show to the user; empty on success. An interrupt is a success.
    QString error;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const GraphRunResult &left, const GraphRunResult &right);
    /// Returns whether a field differs.
    friend bool operator!=(const GraphRunResult &left, const GraphRunResult &right)
    {
        return !(left == right);
    }
};

/// A workflow of named nodes that work on one JSON state.
///
/// A run begins at the virtual node "__start__" and follows the edges until they lead to "__end__"; StartNode
/// and EndNode are constants for the two. Each node reads the state and returns an update, which is merged
/// into it:
/// @code
/// const auto draft = [](const QJsonObject &state) {
///     return QJsonObject{{"tries", state["tries"].toInt() + 1}};
/// };
/// const auto decide = [](const QJsonObject &state) -> QString {
///     return state["tries"].toInt() < 3 ? "again" : "done";
/// };
/// StateGraph graph;
/// graph.addNode("draft", draft);
/// graph.addEdge("__start__", "draft");
/// graph.addConditionalEdges("draft", decide, {
///     {"again", "draft"},
///     {"done", "__end__"},
/// });
///
/// const GraphRunResult result = graph.run({{"tries", 0}});
/// // three steps; result.state is {"tries": 3}
/// @endcode
///
/// The merge is shallow and the last writer wins: each key of the update replaces the state's value whole,
/// arrays and nested objects included. No key is ever removed; one set to null stays, with null.
///
/// With a checkpoint store a run continues where an earlier one ended:
/// @code
/// CheckpointStore checkpoints;
/// graph.run({{"question", first}}, "thread-1", &checkpoints);
/// graph.run({{"question", second}}, "thread-1", &checkpoints);
/// @endcode
/// It continues with the state, not at a node: every run begins at "__start__". To resume a run that was
/// interrupted for a review, run the graph built without that interrupt on the same thread id. GraphRun runs
/// a graph with the event loop, for nodes that wait, and resumes at the node where a run stopped.
///
/// A graph is a plain value: cheap to copy, and what is added to a copy is not added to the original. What
/// the functions themselves hold, behind a captured pointer for example, all copies share. Names and keys are
/// compared exactly.
class QTAGENT_EXPORT StateGraph
{
public:
    /// @name Building
    /// Each call replaces what was there for the same key. Nothing is checked before run(), unless you ask
    /// problems().
    /// @{

    /// Sets what the node @p name does. "__start__" and "__end__" are not for nodes.
    void addNode(const QString &name, const NodeFunction &function);

    /// Leads from @p from, a node or "__start__", to @p to, a node or "__end__".
    void addEdge(const QString &from, const QString &to);

    /// Leads from @p from, a node or "__start__", to the node that @p routes holds for the key that
    /// @p router returns. It wins over a plain edge from there.
    void addConditionalEdges(const QString &from, RouterFunction router,
                             const QMap<QString, QString> &routes);

    /// Makes runs stop before @p name would run, each time that the edges lead there.
    void addInterruptBefore(const QString &name);
    /// @}

    /// How many nodes a run may execute; with 0 or less none. Reaching "__end__" with the last of them is
    /// no error.
    qint32 maxSteps = 32;

    /// Runs the graph on @p initialState and returns when the run is over. All functions are called within
    /// this call, on its thread.
    ///
    /// Where @p checkpoints holds a state for @p threadId, the run begins with that, the keys of
    /// @p initialState inserted over it. An empty @p threadId never touches the store. The caller owns the
    /// store, which must outlive the run and is not locked.
    ///
    /// A run ends, with what was reached by then in `state` and `steps`:
    /// - at "__end__", and the state is saved;
    /// - before an interrupt: `interrupted` and `interruptedNode` are set, and the state is saved;
    /// - at the limit, "Graph exceeded max steps: %1" with maxSteps, and the state is saved;
    /// - at a name that no node has, "Missing graph node: %1";
    /// - where nothing leads on, "No edge from node '%1'.";
    /// - where a router's key has no route, "No route '%1' from node '%2'." with the key and the node.
    ///
    /// The last three save nothing. Where they follow a node, its step is recorded. Exceptions of node
    /// functions and routers pass through, std::bad_function_call for an empty one, and nothing is saved.
    ///
    /// A node function may change, replace or destroy this graph, run it again and change the store: the
    /// run goes on with the graph as it stood when it began.
    GraphRunResult run(const QJsonObject &initialState, const QString &threadId = {},
                       CheckpointStore *checkpoints = nullptr) const;

    /// @name Looking at a graph
    /// @{

    /// Returns what addNode() was called for, in alphabetic order.
    QStringList nodeNames() const;

    /// Returns the plain edges, source to target, those that a conditional edge overrides included.
    QMap<QString, QString> edges() const;

    /// Returns where conditional edges begin, in alphabetic order.
    QStringList routeSources() const;

    /// Returns the routes of the conditional edge from @p from, key to target; none where there is no such
    /// edge.
    QMap<QString, QString> routes(const QString &from) const;

    /// Returns the nodes that runs stop before, in the order in which they were added.
    QStringList interrupts() const;

    /// Returns what is wrong with the graph, in words to show to its author; nothing for a sound graph. Every
    /// route counts as possible, and a plain edge that a conditional one overrides does not count. The texts
    /// come in this order, those of one kind by name:
    /// - "'%1' is no name for a node." for a node called "__start__" or "__end__",
    /// - "Missing graph node: %1" where an edge or a route leads to a name that no node has,
    /// - "No edge from node '%1'." where nothing leads on from a node, or from "__start__",
    /// - "No route from node '%1'." for a conditional edge without routes,
    /// - "Edge from unknown node '%1'.",
    /// - "Interrupt before unknown node '%1'.",
    /// - "Node '%1' is never reached." where no way leads there from "__start__".
    ///
    /// One misspelt name may show twice: as a node that is missing and as one that is never reached.
    QStringList problems() const;

    /// Returns 64 hexadecimal digits that tell this graph from others: the SHA-256 of the names of its nodes,
    /// its edges and its routes. Interrupts, maxSteps and the functions make no difference, nor does the
    /// order of building. The same graph has the same fingerprint on every machine and with every version of
    /// Qt.
    QString fingerprint() const;
    /// @}

private:
    struct ConditionalEdge
    {
        RouterFunction router;
        QMap<QString, QString> routes;
    };

    QString nextNode(const QString &from, const QJsonObject &state, QString *routeKey, QString *error) const;

    friend class GraphWalk;

    QMap<QString, NodeFunction> m_nodes;
    QMap<QString, QString> m_edges;
    QMap<QString, ConditionalEdge> m_conditionalEdges;
    QStringList m_interruptBefore;
};

/// Returns @p graph as a picture in the language of Graphviz, for example for `dot -Tsvg`. Every edge and
/// every route is an arrow, routes with their keys; plain edges that a conditional one overrides are left
/// out. A node that runs stop before has a double outline, a name that no node has a dashed one. The same
/// graph gives the same text.
QTAGENT_EXPORT QString toDot(const StateGraph &graph);

/// Returns @p graph as a flowchart in the language of Mermaid, which many viewers of Markdown show. It holds
/// what toDot() does; a node that runs stop before has bars at its sides.
QTAGENT_EXPORT QString toMermaid(const StateGraph &graph);

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_TYPEINFO(MireloQtLib::QtAgent::GraphStep, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::GraphStep)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::GraphRunResult)

#endif
