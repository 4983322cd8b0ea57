#ifndef QTAGENT_TESTS_PICTURED_H
#define QTAGENT_TESTS_PICTURED_H

#include <qtagent/stategraph.h>

/// Graphs of all sizes and shapes, for pictures. Those that have no problems can be run.
namespace Pictured {

using MireloQtLib::QtAgent::EndNode;
using MireloQtLib::QtAgent::RouterFunction;
using MireloQtLib::QtAgent::StartNode;
using MireloQtLib::QtAgent::StateGraph;

inline void addNodes(StateGraph *graph, const QStringList &names)
{
    for (const QString &name : names)
        graph->addNode(name, [](const QJsonObject &) { return QJsonObject(); });
}

inline void addRoutes(StateGraph *graph, const QString &from, const QString &chosen,
                      const QMap<QString, QString> &routes)
{
    graph->addConditionalEdges(
        from, [chosen](const QJsonObject &) { return chosen; }, routes);
}

inline StateGraph chain(int length)
{
    StateGraph graph;
    QString last = StartNode;
    for (int i = 0; i < length; ++i) {
        const QString name = QString("step %1").arg(i);
        addNodes(&graph, {name});
        graph.addEdge(last, name);
        last = name;
    }
    graph.addEdge(last, EndNode);
    return graph;
}

/// draft -> review, which goes back or on to send; runs stop before review.
inline StateGraph review()
{
    StateGraph graph;
    addNodes(&graph, {"draft", "review", "send"});
    graph.addEdge(StartNode, "draft");
    graph.addEdge("draft", "review");
    addRoutes(&graph, "review", "ok", {{"again", "draft"}, {"ok", "send"}});
    graph.addEdge("send", EndNode);
    graph.addInterruptBefore("review");
    return graph;
}

/// Counts to three in a loop of one node, which has two more ways on.
inline StateGraph counter()
{
    StateGraph graph;
    graph.addNode("count", [](const QJsonObject &state) {
        return QJsonObject{{"count", state["count"].toInt() + 1}};
    });
    addNodes(&graph, {"report", "abort"});
    graph.addEdge(StartNode, "count");
    graph.addConditionalEdges(
        "count",
        [](const QJsonObject &state) -> QString { return state["count"].toInt() < 3 ? "again" : "done"; },
        {{"again", "count"},
         {"retry later", "count"},
         {"done", "report"},
         {"error", "abort"},
         {"nothing", EndNode}});
    graph.addEdge("report", EndNode);
    graph.addEdge("abort", EndNode);
    return graph;
}

/// Everything that problems() tells.
inline StateGraph faulty()
{
    StateGraph graph;
    addNodes(&graph, {"router", "pumps", "valves", "merge", "unreached", "stuck", EndNode});
    addRoutes(&graph, StartNode, "a", {{"a", "router"}, {"skip", "merge"}});
    addRoutes(&graph, "router", "p", {{"泵", "pumps"}, {"阀门", "valves"}, {"none", "mergee"}});
    graph.addEdge("pumps", "merge");
    graph.addEdge("valves", "merge");
    graph.addEdge("merge", EndNode);
    graph.addEdge("valvess", "stuck");
    addRoutes(&graph, "stuck", "a", {});
    graph.addInterruptBefore("nobody");
    return graph;
}

inline StateGraph agent()
{
    StateGraph graph;
    addNodes(&graph, {"agent", "tools", "check"});
    graph.addEdge(StartNode, "agent");
    addRoutes(&graph, "agent", "end", {{"call", "tools"}, {"end", EndNode}, {"look", "check"}});
    graph.addEdge("tools", "agent");
    graph.addEdge("check", "agent");
    return graph;
}

/// Eight nodes in a row, with a way past three of them and one back to the first.
inline StateGraph skipping()
{
    StateGraph graph = chain(8);
    addRoutes(&graph, "step 7", "end", {{"from the very beginning", "step 0"}, {"end", EndNode}});
    addRoutes(&graph, "step 2", "on", {{"on", "step 3"}, {"skip", "step 6"}});
    return graph;
}

inline StateGraph fan(int width)
{
    StateGraph graph;
    QMap<QString, QString> routes;
    addNodes(&graph, {"fan", "join"});
    for (int i = 0; i < width; ++i) {
        const QString worker = QString("worker %1").arg(i);
        addNodes(&graph, {worker});
        routes.insert(QString("k%1").arg(i), worker);
        graph.addEdge(worker, "join");
    }
    graph.addEdge(StartNode, "fan");
    addRoutes(&graph, "fan", "k0", routes);
    graph.addEdge("join", EndNode);
    return graph;
}

inline StateGraph longNames()
{
    const QStringList names{"这是一个非常长的节点名称，需要被截断才能显示在图中",
                            "a very long name of a node that must be cut somewhere", "<b>&\"markup\"</b>\n"};
    StateGraph graph;
    addNodes(&graph, names);
    graph.addEdge(StartNode, names.at(0));
    graph.addEdge(names.at(0), names.at(1));
    graph.addEdge(names.at(1), names.at(2));
    addRoutes(&graph, names.at(2), "x",
              {{"x", EndNode}, {"a key that is much longer than anybody would want", names.at(0)}});
    return graph;
}

/// @p size nodes; every second has three routes to one of the next eight, and some lead back.
inline StateGraph web(int size)
{
    constexpr int reach = 8;
    StateGraph graph;
    uint seed = 11;
    const auto random = [&seed](int bound) {
        seed = seed * 1103515245U + 12345U;
        return int((seed >> 16) % uint(bound));
    };
    const auto name = [size](int i) { return i < size ? QString("node %1").arg(i) : QString(EndNode); };
    graph.addEdge(StartNode, name(0));
    for (int i = 0; i < size; ++i) {
        addNodes(&graph, {name(i)});
        if (i % 2 == 0) {
            graph.addEdge(name(i), name(i + 1));
            continue;
        }
        QMap<QString, QString> routes{{"r0", name(i + 1)}};
        routes.insert("r1", name(i + 1 + random(reach)));
        routes.insert("r2", name(i + 1 + random(reach)));
        if (i % 9 == 8)
            routes.insert("back", name(i - 5));
        addRoutes(&graph, name(i), "r0", routes);
    }
    return graph;
}

inline QMap<QString, StateGraph> all()
{
    return {{"chain", chain(3)},      {"review", review()},        {"counter", counter()},
            {"faulty", faulty()},     {"agent", agent()},          {"skipping", skipping()},
            {"fan", fan(9)},          {"long names", longNames()}, {"web of twenty", web(20)},
            {"web of forty", web(40)}};
}

} // namespace Pictured

#endif
