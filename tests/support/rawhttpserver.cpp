#include "rawhttpserver.h"

#include <QRegularExpression>
#include <QTcpSocket>

#ifdef Q_OS_WIN
#    include <winsock2.h>
#else
#    include <sys/socket.h>
#endif

namespace {

// Whether the head and as many bytes of body as it announces have arrived.
bool isWholeRequest(const QByteArray &bytes)
{
    const int headEnd = int(bytes.indexOf("\r\n\r\n"));
    if (headEnd < 0)
        return false;
    static const QRegularExpression lengthHeader("\\r\\ncontent-length: *(\\d+)",
                                                 QRegularExpression::CaseInsensitiveOption);
    const QString head = QString::fromLatin1(bytes.constData(), headEnd);
    return bytes.size() >= headEnd + 4 + lengthHeader.match(head).captured(1).toInt();
}

// A socket that lingers for no time is closed with a reset.
void resetConnection(QTcpSocket *socket)
{
    linger noTime{};
    noTime.l_onoff = 1;
    ::setsockopt(socket->socketDescriptor(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&noTime),
                 sizeof noTime);
    socket->abort();
}

} // namespace

// Plays the script on one connection. It is a child of its socket.
class RawConnection : public QObject
{
public:
    RawConnection(QTcpSocket *socket, RawHttpServer *server)
        : QObject(socket)
        , m_socket(socket)
        , m_server(server)
    {
        ++m_server->m_connections;
        ++m_server->m_openConnections;
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, &RawConnection::receive);
        connect(socket, &QTcpSocket::bytesWritten, this, &RawConnection::play, Qt::QueuedConnection);
        connect(socket, &QTcpSocket::disconnected, this, &RawConnection::end);
        connect(server, &RawHttpServer::released, this, &RawConnection::goOn);
    }

private:
    void receive()
    {
        m_received += m_socket->readAll();
        if (m_started || !isWholeRequest(m_received))
            return;
        m_started = true;
        m_server->m_requests.append(m_received);
        play();
    }

    void play()
    {
        while (m_started && !m_waits && m_next < m_server->m_script.size() && m_socket->bytesToWrite() == 0) {
            const RawStep step = m_server->m_script.at(m_next++);
            switch (step.kind) {
            case RawStep::Kind::Send:
                m_socket->write(step.bytes);
                m_socket->flush();
                break;
            case RawStep::Kind::Wait:
                m_waits = true;
                Q_EMIT m_server->waiting();
                return;
            case RawStep::Kind::Again:
                m_started = false;
                m_next = 0;
                m_received.clear();
                return;
            case RawStep::Kind::Close:
                m_socket->disconnectFromHost();
                return;
            case RawStep::Kind::Reset:
                resetConnection(m_socket);
                return;
            }
        }
    }

    void goOn()
    {
        if (!m_waits)
            return;
        m_waits = false;
        play();
    }

    void end()
    {
        m_next = m_server->m_script.size();
        --m_server->m_openConnections;
        m_socket->deleteLater();
    }

    QTcpSocket *const m_socket;
    RawHttpServer *const m_server;
    QByteArray m_received;
    bool m_started = false;
    bool m_waits = false;
    int m_next = 0;
};

RawHttpServer::RawHttpServer(const QVector<RawStep> &script, QObject *parent)
    : QObject(parent)
    , m_script(script)
{
    connect(&m_server, &QTcpServer::newConnection, this, &RawHttpServer::accept);
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("The raw server found no free port.");
}

QString RawHttpServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/v1").arg(m_server.serverPort());
}

QByteArray RawHttpServer::answer(const QByteArray &statusLine, const QByteArray &body,
                                 const QByteArray &contentType)
{
    return "HTTP/1.1 " + statusLine + "\r\nContent-Type: " + contentType
         + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

void RawHttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection())
        new RawConnection(socket, this);
}
