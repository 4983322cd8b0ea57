#ifndef MIRELOQTLIB_QTAGENT_REQUESTOUTCOME_P_H
#define MIRELOQTLIB_QTAGENT_REQUESTOUTCOME_P_H

#include <QNetworkReply>
#include <QString>
#include <QUrl>

namespace MireloQtLib {
namespace QtAgent {

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
/// A connection that was lost before the announced length was reached is found here, for over plain HTTP Qt
/// notices it only now and then.
RequestOutcome outcomeOf(const QNetworkReply &networkReply, qint64 bytesReceived);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
