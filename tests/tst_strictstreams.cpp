// Streams that end otherwise than they should, read strictly.

#include "support/completionrecorder.h"
#include "support/completions.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestStrictStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void streamEndsInWhatItTells_data();
    void streamEndsInWhatItTells();
    void reportFollowsTheFirstLine();
    void causeIsTold_data();
    void causeIsTold();
    void bodyThatIsAnObjectIsAWholeAnswer();
    void statusThatIsAnErrorIsReportedAsEver();
    void nothingElseDiffers();
};

namespace {

const QByteArray text = R"(data: {"choices":[{"index":0,"delta":{"content":"a"},"finish_reason":null}]})"
                        "\n\n";
const QByteArray stop = R"(data: {"choices":[{"index":0,"delta":{},"finish_reason":"stop"}]})"
                        "\n\n";
const QByteArray done = "data: [DONE]\n\n";
const QByteArray halfCall =
    R"(data: {"choices":[{"delta":{"tool_calls":[{"index":0,"id":"c","function":{"name":"now","arguments":"{"}}]}}]})"
    "\n\n";

QByteArray stopped(const QByteArray &reason)
{
    return QByteArray(stop).replace("stop", reason);
}

QByteArray errorEvent(const QByteArray &error)
{
    return R"(data: {"error":)" + error
         + R"(,"choices":[{"delta":{}}]})"
           "\n\n";
}

class StrictClient
{
public:
    explicit StrictClient(const QByteArray &body)
        : StrictClient(eventStreamHead(), body)
    {}

    StrictClient(const QByteArray &head, const QByteArray &body)
    {
        server.addRaw({head + body});
        ModelConfig config;
        config.baseUrl = server.baseUrl();
        config.model = "m";
        model.setConfig(config);
        RequestOptions options;
        options.strictStreams = true;
        options.streamToolCalls = true;
        model.setRequestOptions(options);
        const QVector<ToolDefinition> tools{{"now", "d", {}, ToolPermission::ReadOnly}};
        recorder =
            std::make_unique<CompletionRecorder>(model.chat({ChatMessage::user("Hi")}, tools, nullptr));
        recorder->waitForEnd();
    }

    QString firstLine() const { return recorder->entries().last().section('\n', 0, 0); }
    ChatFailure failure() const { return recorder->reply->failure(); }

    StreamServer server;
    OpenAICompatibleModel model;
    std::unique_ptr<CompletionRecorder> recorder;
};

} // namespace

void TestStrictStreams::streamEndsInWhatItTells_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("firstLine");
    const auto row = [](const char *name, const QByteArray &body, const char *firstLine) {
        QTest::newRow(name) << body << firstLine;
    };
    const char *const fine = "finished: a";
    const char *const error = "failed: Error event in the stream.";
    const char *const early = "failed: The stream ended early.";
    const char *const none = "failed: No answer in the stream.";
    row("a finish reason and the mark", text + stop + done, fine);
    row("only a finish reason", text + stop, fine);
    row("only the mark", text + done, fine);
    row("the mark without its line feed", text + "data: [DONE]", fine);
    row("the mark without a blank and its line feed", text + "data:[DONE]", fine);
    row("any finish reason", text + stopped("length"), fine);
    row("another last line is lost", text + stop.trimmed(), early);
    row("neither", text, early);
    row("an empty finish reason", text + stopped(""), early);
    row("a finish reason of another choice", text + QByteArray(stop).replace("\"index\":0", "\"index\":1"),
        early);
    row("an error object", text + errorEvent(R"({"message":"M"})") + done, error);
    row("an empty error object", text + errorEvent("{}") + done, error);
    row("an error text", text + errorEvent(R"("M")") + done, error);
    row("an error that is true", text + errorEvent("true") + done, error);
    row("an error that is a number", text + errorEvent("1") + done, error);
    row("an error that is null", text + errorEvent("null") + done, fine);
    row("an error that is false", text + errorEvent("false") + done, fine);
    row("an error that is empty", text + errorEvent(R"("")") + done, fine);
    row("an error that is 0", text + errorEvent("0") + done, fine);
    row("an error as a field", text + "error: {\"message\":\"M\"}\n\n" + done, error);
    row("an error as a field of null", text + "error: null\n\n" + done, fine);
    row("an empty error field", text + "error:\n\n" + done, fine);
    row("an error comes before a finish reason", text + errorEvent("1") + stopped("error"), error);
    row("error", text + stopped("error"), "failed: The model stopped: error.");
    row("abort", text + stopped("abort"), "failed: The model stopped: abort.");
    row("network_error", text + stopped("network_error"), "failed: The model stopped: network_error.");
    row("insufficient_system_resource", text + stopped("insufficient_system_resource"),
        "failed: The model stopped: insufficient_system_resource.");
    row("a finish reason comes before a call", halfCall + stopped("abort"),
        "failed: The model stopped: abort.");
    row("an incomplete call comes before the end", halfCall, "failed: Incomplete tool call from the model.");
    row("only the end", done, none);
    row("nothing", "", none);
    row("a page", "<h1>Hello</h1>\n", none);
    row("comments", ": ping\n\n: ping\n\n", none);
    row("other objects", "data: {\"object\":\"ping\"}\n\n" + done, none);
    row("choices that are no list", "data: {\"choices\":{}}\n\n" + done, none);
    row("usage alone is understood", "data: {\"usage\":{}}\n\n" + done, "finished: ");
    row("empty choices are understood", "data: {\"choices\":[]}\n\n" + done, "finished: ");
    row("an array", "[]", none);
}

void TestStrictStreams::streamEndsInWhatItTells()
{
    QFETCH(QByteArray, body);
    const StrictClient client(body);
    QTEST(client.firstLine(), "firstLine");
    QVERIFY(client.recorder->reply->toolCalls().isEmpty());
}

void TestStrictStreams::reportFollowsTheFirstLine()
{
    const StrictClient client(text + errorEvent(R"({"message":"M","type":"T","code":"C"})") + text);
    QCOMPARE(client.recorder->entries().last(), QStringLiteral("failed: Error event in the stream.\n"
                                                               "OpenAI-compatible request failed.\n"
                                                               "URL: %1/chat/completions\n"
                                                               "HTTP status: 200 OK\n"
                                                               "Response: M; type=T; code=C")
                                                    .arg(client.server.baseUrl()));
    const StrictClient field("error: {\"code\":400,\"message\":\"context too long\"}\n\n");
    QVERIFY(field.recorder->entries().last().endsWith("\nResponse: context too long"));
    QCOMPARE(field.failure().code, "400");
    const StrictClient early(text);
    QVERIFY(early.recorder->entries().last().endsWith("\nResponse: " + text.trimmed()));
}

void TestStrictStreams::causeIsTold_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("isTemporary");
    QTest::newRow("an error event") << errorEvent(R"({"message":"M","code":"server_error"})")
                                    << "server_error"
                                    << "M" << true;
    QTest::newRow("an error text") << errorEvent(R"("M")") << ""
                                   << "M" << false;
    QTest::newRow("a field that is no JSON") << QByteArray("error: boom\n\n") << ""
                                             << "boom" << false;
    QTest::newRow("a finish reason") << stopped("abort") << "abort"
                                     << "" << true;
    QTest::newRow("ended early") << text << "stream_ended_early"
                                 << "" << true;
    QTest::newRow("no answer") << done << "no_answer"
                               << "" << false;
    QTest::newRow("an incomplete call") << halfCall + stopped("length") << "incomplete_tool_call"
                                        << "" << false;
}

void TestStrictStreams::causeIsTold()
{
    QFETCH(QByteArray, body);
    const StrictClient client(body);
    QCOMPARE(client.failure().httpStatus, 200);
    QCOMPARE(client.failure().networkError, 0);
    QTEST(client.failure().code, "code");
    QTEST(client.failure().message, "message");
    QTEST(client.failure().isTemporary(), "isTemporary");
}

void TestStrictStreams::bodyThatIsAnObjectIsAWholeAnswer()
{
    const QByteArray body = QJsonDocument(completion("Hi")).toJson();
    for (const QByteArray &answer : {body, "\n\n  " + body}) {
        const StrictClient client(answer);
        QCOMPARE(client.recorder->entries().size(), 3);
        QVERIFY(client.recorder->entries().first().startsWith("response: "));
        QCOMPARE(client.recorder->entries().mid(1), (QStringList{"delta: Hi", "finished: Hi"}));
    }
}

void TestStrictStreams::statusThatIsAnErrorIsReportedAsEver()
{
    const QByteArray head = "HTTP/1.1 503 Busy\r\nContent-Type: text/event-stream\r\n\r\n";
    const StrictClient client(head, errorEvent("1"));
    QCOMPARE(client.firstLine(), "failed: OpenAI-compatible request failed.");
    QCOMPARE(client.failure().httpStatus, 503);
    const StrictClient redirect("HTTP/1.1 302 Found\r\nLocation: /x\r\n\r\n", "");
    QCOMPARE(redirect.firstLine(), "failed: No answer in the stream.");
}

// The same stream without the option.
void TestStrictStreams::nothingElseDiffers()
{
    for (const QByteArray &body : {text + errorEvent("1"), text + stopped("abort"), text + stop, text}) {
        StreamServer server;
        server.addRaw({eventStreamHead() + body});
        ModelConfig config;
        config.baseUrl = server.baseUrl();
        config.model = "m";
        OpenAICompatibleModel model;
        model.setConfig(config);
        CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.entries(), (QStringList{"delta: a", "finished: a"}));
    }
}

QTEST_GUILESS_MAIN(TestStrictStreams)
#include "tst_strictstreams.moc"
