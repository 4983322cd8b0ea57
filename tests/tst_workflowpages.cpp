#include "support/heldmodel.h"
#include "support/pagegroup.h"

#include <demo/demographs.h>
#include <demo/workflowpages.h>
#include <qtagent/toolregistry.h>

#include <QCheckBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QJsonDocument>
#include <QLabel>
#include <QTableWidget>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// The rows of the steps table, the cells of a row joined by " | ".
QStringList stepsOf(QWidget *page)
{
    const auto *table = page->findChild<QTableWidget *>("graphSteps");
    QStringList rows;
    for (int row = 0; row < table->rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < table->columnCount(); ++column)
            cells.append(table->item(row, column)->text());
        rows.append(cells.join(" | "));
    }
    return rows;
}

} // namespace

class TestWorkflowPages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void tenPagesStandInTheirOrder();
    void graphPageHasItsLayoutAndTexts_data();
    void graphPageHasItsLayoutAndTexts();
    void defaultRunShowsStateAndSteps_data();
    void defaultRunShowsStateAndSteps();
    void routingFollowsTheQuestion_data();
    void routingFollowsTheQuestion();
    void loopRunsUntilThree_data();
    void loopRunsUntilThree();
    void reviewDependsOnCheckAndApproval_data();
    void reviewDependsOnCheckAndApproval();
    void stateTextThatIsNoObjectIsReported_data();
    void stateTextThatIsNoObjectIsReported();
    void deeplyNestedStateIsHandled_data();
    void deeplyNestedStateIsHandled();
    void stepsAreRefilledByEveryRun();
    void modelNodeAsksTheModel();
    void toolNodeLooksTheTermUp_data();
    void toolNodeLooksTheTermUp();
    void toolNodeKeepsItsToolToItself();
    void agentGraphUsesTheSharedRegistry_data();
    void agentGraphUsesTheSharedRegistry();
    void agentGraphRegistersItsToolOnce();
    void agentGraphReportsADeletedRegistry();
    void agentGraphTakesTheQuestionThatItWasBuiltFor();
    void lookUpShowsTheContentOfTheResultOnly();
    void memoryMeetsInTheCheckpoint();
    void threadsDoNotSeeEachOther();
    void memoryTellsQuestionsFromNotes_data();
    void memoryTellsQuestionsFromNotes();

private:
    QWidget *widget(const QString &title) const { return m_group->page(title); }
    PageDriver page(const QString &title) const { return PageDriver(widget(title)); }
    QJsonObject stateAfterRun(const QString &title, const QByteArray &state);

    std::unique_ptr<HeldModel> m_model;
    std::unique_ptr<ToolRegistry> m_registry;
    std::unique_ptr<PageGroup> m_group;
};

void TestWorkflowPages::init()
{
    m_model = std::make_unique<HeldModel>();
    m_registry = std::make_unique<ToolRegistry>();
    m_group = std::make_unique<PageGroup>();
    addWorkflowPages(
        m_group->item(), m_group->stack(), [this] { return m_model.get(); },
        [this] { return m_registry.get(); });
}

void TestWorkflowPages::cleanup()
{
    m_group.reset();
    m_registry.reset();
    m_model.reset();
}

QJsonObject TestWorkflowPages::stateAfterRun(const QString &title, const QByteArray &state)
{
    page(title).editor("graphState")->setPlainText(QString::fromUtf8(state));
    page(title).run();
    return QJsonDocument::fromJson(page(title).output().toUtf8()).object();
}

void TestWorkflowPages::tenPagesStandInTheirOrder()
{
    QCOMPARE(m_group->titles(),
             (QStringList{"状态流程", "多步骤流程", "条件路由", "循环直到完成", "模型节点", "工具节点",
                          "记忆检查点", "人工审核", "并行分支", "智能体流程"}));
    QCOMPARE(m_group->stack()->count(), 10);
}

void TestWorkflowPages::graphPageHasItsLayoutAndTexts_data()
{
    QTest::addColumn<QString>("checkText");
    QTest::newRow("状态流程") << "";
    QTest::newRow("多步骤流程") << "";
    QTest::newRow("条件路由") << "";
    QTest::newRow("循环直到完成") << "";
    QTest::newRow("人工审核") << "已审批 / 继续执行路径";
}

void TestWorkflowPages::graphPageHasItsLayoutAndTexts()
{
    QFETCH(QString, checkText);
    const QString title = QString::fromUtf8(QTest::currentDataTag());
    const PageDriver driver = page(title);
    const auto *check = widget(title)->findChild<QCheckBox *>("approvedCheck");
    const auto *steps = widget(title)->findChild<QTableWidget *>("graphSteps");
    QStringList headers;
    for (int column = 0; column < steps->columnCount(); ++column)
        headers.append(steps->horizontalHeaderItem(column)->text());
    QCOMPARE(widget(title)->findChild<QGroupBox *>()->title(), title);
    QCOMPARE(widget(title)->findChild<QLabel *>()->text(), QStringLiteral("初始状态"));
    QCOMPARE(driver.button("runButton")->text(), QStringLiteral("运行流程"));
    QCOMPARE(check->text(), checkText);
    QCOMPARE(check->isHidden(), checkText.isEmpty());
    QVERIFY(!check->isChecked());
    QVERIFY(driver.editor("pageOutput")->isReadOnly());
    QCOMPARE(headers, (QStringList{"节点", "路由", "输出", "状态"}));
    QVERIFY(steps->horizontalHeader()->stretchLastSection());
    QVERIFY(steps->alternatingRowColors());
    QCOMPARE(steps->editTriggers(), QAbstractItemView::NoEditTriggers);
}

void TestWorkflowPages::defaultRunShowsStateAndSteps_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("状态流程")
        << "{\n    \"answer\": \"状态 是在 Orvane 流程中流转的数据。\",\n    \"topic\": \"状态\"\n}\n"
        << QStringList{"explain |  | { \"answer\": \"状态 是在 Orvane 流程中流转的数据。\" } | "
                       "{ \"answer\": \"状态 是在 Orvane 流程中流转的数据。\", \"topic\": \"状态\" }"};
    QTest::newRow("多步骤流程")
        << "{\n    \"answer\": \"Orvane 的草稿说明 -> 已整理为最终回答。\",\n"
           "    \"draft\": \"Orvane 的草稿说明\",\n    \"topic\": \"Orvane\"\n}\n"
        << QStringList{"draft |  | { \"draft\": \"Orvane 的草稿说明\" } | "
                       "{ \"answer\": \"\", \"draft\": \"Orvane 的草稿说明\", \"topic\": \"Orvane\" }",
                       "polish |  | { \"answer\": \"Orvane 的草稿说明 -> 已整理为最终回答。\" } | "
                       "{ \"answer\": \"Orvane 的草稿说明 -> 已整理为最终回答。\", "
                       "\"draft\": \"Orvane 的草稿说明\", \"topic\": \"Orvane\" }"};
    QTest::newRow("人工审核")
        << "在节点前中断：review\n\n{\n    \"approved\": false,\n"
           "    \"result\": \"动作草稿：导出报告\",\n    \"task\": \"导出报告\"\n}\n"
        << QStringList{"draft |  | { \"result\": \"动作草稿：导出报告\" } | "
                       "{ \"approved\": false, \"result\": \"动作草稿：导出报告\", \"task\": \"导出报告\" }"};
}

void TestWorkflowPages::defaultRunShowsStateAndSteps()
{
    QFETCH(QStringList, steps);
    const QString title = QString::fromUtf8(QTest::currentDataTag());
    page(title).run();
    QTEST(page(title).output(), "output");
    QCOMPARE(stepsOf(widget(title)), steps);
}

void TestWorkflowPages::routingFollowsTheQuestion_data()
{
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("answer");
    const QString chain = QStringLiteral("模型链关注如何组合模型应用步骤。");
    const QString workflow = QStringLiteral("流程关注有状态路由、循环和人工审核。");
    QTest::newRow("the Chinese default") << "什么是流程路由？"
                                         << "chain" << chain;
    QTest::newRow("workflow") << "a workflow?"
                              << "workflow" << workflow;
    QTest::newRow("Workflow") << "Workflow 是什么"
                              << "workflow" << workflow;
    QTest::newRow("capitals") << "WORKFLOW"
                              << "workflow" << workflow;
}

void TestWorkflowPages::routingFollowsTheQuestion()
{
    QFETCH(QString, question);
    QFETCH(QString, route);
    const QJsonObject initial{{"question", question}};
    const QJsonObject state = stateAfterRun("条件路由", QJsonDocument(initial).toJson());
    QCOMPARE(state["route"].toString(), route);
    QTEST(state["answer"].toString(), "answer");
    const QStringList steps = stepsOf(widget("条件路由"));
    QCOMPARE(steps.size(), 2);
    QVERIFY2(steps.at(0).startsWith("classify | " + route + " | "), qPrintable(steps.at(0)));
    QVERIFY2(steps.at(1).startsWith(route + " |  | "), qPrintable(steps.at(1)));
}

void TestWorkflowPages::loopRunsUntilThree_data()
{
    QTest::addColumn<QByteArray>("initial");
    QTest::addColumn<QByteArray>("final");
    QTest::newRow("from 0") << QByteArray(R"({"count":0,"log":[]})")
                            << QByteArray(
                                   R"({"count":3,"log":["第 1 步已执行","第 2 步已执行","第 3 步已执行"]})");
    QTest::newRow("from 5 once") << QByteArray(R"({"count":5,"log":[]})")
                                 << QByteArray(R"({"count":6,"log":["第 6 步已执行"]})");
    QTest::newRow("from the largest integer, after which a number no longer counts as one")
        << QByteArray(R"({"count":2147483647,"log":[]})")
        << QByteArray(
               R"({"count":3,"log":["第 2147483648 步已执行","第 1 步已执行","第 2 步已执行","第 3 步已执行"]})");
    QTest::newRow("from nothing") << QByteArray(
        "{}") << QByteArray(R"({"count":3,"log":["第 1 步已执行","第 2 步已执行","第 3 步已执行"]})");
    QTest::newRow("values of other types")
        << QByteArray(R"({"count":"2","log":"x"})")
        << QByteArray(R"({"count":3,"log":["第 1 步已执行","第 2 步已执行","第 3 步已执行"]})");
}

void TestWorkflowPages::loopRunsUntilThree()
{
    QFETCH(QByteArray, initial);
    QFETCH(QByteArray, final);
    QCOMPARE(stateAfterRun("循环直到完成", initial), QJsonDocument::fromJson(final).object());
}

void TestWorkflowPages::reviewDependsOnCheckAndApproval_data()
{
    QTest::addColumn<QByteArray>("initial");
    QTest::addColumn<QString>("result");
    QTest::newRow("approved") << QByteArray(R"({"task":"T","approved":true})")
                              << "动作草稿：T；已进入人工审核；审核通过并已执行";
    QTest::newRow("not approved") << QByteArray(R"({"task":"T","approved":false})")
                                  << "动作草稿：T；已进入人工审核；审核拒绝并已停止";
    QTest::newRow("approval is missing")
        << QByteArray(R"({"task":"T"})") << "动作草稿：T；已进入人工审核；审核拒绝并已停止";
}

void TestWorkflowPages::reviewDependsOnCheckAndApproval()
{
    QFETCH(QByteArray, initial);
    widget("人工审核")->findChild<QCheckBox *>("approvedCheck")->setChecked(true);
    const QJsonObject state = stateAfterRun("人工审核", initial);
    QTEST(state["result"].toString(), "result");
    QCOMPARE(stepsOf(widget("人工审核")).size(), 3);
}

void TestWorkflowPages::stateTextThatIsNoObjectIsReported_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");
    QTest::newRow("not JSON") << "{topic"
                              << "状态 JSON 无效：unterminated object";
    QTest::newRow("an array") << "[1]"
                              << "状态 JSON 无效：JSON root is not an object.";
    QTest::newRow("empty") << ""
                           << "状态 JSON 无效：illegal value";
    QTest::newRow("an object in a fence") << "```json\n{}\n```"
                                          << "状态 JSON 无效：illegal value";
    QTest::newRow("text after the object") << "{} x"
                                           << "状态 JSON 无效：garbage at the end of the document";
}

void TestWorkflowPages::stateTextThatIsNoObjectIsReported()
{
    QFETCH(QString, text);
    const PageDriver driver = page("状态流程");
    driver.run();
    QCOMPARE(stepsOf(widget("状态流程")).size(), 1);
    driver.editor("graphState")->setPlainText(text);
    driver.run();
    QTEST(driver.output(), "message");
    QVERIFY(stepsOf(widget("状态流程")).isEmpty());
    QCOMPARE(driver.text("graphState"), text);
}

void TestWorkflowPages::deeplyNestedStateIsHandled_data()
{
    QTest::addColumn<int>("levels");
    QTest::addColumn<bool>("runs");
    QTest::newRow("a thousand levels run") << 1000 << true;
    QTest::newRow("two thousand levels are reported") << 2000 << false;
}

void TestWorkflowPages::deeplyNestedStateIsHandled()
{
    QFETCH(int, levels);
    QFETCH(bool, runs);
    const PageDriver driver = page("状态流程");
    const QString nested = QString("[").repeated(levels) + QString("]").repeated(levels);
    driver.editor("graphState")->setPlainText(R"({"topic":"t","deep":)" + nested + "}");
    driver.run();
    QCOMPARE(driver.output().startsWith("状态 JSON 无效："), !runs);
    QCOMPARE(stepsOf(widget("状态流程")).size(), runs ? 1 : 0);
}

void TestWorkflowPages::stepsAreRefilledByEveryRun()
{
    page("多步骤流程").run();
    page("多步骤流程").run();
    QCOMPARE(stepsOf(widget("多步骤流程")).size(), 2);
}

void TestWorkflowPages::modelNodeAsksTheModel()
{
    const PageDriver driver = page("模型节点");
    QCOMPARE(widget("模型节点")->findChild<QLabel *>()->text(), QStringLiteral("主题"));
    QCOMPARE(driver.text("pageInput"), QStringLiteral("Orvane 流程模型节点"));
    driver.type(" %1 x ");
    driver.run();
    const HeldModel::Call &call = m_model->lastCall();
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(call.messages.at(0).role, QStringLiteral("system"));
    QCOMPARE(call.messages.at(0).content, QStringLiteral("你是一个流程节点，只输出简洁回答。"));
    QCOMPARE(call.messages.at(1).content, QStringLiteral("请解释：%1 x"));
    QVERIFY(call.tools.isEmpty());
    call.reply->appendDelta("x");
    QCOMPARE(driver.output(), QStringLiteral("x"));
    call.reply->fail("broken");
    QCOMPARE(driver.output(), QStringLiteral("错误：broken"));
}

void TestWorkflowPages::toolNodeLooksTheTermUp_data()
{
    QTest::addColumn<QString>("term");
    QTest::addColumn<QString>("toolOutput");
    QTest::newRow("the default") << "RAG"
                                 << "RAG 会先检索相关知识，再把知识作为上下文交给模型回答。";
    QTest::newRow("an unknown term") << "rag"
                                     << "没有找到本地术语说明。";
    QTest::newRow("blanks around the term")
        << " 流程\n"
        << "Orvane Workflow 用于构建有状态、多步骤、可循环、可恢复的智能体流程。";
}

void TestWorkflowPages::toolNodeLooksTheTermUp()
{
    QFETCH(QString, term);
    QFETCH(QString, toolOutput);
    const PageDriver driver = page("工具节点");
    QCOMPARE(driver.text("pageInput"), QStringLiteral("RAG"));
    QCOMPARE(widget("工具节点")->findChild<QLabel *>()->text(), QStringLiteral("术语"));
    driver.type(term);
    driver.run();
    QCOMPARE(QJsonDocument::fromJson(driver.output().toUtf8()).object(),
             (QJsonObject{{"term", term.trimmed()}, {"toolOutput", toolOutput}}));
    const QString update = QStringLiteral("{ \"toolOutput\": \"%1\" }").arg(toolOutput);
    QVERIFY(stepsOf(widget("工具节点")).first().startsWith("tool |  | " + update + " | "));
}

void TestWorkflowPages::toolNodeKeepsItsToolToItself()
{
    page("工具节点").run();
    QVERIFY(!m_registry->tool("lookup_term"));
    const auto *tool = widget("工具节点")->findChild<FunctionTool *>();
    QCOMPARE(tool->name(), QStringLiteral("lookup_term"));
    QCOMPARE(tool->description(), QStringLiteral("查询本地 AI 框架术语。"));
    QCOMPARE(tool->parameters()["properties"].toObject(),
             (QJsonObject{{"term", QJsonObject{{"type", "string"}}}}));
}

void TestWorkflowPages::agentGraphUsesTheSharedRegistry_data()
{
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("term");
    QTest::newRow("the default question") << "什么是 RAG？"
                                          << "RAG";
    QTest::newRow("rag in small letters") << "is it rag"
                                          << "RAG";
    QTest::newRow("rag before workflow") << "Workflow and Rag"
                                         << "RAG";
    QTest::newRow("workflow") << "WorkFlow?"
                              << "Workflow";
    QTest::newRow("anything else") << "你好"
                                   << "Chain";
}

void TestWorkflowPages::agentGraphUsesTheSharedRegistry()
{
    QFETCH(QString, question);
    QFETCH(QString, term);
    QString calledWith;
    m_registry->registerTool(new FunctionTool("lookup_term", "", {}, ToolPermission::ReadOnly,
                                              [&calledWith](const QJsonObject &arguments) {
                                                  calledWith = arguments["term"].toString();
                                                  return ToolResult{true, {}, "found %1", {}, {}};
                                              }));
    const PageDriver driver = page("智能体流程");
    QCOMPARE(driver.text("pageInput"), QStringLiteral("什么是 RAG？"));
    driver.type(question);
    driver.run();
    QCOMPARE(calledWith, term);
    QCOMPARE(QJsonDocument::fromJson(driver.output().toUtf8()).object(),
             (QJsonObject{{"question", question},
                          {"term", term},
                          {"needsTool", true},
                          {"toolOutput", "found %1"},
                          {"answer", "最终回答：found %1"}}));
    const QStringList steps = stepsOf(widget("智能体流程"));
    QCOMPARE(steps.size(), 3);
    QVERIFY(steps.at(0).startsWith("agent | tools | "));
    QVERIFY(steps.at(1).startsWith("tools |  | "));
    QVERIFY(steps.at(2).startsWith("final |  | "));
}

void TestWorkflowPages::agentGraphRegistersItsToolOnce()
{
    page("智能体流程").run();
    const AgentTool *tool = m_registry->tool("lookup_term");
    QVERIFY(tool);
    QCOMPARE(tool->parent(), m_registry.get());
    QCOMPARE(tool->description(), QStringLiteral("查询本地 AI 框架术语。"));
    page("智能体流程").run();
    QCOMPARE(m_registry->tool("lookup_term"), tool);
    QCOMPARE(m_registry->definitions().size(), 1);
}

void TestWorkflowPages::agentGraphTakesTheQuestionThatItWasBuiltFor()
{
    page("智能体流程").run();
    const GraphRunResult result = agentGraph("rag", m_registry.get()).run({{"question", "workflow"}});
    QCOMPARE(result.state["term"], QJsonValue("RAG"));
}

void TestWorkflowPages::lookUpShowsTheContentOfTheResultOnly()
{
    FunctionTool failing("lookup_term", "", {}, ToolPermission::ReadOnly, [](const QJsonObject &) {
        return ToolResult{false, {}, {}, "broken", {}};
    });
    QCOMPARE(toolNodeGraph(&failing).run({{"term", "RAG"}}).state["toolOutput"], QJsonValue(""));
}

void TestWorkflowPages::agentGraphReportsADeletedRegistry()
{
    m_registry.reset();
    page("智能体流程").run();
    QVERIFY(page("智能体流程").output().startsWith("错误：工具注册表尚未配置。\n\n"));
    QVERIFY(stepsOf(widget("智能体流程")).isEmpty());
}

void TestWorkflowPages::memoryMeetsInTheCheckpoint()
{
    const PageDriver driver = page("记忆检查点");
    const auto *message = widget("记忆检查点")->findChild<QLineEdit *>("messageEdit");
    QCOMPARE(widget("记忆检查点")->findChild<QLineEdit *>("threadIdEdit")->text(),
             QStringLiteral("demo-thread"));
    driver.click("firstTurnButton");
    QCOMPARE(message->text(), QStringLiteral("请记住：项目名称是 TAVO。"));
    const QString first = QStringLiteral("\n用户：请记住：项目名称是 TAVO。\n助手：我已经保存这条记忆。");
    QCOMPARE(QJsonDocument::fromJson(driver.output().toUtf8()).object(),
             (QJsonObject{{"input", "请记住：项目名称是 TAVO。"},
                          {"history", first},
                          {"answer", "助手：我已经保存这条记忆。"}}));
    driver.click("secondTurnButton");
    QCOMPARE(message->text(), QStringLiteral("我的项目叫什么？"));
    QCOMPARE(QJsonDocument::fromJson(driver.output().toUtf8()).object(),
             (QJsonObject{{"input", "我的项目叫什么？"},
                          {"history", first + "\n用户：我的项目叫什么？\n助手：你的项目是 TAVO。"},
                          {"answer", "助手：你的项目是 TAVO。"}}));
    QCOMPARE(stepsOf(widget("记忆检查点")).size(), 1);
}

void TestWorkflowPages::threadsDoNotSeeEachOther()
{
    const PageDriver driver = page("记忆检查点");
    driver.click("firstTurnButton");
    widget("记忆检查点")->findChild<QLineEdit *>("threadIdEdit")->setText("other");
    driver.click("secondTurnButton");
    const QJsonObject state = QJsonDocument::fromJson(driver.output().toUtf8()).object();
    QCOMPARE(state["history"].toString(),
             QStringLiteral("\n用户：我的项目叫什么？\n助手：你的项目是 TAVO。"));
}

void TestWorkflowPages::memoryTellsQuestionsFromNotes_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<bool>("isQuestion");
    QTest::newRow("a note") << "项目名称是 TAVO。" << false;
    QTest::newRow("什么") << "项目叫什么呢" << true;
    QTest::newRow("a Chinese question mark") << "记得吗？" << true;
    QTest::newRow("a question mark") << "project?" << true;
    QTest::newRow("a question mark inside") << "记得吗？好。" << false;
    QTest::newRow("nothing") << "" << false;
}

void TestWorkflowPages::memoryTellsQuestionsFromNotes()
{
    QFETCH(QString, input);
    QFETCH(bool, isQuestion);
    QCOMPARE(memoryGraph().run({{"input", input}}).state["answer"].toString(),
             isQuestion ? QStringLiteral("助手：你的项目是 TAVO。")
                        : QStringLiteral("助手：我已经保存这条记忆。"));
}

QTEST_MAIN(TestWorkflowPages)
#include "tst_workflowpages.moc"
