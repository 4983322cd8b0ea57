#include "answerwatch.h"

using namespace MireloQtLib::QtAgent;

AnswerWatch::AnswerWatch(QObject *parent)
    : ChatModel(parent)
{}

AnswerWatch::~AnswerWatch() = default;

void AnswerWatch::setModel(ChatModel *model)
{
    m_model = model;
}

const AnswerDetails &AnswerWatch::details() const
{
    return m_details;
}

ChatReply *AnswerWatch::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                             QObject *parent)
{
    m_details = {};
    Q_EMIT asked();
    if (!m_model)
        return ChatReply::failLater(QStringLiteral("智能体模型尚未配置。"), parent ? parent : this);
    ChatReply *reply = m_model->chat(messages, tools, parent ? parent : this);
    if (auto *completion = qobject_cast<CompletionReply *>(reply))
        watch(completion);
    return reply;
}

// Whoever asks connects later, so that the details are there when he hears of the end.
void AnswerWatch::watch(CompletionReply *reply)
{
    connect(reply, &CompletionReply::reasoningReceived, this, &AnswerWatch::thinkingReceived);
    const auto take = [this, reply] {
        m_details = {reply->usage(), reply->finishReason(), reply->refusal(), reply->reasoning(),
                     reply->failure()};
    };
    connect(reply, &ChatReply::finished, this, take);
    connect(reply, &ChatReply::failed, this, take);
    connect(reply, &ChatReply::canceled, this, take);
}
