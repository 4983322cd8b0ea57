#ifndef MIRELOQTLIB_QTAGENT_HTTPEXCHANGE_P_H
#define MIRELOQTLIB_QTAGENT_HTTPEXCHANGE_P_H

#include "mcptransport_p.h"
#include "serversentevents_p.h"

#include <QNetworkReply>
#include <QPointer>

#include <optional>

namespace MireloQtLib {
namespace QtAgent {

class HttpTransport;

// What the server sends upon one request, until its answer has come, or, without a request, for as long as it
// pleases. It is a child of the transport. The network's signals are queued, because Qt still uses a reply
// after it has emitted them, and each message that is passed on may end or delete this.
class HttpExchange : public QObject
{
    Q_OBJECT

public:
    HttpExchange(HttpTransport *transport, const McpRequest &request);
    // Listens.
    explicit HttpExchange(HttpTransport *transport);
    ~HttpExchange() override;

    void begin(QNetworkReply *reply);

    // Nothing is passed on from now on.
    void stop();

    std::optional<qint64> requestId() const { return m_requestId; }

private:
    void read();
    void end();
    void endUnconnected();
    void endWithStatus(int status);
    void endWithBody();
    void endWithoutAnswer();
    void resumeLater();
    void releaseReply();
    void fail(const McpAnswer &answer);
    void fail(const QString &error);

    // Both return whether more may follow.
    bool takeMessages(const QByteArray &json);
    bool takeMessage(RpcMessage message);

    bool isAnswer(const RpcMessage &message) const;
    bool isEventStream() const;
    int status() const;
    void noteSession() const;
    McpAnswer refusal(int status) const;

    HttpTransport *const m_transport;
    const std::optional<qint64> m_requestId;
    // The answer to a handshake may open a session.
    const bool m_isHandshake = false;
    const bool m_hadSession;
    bool m_isResumed = false;
    bool m_isOver = false;
    QPointer<QNetworkReply> m_reply;
    QByteArray m_body;
    ServerSentEvents m_events;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
