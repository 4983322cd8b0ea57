#ifndef MIRELOQTLIB_QTAGENT_JSONRPC_P_H
#define MIRELOQTLIB_QTAGENT_JSONRPC_P_H

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

enum RpcErrorCode {
    MethodNotFound = -32601,
    ServerError = -32000,
    HeaderMismatch = -32020,
    MissingCapability = -32021,
    UnsupportedVersion = -32022,
};

struct RpcError
{
    int code = 0;
    QString message;
    QJsonValue data;
};

// A message of JSON-RPC 2.0. Both sides count their requests for themselves, so that messages are sorted by
// their members, never by an id.
struct RpcMessage
{
    enum class Kind { Request, Notification, Result, Error };

    Kind kind = Kind::Notification;
    // As the other side wrote it; an error may have null or none.
    QJsonValue id;
    QString method;
    QJsonObject params;
    QJsonValue result;
    RpcError error;
};

// Returns the message that @p json holds, or those of a batch, or none.
QVector<RpcMessage> readRpcMessages(const QByteArray &json);

// Empty params are left out.
QByteArray rpcRequest(qint64 id, const QString &method, const QJsonObject &params);
QByteArray rpcNotification(const QString &method, const QJsonObject &params);
QByteArray rpcResult(const QJsonValue &id, const QJsonObject &result);
QByteArray rpcError(const QJsonValue &id, int code, const QString &message);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
