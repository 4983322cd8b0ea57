#include "support/mcpfixture.h"
#include "support/processtable.h"

#include <QTcpServer>

using namespace MireloQtLib::QtAgent;

// Servers of other makers, which run-npm-servers.sh installs. Without them everything is skipped.
class TestNpmServers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void everythingIsListedAndCalled_data();
    void everythingIsListedAndCalled();
    void everythingTellsItsProgress();
    void everythingIsCanceled();
    void everythingSeesNoneOfOurSecrets();
    void filesystemReadsItsFolderOnly();
    void cleanup();

private:
    QString program(const QString &name) const { return m_folder + "/node_modules/.bin/" + name; }
    QString openEverything(McpFixture &mcp) const
    {
        return mcp.open([&] { mcp.server->startProcess(program("mcp-server-everything"), {"stdio"}); });
    }

    QString m_folder = qEnvironmentVariable("QTAGENT_NPM_SERVERS");
};

namespace {

const QString leftOut = "s__simulate-research-query: Tool runs as a task only.";

int freePort()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0;
}

// Its own server process, which speaks HTTP.
class EverythingOverHttp
{
public:
    explicit EverythingOverHttp(const QString &program)
        : m_port(freePort())
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PORT", QString::number(m_port));
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(program, {"streamableHttp"});
    }

    ~EverythingOverHttp()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }

    bool isListening()
    {
        return runUntil([this] {
            m_output += m_process.readAll();
            return m_output.contains("listening");
        });
    }

    QUrl url() const { return QUrl(QString("http://localhost:%1/mcp").arg(m_port)); }

private:
    const int m_port;
    QProcess m_process;
    QByteArray m_output;
};

} // namespace

void TestNpmServers::initTestCase()
{
    if (m_folder.isEmpty())
        QSKIP("The servers are not installed: see tests/run-npm-servers.sh.");
}

void TestNpmServers::cleanup()
{
    QCOMPARE(childProcesses(), QStringList());
}

void TestNpmServers::everythingIsListedAndCalled_data()
{
    QTest::addColumn<bool>("overHttp");
    QTest::newRow("over pipes") << false;
    QTest::newRow("over HTTP") << true;
}

void TestNpmServers::everythingIsListedAndCalled()
{
    QFETCH(bool, overHttp);
    const auto http =
        overHttp ? std::make_unique<EverythingOverHttp>(program("mcp-server-everything")) : nullptr;
    McpFixture mcp;
    QVERIFY(!http || http->isListening());
    QCOMPARE(http ? mcp.open([&] { mcp.server->connectTo(http->url()); }) : openEverything(mcp), leftOut);
    QVERIFY(mcp.server->tools().size() >= 10);
    for (const ToolDefinition &tool : mcp.server->tools())
        QCOMPARE(tool.permission, ToolPermission::ExternalNetwork);

    QCOMPARE(mcp.result("echo", {{"message", "水泵"}}).content, "Echo: 水泵");
    QVERIFY(mcp.result("echo").error.contains("Input validation error"));
    QCOMPARE(mcp.result("get-structured-content", {{"location", "Chicago"}}).data["humidity"].toInt(), 82);
    QVERIFY(mcp.result("get-tiny-image").content.contains("[image: image/png, "));
    mcp.stop();
    QCOMPARE(mcp.log.last(), "ended ");
}

void TestNpmServers::everythingTellsItsProgress()
{
    McpFixture mcp;
    QCOMPARE(openEverything(mcp), leftOut);
    const ToolResult result = mcp.result("trigger-long-running-operation", {{"duration", 0.3}, {"steps", 3}});
    QVERIFY2(result.success, qPrintable(result.error));
    QCOMPARE(mcp.log.filter("progress"), (QStringList{"progress 1/3", "progress 2/3", "progress 3/3"}));
}

void TestNpmServers::everythingIsCanceled()
{
    McpFixture mcp;
    QCOMPARE(openEverything(mcp), leftOut);
    ToolReply *reply = mcp.call("trigger-long-running-operation", {{"duration", 2}, {"steps", 20}});
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("progress 1/20"); }));
    reply->cancel();
    QCOMPARE(mcp.result("echo", {{"message", "next"}}).content, "Echo: next");
    QVERIFY(!mcp.log.contains("progress 20/20"));
}

void TestNpmServers::everythingSeesNoneOfOurSecrets()
{
    qputenv("QTAGENT_TEST_API_KEY", "planted-secret");
    McpFixture mcp;
    QCOMPARE(openEverything(mcp), leftOut);
    const QString content = mcp.result("get-env").content;
    QVERIFY(content.contains("PATH"));
    QVERIFY(!content.contains("planted-secret"));
    qunsetenv("QTAGENT_TEST_API_KEY");
}

void TestNpmServers::filesystemReadsItsFolderOnly()
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("pumps.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("水泵\n") > 0);
    file.close();
    McpFixture mcp;
    QCOMPARE(mcp.open([&] { mcp.server->startProcess(program("mcp-server-filesystem"), {folder.path()}); }),
             QString());
    QCOMPARE(mcp.result("read_text_file", {{"path", file.fileName()}}).content, "水泵\n");
    const ToolResult outside = mcp.result("read_text_file", {{"path", "/etc/passwd"}});
    QVERIFY(!outside.success);
    QVERIFY(outside.error.contains("Access denied"));
}

QTEST_GUILESS_MAIN(TestNpmServers)
#include "tst_npmservers.moc"
