#ifndef MIRELOQTLIB_QTAGENT_MCPTOOLLIST_P_H
#define MIRELOQTLIB_QTAGENT_MCPTOOLLIST_P_H

#include "mcppeer_p.h"

#include <QJsonArray>

namespace MireloQtLib {
namespace QtAgent {

// Asks a server for its tools, page by page.
class McpToolList : public QObject
{
    Q_OBJECT

public:
    McpToolList(McpPeer *peer, qint64 timeLimitMs, QObject *parent);

    void begin();

Q_SIGNALS:
    // One of these, once.
    void listed(const QJsonArray &tools);
    void failed(const QString &error, bool isSessionLost);

private:
    void requestPage(const QJsonObject &params);
    void takePage(const McpAnswer &received);
    void fail(const McpAnswer &answer);

    McpPeer *const m_peer;
    const qint64 m_timeLimitMs;
    QJsonArray m_tools;
    int m_pages = 0;
    // Of the pages that others follow, in bytes.
    qint64 m_size = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
