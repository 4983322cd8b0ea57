#ifndef MIRELOQTLIB_QTAGENT_TESTS_LOOPBACKSERVER_H
#define MIRELOQTLIB_QTAGENT_TESTS_LOOPBACKSERVER_H

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>

/// A request as the server's own parser saw it.
struct LoopbackRequest
{
    QByteArray method;
    /// The path as it was sent, with its query.
    QByteArray path;
    /// Names in lower case; several values of one name are joined with ", ".
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    /// The body as an object, empty where it is none.
    QJsonObject json;
};

/// What the server answers.
struct LoopbackAnswer
{
    int status = 200;
    QByteArray contentType;
    /// Each piece is written on its own; a single piece is sent with its Content-Length, several as chunks.
    QVector<QByteArray> pieces;
    QMap<QByteArray, QByteArray> headers;
    /// The number of pieces that go out before the answer waits for LoopbackServer::release(). 0 holds
    /// back everything, the head too; the default, -1, nothing.
    int heldAfter = -1;

    /// A whole answer.
    static LoopbackAnswer json(const QJsonObject &object);

    /// A stream, piece by piece, in chunked encoding. Build the pieces with deltaEvent() and doneEvent().
    static LoopbackAnswer stream(const QVector<QByteArray> &pieces);

    /// Any status with any body.
    static LoopbackAnswer withStatus(int status, const QByteArray &body,
                                     const QByteArray &contentType = "application/json");

    /// Returns this answer, held back after its first @p sentPieces pieces.
    LoopbackAnswer held(int sentPieces = 0) const;
};

/// A well-behaved HTTP server on 127.0.0.1 with a free port. It runs in threads of its own.
///
/// @code
/// LoopbackServer server;
/// server.enqueue(LoopbackAnswer::stream({deltaEvent("Hel"), deltaEvent("lo"), doneEvent()}));
/// config.baseUrl = server.baseUrl();
/// ...
/// QCOMPARE(server.requests().at(0).json["stream"], true);
/// @endcode
///
/// Every request takes the next answer of the queue; one that finds the queue empty gets status 500 with
/// the body "No answer was scripted.". The destructor releases what is held and stops the server.
class LoopbackServer
{
public:
    using Handler = std::function<LoopbackAnswer(const LoopbackRequest &)>;

    LoopbackServer();
    ~LoopbackServer();
    Q_DISABLE_COPY(LoopbackServer)

    /// Returns "http://127.0.0.1:PORT/v1".
    QString baseUrl() const;

    /// Appends @p answer to the queue.
    void enqueue(const LoopbackAnswer &answer);

    /// Answers requests that find the queue empty with what @p handler returns. It is called in the
    /// server's threads, one call at a time.
    void setHandler(const Handler &handler);

    /// Lets every answer go on that is held back at this moment or that is enqueued later.
    void release();

    /// Lets one more answer go on of those that are held back: that of the earliest request.
    void releaseOne();

    /// Returns the requests so far, in the order of their arrival. Wait for one with
    /// `QTRY_COMPARE(server.requests().size(), 1)`.
    QVector<LoopbackRequest> requests() const;

    /// Returns how many bytes of answers in several pieces the system has taken so far, without their heads
    /// and the marks of their chunks.
    qint64 bytesSent() const;

private:
    class Private;
    std::unique_ptr<Private> d;
};

#endif
