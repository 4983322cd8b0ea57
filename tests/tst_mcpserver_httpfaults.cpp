#include "support/heapusage.h"
#include "support/mcpendpoint.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"

#include <QTcpServer>
#include <QTcpSocket>

using namespace MireloQtLib::QtAgent;

// What no well-behaved HTTP server does.
class TestMcpServerHttpFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void callIsSentOnceWhateverTheServerDoes_data();
    void callIsSentOnceWhateverTheServerDoes();
    void badAnswersFail_data();
    void badAnswersFail();
    void endlessAnswersFail_data();
    void endlessAnswersFail();
    void fastServerWaitsForTheReader();
    void refusedHandshakesEndTheServer_data();
    void refusedHandshakesEndTheServer();
    void secretsAreInNoText();
    void silentServerEndsInTime();
};

namespace {

QByteArray head(const QByteArray &statusLine, const QByteArray &type, int length = -1)
{
    const QByteArray lengthLine = length < 0 ? "" : "Content-Length: " + QByteArray::number(length) + "\r\n";
    return "HTTP/1.1 " + statusLine + "\r\nContent-Type: " + type + "\r\n" + lengthLine + "\r\n";
}

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// Opens a session as it should, and answers a call with bytes as they are, after which it closes the
// connection, with a reset or without, or writes on for ever.
class FaultyServer : public QObject
{
public:
    enum class End { Close, Reset, Repeat, Keep };

    FaultyServer(const QByteArray &answer, End end)
        : m_answer(answer)
        , m_end(end)
    {
        if (!m_server.listen(QHostAddress::LocalHost))
            qFatal("There is no free port.");
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { receive(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QUrl url() const { return QUrl(QString("http://127.0.0.1:%1/mcp").arg(m_server.serverPort())); }

    // How many messages of this method have arrived whole.
    int count(const QString &method) const { return m_methods.count(method); }

private:
    void receive(QTcpSocket *socket)
    {
        const QByteArray bytes = socket->property("received").toByteArray() + socket->readAll();
        socket->setProperty("received", bytes);
        const int body = bytes.indexOf("\r\n\r\n") + 4;
        const QJsonObject message = QJsonDocument::fromJson(bytes.mid(body)).object();
        if (body < 4 || message.isEmpty())
            return;
        const QString method = message["method"].toString();
        m_methods.append(method);
        if (method == "tools/call")
            answerBadly(socket, message["id"].toInt());
        else
            answerWell(socket, method, message["id"]);
    }

    static void answerWell(QTcpSocket *socket, const QString &method, const QJsonValue &id)
    {
        QJsonObject result;
        if (method == "server/discover")
            result = {{"supportedVersions", QJsonArray{"2026-07-28"}},
                      {"capabilities", QJsonObject{{"tools", QJsonObject()}}}};
        if (method == "tools/list")
            result = {{"tools", QJsonArray{QJsonObject{{"name", "echo"}}}}};
        const QByteArray answer = json({{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
        socket->write(head("200 OK", "application/json", int(answer.size())) + answer);
        socket->disconnectFromHost();
    }

    void answerBadly(QTcpSocket *socket, int id)
    {
        QByteArray answer = m_answer;
        answer.replace("$id", QByteArray::number(id));
        socket->write(answer);
        if (m_end == End::Close) {
            socket->disconnectFromHost();
        } else if (m_end == End::Reset) {
            socket->flush();
            socket->abort();
        } else if (m_end == End::Repeat) {
            connect(socket, &QTcpSocket::bytesWritten, this, [socket] {
                if (socket->bytesToWrite() == 0)
                    socket->write(QByteArray(1000000, 'x'));
            });
        }
    }

    const QByteArray m_answer;
    const End m_end;
    QStringList m_methods;
    QTcpServer m_server;
};

using End = FaultyServer::End;

const QString lost =
    QStringLiteral("MCP server closed the connection before it answered. The call may have run.");
const QString invalid = QStringLiteral("MCP server sent an invalid answer.");

QString openAt(McpFixture &mcp, const QUrl &url)
{
    return mcp.open([&] { mcp.server->connectTo(url); });
}

} // namespace

// Left to itself Qt sends a request up to four times.
void TestMcpServerHttpFaults::callIsSentOnceWhateverTheServerDoes_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("resets");
    const auto add = [](const char *name, const QByteArray &answer) {
        QTest::addRow("%s, closed", name) << answer << false;
        QTest::addRow("%s, reset", name) << answer << true;
    };
    add("nothing", "");
    add("half a head", "HTTP/1.1 200 OK\r\nConte");
    add("no HTTP", "hello\r\n\r\n");
    add("half an answer", head("200 OK", "application/json", 1000) + R"({"jsonrpc":"2.0",)");
    add("half a stream", head("200 OK", "text/event-stream") + "data: {\"jsonrpc\"");
}

void TestMcpServerHttpFaults::callIsSentOnceWhateverTheServerDoes()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, resets);
    FaultyServer endpoint(answer, resets ? End::Reset : End::Close);
    McpFixture mcp;
    QCOMPARE(openAt(mcp, endpoint.url()), QString());
    const QString error = mcp.result("echo").error;
    QVERIFY2(error == lost || error == invalid, qPrintable(error));
    QCOMPARE(endpoint.count("tools/call"), 1);
    runUntilQuiet();
    QCOMPARE(endpoint.count("tools/call"), 1);
    QVERIFY(mcp.server->isReady());
}

void TestMcpServerHttpFaults::badAnswersFail_data()
{
    const QByteArray ok = "200 OK";
    const QByteArray type = "application/json";
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("error");
    const auto add = [](const char *name, const QByteArray &answer, const QString &error) {
        QTest::newRow(name) << answer << error;
    };
    add("nothing", head("202 Accepted", "text/plain", 0), lost);
    add("no content", "HTTP/1.1 204 No Content\r\n\r\n", lost);
    add("no JSON", head(ok, type, 4) + "oops", invalid);
    add("another id", head(ok, type, 40) + R"({"jsonrpc":"2.0","id":"$id","result":{}}  )", invalid);
    add("array of nothing", head(ok, type, 2) + "[]", invalid);
    add("error without an id",
        head(ok, type) + R"({"jsonrpc":"2.0","error":{"code":-32700,"message":"Parse error"}})",
        "Parse error");
    add("error with the id null",
        head(ok, type) + R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})",
        "Parse error");
    add("no object", head(ok, type) + R"({"jsonrpc":"2.0","id":$id,"result":[1]})", invalid);
    add("web page", head(ok, "text/html", 13) + "<html></html>", invalid);
    add("stream of nothing", head(ok, "text/event-stream") + ": nothing\n\ndata: oops\n\n", lost);
    add("stream that refuses", head("429 Too Many Requests", "text/event-stream") + "data: {}\n\n",
        "MCP server answered with HTTP status 429.");
}

void TestMcpServerHttpFaults::badAnswersFail()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, error);
    FaultyServer endpoint(answer, End::Close);
    McpFixture mcp;
    QCOMPARE(openAt(mcp, endpoint.url()), QString());
    QCOMPARE(mcp.result("echo").error, error);
    QCOMPARE(endpoint.count("tools/call"), 1);
}

void TestMcpServerHttpFaults::endlessAnswersFail_data()
{
    QTest::addColumn<QByteArray>("begin");
    QTest::newRow("JSON") << head("200 OK", "application/json");
    QTest::newRow("line of a stream") << head("200 OK", "text/event-stream") + "data: ";
    QTest::newRow("refusal") << head("500 Internal Server Error", "text/plain");
}

void TestMcpServerHttpFaults::endlessAnswersFail()
{
    QFETCH(QByteArray, begin);
    FaultyServer endpoint(begin + "x", End::Repeat);
    McpFixture mcp;
    QCOMPARE(openAt(mcp, endpoint.url()), QString());
    QCOMPARE(mcp.result("echo").error, invalid);
    QVERIFY(mcp.server->isReady());
}

void TestMcpServerHttpFaults::fastServerWaitsForTheReader()
{
    constexpr int megabyte = 1024 * 1024;
    constexpr int eventsInAPortion = 100;
    constexpr int portions = 1000;
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", {McpScript::tool("echo")});
    qint64 eventSize = 0;
    endpoint.on("tools/call", [&eventSize](const LoopbackRequest &request) {
        QByteArray event = McpEndpoint::event(McpEndpoint::progress(request, 1));
        event.prepend(":" + QByteArray(1000, 'x') + "\n");
        eventSize = event.size();
        QVector<QByteArray> pieces(portions, event.repeated(eventsInAPortion));
        pieces.append(McpEndpoint::event(McpEndpoint::answerTo(request, McpEndpoint::contentOf("done"))));
        return LoopbackAnswer::stream(pieces);
    });
    McpFixture mcp;
    QCOMPARE(openAt(mcp, endpoint.url()), QString());

    mcp.server->setTimeLimit(0); // a busy machine may need a minute
    const ToolReply *reply = mcp.call("echo");
    const qint64 sentBefore = endpoint.server.bytesSent();
    const qint64 heapBefore = heapUsage().value_or(0);
    qint64 read = 0;
    qint64 longestLead = 0;
    qint64 largestHeap = 0;
    connect(reply, &ToolReply::progressed, this, [&] {
        mcp.log.clear();
        read += eventSize;
        longestLead = qMax(longestLead, endpoint.server.bytesSent() - sentBefore - read);
        largestHeap = qMax(largestHeap, heapUsage().value_or(0) - heapBefore);
    });
    QSignalSpy finished(reply, &ToolReply::finished);
    QVERIFY(finished.wait(60000));
    QCOMPARE(reply->result().content, "done");
    QCOMPARE(read, eventSize * eventsInAPortion * portions);
    // Between the two lie the system's buffers of the sockets as well.
    QVERIFY2(longestLead < 48 * megabyte, qPrintable(QString::number(longestLead)));
    QVERIFY2(largestHeap < 8 * megabyte, qPrintable(QString::number(largestHeap)));
}

void TestMcpServerHttpFaults::refusedHandshakesEndTheServer_data()
{
    const QString old = "\nServers of the old HTTP+SSE transport are not supported.";
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("handshakes");
    QTest::newRow("unauthorized") << 401 << "MCP server answered with HTTP status 401.\nBearer" << 0;
    QTest::newRow("forbidden") << 403 << "MCP server answered with HTTP status 403.\nBearer" << 0;
    QTest::newRow("not found") << 404 << "MCP server answered with HTTP status 404." + old << 1;
    QTest::newRow("not allowed") << 405 << "MCP server answered with HTTP status 405." + old << 1;
    QTest::newRow("redirect") << 302
                              << "MCP server refused initialize: MCP server answered with HTTP status 302."
                              << 1;
    QTest::newRow("unavailable") << 503
                                 << "MCP server refused initialize: MCP server answered with HTTP status 503."
                                 << 1;
}

void TestMcpServerHttpFaults::refusedHandshakesEndTheServer()
{
    QFETCH(int, status);
    QFETCH(QString, error);
    QFETCH(int, handshakes);
    McpEndpoint endpoint;
    const auto refuse = [status](const LoopbackRequest &) {
        LoopbackAnswer answer = LoopbackAnswer::withStatus(status, "<html>no</html>", "text/html");
        answer.headers.insert("Location", "/elsewhere");
        if (status == 401 || status == 403)
            answer.headers.insert("WWW-Authenticate", "Bearer");
        return answer;
    };
    endpoint.on("server/discover", refuse);
    endpoint.on("initialize", refuse);
    McpFixture mcp;
    QCOMPARE(openAt(mcp, endpoint.url()), "ended " + error);
    QCOMPARE(endpoint.requests("initialize").size(), handshakes);
    QCOMPARE(endpoint.server.requests().size(), 1 + handshakes);
}

void TestMcpServerHttpFaults::secretsAreInNoText()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", {McpScript::tool("echo")}, "session-secret");
    for (const int status : {302, 401, 404, 500, 503})
        endpoint.on("tools/call",
                    [status](const LoopbackRequest &) { return LoopbackAnswer::withStatus(status, "no"); });
    QStringList texts;
    {
        McpFixture mcp;
        const QMap<QByteArray, QByteArray> headers{{"Authorization", "Bearer token-secret"}};
        QCOMPARE(mcp.open([&] { mcp.server->connectTo(endpoint.url(), headers); }), QString());
        for (int i = 0; i < 5; ++i)
            mcp.result("echo");
        mcp.stop();
        texts = mcp.log + QStringList{mcp.server->errorOutput()};
    }
    for (const char *address :
         {"http://127.0.0.1:1/?key=query-secret", "http://no.such.invalid/?key=query-secret"}) {
        McpFixture mcp;
        mcp.server->connectTo(QUrl(address));
        QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
        texts += mcp.log;
    }
    QCOMPARE(texts.filter("secret"), QStringList());
    QCOMPARE(texts.filter("failure").size(), 5);
}

void TestMcpServerHttpFaults::silentServerEndsInTime()
{
    QTcpServer endpoint;
    QVERIFY(endpoint.listen(QHostAddress::LocalHost));
    McpFixture mcp;
    mcp.server->setTimeLimit(200);
    mcp.server->connectTo(QUrl(QString("http://127.0.0.1:%1/").arg(endpoint.serverPort())));
    QVERIFY(runUntil([&mcp] { return !mcp.log.isEmpty(); }));
    QCOMPARE(mcp.log, QStringList{"ended MCP server did not answer within 200 ms."});
}

QTEST_GUILESS_MAIN(TestMcpServerHttpFaults)
#include "tst_mcpserver_httpfaults.moc"
