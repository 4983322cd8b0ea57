#include "toolcallrequest_p.h"

#include <QJsonDocument>
#include <QUuid>

namespace MireloQtLib {
namespace QtAgent {

PendingCall parseToolCall(const QJsonObject &toolCall)
{
    const QJsonObject function = toolCall.value(QLatin1String("function")).toObject();
    PendingCall call;
    call.id = toolCall.value(QLatin1String("id")).toString();
    call.name = function.value(QLatin1String("name")).toString();
    call.rawArguments = function.value(QLatin1String("arguments")).toString();

    if (call.id.isEmpty())
        call.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (call.name.trimmed().isEmpty()) {
        call.error = QStringLiteral("Tool call is missing function name.");
        return call;
    }
    if (call.rawArguments.trimmed().isEmpty())
        return call;

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(call.rawArguments.toUtf8(), &parseError);
    if (document.isObject())
        call.arguments = document.object();
    else
        call.error =
            QStringLiteral("Invalid tool arguments for %1: %2").arg(call.name, parseError.errorString());
    return call;
}

} // namespace QtAgent
} // namespace MireloQtLib
