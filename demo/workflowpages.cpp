#include "workflowpages.h"

#include "demographs.h"
#include "glossary.h"
#include "graphpages.h"
#include "navigation.h"
#include "parallelbranches.h"
#include "simplepage.h"

#include <qtagent/chatmodel.h>
#include <qtagent/toolregistry.h>

#include <QCheckBox>
#include <QJsonArray>
#include <QTreeWidgetItem>

using namespace MireloQtLib::QtAgent;

namespace {

StateGraphPage::GraphFactory withoutCheck(StateGraph (*createGraph)())
{
    return [createGraph](const QCheckBox *) { return createGraph(); };
}

QVector<StateGraphPage::Content> patternPages()
{
    const QString answer = QStringLiteral("answer");
    const QString topic = QStringLiteral("topic");
    return {
        {QStringLiteral("状态流程"),
         {{topic, QStringLiteral("状态")}, {answer, QString()}},
         withoutCheck(stateFlowGraph),
         {}},
        {QStringLiteral("多步骤流程"),
         {{topic, QStringLiteral("Orvane")}, {QStringLiteral("draft"), QString()}, {answer, QString()}},
         withoutCheck(multiStepGraph),
         {}},
        {QStringLiteral("条件路由"),
         {{QStringLiteral("question"), QStringLiteral("什么是流程路由？")},
          {QStringLiteral("route"), QString()},
          {answer, QString()}},
         withoutCheck(routingGraph),
         {}},
        {QStringLiteral("循环直到完成"),
         {{QStringLiteral("count"), 0}, {QStringLiteral("log"), QJsonArray()}},
         withoutCheck(loopGraph),
         {}},
    };
}

StateGraphPage::Content reviewPage()
{
    return {QStringLiteral("人工审核"),
            {{QStringLiteral("task"), QStringLiteral("导出报告")},
             {QStringLiteral("approved"), false},
             {QStringLiteral("result"), QString()}},
            [](const QCheckBox *check) { return reviewGraph(check->isChecked()); },
            QStringLiteral("已审批 / 继续执行路径")};
}

SimplePage *createModelNodePage(const ModelProvider &model)
{
    const SimplePage::Content content{QStringLiteral("模型节点"), QStringLiteral("主题"),
                                      QStringLiteral("Orvane 流程模型节点")};
    return new SimplePage(content, [model](const QString &input, SimplePage *page) {
        const QVector<ChatMessage> messages{
            ChatMessage::system(QStringLiteral("你是一个流程节点，只输出简洁回答。")),
            ChatMessage::user(QStringLiteral("请解释：%1").arg(input)),
        };
        page->showReply(askModel(model, messages, page));
    });
}

QuestionGraphPage *createToolNodePage()
{
    FunctionTool *tool = createWorkflowGlossaryTool();
    auto *page = new QuestionGraphPage(
        {QStringLiteral("工具节点"), QStringLiteral("术语"), QStringLiteral("RAG"),
         [tool](const QString &term) {
             return toolNodeGraph(tool).run(
                 {{QStringLiteral("term"), term}, {QStringLiteral("toolOutput"), QString()}});
         }});
    tool->setParent(page);
    return page;
}

GraphRunResult runAgentGraph(ToolRegistry *registry, const QString &question)
{
    GraphRunResult result;
    if (!registry) {
        result.error = QStringLiteral("工具注册表尚未配置。");
        return result;
    }
    if (!registry->tool(glossaryToolName()))
        registerOrDelete(registry, createWorkflowGlossaryTool());
    return agentGraph(question, registry).run({{QStringLiteral("question"), question}});
}

QuestionGraphPage *createAgentGraphPage(const ToolRegistryProvider &registry)
{
    return new QuestionGraphPage(
        {QStringLiteral("智能体流程"), QStringLiteral("问题"), QStringLiteral("什么是 RAG？"),
         [registry](const QString &question) { return runAgentGraph(registry(), question); }});
}

} // namespace

void addWorkflowPages(QTreeWidgetItem *group, QStackedWidget *stack, const ModelProvider &model,
                      const ToolRegistryProvider &registry)
{
    for (const StateGraphPage::Content &content : patternPages())
        addPage(group, stack, content.title, new StateGraphPage(content));
    addPage(group, stack, QStringLiteral("模型节点"), createModelNodePage(model));
    addPage(group, stack, QStringLiteral("工具节点"), createToolNodePage());
    addPage(group, stack, QStringLiteral("记忆检查点"), new MemoryPage);
    addPage(group, stack, QStringLiteral("人工审核"), new StateGraphPage(reviewPage()));
    addPage(group, stack, QStringLiteral("并行分支"), new ParallelBranchesPage(model));
    addPage(group, stack, QStringLiteral("智能体流程"), createAgentGraphPage(registry));
}
