#include "requestoutcome_p.h"

#include "chatcompletion_p.h"

#include <QCoreApplication>
#include <QNetworkRequest>
#include <QStringList>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Whether the announced length tells anything. Some answers have no body whatever they announce, and what
// asks for credentials Qt drops where it notices the cut, together with the status.
bool hasLength(const QNetworkReply &networkReply, int httpStatus)
{
    const bool isWithoutBody =
        (httpStatus >= 100 && httpStatus < 200) || httpStatus == 204 || httpStatus == 304;
    const bool asksForCredentials = httpStatus == 401 || httpStatus == 407;
    return !isWithoutBody && !asksForCredentials && !networkReply.hasRawHeader("Transfer-Encoding");
}

bool isCutOff(const QNetworkReply &networkReply, int httpStatus, qint64 bytesReceived)
{
    const qint64 length = networkReply.header(QNetworkRequest::ContentLengthHeader).toLongLong();
    return bytesReceived < length && hasLength(networkReply, httpStatus);
}

// Whether the error is that of a connection, of which Qt knows more than the number of bytes.
bool isOfConnection(QNetworkReply::NetworkError error)
{
    return error != QNetworkReply::NoError && error <= QNetworkReply::UnknownNetworkError;
}

bool isEncoded(const QByteArray &contentEncoding)
{
    const QList<QByteArray> encodings{"gzip", "x-gzip", "deflate", "compress", "br", "zstd"};
    const QList<QByteArray> names = contentEncoding.toLower().split(',');
    return std::any_of(names.cbegin(), names.cend(),
                       [&](const QByteArray &name) { return encodings.contains(name.trimmed()); });
}

} // namespace

bool RequestOutcome::hasFailed() const
{
    return error != QNetworkReply::NoError || httpStatus >= firstErrorStatus;
}

QString RequestOutcome::report(const QByteArray &body) const
{
    QStringList lines{
        QStringLiteral("OpenAI-compatible request failed."),
        QStringLiteral("URL: %1").arg(url.toString()),
    };
    if (httpStatus >= 0) {
        const QString reasonPart = httpReason.isEmpty() ? QString() : QStringLiteral(" %1").arg(httpReason);
        lines.append(QStringLiteral("HTTP status: %1%2").arg(QString::number(httpStatus), reasonPart));
    }
    if (error != QNetworkReply::NoError)
        lines.append(QStringLiteral("Network error: %1 (%2)").arg(QString::number(int(error)), errorText));
    lines.append(QStringLiteral("Response: %1").arg(bodySummary(body)));
    return lines.join(QLatin1Char('\n'));
}

RequestOutcome outcomeOf(const QNetworkReply &networkReply, qint64 bytesReceived)
{
    RequestOutcome outcome;
    outcome.url = networkReply.request().url();
    const QVariant status = networkReply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        outcome.httpStatus = status.toInt();
    outcome.httpReason = networkReply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    outcome.error = networkReply.error();
    outcome.errorText = networkReply.errorString();

    const QByteArray encoding = networkReply.rawHeader("Content-Encoding");
    if (!isOfConnection(outcome.error) && isCutOff(networkReply, outcome.httpStatus, bytesReceived)) {
        outcome.error = QNetworkReply::RemoteHostClosedError;
        outcome.errorText = QCoreApplication::translate("QHttp", "Connection closed");
    } else if (!outcome.hasFailed() && isEncoded(encoding)) {
        outcome.error = QNetworkReply::UnknownContentError;
        outcome.errorText = QStringLiteral("Unrequested encoding: %1").arg(QString::fromLatin1(encoding));
    }
    return outcome;
}

RequestOutcome outcomeOfSilence(const QNetworkReply &networkReply, int milliseconds)
{
    RequestOutcome outcome = outcomeOf(networkReply, 0);
    outcome.error = QNetworkReply::TimeoutError;
    outcome.errorText = QStringLiteral("No data for %1 ms").arg(milliseconds);
    return outcome;
}

RequestOutcome outcomeOfUnknownProtocol(const QUrl &url)
{
    RequestOutcome outcome;
    outcome.url = url;
    outcome.error = QNetworkReply::ProtocolUnknownError;
    outcome.errorText =
        QCoreApplication::translate("QNetworkReply", "Protocol \"%1\" is unknown").arg(url.scheme());
    return outcome;
}

} // namespace QtAgent
} // namespace MireloQtLib
