#include "requestoptions.h"

#include <QJsonArray>

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct Flag
{
    QLatin1String name;
    bool RequestOptions::*member;
};

const Flag flags[] = {
    {QLatin1String("useMaxCompletionTokens"), &RequestOptions::useMaxCompletionTokens},
    {QLatin1String("keepReasoning"), &RequestOptions::keepReasoning},
    {QLatin1String("streamToolCalls"), &RequestOptions::streamToolCalls},
    {QLatin1String("askForUsage"), &RequestOptions::askForUsage},
    {QLatin1String("readThinkTags"), &RequestOptions::readThinkTags},
    {QLatin1String("strictStreams"), &RequestOptions::strictStreams},
    {QLatin1String("applyTimeLimit"), &RequestOptions::applyTimeLimit},
};

QStringList textsIn(const QJsonArray &array)
{
    QStringList texts;
    for (const QJsonValue &value : array) {
        if (value.isString())
            texts.append(value.toString());
    }
    return texts;
}

QMap<QByteArray, QByteArray> headersIn(const QJsonObject &object)
{
    QMap<QByteArray, QByteArray> headers;
    for (auto header = object.begin(); header != object.end(); ++header) {
        if (header.value().isString())
            headers.insert(header.key().toUtf8(), header.value().toString().toUtf8());
    }
    return headers;
}

QJsonObject headersToJson(const QMap<QByteArray, QByteArray> &headers)
{
    QJsonObject object;
    for (auto header = headers.begin(); header != headers.end(); ++header)
        object.insert(QString::fromUtf8(header.key()), QString::fromUtf8(header.value()));
    return object;
}

} // namespace

bool operator==(const RequestOptions &left, const RequestOptions &right)
{
    for (const Flag &flag : flags) {
        if (left.*flag.member != right.*flag.member)
            return false;
    }
    return left.extra == right.extra && left.without == right.without && left.headers == right.headers
        && left.query == right.query;
}

RequestOptions requestOptionsFromJson(const QJsonObject &object)
{
    RequestOptions options;
    options.extra = object.value(QLatin1String("extra")).toObject();
    options.without = textsIn(object.value(QLatin1String("without")).toArray());
    options.headers = headersIn(object.value(QLatin1String("headers")).toObject());
    for (const Flag &flag : flags)
        options.*flag.member = object.value(flag.name).toBool();
    options.query = object.value(QLatin1String("query")).toString();
    return options;
}

QJsonObject requestOptionsToJson(const RequestOptions &options)
{
    QJsonObject object;
    if (!options.extra.isEmpty())
        object.insert(QStringLiteral("extra"), options.extra);
    if (!options.without.isEmpty())
        object.insert(QStringLiteral("without"), QJsonArray::fromStringList(options.without));
    if (!options.headers.isEmpty())
        object.insert(QStringLiteral("headers"), headersToJson(options.headers));
    for (const Flag &flag : flags) {
        if (options.*flag.member)
            object.insert(flag.name, true);
    }
    if (!options.query.isEmpty())
        object.insert(QStringLiteral("query"), options.query);
    return object;
}

} // namespace QtAgent
} // namespace MireloQtLib
