#include "support/mcpendpoint.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(McpEndpoint::Answer)

// What goes over HTTP, and what is made of the answers.
class TestMcpServerHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void legacyRequestsTellSessionAndVersion();
    void olderVersionsAreNotTold();
    void modernRequestsRepeatThemselvesInHeaders();
    void toolsWithBrokenHeadersAreLeftOut();
    void revisionIsFound_data();
    void revisionIsFound();
    void answersComeAsStreamsToo();
    void requestsOfTheServerAreAnswered();
    void answersThatAServerDoesNotTakeAreDropped();
    void announcementsAreListenedTo();
    void modernAnnouncementsAreSubscribedTo();
    void canceledCallClosesItsConnection_data();
    void canceledCallClosesItsConnection();
    void silenceEndsInAFailure();
    void messagesGetThroughBesideManyCalls();
    void headersOfTheHostGoAlong();
    void badAddressesAndHeadersAreRefused_data();
    void badAddressesAndHeadersAreRefused();
};

namespace {

const QVector<QJsonObject> oneTool{McpScript::tool("echo")};

QString openEndpoint(McpFixture &mcp, const McpEndpoint &endpoint,
                     const QMap<QByteArray, QByteArray> &headers = {})
{
    return mcp.open([&] { mcp.server->connectTo(endpoint.url(), headers); });
}

} // namespace

void TestMcpServerHttp::legacyRequestsTellSessionAndVersion()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-06-18", oneTool);
    endpoint.on("tools/call", [](const LoopbackRequest &r) { return McpEndpoint::textResult(r, "水泵"); });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QCOMPARE(mcp.result("echo", {{"a", 1}}).content, "水泵");
    mcp.stop();
    QCOMPARE(mcp.log, (QStringList{"ready", "success 水泵", "ended "}));

    QStringList keys;
    for (const LoopbackRequest &request : endpoint.server.requests()) {
        const QString key = request.json["method"].toString();
        keys.append(request.method + " " + key);
        const bool isInitialized = key != "server/discover" && key != "initialize";
        QCOMPARE(request.path, QByteArray("/v1/mcp?key=query-secret"));
        QCOMPARE(request.headers.value("mcp-session-id"), QByteArray(isInitialized ? "session-secret" : ""));
        QCOMPARE(request.headers.contains("mcp-protocol-version"), key != "initialize");
        QCOMPARE(request.headers.contains("mcp-method"), key == "server/discover");
        QVERIFY(!request.headers.contains("origin"));
        QVERIFY(!request.headers.contains("cookie"));
        if (isInitialized)
            QCOMPARE(request.headers.value("mcp-protocol-version"), QByteArray("2025-06-18"));
        if (request.method == "POST") {
            QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
            QCOMPARE(request.headers.value("accept"), QByteArray("application/json, text/event-stream"));
            QCOMPARE(request.headers.value("content-length").toInt(), int(request.body.size()));
        }
    }
    QCOMPARE(keys, (QStringList{"POST server/discover", "POST initialize", "POST notifications/initialized",
                                "POST tools/list", "POST tools/call", "DELETE "}));
}

void TestMcpServerHttp::olderVersionsAreNotTold()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-03-26", oneTool, {});
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(!endpoint.requests("tools/list").first().headers.contains("mcp-protocol-version"));
    mcp.stop();
    // No session, no end of it.
    QVERIFY(endpoint.requests("DELETE").isEmpty());
    QVERIFY(endpoint.requests("GET").isEmpty());
}

void TestMcpServerHttp::modernRequestsRepeatThemselvesInHeaders()
{
    const QJsonObject schema = QJsonDocument::fromJson(R"({"type":"object","properties":{
        "region":{"type":"string","x-mcp-header":"Region"},"rest":{"type":"string"}}})")
                                   .object();
    McpEndpoint endpoint;
    endpoint.speakModern({McpScript::tool("水泵\r\nX-Evil: 1", "", schema), McpScript::tool("plain")});
    endpoint.on("tools/call", [](const LoopbackRequest &r) { return McpEndpoint::textResult(r, "done"); });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QCOMPARE(mcp.result("____X-Evil__1", {{"region", "eu 北"}, {"rest", "x"}}).content, "done");
    QCOMPARE(mcp.result("plain").content, "done");
    mcp.stop();

    for (const LoopbackRequest &request : endpoint.server.requests()) {
        QCOMPARE(request.headers.value("mcp-protocol-version"), QByteArray("2026-07-28"));
        QCOMPARE(QString(request.headers.value("mcp-method")), request.json["method"].toString());
        QVERIFY(!request.headers.contains("mcp-session-id"));
        QVERIFY(!request.headers.contains("x-evil"));
    }
    const auto headers = endpoint.requests("tools/call").at(0).headers;
    QCOMPARE(headers.value("mcp-name"), "=?base64?" + QByteArray("水泵\r\nX-Evil: 1").toBase64() + "?=");
    QCOMPARE(headers.value("mcp-param-region"), "=?base64?" + QByteArray("eu 北").toBase64() + "?=");
    QVERIFY(!headers.contains("mcp-param-rest"));
    QCOMPARE(endpoint.requests("tools/call").at(1).headers.value("mcp-name"), QByteArray("plain"));
    QVERIFY(!endpoint.requests("tools/list").first().headers.contains("mcp-name"));
    QVERIFY(endpoint.requests("GET").isEmpty() && endpoint.requests("DELETE").isEmpty());
}

void TestMcpServerHttp::toolsWithBrokenHeadersAreLeftOut()
{
    const QJsonObject property{{"type", "number"}, {"x-mcp-header", "N"}};
    const QJsonObject schema{{"type", "object"}, {"properties", QJsonObject{{"n", property}}}};
    McpEndpoint endpoint;
    endpoint.speakModern({McpScript::tool("bad", "", schema), McpScript::tool("good")});
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), "s__bad: Tool asks for headers that are not valid.");
    QCOMPARE(mcp.server->tools().size(), 1);
    // Elsewhere nobody looks at them.
    McpScript script = McpScript::modern({McpScript::tool("bad", "", schema)});
    McpFixture overPipes;
    QCOMPARE(overPipes.openScript(script), QString());
}

void TestMcpServerHttp::revisionIsFound_data()
{
    QTest::addColumn<McpEndpoint::Answer>("discovery");
    QTest::addColumn<bool>("isModern");
    const auto refusal = [](int status, int code, const QJsonObject &data = {}) {
        return McpEndpoint::Answer([=](const LoopbackRequest &request) {
            return McpEndpoint::refusal(request, status, code, "No", data);
        });
    };
    const auto status = [](int status, const QByteArray &body) {
        return McpEndpoint::Answer(
            [=](const LoopbackRequest &) { return LoopbackAnswer::withStatus(status, body, "text/html"); });
    };
    const QJsonObject supported{{"supported", QJsonArray{"2026-07-28"}}};
    QTest::newRow("missing capability") << refusal(400, -32021) << true;
    QTest::newRow("header mismatch") << refusal(400, -32020) << true;
    QTest::newRow("this version after all") << refusal(400, -32022, supported) << true;
    QTest::newRow("unknown method") << refusal(404, -32601) << false;
    QTest::newRow("unknown method, well told") << refusal(200, -32601) << false;
    QTest::newRow("no session") << refusal(400, -32000) << false;
    QTest::newRow("bad request") << status(400, "<html>no</html>") << false;
    QTest::newRow("server error") << status(500, "") << false;
    QTest::newRow("garbage") << status(200, "<html>hello</html>") << false;
    QTest::newRow("nothing") << status(202, "") << false;
}

void TestMcpServerHttp::revisionIsFound()
{
    QFETCH(McpEndpoint::Answer, discovery);
    QFETCH(bool, isModern);
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.clear("server/discover");
    endpoint.on("server/discover", discovery);
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QCOMPARE(mcp.server->tools().size(), 1);
    QCOMPARE(endpoint.requests("initialize").isEmpty(), isModern);
    QCOMPARE(endpoint.requests("tools/list").first().headers.value("mcp-protocol-version"),
             QByteArray(isModern ? "2026-07-28" : "2025-11-25"));
}

void TestMcpServerHttp::answersComeAsStreamsToo()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.clear("tools/list");
    endpoint.on("tools/list", [](const LoopbackRequest &request) {
        const QJsonObject result{{"tools", QJsonArray{McpScript::tool("echo")}}};
        // The stream stays open after the answer.
        return LoopbackAnswer::stream({"id: 1\ndata: \n\n",
                                       McpEndpoint::event(McpEndpoint::answerTo(request, result)),
                                       ": still here\n\n"})
            .held(2);
    });
    endpoint.on("tools/call", [](const LoopbackRequest &request) {
        const QByteArray answer =
            McpEndpoint::event(McpEndpoint::answerTo(request, McpEndpoint::contentOf("水泵")));
        return LoopbackAnswer::stream(
            {McpEndpoint::event(McpEndpoint::progress(request, 1)), answer.left(60), answer.mid(60)});
    });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    mcp.result("echo");
    QCOMPARE(mcp.log, (QStringList{"ready", "progress 1", "success 水泵"}));
}

void TestMcpServerHttp::requestsOfTheServerAreAnswered()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.on("tools/call", [](const LoopbackRequest &request) {
        const QJsonObject ping{{"jsonrpc", "2.0"}, {"id", "p"}, {"method", "ping"}};
        const QJsonObject roots{{"jsonrpc", "2.0"}, {"id", request.json["id"]}, {"method", "roots/list"}};
        return LoopbackAnswer::stream(
                   {McpEndpoint::event(ping) + McpEndpoint::event(roots),
                    McpEndpoint::event(McpEndpoint::answerTo(request, McpEndpoint::contentOf("done")))})
            .held(1);
    });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    const ToolReply *reply = mcp.call("echo");
    QVERIFY(runUntil([&endpoint] { return endpoint.requests({}).size() == 2; }));
    endpoint.server.release();
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(reply->result().content, "done");

    QMap<QString, QJsonObject> answers;
    for (const LoopbackRequest &request : endpoint.requests({})) {
        answers.insert(request.json.contains("error") ? "error" : "result", request.json);
        QCOMPARE(request.headers.value("mcp-session-id"), QByteArray("session-secret"));
    }
    QCOMPARE(answers["result"], (QJsonObject{{"jsonrpc", "2.0"}, {"id", "p"}, {"result", QJsonObject()}}));
    QCOMPARE(answers["error"]["error"].toObject()["code"].toInt(), -32601);
    QCOMPARE(answers["error"]["id"], endpoint.requests("tools/call").first().json["id"]);
}

void TestMcpServerHttp::answersThatAServerDoesNotTakeAreDropped()
{
    const auto pings = [](const QJsonValue &id, int count) {
        const QByteArray ping =
            McpEndpoint::event({{"jsonrpc", "2.0"}, {"id", id}, {"method", "ping"}}).repeated(count);
        return [ping](const LoopbackRequest &request) {
            const QJsonObject answer = McpEndpoint::answerTo(request, McpEndpoint::contentOf("done"));
            return LoopbackAnswer::stream({ping, McpEndpoint::event(answer)});
        };
    };
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.on("tools/call", pings("many", 1000));
    endpoint.on("tools/call", pings("last", 1));
    endpoint.on("", [](const LoopbackRequest &) { return LoopbackAnswer::withStatus(202, {}).held(); });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QCOMPARE(mcp.result("echo").content, "done");
    endpoint.server.release();
    QVERIFY(runUntil([&endpoint] { return endpoint.requests({}).size() == 64; }));
    runUntilQuiet();
    QCOMPARE(mcp.result("echo").content, "done");
    QVERIFY(runUntil([&endpoint] { return endpoint.requests({}).last().json["id"] == "last"; }));
    QCOMPARE(endpoint.requests({}).size(), 65);
}

void TestMcpServerHttp::announcementsAreListenedTo()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool, "session-secret", true);
    endpoint.on("tools/list", [](const LoopbackRequest &request) {
        return McpEndpoint::page(request, {McpScript::tool("other")});
    });
    endpoint.on("GET", [](const LoopbackRequest &) {
        return LoopbackAnswer::stream({": welcome\n\n", McpEndpoint::event(McpEndpoint::listChanged())})
            .held(2);
    });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("toolsChanged"); }));
    QCOMPARE(mcp.server->tools().first().name, "other");
    const LoopbackRequest request = endpoint.requests("GET").first();
    QCOMPARE(request.headers.value("accept"), QByteArray("text/event-stream"));
    QCOMPARE(request.headers.value("mcp-session-id"), QByteArray("session-secret"));
    QCOMPARE(request.headers.value("mcp-protocol-version"), QByteArray("2025-11-25"));
    mcp.stop();
    QCOMPARE(mcp.log.last(), "ended ");
}

void TestMcpServerHttp::modernAnnouncementsAreSubscribedTo()
{
    McpEndpoint endpoint;
    endpoint.speakModern(oneTool);
    endpoint.clear("server/discover");
    endpoint.on("server/discover", [](const LoopbackRequest &request) {
        const QJsonObject tools{{"listChanged", true}};
        return McpEndpoint::result(request, {{"supportedVersions", QJsonArray{"2026-07-28"}},
                                             {"capabilities", QJsonObject{{"tools", tools}}}});
    });
    endpoint.on("tools/list", [](const LoopbackRequest &request) { return McpEndpoint::page(request, {}); });
    endpoint.on("subscriptions/listen", [](const LoopbackRequest &) {
        return LoopbackAnswer::stream({McpEndpoint::event(McpEndpoint::listChanged()), ": here\n\n"}).held(2);
    });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("toolsChanged"); }));
    QVERIFY(mcp.server->tools().isEmpty());
}

void TestMcpServerHttp::canceledCallClosesItsConnection_data()
{
    QTest::addColumn<bool>("isModern");
    QTest::addColumn<bool>("deletes");
    QTest::newRow("legacy") << false << false;
    QTest::newRow("modern") << true << false;
    QTest::newRow("deleted") << false << true;
}

void TestMcpServerHttp::canceledCallClosesItsConnection()
{
    QFETCH(bool, isModern);
    QFETCH(bool, deletes);
    McpEndpoint endpoint;
    if (isModern)
        endpoint.speakModern({McpScript::tool("echo"), McpScript::tool("other")});
    else
        endpoint.speakLegacy("2025-11-25", {McpScript::tool("echo"), McpScript::tool("other")});
    endpoint.on("tools/call", [](const LoopbackRequest &request) {
        return LoopbackAnswer::stream({McpEndpoint::event(McpEndpoint::progress(request, 1)), "\n"}).held(1);
    });
    endpoint.on("tools/call", [](const LoopbackRequest &r) { return McpEndpoint::textResult(r, "next"); });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    ToolReply *reply = mcp.call("echo");
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("progress 1"); }));
    if (deletes)
        delete reply;
    else
        reply->cancel();
    QCOMPARE(mcp.result("other").content, "next");
    if (isModern) {
        QVERIFY(endpoint.requests("notifications/cancelled").isEmpty());
        return;
    }
    QVERIFY(runUntil([&endpoint] { return !endpoint.requests("notifications/cancelled").isEmpty(); }));
    const QJsonObject params = endpoint.requests("notifications/cancelled").first().json["params"].toObject();
    QCOMPARE(params["requestId"], endpoint.requests("tools/call").first().json["id"]);
}

void TestMcpServerHttp::silenceEndsInAFailure()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.on("tools/call",
                [](const LoopbackRequest &r) { return McpEndpoint::textResult(r, "late").held(); });
    endpoint.on("tools/call", [](const LoopbackRequest &r) { return McpEndpoint::textResult(r, "next"); });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    mcp.server->setTimeLimit(100);
    QCOMPARE(mcp.result("echo").error, "MCP server did not answer within 100 ms.");
    mcp.server->setTimeLimit(60000);
    QCOMPARE(mcp.result("echo").content, "next");
    QVERIFY(runUntil([&endpoint] { return endpoint.requests("notifications/cancelled").size() == 1; }));
}

// Qt runs six requests to a host at once.
void TestMcpServerHttp::messagesGetThroughBesideManyCalls()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool);
    endpoint.on("tools/call", [](const LoopbackRequest &request) {
        const QJsonObject ping{{"jsonrpc", "2.0"}, {"id", request.json["id"]}, {"method", "ping"}};
        return LoopbackAnswer::stream(
                   {McpEndpoint::event(ping),
                    McpEndpoint::event(McpEndpoint::answerTo(request, McpEndpoint::contentOf("done")))})
            .held(1);
    });
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    for (int i = 0; i < 12; ++i)
        mcp.call("echo");
    QVERIFY(runUntil([&endpoint] { return endpoint.requests({}).size() >= 6; }));
    endpoint.server.release();
    QVERIFY(runUntil([&mcp] { return mcp.log.filter("success done").size() == 12; }));
    QCOMPARE(endpoint.requests("tools/call").size(), 12);
}

void TestMcpServerHttp::headersOfTheHostGoAlong()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", oneTool, "session-secret", true);
    McpFixture mcp;
    const QMap<QByteArray, QByteArray> headers{{"Authorization", "Bearer token\r\nX-Evil: 1"},
                                               {"X-Plant", "北"},
                                               {"Accept", "text/plain"},
                                               {"content-length", "7"},
                                               {"Host", "example.com"},
                                               {"Connection", "upgrade"},
                                               {"Transfer-Encoding", "chunked"}};
    QCOMPARE(openEndpoint(mcp, endpoint, headers), QString());
    QVERIFY(runUntil([&endpoint] { return endpoint.requests("GET").size() == 1; }));
    mcp.stop();
    QCOMPARE(endpoint.requests("DELETE").size(), 1);
    for (const LoopbackRequest &request : endpoint.server.requests()) {
        QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer tokenX-Evil: 1"));
        QCOMPARE(request.headers.value("x-plant"), QByteArray("北"));
        QVERIFY(request.headers.value("host").startsWith("127.0.0.1"));
        QVERIFY(!request.headers.contains("x-evil"));
        QVERIFY(!request.headers.contains("transfer-encoding"));
        if (request.method == "POST")
            QCOMPARE(request.headers.value("accept"), QByteArray("application/json, text/event-stream"));
    }
}

void TestMcpServerHttp::badAddressesAndHeadersAreRefused_data()
{
    using Headers = QMap<QByteArray, QByteArray>;
    const Headers token{{"Authorization", "Bearer secret"}};
    const QString noAddress = "Address of the MCP server is neither https nor http.";
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QString>("error");
    QTest::newRow("file") << QUrl("file:///etc/passwd") << Headers() << noAddress;
    QTest::newRow("preconnect") << QUrl("preconnect-http://127.0.0.1:1/") << Headers() << noAddress;
    QTest::newRow("data") << QUrl("data:,x") << Headers() << noAddress;
    QTest::newRow("empty") << QUrl() << Headers() << noAddress;
    QTest::newRow("no host") << QUrl("http:///mcp") << Headers() << noAddress;
    QTest::newRow("token in the open") << QUrl("http://192.0.2.1/mcp") << token
                                       << "Headers go to an https address or to this computer only.";
    QTest::newRow("header name") << QUrl("http://127.0.0.1:1/") << Headers{{"X-A: b\r\nX-B", "secret"}}
                                 << "Header name is not valid.";
    QTest::newRow("nobody there, localhost") << QUrl("http://localhost:1/mcp?key=secret") << token
                                             << "Connection to the MCP server failed: Connection refused";
    QTest::newRow("nobody there, IPv6")
        << QUrl("http://[::1]:1/mcp") << token << "Connection to the MCP server failed: Connection refused";
}

void TestMcpServerHttp::badAddressesAndHeadersAreRefused()
{
    QFETCH(QUrl, url);
    using Headers = QMap<QByteArray, QByteArray>;
    QFETCH(Headers, headers);
    QFETCH(QString, error);
    McpFixture mcp;
    mcp.server->connectTo(url, headers);
    QVERIFY(mcp.log.isEmpty());
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    runUntilQuiet();
    QCOMPARE(mcp.log, QStringList{"ended " + error});
}

QTEST_GUILESS_MAIN(TestMcpServerHttp)
#include "tst_mcpserver_http.moc"
