#include "runnablechain.h"

namespace MireloQtLib {
namespace QtAgent {

RunnableChain::RunnableChain(QObject *parent)
    : QObject(parent)
{}

RunnableChain::~RunnableChain() = default;

void RunnableChain::setPromptTemplate(const QString &text)
{
    m_promptTemplate = text;
}

void RunnableChain::setSystemPrompt(const QString &text)
{
    m_systemPrompt = text;
}

void RunnableChain::setModel(ChatModel *model)
{
    m_model = model;
}

ChatReply *RunnableChain::invoke(const PromptVariables &variables, QObject *parent)
{
    QObject *replyParent = parent ? parent : this;
    if (!m_model)
        return ChatReply::failLater(QStringLiteral("RunnableChain has no model."), replyParent);
    return m_model->chat(conversation(variables), {}, replyParent);
}

QVector<ChatMessage> RunnableChain::conversation(const PromptVariables &variables) const
{
    QVector<ChatMessage> messages;
    if (!m_systemPrompt.isEmpty())
        messages.append(ChatMessage::system(m_systemPrompt));
    messages.append(ChatMessage::user(PromptTemplate::render(m_promptTemplate, variables)));
    return messages;
}

} // namespace QtAgent
} // namespace MireloQtLib
