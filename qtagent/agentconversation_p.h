#ifndef MIRELOQTLIB_QTAGENT_AGENTCONVERSATION_P_H
#define MIRELOQTLIB_QTAGENT_AGENTCONVERSATION_P_H

#include "toolcallrequest_p.h"

#include <qtagent/chatmessage.h>

#include <QQueue>

namespace MireloQtLib {
namespace QtAgent {

// Returns @p messages as a strict server takes them: tool messages that are missing are filled in, those that
// answer no call are dropped, calls get what they lack, and instructions come first.
QVector<ChatMessage> completedConversation(const QVector<ChatMessage> &messages);

// The conversation of an agent. A strict server takes it at any moment: directly behind an answer with tool
// calls stands a tool message for each of them, which says that the call was not executed until it was.
class AgentConversation
{
public:
    const QVector<ChatMessage> &messages() const { return m_messages; }

    // Grows with every change.
    qint64 revision() const { return m_revision; }

    bool hasQuestion() const;

    // Replaces all messages by @p messages, which are completed.
    void setMessages(const QVector<ChatMessage> &messages);

    // Appends @p question; at the beginning of a conversation @p systemPrompt comes before it, unless blank.
    void addQuestion(const QString &systemPrompt, const ChatMessage &question);

    void addAnswer(const ChatMessage &answer);

    // Appends @p answer, which asks for @p calls, and a message for each of them.
    void addCalls(const ChatMessage &answer, const QQueue<PendingCall> &calls);

    // Sets what the call number @p index of the last addCalls() came to.
    void setResult(int index, const QString &text);

    // Drops what follows the last question. There must be one.
    void dropAnswer();

private:
    QVector<ChatMessage> m_messages;
    int m_firstResult = 0;
    qint64 m_revision = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
