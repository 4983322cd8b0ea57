#include "modelpages.h"

#include "glossarypage.h"
#include "navigation.h"
#include "pageoutput.h"
#include "simplepage.h"

#include <qtagent/chatmodel.h>
#include <qtagent/outputparsers.h>
#include <qtagent/prompttemplate.h>
#include <qtagent/runnablechain.h>
#include <qtagent/simpleragchain.h>

#include <QJsonObject>
#include <QTreeWidgetItem>

using namespace MireloQtLib::QtAgent;

namespace {

QString errorText(const QString &error)
{
    return QStringLiteral("错误：%1").arg(error);
}

void ask(const ModelProvider &model, const QVector<ChatMessage> &messages, SimplePage *page)
{
    page->showReply(askModel(model, messages, page));
}

SimplePage::Action runChat(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) {
        ask(model,
            {ChatMessage::system(QStringLiteral("你是一个简洁的 Qt Orvane 助手。")),
             ChatMessage::user(input)},
            page);
    };
}

SimplePage::Action runPromptTemplate(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) {
        PromptTemplate prompt;
        prompt.addSystem(QStringLiteral("你是面向 Qt/C++ 工程师的简洁教学助手。"));
        prompt.addUser(QStringLiteral("请用{style}风格解释：{topic}"));
        const PromptVariables variables{
            {QStringLiteral("topic"), input},
            {QStringLiteral("style"), QStringLiteral("实用、紧凑")},
        };
        ask(model, prompt.format(variables), page);
    };
}

SimplePage::Action runChain(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) {
        RunnableChain chain;
        chain.setModel(model());
        chain.setSystemPrompt(QStringLiteral("请返回简短、实用的解释。"));
        chain.setPromptTemplate(QStringLiteral("解释术语 {term}，并给出一个使用场景。"));
        page->showReply(chain.invoke({{QStringLiteral("term"), input}}, page));
    };
}

void runOutputParsers(const QString &input, SimplePage *page)
{
    QString error;
    const QString text = StringOutputParser().parse(input);
    const QJsonObject object = JsonOutputParser::parseObject(input, &error);
    const QString json = error.isEmpty() ? indentedJson(object) : errorText(error);
    page->showText(QStringLiteral("字符串解析结果：\n%1\n\nJSON 解析结果：\n%2").arg(text, json));
}

SimplePage::Action runStream(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) { ask(model, {ChatMessage::user(input)}, page); };
}

SimplePage::Action runHistory(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) {
        MessageHistory history;
        history.addSystem(QStringLiteral("你是一个简洁助手。"));
        history.addUser(QStringLiteral("请记住：TAVO 是一个 2D/3D 集成平台。"));
        history.addAssistant(QStringLiteral("我会记住 TAVO 是一个 2D/3D 集成平台。"));
        history.addUser(input);
        ask(model, history.messages(), page);
    };
}

void runStructuredOutput(const QString &input, SimplePage *page)
{
    const JsonOutputParser parser({QStringLiteral("name"), QStringLiteral("purpose")});
    QString error;
    const QJsonObject object = parser.parse(input, &error);
    page->showText(error.isEmpty() ? indentedJson(object) : errorText(error));
}

ParallelBranch sentenceAboutTopic(const QString &sentence)
{
    return [sentence](const PromptVariables &variables) {
        return sentence.arg(variables.value(QStringLiteral("topic")));
    };
}

void runBranches(const QString &input, SimplePage *page)
{
    const QMap<QString, ParallelBranch> branches{
        {QStringLiteral("engineer"), sentenceAboutTopic(QStringLiteral("工程视角：%1 应该易于调试和测试。"))},
        {QStringLiteral("architect"),
         sentenceAboutTopic(QStringLiteral("架构视角：%1 有助于组合清晰的应用边界。"))},
        {QStringLiteral("teacher"),
         sentenceAboutTopic(QStringLiteral("教学视角：%1 适合通过小型可运行示例学习。"))},
    };
    const QMap<QString, QString> texts = runParallel(branches, {{QStringLiteral("topic"), input}});
    QJsonObject result;
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        result.insert(it.key(), it.value());
    page->showText(indentedJson(result));
}

SimplePage::Action runRetrieval(const ModelProvider &model)
{
    return [model](const QString &input, SimplePage *page) {
        SimpleRagChain chain;
        chain.setModel(model());
        chain.setDocuments({
            QStringLiteral("Orvane Chain 用于把模型、提示词、工具和解析器组合成应用流程。"),
            QStringLiteral("Orvane Workflow 适合构建有状态、多步骤、可循环、可中断的智能体流程。"),
            QStringLiteral("RAG 会先检索相关知识，再将其作为上下文发送给模型回答。"),
        });
        constexpr int documentCount = 2;
        ChatReply *reply = chain.invoke(input, documentCount, page);
        page->showText(QStringLiteral("检索到的上下文：\n%1\n\n回答：\n").arg(chain.lastContext()));
        page->showReply(reply, EarlierText::Keep);
    };
}

struct PageEntry
{
    SimplePage::Content content;
    SimplePage::Action action;
};

QVector<PageEntry> pagesBeforeGlossary(const ModelProvider &model)
{
    return {
        {{QStringLiteral("基础聊天模型"), QStringLiteral("用户消息"),
          QStringLiteral("用一句话介绍 Orvane。")},
         runChat(model)},
        {{QStringLiteral("提示词模板"), QStringLiteral("主题"), QStringLiteral("PromptTemplate")},
         runPromptTemplate(model)},
        {{QStringLiteral("可运行链"), QStringLiteral("术语"), QStringLiteral("Runnable")}, runChain(model)},
        {{QStringLiteral("输出解析器"), QStringLiteral("原始 JSON"),
          QStringLiteral(R"({"name":"OutputParser","purpose":"把模型文本转换为程序可用数据"})"),
          SimplePage::Json::InputAndOutput},
         runOutputParsers},
        {{QStringLiteral("流式输出"), QStringLiteral("用户消息"),
          QStringLiteral("流式输出一段简短的 Orvane 状态消息。")},
         runStream(model)},
        {{QStringLiteral("对话历史"), QStringLiteral("追问"), QStringLiteral("我刚才提到的项目叫什么？")},
         runHistory(model)},
    };
}

QVector<PageEntry> pagesAfterGlossary(const ModelProvider &model)
{
    return {
        {{QStringLiteral("结构化输出"), QStringLiteral("原始 JSON"),
          QStringLiteral(R"({"name":"Orvane","purpose":"构建 Qt 原生智能体应用","confidence":0.92})"),
          SimplePage::Json::InputAndOutput},
         runStructuredOutput},
        {{QStringLiteral("并行运行"), QStringLiteral("主题"), QStringLiteral("Orvane Chain"),
          SimplePage::Json::Output},
         runBranches},
        {{QStringLiteral("简单 RAG"), QStringLiteral("问题"), QStringLiteral("状态流程适合做什么？")},
         runRetrieval(model)},
    };
}

void addSimplePages(QTreeWidgetItem *group, QStackedWidget *stack, const QVector<PageEntry> &entries)
{
    for (const PageEntry &entry : entries)
        addPage(group, stack, entry.content.title, new SimplePage(entry.content, entry.action));
}

} // namespace

void addModelPages(QTreeWidgetItem *group, QStackedWidget *stack, const ModelProvider &model,
                   const ToolRegistryProvider &registry)
{
    addSimplePages(group, stack, pagesBeforeGlossary(model));
    addPage(group, stack, QStringLiteral("工具调用"), new GlossaryPage(model, registry));
    addSimplePages(group, stack, pagesAfterGlossary(model));
}
