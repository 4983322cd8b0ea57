#include "conversationtables_p.h"

#include "conversationformats_p.h"
#include "searchquery_p.h"

#include <QUuid>
#include <QtEndian>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

using Row = QVariantList;

SqliteFormat format()
{
    constexpr qint32 applicationId = 0x4d514356;
    constexpr qint32 version = 1;
    return {applicationId,
            version,
            {QStringLiteral("CREATE TABLE conversations (number INTEGER PRIMARY KEY, id TEXT UNIQUE, "
                            "revision INTEGER, title TEXT, model TEXT, created INTEGER, changed INTEGER, "
                            "messageCount INTEGER, sequence INTEGER UNIQUE)"),
             QStringLiteral("CREATE TABLE messages (key INTEGER PRIMARY KEY, role TEXT, content TEXT, "
                            "name TEXT, metadata TEXT, toolCalls TEXT, toolCallId TEXT, time INTEGER, "
                            "model TEXT, promptTokens INTEGER, completionTokens INTEGER)"),
             QStringLiteral("CREATE VIRTUAL TABLE texts USING fts5(tokens, content='', columnsize=0, "
                            "tokenize='ascii')")}};
}

QString noSuchConversation()
{
    return QStringLiteral("There is no such conversation.");
}

// The columns of a row of messages that other functions look at.
enum MessageColumn { RoleColumn, ContentColumn };

constexpr int keyBits = 32;

qint64 titleKey(qint64 number)
{
    return number << keyBits;
}

int messageIndexOf(qint64 key)
{
    return static_cast<int>(key & ((qint64(1) << keyBits) - 1)) - 1;
}

// SQLite takes a byte order mark away and replaces what is no character.
bool isKeptAsText(const QString &text)
{
    return text.isValidUtf16() && !text.startsWith(QChar::ByteOrderMark) && !text.contains(QChar(0xfffe))
        && !text.contains(QChar(0xffff));
}

QVariant valueOf(const QString &text)
{
    if (text.isNull())
        return {};
    if (isKeptAsText(text))
        return text;
    QByteArray bytes(text.size() * 2, Qt::Uninitialized);
    qToLittleEndian<quint16>(text.utf16(), text.size(), bytes.data());
    return bytes;
}

QString textOf(const QVariant &value)
{
    if (value.userType() != QMetaType::QByteArray)
        return value.toString();
    const QByteArray bytes = value.toByteArray();
    QString text(bytes.size() / 2, Qt::Uninitialized);
    qFromLittleEndian<quint16>(bytes.constData(), text.size(), text.data());
    return text;
}

QVariant valueOf(const QDateTime &time)
{
    return time.isValid() ? QVariant(time.toMSecsSinceEpoch()) : QVariant();
}

QDateTime timeOf(const QVariant &value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong(), Qt::UTC);
}

template<typename Json>
QVariant jsonValueOf(const Json &json)
{
    if (json.isEmpty())
        return {};
    return valueOf(QString::fromUtf8(jsonOf(QJsonDocument(json), QJsonDocument::Compact)));
}

QJsonDocument documentOf(const QVariant &value)
{
    return QJsonDocument::fromJson(textOf(value).toUtf8());
}

Row rowOf(const StoredMessage &stored)
{
    const ChatMessage &message = stored.message;
    return {valueOf(message.role),         valueOf(message.content),       valueOf(message.name),
            jsonValueOf(message.metadata), jsonValueOf(message.toolCalls), valueOf(message.toolCallId),
            valueOf(stored.time),          valueOf(stored.model),          stored.promptTokens,
            stored.completionTokens};
}

StoredMessage messageOf(const Row &row)
{
    StoredMessage stored;
    auto value = row.cbegin();
    stored.message.role = textOf(*value++);
    stored.message.content = textOf(*value++);
    stored.message.name = textOf(*value++);
    stored.message.metadata = documentOf(*value++).object();
    stored.message.toolCalls = documentOf(*value++).array();
    stored.message.toolCallId = textOf(*value++);
    stored.time = timeOf(*value++);
    stored.model = textOf(*value++);
    stored.promptTokens = (*value++).toLongLong();
    stored.completionTokens = (*value++).toLongLong();
    return stored;
}

Row rowOf(const Conversation &conversation)
{
    return {valueOf(conversation.title), valueOf(conversation.model), valueOf(conversation.created)};
}

// What QVariant takes for equal it may have converted first.
bool isSameValue(const QVariant &left, const QVariant &right)
{
    if (left.isNull() || right.isNull())
        return left.isNull() == right.isNull();
    return left.userType() == right.userType() && left == right;
}

bool isSameRow(const Row &left, const Row &right)
{
    if (left.isSharedWith(right))
        return true;
    return std::equal(left.cbegin(), left.cend(), right.cbegin(), right.cend(), isSameValue);
}

// Null and empty texts are equal, but not in the file.
bool areNullAlike(const StoredMessage &left, const StoredMessage &right)
{
    return left.message.role.isNull() == right.message.role.isNull()
        && left.message.content.isNull() == right.message.content.isNull()
        && left.message.name.isNull() == right.message.name.isNull()
        && left.message.toolCallId.isNull() == right.message.toolCallId.isNull()
        && left.model.isNull() == right.model.isNull();
}

bool areSameRows(const QVector<Row> &left, const QVector<Row> &right)
{
    return std::equal(left.cbegin(), left.cend(), right.cbegin(), right.cend(), isSameRow);
}

// What a search finds of a message.
QString searchedTextOf(const Row &message)
{
    const QString role = textOf(message.value(RoleColumn));
    const bool isSearched = role == QLatin1String("user") || role == QLatin1String("assistant");
    return isSearched ? textOf(message.value(ContentColumn)) : QString();
}

Row valuesOf(const QSqlQuery &query, int first, int count)
{
    Row row;
    for (int i = first; i < first + count; ++i)
        row.append(query.value(i));
    return row;
}

} // namespace

// A conversation as it stands in the tables.
struct ConversationTables::StoredConversation
{
    qint64 number = 0;
    qint64 revision = 0;
    QVariant changed;
    Row row;
    QVector<Row> messages;
};

// The one that was read or written last. A conversation is saved again and again while an answer streams into
// it: as long as no other program has changed it, only what is new is made into rows and looked at.
struct ConversationTables::KnownConversation
{
    QString id;
    QVector<StoredMessage> messages;
    StoredConversation stored;
};

// A text that the index names: a title, or the content of a message.
struct ConversationTables::FoundText
{
    qint64 key = 0;
    QString conversationId;
    QString title;
};

ConversationTables::ConversationTables() = default;

ConversationTables::~ConversationTables() = default;

SqliteConnection::Opening ConversationTables::open(const QString &path, SqliteConnection::Look look,
                                                   QString *error)
{
    return m_connection.open(path, format(), look, error);
}

QString ConversationTables::errorText() const
{
    return m_refusal.isEmpty() ? m_connection.errorText() : m_refusal;
}

bool ConversationTables::refuse(const QString &reason)
{
    m_refusal = reason;
    return false;
}

bool ConversationTables::insert(Conversation *conversation)
{
    m_refusal.clear();
    Conversation inserted = *conversation;
    inserted.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    inserted.revision = 1;
    QVector<Row> messages;
    SqlTransaction transaction(&m_connection);
    StoredConversation stored;
    if (!makeRows(inserted, nullptr, &messages) || !transaction.begin()
        || !m_connection.run(QStringLiteral("INSERT INTO conversations (id) VALUES (?)"), {inserted.id})
        || !read(inserted.id, &stored) || !write(stored, inserted, messages) || !transaction.commit())
        return false;
    *conversation = inserted;
    return true;
}

bool ConversationTables::save(Conversation *conversation)
{
    m_refusal.clear();
    if (!conversation)
        return refuse(noSuchConversation());
    QVector<Row> messages;
    SqlTransaction transaction(&m_connection);
    StoredConversation stored;
    if (!transaction.begin())
        return false;
    const KnownConversation *known = stillKnown(conversation->id);
    if (known)
        stored = known->stored;
    else if (!read(conversation->id, &stored))
        return false;
    if (!makeRows(*conversation, known, &messages))
        return false;
    if (stored.revision > conversation->revision)
        return refuse(QStringLiteral("The conversation was changed by another program."));
    if (isSameRow(stored.row, rowOf(*conversation)) && areSameRows(stored.messages, messages))
        return true;
    Conversation saved = *conversation;
    saved.changed = QDateTime::currentDateTimeUtc();
    saved.revision += 1;
    if (!write(stored, saved, messages) || !transaction.commit())
        return false;
    *conversation = saved;
    keepKnown(saved, {stored.number, saved.revision, valueOf(saved.changed), rowOf(saved), messages});
    return true;
}

bool ConversationTables::load(const QString &id, Conversation *conversation)
{
    m_refusal.clear();
    StoredConversation stored;
    if (!read(id, &stored))
        return false;
    conversation->id = id;
    conversation->title = textOf(stored.row.at(0));
    conversation->model = textOf(stored.row.at(1));
    conversation->created = timeOf(stored.row.at(2));
    conversation->changed = timeOf(stored.changed);
    conversation->revision = stored.revision;
    for (const Row &message : qAsConst(stored.messages))
        conversation->messages.append(messageOf(message));
    keepKnown(*conversation, stored);
    return true;
}

// Null where the file has another revision by now.
const ConversationTables::KnownConversation *ConversationTables::stillKnown(const QString &id)
{
    if (!m_known || m_known->id != id)
        return nullptr;
    qint64 revision = 0;
    const auto readRevision = [&revision](const QSqlQuery &query) { revision = query.value(0).toLongLong(); };
    const bool isRead = m_connection.run(QStringLiteral("SELECT revision FROM conversations WHERE id = ?"),
                                         {id}, readRevision);
    return isRead && revision == m_known->stored.revision ? m_known.get() : nullptr;
}

void ConversationTables::keepKnown(const Conversation &conversation, const StoredConversation &stored)
{
    m_known.reset(new KnownConversation{conversation.id, conversation.messages, stored});
}

bool ConversationTables::list(QVector<ConversationEntry> *entries)
{
    m_refusal.clear();
    const auto append = [entries](const QSqlQuery &query) {
        entries->append({query.value(0).toString(), textOf(query.value(1)), textOf(query.value(2)),
                         timeOf(query.value(3)), timeOf(query.value(4)), query.value(5).toInt()});
    };
    return m_connection.run(QStringLiteral("SELECT id, title, model, created, changed, messageCount "
                                           "FROM conversations ORDER BY changed DESC, sequence DESC"),
                            {}, append);
}

bool ConversationTables::remove(const QString &id)
{
    m_refusal.clear();
    SqlTransaction transaction(&m_connection);
    StoredConversation stored;
    return transaction.begin() && read(id, &stored) && writeMessages(stored.number, stored.messages, {})
        && index(titleKey(stored.number), textOf(stored.row.at(0)), {})
        && m_connection.run(QStringLiteral("DELETE FROM conversations WHERE number = ?"), {stored.number})
        && transaction.commit();
}

// What could not be read again is not written.
bool ConversationTables::makeRows(const Conversation &conversation, const KnownConversation *known,
                                  QVector<Row> *rows)
{
    for (const StoredMessage &message : conversation.messages) {
        const auto index = rows->size();
        if (known && index < known->messages.size() && known->messages.at(index) == message
            && areNullAlike(known->messages.at(index), message)) {
            rows->append(known->stored.messages.at(index));
            continue;
        }
        rows->append(rowOf(message));
        const ChatMessage readBack = messageOf(rows->last()).message;
        if (readBack.metadata != message.message.metadata || readBack.toolCalls != message.message.toolCalls)
            return refuse(
                QStringLiteral("The metadata or the tool calls of message %1 cannot be kept as JSON.")
                    .arg(rows->size() - 1));
    }
    return true;
}

// One statement, so that another program's change is seen whole or not at all.
bool ConversationTables::read(const QString &id, StoredConversation *stored)
{
    const auto readRow = [stored](const QSqlQuery &query) {
        stored->number = query.value(0).toLongLong();
        stored->revision = query.value(1).toLongLong();
        stored->changed = query.value(2);
        stored->row = valuesOf(query, 3, 3);
        if (!query.isNull(6))
            stored->messages.append(valuesOf(query, 7, 10));
    };
    const QString sql = QStringLiteral(
        "SELECT c.number, c.revision, c.changed, c.title, c.model, c.created, m.key, m.role, m.content, "
        "m.name, m.metadata, m.toolCalls, m.toolCallId, m.time, m.model, m.promptTokens, m.completionTokens "
        "FROM conversations AS c LEFT JOIN messages AS m ON m.key > c.number << 32 "
        "AND m.key < (c.number + 1) << 32 WHERE c.id = ? ORDER BY m.key");
    if (!m_connection.run(sql, {id}, readRow))
        return false;
    return stored->number != 0 || refuse(noSuchConversation());
}

bool ConversationTables::write(const StoredConversation &stored, const Conversation &conversation,
                               const QVector<Row> &messages)
{
    const Row row = rowOf(conversation);
    const QString sql = QStringLiteral(
        "UPDATE conversations SET title = ?, model = ?, created = ?, changed = ?, revision = ?, "
        "messageCount = ?, sequence = (SELECT ifnull(max(sequence), 0) + 1 FROM conversations) "
        "WHERE number = ?");
    return m_connection.run(sql, row
                                     + Row{valueOf(conversation.changed), conversation.revision,
                                           messages.size(), stored.number})
        && index(titleKey(stored.number), textOf(stored.row.value(0)), conversation.title)
        && writeMessages(stored.number, stored.messages, messages);
}

bool ConversationTables::writeMessages(qint64 number, const QVector<Row> &before, const QVector<Row> &after)
{
    const auto count = qMax(before.size(), after.size());
    for (decltype(before.size()) i = 0; i < count; ++i) {
        if (!writeMessage(titleKey(number) + 1 + i, before.value(i), after.value(i)))
            return false;
    }
    return true;
}

bool ConversationTables::writeMessage(qint64 key, const Row &before, const Row &after)
{
    if (isSameRow(before, after))
        return true;
    if (!index(key, searchedTextOf(before), searchedTextOf(after)))
        return false;
    if (after.isEmpty())
        return m_connection.run(QStringLiteral("DELETE FROM messages WHERE key = ?"), {key});
    return m_connection.run(QStringLiteral("REPLACE INTO messages VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                            Row{key} + after);
}

// The index keeps no texts: to forget one it has to be told what it was.
bool ConversationTables::index(qint64 key, const QString &before, const QString &after)
{
    const QString forgotten = SearchQuery::indexTokens(before);
    const QString added = SearchQuery::indexTokens(after);
    if (forgotten == added)
        return true;
    const bool isForgotten =
        forgotten.isEmpty()
        || m_connection.run(
            QStringLiteral("INSERT INTO texts (texts, rowid, tokens) VALUES ('delete', ?, ?)"),
            {key, forgotten});
    return isForgotten
        && (added.isEmpty()
            || m_connection.run(QStringLiteral("INSERT INTO texts (rowid, tokens) VALUES (?, ?)"),
                                {key, added}));
}

// Many pairs in a row take long to look up where all texts have them, and a few mostly suffice. Where too
// much of what they find has to be dropped, a few others are looked up, and in the end all.
bool ConversationTables::search(const QString &text, int limit, QVector<SearchHit> *hits)
{
    constexpr int fewPairs = 4;
    constexpr int allPairs = 100;
    constexpr int attempts = 3;
    constexpr qint64 spareTexts = 100;
    constexpr qint64 allTexts = -1;
    m_refusal.clear();
    SearchQuery query(text);
    if (query.isEmpty() || limit <= 0)
        return true;
    QVector<FoundText> texts;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const int pairs = qMax(1, fewPairs / query.wordCount());
        if (!lookUp(query, pairs, limit + spareTexts, &texts) || !compare(&query, texts, limit, hits))
            return false;
        if (hits->size() == limit || texts.size() < limit + spareTexts)
            return true;
    }
    return lookUp(SearchQuery(text), allPairs, allTexts, &texts) && compare(&query, texts, limit, hits);
}

// What was begun last was mostly changed last, so sorting has less to do where it comes first.
bool ConversationTables::lookUp(const SearchQuery &query, int pairsPerWord, qint64 limit,
                                QVector<FoundText> *texts)
{
    texts->clear();
    const auto append = [texts](const QSqlQuery &row) {
        texts->append({row.value(0).toLongLong(), row.value(1).toString(), textOf(row.value(2))});
    };
    const QString sql =
        QStringLiteral("SELECT key, id, title FROM "
                       "(SELECT rowid AS key FROM texts WHERE texts MATCH ? ORDER BY rowid DESC LIMIT -1) "
                       "CROSS JOIN conversations ON number = key >> 32 "
                       "ORDER BY changed DESC, sequence DESC, key LIMIT ?");
    return m_connection.run(sql, {query.indexExpression(pairsPerWord), limit}, append);
}

bool ConversationTables::compare(SearchQuery *query, const QVector<FoundText> &texts, int limit,
                                 QVector<SearchHit> *hits)
{
    hits->clear();
    for (auto text = texts.cbegin(); text != texts.cend() && hits->size() < limit; ++text) {
        const int messageIndex = messageIndexOf(text->key);
        QString content = messageIndex < 0 ? text->title : QString();
        const auto take = [&content](const QSqlQuery &row) { content = textOf(row.value(0)); };
        if (messageIndex >= 0
            && !m_connection.run(QStringLiteral("SELECT content FROM messages WHERE key = ?"), {text->key},
                                 take))
            return false;
        if (query->matches(content))
            hits->append({text->conversationId, text->title, messageIndex, query->excerptOf(content)});
        else
            query->learn(content);
    }
    return true;
}

} // namespace QtAgent
} // namespace MireloQtLib
