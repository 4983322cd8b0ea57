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

void MessageHistory::addSystem(const QString &text)
{
    m_messages.append(ChatMessage::system(text));
}

void MessageHistory::addUser(const QString &text)
{
    m_messages.append(ChatMessage::user(text));
}

void MessageHistory::addAssistant(const QString &text)
{
    m_messages.append(ChatMessage::assistant(text));
}

QVector<ChatMessage> MessageHistory::messages() const
{
    return m_messages;
}

QMap<QString, QString> runParallel(const QMap<QString, ParallelBranch> &branches,
                                   const PromptVariables &variables)
{
    // A branch may change the maps that the caller passed.
    const QMap<QString, ParallelBranch> allBranches = branches; // NOLINT(performance-unnecessary-copy-*)
    const PromptVariables sameVariables = variables;            // NOLINT(performance-unnecessary-copy-*)
    QMap<QString, QString> texts;
    for (auto branch = allBranches.cbegin(); branch != allBranches.cend(); ++branch)
        texts.insert(branch.key(), branch.value()(sameVariables));
    return texts;
}

} // namespace QtAgent
} // namespace MireloQtLib
