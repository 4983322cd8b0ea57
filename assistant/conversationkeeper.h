#ifndef ORVANE_CONVERSATIONKEEPER_H
#define ORVANE_CONVERSATIONKEEPER_H

#include "answerwatch.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

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
///
/// What cannot be saved is tried again, at first after a second and then ever more rarely, and nothing else
/// is opened meanwhile. To open a conversation changes nothing of it.
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

    /// Returns whether all that was said is in the store.
    bool isSaved() const;

    /// Returns why it is not, or an empty text.
    QString saveError() const;

    /// Cancels what runs, and saves what is not saved yet. Returns isSaved().
    bool finish();

    /// Gives up what could not be saved, so that another conversation can be opened.
    void discard();

    /// Goes on with the conversation @p id. What runs is canceled, and kept first. Returns false, with
    /// failed(), where it cannot be read; then nothing else has happened. Returns false, too, where finish()
    /// does.
    bool open(const QString &id);

    /// Begins an empty conversation. What runs is canceled, and kept first. Returns false, without any other
    /// effect, where finish() does.
    bool begin();

    /// Asks the question that the message @p index belongs to again, without what followed it. That stays in
    /// the store until something of the new answer has arrived, and is back where the run ends before.
    /// Returns false, without any effect, while a run is in flight and where there is no question.
    bool askAgain(int index);

    /// Asks @p text in place of that question; all else is as askAgain() has it.
    bool askInstead(int index, const QString &text);

    /// Brings back what the last run has replaced. Returns false where it has replaced nothing, or where
    /// something was asked since.
    bool undoReplacing();

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

    /// isSaved() or saveError() has changed.
    void savedChanged();

    /// A run is over that askAgain() or askInstead() began and that brought nothing: what followed the
    /// question is back, and so is the question.
    void restored();

    /// A run is over that has replaced what followed its question; undoReplacing() brings that back.
    void replaced();

    /// A conversation could not be read, or another title not be saved.
    void failed(const QString &error);

private:
    void connectSession();
    void addDelta(const QString &delta);
    void takeRunning(bool isRunning);
    void takeConversation();
    void takeEnd(const MireloQtLib::QtAgent::RunOutcome &outcome);
    void describeAnswer(const MireloQtLib::QtAgent::RunOutcome &outcome);
    bool replace(int index, const std::function<bool()> &ask);
    bool isReplaced() const;
    bool restoreReplaced();
    void setCurrent(const MireloQtLib::QtAgent::Conversation &conversation);
    void takeMessages();
    void takeUsage();
    void save();
    void setSaveError(const QString &error);
    bool write(QString *error);
    bool saveCopy(QString *error);
    bool isChangedElsewhere() const;
    QVector<MireloQtLib::QtAgent::ChatMessage> messagesNow() const;

    MireloQtLib::QtAgent::ConversationStore *const m_store;
    MireloQtLib::QtAgent::AgentSession *const m_session;
    MireloQtLib::QtAgent::Conversation m_conversation;
    QPointer<const AnswerWatch> m_watch;
    QString m_modelName;
    QString m_saveError;
    int m_retryMs;
    bool m_isOpening = false;
    int m_answerAt = -1; // where the answer to the last request will stand
    int m_heldUntil =
        -1; // so many messages belong to a question that is asked anew, while nothing has arrived
    QVector<MireloQtLib::QtAgent::StoredMessage> m_replaced;
    QString m_arrived; // of an answer that is not in the conversation yet
    QTimer m_timer;
};

#endif
