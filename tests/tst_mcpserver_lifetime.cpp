#include "support/mcpendpoint.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"
#include "support/processtable.h"

using namespace MireloQtLib::QtAgent;

// Nothing breaks and nothing is left, whatever dies in whichever slot.
class TestMcpServerLifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void slotsMayDoAnything_data();
    void slotsMayDoAnything();
    void deletedServerFailsItsCalls();
    void toolsMayDieWithEachOther();
    void deletedServerLeavesNoProcess_data();
    void deletedServerLeavesNoProcess();
    void serverMayDieBeforeItIsReady_data();
    void serverMayDieBeforeItIsReady();
    void nestedEventLoopsGoOnReading();
};

namespace {

// Plays a session that passes every signal, and does something in one of them.
class Session : public QObject
{
public:
    Session(const QString &moment, const QString &action, bool isOverHttp)
        : m_moment(moment)
        , m_action(action)
        , m_isOverHttp(isOverHttp)
        , m_script(McpScript::legacy("2025-06-18", {McpScript::tool("a"), McpScript::tool("b")}))
    {
        const QString progress =
            R"({"jsonrpc":"2.0","method":"notifications/progress","params":{"progressToken":$token,"progress":1}})";
        m_script.on("tools/list", {McpScript::result(McpScript::page({McpScript::tool("b")}))})
            .on("tools/call a",
                {McpScript::line(progress), McpScript::line(progress), McpScript::textResult("done"),
                 McpScript::line(R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})")})
            .on("tools/call b", {});
        setUpEndpoint();
        connect(m_mcp.server, &McpServer::ready, this, [this] { pass("ready"); });
        connect(m_mcp.server, &McpServer::toolsChanged, this, [this] { pass("toolsChanged"); });
        connect(m_mcp.server, &McpServer::ended, this, [this] { pass("ended"); });
    }

    void play()
    {
        start();
        waitFor([this] { return m_passed.contains("ready"); });
        if (call("a")) {
            const QPointer<ToolReply> reply = m_replies.last();
            waitFor([reply] { return !reply || !reply->isRunning(); });
            m_endpoint.server.releaseOne(); // the announcement
            waitFor([this] { return m_passed.contains("toolsChanged") || m_isRestarted; });
        }
        if (call("b"))
            m_replies.last()->cancel();
        call("b");
        if (m_mcp.server)
            m_mcp.server->stop();
        waitFor([this] { return m_passed.contains("ended"); });
        // An action may have started it again.
        runUntilQuiet();
        delete m_mcp.server;
        runUntilQuiet();
    }

    bool wasMet() const { return m_isDone; }

    bool isAnyReplyRunning() const
    {
        return std::any_of(m_replies.cbegin(), m_replies.cend(),
                           [](const QPointer<ToolReply> &reply) { return reply && reply->isRunning(); });
    }

private:
    // As the script does it.
    void setUpEndpoint()
    {
        m_endpoint.speakLegacy("2025-06-18", {McpScript::tool("a"), McpScript::tool("b")}, "session", true);
        m_endpoint.on("tools/list", [](const LoopbackRequest &request) {
            return McpEndpoint::page(request, {McpScript::tool("b")});
        });
        m_endpoint.on("tools/call", &Session::answerCall);
        m_endpoint.on("GET", [](const LoopbackRequest &) {
            return LoopbackAnswer::stream({": here\n\n", McpEndpoint::event(McpEndpoint::listChanged())})
                .held(1);
        });
    }

    static LoopbackAnswer answerCall(const LoopbackRequest &request)
    {
        if (request.json["params"].toObject()["name"] == "b")
            return McpEndpoint::textResult(request, "late").held();
        const QByteArray progress = McpEndpoint::event(McpEndpoint::progress(request, 1));
        const QJsonObject answer = McpEndpoint::answerTo(request, McpEndpoint::contentOf("done"));
        return LoopbackAnswer::stream({progress, progress, McpEndpoint::event(answer)});
    }

    void start()
    {
        if (m_isOverHttp)
            m_mcp.server->connectTo(m_endpoint.url());
        else
            m_script.start(m_mcp.server);
    }

    // Nothing more comes from a server that is gone or over.
    void waitFor(const std::function<bool()> &condition)
    {
        if (!runUntil([&] { return condition() || !m_mcp.server || m_passed.contains("ended"); }))
            qFatal("The session does not go on.");
        if (m_mcp.server && m_mcp.server->isReady() && m_mcp.registry)
            m_mcp.server->registerTools(m_mcp.registry);
    }

    bool call(const QString &name)
    {
        auto *tool = m_mcp.registry ? qobject_cast<AsyncTool *>(m_mcp.registry->tool("s__" + name)) : nullptr;
        if (!tool)
            return false;
        connect(tool, &QObject::destroyed, this, [this] { pass("tool destroyed"); });
        ToolReply *reply = tool->start({}, &m_window);
        m_replies.append(reply);
        connect(reply, &ToolReply::progressed, this, [this] { pass("progressed"); });
        connect(reply, &ToolReply::finished, this, [this] { pass("finished"); });
        connect(reply, &ToolReply::canceled, this, [this] { pass("canceled"); });
        return true;
    }

    void pass(const QString &moment)
    {
        m_passed.append(moment);
        if (moment == m_moment && !std::exchange(m_isDone, true))
            act();
    }

    void act()
    {
        if (m_action == "delete server" || m_action == "delete all")
            delete m_mcp.server;
        if (m_action == "delete registry" || m_action == "delete all")
            delete m_mcp.registry;
        if (m_action == "delete replies" || m_action == "delete all") {
            for (const auto &reply : m_replies)
                delete reply;
        }
        if (m_action == "delete tools")
            qDeleteAll(m_mcp.server->findChildren<AsyncTool *>());
        if (m_action == "cancel")
            std::for_each(m_replies.begin(), m_replies.end(), [](auto &reply) { reply->cancel(); });
        if (m_action == "stop" || m_action == "stop and nest")
            m_mcp.server->stop();
        if (m_action == "start again")
            startAgain();
        if (m_action == "nest" || m_action == "stop and nest")
            runUntilQuiet();
        if (m_action == "call")
            call("b");
    }

    // In the slot of ended() at once, else from there.
    void startAgain()
    {
        m_isRestarted = true;
        m_mcp.server->stop();
        if (m_passed.last() == "ended")
            start();
        else
            connect(m_mcp.server, &McpServer::ended, this, &Session::start);
    }

    const QString m_moment;
    const QString m_action;
    const bool m_isOverHttp;
    McpScript m_script;
    McpEndpoint m_endpoint;
    McpFixture m_mcp;
    QObject m_window;
    QVector<QPointer<ToolReply>> m_replies;
    QStringList m_passed;
    bool m_isDone = false;
    bool m_isRestarted = false;
};

McpScript scriptWith(const McpScript::Steps &begin, const McpScript::Steps &end = {})
{
    McpScript script = McpScript::legacy("2025-11-25", {McpScript::tool("a")});
    script.atBegin(begin).atEnd(end).on("tools/call", {});
    return script;
}

} // namespace

void TestMcpServerLifetime::slotsMayDoAnything_data()
{
    QTest::addColumn<QString>("moment");
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("isOverHttp");
    const auto addRows = [](const char *moment, const char *action) {
        QTest::addRow("%s: %s", moment, action) << moment << action << false;
        QTest::addRow("%s over HTTP: %s", moment, action) << moment << action << true;
    };
    for (const char *moment :
         {"ready", "toolsChanged", "ended", "progressed", "finished", "canceled", "tool destroyed"}) {
        for (const char *action : {"delete server", "delete registry", "delete replies", "delete all",
                                   "cancel", "stop", "start again", "nest", "stop and nest", "call"})
            addRows(moment, action);
    }
    for (const char *moment : {"ready", "progressed", "finished", "canceled", "tool destroyed"})
        addRows(moment, "delete tools");
}

void TestMcpServerLifetime::slotsMayDoAnything()
{
    QFETCH(QString, moment);
    QFETCH(QString, action);
    QFETCH(bool, isOverHttp);
    Session session(moment, action, isOverHttp);
    session.play();
    QVERIFY(session.wasMet());
    QVERIFY(!session.isAnyReplyRunning());
    QCOMPARE(childProcesses(), QStringList());
}

void TestMcpServerLifetime::deletedServerFailsItsCalls()
{
    McpFixture mcp;
    McpScript script = scriptWith({});
    QCOMPARE(mcp.openScript(script), QString());
    const ToolReply *reply = mcp.call("a");
    delete mcp.server;
    QVERIFY(reply->isRunning());
    QVERIFY(!mcp.registry->tool("s__a"));
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "failure MCP server ended."}));
}

void TestMcpServerLifetime::toolsMayDieWithEachOther()
{
    McpFixture mcp;
    McpScript script = McpScript::legacy("2025-11-25", {McpScript::tool("a"), McpScript::tool("b")});
    QCOMPARE(mcp.openScript(script), QString());
    int deletions = 0;
    for (const char *name : {"s__a", "s__b"}) {
        connect(mcp.registry->tool(name), &QObject::destroyed, this, [&] {
            ++deletions;
            qDeleteAll(mcp.server->findChildren<AsyncTool *>());
        });
    }
    delete mcp.server;
    QCOMPARE(deletions, 2);
}

void TestMcpServerLifetime::deletedServerLeavesNoProcess_data()
{
    QTest::addColumn<McpScript::Steps>("begin");
    QTest::addColumn<McpScript::Steps>("end");
    using Steps = McpScript::Steps;
    const QJsonArray child = McpScript::word("child");
    const QJsonArray ignore = McpScript::word("ignore SIGTERM");
    const QJsonArray freeze = McpScript::word("freeze");
    QTest::newRow("polite") << Steps{child} << Steps();
    QTest::newRow("leaves when it is told") << Steps{child} << Steps{freeze};
    QTest::newRow("does not leave") << Steps{ignore, child} << Steps{freeze};
    QTest::newRow("never stops writing")
        << Steps{ignore, child} << Steps{McpScript::repeat("x\n", 100000000)};
}

void TestMcpServerLifetime::deletedServerLeavesNoProcess()
{
    QFETCH(McpScript::Steps, begin);
    QFETCH(McpScript::Steps, end);
    McpFixture mcp;
    McpScript script = scriptWith(begin, end);
    QCOMPARE(mcp.openScript(script), QString());
    delete mcp.server;
    QCOMPARE(childProcesses(), QStringList());
    QVERIFY(!script.child().isEmpty());
    QTRY_VERIFY(!isProcessRunning(script.child()));
    runUntilQuiet();
    QCOMPARE(mcp.log, QStringList{"ready"});
}

void TestMcpServerLifetime::serverMayDieBeforeItIsReady_data()
{
    QTest::addColumn<QString>("method");
    for (const char *method :
         {"", "server/discover", "initialize", "notifications/initialized", "tools/list"})
        QTest::addRow("after %s", *method ? method : "the start") << method;
}

void TestMcpServerLifetime::serverMayDieBeforeItIsReady()
{
    QFETCH(QString, method);
    McpFixture mcp;
    McpScript script = scriptWith({});
    if (method == "server/discover" || method == "initialize" || method == "tools/list")
        script.clear(method);
    script.start(mcp.server);
    if (!method.isEmpty())
        QTRY_VERIFY(script.methods().contains(method));
    delete mcp.server;
    QCOMPARE(childProcesses(), QStringList());
    QVERIFY(!mcp.log.contains("ended "));
}

// As while a dialog asks the user about the tools.
void TestMcpServerLifetime::nestedEventLoopsGoOnReading()
{
    McpFixture mcp;
    McpScript script = scriptWith({});
    script.clear("tools/call").on("tools/call", {McpScript::textResult("done")});
    QString content;
    connect(mcp.server, &McpServer::ready, this, [&] {
        mcp.server->registerTools(mcp.registry);
        const ToolReply *reply = mcp.call("a");
        runUntil([reply] { return !reply->isRunning(); });
        content = reply->result().content;
    });
    QCOMPARE(mcp.openScript(script), QString());
    QCOMPARE(content, "done");
}

QTEST_GUILESS_MAIN(TestMcpServerLifetime)
#include "tst_mcpserver_lifetime.moc"
