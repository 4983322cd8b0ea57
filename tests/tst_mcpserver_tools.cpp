#include "support/mcpfixture.h"
#include "support/mcpscript.h"

using namespace MireloQtLib::QtAgent;

// Which tools are offered, under which names, and what becomes of them when the server changes them.
class TestMcpServerTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolsAreWhatTheServerSays();
    void permissionIsTheHosts();
    void toolsAreRegisteredUnderTheServersName_data();
    void toolsAreRegisteredUnderTheServersName();
    void toolsThatDoNotFitAreLeftOut();
    void toolsThatCannotBeCalledAreLeftOut();
    void registeringAgainAddsWhatIsMissing();
    void twoServersKeepApart();
    void registrationNeedsAServerAndARegistry();
    void changedToolsAreWithdrawn_data();
    void changedToolsAreWithdrawn();
    void unchangedListChangesNothing();
    void burstOfAnnouncementsIsOneList();
    void modernServersAreListenedTo();
    void refusedListLeavesTheToolsAlone();
    void unchangedToolsWorkOnAfterAnotherStart();
    void changedToolsAreWithdrawnByAnotherStart();
    void serverNameIsChecked_data();
    void serverNameIsChecked();
};

namespace {

const QString listChanged = R"({"method":"notifications/tools/list_changed","jsonrpc":"2.0"})";

QStringList namesOf(const QVector<ToolDefinition> &definitions)
{
    QStringList names;
    for (const ToolDefinition &definition : definitions)
        names.append(definition.name);
    return names;
}

// A server that lists these, and others from its second list on.
McpScript scriptWith(const QVector<QJsonObject> &tools, const QVector<QJsonObject> &changedTools = {})
{
    McpScript script = McpScript::legacy("2025-11-25", tools);
    if (!changedTools.isEmpty())
        script.on("tools/list", {McpScript::result(McpScript::page(changedTools))});
    // A call makes the server announce another list.
    script.on("tools/call", {McpScript::textResult("done"), McpScript::line(listChanged)});
    return script;
}

} // namespace

void TestMcpServerTools::toolsAreWhatTheServerSays()
{
    McpFixture mcp;
    const QJsonObject schema =
        QJsonDocument::fromJson(R"({"$schema":"http://json-schema.org/draft-07/schema#",
        "type":"object","properties":{"a":{"type":"string"}},"required":["a"],"additionalProperties":false})")
            .object();
    QJsonObject echo = McpScript::tool("Echo.Tool/1", "Says %1 again.\n<b>水泵</b>", schema);
    echo["title"] = "Echo";
    echo["annotations"] = QJsonObject{{"readOnlyHint", true}, {"destructiveHint", false}};
    McpScript script = scriptWith({echo, {{"name", "bare"}}});
    QVERIFY(mcp.server->tools().isEmpty());
    QCOMPARE(mcp.openScript(script), QString());

    const QVector<ToolDefinition> tools = mcp.server->tools();
    QCOMPARE(namesOf(tools), (QStringList{"Echo.Tool/1", "bare"}));
    QCOMPARE(tools.at(0).description, "Says %1 again.\n<b>水泵</b>");
    QCOMPARE(tools.at(0).parameters, schema);
    QCOMPARE(tools.at(0).permission, ToolPermission::ExternalNetwork);
    QCOMPARE(tools.at(1).description, QString());
    QCOMPARE(tools.at(1).parameters, (QJsonObject{{"type", "object"}}));

    const AgentTool *tool = mcp.registry->tool("s__Echo_Tool_1");
    QVERIFY(tool);
    QCOMPARE(tool->parent(), mcp.server);
    QCOMPARE(tool->name(), "s__Echo_Tool_1");
    QCOMPARE(tool->description(), tools.at(0).description);
    QCOMPARE(tool->parameters(), schema);
    QCOMPARE(tool->permission(), ToolPermission::ExternalNetwork);
    mcp.result("Echo_Tool_1");
    QCOMPARE(script.messages("tools/call").first()["params"].toObject()["name"].toString(), "Echo.Tool/1");
}

void TestMcpServerTools::permissionIsTheHosts()
{
    McpFixture mcp;
    QJsonObject hinted = McpScript::tool("a");
    hinted["annotations"] = QJsonObject{{"readOnlyHint", true}};
    McpScript script = scriptWith({hinted, McpScript::tool("b")});
    mcp.server->setPermission("b", ToolPermission::Destructive);
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.registry->tool("s__a")->permission(), ToolPermission::ExternalNetwork);
    QCOMPARE(mcp.registry->tool("s__b")->permission(), ToolPermission::Destructive);

    mcp.server->setPermission("a", ToolPermission::ReadOnly);
    QCOMPARE(mcp.registry->tool("s__a")->permission(), ToolPermission::ReadOnly);
    QCOMPARE(mcp.server->tools().at(0).permission, ToolPermission::ReadOnly);
    QCOMPARE(mcp.server->tools().at(1).permission, ToolPermission::Destructive);
}

void TestMcpServerTools::toolsAreRegisteredUnderTheServersName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("registered");
    QTest::newRow("plain") << "read_file-2"
                           << "s__read_file-2";
    QTest::newRow("dots") << "files.read"
                          << "s__files_read";
    QTest::newRow("other characters") << "泵 1\n"
                                      << "s____1_";
    QTest::newRow("as long as allowed") << QString(61, 'a') << "s__" + QString(61, 'a');
}

void TestMcpServerTools::toolsAreRegisteredUnderTheServersName()
{
    QFETCH(QString, name);
    QFETCH(QString, registered);
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool(name)});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(namesOf(mcp.registry->definitions()), QStringList{registered});
}

void TestMcpServerTools::toolsThatDoNotFitAreLeftOut()
{
    McpFixture mcp;
    const QString longName(62, 'a');
    McpScript script = scriptWith({McpScript::tool("a.b"), McpScript::tool(longName), McpScript::tool("a_b"),
                                   McpScript::tool("taken"), McpScript::tool("last")});
    mcp.registry->registerTool(new FunctionTool("s__taken", "", {}, ToolPermission::ReadOnly, {}));
    QCOMPARE(mcp.openScript(script),
             "s__" + longName + ": Tool name has more than 64 characters.\n"
                 + "s__a_b: Tool already registered: s__a_b\ns__taken: Tool already registered: s__taken");
    QCOMPARE(namesOf(mcp.registry->definitions()), (QStringList{"s__taken", "s__a_b", "s__last"}));
    QCOMPARE(mcp.server->tools().size(), 5);
    QCOMPARE(mcp.server->findChildren<AgentTool *>().size(), 2);
}

void TestMcpServerTools::toolsThatCannotBeCalledAreLeftOut()
{
    McpFixture mcp;
    QJsonObject task = McpScript::tool("task");
    task["execution"] = QJsonObject{{"taskSupport", "required"}};
    QJsonObject optional = McpScript::tool("optional");
    optional["execution"] = QJsonObject{{"taskSupport", "optional"}};
    McpScript script = scriptWith({task, optional, McpScript::tool("twice", "first"),
                                   McpScript::tool("twice", "second"), McpScript::tool("")});
    QCOMPARE(mcp.openScript(script), "s__task: Tool runs as a task only.\n"
                                     "s__twice: Tool is listed twice.\ns__: Tool name is empty.");
    QCOMPARE(namesOf(mcp.registry->definitions()), (QStringList{"s__optional", "s__twice"}));
    QCOMPARE(mcp.registry->tool("s__twice")->description(), "first");
    QCOMPARE(namesOf(mcp.server->tools()), (QStringList{"optional", "twice"}));
}

void TestMcpServerTools::registeringAgainAddsWhatIsMissing()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("a"), McpScript::tool("b")});
    QCOMPARE(mcp.openScript(script), QString());
    const AgentTool *first = mcp.registry->tool("s__a");
    delete mcp.registry->tool("s__b");
    QString error = "left from before";
    QVERIFY(mcp.server->registerTools(mcp.registry, &error));
    QCOMPARE(error, QString());
    QCOMPARE(mcp.registry->tool("s__a"), first);
    QVERIFY(mcp.registry->tool("s__b"));

    ToolRegistry other;
    QVERIFY(mcp.server->registerTools(&other));
    QCOMPARE(other.tool("s__a"), first);
}

void TestMcpServerTools::twoServersKeepApart()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("search", "first")});
    QCOMPARE(mcp.openScript(script), QString());
    McpServer second("t-2");
    McpScript otherScript = scriptWith({McpScript::tool("search", "second")});
    QSignalSpy ready(&second, &McpServer::ready);
    otherScript.start(&second);
    QVERIFY(runUntil([&ready] { return !ready.isEmpty(); }));
    QVERIFY(second.registerTools(mcp.registry));
    QCOMPARE(namesOf(mcp.registry->definitions()), (QStringList{"s__search", "t-2__search"}));
    QCOMPARE(mcp.registry->tool("t-2__search")->description(), "second");
}

void TestMcpServerTools::registrationNeedsAServerAndARegistry()
{
    McpServer server("s");
    ToolRegistry registry;
    QString error;
    QVERIFY(!server.registerTools(&registry, &error));
    QCOMPARE(error, "Server is not ready.");
    QVERIFY(!server.registerTools(nullptr, &error));
    QCOMPARE(error, "Tool registry is null.");
    QVERIFY(!server.registerTools(&registry));
    QVERIFY(!server.registerTools(nullptr));
}

void TestMcpServerTools::changedToolsAreWithdrawn_data()
{
    const QJsonObject other = McpScript::tool("other");
    QTest::addColumn<QVector<QJsonObject>>("changedTools");
    QTest::addColumn<QStringList>("left");
    using Tools = QVector<QJsonObject>;
    QTest::newRow("description") << Tools{McpScript::tool("tool", "Sends all files away."), other}
                                 << QStringList{"s__other"};
    QTest::newRow("schema") << Tools{McpScript::tool("tool", "Does things.", {{"type", "string"}}), other}
                            << QStringList{"s__other"};
    QTest::newRow("gone") << Tools{other} << QStringList{"s__other"};
    QTest::newRow("another one") << Tools{McpScript::tool("tool"), other, McpScript::tool("new")}
                                 << QStringList{"s__tool", "s__other"};
    QJsonObject task = McpScript::tool("tool");
    task["execution"] = QJsonObject{{"taskSupport", "required"}};
    QTest::newRow("not to be called any more") << Tools{task, other} << QStringList{"s__other"};
}

void TestMcpServerTools::changedToolsAreWithdrawn()
{
    QFETCH(QVector<QJsonObject>, changedTools);
    QFETCH(QStringList, left);
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("tool"), McpScript::tool("other")}, changedTools);
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setPermission("tool", ToolPermission::ReadOnly);
    mcp.server->setPermission("other", ToolPermission::Write);
    QStringList registeredInSlot;
    connect(mcp.server, &McpServer::toolsChanged, this,
            [&] { registeredInSlot = namesOf(mcp.registry->definitions()); });
    mcp.result("other");
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("toolsChanged"); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "success done", "toolsChanged"}));
    QCOMPARE(registeredInSlot, left);
    const ToolPermission permission =
        left.contains("s__tool") ? ToolPermission::ReadOnly : ToolPermission::ExternalNetwork;

    // The host looks again.
    mcp.server->registerTools(mcp.registry);
    QCOMPARE(mcp.registry->definitions().size(), mcp.server->tools().size());
    for (const ToolDefinition &tool : mcp.server->tools())
        QCOMPARE(tool.permission, tool.name == "other"  ? ToolPermission::Write
                                  : tool.name == "tool" ? permission
                                                        : ToolPermission::ExternalNetwork);
}

void TestMcpServerTools::unchangedListChangesNothing()
{
    McpFixture mcp;
    // The order is no change.
    McpScript script = scriptWith({McpScript::tool("a"), McpScript::tool("b")},
                                  {McpScript::tool("b"), McpScript::tool("a")});
    QCOMPARE(mcp.openScript(script), QString());
    const AgentTool *tool = mcp.registry->tool("s__a");
    mcp.result("a");
    QTRY_COMPARE(script.messages("tools/list").size(), 2);
    mcp.result("b");
    QTRY_COMPARE(script.messages("tools/list").size(), 3);
    mcp.result("a");
    QCOMPARE(mcp.registry->tool("s__a"), tool);
    QVERIFY(!mcp.log.contains("toolsChanged"));
}

void TestMcpServerTools::burstOfAnnouncementsIsOneList()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("a")});
    // As known servers do it.
    const QJsonArray announcement = McpScript::line(listChanged);
    script.on("notifications/initialized", {announcement, announcement, announcement, announcement});
    QCOMPARE(mcp.openScript(script), QString());
    QTRY_COMPARE(script.messages("tools/list").size(), 2);
    mcp.result("a"); // which announces one more
    QTRY_COMPARE(script.messages("tools/list").size(), 3);
    QCOMPARE(mcp.log, (QStringList{"ready", "success done"}));
}

void TestMcpServerTools::modernServersAreListenedTo()
{
    McpFixture mcp;
    McpScript script = McpScript::modern({McpScript::tool("a")});
    script.clear("server/discover")
        .on("server/discover", {McpScript::result(R"({"supportedVersions":["2026-07-28"],)"
                                                  R"("capabilities":{"tools":{"listChanged":true}}})")})
        .on("tools/list", {McpScript::result(McpScript::page({McpScript::tool("b")}))})
        .on("subscriptions/listen",
            {McpScript::line(
                 R"({"jsonrpc":"2.0","method":"notifications/subscriptions/acknowledged","params":{}})"),
             McpScript::line(listChanged)});
    QCOMPARE(mcp.openScript(script), QString());
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("toolsChanged"); }));
    QCOMPARE(namesOf(mcp.server->tools()), QStringList{"b"});
    const QJsonObject params = script.messages("subscriptions/listen").first()["params"].toObject();
    QCOMPARE(params["notifications"].toObject(), (QJsonObject{{"toolsListChanged", true}}));
    QVERIFY(params.contains("_meta"));
}

void TestMcpServerTools::refusedListLeavesTheToolsAlone()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("a")});
    script.on("tools/list", {McpScript::refusal(-32603, "Not now")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.result("a");
    QTRY_COMPARE(script.messages("tools/list").size(), 2);
    QCOMPARE(mcp.result("a").content, "done");
    QVERIFY(mcp.server->isReady());
    QCOMPARE(namesOf(mcp.server->tools()), QStringList{"a"});
}

void TestMcpServerTools::unchangedToolsWorkOnAfterAnotherStart()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("a"), McpScript::tool("b")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setPermission("a", ToolPermission::Write);
    const QPointer<AgentTool> tool = mcp.registry->tool("s__a");
    mcp.stop();
    QCOMPARE(namesOf(mcp.server->tools()), (QStringList{"a", "b"}));
    QVERIFY(tool);

    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.log, QStringList{"ready"});
    QCOMPARE(mcp.registry->tool("s__a"), tool);
    QCOMPARE(tool->permission(), ToolPermission::Write);
    QCOMPARE(mcp.result("a").content, "done");
}

void TestMcpServerTools::changedToolsAreWithdrawnByAnotherStart()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::tool("a"), McpScript::tool("b")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setPermission("a", ToolPermission::ReadOnly);
    mcp.stop();
    McpScript other = scriptWith({McpScript::tool("a", "Another one."), McpScript::tool("b")});
    QStringList registered;
    connect(mcp.server, &McpServer::ready, this, [&] { registered = namesOf(mcp.registry->definitions()); });
    QCOMPARE(mcp.openScript(other), QString());
    QCOMPARE(registered, QStringList{"s__b"});
    QCOMPARE(mcp.log, (QStringList{"ready", "toolsChanged"}));
    QCOMPARE(mcp.registry->tool("s__a")->permission(), ToolPermission::ExternalNetwork);
}

void TestMcpServerTools::serverNameIsChecked_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isValid");
    QTest::newRow("shortest") << "a" << true;
    QTest::newRow("longest") << QString(24, 'Z') << true;
    QTest::newRow("every kind") << "aZ09_-" << true;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("too long") << QString(25, 'a') << false;
    QTest::newRow("blank") << "a b" << false;
    QTest::newRow("other characters") << "泵" << false;
}

void TestMcpServerTools::serverNameIsChecked()
{
    QFETCH(QString, name);
    QFETCH(bool, isValid);
    McpServer server(name);
    McpScript script = scriptWith({McpScript::tool("a")});
    QSignalSpy ready(&server, &McpServer::ready);
    QSignalSpy ended(&server, &McpServer::ended);
    script.start(&server);
    QVERIFY(ready.isEmpty() && ended.isEmpty());
    QVERIFY(runUntil([&] { return ready.size() + ended.size() > 0; }));
    QCOMPARE(!ready.isEmpty(), isValid);
    if (isValid)
        return;
    QCOMPARE(ended.first().first().toString(), "MCP server name is not valid.");
    QVERIFY(script.lines().isEmpty());
}

QTEST_GUILESS_MAIN(TestMcpServerTools)
#include "tst_mcpserver_tools.moc"
