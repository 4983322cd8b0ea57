#include "jsonrpc_p.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

const QLatin1String idKey("id");
const QLatin1String methodKey("method");
const QLatin1String paramsKey("params");
const QLatin1String resultKey("result");
const QLatin1String errorKey("error");
const QLatin1String versionKey("jsonrpc");
const QLatin1String version("2.0");

RpcError readError(const QJsonObject &object)
{
    RpcError error;
    error.code = object.value(QLatin1String("code")).toInt();
    error.message = object.value(QLatin1String("message")).toString();
    error.data = object.value(QLatin1String("data"));
    if (error.message.isEmpty())
        error.message = QStringLiteral("Error %1").arg(error.code);
    return error;
}

bool readMessage(const QJsonObject &object, RpcMessage *message)
{
    if (object.value(versionKey) != version)
        return false;
    message->id = object.value(idKey);
    message->method = object.value(methodKey).toString();
    message->params = object.value(paramsKey).toObject();
    message->result = object.value(resultKey);
    if (object.contains(methodKey)) {
        const bool hasId = message->id.isString() || message->id.isDouble();
        message->kind = hasId ? RpcMessage::Kind::Request : RpcMessage::Kind::Notification;
        return !message->method.isEmpty() && (hasId || !object.contains(idKey));
    }
    if (object.value(errorKey).isObject()) {
        message->kind = RpcMessage::Kind::Error;
        message->error = readError(object.value(errorKey).toObject());
        return true;
    }
    message->kind = RpcMessage::Kind::Result;
    return object.contains(idKey);
}

QByteArray written(QJsonObject object)
{
    object.insert(versionKey, version);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// What stands around the params is always the same; in a QJsonObject it would cost as much as they do. Our
// methods need no escapes.
QByteArray callMembers(const QString &method, const QJsonObject &params)
{
    QByteArray members = R"("jsonrpc":"2.0","method":")" + method.toLatin1() + '"';
    if (!params.isEmpty())
        members += R"(,"params":)" + QJsonDocument(params).toJson(QJsonDocument::Compact);
    return members + '}';
}

QVector<RpcMessage> readBatch(const QJsonArray &batch)
{
    QVector<RpcMessage> messages;
    for (const QJsonValue &element : batch) {
        RpcMessage message;
        if (readMessage(element.toObject(), &message))
            messages.append(message);
    }
    return messages;
}

} // namespace

QVector<RpcMessage> readRpcMessages(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject())
        return readBatch(document.array());
    RpcMessage message;
    return readMessage(document.object(), &message) ? QVector<RpcMessage>{message} : QVector<RpcMessage>();
}

QByteArray rpcRequest(qint64 id, const QString &method, const QJsonObject &params)
{
    return R"({"id":)" + QByteArray::number(id) + ',' + callMembers(method, params);
}

QByteArray rpcNotification(const QString &method, const QJsonObject &params)
{
    return '{' + callMembers(method, params);
}

QByteArray rpcResult(const QJsonValue &id, const QJsonObject &result)
{
    return written({{idKey, id}, {resultKey, result}});
}

QByteArray rpcError(const QJsonValue &id, int code, const QString &message)
{
    QJsonObject error;
    error.insert(QLatin1String("code"), code);
    error.insert(QLatin1String("message"), message);
    return written({{idKey, id}, {errorKey, error}});
}

} // namespace QtAgent
} // namespace MireloQtLib
