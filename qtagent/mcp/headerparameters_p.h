#ifndef MIRELOQTLIB_QTAGENT_HEADERPARAMETERS_P_H
#define MIRELOQTLIB_QTAGENT_HEADERPARAMETERS_P_H

#include <QByteArray>
#include <QJsonObject>
#include <QPair>
#include <QStringList>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

using HeaderValues = QVector<QPair<QByteArray, QByteArray>>;

// An argument of a tool that also goes into the header Mcp-Param-<name>.
struct HeaderParameter
{
    QByteArray name;
    // Where it stands in the arguments.
    QStringList path;
};

// Returns whether @p name can be the name of a header.
bool isHeaderName(const QByteArray &name);

// Reads the "x-mcp-header" of a tool's schema. Returns false where one of them breaks the rules: such a tool
// is not to be used over HTTP.
bool readHeaderParameters(const QJsonObject &schema, QVector<HeaderParameter> *parameters);

// Returns the headers that say again what @p arguments hold.
HeaderValues headersOf(const QVector<HeaderParameter> &parameters, const QJsonObject &arguments);

// Returns @p text as the value of a header: as it is where it is plain, else in base64 with a mark.
QByteArray headerValue(const QString &text);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
