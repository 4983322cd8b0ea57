#include "prompttemplate.h"

namespace MireloQtLib {
namespace QtAgent {

void PromptTemplate::addMessage(const QString &role, const QString &text)
{
    m_entries.append({role, text});
}

void PromptTemplate::addSystem(const QString &text)
{
    addMessage(QStringLiteral("system"), text);
}

void PromptTemplate::addUser(const QString &text)
{
    addMessage(QStringLiteral("user"), text);
}

QVector<ChatMessage> PromptTemplate::format(const PromptVariables &variables) const
{
    QVector<ChatMessage> messages;
    messages.reserve(m_entries.size());
    for (const Entry &entry : m_entries) {
        ChatMessage message;
        message.role = entry.role;
        message.content = render(entry.text, variables);
        messages.append(message);
    }
    return messages;
}

QString PromptTemplate::render(const QString &text, const PromptVariables &variables)
{
    QString result = text;
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
        result.replace(QStringLiteral("{%1}").arg(variable.key()), variable.value());
    return result;
}

} // namespace QtAgent
} // namespace MireloQtLib
