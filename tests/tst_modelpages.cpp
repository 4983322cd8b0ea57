#include "support/heldmodel.h"
#include "support/pagegroup.h"

#include <demo/modelpages.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/toolregistry.h>

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// What a request carries, one "role: content" a message.
QStringList linesOf(const HeldModel::Call &call)
{
    QStringList lines;
    for (const ChatMessage &message : call.messages)
        lines.append(message.role + ": " + message.content);
    return lines;
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(ChatReply *)>)

class TestModelPages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void tenPagesStandInTheirOrder();
    void simplePageHasItsLayoutAndTexts_data();
    void simplePageHasItsLayoutAndTexts();
    void modelIsAskedForOnlyWhenAPageRuns();
    void requestCarriesThePagesMessages_data();
    void requestCarriesThePagesMessages();
    void inputIsTrimmedAndAnEmptyOneIsSent();
    void answerStreamsIntoTheOutput();
    void failureReplacesWhatStreamed();
    void textsFromTheModelAreNeverMarkup();
    void replyIsDeletedWhenItIsOver_data();
    void replyIsDeletedWhenItIsOver();
    void newRunCancelsTheEarlierReply();
    void pageMayDieWithAReplyInFlight();
    void deletedModelIsReported();
    void eachPageAnswersWithTheMockModel_data();
    void eachPageAnswersWithTheMockModel();
    void outputParsersShowBothResults_data();
    void outputParsersShowBothResults();
    void structuredOutputNamesTheMissingField_data();
    void structuredOutputNamesTheMissingField();
    void parallelRunShowsThreeBranches();
    void contextStaysAboveTheStreamedAnswer();
    void failureReplacesTheContext();

private:
    PageDriver page(const QString &title) const { return PageDriver(m_group->page(title)); }

    std::unique_ptr<HeldModel> m_model;
    std::unique_ptr<ToolRegistry> m_registry;
    std::unique_ptr<PageGroup> m_group;
    int m_modelRequests = 0;
};

void TestModelPages::init()
{
    m_model = std::make_unique<HeldModel>();
    m_registry = std::make_unique<ToolRegistry>();
    m_group = std::make_unique<PageGroup>();
    m_modelRequests = 0;
    const ModelProvider model = [this] {
        ++m_modelRequests;
        return m_model.get();
    };
    addModelPages(m_group->item(), m_group->stack(), model, [this] { return m_registry.get(); });
}

void TestModelPages::cleanup()
{
    m_group.reset();
    m_registry.reset();
    m_model.reset();
}

void TestModelPages::tenPagesStandInTheirOrder()
{
    QCOMPARE(m_group->titles(),
             (QStringList{"基础聊天模型", "提示词模板", "可运行链", "输出解析器", "流式输出", "对话历史",
                          "工具调用", "结构化输出", "并行运行", "简单 RAG"}));
    QCOMPARE(m_group->stack()->count(), 10);
}

void TestModelPages::simplePageHasItsLayoutAndTexts_data()
{
    QTest::addColumn<QString>("inputLabel");
    QTest::addColumn<QString>("defaultInput");
    QTest::newRow("基础聊天模型") << "用户消息"
                                  << "用一句话介绍 Orvane。";
    QTest::newRow("提示词模板") << "主题"
                                << "PromptTemplate";
    QTest::newRow("可运行链") << "术语"
                              << "Runnable";
    QTest::newRow("输出解析器") << "原始 JSON"
                                << R"({"name":"OutputParser","purpose":"把模型文本转换为程序可用数据"})";
    QTest::newRow("流式输出") << "用户消息"
                              << "流式输出一段简短的 Orvane 状态消息。";
    QTest::newRow("对话历史") << "追问"
                              << "我刚才提到的项目叫什么？";
    QTest::newRow("结构化输出")
        << "原始 JSON"
        << R"({"name":"Orvane","purpose":"构建 Qt 原生智能体应用","confidence":0.92})";
    QTest::newRow("并行运行") << "主题"
                              << "Orvane Chain";
    QTest::newRow("简单 RAG") << "问题"
                              << "状态流程适合做什么？";
}

void TestModelPages::simplePageHasItsLayoutAndTexts()
{
    QFETCH(QString, inputLabel);
    QFETCH(QString, defaultInput);
    const QString title = QString::fromUtf8(QTest::currentDataTag());
    const QWidget *widget = m_group->page(title);
    const PageDriver driver = page(title);
    const auto *form = widget->findChild<QGroupBox *>();
    const auto *label = widget->findChild<QLabel *>();
    QCOMPARE(form->title(), title);
    QCOMPARE(label->text(), inputLabel);
    QCOMPARE(label->buddy(), driver.editor("pageInput"));
    QCOMPARE(driver.text("pageInput"), defaultInput);
    QCOMPARE(driver.editor("pageInput")->minimumSize(), QSize(320, 160));
    QCOMPARE(driver.button("runButton")->text(), QStringLiteral("运行"));
    QCOMPARE(driver.editor("pageOutput")->minimumHeight(), 220);
    QVERIFY(driver.editor("pageOutput")->isReadOnly());
    QCOMPARE(widget->layout()->contentsMargins(), QMargins(14, 14, 14, 14));
    QCOMPARE(widget->layout()->spacing(), 12);
    const auto *layout = qobject_cast<QHBoxLayout *>(widget->layout());
    QCOMPARE(layout->stretch(0), 0);
    QCOMPARE(layout->stretch(1), 1);
}

void TestModelPages::modelIsAskedForOnlyWhenAPageRuns()
{
    QCOMPARE(m_modelRequests, 0);
    page("输出解析器").run();
    page("结构化输出").run();
    page("并行运行").run();
    QCOMPARE(m_modelRequests, 0);
    page("基础聊天模型").run();
    QCOMPARE(m_modelRequests, 1);
}

void TestModelPages::requestCarriesThePagesMessages_data()
{
    QTest::addColumn<QStringList>("messages");
    QTest::newRow("基础聊天模型") << QStringList{"system: 你是一个简洁的 Qt Orvane 助手。",
                                                 "user: 输入 {term} %1"};
    QTest::newRow("提示词模板") << QStringList{"system: 你是面向 Qt/C++ 工程师的简洁教学助手。",
                                               "user: 请用实用、紧凑风格解释：输入 {term} %1"};
    QTest::newRow("可运行链") << QStringList{"system: 请返回简短、实用的解释。",
                                             "user: 解释术语 输入 {term} %1，并给出一个使用场景。"};
    QTest::newRow("流式输出") << QStringList{"user: 输入 {term} %1"};
    QTest::newRow("对话历史") << QStringList{
        "system: 你是一个简洁助手。", "user: 请记住：TAVO 是一个 2D/3D 集成平台。",
        "assistant: 我会记住 TAVO 是一个 2D/3D 集成平台。", "user: 输入 {term} %1"};
    QTest::newRow("简单 RAG") << QStringList{
        "system: Answer only from the supplied context. If the context is insufficient, say so briefly.",
        "user: Context:\n- Orvane Chain 用于把模型、提示词、工具和解析器组合成应用流程。\n"
        "- Orvane Workflow 适合构建有状态、多步骤、可循环、可中断的智能体流程。\n\nQuestion: 输入 {term} %1"};
}

void TestModelPages::requestCarriesThePagesMessages()
{
    QFETCH(QStringList, messages);
    const QString title = QString::fromUtf8(QTest::currentDataTag());
    page(title).type("  输入 {term} %1\n");
    page(title).run();
    QCOMPARE(m_model->calls().size(), 1);
    QCOMPARE(linesOf(m_model->lastCall()), messages);
    QVERIFY(m_model->lastCall().tools.isEmpty());
    QCOMPARE(m_model->lastCall().parent.data(), m_group->page(title));
}

void TestModelPages::inputIsTrimmedAndAnEmptyOneIsSent()
{
    page("流式输出").type(" \n ");
    page("流式输出").run();
    QCOMPARE(linesOf(m_model->lastCall()), QStringList{"user: "});
}

void TestModelPages::answerStreamsIntoTheOutput()
{
    const PageDriver driver = page("流式输出");
    driver.editor("pageOutput")->setPlainText("earlier");
    driver.run();
    QCOMPARE(driver.output(), QString());
    const QPointer<ChatReply> reply = m_model->lastCall().reply;
    reply->appendDelta("一 ");
    QCOMPARE(driver.output(), QStringLiteral("一 "));
    driver.editor("pageOutput")->moveCursor(QTextCursor::Start);
    reply->appendDelta("二");
    QCOMPARE(driver.output(), QStringLiteral("一 二"));
    reply->finish("ignored");
    QCOMPARE(driver.output(), QStringLiteral("一 二"));
}

void TestModelPages::failureReplacesWhatStreamed()
{
    const PageDriver driver = page("基础聊天模型");
    driver.run();
    const QPointer<ChatReply> reply = m_model->lastCall().reply;
    reply->appendDelta("half");
    reply->fail("no %1 network\nline");
    QCOMPARE(driver.output(), QStringLiteral("错误：no %1 network\nline"));
}

void TestModelPages::textsFromTheModelAreNeverMarkup()
{
    const PageDriver driver = page("基础聊天模型");
    driver.run();
    m_model->lastCall().reply->appendDelta("<b>x</b> %1 %L1");
    QCOMPARE(driver.output(), QStringLiteral("<b>x</b> %1 %L1"));
}

void TestModelPages::replyIsDeletedWhenItIsOver_data()
{
    using End = std::function<void(ChatReply *)>;
    QTest::addColumn<End>("end");
    QTest::newRow("finished") << End([](ChatReply *reply) { reply->finish("x"); });
    QTest::newRow("failed") << End([](ChatReply *reply) { reply->fail("x"); });
    QTest::newRow("canceled") << End([](ChatReply *reply) { reply->cancel(); });
}

void TestModelPages::replyIsDeletedWhenItIsOver()
{
    QFETCH(std::function<void(ChatReply *)>, end);
    const PageDriver driver = page("基础聊天模型");
    driver.run();
    QCOMPARE(driver.replies().size(), 1);
    end(m_model->lastCall().reply);
    QTRY_VERIFY(driver.replies().isEmpty());
}

void TestModelPages::newRunCancelsTheEarlierReply()
{
    const PageDriver driver = page("基础聊天模型");
    driver.run();
    const QPointer<ChatReply> earlier = m_model->lastCall().reply;
    earlier->appendDelta("old");
    driver.run();
    QVERIFY(earlier->isCanceled());
    earlier->appendDelta("late");
    earlier->finish("late");
    m_model->lastCall().reply->appendDelta("new");
    QCOMPARE(driver.output(), QStringLiteral("new"));
    QVERIFY(driver.button("runButton")->isEnabled());
}

void TestModelPages::pageMayDieWithAReplyInFlight()
{
    m_model->addText({"late"});
    page("基础聊天模型").run();
    const QPointer<ChatReply> reply = m_model->lastCall().reply;
    delete m_group->page("基础聊天模型");
    QVERIFY(!reply);
}

void TestModelPages::deletedModelIsReported()
{
    m_model.reset();
    page("基础聊天模型").run();
    QTRY_COMPARE(page("基础聊天模型").output(), QStringLiteral("错误：智能体模型尚未配置。"));
    page("可运行链").run();
    QTRY_COMPARE(page("可运行链").output(), QStringLiteral("错误：RunnableChain has no model."));
}

void TestModelPages::eachPageAnswersWithTheMockModel_data()
{
    QTest::addColumn<QString>("title");
    for (const char *title : {"基础聊天模型", "提示词模板", "可运行链", "流式输出", "对话历史", "简单 RAG"})
        QTest::newRow(title) << QString::fromUtf8(title);
}

void TestModelPages::eachPageAnswersWithTheMockModel()
{
    QFETCH(QString, title);
    MockChatModel mock;
    PageGroup group;
    addModelPages(
        group.item(), group.stack(), [&mock] { return &mock; }, [this] { return m_registry.get(); });
    const PageDriver driver(group.page(title));
    driver.run();
    QTRY_VERIFY(driver.output().endsWith("因此可以离线测试演示程序。 "));
    QTRY_VERIFY(driver.replies().isEmpty());
}

void TestModelPages::outputParsersShowBothResults_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("output");
    QTest::newRow("an object") << R"( {"b":1,"a":"%2"} )"
                               << "字符串解析结果：\n{\"b\":1,\"a\":\"%2\"}\n\nJSON 解析结果：\n"
                                  "{\n    \"a\": \"%2\",\n    \"b\": 1\n}\n";
    QTest::newRow("an empty object") << "{}"
                                     << "字符串解析结果：\n{}\n\nJSON 解析结果：\n{\n}\n";
    QTest::newRow("an array")
        << "[1, 2]"
        << "字符串解析结果：\n[1, 2]\n\nJSON 解析结果：\n错误：JSON root is not an object.";
    QTest::newRow("no JSON") << "{name"
                             << "字符串解析结果：\n{name\n\nJSON 解析结果：\n错误：unterminated object";
}

void TestModelPages::outputParsersShowBothResults()
{
    QFETCH(QString, input);
    const PageDriver driver = page("输出解析器");
    driver.type(input);
    driver.run();
    QTEST(driver.output(), "output");
}

void TestModelPages::structuredOutputNamesTheMissingField_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("output");
    QTest::newRow("complete") << R"({"purpose":null,"name":""})"
                              << "{\n    \"name\": \"\",\n    \"purpose\": null\n}\n";
    QTest::newRow("purpose is missing") << R"({"name":"Orvane"})"
                                        << "错误：Missing required field: purpose";
    QTest::newRow("both are missing") << "{}"
                                      << "错误：Missing required field: name";
    QTest::newRow("an array") << "[]"
                              << "错误：JSON root is not an object.";
}

void TestModelPages::structuredOutputNamesTheMissingField()
{
    QFETCH(QString, input);
    const PageDriver driver = page("结构化输出");
    driver.type(input);
    driver.run();
    QTEST(driver.output(), "output");
}

void TestModelPages::parallelRunShowsThreeBranches()
{
    const PageDriver driver = page("并行运行");
    driver.type("%1");
    driver.run();
    QCOMPARE(driver.output(),
             QStringLiteral("{\n    \"architect\": \"架构视角：%1 有助于组合清晰的应用边界。\",\n"
                            "    \"engineer\": \"工程视角：%1 应该易于调试和测试。\",\n"
                            "    \"teacher\": \"教学视角：%1 适合通过小型可运行示例学习。\"\n}\n"));
}

void TestModelPages::contextStaysAboveTheStreamedAnswer()
{
    const PageDriver driver = page("简单 RAG");
    driver.type("what is rag?");
    driver.run();
    const QString header =
        QStringLiteral("检索到的上下文：\n- RAG 会先检索相关知识，再将其作为上下文发送给模型回答。\n"
                       "- Orvane Chain 用于把模型、提示词、工具和解析器组合成应用流程。\n\n回答：\n");
    QCOMPARE(driver.output(), header);
    m_model->lastCall().reply->appendDelta("answer");
    QCOMPARE(driver.output(), header + "answer");
}

void TestModelPages::failureReplacesTheContext()
{
    const PageDriver driver = page("简单 RAG");
    driver.run();
    m_model->lastCall().reply->fail("broken");
    QCOMPARE(driver.output(), QStringLiteral("错误：broken"));
}

QTEST_MAIN(TestModelPages)
#include "tst_modelpages.moc"
