#ifndef MIRELOQTLIB_QTAGENT_MCPTRANSPORT_P_H
#define MIRELOQTLIB_QTAGENT_MCPTRANSPORT_P_H

#include "headerparameters_p.h"
#include "jsonrpc_p.h"

#include <QObject>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

// What client and server have agreed on.
struct McpAgreement
{
    QString version;
    // Without a handshake and a session, and with _meta in every request.
    bool isModern = false;
    QJsonObject capabilities;
};

struct McpRequest
{
    qint64 id = 0;
    QString method;
    QJsonObject params;
    // Over HTTP, what of the params is said in headers as well.
    HeaderValues headers;
};

// What became of a request.
struct McpAnswer
{
    bool isError = false;
    // Whether the server said so, or else nobody knows what became of the request.
    bool isFromServer = false;
    QJsonObject result;
    RpcError error;
    // Over HTTP, where the request failed and something came back.
    int httpStatus = 0;
    bool isSessionLost = false;
};

// Carries messages to one server and back. What it emits, it emits from the event loop; every slot may delete
// it.
class McpTransport : public QObject
{
    Q_OBJECT

public:
    explicit McpTransport(QObject *parent = nullptr)
        : QObject(parent)
    {}

    // closed() follows where that fails.
    virtual void open() = 0;

    // The answer comes by received(), or failed() tells that none will come.
    virtual void sendRequest(const McpRequest &request) = 0;

    // Sends what needs no answer, and calls @p whenSent, if given, when the server has it.
    virtual void sendMessage(const QByteArray &message, const std::function<void()> &whenSent = {}) = 0;

    // Sends the answer to a request of the server's, unless too many are waiting for the server to take them:
    // one that asks for ever and never reads would fill the memory.
    virtual void sendAnswer(const QByteArray &message) = 0;

    // Nobody waits for the answer any more. @p cancellation tells the server, where it is not told otherwise.
    virtual void dropRequest(qint64 id, const QByteArray &cancellation) = 0;

    // Returns whether modern servers want to see what of a request in headers.
    virtual bool usesHeaders() const = 0;

    virtual void setAgreement(const McpAgreement &agreement) = 0;

    // Listens to what belongs to no request, where that needs doing.
    virtual void listen() = 0;

    // Ends the connection in an orderly way, upon which closed() follows without an error.
    virtual void close() = 0;

Q_SIGNALS:
    void received(const MireloQtLib::QtAgent::RpcMessage &message);
    void failed(qint64 id, const MireloQtLib::QtAgent::McpAnswer &answer);
    void errorOutput(const QByteArray &bytes);
    // Nothing will be received any more, and closed() follows when what the server has left is ended.
    void ending(const QString &error);
    // Emitted once, the last signal.
    void closed(const QString &error);
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
