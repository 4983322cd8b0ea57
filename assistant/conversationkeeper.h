#ifndef ORVANE_CONVERSATIONKEEPER_H
#define ORVANE_CONVERSATIONKEEPER_H

#include "answerwatch.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>

#include <QObject>
#include <QPointer>
#include <QTimer>

/// The keys of a message's metadata that the assistant uses.
namespace MessageKey {

/// Why an answer is not complete: "stopped", "failed", "length", "filtered", "refused" or, while it grows,
/// "incomplete".
inline QString end()
{
    return QStringLiteral("end");
}

/// What the model thought before it answered. No key that a model is sent.
inline QString thinking()
{
    return QStringLiteral("thinking");
}

} // namespace MessageKey

/// Keeps the conversation of a session in a store while it goes on.
///
/// Each message is in the store when it is in the conversation. An answer that grows is saved at least once a
/// second, so that the death of the program takes no more than its last second. A conversation gets into the
/// store with its first question, whose beginning is its title.
///
/// Where another program has changed or removed the conversation meanwhile, it goes on as a copy: nothing is
/// overwritten, and nothing is lost.
class ConversationKeeper : public QObject
{
    Q_OBJECT

public:
    /// Keeps what is said in @p session in @p store. Neither is owned, and both outlive the keeper.
    ConversationKeeper(MireloQtLib::QtAgent::ConversationStore *store,
                       MireloQtLib::QtAgent::AgentSession *session, QObject *parent = nullptr);
    ~ConversationKeeper() override;

    /// Returns the conversation as it was saved last. Its id is empty before its first question.
    const MireloQtLib::QtAgent::Conversation &conversation() const;

    /// Goes on with the conversation @p id. What runs is canceled, and kept first. Returns false, with
    /// failed(), where it cannot be read; then nothing else has happened.
    bool open(const QString &id);

    /// Begins an empty conversation. What runs is canceled, and kept first.
    void begin();

    /// Gives the conversation @p id the title @p title. Returns false, with failed(), where that cannot be
    /// saved.
    bool rename(const QString &id, const QString &title);

    /// Sets the name of the model that the next messages are kept with.
    void setModelName(const QString &name);

    /// Keeps what @p watch tells of answers, too, whose model is that of the session. It is not owned.
    void setWatch(const AnswerWatch *watch);

    /// Returns what a conversation that begins with @p question is called: its first line, at most 40
    /// characters of it.
    static QString titleFor(const QString &question);

Q_SIGNALS:
    /// Another conversation is the current one, and the session has it.
    void opened();

    /// The store has changed.
    void saved();

    /// Something could not be read or saved. An answer is saved with the next change again, and where that
    /// fails for the same reason it is not told anew.
    void failed(const QString &error);

private:
    void addDelta(const QString &delta);
    void takeConversation();
    void describeAnswer(const MireloQtLib::QtAgent::RunOutcome &outcome);
    void keepUsage();
    void setCurrent(const MireloQtLib::QtAgent::Conversation &conversation);
    void save();
    bool saveCopy(QString *error);
    bool isChangedElsewhere() const;
    QVector<MireloQtLib::QtAgent::ChatMessage> messagesNow() const;

    MireloQtLib::QtAgent::ConversationStore *const m_store;
    MireloQtLib::QtAgent::AgentSession *const m_session;
    MireloQtLib::QtAgent::Conversation m_conversation;
    QPointer<const AnswerWatch> m_watch;
    QString m_modelName;
    QString m_lastFailure; // to save
    QString m_arrived;     // of an answer that is not in the conversation yet
    QTimer m_timer;
};

#endif
