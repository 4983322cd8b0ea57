// Streams of every shape with tool calls, over a connection.

#include "support/completionrecorder.h"
#include "support/completions.h"
#include "support/loopbackserver.h"
#include "support/streamfixtures.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestStreamedToolCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutTheOptionARequestWithToolsDoesNotStream();
    void everyShapeIsRead_data();
    void everyShapeIsRead();
    void signalsComeInOrder();
    void textArrivesBeforeTheRoundIsThere();
    void progressIsToldPieceByPiece();
    void slotOfTheProgressMayEndTheReply_data();
    void slotOfTheProgressMayEndTheReply();
    void madeIdIsNoneOfTheRequest();
    void incompleteCallTellsTheReport();
    void brokenConnectionTellsTheReportAlone();
    void wholeAnswerIsReadAsSuch_data();
    void wholeAnswerIsReadAsSuch();
    void longPageIsNoBrokenConnection();
    void otherKeysOfACallStay();
};

namespace {

QVector<ToolDefinition> tools()
{
    QVector<ToolDefinition> definitions;
    for (const char *name : {"add", "now", "add_numbers"})
        definitions.append({name, "d", {{"type", "object"}}, ToolPermission::ReadOnly});
    return definitions;
}

// A model that streams tool calls.
class StreamingModel : public OpenAICompatibleModel
{
public:
    explicit StreamingModel(const QString &baseUrl)
    {
        ModelConfig config;
        config.baseUrl = baseUrl;
        config.model = "m";
        setConfig(config);
        RequestOptions options;
        options.streamToolCalls = true;
        setRequestOptions(options);
    }

    ChatReply *ask() { return chat({ChatMessage::user("Hi")}, tools(), nullptr); }
};

QByteArray piece(const QByteArray &calls, const QByteArray &finishReason = "null")
{
    return R"(data: {"choices":[{"index":0,"delta":{"tool_calls":[)" + calls + R"(]},"finish_reason":)"
         + finishReason + "}]}\n\n";
}

const QByteArray callBegin = R"({"index":0,"id":"c","function":{"name":"add","arguments":"{\"x\":"}})";
const QByteArray callEnd = R"({"index":0,"function":{"arguments":"1}"}})";

} // namespace

void TestStreamedToolCalls::withoutTheOptionARequestWithToolsDoesNotStream()
{
    StreamServer server;
    server.addAnswer(200, QJsonDocument(completion("a")).toJson());
    StreamingModel model(server.baseUrl());
    model.setRequestOptions({});
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(QJsonDocument::fromJson(server.requestBodies().value(0))["stream"], QJsonValue(false));
}

void TestStreamedToolCalls::everyShapeIsRead_data()
{
    QTest::addColumn<int>("number");
    const QVector<StreamFixture> fixtures = streamFixtures();
    for (int i = 0; i < fixtures.size(); ++i)
        QTest::newRow(fixtures.at(i).name) << i;
}

void TestStreamedToolCalls::everyShapeIsRead()
{
    QFETCH(int, number);
    const StreamFixture fixture = streamFixtures().at(number);
    for (const QByteArray &lineEnd : {QByteArray("\n"), QByteArray("\r\n")}) {
        const QByteArray bytes = fixture.bytes(lineEnd);
        for (const int pieceSize : {int(bytes.size()), 1, 2, 3, 7, 64, 1024}) {
            QList<QByteArray> pieces{eventStreamHead()};
            for (int i = 0; i < bytes.size(); i += pieceSize)
                pieces.append(bytes.mid(i, pieceSize));
            StreamServer server;
            server.addRaw(pieces);
            StreamingModel model(server.baseUrl());
            CompletionRecorder recorder(model.ask());
            QVERIFY(recorder.waitForEnd());
            QCOMPARE(summaryOf(recorder.reply->toolCalls()), fixture.calls);
            QCOMPARE(recorder.reply->text(), fixture.text);
            QCOMPARE(recorder.reply->reasoning(), fixture.reasoning);
            QCOMPARE(recorder.reply->error().section('\n', 0, 0), fixture.fault);
            QCOMPARE(recorder.reply->failure().message, fixture.message);
            QCOMPARE(recorder.reply->usage(), fixture.usage);
            QCOMPARE(recorder.entries().filter(QRegularExpression("^response: ")).size(),
                     fixture.calls == "[]" ? 0 : 1);
        }
    }
}

void TestStreamedToolCalls::signalsComeInOrder()
{
    StreamServer server;
    server.addEvents(
        {R"(data: {"choices":[{"index":0,"delta":{"content":"Wait.","reasoning":"Hm","tool_calls":[)"
             + callBegin + "]}}]}\n\n",
         piece(callEnd, R"("tool_calls")"), doneEvent()});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    const QString response =
        R"(response: {"choices":[{"finish_reason":"tool_calls","index":0,"message":{"content":"Wait.",)"
        R"("role":"assistant","tool_calls":[{"function":{"arguments":"{\"x\":1}","name":"add"},"id":"c",)"
        R"("type":"function"}]}}]})";
    QCOMPARE(recorder.entries(), (QStringList{"reasoning: Hm", "delta: Wait.", "call 0: add {\"x\":",
                                              "call 0: add {\"x\":1}", response, "finished: Wait."}));
    const QJsonObject request = QJsonDocument::fromJson(server.requestBodies().value(0)).object();
    QCOMPARE(request.value("stream"), QJsonValue(true));
    QCOMPARE(request.value("tools").toArray().size(), 3);
}

void TestStreamedToolCalls::textArrivesBeforeTheRoundIsThere()
{
    LoopbackServer server;
    server.enqueue(
        LoopbackAnswer::stream({deltaEvent("Let me look."), piece(callBegin), piece(callEnd), doneEvent()})
            .held(2));
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QTRY_COMPARE(recorder.entries(), (QStringList{"delta: Let me look.", "call 0: add {\"x\":"}));
    server.release();
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries().last(), "finished: Let me look.");
}

void TestStreamedToolCalls::progressIsToldPieceByPiece()
{
    StreamServer server;
    server.addEvents({piece(callBegin + R"(,{"index":1,"id":"d","function":{"name":"now"}},7)"),
                      piece(callEnd), doneEvent()});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    // The pieces of an event are told across a nested event loop, too.
    recorder.onSignal([&recorder](const QString &entry) {
        if (entry == "call 0: add {\"x\":")
            QTRY_VERIFY(recorder.hasEnded());
    });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries().mid(0, 3),
             (QStringList{"call 0: add {\"x\":", "call 1: now ", "call 0: add {\"x\":1}"}));
    QCOMPARE(recorder.entries().size(), 5);
}

void TestStreamedToolCalls::slotOfTheProgressMayEndTheReply_data()
{
    QTest::addColumn<bool>("deletes");
    QTest::newRow("canceled") << false;
    QTest::newRow("deleted") << true;
}

void TestStreamedToolCalls::slotOfTheProgressMayEndTheReply()
{
    QFETCH(bool, deletes);
    StreamServer server;
    server.addEvents({piece(callBegin + "," + callEnd), piece(callEnd), doneEvent()});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    recorder.onSignal([&](const QString &entry) {
        if (entry.startsWith("call ") && deletes)
            delete recorder.reply;
        else if (entry.startsWith("call "))
            recorder.reply->cancel();
    });
    QTRY_VERIFY(!recorder.entries().isEmpty());
    QTRY_VERIFY(!model.findChild<QNetworkReply *>());
    QCOMPARE(recorder.entries().filter("call ").size(), 1);
    QCOMPARE(recorder.entries().size(), deletes ? 1 : 2);
}

void TestStreamedToolCalls::madeIdIsNoneOfTheRequest()
{
    StreamServer server;
    server.addEvents({piece(R"({"function":{"name":"now"}},{"function":{"name":"add"}})"), doneEvent()});
    StreamingModel model(server.baseUrl());
    const QJsonArray earlier{makeToolCall("qa0000001", "now", {})};
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi"), ChatMessage::assistant("", earlier),
                                            ChatMessage::tool("qa0000003", "now", "1")},
                                           tools(), nullptr));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(summaryOf(recorder.reply->toolCalls()),
             QByteArray(R"([["qa0000002","now","{}"],["qa0000004","add","{}"]])"));
}

void TestStreamedToolCalls::incompleteCallTellsTheReport()
{
    StreamServer server;
    server.addEvents({piece(callBegin)});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    const QString report = QStringLiteral("Incomplete tool call from the model.\n"
                                          "OpenAI-compatible request failed.\n"
                                          "URL: %1/chat/completions\n"
                                          "HTTP status: 200 OK\n"
                                          "Response: %2")
                               .arg(server.baseUrl(), QString(piece(callBegin).trimmed()));
    QCOMPARE(recorder.reply->error(), report);
    QCOMPARE(recorder.reply->failure().httpStatus, 200);
    QCOMPARE(recorder.reply->failure().code, "stream_ended_early");
}

void TestStreamedToolCalls::brokenConnectionTellsTheReportAlone()
{
    StreamServer server;
    server.addRaw({"HTTP/1.1 200 OK\r\nContent-Length: 9000\r\n\r\n" + piece(callBegin)});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    QVERIFY2(recorder.reply->error().startsWith("OpenAI-compatible request failed.\n"),
             qPrintable(recorder.reply->error()));
    QCOMPARE(recorder.reply->failure().networkError, 2);
    QVERIFY(recorder.reply->failure().isTemporary());
}

void TestStreamedToolCalls::wholeAnswerIsReadAsSuch_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("last");
    const QByteArray answer = QJsonDocument(completion("Hi", {makeToolCall("c", "now", {})})).toJson();
    QTest::newRow("an object") << answer << "finished: Hi";
    QTest::newRow("an object behind empty lines") << QByteArray(500, '\n') + answer << "finished: Hi";
    QTest::newRow("a page") << QByteArray("<h1>Hello</h1>")
                            << "failed: Invalid JSON response: illegal value\nResponse: <h1>Hello</h1>";
    QTest::newRow("nothing")
        << QByteArray() << "failed: Invalid JSON response: illegal value\nResponse: (empty response body)";
}

void TestStreamedToolCalls::wholeAnswerIsReadAsSuch()
{
    QFETCH(QByteArray, body);
    StreamServer server;
    server.addAnswer(200, body);
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    QTEST(recorder.entries().last(), "last");
    QCOMPARE(recorder.reply->toolCalls().size(), recorder.entries().size() == 1 ? 0 : 1);
}

// Of which no more is kept than the report shows.
void TestStreamedToolCalls::longPageIsNoBrokenConnection()
{
    const QByteArray page = "<p>" + QByteArray(3000, 'x') + "</p>";
    StreamServer server;
    server.addAnswer(200, "\n\n" + page, {{"Content-Type", "text/html"}});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries().last(),
             "failed: Invalid JSON response: illegal value\nResponse: " + page.left(2000));
    QCOMPARE(recorder.reply->failure().networkError, 0);
    QCOMPARE(recorder.reply->failure().httpStatus, 200);
    QVERIFY(!recorder.reply->failure().isTemporary());
}

void TestStreamedToolCalls::otherKeysOfACallStay()
{
    StreamServer server;
    server.addEvents(
        {piece(R"({"id":"c","function":{"name":"now","strict":true},"extra_content":{"g":"s"},"x":null})"),
         piece(R"({"id":"c","type":"other","extra_content":{"g":"t"},"x":1})"), doneEvent()});
    StreamingModel model(server.baseUrl());
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    const QJsonObject call{{"id", "c"},
                           {"type", "function"},
                           {"extra_content", QJsonObject{{"g", "s"}}},
                           {"x", QJsonValue::Null},
                           {"function", QJsonObject{{"name", "now"}, {"arguments", "{}"}, {"strict", true}}}};
    QCOMPARE(recorder.reply->toolCalls(), QJsonArray{call});
}

QTEST_GUILESS_MAIN(TestStreamedToolCalls)
#include "tst_streamedtoolcalls.moc"
