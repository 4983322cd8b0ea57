#ifndef QTAGENT_TESTS_SCRIPTEDMODEL_H
#define QTAGENT_TESTS_SCRIPTEDMODEL_H

#include <qtagent/chatmodel.h>

#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <functional>

/// A model that records every request and answers from a queue. Beside the one for programs it can leave a
/// reply to the test, play an answer by a function, and forget the answers that are left.
///
/// @code
/// ScriptedModel model;
/// model.addText({"Hello ", "world"});
/// model.addFailure("no network");
/// @endcode
///
/// The first request streams two pieces, the second fails; both answers arrive on the next turn of the
/// event loop. A request that finds the queue empty is left to the test: `model.lastCall().reply`.
class ScriptedModel : public MireloQtLib::QtAgent::ChatModel
{
public:
    using ChatMessage = MireloQtLib::QtAgent::ChatMessage;
    using ChatReply = MireloQtLib::QtAgent::ChatReply;
    using ToolDefinition = MireloQtLib::QtAgent::ToolDefinition;

    /// Plays an answer. It may be left without its reply at any emission.
    using Answer = std::function<void(const QPointer<ChatReply> &reply)>;

    struct Call
    {
        QVector<ChatMessage> messages;
        QVector<ToolDefinition> tools;
        /// The parent that was asked for, null where the reply belongs to the model.
        QPointer<QObject> parent;
        QPointer<ChatReply> reply;
    };

    explicit ScriptedModel(QObject *parent = nullptr)
        : ChatModel(parent)
    {}

    /// The next request streams @p deltas and finishes with all of them.
    void addText(const QStringList &deltas)
    {
        addAnswer([deltas](const QPointer<ChatReply> &reply) {
            for (const QString &delta : deltas) {
                if (reply)
                    reply->appendDelta(delta);
            }
            if (reply)
                reply->finish(deltas.join(QString()));
        });
    }

    /// The next request is answered with a whole response, as a server does that does not stream.
    void addResponse(const QJsonObject &response)
    {
        addAnswer([response](const QPointer<ChatReply> &reply) {
            const QString content = messageOf(response).value(QStringLiteral("content")).toString();
            if (reply)
                reply->setResponse(response);
            if (reply)
                reply->appendDelta(content);
            if (reply)
                reply->finish(content);
        });
    }

    /// The next request is answered with an assistant message that asks for @p toolCalls.
    void addToolCalls(const QJsonArray &toolCalls, const QString &content = QString())
    {
        addAnswer([toolCalls, content](const QPointer<ChatReply> &reply) {
            if (reply)
                reply->setToolCalls(content, toolCalls);
            if (reply)
                reply->appendDelta(content);
            if (reply)
                reply->finish(content);
        });
    }

    /// The next request fails with @p error.
    void addFailure(const QString &error)
    {
        addAnswer([error](const QPointer<ChatReply> &reply) { reply->fail(error); });
    }

    /// The next request is answered by @p answer, which is called on the next turn of the event loop
    /// while the reply still lives.
    void addAnswer(const Answer &answer) { m_answers.append(answer); }

    /// Drops the answers that no request has taken yet.
    void clearAnswers() { m_answers.clear(); }

    /// Every request so far, the first one first.
    const QVector<Call> &calls() const { return m_calls; }

    /// The latest request. There must have been one.
    const Call &lastCall() const { return m_calls.last(); }

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override
    {
        auto *reply = new ChatReply(parent ? parent : this);
        m_calls.append({messages, tools, parent, reply});
        if (!m_answers.isEmpty()) {
            const Answer answer = m_answers.takeFirst();
            QTimer::singleShot(0, reply, [reply, answer] { answer(reply); });
        }
        return reply;
    }

private:
    static QJsonObject messageOf(const QJsonObject &response)
    {
        const QJsonArray choices = response.value(QStringLiteral("choices")).toArray();
        return choices.at(0).toObject().value(QStringLiteral("message")).toObject();
    }

    QVector<Answer> m_answers;
    QVector<Call> m_calls;
};

#endif
