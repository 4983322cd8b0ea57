#ifndef MIRELOQTLIB_QTAGENT_TOOLRESULTS_P_H
#define MIRELOQTLIB_QTAGENT_TOOLRESULTS_P_H

#include <qtagent/asynctool.h>

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

// Whoever starts a tool connects to the reply after it was returned.
inline void failLater(ToolReply *reply, const QString &error)
{
    QTimer::singleShot(0, reply, [reply, error] { reply->finish(failedResult(error)); });
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
