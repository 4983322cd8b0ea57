#include "glossary.h"

#include <qtagent/toolregistry.h>

#include <QMap>

using namespace MireloQtLib::QtAgent;

namespace {

QMap<QString, QString> glossary()
{
    const QString workflow =
        QStringLiteral("Orvane Workflow 用于构建有状态、多步骤、可循环、可恢复的智能体流程。");
    return {
        {QStringLiteral("Chain"),
         QStringLiteral("Orvane Chain 用于把模型、提示词、工具和输出解析器组合成应用流程。")},
        {QStringLiteral("Workflow"), workflow},
        {QStringLiteral("流程"), workflow},
        {QStringLiteral("RAG"), QStringLiteral("RAG 会先检索相关知识，再把知识作为上下文交给模型回答。")},
    };
}

ToolResult lookUpTerm(const QJsonObject &arguments)
{
    const QString term = arguments.value(QStringLiteral("term")).toString();
    ToolResult result;
    result.success = true;
    result.content = glossary().value(term, QStringLiteral("没有找到本地术语说明。"));
    return result;
}

FunctionTool *createTool(const QString &description, const QJsonObject &parameters)
{
    return new FunctionTool(glossaryToolName(), description, parameters, ToolPermission::ReadOnly,
                            lookUpTerm);
}

} // namespace

QString glossaryToolName()
{
    return QStringLiteral("lookup_term");
}

FunctionTool *createGlossaryTool()
{
    const QJsonObject term{
        {QStringLiteral("type"), QStringLiteral("string")},
        {QStringLiteral("description"), QStringLiteral("The term to look up.")},
    };
    const QJsonObject parameters{
        {QStringLiteral("type"), QStringLiteral("object")},
        {QStringLiteral("properties"), QJsonObject{{QStringLiteral("term"), term}}},
        {QStringLiteral("required"), QJsonArray{QStringLiteral("term")}},
    };
    return createTool(
        QStringLiteral("Look up a local Orvane / AI framework glossary term. Use this when the user "
                       "asks about Chain, Workflow, RAG, tool calling, or prompt templates."),
        parameters);
}

FunctionTool *createWorkflowGlossaryTool()
{
    const QJsonObject term{{QStringLiteral("type"), QStringLiteral("string")}};
    const QJsonObject parameters{
        {QStringLiteral("type"), QStringLiteral("object")},
        {QStringLiteral("properties"), QJsonObject{{QStringLiteral("term"), term}}},
    };
    return createTool(QStringLiteral("查询本地 AI 框架术语。"), parameters);
}

void registerOrDelete(ToolRegistry *registry, FunctionTool *tool)
{
    if (!registry || !registry->registerTool(tool))
        delete tool;
}
