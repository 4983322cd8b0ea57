#include "chatcompletion_p.h"

#include <QJsonDocument>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int summaryLimit = 2000;

QJsonObject firstChoice(const QJsonObject &object)
{
    return object.value(QLatin1String("choices")).toArray().at(0).toObject();
}

QString errorObjectSummary(const QJsonObject &error)
{
    const QString message = error.value(QLatin1String("message")).toString();
    const QString type = error.value(QLatin1String("type")).toString();
    const QString code = error.value(QLatin1String("code")).toString();
    QStringList pieces;
    if (!message.isEmpty())
        pieces.append(message);
    if (!type.isEmpty())
        pieces.append(QStringLiteral("type=%1").arg(type));
    if (!code.isEmpty())
        pieces.append(QStringLiteral("code=%1").arg(code));
    return pieces.join(QLatin1String("; "));
}

QString compactSummary(const QJsonDocument &document)
{
    return QString::fromUtf8(document.toJson(QJsonDocument::Compact)).left(summaryLimit);
}

} // namespace

QByteArray requestBody(const ModelConfig &config, const QVector<ChatMessage> &messages,
                       const QVector<ToolDefinition> &tools, bool stream)
{
    QJsonArray messageArray;
    for (const ChatMessage &message : messages)
        messageArray.append(messageToJson(message));
    QJsonObject body{
        {QStringLiteral("model"), config.model},
        {QStringLiteral("messages"), messageArray},
        {QStringLiteral("temperature"), config.temperature},
        {QStringLiteral("max_tokens"), config.maxTokens},
        {QStringLiteral("stream"), stream},
    };
    if (!tools.isEmpty()) {
        QJsonArray toolArray;
        for (const ToolDefinition &tool : tools)
            toolArray.append(toolDefinitionToJson(tool));
        body.insert(QStringLiteral("tools"), toolArray);
        body.insert(QStringLiteral("tool_choice"), QStringLiteral("auto"));
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QJsonObject responseMessage(const QJsonObject &response)
{
    return firstChoice(response).value(QLatin1String("message")).toObject();
}

QString eventContent(const QJsonObject &event)
{
    const QJsonObject delta = firstChoice(event).value(QLatin1String("delta")).toObject();
    return delta.value(QLatin1String("content")).toString();
}

QString bodySummary(const QByteArray &body)
{
    const QByteArray trimmed = body.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("(empty response body)");
    const QJsonDocument document = QJsonDocument::fromJson(trimmed);
    if (document.isNull())
        return QString::fromUtf8(trimmed.constData(), qMin(int(trimmed.size()), summaryLimit));

    const QJsonObject object = document.object();
    const QJsonValue error = object.value(QLatin1String("error"));
    if (error.isObject()) {
        const QString summary = errorObjectSummary(error.toObject());
        return summary.isEmpty() ? compactSummary(document) : summary;
    }
    if (error.isString())
        return error.toString();
    const QString message = object.value(QLatin1String("message")).toString();
    return message.isEmpty() ? compactSummary(document) : message;
}

} // namespace QtAgent
} // namespace MireloQtLib
