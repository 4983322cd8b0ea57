#ifndef MIRELOQTLIB_QTAGENT_MCPCALL_P_H
#define MIRELOQTLIB_QTAGENT_MCPCALL_P_H

#include "mcpserverprivate_p.h"

namespace MireloQtLib {
namespace QtAgent {

// One call of a tool, until its reply has ended, or nobody waits for it any more.
class McpCall : public QObject
{
    Q_OBJECT

public:
    McpCall(McpServerPrivate *server, ToolReply *reply, const CatalogEntry &tool,
            const QJsonObject &arguments);

    QString toolName() const { return m_toolName; }

    // The session of the server that the call was sent in.
    int session() const { return m_session; }

    // Whether another tool has this name by now.
    bool hasChangedTool() const { return m_hasChangedTool; }
    void noteChangedTool() { m_hasChangedTool = true; }

    void send(McpPeer *peer, qint64 timeLimitMs);

    // Ends the reply, from the event loop.
    void failLater(const QString &error);
    void finish(const ToolResult &result);

private:
    HeaderValues headers() const;
    void takeAnswer(const McpAnswer &answer);
    void abandon();

    McpServerPrivate *const m_server;
    const QPointer<ToolReply> m_reply;
    const QString m_toolName;
    const QJsonObject m_params;
    const QVector<HeaderParameter> m_headerParameters;
    QPointer<McpPeer> m_peer;
    qint64 m_requestId = 0;
    int m_session = 0;
    bool m_isRepeated = false;
    bool m_hasChangedTool = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
