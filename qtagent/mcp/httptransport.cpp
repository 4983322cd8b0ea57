#include "httptransport_p.h"

#include "../readahead_p.h"
#include "httpexchange_p.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QNetworkReply>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int messageTimeLimitMs = 10000;
constexpr int closingTimeLimitMs = 2000;
constexpr int maximumUnreadAnswers = 64;
constexpr int messageBufferSize = 65536;
// From this revision on the version is told with every request.
const QLatin1String firstToldVersion("2025-06-18");

bool isPlainHttp(const QUrl &url)
{
    return url.scheme() == QLatin1String("http");
}

bool isThisComputer(const QUrl &url)
{
    return url.host() == QLatin1String("localhost") || QHostAddress(url.host()).isLoopback();
}

// Some headers are Qt's to write.
bool isLeftToQt(const QByteArray &name)
{
    const QByteArray lowerCase = name.toLower();
    return lowerCase == "host" || lowerCase == "content-length" || lowerCase == "transfer-encoding"
        || lowerCase == "connection";
}

// A line break in a header's value would start a header of its own.
QByteArray withoutLineBreaks(QByteArray value)
{
    for (const char c : {'\r', '\n', '\0'})
        value.replace(QByteArray(1, c), QByteArray());
    return value;
}

// A body that can be read only once. Where a server closes the connection, Qt sends the request again by
// itself, up to four times, and a tool would run as often; without a body it cannot.
class SingleUseBody : public QIODevice
{
public:
    SingleUseBody(const QByteArray &bytes, QObject *parent)
        : QIODevice(parent)
        , m_bytes(bytes)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    qint64 size() const override { return m_bytes.size(); }
    bool reset() override { return m_position == 0; }
    bool seek(qint64 position) override { return position == m_position && QIODevice::seek(position); }

protected:
    qint64 readData(char *data, qint64 maximumSize) override
    {
        const qint64 size = qMin(maximumSize, qint64(m_bytes.size()) - m_position);
        std::memcpy(data, m_bytes.constData() + m_position, size_t(size));
        m_position += size;
        return size;
    }
    qint64 writeData(const char * /*data*/, qint64 /*maximumSize*/) override { return -1; }

private:
    const QByteArray m_bytes;
    qint64 m_position = 0;
};

QNetworkReply *postOnce(QNetworkAccessManager *network, const QNetworkRequest &request,
                        const QByteArray &message)
{
    auto *body = new SingleUseBody(message, network);
    QNetworkReply *reply = network->post(request, body);
    QObject::connect(reply, &QObject::destroyed, body, &QObject::deleteLater);
    return reply;
}

// Over at the latest after a while, whatever the server does.
void limitReply(QNetworkReply *reply, int timeLimitMs)
{
    QTimer::singleShot(timeLimitMs, reply, &QNetworkReply::abort);
    limitReadingAhead(reply, messageBufferSize);
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}

} // namespace

HttpTransport::HttpTransport(const QUrl &url, const QMap<QByteArray, QByteArray> &headers)
    : m_url(url)
    , m_headers(headers)
{}

HttpTransport::~HttpTransport()
{
    stopExchanges();
    for (HttpExchange *exchange : findChildren<HttpExchange *>())
        delete exchange;
    QCoreApplication *const application = QCoreApplication::instance();
    if (m_isClosing || !hasSession() || !application || application->thread() != thread())
        return;
    // The server may forget the session; nobody waits for that.
    // The destructor ends the program where there is no memory left.
    auto *network = new QNetworkAccessManager(application); // NOLINT(bugprone-unhandled-exception-at-new)
    connect(endSession(network), &QObject::destroyed, network, &QObject::deleteLater);
}

QString HttpTransport::problem() const
{
    const bool hasScheme = isPlainHttp(m_url) || m_url.scheme() == QLatin1String("https");
    if (!hasScheme || !m_url.isValid() || m_url.host().isEmpty())
        return QStringLiteral("Address of the MCP server is neither https nor http.");
    if (isPlainHttp(m_url) && !m_headers.isEmpty() && !isThisComputer(m_url))
        return QStringLiteral("Headers go to an https address or to this computer only.");
    const QList<QByteArray> names = m_headers.keys();
    if (!std::all_of(names.cbegin(), names.cend(), isHeaderName))
        return QStringLiteral("Header name is not valid.");
    return QString();
}

void HttpTransport::open()
{
    const QString problem = this->problem();
    if (problem.isEmpty())
        return;
    m_isClosing = true;
    QTimer::singleShot(0, this, [this, problem] { Q_EMIT closed(problem); });
}

QNetworkRequest HttpTransport::request() const
{
    QNetworkRequest request(m_url);
    for (auto header = m_headers.begin(); header != m_headers.end(); ++header) {
        if (!isLeftToQt(header.key()))
            request.setRawHeader(header.key(), withoutLineBreaks(header.value()));
    }
    // Qt unpacks what is compressed without a bound, unless somebody else asked for it.
    request.setRawHeader("Accept-Encoding", "identity");
    if (hasSession())
        request.setRawHeader("Mcp-Session-Id", m_session);
    if (m_agreement.version >= firstToldVersion)
        request.setRawHeader("MCP-Protocol-Version", m_agreement.version.toLatin1());
    // What is secret goes to the host that the user named and to no other.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // Qt writes head and body apart and leaves Nagle's algorithm on: on a connection that is kept alive the
    // body waits for the server's delayed acknowledgement. A new connection does not wait.
    if (isPlainHttp(m_url))
        request.setRawHeader("Connection", "close");
    return request;
}

QNetworkRequest HttpTransport::postRequest() const
{
    QNetworkRequest post = request();
    post.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    post.setRawHeader("Accept", "application/json, text/event-stream");
    return post;
}

QNetworkRequest HttpTransport::getRequest(const QByteArray &lastEventId) const
{
    QNetworkRequest get = request();
    get.setRawHeader("Accept", "text/event-stream");
    if (!lastEventId.isEmpty())
        get.setRawHeader("Last-Event-ID", lastEventId);
    return get;
}

QNetworkReply *HttpTransport::resume(const QByteArray &lastEventId)
{
    return m_calls.get(getRequest(lastEventId));
}

QNetworkReply *HttpTransport::listenAgain(const QByteArray &lastEventId)
{
    return m_messages.get(getRequest(lastEventId));
}

void HttpTransport::sendRequest(const McpRequest &request)
{
    if (m_isClosing)
        return;
    QNetworkRequest post = postRequest();
    if (m_agreement.isModern) {
        post.setRawHeader("Mcp-Method", request.method.toLatin1());
        for (const auto &header : request.headers)
            post.setRawHeader(header.first, header.second);
    }
    // Not every server says that it closes a connection, and a call is not sent again on another one. The
    // manager loses what is under way.
    if (m_exchanges.isEmpty() && isPlainHttp(m_url))
        m_calls.clearConnectionCache();
    auto *exchange = new HttpExchange(this, request);
    m_exchanges.insert(request.id, exchange);
    const QByteArray message = rpcRequest(request.id, request.method, request.params);
    const bool isCall = request.method == QLatin1String("tools/call");
    exchange->begin(isCall ? postOnce(&m_calls, post, message) : m_calls.post(post, message));
}

void HttpTransport::sendMessage(const QByteArray &message, const std::function<void()> &whenSent)
{
    if (m_isClosing)
        return;
    const QNetworkReply *reply = postMessage(message);
    if (whenSent)
        connect(reply, &QNetworkReply::finished, this, whenSent, Qt::QueuedConnection);
}

void HttpTransport::sendAnswer(const QByteArray &message)
{
    if (m_isClosing || m_unreadAnswers >= maximumUnreadAnswers)
        return;
    ++m_unreadAnswers;
    connect(postMessage(message), &QNetworkReply::finished, this, [this] { --m_unreadAnswers; });
}

QNetworkReply *HttpTransport::postMessage(const QByteArray &message)
{
    QNetworkReply *reply = m_messages.post(postRequest(), message);
    limitReply(reply, messageTimeLimitMs);
    return reply;
}

void HttpTransport::dropRequest(qint64 id, const QByteArray &cancellation)
{
    // Modern servers take the end of the connection for it.
    if (!cancellation.isEmpty() && !m_agreement.isModern)
        sendMessage(cancellation);
    if (HttpExchange *exchange = m_exchanges.value(id))
        endExchange(exchange);
}

void HttpTransport::setAgreement(const McpAgreement &agreement)
{
    m_agreement = agreement;
    // A new handshake opens a new session.
    if (agreement.version.isEmpty())
        m_session.clear();
}

void HttpTransport::listen()
{
    if (m_listener)
        m_listener->stop();
    m_listener = new HttpExchange(this);
    m_listener->begin(listenAgain({}));
}

void HttpTransport::endExchange(HttpExchange *exchange)
{
    if (exchange->requestId())
        m_exchanges.remove(*exchange->requestId());
    exchange->stop();
}

void HttpTransport::stopExchanges()
{
    const auto exchanges = std::exchange(m_exchanges, {});
    for (HttpExchange *exchange : exchanges)
        exchange->stop();
    if (m_listener)
        m_listener->stop();
}

QNetworkReply *HttpTransport::endSession(QNetworkAccessManager *network) const
{
    QNetworkReply *reply = network->deleteResource(request());
    limitReply(reply, closingTimeLimitMs);
    return reply;
}

void HttpTransport::close()
{
    if (m_isClosing)
        return;
    m_isClosing = true;
    stopExchanges();
    const auto reportClosed = [this] { Q_EMIT closed(QString()); };
    if (hasSession())
        connect(endSession(&m_messages), &QNetworkReply::finished, this, reportClosed, Qt::QueuedConnection);
    else
        QTimer::singleShot(0, this, reportClosed);
}

} // namespace QtAgent
} // namespace MireloQtLib
