#include "mcptoollist_p.h"

#include "mcpresult_p.h"

#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int maximumPages = 64;
// Of the pages that others follow, together; one message may have as much.
constexpr int maximumSize = 16 * 1024 * 1024;

} // namespace

McpToolList::McpToolList(McpPeer *peer, qint64 timeLimitMs, QObject *parent)
    : QObject(parent)
    , m_peer(peer)
    , m_timeLimitMs(timeLimitMs)
{}

void McpToolList::begin()
{
    requestPage({});
}

void McpToolList::requestPage(const QJsonObject &params)
{
    McpPeer::Expectation expectation;
    expectation.context = this;
    expectation.timeLimitMs = m_timeLimitMs;
    expectation.onAnswer = [this](const McpAnswer &answer) { takePage(answer); };
    m_peer->request(QStringLiteral("tools/list"), params, expectation);
}

void McpToolList::takePage(const McpAnswer &received)
{
    const McpAnswer answer = checkedAnswer(received, m_peer->agreement().isModern);
    if (answer.isError) {
        fail(answer);
        return;
    }
    const QJsonArray tools = answer.result.value(QLatin1String("tools")).toArray();
    for (const QJsonValue &tool : tools)
        m_tools.append(tool);
    const QJsonValue cursor = answer.result.value(QLatin1String("nextCursor"));
    if (!cursor.isString()) {
        Q_EMIT listed(QJsonArray(m_tools));
        return;
    }
    m_size += QJsonDocument(answer.result).toJson(QJsonDocument::Compact).size();
    if (m_size > maximumSize)
        Q_EMIT failed(QStringLiteral("MCP server sent an invalid answer."), false);
    else if (++m_pages >= maximumPages)
        Q_EMIT failed(QStringLiteral("MCP server has more than %1 pages of tools.").arg(maximumPages), false);
    else
        requestPage({{QStringLiteral("cursor"), cursor}});
}

void McpToolList::fail(const McpAnswer &answer)
{
    const bool isRefused = answer.isFromServer && answer.httpStatus != 401 && answer.httpStatus != 403;
    const QString message = answer.error.message;
    Q_EMIT failed(isRefused ? QStringLiteral("MCP server refused tools/list: %1").arg(message) : message,
                  answer.isSessionLost);
}

} // namespace QtAgent
} // namespace MireloQtLib
