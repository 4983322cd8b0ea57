#ifndef MIRELOQTLIB_QTAGENT_STREAMSERVER_H
#define MIRELOQTLIB_QTAGENT_STREAMSERVER_H

#include <qtagent/testing/qtagent_testing_export.h>

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QObject>
#include <QQueue>
#include <QString>

class QTcpServer;

namespace MireloQtLib {
namespace QtAgent {

/// An HTTP server for tests of what talks to a service: it plays one script for each request.
///
/// @code
/// StreamServer server;
/// server.addEvents({R"({"choices":[{"delta":{"content":"Hel"}}]})",
///                   R"({"choices":[{"delta":{"content":"lo"}}]})", "[DONE]"});
/// server.addAnswer(401, R"({"error":{"message":"Bad key"}})");
/// ModelConfig config;
/// config.baseUrl = server.baseUrl();
/// @endcode
///
/// It listens on a free port of 127.0.0.1 and nowhere else, lives in the caller's thread and needs its event
/// loop. A script is taken when a request has arrived with its whole body, whatever its method and path; the
/// connection is closed behind it. A request that finds no script is answered with the status 500 and the
/// message "StreamServer has no answer left.".
///
/// Qt itself sends a request again where a server closes the connection without an HTTP answer, which takes
/// a script as well.
class QTAGENT_TESTING_EXPORT StreamServer : public QObject
{
    Q_OBJECT

public:
    /// Creates a server that listens. Where no port is free, baseUrl() is empty and a warning is printed.
    explicit StreamServer(QObject *parent = nullptr);
    ~StreamServer() override;

    /// Returns "http://127.0.0.1:PORT/v1".
    QString baseUrl() const;

    /// Adds an event stream with the status 200 that sends @p events, each @p pauseMs milliseconds after the
    /// one before it. An event is the data of one: it is sent behind "data: " and before an empty line. One
    /// that begins with "data:", "event:", "id:", "retry:" or ":" is sent as the lines that it holds.
    void addEvents(const QList<QByteArray> &events, int pauseMs = 0);

    /// Adds an answer with @p status, @p body and its length. @p headers are sent besides, and replace
    /// "Content-Type: application/json" where they name another one.
    void addAnswer(int status, const QByteArray &body, const QMap<QByteArray, QByteArray> &headers = {});

    /// Adds @p pieces of bytes that are sent as they stand, one write each, head and all. Behind them the
    /// connection is closed, or with @p reset broken.
    void addRaw(const QList<QByteArray> &pieces, bool reset = false);

    /// Returns the bodies of the requests that took a script or found none, the first one first.
    QList<QByteArray> requestBodies() const;

private:
    friend class StreamConnection;

    struct Script
    {
        QList<QByteArray> pieces;
        int pauseMs = 0;
        bool reset = false;
    };

    void accept();
    Script answerTo(const QByteArray &body);

    QTcpServer *const m_server;
    QQueue<Script> m_scripts;
    QList<QByteArray> m_bodies;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
