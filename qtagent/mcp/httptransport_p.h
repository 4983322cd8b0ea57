#ifndef MIRELOQTLIB_QTAGENT_HTTPTRANSPORT_P_H
#define MIRELOQTLIB_QTAGENT_HTTPTRANSPORT_P_H

#include "mcptransport_p.h"

#include <QHash>
#include <QMap>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QUrl>

namespace MireloQtLib {
namespace QtAgent {

class HttpExchange;

// A server at an address: every message is a POST of its own, and what the server sends comes as JSON or as a
// stream of events.
class HttpTransport : public McpTransport
{
    Q_OBJECT

public:
    HttpTransport(const QUrl &url, const QMap<QByteArray, QByteArray> &headers);
    ~HttpTransport() override;

    void open() override;
    void sendRequest(const McpRequest &request) override;
    void sendMessage(const QByteArray &message, const std::function<void()> &whenSent = {}) override;
    void sendAnswer(const QByteArray &message) override;
    void dropRequest(qint64 id, const QByteArray &cancellation) override;
    bool usesHeaders() const override { return true; }
    void setAgreement(const McpAgreement &agreement) override;
    void listen() override;
    void close() override;

    // For exchanges

    // Asks for the rest of the answer to a request, or listens.
    QNetworkReply *resume(const QByteArray &lastEventId);
    QNetworkReply *listenAgain(const QByteArray &lastEventId);
    bool hasSession() const { return !m_session.isEmpty(); }
    void setSession(const QByteArray &session) { m_session = session; }
    // Returns whether a stream that broke off may be asked for again.
    bool isResumable() const { return !m_agreement.isModern; }
    void endExchange(HttpExchange *exchange);

private:
    QString problem() const;
    QNetworkRequest request() const;
    QNetworkRequest getRequest(const QByteArray &lastEventId) const;
    QNetworkRequest postRequest() const;
    QNetworkReply *postMessage(const QByteArray &message);
    QNetworkReply *endSession(QNetworkAccessManager *network) const;
    void stopExchanges();

    const QUrl m_url;
    const QMap<QByteArray, QByteArray> m_headers;
    McpAgreement m_agreement;
    QByteArray m_session;
    QHash<qint64, HttpExchange *> m_exchanges;
    QPointer<HttpExchange> m_listener;
    bool m_isClosing = false;
    int m_unreadAnswers = 0;
    // Six requests run at once to one host. What has to get through while calls wait has a manager of its
    // own.
    QNetworkAccessManager m_calls;
    QNetworkAccessManager m_messages;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
