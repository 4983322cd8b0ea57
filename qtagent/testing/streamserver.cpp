#include "streamserver.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

#ifdef Q_OS_WIN
#    include <winsock2.h>
#else
#    include <sys/socket.h>
#endif

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A request beyond it is not that of a test.
constexpr qint64 longestRequest = 64 * 1024 * 1024;

const char *const endOfHead = "\r\n\r\n";

qint64 contentLength(const QByteArray &head)
{
    const QList<QByteArray> lines = head.toLower().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("content-length:"))
            return std::max<qint64>(0, line.mid(line.indexOf(':') + 1).trimmed().toLongLong());
    }
    return 0;
}

bool isMarked(const QByteArray &event)
{
    const QList<QByteArray> marks{"data:", "event:", "id:", "retry:", ":"};
    return std::any_of(marks.cbegin(), marks.cend(),
                       [&event](const QByteArray &mark) { return event.startsWith(mark); });
}

QByteArray eventBytes(const QByteArray &event)
{
    QByteArray lines = isMarked(event) ? event : "data: " + QByteArray(event).replace('\n', "\ndata: ");
    while (lines.endsWith('\n'))
        lines.chop(1);
    return lines + "\n\n";
}

QByteArray answerBytes(int status, const QByteArray &body, const QMap<QByteArray, QByteArray> &headers)
{
    QByteArray bytes = "HTTP/1.1 " + QByteArray::number(status) + " \r\n";
    bool hasType = false;
    for (auto header = headers.begin(); header != headers.end(); ++header) {
        hasType = hasType || header.key().toLower() == "content-type";
        bytes += header.key() + ": " + header.value() + "\r\n";
    }
    if (!hasType)
        bytes += "Content-Type: application/json\r\n";
    return bytes + "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close" + endOfHead
         + body;
}

// A socket that lingers for no time is closed with a reset.
void breakConnection(QTcpSocket *socket)
{
    linger noTime{};
    noTime.l_onoff = 1;
    ::setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER,
                 reinterpret_cast<const char *>(&noTime), sizeof noTime);
    socket->abort();
}

} // namespace

// Reads one request and plays one script. It is a child of its socket, which is one of the listening one.
class StreamConnection : public QObject
{
public:
    StreamConnection(QTcpSocket *socket, StreamServer *server)
        : QObject(socket)
        , m_socket(socket)
        , m_server(server)
    {
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, &StreamConnection::receive);
        connect(socket, &QTcpSocket::bytesWritten, this, &StreamConnection::goOn, Qt::QueuedConnection);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }

private:
    void receive()
    {
        const QByteArray bytes = m_socket->readAll();
        if (m_answers)
            return;
        m_received += bytes;
        if (m_received.size() > longestRequest) {
            m_socket->abort();
            return;
        }
        const qint64 headEnd = m_received.indexOf(endOfHead);
        if (headEnd < 0)
            return;
        const qint64 bodyBegin = headEnd + qint64(qstrlen(endOfHead));
        const qint64 length = contentLength(m_received.left(int(headEnd)));
        if (m_received.size() - bodyBegin >= length)
            answer(m_received.mid(int(bodyBegin), int(length)));
    }

    void answer(const QByteArray &body)
    {
        m_answers = true;
        m_script = m_server->answerTo(body);
        sendNext();
    }

    void sendNext()
    {
        if (m_next == m_script.pieces.size()) {
            end();
            return;
        }
        const QByteArray &piece = m_script.pieces.at(m_next++);
        m_socket->write(piece);
        m_socket->flush();
        if (piece.isEmpty()) // nothing tells that it was written
            pause();
    }

    void goOn()
    {
        if (m_answers && m_socket->bytesToWrite() == 0)
            pause();
    }

    // The head of an event stream goes out with its first event.
    void pause()
    {
        if (m_isPausing)
            return;
        m_isPausing = true;
        const bool isLast = m_next == m_script.pieces.size();
        QTimer::singleShot(isLast ? 0 : m_script.pauseMs, Qt::PreciseTimer, this, [this] {
            m_isPausing = false;
            sendNext();
        });
    }

    void end()
    {
        if (m_script.reset)
            breakConnection(m_socket);
        else
            m_socket->disconnectFromHost();
    }

    QTcpSocket *const m_socket;
    StreamServer *const m_server;
    QByteArray m_received;
    bool m_answers = false;
    bool m_isPausing = false;
    StreamServer::Script m_script;
    int m_next = 0;
};

StreamServer::StreamServer(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &StreamServer::accept);
    if (!m_server->listen(QHostAddress::LocalHost))
        qWarning("StreamServer: %s", qUtf8Printable(m_server->errorString()));
}

StreamServer::~StreamServer() = default;

QString StreamServer::baseUrl() const
{
    return m_server->isListening() ? QStringLiteral("http://127.0.0.1:%1/v1").arg(m_server->serverPort())
                                   : QString();
}

void StreamServer::addEvents(const QList<QByteArray> &events, int pauseMs)
{
    QList<QByteArray> pieces;
    for (const QByteArray &event : events)
        pieces.append(eventBytes(event));
    if (pieces.isEmpty())
        pieces.append(QByteArray());
    pieces.first().prepend("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n");
    m_scripts.enqueue({pieces, pauseMs, false});
}

void StreamServer::addAnswer(int status, const QByteArray &body, const QMap<QByteArray, QByteArray> &headers)
{
    m_scripts.enqueue({{answerBytes(status, body, headers)}, 0, false});
}

void StreamServer::addRaw(const QList<QByteArray> &pieces, bool reset)
{
    m_scripts.enqueue({pieces, 0, reset});
}

QList<QByteArray> StreamServer::requestBodies() const
{
    return m_bodies;
}

void StreamServer::accept()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection())
        new StreamConnection(socket, this);
}

StreamServer::Script StreamServer::answerTo(const QByteArray &body)
{
    m_bodies.append(body);
    if (!m_scripts.isEmpty())
        return m_scripts.dequeue();
    return {{answerBytes(500, R"({"error":{"message":"StreamServer has no answer left."}})", {})}, 0, false};
}

} // namespace QtAgent
} // namespace MireloQtLib
