#include "sqlcheckpoints.h"

#include "conversationformats_p.h"
#include "sqliteconnection_p.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>
#include <limits>

namespace MireloQtLib {
namespace QtAgent {

// One for each engine, with its clock in milliseconds.
struct CheckpointStatements
{
    QString claim;
    QString save;
    QString remove;
};

namespace {

constexpr int schemaVersion = 1;

CheckpointStatements statementsBy(const QString &now)
{
    // An owner that is null holds nothing, a next node that is null stands for no checkpoint.
    return {
        QStringLiteral("INSERT INTO qtagent_checkpoints (thread_id, owner, held_until) "
                       "VALUES (?, ?, ? + %1) ON CONFLICT (thread_id) DO UPDATE "
                       "SET owner = excluded.owner, held_until = excluded.held_until "
                       "WHERE qtagent_checkpoints.owner IS NULL "
                       "OR qtagent_checkpoints.owner = excluded.owner "
                       "OR qtagent_checkpoints.held_until <= %1")
            .arg(now),
        QStringLiteral("UPDATE qtagent_checkpoints SET state = ?, next = ?, interrupted = ?, attempt = ?, "
                       "fingerprint = ?, saved_at = %1 WHERE thread_id = ? AND owner = ?")
            .arg(now),
        QStringLiteral("DELETE FROM qtagent_checkpoints "
                       "WHERE thread_id = ? AND (owner IS NULL OR held_until <= %1)")
            .arg(now)};
}

const CheckpointStatements &sqliteStatements()
{
    static const CheckpointStatements statements =
        statementsBy(QStringLiteral("CAST(ROUND((julianday('now') - 2440587.5) * 86400000) AS INTEGER)"));
    return statements;
}

const CheckpointStatements &serverStatements()
{
    static const CheckpointStatements statements =
        statementsBy(QStringLiteral("CAST(EXTRACT(EPOCH FROM clock_timestamp()) * 1000 AS BIGINT)"));
    return statements;
}

QStringList tables()
{
    return {
        QLatin1String("CREATE TABLE IF NOT EXISTS qtagent_schema (version INTEGER NOT NULL)"),
        QLatin1String("CREATE TABLE IF NOT EXISTS qtagent_checkpoints (thread_id TEXT PRIMARY KEY, "
                      "owner TEXT, held_until BIGINT NOT NULL, next TEXT, interrupted INTEGER, "
                      "attempt INTEGER, fingerprint TEXT, saved_at BIGINT, state TEXT)"),
        QLatin1String("INSERT INTO qtagent_schema (version) SELECT ") + QString::number(schemaVersion)
            + QLatin1String(" WHERE NOT EXISTS (SELECT 1 FROM qtagent_schema)"),
    };
}

SqliteFormat fileFormat()
{
    constexpr qint32 applicationId = 0x4d514350;
    return {applicationId, schemaVersion, tables()};
}

// SQLite takes a byte order mark at the beginning of a text for itself, and replaces U+FFFE and U+FFFF;
// PostgreSQL knows no null characters, and neither of them halves of pairs. They are written as in JSON.
QString escaped(const QString &text)
{
    QString result(QLatin1String(""));
    for (int i = 0; i < text.size(); ++i) {
        const QChar character = text.at(i);
        const ushort code = character.unicode();
        const bool isPair =
            character.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        if (isPair)
            result.append(character).append(text.at(++i));
        else if (character.isSurrogate() || code == 0 || code == '\\' || code == 0xfeff || code >= 0xfffe)
            result += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
        else
            result += character;
    }
    return result;
}

QString unescaped(const QString &text)
{
    constexpr int escapeLength = 6;
    QString result;
    for (int i = 0; i < text.size(); ++i) {
        const bool isEscape = text.at(i) == QLatin1Char('\\');
        result += isEscape ? QChar(text.mid(i + 2, 4).toUShort(nullptr, 16)) : text.at(i);
        i += isEscape ? escapeLength - 1 : 0;
    }
    return result;
}

// Numbers that are none and halves of pairs are lost in JSON. Whether the same object comes back, a
// comparison does not tell: with Qt 5 it may have its keys in another order, and then counts as another one.
bool isKept(const QJsonValue &value, int levels);

bool areKept(const QJsonObject &object, int levels)
{
    if (levels == 0)
        return false;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.key().isValidUtf16() || !isKept(it.value(), levels - 1))
            return false;
    }
    return true;
}

bool isKept(const QJsonValue &value, int levels)
{
    if (value.isObject())
        return areKept(value.toObject(), levels);
    if (!value.isArray())
        return value.toString().isValidUtf16() && std::isfinite(value.toDouble());
    const QJsonArray array = value.toArray();
    return levels > 0 && std::all_of(array.begin(), array.end(), [levels](const QJsonValue &element) {
               return isKept(element, levels - 1);
           });
}

// The columns from the next node on.
Checkpoint checkpointOf(const QSqlQuery &query, const QString &threadId, int column)
{
    Checkpoint checkpoint;
    checkpoint.threadId = threadId;
    checkpoint.next = unescaped(query.value(column++).toString());
    checkpoint.interrupted = query.value(column++).toInt() != 0;
    checkpoint.attempt = query.value(column++).toInt();
    checkpoint.fingerprint = unescaped(query.value(column++).toString());
    checkpoint.savedAtMs = query.value(column).toLongLong();
    return checkpoint;
}

bool told(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return text.isEmpty();
}

} // namespace

// The tables in a database. A function that returns false has changed nothing, and errorText() tells why.
class SqlCheckpoints::Tables
{
public:
    explicit Tables(std::unique_ptr<SqlConnection> connection)
        : m_connection(std::move(connection))
        , m_statements(m_connection->isSqlite() ? sqliteStatements() : serverStatements())
    {}

    bool prepare();
    bool claim(const QString &threadId, const QString &owner, qint64 leaseMs);
    bool save(const Checkpoint &checkpoint, const QString &owner);
    bool load(const QString &threadId, Checkpoint *checkpoint);
    bool release(const QString &threadId, const QString &owner);
    bool list(QVector<Checkpoint> *checkpoints);
    bool remove(const QString &threadId);

    bool hasChanged() const { return m_connection->changedRows() > 0; }
    QString errorText() const { return m_refusal.isEmpty() ? m_connection->errorText() : m_refusal; }

private:
    bool findVersion();
    bool readVersion();
    bool makeTables();
    bool writeAhead();
    bool reconnect();
    bool refuse(const QString &reason);

    const std::unique_ptr<SqlConnection> m_connection;
    const CheckpointStatements &m_statements;
    QString m_refusal;
    int m_version = 0; // of the tables; 0 as long as it is not known
};

bool SqlCheckpoints::Tables::refuse(const QString &reason)
{
    m_refusal = reason;
    return false;
}

// Begins every call. A database of a newer version is left alone, and so is one in which an earlier call came
// upon damage: its error stands.
bool SqlCheckpoints::Tables::prepare()
{
    m_refusal.clear();
    if (m_connection->foundDamage())
        return false;
    if (!m_connection->database().isOpen())
        return refuse(QStringLiteral("The connection to the database is not open."));
    const bool isNew = m_version == 0;
    if (isNew && !findVersion())
        return false;
    if (m_version > schemaVersion)
        return refuse(QStringLiteral("The checkpoints were written by a newer version of the program."));
    return !isNew || writeAhead();
}

// Who waits for locks is the connection itself, in run().
bool SqlCheckpoints::Tables::findVersion()
{
    if (m_connection->isSqlite() && !m_connection->run(QLatin1String("PRAGMA busy_timeout = 0")))
        return false;
    return readVersion() || (!m_connection->foundDamage() && makeTables() && readVersion());
}

bool SqlCheckpoints::Tables::readVersion()
{
    return m_connection->run(QStringLiteral("SELECT version FROM qtagent_schema"), {},
                             [this](const QSqlQuery &query) { m_version = query.value(0).toInt(); })
        && m_version > 0;
}

// PostgreSQL does not bear that two programs make the same table at once.
bool SqlCheckpoints::Tables::makeTables()
{
    const QStringList statements = tables();
    SqlTransaction transaction(m_connection.get());
    return transaction.begin()
        && (m_connection->isSqlite()
            || m_connection->execute(QStringLiteral("SELECT pg_advisory_xact_lock(1297171280)")))
        && std::all_of(statements.cbegin(), statements.cend(),
                       [this](const QString &statement) { return m_connection->execute(statement); })
        && transaction.commit();
}

bool SqlCheckpoints::Tables::writeAhead()
{
    return !m_connection->isSqlite() || SqliteConnection::switchToWriteAheadLog(m_connection.get());
}

bool SqlCheckpoints::Tables::claim(const QString &threadId, const QString &owner, qint64 leaseMs)
{
    constexpr qint64 longestLeaseMs = std::numeric_limits<qint64>::max() / 4;
    const qint64 lease = qBound(qint64(0), leaseMs, longestLeaseMs);
    const auto ask = [&] {
        return prepare() && m_connection->run(m_statements.claim, {escaped(threadId), escaped(owner), lease});
    };
    return ask() || (reconnect() && ask());
}

// Returns whether there was a connection to a server that had been lost, and there is one again.
bool SqlCheckpoints::Tables::reconnect()
{
    if (m_connection->isSqlite() || m_version > schemaVersion)
        return false;
    const QString text = errorText();
    if (m_connection->database().isOpen() && m_connection->execute(QLatin1String("SELECT 1")))
        return refuse(text);
    m_version = 0;
    m_refusal.clear();
    return m_connection->reopen();
}

// What could not be read again is not written.
bool SqlCheckpoints::Tables::save(const Checkpoint &checkpoint, const QString &owner)
{
    if (!prepare())
        return false;
    constexpr int mostLevels = 1024; // that QJsonDocument reads
    if (!areKept(checkpoint.state, mostLevels))
        return refuse(QStringLiteral("The state cannot be kept as JSON."));
    const QByteArray state = jsonOf(QJsonDocument(checkpoint.state), QJsonDocument::Compact)
                                 .replace("\xef\xbf\xbe", "\\ufffe")
                                 .replace("\xef\xbf\xbf", "\\uffff");
    const QVariantList values{QString::fromUtf8(state),
                              escaped(checkpoint.next),
                              int(checkpoint.interrupted),
                              checkpoint.attempt,
                              escaped(checkpoint.fingerprint),
                              escaped(checkpoint.threadId),
                              escaped(owner)};
    if (!m_connection->run(m_statements.save, values))
        return false;
    return hasChanged() || refuse(QStringLiteral("The thread is not claimed by this owner."));
}

bool SqlCheckpoints::Tables::load(const QString &threadId, Checkpoint *checkpoint)
{
    QByteArray state;
    const auto read = [&](const QSqlQuery &query) {
        *checkpoint = checkpointOf(query, threadId, 1);
        state = query.value(0).toString().toUtf8();
    };
    if (!prepare()
        || !m_connection->run(QLatin1String("SELECT state, next, interrupted, attempt, fingerprint, saved_at "
                                            "FROM qtagent_checkpoints "
                                            "WHERE thread_id = ? AND next IS NOT NULL"),
                              {escaped(threadId)}, read))
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(state);
    checkpoint->state = document.object();
    return checkpoint->threadId.isEmpty() || document.isObject()
        || refuse(QStringLiteral("The state is damaged."));
}

// Nothing is left of a thread that was never saved.
bool SqlCheckpoints::Tables::release(const QString &threadId, const QString &owner)
{
    const QVariantList values{escaped(threadId), escaped(owner)};
    return prepare()
        && m_connection->run(QStringLiteral("UPDATE qtagent_checkpoints SET owner = NULL "
                                            "WHERE thread_id = ? AND owner = ?"),
                             values)
        && m_connection->run(QStringLiteral("DELETE FROM qtagent_checkpoints "
                                            "WHERE thread_id = ? AND owner IS NULL AND next IS NULL"),
                             values.mid(0, 1));
}

bool SqlCheckpoints::Tables::list(QVector<Checkpoint> *checkpoints)
{
    const auto append = [checkpoints](const QSqlQuery &query) {
        checkpoints->append(checkpointOf(query, unescaped(query.value(0).toString()), 1));
    };
    const auto isBefore = [](const Checkpoint &left, const Checkpoint &right) {
        return left.threadId < right.threadId;
    };
    const bool isRead = prepare()
                     && m_connection->run(
                         QLatin1String("SELECT thread_id, next, interrupted, attempt, fingerprint, saved_at "
                                       "FROM qtagent_checkpoints WHERE next IS NOT NULL"),
                         {}, append);
    std::sort(checkpoints->begin(), checkpoints->end(), isBefore);
    return isRead;
}

bool SqlCheckpoints::Tables::remove(const QString &threadId)
{
    const QVariantList values{escaped(threadId)};
    bool isThere = false;
    if (!prepare() || !m_connection->run(m_statements.remove, values))
        return false;
    if (hasChanged())
        return true;
    const bool isRead =
        m_connection->run(QStringLiteral("SELECT 1 FROM qtagent_checkpoints WHERE thread_id = ?"), values,
                          [&isThere](const QSqlQuery &) { isThere = true; });
    return isRead && (!isThere || refuse(QStringLiteral("The thread is in use.")));
}

std::unique_ptr<SqlCheckpoints> SqlCheckpoints::openSqlite(const QString &path, QString *error)
{
    QString text;
    auto connection = std::make_unique<SqliteConnection>();
    const auto opening = connection->open(path, fileFormat(), SqliteConnection::Look::Thorough, &text);
    if (opening != SqliteConnection::Opening::Opened) {
        told(error, text);
        return nullptr;
    }
    std::unique_ptr<SqlCheckpoints> checkpoints(new SqlCheckpoints(std::move(connection)));
    const bool isReady = checkpoints->m_tables->prepare();
    told(error, isReady ? QString() : checkpoints->m_tables->errorText());
    return isReady ? std::move(checkpoints) : nullptr;
}

SqlCheckpoints::SqlCheckpoints(const QSqlDatabase &database)
    : SqlCheckpoints(std::make_unique<SqlConnection>(database))
{}

SqlCheckpoints::SqlCheckpoints(std::unique_ptr<SqlConnection> connection)
    : m_tables(std::make_unique<Tables>(std::move(connection)))
{}

SqlCheckpoints::~SqlCheckpoints() = default;

SqlCheckpoints::Claim SqlCheckpoints::claim(const QString &threadId, const QString &owner, qint64 leaseMs,
                                            QString *error)
{
    const bool isDone = m_tables->claim(threadId, owner, leaseMs);
    told(error, isDone ? QString() : m_tables->errorText());
    if (!isDone)
        return Claim::Failed;
    return m_tables->hasChanged() ? Claim::Granted : Claim::Held;
}

bool SqlCheckpoints::save(const Checkpoint &checkpoint, const QString &owner, QString *error)
{
    return told(error, m_tables->save(checkpoint, owner) ? QString() : m_tables->errorText());
}

Checkpoint SqlCheckpoints::load(const QString &threadId, QString *error) const
{
    Checkpoint checkpoint;
    const bool isLoaded = m_tables->load(threadId, &checkpoint);
    told(error, isLoaded ? QString() : m_tables->errorText());
    return isLoaded ? checkpoint : Checkpoint();
}

void SqlCheckpoints::release(const QString &threadId, const QString &owner)
{
    m_tables->release(threadId, owner);
}

QVector<Checkpoint> SqlCheckpoints::threads(QString *error) const
{
    QVector<Checkpoint> checkpoints;
    const bool isRead = m_tables->list(&checkpoints);
    told(error, isRead ? QString() : m_tables->errorText());
    return isRead ? checkpoints : QVector<Checkpoint>();
}

bool SqlCheckpoints::remove(const QString &threadId, QString *error)
{
    return told(error, m_tables->remove(threadId) ? QString() : m_tables->errorText());
}

} // namespace QtAgent
} // namespace MireloQtLib
