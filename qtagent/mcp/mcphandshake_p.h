#ifndef MIRELOQTLIB_QTAGENT_MCPHANDSHAKE_P_H
#define MIRELOQTLIB_QTAGENT_MCPHANDSHAKE_P_H

#include "mcppeer_p.h"

namespace MireloQtLib {
namespace QtAgent {

// Finds out which revision of the protocol a server speaks: asks it what it supports, which modern servers
// answer, and shakes hands where that is refused, or answered by silence for a while.
class McpHandshake : public QObject
{
    Q_OBJECT

public:
    McpHandshake(McpPeer *peer, qint64 timeLimitMs, QObject *parent);

    void discover();

    // Only shakes hands, which opens a new session.
    void initialize();

Q_SIGNALS:
    // One of these, once. The peer has the agreement already.
    void agreed();
    void failed(const QString &error);

private:
    qint64 request(const QString &method, const QJsonObject &params, qint64 timeLimitMs,
                   void (McpHandshake::*handler)(const McpAnswer &));
    void takeDiscovery(const McpAnswer &answer);
    void takeInitialization(const McpAnswer &answer);
    void takeRefusal(const McpAnswer &answer);
    void agreeOnModern(const QJsonObject &capabilities);
    void agreeOnLegacy(const QString &version, const QJsonObject &capabilities);
    void chooseFrom(const QStringList &versions, const QJsonObject &capabilities);
    void refuse(const QStringList &versions);

    McpPeer *const m_peer;
    const qint64 m_timeLimitMs;
    QTimer m_silence;
    qint64 m_discoveryId = 0;
    bool m_isInitializing = false;
    // What a slow server answered to discover() while it was already being initialized. It counts where the
    // server refuses that.
    McpAnswer m_lateDiscovery;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
