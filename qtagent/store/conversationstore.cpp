#include "conversationstore.h"

#include "conversationformats_p.h"
#include "conversationtables_p.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <functional>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int lockTimeoutMs = 1000;
constexpr int lockPollMs = 10;

using Look = SqliteConnection::Look;
using Opening = SqliteConnection::Opening;

void report(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

// What belongs to a database, the file itself last: until it is moved, whoever opens it finds the damage.
QStringList suffixes()
{
    return {QStringLiteral("-journal"), QStringLiteral("-wal"), QStringLiteral("-shm"), QString()};
}

bool isFree(const QString &path)
{
    const QStringList all = suffixes();
    return std::none_of(all.cbegin(), all.cend(),
                        [&path](const QString &suffix) { return QFileInfo::exists(path + suffix); });
}

// What a link leads to. Another program may just have moved it away.
QString realPath(const QString &path)
{
    const QString canonicalPath = QFileInfo(path).canonicalFilePath();
    return canonicalPath.isEmpty() ? QFileInfo(path).absoluteFilePath() : canonicalPath;
}

QString freeNameBeside(const QString &path)
{
    int number = 1;
    const auto name = [&] { return QStringLiteral("%1.damaged-%2").arg(path, QString::number(number)); };
    while (!isFree(name()))
        ++number;
    return name();
}

// Moves all or none.
bool move(const QStringList &suffixes, const QString &from, const QString &to)
{
    if (suffixes.isEmpty())
        return true;
    const QString &suffix = suffixes.first();
    const bool isThere = QFileInfo::exists(from + suffix);
    if (isThere && !QDir().rename(from + suffix, to + suffix))
        return false;
    if (move(suffixes.mid(1), from, to))
        return true;
    if (isThere)
        QDir().rename(to + suffix, from + suffix);
    return false;
}

// QLockFile by itself looks rarely whether a lock is free, and so might wait in vain beside several programs.
bool lockSoon(QLockFile *lock)
{
    const QDeadlineTimer deadline(lockTimeoutMs);
    bool isLocked = lock->tryLock(0);
    while (!isLocked && lock->error() == QLockFile::LockFailedError && !deadline.hasExpired()) {
        QThread::msleep(lockPollMs);
        isLocked = lock->tryLock(0);
    }
    return isLocked;
}

// One program at a time sets the file aside; the others find the one that was begun in its place.
Opening replaceDamaged(const QString &path, ConversationTables *tables, QString *error, QString *setAsidePath)
{
    QLockFile lock(path + QLatin1String(".lock"));
    const bool isLocked = lockSoon(&lock);
    if (!isLocked && lock.error() == QLockFile::LockFailedError)
        *error = QStringLiteral("The database is locked by another program.");
    if (!isLocked)
        return Opening::Refused;
    const Opening opening = tables->open(path, Look::Thorough, error);
    const QString newPath = freeNameBeside(path);
    if (opening != Opening::Damaged || !move(suffixes(), path, newPath))
        return opening;
    *setAsidePath = newPath;
    lock.unlock();
    return tables->open(path, Look::Thorough, error);
}

// Says why a call failed, and that it did not.
bool perform(ConversationTables *tables, QString *error,
             const std::function<bool(ConversationTables *tables)> &call)
{
    const bool isDone = tables && call(tables);
    QString text;
    if (!isDone)
        text = tables ? tables->errorText() : QStringLiteral("The store is not open.");
    report(error, text);
    return isDone;
}

} // namespace

bool operator==(const StoredMessage &left, const StoredMessage &right)
{
    return left.message == right.message && left.time == right.time && left.model == right.model
        && left.promptTokens == right.promptTokens && left.completionTokens == right.completionTokens;
}

bool operator==(const Conversation &left, const Conversation &right)
{
    return left.id == right.id && left.title == right.title && left.model == right.model
        && left.created == right.created && left.changed == right.changed && left.revision == right.revision
        && left.messages == right.messages;
}

bool operator==(const ConversationEntry &left, const ConversationEntry &right)
{
    return left.id == right.id && left.title == right.title && left.model == right.model
        && left.created == right.created && left.changed == right.changed
        && left.messageCount == right.messageCount;
}

bool operator==(const SearchHit &left, const SearchHit &right)
{
    return left.conversationId == right.conversationId && left.title == right.title
        && left.messageIndex == right.messageIndex && left.excerpt == right.excerpt;
}

void Conversation::setMessages(const QVector<ChatMessage> &messages, const QString &model)
{
    const QVector<StoredMessage> before = this->messages;
    const StoredMessage added{{}, QDateTime::currentDateTimeUtc(), model};
    bool isKnown = true;
    this->messages.clear();
    for (const ChatMessage &message : messages) {
        const auto index = this->messages.size();
        isKnown = isKnown && index < before.size() && before.at(index).message == message;
        this->messages.append(isKnown ? before.at(index) : added);
        this->messages.last().message = message;
    }
}

QVector<ChatMessage> Conversation::chatMessages() const
{
    QVector<ChatMessage> result;
    result.reserve(messages.size());
    for (const StoredMessage &stored : messages)
        result.append(stored.message);
    return result;
}

ConversationStore::ConversationStore(QObject *parent)
    : QObject(parent)
{}

ConversationStore::~ConversationStore() = default;

QString ConversationStore::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation)
         + QLatin1String("/conversations.sqlite");
}

bool ConversationStore::open(const QString &path, QString *error)
{
    close();
    m_setAsidePath.clear();
    QString text;
    auto tables = std::make_unique<ConversationTables>();
    Opening opening = tables->open(path, Look::Quick, &text);
    if (opening == Opening::Damaged)
        opening = replaceDamaged(realPath(path), tables.get(), &text, &m_setAsidePath);
    if (opening == Opening::Opened)
        m_tables = std::move(tables);
    report(error, text);
    return isOpen();
}

void ConversationStore::close()
{
    m_tables.reset();
}

bool ConversationStore::isOpen() const
{
    return m_tables != nullptr;
}

QString ConversationStore::setAsidePath() const
{
    return m_setAsidePath;
}

Conversation ConversationStore::create(const QString &title, QString *error)
{
    Conversation conversation;
    conversation.title = title;
    return add(conversation, error);
}

Conversation ConversationStore::add(const Conversation &conversation, QString *error)
{
    Conversation added = conversation;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (!added.created.isValid())
        added.created = now;
    if (!added.changed.isValid())
        added.changed = now;
    const bool isAdded = perform(m_tables.get(), error,
                                 [&added](ConversationTables *tables) { return tables->insert(&added); });
    return isAdded ? added : Conversation();
}

bool ConversationStore::save(Conversation *conversation, QString *error)
{
    return perform(m_tables.get(), error,
                   [conversation](ConversationTables *tables) { return tables->save(conversation); });
}

Conversation ConversationStore::load(const QString &id, QString *error) const
{
    Conversation conversation;
    perform(m_tables.get(), error,
            [&](ConversationTables *tables) { return tables->load(id, &conversation); });
    return conversation;
}

QVector<ConversationEntry> ConversationStore::list(QString *error) const
{
    QVector<ConversationEntry> entries;
    const bool isRead =
        perform(m_tables.get(), error, [&](ConversationTables *tables) { return tables->list(&entries); });
    return isRead ? entries : QVector<ConversationEntry>();
}

QVector<SearchHit> ConversationStore::search(const QString &text, int limit, QString *error) const
{
    QVector<SearchHit> hits;
    const bool isSearched = perform(m_tables.get(), error, [&](ConversationTables *tables) {
        return tables->search(text, limit, &hits);
    });
    return isSearched ? hits : QVector<SearchHit>();
}

bool ConversationStore::remove(const QString &id, QString *error)
{
    return perform(m_tables.get(), error, [&id](ConversationTables *tables) { return tables->remove(id); });
}

QByteArray ConversationStore::toJson(const QString &id, QString *error) const
{
    const Conversation conversation = load(id, error);
    return conversation.id.isEmpty() ? QByteArray() : conversationToJson(conversation);
}

QString ConversationStore::toMarkdown(const QString &id, QString *error) const
{
    const Conversation conversation = load(id, error);
    return conversation.id.isEmpty() ? QString() : conversationToMarkdown(conversation);
}

Conversation ConversationStore::importJson(const QByteArray &json, QString *error)
{
    QString text;
    const Conversation conversation = conversationFromJson(json, &text);
    if (text.isEmpty() || !isOpen())
        return add(conversation, error);
    report(error, text);
    return {};
}

} // namespace QtAgent
} // namespace MireloQtLib
