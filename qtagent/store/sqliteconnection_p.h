#ifndef MIRELOQTLIB_QTAGENT_SQLITECONNECTION_P_H
#define MIRELOQTLIB_QTAGENT_SQLITECONNECTION_P_H

#include "sqlconnection_p.h"

#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// What the files of one kind have in common, and what tells them from those of other programs.
struct SqliteFormat
{
    /// The number in the header that names the kind (PRAGMA application_id), not 0.
    qint32 applicationId = 0;
    /// The version of the tables (PRAGMA user_version), 1 or more.
    qint32 version = 0;
    /// The statements that make the tables of a new file.
    QStringList tables;
};

/// A connection of its own to a file of SQLite, for the thread that opens it. It is gone with the object.
///
/// @code
/// SqliteConnection connection;
/// const auto opening = connection.open(path, format, SqliteConnection::Look::Thorough, &error);
/// SqlTransaction transaction(&connection);
/// return opening == SqliteConnection::Opening::Opened && transaction.begin()
///     && connection.run(sql, values) && transaction.commit();
/// @endcode
///
/// What was written when a call returns survives the death of the program; a power cut may take the last
/// writes (WAL, synchronous NORMAL).
class SqliteConnection : public SqlConnection
{
public:
    enum class Opening {
        /// The file is of the kind, and can be written to.
        Opened,
        /// SQLite calls the file no database, or malformed. It was not written to.
        Damaged,
        /// Anything else, told in words: no permission, a lock, another program's file, a newer version. The
        /// file was not written to.
        Refused,
    };

    enum class Look {
        /// A file that looks damaged by itself counts as damaged. It is not gone into, for another program
        /// may be about to rename it; but that may also be writing there, and nothing is damaged.
        Quick,
        /// Only what SQLite says with its log and its locks counts.
        Thorough,
    };

    SqliteConnection() = default;
    ~SqliteConnection() override;

    /// Lets a connection to SQLite write to a log first, so that readers do not wait for writers.
    static bool switchToWriteAheadLog(SqlConnection *connection);

    /// Closes, then opens the file at @p path. Where there is none, or an empty one, a file is begun that its
    /// owner alone can read, and a missing folder likewise. @p error is set unless the result is Opened.
    Opening open(const QString &path, const SqliteFormat &format, Look look, QString *error);

    /// Ends the connection. The last one of a file takes its log along.
    void close();

private:
    struct FoundFormat;

    Opening openFile(const QString &path, const SqliteFormat &format, Look look, QString *error);
    Opening judge(const QString &path, const SqliteFormat &format, Look look, QString *error);
    Opening failure(QString *error) const;
    bool connectTo(const QString &databaseName, const QString &options = {});
    bool readFormat(FoundFormat *found);
    bool makeTables(const SqliteFormat &format);
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
