#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/streamserver.h>

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QNetworkInterface>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QUrl>
#include <QtTest>

#ifdef Q_OS_UNIX
#    include <netinet/in.h>
#    include <sys/socket.h>
#    include <unistd.h>

#    include <cerrno>
#endif

using namespace MireloQtLib::QtAgent;

namespace {

QByteArray textEvent(const QString &text)
{
    const QJsonObject choice{{"delta", QJsonObject{{"content", text}}}};
    return QJsonDocument(QJsonObject{{"choices", QJsonArray{choice}}}).toJson(QJsonDocument::Compact);
}

// All that the server sends for one request.
QByteArray bytesFor(const StreamServer &server, const QByteArray &request = "GET / HTTP/1.1\r\n\r\n")
{
    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", quint16(QUrl(server.baseUrl()).port()));
    socket.write(request);
    const QSignalSpy disconnected(&socket, &QTcpSocket::disconnected);
    QElapsedTimer clock;
    clock.start();
    while (disconnected.isEmpty() && clock.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    return disconnected.isEmpty() ? "The server did not close the connection." : socket.readAll();
}

QStringList linesOf(const StreamServer &server)
{
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "test-model";
    model.setConfig(config);
    ReplyRecorder recorder(model.chat({ChatMessage::user("question")}, {}, nullptr));
    QSignalSpy(&recorder, &ReplyRecorder::over).wait();
    return recorder.lines();
}

} // namespace

class TestStreamServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listensOnThisMachineOnly();
    void eventsAreStreamed();
    void eventsAreFramed_data();
    void eventsAreFramed();
    void eventsArriveOneAfterAnother();
    void answerHasItsStatusAndLength();
    void headersAreSent();
    void rawBytesAreSentAsTheyStand();
    void resetBreaksTheConnection_data();
    void resetBreaksTheConnection();
    void eachRequestTakesTheNextScript();
    void requestWithoutAScriptIsRefused();
    void requestIsTakenWhenItsBodyIsWhole();
    void clientMayGoAtAnyTime();
    void serverMayGoWhileItAnswers();
};

void TestStreamServer::listensOnThisMachineOnly()
{
    const StreamServer server;
    const QUrl url(server.baseUrl());
    QCOMPARE(server.baseUrl(), QString("http://127.0.0.1:%1/v1").arg(url.port()));
    for (const QHostAddress &address : QNetworkInterface::allAddresses()) {
        if (address.isLoopback())
            continue;
        QTcpSocket socket;
        socket.connectToHost(address, quint16(url.port()));
        QVERIFY2(!socket.waitForConnected(1000), qPrintable(address.toString()));
    }
}

void TestStreamServer::eventsAreStreamed()
{
    StreamServer server;
    server.addEvents({textEvent("Hel"), textEvent("lo"), "[DONE]"});
    QCOMPARE(linesOf(server), QStringList({"delta: Hel", "delta: lo", "finished: Hello"}));
}

void TestStreamServer::eventsAreFramed_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("data") << QByteArray("[DONE]") << QByteArray("data: [DONE]\n\n");
    QTest::newRow("data of two lines") << QByteArray("a\nb") << QByteArray("data: a\ndata: b\n\n");
    QTest::newRow("a whole event") << QByteArray("data: a\n\n") << QByteArray("data: a\n\n");
    QTest::newRow("an event with a name")
        << QByteArray("event: stop\ndata: {}") << QByteArray("event: stop\ndata: {}\n\n");
    QTest::newRow("a comment") << QByteArray(": ping") << QByteArray(": ping\n\n");
}

void TestStreamServer::eventsAreFramed()
{
    QFETCH(QByteArray, event);
    StreamServer server;
    server.addEvents({event});
    const QByteArray bytes = bytesFor(server);
    QVERIFY(bytes.startsWith("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"));
    QTEST(bytes.mid(bytes.indexOf("\r\n\r\n") + 4), "bytes");
}

void TestStreamServer::eventsArriveOneAfterAnother()
{
    constexpr int pauseMs = 30;
    StreamServer server;
    server.addEvents({"a", "b", "c"}, pauseMs);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(bytesFor(server).endsWith("data: a\n\ndata: b\n\ndata: c\n\n"));
    QVERIFY(clock.elapsed() >= 2 * (pauseMs - 1)); // a precise timer may be a millisecond early
}

void TestStreamServer::answerHasItsStatusAndLength()
{
    StreamServer server;
    server.addAnswer(404, R"({"error":{"message":"No such model"}})");
    server.addAnswer(204, "{}");
    const QString report = linesOf(server).join('|');
    QVERIFY2(report.startsWith("failed: ") && report.contains("HTTP status: 404")
                 && report.endsWith("Response: No such model"),
             qPrintable(report));
    QCOMPARE(bytesFor(server), "HTTP/1.1 204 \r\nContent-Type: application/json\r\nContent-Length: 2\r\n"
                               "Connection: close\r\n\r\n{}");
}

void TestStreamServer::headersAreSent()
{
    StreamServer server;
    server.addAnswer(429, "slow", {{"Retry-After", "2"}, {"content-type", "text/plain"}});
    const QByteArray bytes = bytesFor(server);
    QVERIFY(bytes.contains("\r\nRetry-After: 2\r\n"));
    QVERIFY(bytes.contains("\r\ncontent-type: text/plain\r\n"));
    QVERIFY(!bytes.contains("application/json"));
}

void TestStreamServer::rawBytesAreSentAsTheyStand()
{
    StreamServer server;
    server.addRaw({"not ", "", "HTTP"});
    server.addRaw({});
    QCOMPARE(bytesFor(server), "not HTTP");
    QCOMPARE(bytesFor(server), "");
}

void TestStreamServer::resetBreaksTheConnection_data()
{
    QTest::addColumn<bool>("reset");
    QTest::newRow("broken") << true;
    QTest::newRow("closed") << false;
}

// QTcpSocket reports a reset and an orderly close alike, so this asks the system.
void TestStreamServer::resetBreaksTheConnection()
{
#ifdef Q_OS_UNIX
    QFETCH(bool, reset);
    StreamServer server;
    server.addRaw({}, reset);
    const QByteArray request = "GET / HTTP/1.1\r\n\r\n";
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(quint16(QUrl(server.baseUrl()).port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    QCOMPARE(::connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::send(client, request.constData(), size_t(request.size()), 0), request.size());
    int error = EAGAIN;
    const auto hasHeard = [&] {
        char byte = 0;
        if (error == EAGAIN) // a reset is told once
            error = ::recv(client, &byte, 1, MSG_DONTWAIT) < 0 ? errno : 0;
        return error != EAGAIN;
    };
    QTRY_VERIFY(hasHeard());
    QCOMPARE(error, reset ? ECONNRESET : 0);
    ::close(client);
#else
    QSKIP("needs POSIX sockets");
#endif
}

void TestStreamServer::eachRequestTakesTheNextScript()
{
    StreamServer server;
    server.addEvents({textEvent("first"), "[DONE]"});
    server.addEvents({textEvent("second"), "[DONE]"});
    QCOMPARE(linesOf(server), QStringList({"delta: first", "finished: first"}));
    QCOMPARE(linesOf(server), QStringList({"delta: second", "finished: second"}));
    QCOMPARE(server.requestBodies().size(), 2);
    const QJsonObject request = QJsonDocument::fromJson(server.requestBodies().at(0)).object();
    QCOMPARE(request["messages"].toArray().at(0)["content"].toString(), "question");
}

void TestStreamServer::requestWithoutAScriptIsRefused()
{
    const StreamServer server;
    QVERIFY(linesOf(server).value(0).endsWith("Response: StreamServer has no answer left."));
    QCOMPARE(server.requestBodies().size(), 1);
}

void TestStreamServer::requestIsTakenWhenItsBodyIsWhole()
{
    StreamServer server;
    server.addRaw({"answer"});
    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", quint16(QUrl(server.baseUrl()).port()));
    socket.write("POST / HTTP/1.1\r\ncontent-LENGTH: 3\r\n\r\nab");
    QTRY_COMPARE(socket.bytesToWrite(), 0);
    QVERIFY(server.requestBodies().isEmpty());
    socket.write("c");
    QTRY_COMPARE(socket.peek(100), "answer");
    QCOMPARE(server.requestBodies(), QList<QByteArray>{"abc"});
}

void TestStreamServer::clientMayGoAtAnyTime()
{
    StreamServer server;
    server.addEvents({textEvent("a"), textEvent("b"), textEvent("c")}, 5);
    server.addEvents({textEvent("next"), "[DONE]"});
    {
        QTcpSocket socket;
        socket.connectToHost("127.0.0.1", quint16(QUrl(server.baseUrl()).port()));
        socket.write("GET / HTTP/1.1\r\n\r\n");
        QTRY_VERIFY(socket.bytesAvailable() > 0);
        socket.abort();
    }
    QCOMPARE(linesOf(server), QStringList({"delta: next", "finished: next"}));
}

void TestStreamServer::serverMayGoWhileItAnswers()
{
    auto server = std::make_unique<StreamServer>();
    server->addEvents({textEvent("a"), textEvent("b")}, 5000);
    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", quint16(QUrl(server->baseUrl()).port()));
    socket.write("GET / HTTP/1.1\r\n\r\n");
    QTRY_VERIFY(socket.bytesAvailable() > 0);
    server.reset();
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
}

QTEST_GUILESS_MAIN(TestStreamServer)
#include "tst_streamserver.moc"
