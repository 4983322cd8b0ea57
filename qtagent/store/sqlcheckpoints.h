#ifndef MIRELOQTLIB_QTAGENT_SQLCHECKPOINTS_H
#define MIRELOQTLIB_QTAGENT_SQLCHECKPOINTS_H

#include <qtagent/checkpointstorage.h>
#include <qtagent/store/qtagent_store_export.h>

#include <QSqlDatabase>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class SqlConnection;

/// Keeps the checkpoints of a GraphRun in a database: in a file of SQLite, which is all that one machine
/// needs, or on a server of PostgreSQL, where the programs of several machines share them.
///
/// @code
/// QString error;
/// m_checkpoints = SqlCheckpoints::openSqlite(folder + "/checkpoints.sqlite", &error);
/// if (!m_checkpoints)
///     return showError(error);
/// m_run.setCheckpoints(m_checkpoints.get());
/// m_run.resume("job-1");
/// @endcode
/// or, with a connection of the program's own:
/// @code
/// QSqlDatabase database = QSqlDatabase::addDatabase("QPSQL", "checkpoints");
/// database.setHostName(host);
/// database.setDatabaseName(name);
/// database.setUserName(user);
/// database.setPassword(password);
/// database.setConnectOptions("connect_timeout=5");
/// if (!database.open())
///     return showError(database.lastError().text());
/// m_checkpoints = std::make_unique<SqlCheckpoints>(database);
/// m_run.setCheckpoints(m_checkpoints.get());
/// m_run.resume("job-1");
/// @endcode
/// The run is a member behind the checkpoints: they have to outlive it.
///
/// The tables are "qtagent_checkpoints" and "qtagent_schema". They are made at first use, where they are
/// missing. Thread ids, names of nodes and states are never part of a statement. All of them may be any
/// text; how long a thread id may be, is the engine's to say. Texts of the engine are told with "The database
/// cannot be used: %1", a file's damage with "The database is damaged: %1", and again by every later call,
/// none of which touches the file. Other errors are
/// - "The database is locked by another program.", after a second,
/// - "The checkpoints were written by a newer version of the program.",
/// - "The thread is not claimed by this owner.", from save(),
/// - "The thread is in use.", from remove(),
/// - "The state cannot be kept as JSON.", from save(): it has more than 1,024 levels, or a number that is
///   none,
/// - "The state is damaged.", from load().
///
/// **SQLite**: what was saved survives the death of the program; a power cut may take the last checkpoints
/// (WAL, synchronous NORMAL). The file belongs on a disk of this machine. The leases go by its clock.
///
/// **PostgreSQL**: the leases go by the server's clock. A connection that was lost is opened again by the
/// next claim(), with the options and the password that it was set up with. How long that may take, and keep
/// the event loop waiting, say the options of the connection.
///
/// Belongs to the thread of its connection.
class QTAGENT_STORE_EXPORT SqlCheckpoints : public CheckpointStorage
{
public:
    /// Opens the file at @p path, or begins one, with a folder for it, that its owner alone can read. Returns
    /// null on failure, with the reason in @p error, which is emptied otherwise. A file that is damaged, that
    /// is not one of this class, or that a newer version has written, is never written to.
    ///
    /// The connection is one of its own, and ends with the object. Several objects and programs may have the
    /// same file open.
    static std::unique_ptr<SqlCheckpoints> openSqlite(const QString &path, QString *error = nullptr);

    /// Uses @p database, which is open, to SQLite or to PostgreSQL, and in no transaction. It must be neither
    /// closed nor removed during the object's life. A database of SQLite is set to WAL and synchronous
    /// NORMAL, and the connection's own time-out for locks to 0, for the object waits itself: other
    /// statements on the connection then do not wait. Nothing is done before the first call.
    explicit SqlCheckpoints(const QSqlDatabase &database);
    ~SqlCheckpoints() override;

    /// @name CheckpointStorage
    /// @{
    Claim claim(const QString &threadId, const QString &owner, qint64 leaseMs, QString *error) override;
    bool save(const Checkpoint &checkpoint, const QString &owner, QString *error) override;
    Checkpoint load(const QString &threadId, QString *error) const override;
    void release(const QString &threadId, const QString &owner) override;
    QVector<Checkpoint> threads(QString *error) const override;
    bool remove(const QString &threadId, QString *error) override;
    /// @}

private:
    class Tables;

    explicit SqlCheckpoints(std::unique_ptr<SqlConnection> connection);

    const std::unique_ptr<Tables> m_tables;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
