#include "support/httpendpoint.h"
#include "support/pagegroup.h"

#include <demo/devicetools.h>
#include <demo/modelpages.h>
#include <qtagent/agentexecutor.h>
#include <qtagent/toolregistry.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

// The model pages beside a server: what goes over the wire, and what becomes of a page whose answer comes
// late or as an error.
class TestModelPagesHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void requestIsSentAsItStands_data();
    void requestIsSentAsItStands();
    void parserPagesSendNothing();
    void answerStreamsInPieceByPiece();
    void serverErrorReplacesTheOutput();
    void newRunLeavesTheHeldAnswer();
    void pageMayDieWithARequestInFlight_data();
    void pageMayDieWithARequestInFlight();
    void glossaryPageLooksTwoTermsUp();
    void glossaryPageOffersTheSharedTools();
    void stopHaltsTheGlossaryPageAtOnce_data();
    void stopHaltsTheGlossaryPageAtOnce();
    void glossaryPageRunsAgainAfterAStop();
    void serverErrorIsAppendedToTheGlossaryAnswer();

private:
    PageDriver page(const QString &title) const { return PageDriver(m_group->page(title)); }
    int requestCount() const { return m_endpoint->server.requests().size(); }
    QJsonObject request(int index) const { return m_endpoint->server.requests().at(index).json; }

    std::unique_ptr<HttpEndpoint> m_endpoint;
    std::unique_ptr<ToolRegistry> m_registry;
    std::unique_ptr<PageGroup> m_group;
};

namespace {

const QString thinking = QStringLiteral("AI 正在思考...\n\n");

QJsonObject lookUp(const QString &id, const QString &term)
{
    return makeToolCall(id, "lookup_term", {{"term", term}});
}

QJsonObject resultOf(const QString &id, const QString &content)
{
    return {{"role", "tool"}, {"name", "lookup_term"}, {"tool_call_id", id}, {"content", content}};
}

QJsonArray assistantWith(const QJsonArray &toolCalls)
{
    return {QJsonObject{{"role", "assistant"}, {"content", ""}, {"tool_calls", toolCalls}}};
}

QString traceOf(const QString &term, const QString &output)
{
    return QStringLiteral("Tool: lookup_term\nStatus: success\n"
                          "Input:\n{\n    \"term\": \"%1\"\n}\n\nOutput:\n%2\n")
        .arg(term, output);
}

} // namespace

void TestModelPagesHttp::init()
{
    m_endpoint = std::make_unique<HttpEndpoint>();
    m_registry = std::make_unique<ToolRegistry>();
    registerDeviceTools(m_registry.get(), demoDevices());
    m_group = std::make_unique<PageGroup>();
    addModelPages(
        m_group->item(), m_group->stack(), [this] { return &m_endpoint->model; },
        [this] { return m_registry.get(); });
}

void TestModelPagesHttp::cleanup()
{
    m_group.reset();
    m_registry.reset();
    m_endpoint.reset();
}

void TestModelPagesHttp::requestIsSentAsItStands_data()
{
    const auto message = HttpEndpoint::message;
    QTest::addColumn<QJsonArray>("messages");
    QTest::newRow("基础聊天模型") << QJsonArray{
        message("system", "你是一个简洁的 Qt Orvane 助手。"),
        message("user", "用一句话介绍 Orvane。"),
    };
    QTest::newRow("提示词模板") << QJsonArray{
        message("system", "你是面向 Qt/C++ 工程师的简洁教学助手。"),
        message("user", "请用实用、紧凑风格解释：PromptTemplate"),
    };
    QTest::newRow("可运行链") << QJsonArray{
        message("system", "请返回简短、实用的解释。"),
        message("user", "解释术语 Runnable，并给出一个使用场景。"),
    };
    QTest::newRow("流式输出") << QJsonArray{message("user", "流式输出一段简短的 Orvane 状态消息。")};
    QTest::newRow("对话历史") << QJsonArray{
        message("system", "你是一个简洁助手。"),
        message("user", "请记住：TAVO 是一个 2D/3D 集成平台。"),
        message("assistant", "我会记住 TAVO 是一个 2D/3D 集成平台。"),
        message("user", "我刚才提到的项目叫什么？"),
    };
    QTest::newRow("简单 RAG") << QJsonArray{
        message("system",
                "Answer only from the supplied context. If the context is insufficient, say so briefly."),
        message("user", "Context:\n- Orvane Chain 用于把模型、提示词、工具和解析器组合成应用流程。\n"
                        "- Orvane Workflow 适合构建有状态、多步骤、可循环、可中断的智能体流程。\n\n"
                        "Question: 状态流程适合做什么？"),
    };
}

void TestModelPagesHttp::requestIsSentAsItStands()
{
    QFETCH(QJsonArray, messages);
    m_endpoint->addStream({"回答", "。"});
    const PageDriver driver = page(QString::fromUtf8(QTest::currentDataTag()));
    driver.run();
    QTRY_VERIFY2(driver.output().endsWith("回答。"), qPrintable(driver.output()));
    QTRY_VERIFY(driver.replies().isEmpty());
    QCOMPARE(requestCount(), 1);
    QCOMPARE(request(0), HttpEndpoint::requestWith(messages));
}

void TestModelPagesHttp::parserPagesSendNothing()
{
    for (const char *title : {"输出解析器", "结构化输出", "并行运行"}) {
        page(title).run();
        QVERIFY(page(title).replies().isEmpty());
    }
    // A request of theirs would have arrived before this one.
    m_endpoint->addStream({"x"});
    page("基础聊天模型").run();
    QTRY_COMPARE(page("基础聊天模型").output(), QStringLiteral("x"));
    QCOMPARE(requestCount(), 1);
}

void TestModelPagesHttp::answerStreamsInPieceByPiece()
{
    m_endpoint->addStream({"一 ", "<b>二</b>"}, 1);
    const PageDriver driver = page("流式输出");
    driver.run();
    QTRY_COMPARE(driver.output(), QStringLiteral("一 "));
    m_endpoint->server.release();
    QTRY_COMPARE(driver.output(), QStringLiteral("一 <b>二</b>"));
}

void TestModelPagesHttp::serverErrorReplacesTheOutput()
{
    m_endpoint->addRefusal();
    const PageDriver driver = page("简单 RAG");
    driver.run();
    QVERIFY(driver.output().startsWith("检索到的上下文："));
    QTRY_VERIFY(driver.output().startsWith("错误：OpenAI-compatible request failed.\n"));
    QVERIFY2(driver.output().endsWith("\nResponse: bad key"), qPrintable(driver.output()));
}

void TestModelPagesHttp::newRunLeavesTheHeldAnswer()
{
    m_endpoint->addStream({"old ", "late"}, 1);
    m_endpoint->addStream({"new"}, 1);
    const PageDriver driver = page("基础聊天模型");
    driver.run();
    QTRY_COMPARE(driver.output(), QStringLiteral("old "));
    driver.run();
    QCOMPARE(driver.output(), QString());
    QTRY_COMPARE(driver.output(), QStringLiteral("new"));
    m_endpoint->server.release();
    QTRY_VERIFY(driver.replies().isEmpty());
    QCOMPARE(driver.output(), QStringLiteral("new"));
}

void TestModelPagesHttp::pageMayDieWithARequestInFlight_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("a simple page") << "基础聊天模型";
    QTest::newRow("a chain's page") << "可运行链";
    QTest::newRow("the retrieval page") << "简单 RAG";
    QTest::newRow("the glossary page") << "工具调用";
}

void TestModelPagesHttp::pageMayDieWithARequestInFlight()
{
    QFETCH(QString, title);
    m_endpoint->addStream({"late"}, 0);
    page(title).run();
    QTRY_COMPARE(requestCount(), 1);
    const QPointer<ChatReply> reply = page(title).replies().first();
    delete m_group->page(title);
    QVERIFY(!reply);

    // The model serves the next page all the same.
    m_endpoint->addStream({"x"});
    page("流式输出").run();
    QTRY_COMPARE(page("流式输出").output(), QStringLiteral("x"));
}

void TestModelPagesHttp::glossaryPageLooksTwoTermsUp()
{
    const QString chain = QStringLiteral("Orvane Chain 用于把模型、提示词、工具和输出解析器组合成应用流程。");
    const QString workflow =
        QStringLiteral("Orvane Workflow 用于构建有状态、多步骤、可循环、可恢复的智能体流程。");
    const QJsonArray first{lookUp("c1", "Workflow")};
    const QJsonArray second{lookUp("c2", "Chain")};
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("", first)));
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("", second)));
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("查到 Workflow 和 Chain。")));
    const PageDriver driver = page("工具调用");
    driver.run();
    QVERIFY(!driver.isIdle());
    QTRY_VERIFY(driver.isIdle());
    QCOMPARE(driver.output(), thinking + "查到 Workflow 和 Chain。");
    const QString traces = driver.text("traceOutput").remove(QRegularExpression("Duration: \\d+ ms\n"));
    QCOMPARE(traces, traceOf("Workflow", workflow) + "\n---\n" + traceOf("Chain", chain));

    QCOMPARE(requestCount(), 3);
    const QJsonArray question{
        HttpEndpoint::message("system",
                              "You are an Orvane demo assistant. Use the lookup_term tool when the question "
                              "needs local glossary knowledge. After tools return, answer in Chinese and "
                              "mention which terms were looked up."),
        HttpEndpoint::message("user", "请解释 Orvane Workflow 和 Chain 的区别，并说明什么时候需要工具调用。"),
    };
    QCOMPARE(request(0)["messages"].toArray(), question);
    const QJsonArray afterFirst =
        question + assistantWith(first).first() + QJsonValue(resultOf("c1", workflow));
    QCOMPARE(request(1)["messages"].toArray(), afterFirst);
    QCOMPARE(request(2)["messages"].toArray(),
             afterFirst + assistantWith(second).first() + QJsonValue(resultOf("c2", chain)));
}

void TestModelPagesHttp::glossaryPageOffersTheSharedTools()
{
    m_endpoint->addStream({}, 0);
    const PageDriver driver = page("工具调用");
    driver.run();
    QTRY_COMPARE(requestCount(), 1);
    QCOMPARE(request(0)["stream"], QJsonValue(false));
    QCOMPARE(request(0)["tool_choice"], QJsonValue("auto"));
    const QJsonArray tools = request(0)["tools"].toArray();
    QStringList names;
    for (const QJsonValue &tool : tools)
        names.append(tool["function"]["name"].toString());
    QCOMPARE(names, (QStringList{"query_device_status", "find_abnormal_devices", "generate_alarm_summary",
                                 "export_report", "query_all_device", "lookup_term"}));
    QCOMPARE(
        tools.last().toObject(),
        QJsonDocument::fromJson(
            R"({"type":"function","function":{"name":"lookup_term","description":"Look up a local Orvane / AI framework glossary term. Use this when the user asks about Chain, Workflow, RAG, tool calling, or prompt templates.","parameters":{"type":"object","properties":{"term":{"type":"string","description":"The term to look up."}},"required":["term"]}}})")
            .object());
}

void TestModelPagesHttp::stopHaltsTheGlossaryPageAtOnce_data()
{
    QTest::addColumn<int>("lookUps");
    QTest::newRow("before the first answer") << 0;
    QTest::newRow("after a look-up") << 1;
}

void TestModelPagesHttp::stopHaltsTheGlossaryPageAtOnce()
{
    QFETCH(int, lookUps);
    for (int i = 0; i < lookUps; ++i)
        m_endpoint->server.enqueue(LoopbackAnswer::json(completion("", {lookUp("c", "RAG")})));
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("", {lookUp("late", "Chain")})).held());
    const PageDriver driver = page("工具调用");
    driver.run();
    QTRY_COMPARE(requestCount(), lookUps + 1);
    const QString answer = driver.output();
    const QString traces = driver.text("traceOutput");
    const QPointer<ChatReply> reply = driver.replies().last();

    driver.click("stopButton");
    QVERIFY(driver.isIdle());
    QVERIFY(reply->isCanceled());
    m_endpoint->server.release();
    m_endpoint->addStream({"x"});
    page("流式输出").run(); // by the time of its answer the held one would have come
    QTRY_COMPARE(page("流式输出").output(), QStringLiteral("x"));
    QCOMPARE(driver.output(), answer);
    QCOMPARE(driver.text("traceOutput"), traces);
    QCOMPARE(requestCount(), lookUps + 2);
}

void TestModelPagesHttp::glossaryPageRunsAgainAfterAStop()
{
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("late")).held());
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("", {lookUp("c1", "rag")})));
    m_endpoint->server.enqueue(LoopbackAnswer::json(completion("fresh")));
    const PageDriver driver = page("工具调用");
    driver.run();
    QTRY_COMPARE(requestCount(), 1);
    const QPointer<AgentExecutor> earlier = m_group->page("工具调用")->findChild<AgentExecutor *>();
    driver.click("stopButton");
    m_endpoint->server.release();
    driver.type("什么是 rag？");
    driver.run();
    QTRY_VERIFY(driver.isIdle());
    QVERIFY(!earlier);
    QCOMPARE(driver.output(), thinking + "fresh");
    QCOMPARE(driver.text("traceOutput").count("Tool: lookup_term"), 1);
    QVERIFY(driver.text("traceOutput").endsWith("Output:\n没有找到本地术语说明。\n"));
    QCOMPARE(request(1)["messages"].toArray().last(),
             QJsonValue(HttpEndpoint::message("user", "什么是 rag？")));
}

void TestModelPagesHttp::serverErrorIsAppendedToTheGlossaryAnswer()
{
    m_endpoint->addRefusal();
    const PageDriver driver = page("工具调用");
    driver.run();
    QTRY_VERIFY(driver.isIdle());
    QVERIFY(driver.output().startsWith(thinking + "\n错误：OpenAI-compatible request failed.\n"));
    QVERIFY2(driver.output().endsWith("\nResponse: bad key"), qPrintable(driver.output()));
}

QTEST_MAIN(TestModelPagesHttp)
#include "tst_modelpages_http.moc"
