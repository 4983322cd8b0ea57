#ifndef MIRELOQTLIB_QTAGENT_SQLCONNECTION_P_H
#define MIRELOQTLIB_QTAGENT_SQLCONNECTION_P_H

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include <functional>
#include <map>

namespace MireloQtLib {
namespace QtAgent {

/// Runs statements on a connection of Qt Sql, to SQLite or to PostgreSQL, for the thread that it belongs to.
/// The connection is the caller's, and must outlive this object.
class SqlConnection
{
public:
    /// Is handed the rows of a result, one after another.
    using RowFunction = std::function<void(const QSqlQuery &)>;

    explicit SqlConnection(const QSqlDatabase &database);
    virtual ~SqlConnection();
    Q_DISABLE_COPY(SqlConnection)

    /// The connection, for queries that are gone before it is.
    QSqlDatabase database() const;

    bool isSqlite() const;

    /// Runs @p sql, which is prepared once and kept, and hands each row of its result to @p row, which must
    /// not run the same statement. What another connection to a file holds is waited for, at most about a
    /// second. Returns false on failure, also after some of the rows.
    bool run(const QString &sql, const QVariantList &values = {}, const RowFunction &row = {});

    /// Runs a statement that changes no rows, such as those that begin transactions and make tables, which
    /// PostgreSQL does not prepare.
    bool execute(const QString &sql);

    /// How many rows the last run() has changed.
    int changedRows() const { return m_changedRows; }

    /// Closes the connection and opens it anew.
    bool reopen();

    /// Returns why the last statement failed, in words.
    QString errorText() const;

    /// Whether the last statement failed because SQLite calls the file no database, or malformed.
    bool foundDamage() const;

protected:
    SqlConnection() = default;

    /// Goes over to the connection @p name; what was prepared is forgotten.
    void setName(const QString &name);
    QString name() const { return m_name; }

    const QSqlError &error() const { return m_error; }
    void setError(const QSqlError &error) { m_error = error; }

private:
    bool runOnce(const QString &sql, const QVariantList &values, const RowFunction &row);
    QSqlQuery *prepared(const QString &sql);
    int sqliteCode() const;

    QString m_name;
    std::map<QString, QSqlQuery> m_queries;
    QSqlError m_error;
    int m_changedRows = 0;
};

/// Writes everything or nothing: what is not committed is rolled back at the end of the object's life.
class SqlTransaction
{
public:
    explicit SqlTransaction(SqlConnection *connection);
    ~SqlTransaction();
    Q_DISABLE_COPY(SqlTransaction)

    /// Begins. In SQLite nobody else writes then until the end of the transaction. The connection has the
    /// error.
    bool begin();

    /// Returns whether everything since begin() is in the database. The connection has the error.
    bool commit();

private:
    SqlConnection *const m_connection;
    bool m_isOpen = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
