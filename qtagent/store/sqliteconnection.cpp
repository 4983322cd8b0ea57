#include "sqliteconnection_p.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <QUuid>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QString driverName()
{
    return QStringLiteral("QSQLITE");
}

bool makePrivateFolder(const QString &folder)
{
    if (QFileInfo::exists(folder))
        return true;
    const bool isMade = QDir().mkpath(folder);
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return isMade;
}

// SQLite gives its log the permissions of the file. Opening a file that another connection of this program
// has open would take the locks of that connection away.
bool makePrivateFile(const QString &path)
{
    const bool isThere =
        QFile(path).open(QIODevice::WriteOnly | QIODevice::NewOnly) || QFileInfo(path).isFile();
    if (isThere)
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    return isThere;
}

} // namespace

// What a file says of itself.
struct SqliteConnection::FoundFormat
{
    qint32 applicationId = 0;
    qint32 version = 0;
    qint32 pageCount = 0;

    // Returns why it is not one of @p format that can be used, or an empty text. An empty file is one that is
    // yet to be begun.
    QString objectionTo(const SqliteFormat &format, const QString &path) const
    {
        if (pageCount > 0 && (applicationId != format.applicationId || version < 1))
            return QStringLiteral("%1 is the database of another program.").arg(path);
        if (version > format.version)
            return QStringLiteral("%1 was written by a newer version of the program.").arg(path);
        return {};
    }
};

SqliteConnection::~SqliteConnection()
{
    close();
}

SqliteConnection::Opening SqliteConnection::open(const QString &path, const SqliteFormat &format, Look look,
                                                 QString *error)
{
    error->clear();
    Opening opening = Opening::Refused;
    if (path.isEmpty() || path.contains(QChar::Null))
        *error = QStringLiteral("The path of the database is empty, or contains a null character.");
    else if (!QSqlDatabase::isDriverAvailable(driverName()))
        *error = QStringLiteral("The driver QSQLITE of Qt Sql is missing.");
    else
        opening = openFile(QFileInfo(path).absoluteFilePath(), format, look, error);
    if (opening != Opening::Opened)
        close();
    return opening;
}

SqliteConnection::Opening SqliteConnection::openFile(const QString &path, const SqliteFormat &format,
                                                     Look look, QString *error)
{
    const QFileInfo file(path);
    if (file.isFile() && file.size() > 0) {
        const Opening opening = judge(path, format, look, error);
        if (opening != Opening::Opened)
            return opening;
    } else if (!makePrivateFolder(file.path()) || !makePrivateFile(path)) {
        *error = QFileInfo::exists(path) ? QStringLiteral("%1 is not a file.").arg(path)
                                         : QStringLiteral("%1 cannot be made.").arg(path);
        return Opening::Refused;
    }
    FoundFormat found;
    if (!connectTo(path) || !makeTables(format) || !readFormat(&found))
        return failure(error);
    *error = found.objectionTo(format, path);
    if (!error->isEmpty())
        return Opening::Refused;
    return switchToWriteAheadLog(this) ? Opening::Opened : failure(error);
}

// Looks at the file without a write to it. A look at its log makes a file beside it, so the file alone comes
// first, for it may be another program's. A connection that may write would clear the log away when it ends,
// so the second one is read-only.
SqliteConnection::Opening SqliteConnection::judge(const QString &path, const SqliteFormat &format, Look look,
                                                  QString *error)
{
    FoundFormat found;
    const QString fileAlone =
        QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded) + QLatin1String("?immutable=1");
    if (connectTo(fileAlone, QLatin1String("QSQLITE_OPEN_URI;QSQLITE_OPEN_READONLY;")) && readFormat(&found))
        *error = found.objectionTo(format, path);
    else if (foundDamage() && look == Look::Quick)
        return failure(error);
    const bool hasLog = QFileInfo(QFileInfo(path).canonicalFilePath() + QLatin1String("-wal")).size() > 0;
    if (!error->isEmpty() || !hasLog)
        return error->isEmpty() ? Opening::Opened : Opening::Refused;
    if (connectTo(path, QLatin1String("QSQLITE_OPEN_READONLY;")) && readFormat(&found))
        *error = found.objectionTo(format, path);
    else if (foundDamage())
        return failure(error);
    return error->isEmpty() ? Opening::Opened : Opening::Refused;
}

SqliteConnection::Opening SqliteConnection::failure(QString *error) const
{
    *error = errorText();
    return foundDamage() ? Opening::Damaged : Opening::Refused;
}

bool SqliteConnection::connectTo(const QString &databaseName, const QString &options)
{
    close();
    setName(QStringLiteral("qtagent-") + QUuid::createUuid().toString(QUuid::WithoutBraces));
    QSqlDatabase database = QSqlDatabase::addDatabase(driverName(), name());
    database.setDatabaseName(databaseName);
    database.setConnectOptions(options + QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
    const bool isOpen = database.open();
    setError(database.lastError());
    return isOpen;
}

void SqliteConnection::close()
{
    const QString closed = name();
    setName({});
    if (!closed.isEmpty())
        QSqlDatabase::removeDatabase(closed);
}

bool SqliteConnection::readFormat(FoundFormat *found)
{
    const auto read = [found](const QSqlQuery &query) {
        *found = {query.value(0).toInt(), query.value(1).toInt(), query.value(2).toInt()};
    };
    return run(QStringLiteral("SELECT application_id, user_version, page_count "
                              "FROM pragma_application_id, pragma_user_version, pragma_page_count"),
               {}, read);
}

// Several programs may begin a file at once: the one that writes first makes the tables. In a file that was
// begun before the version is written, too, and taken back: SQLite tells no earlier that it may not be
// written to.
bool SqliteConnection::makeTables(const SqliteFormat &format)
{
    constexpr int pagesOfAnEmptyFile = 1; // in a transaction
    const QString setVersion = QStringLiteral("PRAGMA user_version = %1").arg(format.version);
    SqlTransaction transaction(this);
    FoundFormat found;
    if (!transaction.begin() || !readFormat(&found) || !run(setVersion))
        return false;
    if (found.applicationId != 0 || found.pageCount > pagesOfAnEmptyFile)
        return true;
    const QString setId = QStringLiteral("PRAGMA application_id = %1").arg(format.applicationId);
    return run(setId)
        && std::all_of(format.tables.cbegin(), format.tables.cend(),
                       [this](const QString &statement) { return run(statement); })
        && transaction.commit();
}

bool SqliteConnection::switchToWriteAheadLog(SqlConnection *connection)
{
    return connection->run(QStringLiteral("PRAGMA journal_mode = WAL"))
        && connection->run(QStringLiteral("PRAGMA synchronous = NORMAL"));
}

} // namespace QtAgent
} // namespace MireloQtLib
