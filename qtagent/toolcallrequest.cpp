#include "toolcallrequest_p.h"

#include <QJsonDocument>
#include <QUuid>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Services send the arguments as a text that holds an object, @p text; some send the object itself. Sets @p
// problem to the parser's text where there is no object, which is its no-error text for other kinds of JSON.
QJsonObject readArguments(const QJsonValue &arguments, const QString &text, QString *problem)
{
    if (arguments.isObject() || arguments.isNull() || arguments.isUndefined())
        return arguments.toObject();
    if (arguments.isString() && text.trimmed().isEmpty())
        return {};

    QJsonParseError parseError{};
    QJsonDocument document;
    if (arguments.isString())
        document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (!document.isObject())
        *problem = parseError.errorString();
    return document.object();
}

} // namespace

PendingCall parseToolCall(const QJsonObject &toolCall)
{
    const QJsonObject function = toolCall.value(QLatin1String("function")).toObject();
    const QJsonValue arguments = function.value(QLatin1String("arguments"));
    PendingCall call;
    call.id = toolCall.value(QLatin1String("id")).toString();
    call.name = function.value(QLatin1String("name")).toString();
    call.rawArguments = arguments.toString();

    if (call.id.isEmpty())
        call.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (call.name.trimmed().isEmpty()) {
        call.error = QStringLiteral("Tool call is missing function name.");
        return call;
    }

    QString problem;
    call.arguments = readArguments(arguments, call.rawArguments, &problem);
    if (!problem.isEmpty())
        call.error = QStringLiteral("Invalid tool arguments for %1: %2").arg(call.name, problem);
    return call;
}

QJsonObject completedToolCall(const QJsonObject &toolCall, const PendingCall &call)
{
    QJsonObject completed = toolCall;
    completed.insert(QStringLiteral("id"), call.id);
    if (!toolCall.contains(QLatin1String("type")))
        completed.insert(QStringLiteral("type"), QStringLiteral("function"));
    QJsonObject function = toolCall.value(QLatin1String("function")).toObject();
    if (!call.error.isEmpty() || !function.value(QLatin1String("arguments")).isString()) {
        const QByteArray arguments = QJsonDocument(call.arguments).toJson(QJsonDocument::Compact);
        function.insert(QStringLiteral("arguments"), QString::fromUtf8(arguments));
        completed.insert(QStringLiteral("function"), function);
    }
    return completed;
}

} // namespace QtAgent
} // namespace MireloQtLib
