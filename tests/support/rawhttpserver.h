#ifndef MIRELOQTLIB_QTAGENT_TESTS_RAWHTTPSERVER_H
#define MIRELOQTLIB_QTAGENT_TESTS_RAWHTTPSERVER_H

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QVector>

/// One step of what a RawHttpServer does with a connection.
struct RawStep
{
    enum class Kind { Send, Wait, Again, Close, Reset };

    Kind kind = Kind::Close;
    QByteArray bytes;

    /// Writes @p bytes as they stand. The next step follows when the system has taken them.
    static RawStep send(const QByteArray &bytes) { return {Kind::Send, bytes}; }

    /// Waits for RawHttpServer::release(), once for each such step.
    static RawStep wait() { return {Kind::Wait, {}}; }

    /// Plays the script from its beginning when another request has arrived on the connection.
    static RawStep again() { return {Kind::Again, {}}; }

    /// Closes the connection in an orderly way.
    static RawStep close() { return {Kind::Close, {}}; }

    /// Breaks the connection with a TCP reset.
    static RawStep reset() { return {Kind::Reset, {}}; }
};

/// A server that plays bytes, for what no well-behaved server does: answers cut at a chosen place, resets,
/// lying lengths, silence.
///
/// @code
/// RawHttpServer server({RawStep::send(eventStreamHead() + "data: {"), RawStep::reset()});
/// config.baseUrl = server.baseUrl();
/// @endcode
///
/// It lives in the caller's thread and needs its event loop. Every connection plays the script from its
/// beginning, once a whole request (its head and Content-Length bytes of body) has arrived. A connection
/// whose script ends without close() or reset() stays open and silent.
class RawHttpServer : public QObject
{
    Q_OBJECT

public:
    explicit RawHttpServer(const QVector<RawStep> &script, QObject *parent = nullptr);

    /// Returns "http://127.0.0.1:PORT/v1".
    QString baseUrl() const;

    /// Lets every connection that waits go on with its next step. A connection that reaches its wait later
    /// waits for the next call.
    void release() { Q_EMIT released(); }

    /// Returns the requests that arrived whole, byte by byte. Qt sends a request again by itself where a
    /// server does not answer in HTTP.
    QVector<QByteArray> requests() const { return m_requests; }

    /// Returns how many connections were made.
    int connections() const { return m_connections; }

    /// Returns how many connections the other side has not closed and the script has not ended.
    int openConnections() const { return m_openConnections; }

    /// Returns a whole answer. @p statusLine is for example "200 OK".
    static QByteArray answer(const QByteArray &statusLine, const QByteArray &body,
                             const QByteArray &contentType = "application/json");

Q_SIGNALS:
    /// A connection reached a wait step.
    void waiting();

    /// release() was called.
    void released();

private:
    friend class RawConnection;

    void accept();

    const QVector<RawStep> m_script;
    QVector<QByteArray> m_requests;
    int m_connections = 0;
    int m_openConnections = 0;
    QTcpServer m_server; // the last one: its sockets report their end to the others
};

#endif
