#ifndef QTAGENT_TESTS_STREAMEDMODEL_H
#define QTAGENT_TESTS_STREAMEDMODEL_H

#include "completions.h"
#include "fakenetworkreply.h"
#include "heldmodel.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QNetworkAccessManager>

#include <utility>

/// A network on which every request is answered by a FakeNetworkReply.
class FakeNetwork : public QNetworkAccessManager
{
public:
    /// Returns the answer to the latest request.
    QPointer<FakeNetworkReply> lastReply() const { return m_lastReply; }

protected:
    QNetworkReply *createRequest(Operation /*operation*/, const QNetworkRequest & /*request*/,
                                 QIODevice * /*body*/) override
    {
        m_lastReply = new FakeNetworkReply;
        m_lastReply->setParent(this);
        return m_lastReply.data();
    }

private:
    QPointer<FakeNetworkReply> m_lastReply;
};

/// A held model whose answers come as those of a service that streams tool calls: an OpenAICompatibleModel
/// reads them from events. A failure is told as it stands.
class StreamedModel : public HeldModel
{
public:
    explicit StreamedModel(QObject *parent = nullptr)
        : HeldModel(parent)
    {
        MireloQtLib::QtAgent::ModelConfig config;
        config.baseUrl = "http://127.0.0.1/v1";
        config.model = "test-model";
        m_service.setConfig(config);
        MireloQtLib::QtAgent::RequestOptions options;
        options.streamToolCalls = true;
        m_service.setRequestOptions(options);
        m_service.setNetworkAccessManager(&m_network);
    }

protected:
    ChatReply *ask(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                   QObject *parent) override
    {
        ChatReply *reply = m_service.chat(messages, tools, parent ? parent : this);
        play(HeldModel::ask(messages, tools, reply), m_network.lastReply());
        return reply;
    }

private:
    // The script is owned by the reply that it is played to.
    static void play(ChatReply *script, FakeNetworkReply *answer)
    {
        connect(script, &ChatReply::deltaReceived, answer, [answer](const QString &piece) {
            if (!piece.isEmpty())
                answer->receive(deltaEvent(piece));
        });
        connect(script, &ChatReply::finished, answer, [answer, script] {
            for (const QByteArray &event : callEvents(script->toolCalls()))
                answer->receive(event);
            answer->receive(doneEvent());
            answer->end();
        });
        auto *reply = static_cast<ChatReply *>(script->parent());
        connect(script, &ChatReply::failed, reply, [reply](const QString &error) { reply->fail(error); });
    }

    FakeNetwork m_network;
    MireloQtLib::QtAgent::OpenAICompatibleModel m_service;
};

#endif
