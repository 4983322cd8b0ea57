#include "toolcallrequest_p.h"

#include <QJsonDocument>
#include <QUuid>

namespace MireloQtLib {
namespace QtAgent {

ToolCallRequest parseToolCall(const QJsonObject &toolCall, QString *error)
{
    const QJsonObject function = toolCall.value(QLatin1String("function")).toObject();
    ToolCallRequest request;
    request.id = toolCall.value(QLatin1String("id")).toString();
    request.name = function.value(QLatin1String("name")).toString();
    request.rawArguments = function.value(QLatin1String("arguments")).toString();
    error->clear();

    if (request.id.isEmpty())
        request.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (request.name.trimmed().isEmpty()) {
        *error = QStringLiteral("Tool call is missing function name.");
        return {};
    }
    if (request.rawArguments.trimmed().isEmpty())
        return request;

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(request.rawArguments.toUtf8(), &parseError);
    if (!document.isObject()) {
        *error =
            QStringLiteral("Invalid tool arguments for %1: %2").arg(request.name, parseError.errorString());
        return {};
    }
    request.arguments = document.object();
    return request;
}

} // namespace QtAgent
} // namespace MireloQtLib
