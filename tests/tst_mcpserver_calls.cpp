#include "support/httpendpoint.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"

#include <qtagent/agentsession.h>
#include <qtagent/requestoptions.h>

using namespace MireloQtLib::QtAgent;

// What is sent for a call of a tool, and what is made of the answer.
class TestMcpServerCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void callIsSentWithItsArguments();
    void resultsBecomeToolResults_data();
    void resultsBecomeToolResults();
    void modernResultsAreComplete_data();
    void modernResultsAreComplete();
    void progressIsPassedOn_data();
    void progressIsPassedOn();
    void canceledCallIsCanceledAtTheServer_data();
    void canceledCallIsCanceledAtTheServer();
    void silenceEndsInAFailureAndACancellation();
    void progressDoesNotExtendTheTimeLimit();
    void answersComeInAnyOrder();
    void answersNobodyWaitsForAreDropped();
    void requestsOfTheServerAreAnswered_data();
    void requestsOfTheServerAreAnswered();
    void answersThatAServerDoesNotReadAreDropped();
    void callsWithoutAServerFail();
    void callWithoutAnObjectRunsNothing_data();
    void callWithoutAnObjectRunsNothing();
    void toolThatIsDeletedLeavesItsReplyRunning();
};

namespace {

McpScript scriptWith(const McpScript::Steps &steps)
{
    McpScript script = McpScript::legacy("2025-11-25", {McpScript::tool("echo"), McpScript::tool("other")});
    script.on("tools/call", steps);
    return script;
}

QJsonObject json(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

} // namespace

void TestMcpServerCalls::callIsSentWithItsArguments()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::result(R"({"content":[],"structuredContent":$arguments})")});
    QCOMPARE(mcp.openScript(script), QString());
    const QJsonObject arguments{{"名", "a\nb"}, {"n", QJsonArray{1, 2.5}}, {"none", QJsonValue::Null}};
    QCOMPARE(mcp.result("echo", arguments).data, arguments);
    QCOMPARE(mcp.result("echo").data, QJsonObject());

    const QVector<QJsonObject> calls = script.messages("tools/call");
    QCOMPARE(calls.size(), 2);
    for (int i = 0; i < 2; ++i) {
        const QJsonValue id = calls.at(i)["id"];
        const QJsonObject params{{"name", "echo"},
                                 {"arguments", i == 0 ? arguments : QJsonObject()},
                                 {"_meta", QJsonObject{{"progressToken", id}}}};
        QCOMPARE(calls.at(i),
                 (QJsonObject{{"jsonrpc", "2.0"}, {"id", id}, {"method", "tools/call"}, {"params", params}}));
    }
    QVERIFY(calls.at(0)["id"] != calls.at(1)["id"]);
}

void TestMcpServerCalls::resultsBecomeToolResults_data()
{
    QTest::addColumn<QString>("sent");
    QTest::addColumn<ToolResult>("result");
    const auto content = [](const QString &text) { return ToolResult{true, {}, text, {}, {}}; };
    const auto error = [](const QString &text) { return ToolResult{false, {}, {}, text, {}}; };
    QTest::newRow("text") << R"({"content":[{"type":"text","text":"水泵 %1"}]})" << content("水泵 %1");
    QTest::newRow("texts") << R"({"content":[{"type":"text","text":"a"},{"type":"text","text":"b"}]})"
                           << content("a\nb");
    QTest::newRow("nothing") << R"({"content":[]})" << content({});
    QTest::newRow("no content") << R"({})" << content({});
    QTest::newRow("image") << R"({"content":[{"type":"text","text":"see"},)"
                              R"({"type":"image","data":"AAECAwQ=","mimeType":"image/png"}]})"
                           << content("see\n[image: image/png, 5 bytes]");
    QTest::newRow("audio") << R"({"content":[{"type":"audio","data":"","mimeType":"audio/wav"}]})"
                           << content("[audio: audio/wav, 0 bytes]");
    QTest::newRow("resource")
        << R"({"content":[{"type":"resource","resource":{"uri":"file:///a","text":"secret"}}]})"
        << content("[resource: file:///a]");
    QTest::newRow("link") << R"({"content":[{"type":"resource_link","uri":"https://a.b/c","name":"n"}]})"
                          << content("[resource: https://a.b/c]");
    QTest::newRow("unknown kind") << R"({"content":[{"type":"hologram","text":"x"},{}]})"
                                  << content("[hologram]\n[]");
    QTest::newRow("structured") << R"({"content":[{"type":"text","text":"5"}],"structuredContent":{"sum":5}})"
                                << ToolResult{true, {{"sum", 5}}, "5", {}, {}};
    QTest::newRow("structured, no object")
        << R"({"content":[],"structuredContent":[1,2]})" << content("[1,2]");
    QTest::newRow("structured null") << R"({"content":[],"structuredContent":null})" << content({});
    QTest::newRow("failed") << R"({"content":[{"type":"text","text":"no pump"}],"isError":true})"
                            << error("no pump");
    QTest::newRow("failed with data")
        << R"({"content":[{"type":"text","text":"no"}],"isError":true,"structuredContent":{"a":1}})"
        << ToolResult{false, {{"a", 1}}, {}, "no", {}};
    // Older revisions know no such member.
    QTest::newRow("member of another revision")
        << R"({"content":[],"resultType":"input_required"})" << content({});
}

void TestMcpServerCalls::resultsBecomeToolResults()
{
    QFETCH(QString, sent);
    QFETCH(ToolResult, result);
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::result(sent)});
    QCOMPARE(mcp.openScript(script), QString());
    const ToolResult received = mcp.result("echo");
    QCOMPARE(received.success, result.success);
    QCOMPARE(received.content, result.content);
    QCOMPARE(received.error, result.error);
    QCOMPARE(received.data, result.data);
    QCOMPARE(received.metadata, QJsonObject());
}

void TestMcpServerCalls::modernResultsAreComplete_data()
{
    QTest::addColumn<QJsonArray>("answer");
    QTest::addColumn<QString>("error");
    const auto result = [](const QString &type) {
        return McpScript::result(R"({"content":[{"type":"text","text":"done"}],"resultType":")" + type
                                 + "\"}");
    };
    QTest::newRow("complete") << result("complete") << QString();
    QTest::newRow("no type") << McpScript::textResult("done") << QString();
    QTest::newRow("asks") << result("input_required") << "MCP server asked for input.";
    QTest::newRow("unknown") << result("half") << "MCP server sent an invalid answer.";
    QTest::newRow("no object") << McpScript::result("7") << "MCP server sent an invalid answer.";
    QTest::newRow("nothing") << McpScript::line(R"({"jsonrpc":"2.0","id":$id})")
                             << "MCP server sent an invalid answer.";
    QTest::newRow("error") << McpScript::refusal(-32602, "Tool %1 not found") << "Tool %1 not found";
    QTest::newRow("error without words") << McpScript::refusal(-32603, "") << "Error -32603";
}

void TestMcpServerCalls::modernResultsAreComplete()
{
    QFETCH(QJsonArray, answer);
    QFETCH(QString, error);
    McpFixture mcp;
    McpScript script = McpScript::modern({McpScript::tool("echo")});
    script.on("tools/call", {answer});
    QCOMPARE(mcp.openScript(script), QString());
    const ToolResult result = mcp.result("echo");
    QCOMPARE(result.error, error);
    QCOMPARE(result.content, error.isEmpty() ? "done" : "");
    QCOMPARE(script.messages("tools/call").size(), 1);
    QVERIFY(script.messages("tools/call").first()["params"].toObject()["_meta"].toObject().size() == 4);
}

void TestMcpServerCalls::progressIsPassedOn_data()
{
    QTest::addColumn<QString>("params");
    QTest::addColumn<QString>("text");
    QTest::newRow("message") << R"("progress":1,"total":3,"message":"half %1")"
                             << "half %1";
    QTest::newRow("total") << R"("progress":1,"total":3)"
                           << "1/3";
    QTest::newRow("fraction") << R"("progress":0.5)"
                              << "0.5";
}

void TestMcpServerCalls::progressIsPassedOn()
{
    QFETCH(QString, params);
    QFETCH(QString, text);
    McpFixture mcp;
    const auto progress = [&params](const QString &token) {
        return McpScript::line(R"({"method":"notifications/progress","params":{"progressToken":)" + token
                               + "," + params + R"(},"jsonrpc":"2.0"})");
    };
    // Those of other calls, and late ones, are dropped.
    McpScript script = scriptWith({progress("99"), progress("\"$id\""), progress("1e300"), progress("-1.5"),
                                   progress("$token"), McpScript::textResult("done"), progress("$token")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.result("echo");
    mcp.result("other");
    QCOMPARE(mcp.log,
             (QStringList{"ready", "progress " + text, "success done", "progress " + text, "success done"}));
}

void TestMcpServerCalls::canceledCallIsCanceledAtTheServer_data()
{
    QTest::addColumn<bool>("isModern");
    QTest::addColumn<bool>("deletes");
    QTest::newRow("canceled") << false << false;
    QTest::newRow("deleted") << false << true;
    QTest::newRow("canceled, modern") << true << false;
}

void TestMcpServerCalls::canceledCallIsCanceledAtTheServer()
{
    QFETCH(bool, isModern);
    QFETCH(bool, deletes);
    McpFixture mcp;
    const QVector<QJsonObject> tools{McpScript::tool("echo"), McpScript::tool("other")};
    McpScript script = isModern ? McpScript::modern(tools) : McpScript::legacy("2025-06-18", tools);
    script.on("tools/call echo", {})
        .on("notifications/cancelled",
            {McpScript::line(R"({"jsonrpc":"2.0","id":$requestId,"result":{"content":[]}})")})
        .on("tools/call other", {McpScript::textResult("next")});
    QCOMPARE(mcp.openScript(script), QString());
    ToolReply *reply = mcp.call("echo");
    QTRY_COMPARE(script.messages("tools/call").size(), 1);
    if (deletes)
        delete reply;
    else
        reply->cancel();
    // The late answer is dropped.
    QCOMPARE(mcp.result("other").content, "next");
    QCOMPARE(mcp.log.filter("success"), QStringList{"success next"});

    const QJsonValue id = script.messages("tools/call").first()["id"];
    const QJsonObject params{{"requestId", id}, {"reason", "Canceled"}};
    QCOMPARE(script.messages("notifications/cancelled"),
             (QVector<QJsonObject>{
                 {{"jsonrpc", "2.0"}, {"method", "notifications/cancelled"}, {"params", params}}}));
}

void TestMcpServerCalls::silenceEndsInAFailureAndACancellation()
{
    McpFixture mcp;
    McpScript script = scriptWith({});
    script.on("tools/call other", {McpScript::textResult("next")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setTimeLimit(100);
    QCOMPARE(mcp.result("echo").error, "MCP server did not answer within 100 ms.");
    QVERIFY(mcp.server->isReady());
    mcp.server->setTimeLimit(0);
    QCOMPARE(mcp.result("other").content, "next");
    const QJsonObject cancellation = script.messages("notifications/cancelled").first();
    QCOMPARE(
        cancellation["params"].toObject(),
        (QJsonObject{{"requestId", script.messages("tools/call").first()["id"]}, {"reason", "Time limit"}}));
    QCOMPARE(mcp.log,
             (QStringList{"ready", "failure MCP server did not answer within 100 ms.", "success next"}));
}

void TestMcpServerCalls::progressDoesNotExtendTheTimeLimit()
{
    McpFixture mcp;
    const QString progress =
        R"({"jsonrpc":"2.0","method":"notifications/progress","params":{"progressToken":$token,"progress":1}})";
    // It goes on for as long as it is told of our ping's end.
    const QString ping = R"({"jsonrpc":"2.0","id":$token,"method":"ping"})";
    McpScript script = scriptWith({McpScript::line(progress), McpScript::line(ping)});
    script.on("", {McpScript::line(QString(progress).replace("$token", "$id")),
                   McpScript::line(QString(ping).replace("$token", "$id"))});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.server->setTimeLimit(300);
    QCOMPARE(mcp.result("echo").error, "MCP server did not answer within 300 ms.");
    QVERIFY(mcp.log.filter("progress 1").size() > 10);
}

void TestMcpServerCalls::answersComeInAnyOrder()
{
    McpFixture mcp;
    McpScript script = scriptWith({});
    // Answers the second call, then the first.
    script.on("tools/call other", {McpScript::textResult("second"),
                                   McpScript::line(R"({"result":{"content":[{"type":"text",)"
                                                   R"("text":"first"}]},"jsonrpc":"2.0","id":4})")});
    QCOMPARE(mcp.openScript(script), QString());
    ToolReply *first = mcp.call("echo");
    QTRY_COMPARE(script.messages("tools/call").size(), 1);
    QCOMPARE(script.messages("tools/call").first()["id"].toInt(), 4);
    ToolReply *second = mcp.call("other");
    QTRY_COMPARE(first->result().content, "first");
    QCOMPARE(second->result().content, "second");
    QCOMPARE(mcp.log, (QStringList{"ready", "success second", "success first"}));
}

void TestMcpServerCalls::answersNobodyWaitsForAreDropped()
{
    McpFixture mcp;
    const auto answerTo = [](const QString &id) {
        return McpScript::line(
            R"({"jsonrpc":"2.0","result":{"content":[{"type":"text","text":"wrong"}]},"id":)" + id + "}");
    };
    const QString errorWithoutId =
        R"({"jsonrpc":"2.0","error":{"code":-32700,"message":"Parse error"},"id":null})";
    McpScript script =
        scriptWith({answerTo("99"), answerTo("\"$id\""), answerTo("$id.5"), answerTo("1e300"), answerTo("-4"),
                    answerTo("0"), answerTo("null"), answerTo("{}"), McpScript::line(errorWithoutId),
                    McpScript::textResult("right"), answerTo("$id")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "right");
    QCOMPARE(mcp.result("other").content, "right");
    QCOMPARE(mcp.log, (QStringList{"ready", "success right", "success right"}));
}

void TestMcpServerCalls::requestsOfTheServerAreAnswered_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("id");
    QTest::addColumn<bool>("isAnswered");
    QTest::newRow("ping") << "ping"
                          << "\"a-1\"" << true;
    QTest::newRow("ping with an id of ours") << "ping"
                                             << "$id" << true;
    QTest::newRow("roots") << "roots/list"
                           << "0" << false;
    QTest::newRow("sampling") << "sampling/createMessage"
                              << "$id" << false;
    QTest::newRow("elicitation") << "elicitation/create"
                                 << "\"\"" << false;
    QTest::newRow("unknown") << "no/such"
                             << "1.5" << false;
}

void TestMcpServerCalls::requestsOfTheServerAreAnswered()
{
    QFETCH(QString, method);
    QFETCH(QString, id);
    QFETCH(bool, isAnswered);
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::line(
        R"({"method":")" + method + R"(","params":{"a":1},"jsonrpc":"2.0","id":)" + id + "}")});
    // What we answer has no method; the call goes on then.
    script.on("", {McpScript::line(
                      R"({"result":{"content":[{"type":"text","text":"done"}]},"jsonrpc":"2.0","id":4})")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "done");
    const QString expectedId = QString(id).replace("$id", "4");
    const QString answer =
        isAnswered ? R"("result":{})" : R"("error":{"code":-32601,"message":"Method not found"})";
    QCOMPARE(script.messages({}),
             (QVector<QJsonObject>{json(R"({"jsonrpc":"2.0","id":)" + expectedId + "," + answer + "}")}));
}

// Of each, ours has 36 bytes, and a pipe takes 64 KiB.
void TestMcpServerCalls::answersThatAServerDoesNotReadAreDropped()
{
    McpFixture mcp;
    const QString ping = R"({"jsonrpc":"2.0","id":0,"method":"ping"})";
    McpScript script =
        scriptWith({McpScript::repeat(ping + '\n', 50000), McpScript::textResult("read me again")});
    script.on("tools/call other", {McpScript::line(R"({"jsonrpc":"2.0","id":"last","method":"ping"})"),
                                   McpScript::textResult("next")});
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(mcp.result("echo").content, "read me again");
    QCOMPARE(mcp.result("other").content, "next");
    QTRY_COMPARE(script.messages({}).last()["id"], "last");
    const int answers = int(script.messages({}).size());
    QVERIFY2(answers > 25000 && answers < 35000, qPrintable(QString::number(answers)));
}

void TestMcpServerCalls::callsWithoutAServerFail()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::textResult("done")});
    QCOMPARE(mcp.openScript(script), QString());
    mcp.stop();
    QVERIFY(!mcp.server->isReady());
    QCOMPARE(mcp.result("echo").error, "Server is not ready.");
    // The next start is on its way.
    script.start(mcp.server);
    QVERIFY(!mcp.server->isReady());
    QCOMPARE(mcp.result("echo").error, "Server is not ready.");
    QTRY_VERIFY(mcp.server->isReady());
    QCOMPARE(mcp.result("echo").content, "done");
    QCOMPARE(mcp.registry->tool("s__echo")->invoke({}).error, "Tool is asynchronous.");
}

void TestMcpServerCalls::callWithoutAnObjectRunsNothing_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QByteArray>("arguments");
    QTest::addColumn<QString>("problem");
    for (const char *tool : {"s__echo", "touch"}) {
        QTest::addRow("%s: text of a number", tool) << tool << QByteArray(R"("7")") << "illegal value";
        QTest::addRow("%s: number", tool) << tool << QByteArray("7") << "no error occurred";
        QTest::addRow("%s: text of a list", tool) << tool << QByteArray(R"("[{}]")") << "no error occurred";
        QTest::addRow("%s: truth value", tool) << tool << QByteArray("true") << "no error occurred";
    }
}

// Neither is the user asked, nor a server or a program. A stream with such a call is broken; of a whole
// answer the model reads what is wrong with it.
void TestMcpServerCalls::callWithoutAnObjectRunsNothing()
{
    QFETCH(QString, tool);
    QFETCH(QByteArray, arguments);
    QFETCH(QString, problem);
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::textResult("done")});
    QCOMPARE(mcp.openScript(script), QString());
    const QTemporaryDir folder;
    const QString touched = folder.filePath("touched");
    mcp.registry->registerTool(
        new ProcessTool("touch", "", {{"type", "object"}}, "/bin/touch", {touched}, mcp.registry));
    const QByteArray call = R"({"index":0,"id":"c","type":"function","function":{"name":")" + tool.toUtf8()
                          + R"(","arguments":)" + arguments + "}}";
    HttpEndpoint endpoint;
    AgentSession session;
    session.setModel(&endpoint.model);
    session.setToolRegistry(mcp.registry);
    session.setTellsModelOfBadCalls(true);
    QSignalSpy asked(&session, &AgentSession::approvalRequired);
    QSignalSpy started(&session, &AgentSession::toolStarted);
    QString error;
    connect(&session, &AgentSession::runEnded, this,
            [&error](const RunOutcome &outcome) { error = outcome.error.section('\n', 0, 0); });

    const QJsonArray calls{QJsonDocument::fromJson(call).object()};
    endpoint.server.enqueue(LoopbackAnswer::json(completion("", calls)));
    endpoint.addRefusal();
    session.send("Hi");
    QVERIFY(runUntil([&session] { return !session.isRunning(); }));
    QCOMPARE(session.conversation().last().content,
             QString("Invalid tool arguments for %1: %2").arg(tool, problem));

    RequestOptions options;
    options.streamToolCalls = true;
    endpoint.model.setRequestOptions(options);
    endpoint.server.enqueue(LoopbackAnswer::stream({R"(data: {"choices":[{"index":0,"delta":{"tool_calls":[)"
                                                        + call + "]},\"finish_reason\":\"tool_calls\"}]}\n\n",
                                                    doneEvent()}));
    session.send("Hi");
    QVERIFY(runUntil([&session] { return !session.isRunning(); }));
    QCOMPARE(error, "Incomplete tool call from the model.");

    QCOMPARE(asked.count() + started.count(), 0);
    QCOMPARE(script.messages("tools/call").size(), 0);
    QVERIFY(!QFile::exists(touched));
}

void TestMcpServerCalls::toolThatIsDeletedLeavesItsReplyRunning()
{
    McpFixture mcp;
    McpScript script = scriptWith({McpScript::textResult("done")});
    QCOMPARE(mcp.openScript(script), QString());
    const ToolReply *reply = mcp.call("echo");
    delete mcp.registry->tool("s__echo");
    QTRY_COMPARE(reply->result().content, "done");
}

QTEST_GUILESS_MAIN(TestMcpServerCalls)
#include "tst_mcpserver_calls.moc"
