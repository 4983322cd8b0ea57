#include "support/completionrecorder.h"
#include "support/httpendpoint.h"
#include "support/sessionfixture.h"

#include <qtagent/completionreply.h>
#include <qtagent/deepseekmodel.h>

#include <QtTest>

Q_DECLARE_METATYPE(std::function<void(MireloQtLib::QtAgent::CompletionReply &)>)

using namespace MireloQtLib::QtAgent;

// What a reply tells besides its text.
class TestCompletionReply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reasoningIsKeptApartFromTheText();
    void nothingIsToldOnceTheReplyIsOver_data();
    void nothingIsToldOnceTheReplyIsOver();
    void everyRequestGetsACompletionReply_data();
    void everyRequestGetsACompletionReply();
    void streamTellsReasoningBeforeText();
    void wholeAnswerTellsReasoningFirst();
    void wholeAnswerIsReadWithoutItsTags_data();
    void wholeAnswerIsReadWithoutItsTags();
    void reasoningIsReadUnderBothNames_data();
    void reasoningIsReadUnderBothNames();
    void pieceIsToldWholeAcrossANestedEventLoop();
    void slotOfTheReasoningMayEndTheReply_data();
    void slotOfTheReasoningMayEndTheReply();
    void tokensAreCounted_data();
    void tokensAreCounted();
    void lastUsageWinsAndIsSetBeforeTheSignal();
    void finishReasonIsKept_data();
    void finishReasonIsKept();
    void refusalIsKept();
    void sessionKeepsTheReasoningUnderItsKey();
};

namespace {

QByteArray eventOf(const QByteArray &delta, const QByteArray &more = {})
{
    return R"(data: {"choices":[{"index":0,"delta":)" + delta + R"(,"finish_reason":null}])" + more + "}\n\n";
}

LoopbackAnswer stream(const QVector<QByteArray> &events)
{
    return LoopbackAnswer::stream(events + QVector<QByteArray>{doneEvent()});
}

LoopbackAnswer whole(const QByteArray &message, const QByteArray &more = {})
{
    return LoopbackAnswer::withStatus(200,
                                      R"({"choices":[{"index":0,"message":)" + message + "}]" + more + "}");
}

CompletionReply *ask(HttpEndpoint *endpoint)
{
    return qobject_cast<CompletionReply *>(endpoint->model.chat({ChatMessage::user("Hi")}, {}, nullptr));
}

} // namespace

void TestCompletionReply::reasoningIsKeptApartFromTheText()
{
    CompletionReply reply;
    CompletionRecorder recorder(&reply);
    reply.appendReasoning("Hm");
    reply.appendReasoning("");
    reply.appendDelta("Yes");
    reply.progressToolCall(0, "add", "{\"x\"");
    reply.finish("Yes");
    QCOMPARE(recorder.entries(), (QStringList{"reasoning: Hm", "reasoning: ", "delta: Yes",
                                              "call 0: add {\"x\"", "finished: Yes"}));
    QCOMPARE(reply.reasoning(), "Hm");
    QCOMPARE(reply.text(), "Yes");
}

void TestCompletionReply::nothingIsToldOnceTheReplyIsOver_data()
{
    using End = std::function<void(CompletionReply &)>;
    QTest::addColumn<End>("end");
    QTest::newRow("finished") << End([](CompletionReply &reply) { reply.finish("a"); });
    QTest::newRow("failed") << End([](CompletionReply &reply) { reply.fail("a"); });
    QTest::newRow("canceled") << End([](CompletionReply &reply) { reply.cancel(); });
}

void TestCompletionReply::nothingIsToldOnceTheReplyIsOver()
{
    using End = std::function<void(CompletionReply &)>;
    QFETCH(End, end);
    CompletionReply reply;
    end(reply);
    CompletionRecorder recorder(&reply);
    reply.appendReasoning("Hm");
    reply.progressToolCall(0, "add", "{}");
    reply.setFinishReason("stop");
    reply.setRefusal("No");
    reply.setUsage({1, 2, 3});
    ChatFailure failure;
    failure.httpStatus = 500;
    reply.setFailure(failure);
    QCOMPARE(recorder.entries(), QStringList());
    QCOMPARE(reply.reasoning(), QString());
    QCOMPARE(reply.finishReason(), QString());
    QCOMPARE(reply.refusal(), QString());
    QCOMPARE(reply.usage(), TokenUsage());
    QCOMPARE(reply.failure(), ChatFailure());
}

void TestCompletionReply::everyRequestGetsACompletionReply_data()
{
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<qint32>("networkError");
    QTest::newRow("nothing is sent without an address") << QString() << 0;
    QTest::newRow("nothing is sent to an unknown protocol") << "gopher://127.0.0.1" << 301;
    QTest::newRow("nobody answers") << "http://127.0.0.1:1" << 1;
}

void TestCompletionReply::everyRequestGetsACompletionReply()
{
    QFETCH(QString, baseUrl);
    QFETCH(qint32, networkError);
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.model = "m";
    model.setConfig(config);
    auto *reply = qobject_cast<CompletionReply *>(model.chat({}, {}, nullptr));
    QVERIFY(reply);
    QSignalSpy failed(reply, &ChatReply::failed);
    QVERIFY(failed.wait());
    QCOMPARE(reply->failure().networkError, networkError);
    QCOMPARE(reply->failure().httpStatus, 0);
}

void TestCompletionReply::streamTellsReasoningBeforeText()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream({eventOf(R"({"reasoning_content":"Add"})"),
                                    eventOf(R"({"content":"4","reasoning_content":" them"})")}));
    CompletionRecorder recorder(ask(&endpoint));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(),
             (QStringList{"reasoning: Add", "reasoning:  them", "delta: 4", "finished: 4"}));
    QCOMPARE(recorder.reply->reasoning(), "Add them");
}

void TestCompletionReply::wholeAnswerTellsReasoningFirst()
{
    const QByteArray message = R"({"content":"4","reasoning":"Add"})";
    HttpEndpoint endpoint;
    endpoint.server.enqueue(whole(message));
    ModelConfig config = endpoint.model.config();
    config.stream = false;
    endpoint.model.setConfig(config);
    CompletionRecorder recorder(ask(&endpoint));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(
        recorder.entries(),
        (QStringList{"reasoning: Add",
                     R"(response: {"choices":[{"index":0,"message":{"content":"4","reasoning":"Add"}}]})",
                     "delta: 4", "finished: 4"}));
}

void TestCompletionReply::wholeAnswerIsReadWithoutItsTags_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("reasoning");
    QTest::addColumn<QString>("text");
    QTest::newRow("tags") << "<think>a</think>\n\nb"
                          << "a"
                          << "b";
    QTest::newRow("blanks before") << " \n<think>a</think>b"
                                   << "a"
                                   << "b";
    QTest::newRow("never closed") << "<think>a"
                                  << "a"
                                  << "";
    QTest::newRow("half a closer") << "<think>a</thi"
                                   << "a</thi"
                                   << "";
    QTest::newRow("half an opener") << "<thi"
                                    << ""
                                    << "<thi";
    QTest::newRow("nothing behind") << "<think>a</think>"
                                    << "a"
                                    << "";
    QTest::newRow("in the middle") << "b <think>a</think>"
                                   << ""
                                   << "b <think>a</think>";
}

void TestCompletionReply::wholeAnswerIsReadWithoutItsTags()
{
    QFETCH(QString, content);
    HttpEndpoint endpoint;
    RequestOptions options;
    options.readThinkTags = true;
    endpoint.model.setRequestOptions(options);
    endpoint.server.enqueue(LoopbackAnswer::json(completion(content, {makeToolCall("c", "now", {})})));
    ModelConfig config = endpoint.model.config();
    config.stream = false;
    endpoint.model.setConfig(config);
    CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(recorder.waitForEnd());
    QTEST(recorder.reply->reasoning(), "reasoning");
    QTEST(recorder.reply->text(), "text");
    QCOMPARE(recorder.reply->response(), completion(content, {makeToolCall("c", "now", {})}));
    QCOMPARE(recorder.reply->message().content, content);
}

void TestCompletionReply::reasoningIsReadUnderBothNames_data()
{
    QTest::addColumn<QByteArray>("delta");
    QTest::addColumn<QString>("reasoning");
    QTest::newRow("reasoning_content") << QByteArray(R"({"reasoning_content":"a"})") << "a";
    QTest::newRow("reasoning") << QByteArray(R"({"reasoning":"b"})") << "b";
    QTest::newRow("both") << QByteArray(R"({"reasoning":"a","reasoning_content":"a"})") << "a";
    QTest::newRow("the first one is empty")
        << QByteArray(R"({"reasoning":"b","reasoning_content":""})") << "b";
    QTest::newRow("null") << QByteArray(R"({"content":null,"reasoning":null})") << "";
    QTest::newRow("a number") << QByteArray(R"({"content":"","reasoning_content":4})") << "";
    QTest::newRow("an object") << QByteArray(R"({"content":"","reasoning":{"text":"x"}})") << "";
}

void TestCompletionReply::reasoningIsReadUnderBothNames()
{
    QFETCH(QByteArray, delta);
    QFETCH(QString, reasoning);
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream({eventOf(delta)}));
    CompletionRecorder recorder(ask(&endpoint));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.reply->reasoning(), reasoning);
    QCOMPARE(recorder.entries().last(), "finished: ");
}

void TestCompletionReply::pieceIsToldWholeAcrossANestedEventLoop()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream(
        {eventOf(R"({"content":"1","reasoning":"a"})"), eventOf(R"({"content":"2","reasoning":"b"})")}));
    CompletionRecorder recorder(ask(&endpoint));
    recorder.onSignal([&recorder](const QString &entry) {
        if (entry == "reasoning: a")
            QTRY_VERIFY(recorder.hasEnded());
    });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(),
             (QStringList{"reasoning: a", "delta: 1", "reasoning: b", "delta: 2", "finished: 12"}));
}

void TestCompletionReply::slotOfTheReasoningMayEndTheReply_data()
{
    QTest::addColumn<bool>("isStream");
    QTest::addColumn<bool>("deletes");
    QTest::newRow("stream, canceled") << true << false;
    QTest::newRow("stream, deleted") << true << true;
    QTest::newRow("whole, canceled") << false << false;
    QTest::newRow("whole, deleted") << false << true;
}

void TestCompletionReply::slotOfTheReasoningMayEndTheReply()
{
    QFETCH(bool, isStream);
    QFETCH(bool, deletes);
    const QByteArray message = R"({"content":"1","reasoning":"a"})";
    HttpEndpoint endpoint;
    endpoint.server.enqueue(isStream ? stream({eventOf(message)}) : whole(message));
    ModelConfig config = endpoint.model.config();
    config.stream = isStream;
    endpoint.model.setConfig(config);
    CompletionRecorder recorder(ask(&endpoint));
    QSignalSpy ended(recorder.reply, &CompletionReply::reasoningReceived);
    recorder.onSignal([&](const QString &entry) {
        if (entry == "reasoning: a" && deletes)
            delete recorder.reply;
        else if (entry == "reasoning: a")
            recorder.reply->cancel();
    });
    QTRY_VERIFY(!recorder.entries().isEmpty());
    QTRY_VERIFY(!endpoint.model.findChild<QNetworkReply *>());
    QCOMPARE(recorder.entries(),
             deletes ? QStringList{"reasoning: a"} : (QStringList{"reasoning: a", "canceled"}));
}

void TestCompletionReply::tokensAreCounted_data()
{
    QTest::addColumn<QByteArray>("usage");
    QTest::addColumn<TokenUsage>("counted");
    QTest::newRow("all") << QByteArray(R"({"prompt_tokens":9,"completion_tokens":12,)"
                                       R"("completion_tokens_details":{"reasoning_tokens":7}})")
                         << TokenUsage{9, 12, 7};
    QTest::newRow("reasoning at the top")
        << QByteArray(R"({"completion_tokens":12,"reasoning_tokens":0})") << TokenUsage{-1, 12, 0};
    QTest::newRow("none") << QByteArray("{}") << TokenUsage();
    QTest::newRow("negative") << QByteArray(R"({"prompt_tokens":-9})") << TokenUsage();
    QTest::newRow("no integer") << QByteArray(R"({"prompt_tokens":9.5,"completion_tokens":"12"})")
                                << TokenUsage();
    QTest::newRow("beyond any count") << QByteArray(R"({"prompt_tokens":1e300})") << TokenUsage();
}

void TestCompletionReply::tokensAreCounted()
{
    QFETCH(QByteArray, usage);
    QFETCH(TokenUsage, counted);
    for (const bool isInChoice : {false, true}) {
        HttpEndpoint endpoint;
        const QByteArray event = isInChoice ? R"(data: {"choices":[{"delta":{},"usage":)" + usage + "}]}\n\n"
                                            : R"(data: {"choices":[],"usage":)" + usage + "}\n\n";
        endpoint.server.enqueue(stream({event}));
        CompletionRecorder recorder(ask(&endpoint));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.reply->usage(), counted);
    }
}

void TestCompletionReply::lastUsageWinsAndIsSetBeforeTheSignal()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream({eventOf(R"({"content":"a"})", R"(,"usage":{"completion_tokens":1})"),
                                    eventOf(R"({"content":"b"})", R"(,"usage":{"completion_tokens":2})"),
                                    eventOf(R"({"content":"c"})", R"(,"usage":null)")}));
    CompletionRecorder recorder(ask(&endpoint));
    QVector<qint64> counts;
    recorder.onSignal([&](const QString &) { counts.append(recorder.reply->usage().completion); });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(counts, (QVector<qint64>{1, 2, 2, 2}));
}

void TestCompletionReply::finishReasonIsKept_data()
{
    QTest::addColumn<QByteArray>("choice");
    QTest::addColumn<QString>("reason");
    QTest::newRow("length") << QByteArray(R"({"delta":{},"finish_reason":"length"})") << "length";
    QTest::newRow("an unknown word") << QByteArray(R"({"delta":{},"finish_reason":"bored"})") << "bored";
    QTest::newRow("empty means not yet") << QByteArray(R"({"delta":{},"finish_reason":""})") << "stop";
    QTest::newRow("null means not yet") << QByteArray(R"({"delta":{},"finish_reason":null})") << "stop";
}

void TestCompletionReply::finishReasonIsKept()
{
    QFETCH(QByteArray, choice);
    QFETCH(QString, reason);
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream({R"(data: {"choices":[{"delta":{},"finish_reason":"stop"}]})"
                                    "\n\n",
                                    R"(data: {"choices":[)" + choice + "]}\n\n"}));
    CompletionRecorder recorder(ask(&endpoint));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.reply->finishReason(), reason);
}

void TestCompletionReply::refusalIsKept()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(stream({eventOf(R"({"refusal":"I "})"), eventOf(R"({"refusal":"will not."})")}));
    CompletionRecorder recorder(ask(&endpoint));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"finished: "});
    QCOMPARE(recorder.reply->refusal(), "I will not.");
}

void TestCompletionReply::sessionKeepsTheReasoningUnderItsKey()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(
        stream({eventOf(R"({"reasoning":"a"})"), eventOf(R"({"content":"1","reasoning":"b"})")}));
    AgentSession session;
    session.setModel(&endpoint.model);
    QSignalSpy ended(&session, &AgentSession::runEnded);
    session.send("Hi");
    QVERIFY(ended.wait());
    QCOMPARE(session.conversation().last().content, "1");
    QCOMPARE(session.conversation().last().metadata, (QJsonObject{{"reasoning", "ab"}}));
    QVERIFY(!messageToJson(session.conversation().last()).contains("reasoning"));

    // A model that is no client of a service appends the reasoning alone.
    ScriptedModel model;
    model.addText({"2"});
    session.setModel(&model);
    session.send("Hi");
    QVERIFY(ended.wait());
    QCOMPARE(session.conversation().last().metadata, QJsonObject());
}

QTEST_GUILESS_MAIN(TestCompletionReply)
#include "tst_completionreply.moc"
