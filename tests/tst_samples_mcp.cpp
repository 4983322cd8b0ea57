#include "support/samplewindow.h"

#include "support/mcpscript.h"

#include <qtagent/mcp/mcpserver.h>

#include <QtTest>

#include <memory>
#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

class ServerWindow : public SampleWindow
{
public:
    using Window = ServerWindow;

    void paste() override{
#include "mcpserver_1.inc"
    }

    McpServer *server() const
    {
        return findChild<McpServer *>();
    }

    ToolRegistry *const registry = new ToolRegistry(this);
    const QString folder = "/srv/plant";
};

// A program of the name that the sample has, in a folder where programs are looked for.
class InstalledServer
{
public:
    explicit InstalledServer(McpScript script)
        : m_script(std::move(script))
    {
        QFile program(m_folder.filePath("mcp-server-filesystem"));
        const QStringList command = m_script.command();
        const QString line = "#!/bin/sh\nexec '" + command.join("' '") + "'\n";
        if (!program.open(QIODevice::WriteOnly) || program.write(line.toUtf8()) < 0
            || !program.setPermissions(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser))
            qFatal("The program cannot be written.");
        qputenv("PATH", m_folder.path().toUtf8() + ':' + m_path);
    }
    ~InstalledServer() { qputenv("PATH", m_path); }

    Q_DISABLE_COPY(InstalledServer)

    int requestsOf(const QString &method) const { return int(m_script.messages(method).size()); }

private:
    McpScript m_script;
    const QTemporaryDir m_folder;
    const QByteArray m_path = qgetenv("PATH");
};

McpScript serverWith(const QVector<QJsonObject> &tools)
{
    return McpScript::legacy("2025-11-25", tools);
}

} // namespace

// The sample of servers.
class TestSamplesMcp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolsAreRegistered();
    void toolThatIsLeftOutIsTold();
    void programThatIsMissingIsTold();
    void windowMayBeDeletedWhileItWaits();
    void windowMayBeDeletedOnceToolsAreThere();
};

void TestSamplesMcp::toolsAreRegistered()
{
    const InstalledServer installed(serverWith({McpScript::tool("read")}));
    ServerWindow window;
    window.paste();
    QTRY_VERIFY(window.registry->tool("files__read"));
    window.server()->stop();
    QTRY_VERIFY(window.registry->tool("files__read")->invoke({}).error == "Tool is asynchronous.");
    QCOMPARE(window.ends, QStringList());
}

void TestSamplesMcp::toolThatIsLeftOutIsTold()
{
    const InstalledServer installed(serverWith({McpScript::tool("read"), McpScript::tool("read")}));
    ServerWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Failed: files__read: Tool is listed twice."));
}

void TestSamplesMcp::programThatIsMissingIsTold()
{
    if (!QStandardPaths::findExecutable("mcp-server-filesystem").isEmpty())
        QSKIP("Somebody has installed it.");
    ServerWindow window;
    window.paste();
    QTRY_COMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().startsWith("Failed: Program could not be started: "));
}

void TestSamplesMcp::windowMayBeDeletedWhileItWaits()
{
    McpScript script = serverWith({});
    script.clear("server/discover").on("server/discover", {});
    const InstalledServer installed(std::move(script));
    auto window = std::make_unique<ServerWindow>();
    window->paste();
    QTRY_COMPARE(installed.requestsOf("server/discover"), 1);
    window.reset();
    runUntilQuiet();
}

void TestSamplesMcp::windowMayBeDeletedOnceToolsAreThere()
{
    const InstalledServer installed(serverWith({McpScript::tool("read")}));
    auto window = std::make_unique<ServerWindow>();
    window->paste();
    QTRY_VERIFY(window->server()->isReady());
    window.reset();
    runUntilQuiet();
}

QTEST_MAIN(TestSamplesMcp)
#include "tst_samples_mcp.moc"
