#include "support/completionrecorder.h"
#include "support/httpendpoint.h"
#include "support/rawhttpserver.h"

#include <QNetworkAccessManager>
#include <QtTest>

#include <algorithm>
#include <memory>

using namespace MireloQtLib::QtAgent;

// What the options change about a request.
class TestRequestOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutOptionsTheRequestIsTheSameByteForByte();
    void optionsTravelInJson();
    void onlyWhatDiffersIsWritten();
    void wrongTypesAreIgnored();
    void bodyIsChanged_data();
    void bodyIsChanged();
    void usageIsAskedForOnlyWhereItStreams();
    void headersAreSent_data();
    void headersAreSent();
    void headersThatWouldBreakTheRequestAreDropped_data();
    void headersThatWouldBreakTheRequestAreDropped();
    void queryStandsBehindThePath_data();
    void queryStandsBehindThePath();
    void optionsHoldFromTheNextRequestOn();
    void anotherNetworkAccessManagerSends();
    void headersShowInNoText();
};

namespace {

// The request that a model sends with @p options.
LoopbackRequest requestWith(const RequestOptions &options, bool isStream = true)
{
    HttpEndpoint endpoint;
    ModelConfig config = endpoint.model.config();
    config.stream = isStream;
    endpoint.model.setConfig(config);
    endpoint.model.setRequestOptions(options);
    endpoint.addStream({"a"});
    CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    return recorder.waitForEnd() ? endpoint.server.requests().value(0) : LoopbackRequest();
}

RequestOptions withHeaders(const QMap<QByteArray, QByteArray> &headers)
{
    RequestOptions options;
    options.headers = headers;
    return options;
}

} // namespace

void TestRequestOptions::withoutOptionsTheRequestIsTheSameByteForByte()
{
    RawHttpServer server({RawStep::send(RawHttpServer::answer("200 OK", "{}")), RawStep::close()});
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.apiKey = "key";
    config.model = "m";
    model.setConfig(config);
    model.setRequestOptions(RequestOptions());
    const QVector<ToolDefinition> tools{{"read", "d", {{"type", "object"}}, ToolPermission::ReadOnly}};
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, tools, nullptr));
    QVERIFY(recorder.waitForEnd());

    const QByteArray body =
        R"({"max_tokens":1024,"messages":[{"content":"Hi","role":"user"}],"model":"m","stream":false,)"
        R"("temperature":0.2,"tool_choice":"auto","tools":[{"function":{"description":"d","name":"read",)"
        R"("parameters":{"type":"object"}},"type":"function"}]})";
    const QByteArray request = server.requests().value(0);
    QList<QByteArray> head = request.left(request.indexOf("\r\n\r\n")).split('\n');
    QCOMPARE(head.takeFirst(), QByteArray("POST /v1/chat/completions HTTP/1.1\r"));
    std::sort(head.begin(), head.end());
    QStringList sent;
    for (const QByteArray &line : qAsConst(head)) {
        // Qt adds these, from the locale.
        if (!line.startsWith("Accept-Language:") && !line.startsWith("User-Agent:"))
            sent.append(QString::fromLatin1(line.trimmed()));
    }
    QCOMPARE(sent,
             (QStringList{"Accept-Encoding: identity", "Authorization: Bearer key", "Connection: close",
                          QStringLiteral("Content-Length: %1").arg(body.size()),
                          "Content-Type: application/json", "Host: " + server.baseUrl().section('/', 2, 2)}));
    QVERIFY(request.endsWith("\r\n\r\n" + body));
}

void TestRequestOptions::optionsTravelInJson()
{
    RequestOptions options;
    options.extra = {{"reasoning_effort", "low"}, {"seed", QJsonValue::Null}};
    options.without = QStringList{"temperature"};
    options.headers = {{"X-Title", "泵"}, {"Authorization", ""}};
    options.useMaxCompletionTokens = true;
    options.keepReasoning = true;
    options.streamToolCalls = true;
    options.askForUsage = true;
    options.readThinkTags = true;
    options.strictStreams = true;
    options.applyTimeLimit = true;
    options.query = "?api-version=1";
    const QJsonObject json = requestOptionsToJson(options);
    QCOMPARE(json.size(), 11);
    QCOMPARE(requestOptionsFromJson(json), options);
}

void TestRequestOptions::onlyWhatDiffersIsWritten()
{
    QCOMPARE(requestOptionsToJson(RequestOptions()), QJsonObject());
    RequestOptions options;
    options.strictStreams = true;
    QCOMPARE(requestOptionsToJson(options), (QJsonObject{{"strictStreams", true}}));
    QCOMPARE(requestOptionsFromJson({}), RequestOptions());
}

void TestRequestOptions::wrongTypesAreIgnored()
{
    const QJsonObject wrong{
        {"extra", "x"},          {"without", "temperature"}, {"headers", QJsonArray{"X"}},
        {"keepReasoning", 1},    {"strictStreams", "true"},  {"query", 5},
        {"streamToolCalls", {}}, {"unknown", true},
    };
    QCOMPARE(requestOptionsFromJson(wrong), RequestOptions());
    RequestOptions options;
    options.without = QStringList{"a"};
    options.headers = {{"X", "y"}};
    QCOMPARE(requestOptionsFromJson(
                 {{"without", QJsonArray{1, "a", {}}}, {"headers", QJsonObject{{"X", "y"}, {"Y", 3}}}}),
             options);
}

void TestRequestOptions::bodyIsChanged_data()
{
    QTest::addColumn<QJsonObject>("options");
    QTest::addColumn<QJsonObject>("changes");
    const auto row = [](const char *name, const QJsonObject &options, const QJsonObject &changes) {
        QTest::newRow(name) << options << changes;
    };
    row("nothing", {}, {});
    row("another name of the limit", {{"useMaxCompletionTokens", true}},
        {{"max_tokens", "-"}, {"max_completion_tokens", 1024}});
    row("a key is left out", {{"without", QJsonArray{"temperature", "max_tokens", "top_p"}}},
        {{"temperature", "-"}, {"max_tokens", "-"}});
    row("a key is added", {{"extra", QJsonObject{{"seed", 7}, {"stop", QJsonValue::Null}}}},
        {{"seed", 7}, {"stop", QJsonValue::Null}});
    row("a key is replaced", {{"extra", QJsonObject{{"temperature", 1}}}}, {{"temperature", 1}});
    row("extra comes last",
        {{"useMaxCompletionTokens", true},
         {"without", QJsonArray{"max_completion_tokens"}},
         {"extra", QJsonObject{{"max_completion_tokens", 5}}}},
        {{"max_tokens", "-"}, {"max_completion_tokens", 5}});
    row("tokens are asked for", {{"askForUsage", true}},
        {{"stream_options", QJsonObject{{"include_usage", true}}}});
    row("what the client relies on is safe",
        {{"without", QJsonArray{"model", "messages", "tools", "stream"}},
         {"extra", QJsonObject{{"model", "x"}, {"messages", 1}, {"tools", QJsonArray()}, {"stream", false}}}},
        {});
}

void TestRequestOptions::bodyIsChanged()
{
    QFETCH(QJsonObject, options);
    QFETCH(QJsonObject, changes);
    QJsonObject body = HttpEndpoint::requestWith({HttpEndpoint::message("user", "Hi")});
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        if (change.value() == QJsonValue("-"))
            body.remove(change.key());
        else
            body.insert(change.key(), change.value());
    }
    QCOMPARE(requestWith(requestOptionsFromJson(options)).json, body);
}

void TestRequestOptions::usageIsAskedForOnlyWhereItStreams()
{
    RequestOptions options;
    options.askForUsage = true;
    QVERIFY(!requestWith(options, false).json.contains("stream_options"));
}

void TestRequestOptions::headersAreSent_data()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("one more") << Headers{{"X-Title", "Pumps"}} << QByteArray("x-title")
                              << QByteArray("Pumps");
    QTest::newRow("the profile's key")
        << Headers() << QByteArray("authorization") << QByteArray("Bearer key");
    QTest::newRow("another authorization, in any case")
        << Headers{{"AUTHORIZATION", "Basic x"}} << QByteArray("authorization") << QByteArray("Basic x");
    QTest::newRow("no authorization")
        << Headers{{"Authorization", ""}} << QByteArray("authorization") << QByteArray();
    QTest::newRow("an authorization of null")
        << Headers{{"Authorization", QByteArray()}} << QByteArray("authorization") << QByteArray();
    QTest::newRow("a dropped authorization leaves the key")
        << Headers{{"Authorization", "a\r\nX: y"}} << QByteArray("authorization") << QByteArray("Bearer key");
    QTest::newRow("another content type")
        << Headers{{"content-type", "application/json; charset=utf-8"}} << QByteArray("content-type")
        << QByteArray("application/json; charset=utf-8");
    QTest::newRow("no encoding can be asked for by nothing")
        << Headers{{"Accept-Encoding", ""}} << QByteArray("accept-encoding") << QByteArray("identity");
}

void TestRequestOptions::headersAreSent()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QFETCH(Headers, headers);
    QFETCH(QByteArray, name);
    const LoopbackRequest request = requestWith(withHeaders(headers));
    QCOMPARE(request.method, QByteArray("POST"));
    QTEST(request.headers.value(name), "value");
}

void TestRequestOptions::headersThatWouldBreakTheRequestAreDropped_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("a blank in the name") << QByteArray("X Title") << QByteArray("bad");
    QTest::newRow("a colon in the name") << QByteArray("X:") << QByteArray("bad");
    QTest::newRow("a line break in the name") << QByteArray("X\r\nY") << QByteArray("bad");
    QTest::newRow("no name") << QByteArray() << QByteArray("bad");
    QTest::newRow("a name beyond ASCII") << QByteArray("泵") << QByteArray("bad");
    QTest::newRow("CR") << QByteArray("X-A") << QByteArray("bad\rX-B: bad");
    QTest::newRow("LF") << QByteArray("X-A") << QByteArray("bad\nX-B: bad");
    QTest::newRow("NUL") << QByteArray("X-A") << QByteArray("bad\0", 4);
    QTest::newRow("Host") << QByteArray("HOST") << QByteArray("bad");
    QTest::newRow("Content-Length") << QByteArray("Content-length") << QByteArray("bad");
    QTest::newRow("Transfer-Encoding") << QByteArray("Transfer-Encoding") << QByteArray("bad");
    QTest::newRow("Connection") << QByteArray("connection") << QByteArray("bad");
}

void TestRequestOptions::headersThatWouldBreakTheRequestAreDropped()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, value);
    const LoopbackRequest request = requestWith(withHeaders({{name, value}}));
    QCOMPARE(request.json, HttpEndpoint::requestWith({HttpEndpoint::message("user", "Hi")}));
    for (const QByteArray &sent : request.headers)
        QVERIFY2(!sent.contains("bad"), sent.constData());
}

void TestRequestOptions::queryStandsBehindThePath_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QByteArray>("path");
    const QByteArray path = "/v1/chat/completions";
    QTest::newRow("none") << "" << path;
    QTest::newRow("a query") << "api-version=1&x=y" << path + "?api-version=1&x=y";
    QTest::newRow("with its mark") << "?api-version=1" << path + "?api-version=1";
    QTest::newRow("only the mark") << "?" << path;
    QTest::newRow("blanks") << "a=b c" << path + "?a=b%20c";
    QTest::newRow("no fragment") << "a=#b" << path + "?a=%23b";
}

void TestRequestOptions::queryStandsBehindThePath()
{
    QFETCH(QString, query);
    RequestOptions options;
    options.query = query;
    QTEST(requestWith(options).path, "path");
}

void TestRequestOptions::optionsHoldFromTheNextRequestOn()
{
    HttpEndpoint endpoint;
    endpoint.addStream({"a"});
    endpoint.addStream({"b"});
    RequestOptions options;
    options.query = "x=1";
    CompletionRecorder first(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    endpoint.model.setRequestOptions(options);
    QCOMPARE(endpoint.model.requestOptions(), options);
    QVERIFY(first.waitForEnd());
    CompletionRecorder second(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(second.waitForEnd());
    QCOMPARE(endpoint.server.requests().at(0).path, QByteArray("/v1/chat/completions"));
    QCOMPARE(endpoint.server.requests().at(1).path, QByteArray("/v1/chat/completions?x=1"));
}

void TestRequestOptions::anotherNetworkAccessManagerSends()
{
    HttpEndpoint endpoint;
    for (int i = 0; i < 3; ++i)
        endpoint.addStream({"a"});
    auto manager = std::make_unique<QNetworkAccessManager>();
    int used = 0;
    connect(manager.get(), &QNetworkAccessManager::finished, this, [&used] { ++used; });
    const auto ask = [&endpoint] {
        CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        recorder.waitForEnd();
        return recorder.entries().value(1);
    };
    endpoint.model.setNetworkAccessManager(manager.get());
    QCOMPARE(ask(), "finished: a");
    QCOMPARE(used, 1);
    endpoint.model.setNetworkAccessManager(nullptr);
    QCOMPARE(ask(), "finished: a");
    QCOMPARE(used, 1);
    endpoint.model.setNetworkAccessManager(manager.get());
    manager.reset();
    QCOMPARE(ask(), "finished: a");
    QCOMPARE(endpoint.server.requests().size(), 3);
}

void TestRequestOptions::headersShowInNoText()
{
    HttpEndpoint endpoint;
    endpoint.addRefusal();
    endpoint.model.setRequestOptions(withHeaders({{"api-key", "s3cr3t"}, {"Authorization", "Basic s3cr3t"}}));
    CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(endpoint.server.requests().value(0).headers.value("api-key"), QByteArray("s3cr3t"));
    QVERIFY(!recorder.entries().join('\n').contains("s3cr3t"));
    QVERIFY(!recorder.reply->failure().message.contains("s3cr3t"));
}

QTEST_GUILESS_MAIN(TestRequestOptions)
#include "tst_requestoptions.moc"
