#ifndef QTAGENT_TESTS_WATCHEDMODEL_H
#define QTAGENT_TESTS_WATCHEDMODEL_H

#include "scriptedmodel.h"

/// A @p Model, which is a ScriptedModel, whose replies are seen before anybody else connects to them, and
/// once more when whoever asked has done so.
template<typename Model>
class WatchedModel : public Model
{
public:
    using ChatReply = ScriptedModel::ChatReply;

    std::function<void(ChatReply *)> onReply;
    std::function<void(ChatReply *)> onAnswer;

    ChatReply *chat(const QVector<ScriptedModel::ChatMessage> &messages,
                    const QVector<ScriptedModel::ToolDefinition> &tools, QObject *parent) override
    {
        QTimer::singleShot(0, this, [this] {
            if (this->lastCall().reply)
                onAnswer(this->lastCall().reply);
        });
        ChatReply *reply = Model::chat(messages, tools, parent);
        onReply(reply);
        return reply;
    }
};

#endif
