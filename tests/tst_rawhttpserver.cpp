#include "support/rawhttpserver.h"

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

class TestRawHttpServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anAnswerCarriesItsLength();
    void nothingIsSentBeforeTheRequestIsWhole();
    void bytesAreCutWhereTheScriptSaysSo();
    void theConnectionIsClosedInAnOrderlyWay();
    void theConnectionIsReset();
    void aScriptWithoutAnEndLeavesTheConnectionOpen();
    void everyConnectionPlaysTheScriptFromItsBeginning();
    void aConnectionMayTakeSeveralRequests();
    void theOtherSideMayGo();
};

namespace {

const QByteArray request = "POST /v1/chat/completions HTTP/1.1\r\ncontent-length: 2\r\n\r\n{}";

void connectTo(const RawHttpServer &server, QTcpSocket *socket)
{
    socket->connectToHost("127.0.0.1", quint16(QUrl(server.baseUrl()).port()));
    QTRY_COMPARE(socket->state(), QAbstractSocket::ConnectedState);
}

} // namespace

void TestRawHttpServer::anAnswerCarriesItsLength()
{
    QCOMPARE(RawHttpServer::answer("404 Not Found", "{}"),
             "HTTP/1.1 404 Not Found\r\nContent-Type: application/json\r\nContent-Length: 2\r\n"
             "Connection: close\r\n\r\n{}");
}

void TestRawHttpServer::nothingIsSentBeforeTheRequestIsWhole()
{
    RawHttpServer server({RawStep::send("answer")});
    QTcpSocket socket;
    connectTo(server, &socket);
    socket.write(request.chopped(1));
    QTRY_COMPARE(socket.bytesToWrite(), 0);
    QTRY_COMPARE(server.openConnections(), 1);
    QVERIFY(server.requests().isEmpty());
    socket.write(request.right(1));
    QTRY_COMPARE(socket.peek(100), "answer");
    QCOMPARE(server.requests(), QVector<QByteArray>{request});
}

void TestRawHttpServer::bytesAreCutWhereTheScriptSaysSo()
{
    RawHttpServer server(
        {RawStep::send("on"), RawStep::wait(), RawStep::send("e"), RawStep::wait(), RawStep::send(" two")});
    QSignalSpy waiting(&server, &RawHttpServer::waiting);
    QTcpSocket socket;
    connectTo(server, &socket);
    socket.write(request);
    QTRY_COMPARE(socket.bytesAvailable(), 2);
    QTRY_COMPARE(waiting.size(), 1);
    QCOMPARE(socket.readAll(), "on");
    server.release();
    QTRY_COMPARE(socket.peek(100), "e");
    QTRY_COMPARE(waiting.size(), 2);
    server.release();
    QTRY_COMPARE(socket.peek(100), "e two");
}

void TestRawHttpServer::theConnectionIsClosedInAnOrderlyWay()
{
    RawHttpServer server({RawStep::send("bye"), RawStep::close()});
    QTcpSocket socket;
    connectTo(server, &socket);
    socket.write(request);
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(socket.error(), QAbstractSocket::RemoteHostClosedError);
    QCOMPARE(socket.readAll(), "bye");
    QTRY_COMPARE(server.openConnections(), 0);
}

// QTcpSocket reports a reset and an orderly close alike, so this asks the system.
void TestRawHttpServer::theConnectionIsReset()
{
#ifdef Q_OS_UNIX
    RawHttpServer server({RawStep::reset()});
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(quint16(QUrl(server.baseUrl()).port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    QCOMPARE(::connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::send(client, request.constData(), size_t(request.size()), 0), request.size());
    QTRY_COMPARE(server.requests().size(), 1);
    char byte = 0;
    QCOMPARE(::recv(client, &byte, 1, MSG_DONTWAIT), -1);
    QCOMPARE(errno, ECONNRESET);
    ::close(client);
#else
    QSKIP("needs POSIX sockets");
#endif
}

void TestRawHttpServer::aScriptWithoutAnEndLeavesTheConnectionOpen()
{
    RawHttpServer server({RawStep::send("half")});
    QTcpSocket socket;
    connectTo(server, &socket);
    socket.write(request);
    QTRY_COMPARE(socket.peek(100), "half");
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(server.openConnections(), 1);
}

void TestRawHttpServer::everyConnectionPlaysTheScriptFromItsBeginning()
{
    RawHttpServer server({RawStep::send("a"), RawStep::close()});
    for (int i = 0; i < 2; ++i) {
        QTcpSocket socket;
        connectTo(server, &socket);
        socket.write(request);
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(socket.readAll(), "a");
    }
    QCOMPARE(server.requests().size(), 2);
}

void TestRawHttpServer::aConnectionMayTakeSeveralRequests()
{
    RawHttpServer server({RawStep::send("answer"), RawStep::again()});
    QTcpSocket socket;
    connectTo(server, &socket);
    for (int i = 1; i <= 3; ++i) {
        socket.write(request);
        QTRY_COMPARE(socket.peek(100), "answer");
        socket.readAll();
        QCOMPARE(server.requests().size(), i);
    }
    QCOMPARE(server.connections(), 1);
}

void TestRawHttpServer::theOtherSideMayGo()
{
    RawHttpServer server({RawStep::wait()});
    QSignalSpy waiting(&server, &RawHttpServer::waiting);
    QTcpSocket socket;
    connectTo(server, &socket);
    socket.write(request);
    QTRY_COMPARE(waiting.size(), 1);
    socket.disconnectFromHost();
    QTRY_COMPARE(server.openConnections(), 0);
    server.release();
}

QTEST_GUILESS_MAIN(TestRawHttpServer)
#include "tst_rawhttpserver.moc"
