#ifndef QTAGENT_TESTS_ASSISTANTFIXTURE_H
#define QTAGENT_TESTS_ASSISTANTFIXTURE_H

#include "heldmodel.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>

#include <QTemporaryDir>
#include <QtTest>

/// A store in a folder of its own, and a model that answers from a script.
class AssistantFixture
{
public:
    AssistantFixture()
    {
        QString error;
        if (!store.open(path(), &error))
            qFatal("%s", qPrintable(error));
    }

    QString path() const { return folder.filePath("conversations.sqlite"); }

    /// Keeps a conversation of its own, as if it had been held before.
    QString keep(const QString &title, const QStringList &texts)
    {
        MireloQtLib::QtAgent::Conversation conversation = store.create(title);
        QVector<MireloQtLib::QtAgent::ChatMessage> messages;
        for (int i = 0; i < texts.size(); ++i)
            messages.append(i % 2 ? MireloQtLib::QtAgent::ChatMessage::assistant(texts.at(i))
                                  : MireloQtLib::QtAgent::ChatMessage::user(texts.at(i)));
        conversation.setMessages(messages);
        if (!store.save(&conversation))
            qFatal("cannot save");
        return conversation.id;
    }

    /// What the file has of the conversation @p id, as another program reads it.
    QStringList textsOf(const QString &id) const
    {
        MireloQtLib::QtAgent::ConversationStore reader;
        QStringList texts;
        if (reader.open(path())) {
            for (const auto &message : reader.load(id).messages)
                texts.append(message.message.content);
        }
        return texts;
    }

    QTemporaryDir folder;
    MireloQtLib::QtAgent::ConversationStore store;
    HeldModel model;
};

#endif
