#include "mcpresult_p.h"

#include "../toolresults_p.h"

#include <QJsonArray>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QString textOf(const QJsonObject &object, QLatin1String key)
{
    return object.value(key).toString();
}

// What it would take decoded.
qsizetype decodedSize(const QString &base64)
{
    return QByteArray::fromBase64(base64.toLatin1()).size();
}

// Text as it is; anything else is named and not looked at.
QString blockText(const QJsonObject &block)
{
    const QString kind = textOf(block, QLatin1String("type"));
    if (kind == QLatin1String("text"))
        return textOf(block, QLatin1String("text"));
    if (kind == QLatin1String("image") || kind == QLatin1String("audio")) {
        const QString size = QString::number(decodedSize(textOf(block, QLatin1String("data"))));
        return QStringLiteral("[%1: %2, %3 bytes]").arg(kind, textOf(block, QLatin1String("mimeType")), size);
    }
    if (kind == QLatin1String("resource")) {
        const QJsonObject resource = block.value(QLatin1String("resource")).toObject();
        return QStringLiteral("[resource: %1]").arg(textOf(resource, QLatin1String("uri")));
    }
    if (kind == QLatin1String("resource_link"))
        return QStringLiteral("[resource: %1]").arg(textOf(block, QLatin1String("uri")));
    return QStringLiteral("[%1]").arg(kind);
}

QString contentText(const QJsonArray &blocks)
{
    QStringList texts;
    for (const QJsonValue &block : blocks)
        texts.append(blockText(block.toObject()));
    return texts.join(QLatin1Char('\n'));
}

} // namespace

McpAnswer checkedAnswer(const McpAnswer &answer, bool isModern)
{
    const QString type = textOf(answer.result, QLatin1String("resultType"));
    if (answer.isError || !isModern || type.isEmpty() || type == QLatin1String("complete"))
        return answer;
    McpAnswer error = answer;
    error.isError = true;
    error.error.message = type == QLatin1String("input_required")
                            ? QStringLiteral("MCP server asked for input.")
                            : QStringLiteral("MCP server sent an invalid answer.");
    return error;
}

ToolResult toolResultFrom(const McpAnswer &answer)
{
    ToolResult result;
    if (answer.isError) {
        result.error = answer.error.message;
        return result;
    }
    const QJsonValue structured = answer.result.value(QLatin1String("structuredContent"));
    QString text = contentText(answer.result.value(QLatin1String("content")).toArray());
    result.data = structured.toObject();
    // The data are an object; other kinds usually stand in the text, too.
    if (text.isEmpty() && !structured.isUndefined() && !structured.isNull() && !structured.isObject())
        text = compactJson(structured);
    result.success = !answer.result.value(QLatin1String("isError")).toBool();
    (result.success ? result.content : result.error) = text;
    return result;
}

} // namespace QtAgent
} // namespace MireloQtLib
