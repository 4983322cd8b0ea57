#include "support/mcpfixture.h"
#include "support/mcpscript.h"
#include "support/processtable.h"

using namespace MireloQtLib::QtAgent;

// How programs are started and ended, and what becomes of those that misbehave.
class TestMcpServerPrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onlyChosenVariablesReachTheProgram();
    void errorOutputIsKept();
    void errorOutputIsBounded();
    void linesThatAreNoMessagesArePassedOver();
    void programThatCannotBeStartedEnds_data();
    void programThatCannotBeStartedEnds();
    void programThatEndsFailsItsCalls_data();
    void programThatEndsFailsItsCalls();
    void answersBeforeTheEndCount();
    void unfinishedLinesAreKept();
    void lineWithoutAnEndEndsTheServer_data();
    void lineWithoutAnEndEndsTheServer();
    void longLineIsRead();
    void serverThatNeverReadsTimesOut();
    void serverThatClosesItsOutputTimesOut();
    void silentHandshakeEndsTheServer();
    void stopEndsThePoliteAndTheStubborn();
    void stopFailsCallsAtOnce();
    void stopWhileOpeningEndsOnce();
    void stopWithoutAServerDoesNothing();
    void startingTwiceOnlyWarns();
    void serverMayBeStartedAgainWhenItEnds();
    void childrenThatOutliveTheProgramAreEnded();
    void callsDoNotWaitForTheChildrenOfAProgramThatCrashed();
};

namespace {

McpScript echoScript()
{
    McpScript script = McpScript::legacy("2025-11-25", {McpScript::tool("echo")});
    script.on("tools/call", {McpScript::textResult("done")});
    return script;
}

} // namespace

void TestMcpServerPrograms::onlyChosenVariablesReachTheProgram()
{
    qputenv("OPENAI_API_KEY", "secret");
    McpFixture mcp;
    McpScript script = echoScript();
    script.atBegin({McpScript::word("environment")});
    QProcessEnvironment environment;
    environment.insert("MCP_TOKEN", "泵");
    environment.insert("HOME", "/nowhere");
    QCOMPARE(mcp.open([&] { script.start(mcp.server, environment); }), QString());
    QTRY_VERIFY(mcp.server->errorOutput().contains("MCP_TOKEN"));
    QStringList lines = mcp.server->errorOutput().split('\n', Qt::SkipEmptyParts);
    QStringList expected{"HOME=/nowhere", "MCP_TOKEN=泵"};
    for (const char *name : {"LOGNAME", "PATH", "SHELL", "TERM", "USER"}) {
        if (qEnvironmentVariableIsSet(name))
            expected.append(QString(name) + "=" + qEnvironmentVariable(name));
    }
    lines.sort();
    expected.sort();
    QCOMPARE(lines, expected);
}

void TestMcpServerPrograms::errorOutputIsKept()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.atBegin({McpScript::error("Starting (<b>水泵</b>)...\n")});
    script.atEnd({McpScript::error("Bye.\n")});
    QVERIFY(mcp.server->errorOutput().isEmpty());
    QCOMPARE(mcp.openScript(script), QString());
    QTRY_COMPARE(mcp.server->errorOutput(), "Starting (<b>水泵</b>)...\n");
    mcp.stop();
    QCOMPARE(mcp.server->errorOutput(), "Starting (<b>水泵</b>)...\nBye.\n");
    script.start(mcp.server);
    QCOMPARE(mcp.server->errorOutput(), QString());
}

void TestMcpServerPrograms::errorOutputIsBounded()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call")
        .on("tools/call",
            {McpScript::repeatError("水", 100000), McpScript::error("end"), McpScript::textResult("done")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "done");
    QTRY_VERIFY(mcp.server->errorOutput().endsWith("水end"));
    const QString output = mcp.server->errorOutput();
    QVERIFY(output.toUtf8().size() <= 65536);
    QVERIFY(output.toUtf8().size() > 65536 - 3);
    QVERIFY(output.startsWith("水"));
}

void TestMcpServerPrograms::linesThatAreNoMessagesArePassedOver()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call")
        .on("tools/call",
            {McpScript::line("Listening on 3000"), McpScript::line(""), McpScript::line("{\"a\":"),
             McpScript::line("7"), McpScript::line("[]"), McpScript::line(R"({"level":"info","id":$id})"),
             McpScript::line(R"({"jsonrpc":"1.0","id":$id,"result":{}})"),
             McpScript::line(R"({"jsonrpc":"2.0","method":7})"),
             McpScript::line(R"({"jsonrpc":"2.0","id":null,"method":"ping"})"),
             McpScript::line(R"({"jsonrpc":"2.0","method":"notifications/message","params":[1]})"),
             McpScript::line(R"({"jsonrpc":"2.0","method":"no/such"})"), McpScript::textResult("done")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "done");
    const QStringList lines = mcp.server->errorOutput().split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.mid(0, 4), (QStringList{"Listening on 3000", "{\"a\":", "7", "[]"}));
    QCOMPARE(lines.size(), 8);
    QVERIFY(script.messages({}).isEmpty());
}

void TestMcpServerPrograms::programThatCannotBeStartedEnds_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("reason");
    QTest::newRow("missing") << "/no/such/program"
                             << "No such file or directory";
    QTest::newRow("no program") << "/etc/passwd"
                                << "Permission denied";
    QTest::newRow("no name") << ""
                             << "No such file or directory";
}

void TestMcpServerPrograms::programThatCannotBeStartedEnds()
{
    QFETCH(QString, program);
    QFETCH(QString, reason);
    McpFixture mcp;
    mcp.server->startProcess(program);
    QVERIFY(mcp.log.isEmpty());
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    runUntilQuiet();
    QCOMPARE(mcp.log, QStringList{"ended Program could not be started: " + reason});
}

void TestMcpServerPrograms::programThatEndsFailsItsCalls_data()
{
    QTest::addColumn<McpScript::Steps>("steps");
    QTest::addColumn<QString>("reason");
    using Steps = McpScript::Steps;
    QTest::newRow("code") << Steps{McpScript::exit(3)} << "Program ended with code 3.";
    QTest::newRow("success") << Steps{McpScript::exit(0)} << "Program ended with code 0.";
    QTest::newRow("crash") << Steps{McpScript::word("crash")} << "Program crashed.";
    QTest::newRow("in the middle of a line")
        << Steps{McpScript::text(R"({"jsonrpc":"2.0","id":$id,"result":{"content":[]}})"), McpScript::exit(0)}
        << "Program ended with code 0.";
}

void TestMcpServerPrograms::programThatEndsFailsItsCalls()
{
    QFETCH(McpScript::Steps, steps);
    QFETCH(QString, reason);
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {}).on("tools/call", steps);
    QCOMPARE(mcp.openScript(script), QString());
    bool wasReady = true;
    ToolReply *first = mcp.call("echo");
    connect(first, &ToolReply::finished, this, [&] {
        wasReady = mcp.server->isReady();
        mcp.call("echo");
    });
    mcp.call("echo");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 5; }));
    QVERIFY(!wasReady);
    const QString failure = "failure MCP server ended. " + reason;
    QCOMPARE(mcp.log,
             (QStringList{"ready", failure, failure, "ended " + reason, "failure Server is not ready."}));
    QVERIFY(!mcp.server->isReady());
}

void TestMcpServerPrograms::answersBeforeTheEndCount()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {McpScript::textResult("done"), McpScript::exit(0)});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "done");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 3; }));
    QCOMPARE(mcp.log, (QStringList{"ready", "success done", "ended Program ended with code 0."}));
}

void TestMcpServerPrograms::unfinishedLinesAreKept()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call")
        .on("tools/call", {McpScript::error("terminate called"), McpScript::text("Reading the val"),
                           McpScript::word("crash")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.result("echo");
    QVERIFY(mcp.server->errorOutput().contains("terminate called"));
    QVERIFY(mcp.server->errorOutput().contains("Reading the val\n"));
}

void TestMcpServerPrograms::lineWithoutAnEndEndsTheServer_data()
{
    QTest::addColumn<McpScript::Steps>("steps");
    using Steps = McpScript::Steps;
    QTest::newRow("with an end") << Steps{McpScript::repeat("x", 16777217), McpScript::line("")};
    QTest::newRow("without an end") << Steps{McpScript::repeat("x", 20000000), McpScript::word("freeze")};
}

void TestMcpServerPrograms::lineWithoutAnEndEndsTheServer()
{
    QFETCH(McpScript::Steps, steps);
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", steps);
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").error, "MCP server ended. Line is too long.");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 3; }));
    QCOMPARE(mcp.log.last(), "ended Line is too long.");
    QCOMPARE(childProcesses(), QStringList());
}

void TestMcpServerPrograms::longLineIsRead()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call")
        .on("tools/call",
            {McpScript::text(R"({"jsonrpc":"2.0","id":$id,"result":{"content":[{"type":"text","text":")"),
             McpScript::repeat("泵", 4000000), McpScript::line(R"("}]}})")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content.size(), 4000000);
    QVERIFY(mcp.server->isReady());
}

void TestMcpServerPrograms::serverThatNeverReadsTimesOut()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {McpScript::word("freeze")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setTimeLimit(200);
    // More than a pipe takes.
    QCOMPARE(mcp.result("echo", {{"a", QString(1000000, 'a')}}).error,
             "MCP server did not answer within 200 ms.");
    QCOMPARE(mcp.result("echo").error, "MCP server did not answer within 200 ms.");
}

void TestMcpServerPrograms::serverThatClosesItsOutputTimesOut()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {McpScript::word("close output")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setTimeLimit(100);
    QCOMPARE(mcp.result("echo").error, "MCP server did not answer within 100 ms.");
    mcp.stop();
    QCOMPARE(mcp.log.last(), "ended ");
}

void TestMcpServerPrograms::silentHandshakeEndsTheServer()
{
    McpFixture mcp;
    McpScript script;
    mcp.server->setTimeLimit(100);
    script.start(mcp.server);
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    QCOMPARE(mcp.log, QStringList{"ended MCP server did not answer within 100 ms."});
    QCOMPARE(script.methods(), (QStringList{"server/discover", "initialize"}));
}

// Side by side, for it takes a while.
void TestMcpServerPrograms::stopEndsThePoliteAndTheStubborn()
{
    struct Case
    {
        const char *name;
        McpScript::Steps begin;
        McpScript::Steps end;
        qint64 atLeastMs;
    };
    const QJsonArray freeze = McpScript::word("freeze");
    const QJsonArray ignore = McpScript::word("ignore SIGTERM");
    const QJsonArray child = McpScript::word("child");
    const QVector<Case> cases{
        {"leaves when its input is closed", {}, {}, 0},
        {"leaves when it is told", {}, {freeze}, 1900},
        {"does not leave", {ignore}, {freeze}, 3800},
        {"leaves a child", {child}, {}, 0},
        {"leaves a stubborn child", {ignore, child}, {}, 1900},
    };
    std::vector<McpFixture> servers(size_t(cases.size()));
    std::vector<McpScript> scripts;
    for (size_t i = 0; i < servers.size(); ++i) {
        scripts.push_back(echoScript());
        scripts[i].atBegin(cases.at(int(i)).begin).atEnd(cases.at(int(i)).end);
        QCOMPARE(servers[i].openScript(scripts[i]), QString());
    }
    QElapsedTimer timer;
    timer.start();
    QVector<qint64> durations(cases.size(), -1);
    for (size_t i = 0; i < servers.size(); ++i) {
        connect(servers[i].server, &McpServer::ended, this, [&, i] { durations[int(i)] = timer.elapsed(); });
        servers[i].server->stop();
    }
    QVERIFY(runUntil([&durations] { return !durations.contains(-1); }));
    for (size_t i = 0; i < servers.size(); ++i) {
        const Case &expected = cases.at(int(i));
        QVERIFY2(durations.at(int(i)) >= expected.atLeastMs, expected.name);
        QTRY_VERIFY2(!isProcessRunning(scripts[i].child()), expected.name);
        QCOMPARE(servers[i].log, (QStringList{"ready", "ended "}));
    }
    QCOMPARE(childProcesses(), QStringList());
}

void TestMcpServerPrograms::stopFailsCallsAtOnce()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {});
    QCOMPARE(mcp.openScript(script), QString());
    const ToolReply *reply = mcp.call("echo");
    QTRY_COMPARE(script.messages("tools/call").size(), 1);
    mcp.server->stop();
    QVERIFY(!mcp.server->isReady());
    QVERIFY(reply->isRunning());
    mcp.server->stop();
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "failure MCP server ended."}));
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 3; }));
    QCOMPARE(mcp.log.last(), "ended ");
}

void TestMcpServerPrograms::stopWhileOpeningEndsOnce()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.start(mcp.server);
    mcp.server->stop();
    QVERIFY(mcp.log.isEmpty());
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    mcp.server->startProcess("/no/such/program");
    mcp.server->stop();
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 2; }));
    runUntilQuiet();
    QCOMPARE(mcp.log, (QStringList{"ended ", "ended "}));
}

void TestMcpServerPrograms::stopWithoutAServerDoesNothing()
{
    McpFixture mcp;
    mcp.server->stop();
    runUntilQuiet();
    QVERIFY(mcp.log.isEmpty());
}

void TestMcpServerPrograms::startingTwiceOnlyWarns()
{
    McpFixture mcp;
    McpScript script = echoScript();
    const char *warning = "McpServer: the server is running already.";
    for (int i = 0; i < 3; ++i)
        QTest::ignoreMessage(QtWarningMsg, warning);
    script.start(mcp.server);
    script.start(mcp.server);
    mcp.server->connectTo(QUrl("http://127.0.0.1:1"));
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    mcp.server->stop();
    script.start(mcp.server);
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 2; }));
    QCOMPARE(mcp.log, (QStringList{"ready", "ended "}));
    QCOMPARE(script.messages("initialize").size(), 1);
}

void TestMcpServerPrograms::serverMayBeStartedAgainWhenItEnds()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {McpScript::exit(1)});
    QCOMPARE(mcp.openScript(script), QString());
    connect(mcp.server, &McpServer::ended, this, [&] { script.start(mcp.server); });
    mcp.result("echo");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 4; }));
    QCOMPARE(mcp.log, (QStringList{"ready", "failure MCP server ended. Program ended with code 1.",
                                   "ended Program ended with code 1.", "ready"}));
    QVERIFY(mcp.server->isReady());
}

void TestMcpServerPrograms::childrenThatOutliveTheProgramAreEnded()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.clear("tools/call").on("tools/call", {McpScript::word("child"), McpScript::exit(0)});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.result("echo");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 3; }));
    QCOMPARE(mcp.log.last(), "ended Program ended with code 0.");
    QVERIFY(!script.child().isEmpty());
    QTRY_VERIFY(!isProcessRunning(script.child()));
}

void TestMcpServerPrograms::callsDoNotWaitForTheChildrenOfAProgramThatCrashed()
{
    McpFixture mcp;
    McpScript script = echoScript();
    script.atBegin({McpScript::word("ignore SIGTERM"), McpScript::word("child")});
    script.clear("tools/call").on("tools/call", {McpScript::word("crash")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").error, "MCP server ended. Program crashed.");
    QVERIFY(!mcp.server->isReady());
    QCOMPARE(mcp.result("echo").error, "Server is not ready.");
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 4; }));
    QCOMPARE(mcp.log, (QStringList{"ready", "failure MCP server ended. Program crashed.",
                                   "failure Server is not ready.", "ended Program crashed."}));
    QTRY_VERIFY(!isProcessRunning(script.child()));
}

QTEST_GUILESS_MAIN(TestMcpServerPrograms)
#include "tst_mcpserver_programs.moc"
