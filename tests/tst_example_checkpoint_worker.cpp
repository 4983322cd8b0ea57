#include "support/postgrescluster.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr int limitMs = 60000;

// The program in a folder of its own, with its messages between what it prints.
class Worker : public QProcess
{
public:
    explicit Worker(const QString &folder, const QStringList &arguments = {}, const QString &server = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_FORCE_STDERR_LOGGING", "1");
        environment.remove("QT_MESSAGE_PATTERN");
        environment.remove("PGHOST");
        if (!server.isEmpty())
            environment.insert("PGHOST", server);
        environment.insert("PGDATABASE", "postgres");
        environment.insert("PGUSER", "tester");
        setProcessEnvironment(environment);
        setProcessChannelMode(QProcess::MergedChannels);
        setWorkingDirectory(folder);
        start(CHECKPOINT_WORKER, arguments);
    }

    /// Returns the next line, or an empty text at the end.
    QString line()
    {
        while (!canReadLine() && waitForReadyRead(limitMs)) {
        }
        return QString::fromUtf8(readLine()).trimmed();
    }

    /// Waits for the end and returns the lines that were not read yet, and the exit code.
    QStringList rest()
    {
        if (!waitForFinished(limitMs) || exitStatus() != QProcess::NormalExit)
            return {"crashed"};
        return QString::fromUtf8(readAll()).split('\n', Qt::SkipEmptyParts)
             + QStringList(QString("code %1").arg(exitCode()));
    }
};

} // namespace

class TestCheckpointWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jobOfAKilledWorkerIsTakenOver();
    void jobOnAServerIsDone();
    void fileThatCannotBeOpenedIsTold();
};

void TestCheckpointWorker::jobOfAKilledWorkerIsTakenOver()
{
    const QTemporaryDir folder;
    QCOMPARE(Worker(folder.path(), {"add", "pump-1"}).rest(), QStringList("code 0"));
    Worker first(folder.path());
    QCOMPARE(first.line(), "pump-1: measures, attempt 1");
    Worker second(folder.path());
    QCOMPARE(second.line(), "Thread 'pump-1' is running elsewhere.");
    first.kill();
    QVERIFY(first.waitForFinished(limitMs));
    QStringList lines = second.rest();
    lines.removeAll("Thread 'pump-1' is running elsewhere.");
    QCOMPARE(lines.value(0), "pump-1: measures, attempt 2");
    QCOMPARE(lines.last(), "code 0");
    QCOMPARE(Worker(folder.path()).rest(), QStringList("code 0"));
}

void TestCheckpointWorker::jobOnAServerIsDone()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    const QTemporaryDir folder;
    QCOMPARE(Worker(folder.path(), {"add", "pump-1"}, cluster.folder()).rest(), QStringList("code 0"));
    QStringList lines;
    for (int i = 0; i < 5; ++i)
        lines.append("pump-1: measures, attempt 1");
    QCOMPARE(Worker(folder.path(), {}, cluster.folder()).rest(), lines + QStringList("code 0"));
    QVERIFY(QDir(folder.path()).isEmpty());
}

void TestCheckpointWorker::fileThatCannotBeOpenedIsTold()
{
    const QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkdir("checkpoints.sqlite"));
    const QStringList lines = Worker(folder.path()).rest();
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines.first().endsWith("checkpoints.sqlite is not a file."), qPrintable(lines.first()));
    QCOMPARE(lines.last(), "code 1");
}

QTEST_GUILESS_MAIN(TestCheckpointWorker)
#include "tst_example_checkpoint_worker.moc"
