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
        config.apiKey = "key";
        config.model = "test-model";
        model.setConfig(config);
    }

    /// The next request is answered by a stream of @p texts. It is held behind @p sentTexts of them until the
    /// server is released, with 0 before its head.
    void addStream(const QVector<QString> &texts, int sentTexts = -1)
    {
        QVector<QByteArray> events;
        for (const QString &text : texts)
            events.append(deltaEvent(text));
        server.enqueue(LoopbackAnswer::stream(events << doneEvent()).held(sentTexts));
    }

    /// The next request is refused with the message "bad key".
    void addRefusal()
    {
        server.enqueue(LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})"));
    }

    /// What the model sends with @p messages and no tools.
    static QJsonObject requestWith(const QJsonArray &messages)
    {
        return {{"model", "test-model"},
                {"messages", messages},
                {"temperature", 0.2},
                {"max_tokens", 1024},
                {"stream", true}};
    }

    static QJsonObject message(const QString &role, const QString &content)
    {
        return {{"role", role}, {"content", content}};
    }

    LoopbackServer server;
    MireloQtLib::QtAgent::OpenAICompatibleModel model;
};

#endif
