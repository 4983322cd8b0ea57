#ifndef MIRELOQTLIB_QTAGENT_CONVERSATIONSTORE_H
#define MIRELOQTLIB_QTAGENT_CONVERSATIONSTORE_H

#include <qtagent/chatmessage.h>
#include <qtagent/store/qtagent_store_export.h>

#include <QByteArray>
#include <QDateTime>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVector>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class ConversationTables;

/// A message of a conversation that is kept, with what is known of it.
struct QTAGENT_STORE_EXPORT StoredMessage
{
    /// The message as it was sent, metadata included.
    ChatMessage message;
    /// When it came into the conversation.
    QDateTime time;
    /// The model that was asked then; empty where it is not known.
    QString model;
    /// The tokens of the request, or -1 where they are not known.
    qint64 promptTokens = -1;
    /// The tokens of the answer, or -1 where they are not known.
    qint64 completionTokens = -1;

    /// Returns whether all fields are equal.
    friend QTAGENT_STORE_EXPORT bool operator==(const StoredMessage &left, const StoredMessage &right);
    /// Returns whether a field differs.
    friend bool operator!=(const StoredMessage &left, const StoredMessage &right) { return !(left == right); }
};

/// A conversation as a ConversationStore keeps it.
struct QTAGENT_STORE_EXPORT Conversation
{
    /// The store's name for it. Empty in a conversation that a failed call returned.
    QString id;
    /// The title shown to the user.
    QString title;
    /// The model that the conversation is held with.
    QString model;
    /// When it was begun.
    QDateTime created;
    /// When it was saved last with something changed.
    QDateTime changed;
    /// Counts the changes: ConversationStore::save() finds out by it whether another program was faster.
    qint64 revision = 0;
    /// The messages, the oldest first.
    QVector<StoredMessage> messages;

    /// Replaces the messages by @p messages, for example those of an agent's conversation.
    ///
    /// What is known of the messages at the beginning, up to the first that differs, is kept. The others get
    /// the current time and @p model.
    void setMessages(const QVector<ChatMessage> &messages, const QString &model = {});

    /// Returns the messages as a model is sent them.
    QVector<ChatMessage> chatMessages() const;

    /// Returns whether all fields are equal.
    friend QTAGENT_STORE_EXPORT bool operator==(const Conversation &left, const Conversation &right);
    /// Returns whether a field differs.
    friend bool operator!=(const Conversation &left, const Conversation &right) { return !(left == right); }
};

/// A conversation in the list of a ConversationStore.
struct QTAGENT_STORE_EXPORT ConversationEntry
{
    /// What ConversationStore::load() takes.
    QString id;
    /// The title shown to the user.
    QString title;
    /// The model that the conversation is held with.
    QString model;
    /// When it was begun.
    QDateTime created;
    /// When it was saved last with something changed.
    QDateTime changed;
    /// The number of its messages.
    qint32 messageCount = 0;

    /// Returns whether all fields are equal.
    friend QTAGENT_STORE_EXPORT bool operator==(const ConversationEntry &left,
                                                const ConversationEntry &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ConversationEntry &left, const ConversationEntry &right)
    {
        return !(left == right);
    }
};

/// A message, or a title, that ConversationStore::search() found.
struct QTAGENT_STORE_EXPORT SearchHit
{
    /// What ConversationStore::load() takes.
    QString conversationId;
    /// The title of the conversation.
    QString title;
    /// The index of the message in Conversation::messages, or -1 where it is the title that was found.
    qint32 messageIndex = -1;
    /// The text around the first word that was found: one line of at most 120 characters, plain text.
    QString excerpt;

    /// Returns whether all fields are equal.
    friend QTAGENT_STORE_EXPORT bool operator==(const SearchHit &left, const SearchHit &right);
    /// Returns whether a field differs.
    friend bool operator!=(const SearchHit &left, const SearchHit &right) { return !(left == right); }
};

/// Keeps conversations in a file, and finds them again.
///
/// @code
/// auto *store = new ConversationStore(this);
/// QString error;
/// if (!store->open(ConversationStore::defaultPath(), &error))
///     return showError(error);
/// Conversation conversation = store->create(tr("New conversation"));
/// // After each message, and about once a second while an answer grows:
/// conversation.setMessages(session->conversation(), model->config().model);
/// if (!store->save(&conversation, &error))
///     showError(error);
/// @endcode
///
/// The file is a database of SQLite, which several programs may have open at once. Every call is done when it
/// returns: there is no timer, and nothing is left to save at the end. A call waits for at most about a
/// second for another program that is writing, then it fails.
///
/// A call that fails returns false, or an empty result, and says why in @p error, which may be null and is
/// emptied on success. While no file is open that is "The store is not open.". The texts are those of
/// docs/errors.md.
///
/// The store puts no key anywhere: neither profiles nor headers are handed to it. What is in a message is
/// kept as it is, its metadata included.
///
/// A store belongs to the thread that opens it. Times are kept in milliseconds and returned in UTC.
class QTAGENT_STORE_EXPORT ConversationStore : public QObject
{
    Q_OBJECT

public:
    /// Creates a store that is not open.
    explicit ConversationStore(QObject *parent = nullptr);
    ~ConversationStore() override;

    /// Returns "conversations.sqlite" in the folder for the data of this program
    /// (QStandardPaths::AppDataLocation).
    static QString defaultPath();

    /// Closes the store, then opens the file at @p path. Where there is none it is made, and its folder with
    /// it, both for the user alone.
    ///
    /// A file that SQLite calls no database, or malformed, is set aside: it is renamed, together with its
    /// log, and a new file is begun (see setAsidePath()). Returns false for anything else that hinders: a
    /// file that cannot be read or written, or that another program holds locked, the database of another
    /// program, one that a newer version of this library wrote, no driver of Qt for SQLite. Then the file is
    /// as it was.
    bool open(const QString &path, QString *error = nullptr);

    /// Closes the file. Nothing happens where none is open.
    void close();

    /// Returns whether a file is open.
    bool isOpen() const;

    /// Returns where the last open() put a damaged file, for a word to the user; empty where it did not.
    QString setAsidePath() const;

    /// Adds a conversation without messages, and returns it. Its id is empty on failure.
    Conversation create(const QString &title = {}, QString *error = nullptr);

    /// Writes what has changed in @p conversation since it was saved last, all of it or nothing, and brings
    /// its time of change and its revision up to date. Where nothing changed, nothing is written.
    ///
    /// When it returns true the conversation is in the file, and the death of the program takes nothing of
    /// it; a power cut may take the last seconds. It fails with "The conversation was changed by another
    /// program." where the file has a newer revision, "There is no such conversation." where it was removed
    /// meanwhile, and "The metadata or the tool calls of message %1 cannot be kept as JSON." where metadata
    /// or tool calls could not be read back. Then neither the file nor @p conversation has changed.
    bool save(Conversation *conversation, QString *error = nullptr);

    /// Returns the conversation @p id. Its id is empty on failure.
    Conversation load(const QString &id, QString *error = nullptr) const;

    /// Returns all conversations, the newest change first.
    QVector<ConversationEntry> list(QString *error = nullptr) const;

    /// Returns at most @p limit places that have every word of @p text: contents of messages of the user and
    /// of the assistant, and titles. The conversation with the newest change comes first, in it the title and
    /// then the messages in their order.
    ///
    /// Blanks separate the words. Each may be a part of a longer one, in any case and any script, and nothing
    /// in it has a special meaning. A text without a word finds nothing.
    QVector<SearchHit> search(const QString &text, int limit = 100, QString *error = nullptr) const;

    /// Removes the conversation @p id, which may still be one that a host holds: saving it fails from now on.
    bool remove(const QString &id, QString *error = nullptr);

    /// Returns the conversation @p id as JSON, which importJson() reads: "title", "model", "created",
    /// "changed" and "messages", an array of objects with the keys "role", "content" (absent where it is
    /// null), "name", "metadata", "toolCalls", "toolCallId", "time", "model", "promptTokens" and
    /// "completionTokens". Times are written as "2026-01-31T23:59:59.000Z". Null on failure.
    QByteArray toJson(const QString &id, QString *error = nullptr) const;

    /// Returns the conversation @p id as Markdown for readers: the title and a section for each message. Null
    /// on failure.
    QString toMarkdown(const QString &id, QString *error = nullptr) const;

    /// Adds a conversation from the JSON of toJson(), under a new id and with the times that it has there,
    /// and returns it. Its id is empty on failure.
    ///
    /// Keys that are absent, unknown or of another type than expected are passed over. It fails where
    /// @p json is no JSON object with an array "messages" of objects that each have a text as "role".
    Conversation importJson(const QByteArray &json, QString *error = nullptr);

private:
    Conversation add(const Conversation &conversation, QString *error);

    std::unique_ptr<ConversationTables> m_tables;
    QString m_setAsidePath;
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::StoredMessage)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::Conversation)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ConversationEntry)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::SearchHit)

#endif
