#ifndef MIRELOQTLIB_QTAGENT_MCPPEER_P_H
#define MIRELOQTLIB_QTAGENT_MCPPEER_P_H

#include "mcptransport_p.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QPointer>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

// Sends requests to a server and finds the answers, within a time limit; answers what the server asks.
class McpPeer : public QObject
{
    Q_OBJECT

public:
    using AnswerHandler = std::function<void(const McpAnswer &)>;
    using ProgressHandler = std::function<void(const QString &)>;

    // What a request is sent with, apart from its method and params.
    struct Expectation
    {
        // 0 or less means no limit.
        qint64 timeLimitMs = 0;
        HeaderValues headers;
        // Nothing is called any more once it is gone.
        QPointer<QObject> context;
        // Called once, unless the request is dropped. It may delete the peer.
        AnswerHandler onAnswer;
        // Invites the server to tell of its progress.
        ProgressHandler onProgress;
    };

    // The peer owns the transport.
    McpPeer(McpTransport *transport, QObject *parent);
    ~McpPeer() override;

    // Who we are, for the server.
    static QJsonObject clientInfo();

    void open();

    const McpAgreement &agreement() const { return m_agreement; }
    void setAgreement(const McpAgreement &agreement);
    bool usesHeaders() const { return m_agreement.isModern && m_transport->usesHeaders(); }
    void listen();
    bool isClosing() const { return m_isClosing; }

    qint64 request(const QString &method, const QJsonObject &params, const Expectation &expectation);
    void notify(const QString &method, const std::function<void()> &whenSent = {});

    // Tells the server, where there is a reason and it can be told, that nobody waits for the answer any
    // more.
    void drop(qint64 id, const QString &reason);

    // Every request fails from the event loop, and closed() follows when the server is over.
    void close(const QString &reason);

Q_SIGNALS:
    void notified(const QString &method);
    void errorOutput(const QByteArray &bytes);
    // The last signal. Every request has failed by then.
    void closed(const QString &error);

private:
    struct Pending
    {
        QString method;
        Expectation expectation;
        QDeadlineTimer deadline;
    };

    void take(const RpcMessage &message);
    void takeRequest(const RpcMessage &message);
    void takeNotification(const RpcMessage &message);
    void takeAnswer(const RpcMessage &message);
    void answer(qint64 id, const McpAnswer &answer);
    static void hand(const McpAnswer &answer, const Expectation &expectation);
    void takeProgress(const QJsonObject &params);
    void watchDeadline(const QDeadlineTimer &deadline);
    void expire();
    QList<qint64> pendingIds() const;
    void failAll(const QString &reason);
    void fail(const QString &error);
    void end(const QString &error);
    QJsonObject withMeta(QJsonObject params, qint64 id, bool invitesProgress) const;

    McpTransport *const m_transport;
    McpAgreement m_agreement;
    QHash<qint64, Pending> m_pending;
    qint64 m_lastId = 0;
    // Fires at the next deadline, or before.
    QTimer m_deadlineTimer;
    bool m_isClosing = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
