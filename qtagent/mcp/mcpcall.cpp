#include "mcpcall_p.h"

#include "../toolresults_p.h"
#include "mcpresult_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

const QString nameKey = QStringLiteral("name");
const QString argumentsKey = QStringLiteral("arguments");

} // namespace

McpCall::McpCall(McpServerPrivate *server, ToolReply *reply, const CatalogEntry &tool,
                 const QJsonObject &arguments)
    : QObject(server)
    , m_server(server)
    , m_reply(reply)
    , m_toolName(tool.definition.name)
    , m_params{{argumentsKey, arguments}, {nameKey, m_toolName}}
    , m_headerParameters(tool.headers)
{
    connect(reply, &ToolReply::canceled, this, &McpCall::abandon);
    connect(reply, &QObject::destroyed, this, &McpCall::abandon);
}

void McpCall::send(McpPeer *peer, qint64 timeLimitMs)
{
    McpPeer::Expectation expectation;
    expectation.context = this;
    expectation.timeLimitMs = timeLimitMs;
    if (peer->usesHeaders())
        expectation.headers = headers();
    expectation.onAnswer = [this](const McpAnswer &answer) { takeAnswer(answer); };
    expectation.onProgress = [reply = m_reply](const QString &text) {
        if (reply)
            reply->progress(text);
    };
    m_peer = peer;
    m_session = m_server->session();
    m_requestId = peer->request(QStringLiteral("tools/call"), m_params, expectation);
}

HeaderValues McpCall::headers() const
{
    const QJsonObject arguments = m_params.value(argumentsKey).toObject();
    return HeaderValues{{"Mcp-Name", headerValue(m_toolName)}} + headersOf(m_headerParameters, arguments);
}

void McpCall::takeAnswer(const McpAnswer &answer)
{
    m_requestId = 0;
    if (answer.isSessionLost && !m_isRepeated) {
        m_isRepeated = true;
        m_server->reopenFor(this);
        return;
    }
    finish(toolResultFrom(checkedAnswer(answer, m_peer->agreement().isModern)));
}

void McpCall::finish(const ToolResult &result)
{
    const QPointer<ToolReply> reply = m_reply;
    m_server->forget(this);
    if (reply)
        reply->finish(result);
}

void McpCall::failLater(const QString &error)
{
    if (m_reply)
        QtAgent::failLater(m_reply, error);
    m_server->forget(this);
}

void McpCall::abandon()
{
    if (m_peer)
        m_peer->drop(m_requestId, QStringLiteral("Canceled"));
    m_server->forget(this);
}

} // namespace QtAgent
} // namespace MireloQtLib
