#ifndef MIRELOQTLIB_QTAGENT_TOOLRESULTS_P_H
#define MIRELOQTLIB_QTAGENT_TOOLRESULTS_P_H

#include <qtagent/asynctool.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

// Part of more than one library, therefore inline.

inline ToolResult failedResult(const QString &error)
{
    ToolResult result;
    result.error = error;
    return result;
}

inline QString compactJson(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

// Whoever starts a tool connects to the reply after it was returned.
inline void failLater(ToolReply *reply, const QString &error)
{
    QTimer::singleShot(0, reply, [reply, error] { reply->finish(failedResult(error)); });
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
