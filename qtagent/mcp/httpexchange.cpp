#include "httpexchange_p.h"

#include "../readahead_p.h"
#include "httptransport_p.h"

#include <QTimer>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int maximumMessageLength = 16 * 1024 * 1024;
constexpr int readAhead = 1024 * 1024;
constexpr int shortestRetryMs = 100;
constexpr int usualRetryMs = 1000;

bool isSuccessful(int status)
{
    return status >= 200 && status < 300;
}

bool isAuthorizationMissing(int status)
{
    return status == 401 || status == 403;
}

bool isVisibleAscii(const QByteArray &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](char c) { return c > ' ' && c <= '~'; });
}

// The first error that the body of a refusal holds.
RpcError errorIn(const QByteArray &body)
{
    const QVector<RpcMessage> messages = readRpcMessages(body);
    for (const RpcMessage &message : messages) {
        if (message.kind == RpcMessage::Kind::Error)
            return message.error;
    }
    return {};
}

QString statusReport(int status, const QByteArray &authentication)
{
    const QString report = QStringLiteral("MCP server answered with HTTP status %1.").arg(status);
    return authentication.isEmpty() ? report : report + QLatin1Char('\n') + QString::fromUtf8(authentication);
}

} // namespace

HttpExchange::HttpExchange(HttpTransport *transport, const McpRequest &request)
    : QObject(transport)
    , m_transport(transport)
    , m_requestId(request.id)
    , m_isHandshake(request.method == QLatin1String("initialize"))
    , m_hadSession(transport->hasSession())
    , m_events(maximumMessageLength)
{}

HttpExchange::HttpExchange(HttpTransport *transport)
    : QObject(transport)
    , m_transport(transport)
    , m_hadSession(transport->hasSession())
    , m_events(maximumMessageLength)
{}

HttpExchange::~HttpExchange()
{
    releaseReply();
}

void HttpExchange::begin(QNetworkReply *reply)
{
    m_reply = reply;
    limitReadingAhead(reply, readAhead);
    connect(reply, &QNetworkReply::readyRead, this, &HttpExchange::read, Qt::QueuedConnection);
    connect(reply, &QNetworkReply::finished, this, &HttpExchange::end, Qt::QueuedConnection);
}

void HttpExchange::stop()
{
    m_isOver = true;
    releaseReply();
    deleteLater();
}

void HttpExchange::releaseReply()
{
    if (!m_reply)
        return;
    m_reply->disconnect(this);
    // Its destructor aborts it. Where abort() does, Qt warns of a failure that is on its way already.
    m_reply->deleteLater();
    m_reply = nullptr;
}

void HttpExchange::read()
{
    if (!m_reply)
        return;
    const QByteArray bytes = m_reply->readAll();
    if (!isEventStream()) {
        m_body += bytes;
        if (m_body.size() > maximumMessageLength)
            fail(QStringLiteral("MCP server sent an invalid answer."));
        return;
    }
    m_events.append(bytes);
    QByteArray data;
    while (m_events.takeEvent(&data)) {
        if (!takeMessages(data))
            return;
    }
    if (m_events.isEventTooLong())
        fail(QStringLiteral("MCP server sent an invalid answer."));
}

void HttpExchange::end()
{
    const QPointer<HttpExchange> self(this);
    read();
    if (!self || !m_reply)
        return;
    if (status() == 0)
        endUnconnected();
    else if (!isSuccessful(status()))
        endWithStatus(status());
    else if (isEventStream())
        endWithoutAnswer();
    else
        endWithBody();
}

// Where Qt would have sent the request again, because the server closed the connection, it could not.
void HttpExchange::endUnconnected()
{
    const QNetworkReply::NetworkError error = m_reply->error();
    if (error == QNetworkReply::ContentReSendError || error == QNetworkReply::RemoteHostClosedError) {
        endWithoutAnswer();
        return;
    }
    // The text may hold the address, and the address what is not to be shown.
    const QString reason = m_reply->errorString().remove(m_reply->url().toString());
    fail(QStringLiteral("Connection to the MCP server failed: %1").arg(reason));
}

void HttpExchange::endWithStatus(int status)
{
    // A stream that is asked for again says nothing about the request.
    if (m_isResumed)
        fail(QStringLiteral("MCP server closed the connection before it answered. The call may have run."));
    else
        fail(refusal(status));
}

void HttpExchange::endWithBody()
{
    const bool isEmpty = m_body.trimmed().isEmpty();
    if (!takeMessages(m_body))
        return;
    if (isEmpty)
        endWithoutAnswer();
    else
        fail(QStringLiteral("MCP server sent an invalid answer."));
}

void HttpExchange::endWithoutAnswer()
{
    const bool isResumable = m_transport->isResumable() && !m_events.lastEventId().isEmpty();
    if (isResumable || !m_requestId)
        resumeLater();
    else
        fail(QStringLiteral("MCP server closed the connection before it answered. The call may have run."));
}

void HttpExchange::resumeLater()
{
    releaseReply();
    m_body.clear();
    m_events.restart();
    m_isResumed = true;
    const int told = m_events.retryMs() < 0 ? usualRetryMs : m_events.retryMs();
    QTimer::singleShot(qMax(told, m_requestId ? shortestRetryMs : usualRetryMs), this, [this] {
        if (m_isOver)
            return;
        const QByteArray id = m_events.lastEventId();
        begin(m_requestId ? m_transport->resume(id) : m_transport->listenAgain(id));
    });
}

void HttpExchange::fail(const McpAnswer &answer)
{
    HttpTransport *const transport = m_transport;
    const std::optional<qint64> id = m_requestId;
    transport->endExchange(this);
    if (id)
        Q_EMIT transport->failed(*id, answer);
}

void HttpExchange::fail(const QString &error)
{
    McpAnswer answer;
    answer.isError = true;
    answer.httpStatus = m_reply ? status() : 0;
    answer.error.message = error;
    fail(answer);
}

bool HttpExchange::takeMessages(const QByteArray &json)
{
    const QVector<RpcMessage> messages = readRpcMessages(json);
    return std::all_of(messages.cbegin(), messages.cend(),
                       [this](const RpcMessage &message) { return takeMessage(message); });
}

bool HttpExchange::takeMessage(RpcMessage message)
{
    const QPointer<HttpExchange> self(this);
    HttpTransport *const transport = m_transport;
    if (!isAnswer(message)) {
        Q_EMIT transport->received(message);
        return self && !m_isOver;
    }
    if (message.kind == RpcMessage::Kind::Result)
        noteSession();
    message.id = double(*m_requestId);
    transport->endExchange(this);
    Q_EMIT transport->received(message);
    return false;
}

// An error may come without an id, where the server could not read that of the request.
bool HttpExchange::isAnswer(const RpcMessage &message) const
{
    const bool isError = message.kind == RpcMessage::Kind::Error;
    if (!m_requestId || (message.kind != RpcMessage::Kind::Result && !isError))
        return false;
    const bool hasNoId = message.id.isNull() || message.id.isUndefined();
    return (message.id.isDouble() && message.id.toDouble() == double(*m_requestId)) || (isError && hasNoId);
}

bool HttpExchange::isEventStream() const
{
    const QString type = m_reply->header(QNetworkRequest::ContentTypeHeader).toString();
    return isSuccessful(status()) && type.startsWith(QLatin1String("text/event-stream"), Qt::CaseInsensitive);
}

int HttpExchange::status() const
{
    return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

void HttpExchange::noteSession() const
{
    const QByteArray session = m_reply->rawHeader(QByteArrayLiteral("Mcp-Session-Id"));
    if (m_isHandshake && isVisibleAscii(session))
        m_transport->setSession(session);
}

McpAnswer HttpExchange::refusal(int status) const
{
    McpAnswer answer;
    answer.isError = true;
    answer.httpStatus = status;
    answer.error = errorIn(m_body);
    answer.isFromServer = true;
    // Known servers tell a lost session in either way.
    const bool speaksOfSession = answer.error.code == ServerError
                              && answer.error.message.contains(QLatin1String("session"), Qt::CaseInsensitive);
    answer.isSessionLost = m_hadSession && (status == 404 || (status == 400 && speaksOfSession));
    if (answer.error.message.isEmpty() || isAuthorizationMissing(status))
        answer.error.message = statusReport(status, m_reply->rawHeader("WWW-Authenticate"));
    return answer;
}

} // namespace QtAgent
} // namespace MireloQtLib
