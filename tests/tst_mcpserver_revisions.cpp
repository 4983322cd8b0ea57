#include "support/eventloop.h"
#include "support/mcpscript.h"

#include <qtagent/asynctool.h>
#include <qtagent/qtagent_version.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// How a server over pipes is found to speak one revision or another.
class TestMcpServerRevisions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void legacyServersShakeHands_data();
    void legacyServersShakeHands();
    void modernServersDiscoverThemselves();
    void modernRequestsSayWhoAsks();
    void serversOfBothAreTakenAsModern();
    void modernRefusalsAreUnderstood_data();
    void modernRefusalsAreUnderstood();
    void silenceIsFollowedByAHandshake();
    void slowModernServersAreRecognized();
    void unknownVersionsEndTheServer_data();
    void unknownVersionsEndTheServer();
    void refusedHandshakeEndsTheServer();
    void serversWithoutToolsAreReady_data();
    void serversWithoutToolsAreReady();
    void toolsAreListedPageByPage_data();
    void toolsAreListedPageByPage();
    void endlessPagesEndTheServer();
    void endlessListEndsTheServer();
    void batchesAreUnderstood();
};

namespace {

const QVector<QJsonObject> oneTool{McpScript::tool("echo")};

// Starts the script and waits until the server is ready. Returns the error where it ends.
QString open(McpServer &server, McpScript &script)
{
    QSignalSpy ready(&server, &McpServer::ready);
    QSignalSpy ended(&server, &McpServer::ended);
    script.start(&server);
    if (!runUntil([&] { return ready.size() + ended.size() > 0; }))
        return "neither ready nor ended";
    return ended.isEmpty() ? QString() : ended.first().first().toString();
}

QStringList namesOf(const McpServer &server)
{
    QStringList names;
    for (const ToolDefinition &tool : server.tools())
        names.append(tool.name);
    return names;
}

QJsonObject json(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

} // namespace

void TestMcpServerRevisions::legacyServersShakeHands_data()
{
    QTest::addColumn<QString>("version");
    for (const char *version : {"2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"})
        QTest::newRow(version) << version;
}

void TestMcpServerRevisions::legacyServersShakeHands()
{
    QFETCH(QString, version);
    McpServer server("s");
    McpScript script = McpScript::legacy(version, oneTool);
    QCOMPARE(open(server, script), QString());
    QVERIFY(server.isReady());
    QCOMPARE(namesOf(server), QStringList{"echo"});
    QCOMPARE(script.methods(),
             (QStringList{"server/discover", "initialize", "notifications/initialized", "tools/list"}));

    const QJsonObject initialize = script.messages("initialize").first();
    QJsonObject expected = json(R"({"jsonrpc":"2.0","method":"initialize",
        "params":{"protocolVersion":"2025-11-25","capabilities":{},"clientInfo":{"name":"MireloQtAgent"}}})");
    QJsonObject params = expected["params"].toObject();
    params["clientInfo"] = QJsonObject{{"name", "MireloQtAgent"}, {"version", QTAGENT_VERSION_STRING}};
    expected["params"] = params;
    expected["id"] = initialize["id"];
    QCOMPARE(initialize, expected);
    QCOMPARE(script.messages("notifications/initialized").first(),
             json(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"));
    QVERIFY(!script.messages("tools/list").first().contains("params"));
}

void TestMcpServerRevisions::modernServersDiscoverThemselves()
{
    McpServer server("s");
    McpScript script = McpScript::modern(oneTool);
    QCOMPARE(open(server, script), QString());
    QCOMPARE(namesOf(server), QStringList{"echo"});
    QCOMPARE(script.methods(), (QStringList{"server/discover", "tools/list"}));
}

void TestMcpServerRevisions::modernRequestsSayWhoAsks()
{
    McpServer server("s");
    McpScript script = McpScript::modern(oneTool);
    QCOMPARE(open(server, script), QString());
    const QJsonObject clientInfo{{"name", "MireloQtAgent"}, {"version", QTAGENT_VERSION_STRING}};
    const QJsonObject meta{{"io.modelcontextprotocol/protocolVersion", "2026-07-28"},
                           {"io.modelcontextprotocol/clientInfo", clientInfo},
                           {"io.modelcontextprotocol/clientCapabilities", QJsonObject()}};
    for (const char *method : {"server/discover", "tools/list"})
        QCOMPARE(script.messages(method).first()["params"].toObject(), (QJsonObject{{"_meta", meta}}));
}

void TestMcpServerRevisions::serversOfBothAreTakenAsModern()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", oneTool);
    script.clear("server/discover")
        .on("server/discover",
            {McpScript::result(
                R"({"supportedVersions":["2025-11-25","2026-07-28"],"capabilities":{"tools":{}}})")});
    QCOMPARE(open(server, script), QString());
    QCOMPARE(script.methods(), (QStringList{"server/discover", "tools/list"}));
}

void TestMcpServerRevisions::modernRefusalsAreUnderstood_data()
{
    const QStringList modern{"server/discover", "tools/list"};
    const QStringList legacy{"server/discover", "initialize", "notifications/initialized", "tools/list"};
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("data");
    QTest::addColumn<QStringList>("methods");
    QTest::newRow("header mismatch") << -32020 << "{}" << modern;
    QTest::newRow("missing capability") << -32021 << "{}" << modern;
    QTest::newRow("this version after all") << -32022 << R"({"supported":["2026-07-28"]})" << modern;
    QTest::newRow("an older version") << -32022 << R"({"supported":["2025-11-25"]})" << legacy;
    QTest::newRow("parse error") << -32700 << "{}" << legacy;
}

void TestMcpServerRevisions::modernRefusalsAreUnderstood()
{
    QFETCH(int, code);
    QFETCH(QString, data);
    QFETCH(QStringList, methods);
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", oneTool);
    script.clear("server/discover").on("server/discover", {McpScript::refusal(code, "No", data)});
    QCOMPARE(open(server, script), QString());
    QCOMPARE(namesOf(server), QStringList{"echo"});
    QCOMPARE(script.methods(), methods);
}

void TestMcpServerRevisions::silenceIsFollowedByAHandshake()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2024-11-05", oneTool);
    script.clear("server/discover");
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(open(server, script), QString());
    QVERIFY(timer.elapsed() >= 2800);
    QCOMPARE(namesOf(server), QStringList{"echo"});
}

// It answers the question only when the handshake is there already.
void TestMcpServerRevisions::slowModernServersAreRecognized()
{
    McpServer server("s");
    McpScript script = McpScript::modern(oneTool);
    script.clear("server/discover").clear("initialize");
    script.on("initialize",
              {McpScript::line(R"({"jsonrpc":"2.0","id":1,"result":{"supportedVersions":["2026-07-28"],)"
                               R"("capabilities":{"tools":{}}}})"),
               McpScript::refusal(-32601, "Method not found")});
    QCOMPARE(open(server, script), QString());
    QCOMPARE(namesOf(server), QStringList{"echo"});
    QVERIFY(script.messages("tools/list").first()["params"].toObject().contains("_meta"));
}

void TestMcpServerRevisions::unknownVersionsEndTheServer_data()
{
    QTest::addColumn<QJsonArray>("discovery");
    QTest::addColumn<QJsonArray>("initialization");
    QTest::addColumn<QString>("versions");
    const QJsonArray none = McpScript::refusal(-32601, "Method not found");
    QTest::newRow("discovered") << McpScript::result(R"({"supportedVersions":["2027-01-01","2028-01-01"]})")
                                << none << "2027-01-01, 2028-01-01";
    QTest::newRow("refused") << McpScript::refusal(-32022, "No", R"({"supported":["2027-01-01"]})") << none
                             << "2027-01-01";
    QTest::newRow("named in the handshake")
        << none << McpScript::result(R"({"protocolVersion":"1999-01-01","capabilities":{}})") << "1999-01-01";
}

void TestMcpServerRevisions::unknownVersionsEndTheServer()
{
    QFETCH(QJsonArray, discovery);
    QFETCH(QJsonArray, initialization);
    QFETCH(QString, versions);
    McpServer server("s");
    McpScript script;
    script.on("server/discover", {discovery}).on("initialize", {initialization});
    QCOMPARE(open(server, script), "MCP server speaks another version of the protocol: " + versions);
    QVERIFY(!server.isReady());
    QVERIFY(!script.methods().contains("notifications/initialized"));
}

void TestMcpServerRevisions::refusedHandshakeEndsTheServer()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", oneTool);
    script.clear("initialize").on("initialize", {McpScript::refusal(-32603, "No %1 today")});
    QCOMPARE(open(server, script), "MCP server refused initialize: No %1 today");
}

void TestMcpServerRevisions::serversWithoutToolsAreReady_data()
{
    QTest::addColumn<bool>("isModern");
    QTest::newRow("legacy") << false;
    QTest::newRow("modern") << true;
}

void TestMcpServerRevisions::serversWithoutToolsAreReady()
{
    QFETCH(bool, isModern);
    McpServer server("s");
    McpScript script;
    if (isModern)
        script.on(
            "server/discover",
            {McpScript::result(R"({"supportedVersions":["2026-07-28"],"capabilities":{"prompts":{}}})")});
    else
        script.on("server/discover", {McpScript::refusal(-32601, "Method not found")})
            .on("initialize",
                {McpScript::result(R"({"protocolVersion":"2025-11-25","capabilities":{"prompts":{}}})")});
    QCOMPARE(open(server, script), QString());
    QVERIFY(server.isReady());
    QVERIFY(server.tools().isEmpty());
    QVERIFY(!script.methods().contains("tools/list"));
}

void TestMcpServerRevisions::toolsAreListedPageByPage_data()
{
    QTest::addColumn<QString>("cursor");
    QTest::newRow("cursor") << "page 2/%1";
    QTest::newRow("empty cursor") << "";
}

void TestMcpServerRevisions::toolsAreListedPageByPage()
{
    QFETCH(QString, cursor);
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", {});
    script.clear("tools/list")
        .on("tools/list", {McpScript::result(McpScript::page({McpScript::tool("a")}, cursor))})
        .on("tools/list",
            {McpScript::result(R"({"tools":[{"name":"b","inputSchema":{}}],"nextCursor":null})")});
    QCOMPARE(open(server, script), QString());
    QCOMPARE(namesOf(server), (QStringList{"a", "b"}));
    QCOMPARE(script.messages("tools/list").size(), 2);
    QCOMPARE(script.messages("tools/list").at(1)["params"].toObject(), (QJsonObject{{"cursor", cursor}}));
}

void TestMcpServerRevisions::endlessPagesEndTheServer()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", {});
    script.clear("tools/list").on("tools/list", {McpScript::result(McpScript::page(oneTool, "more"))});
    QCOMPARE(open(server, script), "MCP server has more than 64 pages of tools.");
    QCOMPARE(script.messages("tools/list").size(), 64);
}

void TestMcpServerRevisions::endlessListEndsTheServer()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-11-25", {});
    const QString description(6000000, 'x');
    script.clear("tools/list")
        .on("tools/list", {McpScript::result(McpScript::page({McpScript::tool("a", description)}, "more"))});
    QCOMPARE(open(server, script), "MCP server sent an invalid answer.");
    QCOMPARE(script.messages("tools/list").size(), 3);
}

void TestMcpServerRevisions::batchesAreUnderstood()
{
    McpServer server("s");
    McpScript script = McpScript::legacy("2025-03-26", {});
    script.clear("tools/list")
        .on("tools/list",
            {McpScript::line(R"([{"jsonrpc":"2.0","method":"notifications/message","params":{}},7,)"
                             R"({"jsonrpc":"2.0","id":"p","method":"ping"},)"
                             R"({"jsonrpc":"2.0","id":$id,"result":{"tools":[{"name":"a"}]}}])")});
    QCOMPARE(open(server, script), QString());
    QCOMPARE(namesOf(server), QStringList{"a"});
    QTRY_COMPARE(script.messages({}).size(), 1);
    QCOMPARE(script.messages({}).first(), json(R"({"jsonrpc":"2.0","id":"p","result":{}})"));
}

QTEST_GUILESS_MAIN(TestMcpServerRevisions)
#include "tst_mcpserver_revisions.moc"
