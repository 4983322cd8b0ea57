#ifndef MIRELOQTLIB_QTAGENT_SERVICEFAILURE_P_H
#define MIRELOQTLIB_QTAGENT_SERVICEFAILURE_P_H

#include "requestoutcome_p.h"

#include <qtagent/completionreply.h>

#include <QByteArray>
#include <QDateTime>

namespace MireloQtLib {
namespace QtAgent {

/// Returns what the JSON @p body says about a failure: type, code, message, and the wait of a "RetryInfo".
/// Services differ in where they say it; what is no JSON says nothing.
ChatFailure failureInBody(const QByteArray &body);

/// Returns failureInBody() of @p body, completed with the status and the headers of @p networkReply, which
/// ended as @p outcome.
ChatFailure failureOf(const QNetworkReply &networkReply, const RequestOutcome &outcome,
                      const QByteArray &body);

/// Returns the milliseconds in a "retry-after-ms" header, or -1.
qint64 waitInMilliseconds(const QByteArray &header);

/// Returns the milliseconds that a "Retry-After" header asks for: seconds, or a date after @p now. A date
/// that is past gives 0, what cannot be read -1.
qint64 waitInSeconds(const QByteArray &header, const QDateTime &now);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
