#include "support/mcpendpoint.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"

#include <QNetworkReply>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(McpEndpoint::Answer)

// What a lost session does to lists, announcements and calls that are under way beside each other.
class TestMcpServerReopening : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listOfTheLostSessionDoesNotCount_data();
    void listOfTheLostSessionDoesNotCount();
    void callOfTheLostSessionWaitsForTheNext();
    void listBesideACallIsNoNewSession();
    void callWaitsWhileTheChangeIsAnnounced();
    void brokenSubscriptionIsRenewed();
    void brokenSubscriptionDiesWithTheServer();
};

namespace {

LoopbackAnswer lost(const LoopbackRequest &)
{
    return LoopbackAnswer::withStatus(404, "Session not found", "text/plain");
}

LoopbackAnswer heldLost(const LoopbackRequest &request)
{
    return lost(request).held();
}

LoopbackAnswer samePage(const LoopbackRequest &request)
{
    return McpEndpoint::page(request, {McpScript::tool("echo")});
}

LoopbackAnswer heldPage(const LoopbackRequest &request)
{
    return samePage(request).held();
}

LoopbackAnswer longerPage(const LoopbackRequest &request)
{
    return McpEndpoint::page(request, {McpScript::tool("echo"), McpScript::tool("other")});
}

LoopbackAnswer changedPage(const LoopbackRequest &request)
{
    return McpEndpoint::page(request, {McpScript::tool("echo", "Deletes all.")});
}

LoopbackAnswer announcement(const LoopbackRequest &)
{
    return LoopbackAnswer::stream({": here\n\n", McpEndpoint::event(McpEndpoint::listChanged()), "\n"});
}

LoopbackAnswer heldAnnouncement(const LoopbackRequest &request)
{
    return announcement(request).held(1);
}

LoopbackAnswer noAnnouncements(const LoopbackRequest &)
{
    return LoopbackAnswer::withStatus(405, {}, "text/plain");
}

bool isInSecondSession(const LoopbackRequest &request)
{
    return request.headers.value("mcp-session-id") == "second";
}

// A server that loses its first session when it is called, and announces a change of its tools.
struct LosingEndpoint : McpEndpoint
{
    // What it answers in its first session to a further list and to calls, what it lists in the second, and
    // when it announces.
    LosingEndpoint(const Answer &furtherList, const Answer &call, const Answer &newList,
                   const Answer &announcement)
    {
        speakLegacy("2025-11-25", {McpScript::tool("echo")}, "first", true);
        on("initialize", [this](const LoopbackRequest &request) {
            LoopbackAnswer answer =
                result(request, {{"protocolVersion", "2025-11-25"},
                                 {"capabilities", QJsonObject{{"tools", QJsonObject()}}}});
            answer.headers.insert("Mcp-Session-Id", "second");
            return opensAtOnce ? answer : answer.held();
        });
        on("tools/list", [=](const LoopbackRequest &request) {
            return isInSecondSession(request) ? newList(request) : furtherList(request);
        });
        on("tools/call", [=](const LoopbackRequest &request) {
            return isInSecondSession(request) ? textResult(request, "done") : call(request);
        });
        on("GET", announcement);
        on("GET", noAnnouncements);
    }

    // Whether the second session is opened before something is released.
    bool opensAtOnce = true;

    bool wasAsked(const QString &method, int times) const { return requests(method).size() == times; }
};

// A modern server whose subscription breaks off after an announcement. It has other tools each time.
struct SubscribedEndpoint : McpEndpoint
{
    SubscribedEndpoint()
    {
        on("server/discover", [](const LoopbackRequest &request) {
            const QJsonObject tools{{"listChanged", true}};
            return result(request, {{"supportedVersions", QJsonArray{"2026-07-28"}},
                                    {"capabilities", QJsonObject{{"tools", tools}}}});
        });
        on("tools/list", samePage);
        on("tools/list", longerPage);
        on("tools/list", changedPage);
        on("subscriptions/listen", announcement);
        on("subscriptions/listen", heldAnnouncement);
    }
};

QStringList methodsOf(const McpEndpoint &endpoint)
{
    QStringList methods;
    for (const LoopbackRequest &request : endpoint.server.requests())
        methods.append(request.json["method"].toString());
    methods.removeAll(QString());
    return methods;
}

const QStringList reopened{"initialize", "notifications/initialized", "tools/list", "tools/call"};

QString openEndpoint(McpFixture &mcp, const McpEndpoint &endpoint)
{
    return mcp.open([&] { mcp.server->connectTo(endpoint.url()); });
}

// Counts the answers to messages that were read to their end: nobody else sees when.
class ReadAnswers : public QObject
{
public:
    ReadAnswers() { qApp->installEventFilter(this); }

    int count() const { return m_count; }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const auto *reply =
            event->type() == QEvent::DeferredDelete ? qobject_cast<QNetworkReply *>(watched) : nullptr;
        if (reply && reply->operation() == QNetworkAccessManager::PostOperation)
            ++m_count;
        return false;
    }

private:
    int m_count = 0;
};

} // namespace

void TestMcpServerReopening::listOfTheLostSessionDoesNotCount_data()
{
    QTest::addColumn<McpEndpoint::Answer>("list");
    QTest::newRow("lost") << McpEndpoint::Answer(heldLost);
    QTest::newRow("answered") << McpEndpoint::Answer(heldPage);
}

// It is answered while the call beside it has the next session opened.
void TestMcpServerReopening::listOfTheLostSessionDoesNotCount()
{
    QFETCH(McpEndpoint::Answer, list);
    LosingEndpoint endpoint(list, lost, samePage, announcement);
    endpoint.opensAtOnce = false;
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("tools/list", 2); }));
    const ToolReply *reply = mcp.call("echo");
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("initialize", 2); }));
    const ReadAnswers answers;
    endpoint.server.releaseOne();
    QVERIFY(runUntil([&answers] { return answers.count() > 0; }));
    endpoint.server.release();
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "success done"}));
    QCOMPARE(methodsOf(endpoint).mid(6), reopened);
}

// The list has the next session opened, and the call beside it is refused meanwhile.
void TestMcpServerReopening::callOfTheLostSessionWaitsForTheNext()
{
    LosingEndpoint endpoint(heldLost, heldLost, samePage, announcement);
    endpoint.opensAtOnce = false;
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("tools/list", 2); }));
    const ToolReply *reply = mcp.call("echo");
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("tools/call", 1); }));
    endpoint.server.releaseOne();
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("initialize", 2); }));
    const ReadAnswers answers;
    endpoint.server.releaseOne();
    QVERIFY(runUntil([&answers] { return answers.count() > 0; }));
    endpoint.server.release();
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "success done"}));
    QCOMPARE(methodsOf(endpoint).mid(6), reopened);
}

// The call's answer tells of the loss when the list has been answered.
void TestMcpServerReopening::listBesideACallIsNoNewSession()
{
    LosingEndpoint endpoint(longerPage, heldLost, longerPage, announcement);
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    const ToolReply *reply = mcp.call("echo");
    QVERIFY(runUntil([&] { return endpoint.wasAsked("tools/call", 1) && mcp.log.contains("toolsChanged"); }));
    endpoint.server.release();
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "toolsChanged", "success done"}));
    QCOMPARE(methodsOf(endpoint).mid(6), reopened);
}

// A slot runs a dialog, and a further list, in which nothing changed, comes meanwhile.
void TestMcpServerReopening::callWaitsWhileTheChangeIsAnnounced()
{
    LosingEndpoint endpoint(samePage, lost, changedPage, heldAnnouncement);
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&endpoint] { return endpoint.wasAsked("GET", 1); }));
    const ToolReply *reply = mcp.call("echo");
    connect(mcp.server, &McpServer::toolsChanged, this, [&] {
        endpoint.server.release();
        runUntil([&] { return endpoint.wasAsked("tools/list", 3) && !reply->isRunning(); });
    });
    QVERIFY(runUntil([reply] { return !reply->isRunning(); }));
    QCOMPARE(mcp.log, (QStringList{"ready", "toolsChanged", "failure MCP tool has changed."}));
    QCOMPARE(endpoint.requests("tools/call").size(), 1);
}

void TestMcpServerReopening::brokenSubscriptionIsRenewed()
{
    SubscribedEndpoint endpoint;
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&endpoint] { return endpoint.requests("subscriptions/listen").size() == 2; }));
    // What would have been announced meanwhile.
    QVERIFY(runUntil([&mcp] { return mcp.log.size() == 3; }));
    QCOMPARE(mcp.log, (QStringList{"ready", "toolsChanged", "toolsChanged"}));
}

// A slot of ended() starts another server and runs a dialog, for longer than a subscription waits.
void TestMcpServerReopening::brokenSubscriptionDiesWithTheServer()
{
    SubscribedEndpoint endpoint;
    McpEndpoint silent;
    silent.on("server/discover", heldLost);
    silent.on("initialize", heldLost);
    McpFixture mcp;
    QCOMPARE(openEndpoint(mcp, endpoint), QString());
    QVERIFY(runUntil([&mcp] { return mcp.log.contains("toolsChanged"); }));
    connect(mcp.server, &McpServer::ended, this, [&] {
        mcp.server->connectTo(silent.url());
        QEventLoop dialog;
        QTimer::singleShot(5500, &dialog, &QEventLoop::quit);
        dialog.exec();
        QCOMPARE(methodsOf(silent), (QStringList{"server/discover", "initialize"}));
    });
    mcp.stop();
}

QTEST_GUILESS_MAIN(TestMcpServerReopening)
#include "tst_mcpserver_reopening.moc"
