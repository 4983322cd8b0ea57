#include "messageactions.h"

#include <qtagent/agentsession.h>

#include <QPointer>

using namespace MireloQtLib::QtAgent;

int questionOf(const QVector<ChatMessage> &conversation, int index)
{
    int question = qMin(index, static_cast<int>(conversation.size()) - 1);
    while (question >= 0 && conversation.at(question).role != QLatin1String("user"))
        --question;
    return question;
}

bool askAgain(AgentSession *session, int index)
{
    const QPointer<AgentSession> guard(session);
    const QVector<ChatMessage> conversation = session->conversation();
    const int question = questionOf(conversation, index);
    if (question < 0 || session->isRunning())
        return false;
    return session->setConversation(conversation.mid(0, question + 1)) && guard && session->regenerate();
}

bool askInstead(AgentSession *session, int index, const QString &text)
{
    const QPointer<AgentSession> guard(session);
    const QVector<ChatMessage> conversation = session->conversation();
    const int question = questionOf(conversation, index);
    if (question < 0 || session->isRunning())
        return false;
    if (!session->setConversation(conversation.mid(0, question)) || !guard)
        return false;
    session->send(text);
    return true;
}
