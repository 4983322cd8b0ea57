#include "messagehistory.h"

namespace MireloQtLib {
namespace QtAgent {

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

} // namespace QtAgent
} // namespace MireloQtLib
