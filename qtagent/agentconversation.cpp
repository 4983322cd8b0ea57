#include "agentconversation_p.h"

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool isSystem(const ChatMessage &message)
{
    return message.role == QLatin1String("system");
}

bool isQuestion(const ChatMessage &message)
{
    return message.role == QLatin1String("user");
}

bool isToolResult(const ChatMessage &message)
{
    return message.role == QLatin1String("tool");
}

bool hasCalls(const ChatMessage &message)
{
    return !message.toolCalls.isEmpty();
}

ChatMessage missingResult(const QString &id, const QString &name)
{
    return ChatMessage::tool(id, name, QStringLiteral("未执行。"));
}

using Position = QVector<ChatMessage>::const_iterator;

// Appends the message at @p answer and the results of its calls, which stand somewhere before @p end.
void appendRound(const Position &answer, const Position &end, QVector<ChatMessage> *conversation)
{
    QVector<ChatMessage> results;
    std::copy_if(answer, end, std::back_inserter(results), isToolResult);
    ChatMessage message = *answer;
    QVector<ChatMessage> round;
    for (QJsonValueRef value : message.toolCalls) {
        const QJsonObject sent = value.toObject();
        const QString sentId = sent.value(QLatin1String("id")).toString();
        const PendingCall call = parseToolCall(sent);
        value = completedToolCall(sent, call);
        const auto result =
            std::find_if(results.begin(), results.end(),
                         [&sentId](const ChatMessage &result) { return result.toolCallId == sentId; });
        if (result == results.end()) {
            round.append(missingResult(call.id, call.name));
        } else {
            round.append(*result);
            round.last().toolCallId = call.id;
            results.erase(result);
        }
    }
    conversation->append(message);
    conversation->append(round);
}

} // namespace

QVector<ChatMessage> completedConversation(const QVector<ChatMessage> &messages)
{
    QVector<ChatMessage> conversation;
    std::copy_if(messages.cbegin(), messages.cend(), std::back_inserter(conversation), isSystem);
    for (auto message = messages.cbegin(); message != messages.cend(); ++message) {
        if (hasCalls(*message))
            appendRound(message, std::find_if(message + 1, messages.cend(), hasCalls), &conversation);
        else if (!isSystem(*message) && !isToolResult(*message))
            conversation.append(*message);
    }
    return conversation;
}

bool AgentConversation::hasQuestion() const
{
    return std::any_of(m_messages.cbegin(), m_messages.cend(), isQuestion);
}

void AgentConversation::setMessages(const QVector<ChatMessage> &messages)
{
    m_messages = messages;
    ++m_revision;
}

void AgentConversation::addQuestion(const QString &systemPrompt, const ChatMessage &question)
{
    if (m_messages.isEmpty() && !systemPrompt.trimmed().isEmpty())
        m_messages.append(ChatMessage::system(systemPrompt));
    m_messages.append(question);
    ++m_revision;
}

void AgentConversation::addAnswer(const ChatMessage &answer)
{
    m_messages.append(answer);
    ++m_revision;
}

void AgentConversation::addCalls(const ChatMessage &answer, const QQueue<PendingCall> &calls)
{
    addAnswer(answer);
    m_firstResult = int(m_messages.size());
    for (const PendingCall &call : calls)
        m_messages.append(missingResult(call.id, call.name));
}

void AgentConversation::setResult(int index, const QString &text)
{
    m_messages[m_firstResult + index].content = text;
    ++m_revision;
}

void AgentConversation::dropAnswer()
{
    const auto question = std::find_if(m_messages.crbegin(), m_messages.crend(), isQuestion);
    m_messages.resize(int(m_messages.crend() - question));
    ++m_revision;
}

} // namespace QtAgent
} // namespace MireloQtLib
