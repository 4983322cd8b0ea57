#ifndef MIRELOQTLIB_QTAGENT_MCPSERVERPRIVATE_P_H
#define MIRELOQTLIB_QTAGENT_MCPSERVERPRIVATE_P_H

#include "mcphandshake_p.h"
#include "mcpserver.h"
#include "mcptoollist_p.h"
#include "toolcatalog_p.h"

#include <qtagent/asynctool.h>

#include <QHash>
#include <QList>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

class McpCall;

// The life of a server: started, shaken hands with, listed, called, and ended. Every emission may delete it.
class McpServerPrivate : public QObject
{
    Q_OBJECT

public:
    McpServerPrivate(McpServer *server, const QString &name);
    ~McpServerPrivate() override;

    bool isIdle() const { return m_state == State::Idle; }
    bool isReady() const { return m_state == State::Ready && !m_peer->isClosing(); }
    void start(McpTransport *transport);
    void stop();

    QVector<ToolDefinition> tools() const;
    ToolPermission permission(const QString &toolName) const;
    void setPermission(const QString &toolName, ToolPermission permission);
    QStringList registerTools(ToolRegistry *registry);

    QString errorOutput() const;
    void setTimeLimit(qint64 ms) { m_timeLimitMs = ms; }

    // For tools and calls

    ToolReply *call(const CatalogEntry &tool, const QJsonObject &arguments, QObject *parent);
    int session() const { return m_session; }
    void reopenFor(McpCall *call);
    void forget(McpCall *call);

private:
    enum class State { Idle, Opening, Ready, Closing };

    void shakeHands(void (McpHandshake::*begin)());
    void listTools();
    void takeTools(const QJsonArray &tools);
    void takeListFailure(const QString &error, bool isSessionLost);
    void announceTools(const ToolCatalog::Changes &changes);
    void withdraw(const ToolCatalog::Changes &changes);

    void takeNotification(const QString &method);
    void listToolsAgain();
    void listen();
    void subscribe();

    void reopen();
    void noteChangedTools(const QStringList &names);
    void sendWaiting();

    QString registerEntry(CatalogEntry *entry, ToolRegistry *registry);
    QString offeredName(const QString &toolName) const;
    void keepErrorOutput(const QByteArray &bytes);

    void closeWith(const QString &error);
    void stopTimers();
    void end(const QString &reason);

    McpServer *const q;
    const QString m_name;
    qint64 m_timeLimitMs = 60000;
    State m_state = State::Idle;
    // Why the server is being ended, where we do it.
    QString m_error;
    bool m_isStopped = false;
    // There was a list before, also in an earlier start.
    bool m_wasListed = false;
    bool m_isReopening = false;
    int m_session = 0; // how often one was opened anew
    QByteArray m_errorOutput;
    ToolCatalog m_catalog;
    QHash<QString, ToolPermission> m_permissions;
    McpPeer *m_peer = nullptr;
    // These are there while they are at work.
    QPointer<McpHandshake> m_handshake;
    QPointer<McpToolList> m_list;
    // Takes a burst of announcements for one.
    QTimer m_announcement;
    // Runs where a subscription has broken off.
    QTimer m_subscription;
    QList<McpCall *> m_calls;
    // The calls that go on when the session has been opened anew.
    QList<QPointer<McpCall>> m_waiting;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
