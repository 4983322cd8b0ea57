#ifndef QTAGENT_TESTS_HELDMODEL_H
#define QTAGENT_TESTS_HELDMODEL_H

#include <qtagent/testing/scriptedmodel.h>

#include <QPointer>
#include <QTimer>

#include <functional>

/// A scripted model that leaves the reply to the test where it has no answer: `model.lastCall().reply`.
class HeldModel : public MireloQtLib::QtAgent::ScriptedModel
{
public:
    using ChatMessage = MireloQtLib::QtAgent::ChatMessage;
    using ChatReply = MireloQtLib::QtAgent::ChatReply;
    using ToolDefinition = MireloQtLib::QtAgent::ToolDefinition;
    using ScriptedModel::ScriptedModel;

    struct Call : Request
    {
        /// The parent that was asked for, null where the reply belongs to the model.
        QPointer<QObject> parent;
        QPointer<ChatReply> reply;
    };

    /// Plays an answer. It may be left without its reply at any emission.
    using Answer = std::function<void(const QPointer<ChatReply> &reply)>;

    /// Sees each reply before anybody else connects to it.
    std::function<void(ChatReply *)> onReply;

    /// Sees each reply once more when whoever asked has connected to it.
    std::function<void(ChatReply *)> onAnswer;

    /// Adds an answer for a request that finds none of the kit's. It is played in one go: what an event loop
    /// in a slot holds up stays behind it, while the kit's answers go on there.
    void addAnswer(const Answer &answer) { m_answers.append(answer); }

    /// Returns an answer of @p pieces that asks for @p toolCalls where there are any.
    static Answer inOneGo(const QStringList &pieces, const QJsonArray &toolCalls = {})
    {
        return [pieces, toolCalls](const QPointer<ChatReply> &reply) {
            if (!toolCalls.isEmpty())
                reply->setToolCalls(pieces.join(QString()), toolCalls);
            for (const QString &piece : pieces) {
                if (reply)
                    reply->appendDelta(piece);
            }
            if (reply)
                reply->finish(pieces.join(QString()));
        };
    }

    /// Every request so far, the first one first.
    const QVector<Call> &calls() const { return m_calls; }

    /// The latest request. There must have been one.
    const Call &lastCall() const { return m_calls.last(); }

    /// Drops the answers that no request has taken yet.
    void clearAnswers()
    {
        while (answersLeft() > 0)
            delete ScriptedModel::chat({}, {}, this);
        m_answers.clear();
    }

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override
    {
        if (onAnswer) {
            QTimer::singleShot(0, this, [this] {
                if (lastCall().reply)
                    onAnswer(lastCall().reply);
            });
        }
        const bool isHeld = answersLeft() == 0;
        if (isHeld)
            addSilence();
        ChatReply *reply = ask(messages, tools, parent);
        if (isHeld && !m_answers.isEmpty())
            QTimer::singleShot(0, reply, [reply, play = m_answers.takeFirst()] { play(reply); });
        m_calls.append({{messages, tools}, parent, reply});
        if (onReply)
            onReply(reply);
        return reply;
    }

protected:
    /// Takes the next answer.
    virtual ChatReply *ask(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                           QObject *parent)
    {
        return ScriptedModel::chat(messages, tools, parent);
    }

private:
    QVector<Answer> m_answers;
    QVector<Call> m_calls;
};

#endif
