#ifndef QTAGENT_TESTS_HTTPENDPOINT_H
#define QTAGENT_TESTS_HTTPENDPOINT_H

#include "completions.h"
#include "loopbackserver.h"

#include <qtagent/openaicompatiblemodel.h>

/// A loopback server and a model that asks it.
struct HttpEndpoint
{
    HttpEndpoint()
    {
        MireloQtLib::QtAgent::ModelConfig config;
        config.baseUrl = server.baseUrl();
        config.apiKey = QStringLiteral("key");
        config.model = QStringLiteral("test-model");
        model.setConfig(config);
    }

    /// The next request is answered by a stream of @p texts.
    void addStream(const QVector<QString> &texts) { server.enqueue(streamOf(texts)); }

    /// The next request is answered by a stream that stops after @p sentTexts of @p texts until the server
    /// is released, with 0 before its head.
    void addHeldStream(const QVector<QString> &texts, int sentTexts = 0)
    {
        server.enqueue(streamOf(texts).held(sentTexts));
    }

    /// The next request is refused with the message "bad key".
    void addRefusal()
    {
        server.enqueue(LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})"));
    }

    /// What the model sends with @p messages and no tools.
    static QJsonObject requestWith(const QJsonArray &messages)
    {
        return {
            {QStringLiteral("model"), QStringLiteral("test-model")},
            {QStringLiteral("messages"), messages},
            {QStringLiteral("temperature"), 0.2},
            {QStringLiteral("max_tokens"), 1024},
            {QStringLiteral("stream"), true},
        };
    }

    static QJsonObject message(const QString &role, const QString &content)
    {
        return {{QStringLiteral("role"), role}, {QStringLiteral("content"), content}};
    }

    LoopbackServer server;
    MireloQtLib::QtAgent::OpenAICompatibleModel model;

private:
    static LoopbackAnswer streamOf(const QVector<QString> &texts)
    {
        QVector<QByteArray> events;
        for (const QString &text : texts)
            events.append(deltaEvent(text));
        events.append(doneEvent());
        return LoopbackAnswer::stream(events);
    }
};

#endif
