#include "mcppeer_p.h"

#include <qtagent/qtagent_version.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

const QString progressTokenKey = QStringLiteral("progressToken");

McpAnswer failure(const QString &error)
{
    McpAnswer answer;
    answer.isError = true;
    answer.error.message = error;
    return answer;
}

// Returns the number that we gave a request, or 0, which is none.
qint64 requestIdFrom(const QJsonValue &value)
{
    constexpr double largest = 9007199254740992.0;
    const double number = value.toDouble();
    const bool isId = number > 0 && number < largest && number == std::floor(number);
    return isId ? qint64(number) : 0;
}

McpAnswer answerFrom(const RpcMessage &message)
{
    McpAnswer answer;
    answer.isFromServer = true;
    answer.isError = message.kind == RpcMessage::Kind::Error || !message.result.isObject();
    answer.result = message.result.toObject();
    answer.error = message.error;
    if (answer.isError && answer.error.message.isEmpty())
        answer.error.message = QStringLiteral("MCP server sent an invalid answer.");
    return answer;
}

// "message", else "1/3" or "1".
QString progressText(const QJsonObject &params)
{
    QString message = params.value(QLatin1String("message")).toString();
    if (!message.isEmpty())
        return message;
    const QString progress = params.value(QLatin1String("progress")).toVariant().toString();
    const QString total = params.value(QLatin1String("total")).toVariant().toString();
    return total.isEmpty() ? progress : QStringLiteral("%1/%2").arg(progress, total);
}

} // namespace

McpPeer::McpPeer(McpTransport *transport, QObject *parent)
    : QObject(parent)
    , m_transport(transport)
{
    transport->setParent(this);
    connect(transport, &McpTransport::received, this, &McpPeer::take);
    connect(transport, &McpTransport::failed, this, &McpPeer::answer);
    connect(transport, &McpTransport::errorOutput, this, &McpPeer::errorOutput);
    connect(transport, &McpTransport::ending, this, &McpPeer::fail);
    connect(transport, &McpTransport::closed, this, &McpPeer::end);
    m_deadlineTimer.setSingleShot(true);
    connect(&m_deadlineTimer, &QTimer::timeout, this, &McpPeer::expire);
}

McpPeer::~McpPeer() = default;

void McpPeer::open()
{
    m_transport->open();
}

void McpPeer::setAgreement(const McpAgreement &agreement)
{
    m_agreement = agreement;
    m_transport->setAgreement(agreement);
}

void McpPeer::listen()
{
    m_transport->listen();
}

// Sending

qint64 McpPeer::request(const QString &method, const QJsonObject &params, const Expectation &expectation)
{
    const qint64 id = ++m_lastId;
    QDeadlineTimer deadline(QDeadlineTimer::Forever);
    if (expectation.timeLimitMs > 0)
        deadline.setRemainingTime(expectation.timeLimitMs);
    m_pending.insert(id, {method, expectation, deadline});
    watchDeadline(deadline);
    m_transport->sendRequest(
        {id, method, withMeta(params, id, bool(expectation.onProgress)), expectation.headers});
    return id;
}

QJsonObject McpPeer::withMeta(QJsonObject params, qint64 id, bool invitesProgress) const
{
    QJsonObject meta;
    if (invitesProgress)
        meta.insert(progressTokenKey, id);
    if (m_agreement.isModern) {
        const QString prefix = QStringLiteral("io.modelcontextprotocol/");
        meta.insert(prefix + QLatin1String("protocolVersion"), m_agreement.version);
        meta.insert(prefix + QLatin1String("clientInfo"), clientInfo());
        meta.insert(prefix + QLatin1String("clientCapabilities"), QJsonObject());
    }
    if (!meta.isEmpty())
        params.insert(QStringLiteral("_meta"), meta);
    return params;
}

QJsonObject McpPeer::clientInfo()
{
    return {{QStringLiteral("name"), QStringLiteral("MireloQtAgent")},
            {QStringLiteral("version"), QStringLiteral(QTAGENT_VERSION_STRING)}};
}

void McpPeer::notify(const QString &method, const std::function<void()> &whenSent)
{
    m_transport->sendMessage(rpcNotification(method, {}), whenSent);
}

// A server is not told that a handshake is canceled.
void McpPeer::drop(qint64 id, const QString &reason)
{
    const auto pending = m_pending.constFind(id);
    if (pending == m_pending.constEnd())
        return;
    const bool isTold = !m_isClosing && !reason.isEmpty() && pending->method != QLatin1String("initialize");
    const QJsonObject params{{QStringLiteral("requestId"), id}, {QStringLiteral("reason"), reason}};
    const QByteArray cancellation =
        isTold ? rpcNotification(QStringLiteral("notifications/cancelled"), params) : QByteArray();
    m_pending.erase(pending);
    m_transport->dropRequest(id, cancellation);
}

// Receiving

void McpPeer::take(const RpcMessage &message)
{
    if (m_isClosing)
        return;
    switch (message.kind) {
    case RpcMessage::Kind::Request:
        takeRequest(message);
        break;
    case RpcMessage::Kind::Notification:
        takeNotification(message);
        break;
    case RpcMessage::Kind::Result:
    case RpcMessage::Kind::Error:
        takeAnswer(message);
        break;
    }
}

// Nothing is offered to servers.
void McpPeer::takeRequest(const RpcMessage &message)
{
    if (message.method == QLatin1String("ping"))
        m_transport->sendAnswer(rpcResult(message.id, {}));
    else
        m_transport->sendAnswer(rpcError(message.id, MethodNotFound, QStringLiteral("Method not found")));
}

void McpPeer::takeNotification(const RpcMessage &message)
{
    if (message.method == QLatin1String("notifications/progress"))
        takeProgress(message.params);
    else
        Q_EMIT notified(QString(message.method));
}

void McpPeer::takeProgress(const QJsonObject &params)
{
    const auto pending = m_pending.constFind(requestIdFrom(params.value(progressTokenKey)));
    if (pending == m_pending.constEnd())
        return;
    // The slots may drop the request.
    const Expectation expectation = pending->expectation;
    if (expectation.context && expectation.onProgress)
        expectation.onProgress(progressText(params));
}

void McpPeer::takeAnswer(const RpcMessage &message)
{
    answer(requestIdFrom(message.id), answerFrom(message));
}

// An answer to an unknown id is dropped: its request timed out or was canceled.
void McpPeer::answer(qint64 id, const McpAnswer &answer)
{
    if (!m_pending.contains(id))
        return;
    const Pending pending = m_pending.take(id);
    hand(answer, pending.expectation);
}

void McpPeer::hand(const McpAnswer &answer, const Expectation &expectation)
{
    if (expectation.context && expectation.onAnswer)
        expectation.onAnswer(answer);
}

// Time limits

void McpPeer::watchDeadline(const QDeadlineTimer &deadline)
{
    if (deadline.isForever())
        return;
    const qint64 ms = qMin<qint64>(deadline.remainingTime(), std::numeric_limits<int>::max());
    if (!m_deadlineTimer.isActive() || ms < m_deadlineTimer.remainingTime())
        m_deadlineTimer.start(int(ms));
}

void McpPeer::expire()
{
    const QPointer<McpPeer> self(this);
    for (const qint64 id : pendingIds()) {
        if (!m_pending.contains(id) || !m_pending.value(id).deadline.hasExpired())
            continue;
        const Expectation expectation = m_pending.value(id).expectation;
        drop(id, QStringLiteral("Time limit"));
        const QString error = QStringLiteral("MCP server did not answer within %1 ms.");
        hand(failure(error.arg(expectation.timeLimitMs)), expectation);
        if (!self)
            return;
    }
    for (const Pending &pending : std::as_const(m_pending))
        watchDeadline(pending.deadline);
}

QList<qint64> McpPeer::pendingIds() const
{
    QList<qint64> ids = m_pending.keys();
    std::sort(ids.begin(), ids.end());
    return ids;
}

// The end

void McpPeer::close(const QString &reason)
{
    if (m_isClosing)
        return;
    m_isClosing = true;
    QTimer::singleShot(0, this, [this, reason] { failAll(reason); });
    m_transport->close();
}

void McpPeer::failAll(const QString &reason)
{
    const QPointer<McpPeer> self(this);
    const QString ended = QStringLiteral("MCP server ended.");
    const McpAnswer answer = failure(reason.isEmpty() ? ended : ended + QLatin1Char(' ') + reason);
    for (const qint64 id : pendingIds()) {
        if (self)
            this->answer(id, answer);
    }
}

void McpPeer::fail(const QString &error)
{
    m_isClosing = true;
    failAll(error);
}

void McpPeer::end(const QString &error)
{
    const QPointer<McpPeer> self(this);
    // It may die with a call. NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const QString reason = error;
    fail(reason);
    if (self)
        Q_EMIT closed(reason);
}

} // namespace QtAgent
} // namespace MireloQtLib
