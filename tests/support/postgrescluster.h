#ifndef QTAGENT_TESTS_POSTGRESCLUSTER_H
#define QTAGENT_TESTS_POSTGRESCLUSTER_H

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTemporaryDir>

#ifdef Q_OS_UNIX
#    include <pwd.h>
#    include <unistd.h>
#endif

/// A server of PostgreSQL with an empty database, in a temporary folder and reachable through a socket there
/// alone. It ends with the object.
class PostgresCluster
{
public:
    ~PostgresCluster() { stop(); }

    /// Returns why there can be no server on this machine, or an empty text.
    static QString whatIsMissing()
    {
        if (!QSqlDatabase::isDriverAvailable("QPSQL"))
            return "The driver QPSQL of Qt Sql is not installed.";
        return program("initdb").isEmpty() ? "PostgreSQL is not installed." : QString();
    }

    /// Makes the cluster and starts it.
    bool create()
    {
        return m_folder.isValid() && giveAway(m_folder.path())
            && run({program("initdb"), "-D", data(), "-U", user(), "-A", "trust", "-E", "UTF8", "--locale=C",
                    "--no-sync"})
            && start();
    }

    /// Starts the server and returns when it takes connections.
    bool start()
    {
        const QStringList command = asServerUser({program("postgres"), "-D", data(), "-k", m_folder.path(),
                                                  "-c", "listen_addresses=", "-c", "fsync=off"});
        m_server.setProcessChannelMode(QProcess::MergedChannels);
        m_server.setStandardOutputFile(m_folder.filePath("server.log"));
        m_server.setWorkingDirectory(m_folder.path());
        m_server.start(command.first(), command.mid(1));
        while (m_server.waitForStarted(limitMs) && m_server.state() == QProcess::Running) {
            if (run({program("pg_isready"), "-h", m_folder.path()}))
                return true;
        }
        return false;
    }

    /// Ends the server and its connections.
    void stop()
    {
        if (m_server.state() == QProcess::NotRunning)
            return;
        run({program("pg_ctl"), "-D", data(), "-m", "immediate", "-w", "stop"});
        m_server.waitForFinished(limitMs);
    }

    QString folder() const { return m_folder.path(); }

    /// Adds a connection @p name to the server whose socket is in @p folder, and opens it.
    static QSqlDatabase connectTo(const QString &folder, const QString &name)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QPSQL", name);
        database.setHostName(folder);
        database.setUserName(user());
        database.setDatabaseName("postgres");
        database.open();
        return database;
    }

private:
    static constexpr int limitMs = 60000;

    static QString user() { return "tester"; }
    QString data() const { return m_folder.filePath("data"); }

    // Debian keeps the server's programs beside its others.
    static QString program(const QString &name)
    {
        QStringList folders;
        for (const QString &version :
             QDir("/usr/lib/postgresql").entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            folders.prepend("/usr/lib/postgresql/" + version + "/bin");
        const QString found = QStandardPaths::findExecutable(name, folders);
        return found.isEmpty() ? QStandardPaths::findExecutable(name) : found;
    }

    // The server does not run as root.
#ifdef Q_OS_UNIX
    static QString otherUser()
    {
        if (geteuid() != 0)
            return {};
        return getpwnam("postgres") ? "postgres" : "nobody";
    }

    static bool giveAway(const QString &folder)
    {
        const passwd *entry = otherUser().isEmpty() ? nullptr : getpwnam(qPrintable(otherUser()));
        return !entry || chown(qPrintable(folder), entry->pw_uid, entry->pw_gid) == 0;
    }
#else
    static QString otherUser()
    {
        return {};
    }
    static bool giveAway(const QString &)
    {
        return true;
    }
#endif

    static QStringList asServerUser(const QStringList &command)
    {
        const QString user = otherUser();
        if (user.isEmpty())
            return command;
        return QStringList{"runuser", "-u", user, "--"} + command;
    }

    bool run(const QStringList &command) const
    {
        const QStringList full = asServerUser(command);
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setStandardOutputFile(m_folder.filePath("commands.log"), QIODevice::Append);
        process.setWorkingDirectory(m_folder.path());
        process.start(full.first(), full.mid(1));
        return process.waitForFinished(limitMs) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    const QTemporaryDir m_folder;
    QProcess m_server;
};

#endif
