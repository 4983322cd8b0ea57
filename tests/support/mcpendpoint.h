#ifndef QTAGENT_TESTS_MCPENDPOINT_H
#define QTAGENT_TESTS_MCPENDPOINT_H

#include "loopbackserver.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>

/// An HTTP server on 127.0.0.1 that speaks the Model Context Protocol, as it is told to.
///
/// @code
/// McpEndpoint endpoint;
/// endpoint.speakLegacy("2025-11-25", {McpScript::tool("echo")});
/// endpoint.on("tools/call", [](const LoopbackRequest &request) {
///     return McpEndpoint::textResult(request, "hello");
/// });
/// server.connectTo(endpoint.url());
/// @endcode
class McpEndpoint
{
public:
    using Answer = std::function<LoopbackAnswer(const LoopbackRequest &)>;

    McpEndpoint()
    {
        server.setHandler([this](const LoopbackRequest &request) { return answer(request); });
    }

    QUrl url() const { return QUrl(server.baseUrl() + "/mcp?key=query-secret"); }

    /// Answers as a revision with a handshake does, and opens a session.
    void speakLegacy(const QString &version, const QVector<QJsonObject> &tools,
                     const QByteArray &session = "session-secret", bool announces = false)
    {
        on("server/discover", [](const LoopbackRequest &) {
            return LoopbackAnswer::withStatus(
                400, R"({"jsonrpc":"2.0","error":{"code":-32000,)"
                     R"("message":"Bad Request: Server not initialized"},"id":null})");
        });
        on("initialize", [version, session, announces](const LoopbackRequest &request) {
            const QJsonObject toolsCapability{{"listChanged", announces}};
            LoopbackAnswer answer =
                result(request, {{"protocolVersion", version},
                                 {"capabilities", QJsonObject{{"tools", toolsCapability}}},
                                 {"serverInfo", QJsonObject{{"name", "endpoint"}, {"version", "1"}}}});
            if (!session.isEmpty())
                answer.headers.insert("Mcp-Session-Id", session);
            return answer;
        });
        on("tools/list", [tools](const LoopbackRequest &request) { return page(request, tools); });
    }

    /// Answers as the revision 2026-07-28 does.
    void speakModern(const QVector<QJsonObject> &tools)
    {
        on("server/discover", [](const LoopbackRequest &request) {
            return result(request, {{"supportedVersions", QJsonArray{"2026-07-28"}},
                                    {"capabilities", QJsonObject{{"tools", QJsonObject()}}},
                                    {"resultType", "complete"}});
        });
        on("tools/list", [tools](const LoopbackRequest &request) { return page(request, tools); });
    }

    /// Answers messages of this method, or without one where it is empty, or "GET" or "DELETE". What is added
    /// first answers the first, and so on; what is added last answers all that follow.
    void on(const QString &method, const Answer &answer) { m_answers[method].append(answer); }

    /// Forgets how messages of this method are answered.
    void clear(const QString &method) { m_answers.remove(method); }

    /// The requests of this method, as for on().
    QVector<LoopbackRequest> requests(const QString &method) const
    {
        QVector<LoopbackRequest> requests;
        for (const LoopbackRequest &request : server.requests()) {
            if (keyOf(request) == method)
                requests.append(request);
        }
        return requests;
    }

    static LoopbackAnswer result(const LoopbackRequest &request, const QJsonObject &result)
    {
        return LoopbackAnswer::json(answerTo(request, result));
    }

    static LoopbackAnswer textResult(const LoopbackRequest &request, const QString &text)
    {
        return result(request, contentOf(text));
    }

    static LoopbackAnswer page(const LoopbackRequest &request, const QVector<QJsonObject> &tools)
    {
        QJsonArray array;
        for (const QJsonObject &tool : tools)
            array.append(tool);
        return result(request, {{"tools", array}});
    }

    static LoopbackAnswer refusal(const LoopbackRequest &request, int status, int code,
                                  const QString &message, const QJsonObject &data = {})
    {
        const QJsonObject error{{"code", code}, {"message", message}, {"data", data}};
        const QJsonObject answer{{"jsonrpc", "2.0"}, {"id", request.json["id"]}, {"error", error}};
        return LoopbackAnswer::withStatus(status, QJsonDocument(answer).toJson(QJsonDocument::Compact));
    }

    static QJsonObject answerTo(const LoopbackRequest &request, const QJsonObject &result)
    {
        return {{"jsonrpc", "2.0"}, {"id", request.json["id"]}, {"result", result}};
    }

    static QJsonObject contentOf(const QString &text)
    {
        return {{"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", text}}}}};
    }

    /// The bytes of an event with this message.
    static QByteArray event(const QJsonObject &message, const QByteArray &id = {})
    {
        const QByteArray data = QJsonDocument(message).toJson(QJsonDocument::Compact);
        return (id.isEmpty() ? QByteArray() : "id: " + id + "\n") + "event: message\ndata: " + data + "\n\n";
    }

    static QJsonObject progress(const LoopbackRequest &request, int progress)
    {
        const QJsonValue token = request.json["params"].toObject()["_meta"].toObject()["progressToken"];
        const QJsonObject params{{"progressToken", token}, {"progress", progress}};
        return {{"jsonrpc", "2.0"}, {"method", "notifications/progress"}, {"params", params}};
    }

    static QJsonObject listChanged()
    {
        return {{"jsonrpc", "2.0"}, {"method", "notifications/tools/list_changed"}};
    }

private:
    static QString keyOf(const LoopbackRequest &request)
    {
        return request.method == "POST" ? request.json["method"].toString()
                                        : QString::fromLatin1(request.method);
    }

    // Called by one thread at a time.
    LoopbackAnswer answer(const LoopbackRequest &request)
    {
        const QString key = keyOf(request);
        const QVector<Answer> answers = m_answers.value(key);
        if (!answers.isEmpty())
            return answers.at(qMin(m_counts[key]++, int(answers.size()) - 1))(request);
        if (request.method == "GET")
            return LoopbackAnswer::withStatus(405, {}, "text/plain");
        if (request.method == "DELETE")
            return LoopbackAnswer::withStatus(200, {}, "text/plain");
        // Notifications, and answers to what the server asked.
        return LoopbackAnswer::withStatus(202, {}, "text/plain");
    }

    QMap<QString, QVector<Answer>> m_answers;
    QMap<QString, int> m_counts;

public:
    /// The last member: its threads use the others.
    LoopbackServer server;
};

#endif
