#include "completionrequest_p.h"

#include <QList>
#include <QUrl>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QUrl urlOf(const QString &path, const QString &baseUrl, const QString &query)
{
    QString address = baseUrl.trimmed();
    while (address.endsWith(QLatin1Char('/')))
        address.chop(1);
    QUrl url(address + path, QUrl::TolerantMode);
    const QString sentQuery = query.startsWith(QLatin1Char('?')) ? query.mid(1) : query;
    if (!sentQuery.isEmpty())
        url.setQuery(sentQuery, QUrl::TolerantMode);
    // Of an address with a bad port Qt would still use the host, and send the key to its port 80.
    return url.isValid() ? url : QUrl();
}

// A line break in a header's value would start a header of its own.
QByteArray authorization(QString apiKey)
{
    apiKey.remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
    return QStringLiteral("Bearer %1").arg(apiKey).toUtf8();
}

bool isTokenCharacter(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x80 && byte != 0 && (std::isalnum(byte) || std::strchr("!#$%&'*+-.^_`|~", byte));
}

// Those left out here belong to the transport, which Qt knows better.
bool isHeaderName(const QByteArray &name)
{
    const QList<QByteArray> transport{"host", "content-length", "transfer-encoding", "connection"};
    return !name.isEmpty() && std::all_of(name.cbegin(), name.cend(), isTokenCharacter)
        && !transport.contains(name.toLower());
}

bool isHeaderValue(const QByteArray &value)
{
    return !value.contains('\r') && !value.contains('\n') && !value.contains('\0');
}

// Of a null value Qt keeps nothing.
void setHeader(QNetworkRequest *request, const QByteArray &name, const QByteArray &value)
{
    const bool sendsNone = value.isEmpty() && name.toLower() == "authorization";
    request->setRawHeader(name, sendsNone ? QByteArray() : QByteArray(value.constData(), value.size()));
}

// Left to itself Qt asks for gzip and unpacks it, on Qt 5 without a limit: a megabyte becomes a gigabyte.
void refuseEncodings(QNetworkRequest *request)
{
    const QByteArray name = QByteArrayLiteral("Accept-Encoding");
    if (request->rawHeader(name).isEmpty())
        request->setRawHeader(name, QByteArrayLiteral("identity"));
}

} // namespace

QNetworkRequest requestTo(const QString &path, const ModelConfig &config, const RequestOptions &options)
{
    QNetworkRequest request(urlOf(path, config.baseUrl, options.query));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    if (!config.apiKey.isEmpty())
        request.setRawHeader(QByteArrayLiteral("Authorization"), authorization(config.apiKey));
    // The key and the conversation go to the host that the user named and to no other.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    // Over HTTP/2, which Qt 6 would choose, no limit holds back a fast server.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    for (auto header = options.headers.begin(); header != options.headers.end(); ++header) {
        if (isHeaderName(header.key()) && isHeaderValue(header.value()))
            setHeader(&request, header.key(), header.value());
    }
    refuseEncodings(&request);
    // Qt writes head and body apart and leaves Nagle's algorithm on: on a connection that is kept alive
    // the body waits for the server's delayed acknowledgement. A new connection does not wait.
    if (request.url().scheme() == QLatin1String("http"))
        request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("close"));
    return request;
}

bool isHttp(const QUrl &url)
{
    return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
}

} // namespace QtAgent
} // namespace MireloQtLib
