#include "demographs.h"

#include "glossary.h"

#include <qtagent/toolregistry.h>

#include <QJsonArray>

using namespace MireloQtLib::QtAgent;

namespace {

QString textOf(const QJsonObject &state, const char *key)
{
    return state.value(QLatin1String(key)).toString();
}

// Returns an update of one key.
QJsonObject update(const char *key, const QJsonValue &value)
{
    return {{QString::fromLatin1(key), value}};
}

bool asksForTheProject(const QString &input)
{
    return input.contains(QStringLiteral("什么")) || input.endsWith(QStringLiteral("？"))
        || input.endsWith(QLatin1Char('?'));
}

QString termOf(const QString &question)
{
    if (question.contains(QLatin1String("rag"), Qt::CaseInsensitive))
        return QStringLiteral("RAG");
    if (question.contains(QLatin1String("workflow"), Qt::CaseInsensitive))
        return QStringLiteral("Workflow");
    return QStringLiteral("Chain");
}

NodeFunction lookUpNode(const std::function<AgentTool *()> &findTool)
{
    return [findTool](const QJsonObject &state) {
        const ToolResult result = findTool()->invoke(update("term", textOf(state, "term")));
        return update("toolOutput", result.content);
    };
}

NodeFunction appendToResult(const QString &text)
{
    return [text](const QJsonObject &state) { return update("result", textOf(state, "result") + text); };
}

} // namespace

StateGraph stateFlowGraph()
{
    StateGraph graph;
    graph.addNode(QStringLiteral("explain"), [](const QJsonObject &state) {
        return update("answer",
                      QStringLiteral("%1 是在 Orvane 流程中流转的数据。").arg(textOf(state, "topic")));
    });
    graph.addEdge(StartNode, QStringLiteral("explain"));
    graph.addEdge(QStringLiteral("explain"), EndNode);
    return graph;
}

StateGraph multiStepGraph()
{
    StateGraph graph;
    graph.addNode(QStringLiteral("draft"), [](const QJsonObject &state) {
        return update("draft", QStringLiteral("%1 的草稿说明").arg(textOf(state, "topic")));
    });
    graph.addNode(QStringLiteral("polish"), [](const QJsonObject &state) {
        return update("answer", textOf(state, "draft") + QStringLiteral(" -> 已整理为最终回答。"));
    });
    graph.addEdge(StartNode, QStringLiteral("draft"));
    graph.addEdge(QStringLiteral("draft"), QStringLiteral("polish"));
    graph.addEdge(QStringLiteral("polish"), EndNode);
    return graph;
}

StateGraph routingGraph()
{
    const QString chain = QStringLiteral("chain");
    const QString workflow = QStringLiteral("workflow");
    StateGraph graph;
    graph.addNode(QStringLiteral("classify"), [chain, workflow](const QJsonObject &state) {
        const bool asksForWorkflow = textOf(state, "question").toLower().contains(workflow);
        return update("route", asksForWorkflow ? workflow : chain);
    });
    graph.addNode(chain, [](const QJsonObject &) {
        return update("answer", QStringLiteral("模型链关注如何组合模型应用步骤。"));
    });
    graph.addNode(workflow, [](const QJsonObject &) {
        return update("answer", QStringLiteral("流程关注有状态路由、循环和人工审核。"));
    });
    graph.addEdge(StartNode, QStringLiteral("classify"));
    graph.addConditionalEdges(QStringLiteral("classify"),
                              [](const QJsonObject &state) { return textOf(state, "route"); },
                              {{chain, chain}, {workflow, workflow}});
    graph.addEdge(chain, EndNode);
    graph.addEdge(workflow, EndNode);
    return graph;
}

StateGraph loopGraph()
{
    constexpr int rounds = 3;
    const QString step = QStringLiteral("step");
    StateGraph graph;
    graph.addNode(step, [](const QJsonObject &state) {
        // The number is the user's: an int may have no successor.
        const qint64 count = qint64(state.value(QStringLiteral("count")).toInt()) + 1;
        QJsonArray log = state.value(QStringLiteral("log")).toArray();
        log.append(QStringLiteral("第 %1 步已执行").arg(count));
        return QJsonObject{{QStringLiteral("count"), count}, {QStringLiteral("log"), log}};
    });
    graph.addEdge(StartNode, step);
    graph.addConditionalEdges(step,
                              [](const QJsonObject &state) {
                                  const bool again = state.value(QStringLiteral("count")).toInt() < rounds;
                                  return again ? QStringLiteral("again") : QStringLiteral("done");
                              },
                              {{QStringLiteral("again"), step}, {QStringLiteral("done"), EndNode}});
    return graph;
}

StateGraph memoryGraph()
{
    StateGraph graph;
    graph.addNode(QStringLiteral("chat"), [](const QJsonObject &state) {
        const QString input = textOf(state, "input");
        const QString reply = asksForTheProject(input) ? QStringLiteral("助手：你的项目是 TAVO。")
                                                       : QStringLiteral("助手：我已经保存这条记忆。");
        const QString history =
            QStringLiteral("%1\n用户：%2\n%3").arg(textOf(state, "history"), input, reply);
        return QJsonObject{{QStringLiteral("history"), history}, {QStringLiteral("answer"), reply}};
    });
    graph.addEdge(StartNode, QStringLiteral("chat"));
    graph.addEdge(QStringLiteral("chat"), EndNode);
    return graph;
}

StateGraph reviewGraph(bool approvalGiven)
{
    const QString draft = QStringLiteral("draft");
    const QString review = QStringLiteral("review");
    const QString execute = QStringLiteral("execute");
    const QString reject = QStringLiteral("reject");
    StateGraph graph;
    graph.addNode(draft, [](const QJsonObject &state) {
        return update("result", QStringLiteral("动作草稿：%1").arg(textOf(state, "task")));
    });
    graph.addNode(review, appendToResult(QStringLiteral("；已进入人工审核")));
    graph.addNode(execute, appendToResult(QStringLiteral("；审核通过并已执行")));
    graph.addNode(reject, appendToResult(QStringLiteral("；审核拒绝并已停止")));
    graph.addEdge(StartNode, draft);
    graph.addEdge(draft, review);
    graph.addConditionalEdges(review,
                              [execute, reject](const QJsonObject &state) {
                                  return state.value(QStringLiteral("approved")).toBool() ? execute : reject;
                              },
                              {{execute, execute}, {reject, reject}});
    graph.addEdge(execute, EndNode);
    graph.addEdge(reject, EndNode);
    if (!approvalGiven)
        graph.addInterruptBefore(review);
    return graph;
}

StateGraph toolNodeGraph(AgentTool *tool)
{
    StateGraph graph;
    graph.addNode(QStringLiteral("tool"), lookUpNode([tool] { return tool; }));
    graph.addEdge(StartNode, QStringLiteral("tool"));
    graph.addEdge(QStringLiteral("tool"), EndNode);
    return graph;
}

StateGraph agentGraph(const QString &question, ToolRegistry *registry)
{
    const QString agent = QStringLiteral("agent");
    const QString tools = QStringLiteral("tools");
    const QString finalNode = QStringLiteral("final");
    StateGraph graph;
    graph.addNode(agent, [question](const QJsonObject &) {
        return QJsonObject{{QStringLiteral("term"), termOf(question)}, {QStringLiteral("needsTool"), true}};
    });
    graph.addNode(tools, lookUpNode([registry] { return registry->tool(glossaryToolName()); }));
    graph.addNode(finalNode, [](const QJsonObject &state) {
        return update("answer", QStringLiteral("最终回答：%1").arg(textOf(state, "toolOutput")));
    });
    graph.addEdge(StartNode, agent);
    graph.addConditionalEdges(agent,
                              [tools](const QJsonObject &state) {
                                  return state.value(QStringLiteral("needsTool")).toBool()
                                           ? tools
                                           : QStringLiteral("done");
                              },
                              {{tools, tools}, {QStringLiteral("done"), finalNode}});
    graph.addEdge(tools, finalNode);
    graph.addEdge(finalNode, EndNode);
    return graph;
}
