#ifndef MIRELOQTLIB_QTAGENT_REQUESTOUTCOME_P_H
#define MIRELOQTLIB_QTAGENT_REQUESTOUTCOME_P_H

#include <QNetworkReply>
#include <QString>
#include <QUrl>

namespace MireloQtLib {
namespace QtAgent {

inline constexpr int firstErrorStatus = 400;

/// How a request ended, apart from the body.
struct RequestOutcome
{
    QUrl url;
    /// -1 where no answer arrived.
    int httpStatus = -1;
    QString httpReason;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QString errorText;

    /// Returns whether there is an error or a status of 400 and more.
    bool hasFailed() const;

    /// Returns the report to show to the user, with a summary of @p body.
    QString report(const QByteArray &body) const;
};

/// Returns how @p networkReply ended, after @p bytesReceived bytes of body.
///
/// Two errors are found here that Qt does not tell: a connection that was lost before the announced length
/// was reached, which Qt notices over plain HTTP only now and then, and an encoded answer, which nobody asked
/// for and nobody decodes.
RequestOutcome outcomeOf(const QNetworkReply &networkReply, qint64 bytesReceived);

/// Returns how @p networkReply ends where nothing was heard for @p milliseconds.
RequestOutcome outcomeOfSilence(const QNetworkReply &networkReply, int milliseconds);

/// Returns the outcome of a request that is not sent, because its address is none of HTTP.
RequestOutcome outcomeOfUnknownProtocol(const QUrl &url);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
