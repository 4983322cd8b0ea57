// Services that want the reasoning of an answer with tool calls back, and others that refuse it.

#include "support/completionrecorder.h"
#include "support/httpendpoint.h"
#include "support/sessionfixture.h"

#include <qtagent/deepseekmodel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestKeepReasoning : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutTheOptionNothingGoesBack();
    void agentGoesOnWithAServiceThatWantsItsReasoning_data();
    void agentGoesOnWithAServiceThatWantsItsReasoning();
    void reasoningGoesBackUnderItsKey_data();
    void reasoningGoesBackUnderItsKey();
    void emptyKeyGoesBackOnceItWasSent();
    void onlyTheSameCallsGetIt_data();
    void onlyTheSameCallsGetIt();
    void newestReasoningWins();
    void otherAddressGetsNone();
    void metadataWins();
    void messageWithoutCallsGetsNone();
    void tagsAndPartsNeverGoBack();
    void agentSendsTheAnswerWithoutItsThoughts_data();
    void agentSendsTheAnswerWithoutItsThoughts();
};

namespace {

const QString refusal =
    QStringLiteral("The reasoning_content in the thinking mode must be passed back to the API.");

QJsonArray callsOf(const QString &id, const QJsonObject &arguments = {})
{
    return {makeToolCall(id, "read", arguments)};
}

QJsonObject answerWith(QJsonObject message)
{
    message.insert("role", "assistant");
    return {{"choices", QJsonArray{QJsonObject{{"index", 0}, {"message", message}}}}};
}

QByteArray eventWith(const QJsonObject &delta)
{
    const QJsonObject event{{"choices", QJsonArray{QJsonObject{{"index", 0}, {"delta", delta}}}}};
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

// A service that refuses a request without the reasoning it sent.
class ThinkingService
{
public:
    explicit ThinkingService(LoopbackServer *server)
    {
        server->setHandler([this](const LoopbackRequest &request) { return answerTo(request.json); });
    }

private:
    LoopbackAnswer answerTo(const QJsonObject &request)
    {
        int rounds = 0;
        const QJsonArray messages = request["messages"].toArray();
        for (const QJsonValue &message : messages) {
            if (!message.toObject().contains("tool_calls"))
                continue;
            if (message.toObject()["reasoning_content"] != thoughtOf(rounds++))
                return LoopbackAnswer::withStatus(400,
                                                  R"({"error":{"message":")" + refusal.toUtf8() + "\"}}");
        }
        const bool isDone = rounds == 2;
        QJsonObject message{{"content", isDone ? "All fine." : ""}, {"reasoning_content", thoughtOf(rounds)}};
        if (!isDone)
            message.insert("tool_calls", callsOf(QString("c%1").arg(rounds), {{"n", rounds}}));
        if (!request["stream"].toBool())
            return LoopbackAnswer::json(answerWith(message));
        return LoopbackAnswer::stream({eventWith(message), doneEvent()});
    }

    // The second answer comes without any.
    static QString thoughtOf(int round)
    {
        return round == 1 ? QString("") : QString("thought %1").arg(round);
    }
};

// The messages of the request that follows @p answer, which asks for callsOf("c").
QJsonArray messagesAfter(const QJsonObject &answer, const RequestOptions &options,
                         const QVector<ChatMessage> &conversation)
{
    HttpEndpoint endpoint;
    endpoint.model.setRequestOptions(options);
    endpoint.server.enqueue(LoopbackAnswer::json(answer));
    endpoint.server.enqueue(LoopbackAnswer::json(completion("done")));
    ModelConfig config = endpoint.model.config();
    config.stream = false;
    endpoint.model.setConfig(config);
    for (int i = 0; i < 2; ++i) {
        CompletionRecorder recorder(endpoint.model.chat(conversation, {}, nullptr));
        if (!recorder.waitForEnd())
            return {};
    }
    return endpoint.server.requests().value(1).json["messages"].toArray();
}

RequestOptions keeping()
{
    RequestOptions options;
    options.keepReasoning = true;
    return options;
}

QVector<ChatMessage> conversationWith(const QJsonArray &calls)
{
    return {ChatMessage::user("Hi"), ChatMessage::assistant("", calls), ChatMessage::tool("c", "read", "1")};
}

} // namespace

void TestKeepReasoning::withoutTheOptionNothingGoesBack()
{
    const QJsonObject answer = answerWith({{"tool_calls", callsOf("c")}, {"reasoning_content", "Hm"}});
    QVector<ChatMessage> conversation = conversationWith(callsOf("c"));
    conversation[1].metadata = {{"reasoning_content", "Hm"}};
    const QJsonArray sent = messagesAfter(answer, {}, conversation);
    QCOMPARE(sent, jsonOf(conversation));
    QCOMPARE(sent.size(), 3);
}

void TestKeepReasoning::agentGoesOnWithAServiceThatWantsItsReasoning_data()
{
    QTest::addColumn<bool>("isStream");
    QTest::addColumn<bool>("isSession");
    QTest::newRow("an executor") << false << false;
    QTest::newRow("a session") << false << true;
    QTest::newRow("an executor, streamed") << true << false;
    QTest::newRow("a session, streamed") << true << true;
}

void TestKeepReasoning::agentGoesOnWithAServiceThatWantsItsReasoning()
{
    QFETCH(bool, isStream);
    QFETCH(bool, isSession);
    LoopbackServer server;
    ThinkingService service(&server);
    DeepSeekModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    model.setConfig(config);
    RequestOptions options;
    options.streamToolCalls = isStream;
    model.setRequestOptions(options);

    AgentFixture agent(isSession ? new AgentSession : new AgentExecutor);
    agent.executor->setModel(&model);
    QSignalSpy finished(agent.executor, &AgentExecutor::assistantFinished);
    agent.executor->run("Look.");
    QTRY_VERIFY2(!finished.isEmpty() || !agent.log.filter("failed ").isEmpty(), "the run is over");
    QCOMPARE(agent.log.last(), "finished All fine.");
    QCOMPARE(server.requests().size(), 3);
    QCOMPARE(server.requests().last().json["model"], QJsonValue("deepseek-v4-flash"));
    QVERIFY(agent.log.filter("thought").isEmpty());
}

void TestKeepReasoning::reasoningGoesBackUnderItsKey_data()
{
    QTest::addColumn<QJsonObject>("sent");
    QTest::addColumn<QJsonObject>("back");
    const auto row = [](const char *name, const QJsonObject &sent, const QJsonObject &back) {
        QTest::newRow(name) << sent << back;
    };
    const QJsonArray details{QJsonObject{{"type", "reasoning.text"}, {"text", "Hm"}}};
    row("reasoning_content", {{"reasoning_content", "Hm"}}, {{"reasoning_content", "Hm"}});
    row("reasoning", {{"reasoning", "Hm"}}, {{"reasoning", "Hm"}});
    row("the same under both", {{"reasoning", "Hm"}, {"reasoning_content", "Hm"}},
        {{"reasoning_content", "Hm"}});
    row("details", {{"reasoning", "Hm"}, {"reasoning_details", details}},
        {{"reasoning", "Hm"}, {"reasoning_details", details}});
    row("none", {}, {});
    row("null", {{"reasoning_content", QJsonValue::Null}}, {});
    row("an empty text", {{"reasoning_content", ""}}, {{"reasoning_content", ""}});
}

void TestKeepReasoning::reasoningGoesBackUnderItsKey()
{
    QFETCH(QJsonObject, sent);
    QFETCH(QJsonObject, back);
    QJsonObject message = sent;
    message.insert("tool_calls", callsOf("c"));
    const QJsonArray messages = messagesAfter(answerWith(message), keeping(), conversationWith(callsOf("c")));
    back.insert("role", "assistant");
    back.insert("content", "");
    back.insert("tool_calls", callsOf("c"));
    QCOMPARE(messages.at(1).toObject(), back);
}

void TestKeepReasoning::emptyKeyGoesBackOnceItWasSent()
{
    const QJsonObject answer = answerWith({{"content", "Yes"}, {"reasoning", "Hm"}});
    const QJsonArray messages = messagesAfter(answer, keeping(), conversationWith(callsOf("c")));
    QCOMPARE(messages.at(1).toObject()["reasoning"], QJsonValue(""));
    QVERIFY(!messages.at(0).toObject().contains("reasoning"));
    QVERIFY(!messages.at(2).toObject().contains("reasoning"));
}

void TestKeepReasoning::onlyTheSameCallsGetIt_data()
{
    QTest::addColumn<QJsonArray>("calls");
    QTest::addColumn<QString>("reasoning");
    QTest::newRow("the same") << callsOf("c") << "Hm";
    QTest::newRow("without an id") << callsOf("") << "Hm";
    QTest::newRow("another id") << callsOf("d") << "";
    QTest::newRow("other arguments") << callsOf("c", {{"n", 1}}) << "";
    QTest::newRow("another name") << QJsonArray{makeToolCall("c", "write", {})} << "";
    QTest::newRow("one more") << QJsonArray{callsOf("c").at(0), callsOf("c").at(0)} << "";
}

void TestKeepReasoning::onlyTheSameCallsGetIt()
{
    QFETCH(QJsonArray, calls);
    const QJsonObject answer = answerWith({{"tool_calls", callsOf("c")}, {"reasoning_content", "Hm"}});
    const QJsonArray messages = messagesAfter(answer, keeping(), conversationWith(calls));
    QTEST(messages.at(1).toObject()["reasoning_content"].toString("none"), "reasoning");
}

void TestKeepReasoning::newestReasoningWins()
{
    HttpEndpoint endpoint;
    endpoint.model.setRequestOptions(keeping());
    for (const char *thought : {"old", "new"}) {
        endpoint.server.enqueue(
            LoopbackAnswer::json(answerWith({{"tool_calls", callsOf("c")}, {"reasoning", thought}})));
    }
    endpoint.server.enqueue(LoopbackAnswer::json(completion("done")));
    ModelConfig config = endpoint.model.config();
    config.stream = false;
    endpoint.model.setConfig(config);
    for (int i = 0; i < 3; ++i) {
        CompletionRecorder recorder(endpoint.model.chat(conversationWith(callsOf("c")), {}, nullptr));
        QVERIFY(recorder.waitForEnd());
    }
    QCOMPARE(endpoint.server.requests().last().json["messages"].toArray().at(1).toObject()["reasoning"],
             QJsonValue("new"));
}

void TestKeepReasoning::otherAddressGetsNone()
{
    HttpEndpoint endpoint;
    LoopbackServer other;
    endpoint.model.setRequestOptions(keeping());
    endpoint.server.enqueue(
        LoopbackAnswer::json(answerWith({{"tool_calls", callsOf("c")}, {"reasoning_content", "Hm"}})));
    other.enqueue(LoopbackAnswer::json(completion("done")));
    ModelConfig config = endpoint.model.config();
    config.stream = false;
    endpoint.model.setConfig(config);
    CompletionRecorder first(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(first.waitForEnd());
    config.baseUrl = other.baseUrl();
    endpoint.model.setConfig(config);
    CompletionRecorder second(endpoint.model.chat(conversationWith(callsOf("c")), {}, nullptr));
    QVERIFY(second.waitForEnd());
    QCOMPARE(other.requests().value(0).json["messages"].toArray(), jsonOf(conversationWith(callsOf("c"))));
}

void TestKeepReasoning::metadataWins()
{
    const QJsonObject answer = answerWith({{"tool_calls", callsOf("c")}, {"reasoning_content", "Hm"}});
    QVector<ChatMessage> conversation = conversationWith(callsOf("c"));
    conversation[1].metadata = {{"reasoning", "kept"}, {"reasoning_content", 7}, {"other", "x"}};
    const QJsonObject sent = messagesAfter(answer, keeping(), conversation).at(1).toObject();
    QCOMPARE(sent["reasoning"], QJsonValue("kept"));
    QVERIFY(!sent.contains("reasoning_content"));
    QVERIFY(!sent.contains("other"));
}

void TestKeepReasoning::messageWithoutCallsGetsNone()
{
    const QJsonObject answer = answerWith({{"content", "Yes"}, {"reasoning_content", "Hm"}});
    QVector<ChatMessage> conversation{ChatMessage::user("Hi"), ChatMessage::assistant("Yes")};
    conversation[1].metadata = {{"reasoning_content", "Hm"}};
    QCOMPARE(messagesAfter(answer, keeping(), conversation), jsonOf(conversation));
}

void TestKeepReasoning::tagsAndPartsNeverGoBack()
{
    RequestOptions options = keeping();
    options.readThinkTags = true;
    const QJsonArray parts{QJsonObject{{"type", "thinking"}, {"thinking", "Hm"}}};
    for (const QJsonValue &content : {QJsonValue("<think>Hm</think>Yes"), QJsonValue(parts)}) {
        const QJsonObject answer = answerWith({{"tool_calls", callsOf("c")}, {"content", content}});
        const QVector<ChatMessage> conversation = conversationWith(callsOf("c"));
        QCOMPARE(messagesAfter(answer, options, conversation), jsonOf(conversation));
    }
}

void TestKeepReasoning::agentSendsTheAnswerWithoutItsThoughts_data()
{
    QTest::addColumn<QJsonValue>("content");
    QTest::addColumn<bool>("readsTags");
    QTest::addColumn<QString>("sent");
    const QJsonArray parts{QJsonObject{{"type", "thinking"}, {"thinking", "Hm"}},
                           QJsonObject{{"type", "text"}, {"text", "Yes"}}};
    QTest::newRow("tags") << QJsonValue("<think>Hm</think>Yes") << true << "Yes";
    QTest::newRow("nothing but tags") << QJsonValue("<think>Hm</think>") << true << "";
    QTest::newRow("parts") << QJsonValue(parts) << true << "Yes";
    QTest::newRow("tags that are text") << QJsonValue("a <think>Hm</think>") << true << "a <think>Hm</think>";
    QTest::newRow("tags that are not read")
        << QJsonValue("<think>Hm</think>Yes") << false << "<think>Hm</think>Yes";
}

void TestKeepReasoning::agentSendsTheAnswerWithoutItsThoughts()
{
    QFETCH(QJsonValue, content);
    QFETCH(bool, readsTags);
    QFETCH(QString, sent);
    for (const bool isSession : {false, true}) {
        HttpEndpoint endpoint;
        RequestOptions options = keeping();
        options.readThinkTags = readsTags;
        endpoint.model.setRequestOptions(options);
        endpoint.server.enqueue(
            LoopbackAnswer::json(answerWith({{"tool_calls", callsOf("c")}, {"content", content}})));
        endpoint.server.enqueue(LoopbackAnswer::json(completion("done")));
        AgentFixture agent(isSession ? new AgentSession : new AgentExecutor);
        agent.executor->setModel(&endpoint.model);
        agent.executor->run("Look.");
        QTRY_VERIFY(agent.log.contains("finished done"));
        const QJsonArray messages = endpoint.server.requests().value(1).json["messages"].toArray();
        const QJsonObject message = messages.at(messages.size() - 2).toObject();
        QCOMPARE(message["content"], QJsonValue(sent));
        QCOMPARE(message["tool_calls"].toArray().size(), 1);
        if (const auto *session = qobject_cast<AgentSession *>(agent.executor))
            QCOMPARE(jsonOf(session->conversation()).at(messages.size() - 2), QJsonValue(message));
    }
}

QTEST_GUILESS_MAIN(TestKeepReasoning)
#include "tst_keepreasoning.moc"
