#include "sqlconnection_p.h"

#include <QDeadlineTimer>
#include <QSqlDriver>
#include <QThread>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int busyTimeoutMs = 1000;
constexpr int pollIntervalMs = 2;

// The result codes of SQLite that are told apart here.
constexpr int busyCode = 5;
constexpr int corruptCode = 11;
constexpr int noDatabaseCode = 26;

} // namespace

SqlConnection::SqlConnection(const QSqlDatabase &database)
    : m_name(database.connectionName())
{}

SqlConnection::~SqlConnection() = default;

QSqlDatabase SqlConnection::database() const
{
    return QSqlDatabase::database(m_name, false);
}

bool SqlConnection::isSqlite() const
{
    return database().driver()->dbmsType() == QSqlDriver::SQLite;
}

void SqlConnection::setName(const QString &name)
{
    m_queries.clear();
    m_name = name;
}

bool SqlConnection::reopen()
{
    m_queries.clear();
    QSqlDatabase connection = database();
    connection.close();
    const bool isOpen = connection.open();
    m_error = connection.lastError();
    return isOpen;
}

// SQLite looks rarely whether a lock is free, in the end every 100 ms, which may fail for long beside
// programs that write without a pause; and for the switch to its log it does not wait at all.
bool SqlConnection::run(const QString &sql, const QVariantList &values, const RowFunction &row)
{
    const QDeadlineTimer deadline(busyTimeoutMs);
    bool isDone = runOnce(sql, values, row);
    while (!isDone && sqliteCode() == busyCode && !deadline.hasExpired()) {
        QThread::msleep(pollIntervalMs);
        isDone = runOnce(sql, values, row);
    }
    return isDone;
}

bool SqlConnection::execute(const QString &sql)
{
    if (isSqlite())
        return run(sql);
    QSqlQuery query(database());
    query.exec(sql);
    m_error = query.lastError();
    return !m_error.isValid();
}

bool SqlConnection::runOnce(const QString &sql, const QVariantList &values, const RowFunction &row)
{
    QSqlQuery *query = prepared(sql);
    if (!query)
        return false;
    for (int i = 0; i < values.size(); ++i)
        query->bindValue(i, values.at(i));
    query->exec();
    while (query->next()) {
        if (row)
            row(*query);
    }
    m_error = query->lastError();
    m_changedRows = query->numRowsAffected();
    query->finish();
    return !m_error.isValid();
}

QSqlQuery *SqlConnection::prepared(const QString &sql)
{
    const auto [position, isNew] = m_queries.try_emplace(sql, database());
    QSqlQuery *query = &position->second;
    if (!isNew)
        return query;
    query->setForwardOnly(true);
    if (query->prepare(sql))
        return query;
    m_error = query->lastError();
    m_queries.erase(position);
    return nullptr;
}

// Extended codes have more in their upper bytes. The codes of other engines are texts.
int SqlConnection::sqliteCode() const
{
    return isSqlite() ? m_error.nativeErrorCode().toInt() & 0xff : 0;
}

bool SqlConnection::foundDamage() const
{
    const int code = sqliteCode();
    return code == corruptCode || code == noDatabaseCode;
}

// What follows the first line is the statement, and where it went wrong.
QString SqlConnection::errorText() const
{
    const QString text = m_error.databaseText().trimmed().section(QLatin1Char('\n'), 0, 0);
    if (sqliteCode() == busyCode)
        return QStringLiteral("The database is locked by another program.");
    if (foundDamage())
        return QStringLiteral("The database is damaged: %1").arg(text);
    return QStringLiteral("The database cannot be used: %1").arg(text);
}

SqlTransaction::SqlTransaction(SqlConnection *connection)
    : m_connection(connection)
{}

// The error of what went wrong before stays that of the connection.
SqlTransaction::~SqlTransaction()
{
    if (m_isOpen)
        QSqlQuery(m_connection->database()).exec(QStringLiteral("ROLLBACK"));
}

bool SqlTransaction::begin()
{
    const QString sql =
        m_connection->isSqlite() ? QStringLiteral("BEGIN IMMEDIATE") : QStringLiteral("BEGIN");
    m_isOpen = m_connection->execute(sql);
    return m_isOpen;
}

bool SqlTransaction::commit()
{
    const bool isCommitted = m_connection->execute(QStringLiteral("COMMIT"));
    m_isOpen = !isCommitted;
    return isCommitted;
}

} // namespace QtAgent
} // namespace MireloQtLib
