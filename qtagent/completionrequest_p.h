#ifndef MIRELOQTLIB_QTAGENT_COMPLETIONREQUEST_P_H
#define MIRELOQTLIB_QTAGENT_COMPLETIONREQUEST_P_H

#include <qtagent/modelconfig.h>
#include <qtagent/requestoptions.h>

#include <QNetworkRequest>

namespace MireloQtLib {
namespace QtAgent {

/// Returns a request to @p path, for example "/models", below the profile's address. Its URL is empty where
/// the address is not valid.
QNetworkRequest requestTo(const QString &path, const ModelConfig &config, const RequestOptions &options);

/// Returns whether @p url is one of HTTP. QNetworkAccessManager also knows protocols that send nothing, or to
/// nobody.
bool isHttp(const QUrl &url);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
