// Files of SqlCheckpoints that are not as they should be, disks that are full, and servers that go away.

#include "support/postgrescluster.h"
#include "support/sqlitefile.h"
#include "support/storedfixture.h"

#include <qtagent/store/sqlcheckpoints.h>

#include <QSqlQuery>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

using Claim = CheckpointStorage::Claim;

namespace {

constexpr qint64 longMs = 3600000;

Checkpoint checkpointOf(const QString &threadId, const QJsonObject &state = {})
{
    return {threadId, state, "review", false, 1, "f00d", 0};
}

} // namespace

class TestSqlCheckpointsFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void fileIsBegunWithItsFolder();
    void fileIsClosedWithItsObject();
    void fileWritesToALogFirst();
    void connectionToSqliteWritesToALogFirst();
    void fileThatIsNoneOfOursIsLeftAsItIs_data();
    void fileThatIsNoneOfOursIsLeftAsItIs();
    void newerFileIsLeftAsItIs();
    void lockedFileIsAnError_data();
    void lockedFileIsAnError();
    void runEndsInWordsWhereTheFileIsLocked();
    void runEndsInWordsWhereTheConnectionIsLost();
    void damageIsAnError();
    void fullDiskEndsTheRunAtTheLastGoodCheckpoint();
    void programsMayBeginAFileAtOnce();
    void connectionThatIsNotOpenIsAnError();
    void lostConnectionIsOpenedByTheNextClaim();
    void tablesMayBeMadeAtOnce();

private:
    QString path() const { return m_folder->filePath("checkpoints.sqlite"); }
    bool save(SqlCheckpoints *checkpoints, QString *error = nullptr) const
    {
        return checkpoints && checkpoints->claim("t", "me", longMs, error) == Claim::Granted
            && checkpoints->save(checkpointOf("t"), "me", error);
    }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestSqlCheckpointsFiles::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestSqlCheckpointsFiles::fileIsBegunWithItsFolder()
{
    const QString path = m_folder->filePath("new/folder/c.sqlite");
    QString error = "of an earlier call";
    QVERIFY(SqlCheckpoints::openSqlite(path, &error));
    QCOMPARE(error, "");
    const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    QVERIFY(!(QFile::permissions(path) & others));
}

void TestSqlCheckpointsFiles::fileIsClosedWithItsObject()
{
    const QStringList before = QSqlDatabase::connectionNames();
    QVERIFY(save(SqlCheckpoints::openSqlite(path()).get()));
    QCOMPARE(QSqlDatabase::connectionNames(), before);
    QCOMPARE(filesIn(m_folder->path()).keys(), QStringList("checkpoints.sqlite"));
}

void TestSqlCheckpointsFiles::fileWritesToALogFirst()
{
    const auto checkpoints = SqlCheckpoints::openSqlite(path());
    QCOMPARE(SqliteFile(path()).run("PRAGMA journal_mode"), QStringList("wal"));
}

void TestSqlCheckpointsFiles::connectionToSqliteWritesToALogFirst()
{
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "mine");
        database.setDatabaseName(path());
        QVERIFY(database.open());
        SqlCheckpoints checkpoints(database);
        QCOMPARE(database.tables(), QStringList()); // nothing before the first call
        QVERIFY(save(&checkpoints));
        QCOMPARE(SqliteFile(path()).run("PRAGMA journal_mode"), QStringList("wal"));
        QCOMPARE(SqliteFile(path()).run("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"),
                 QStringList({"qtagent_checkpoints", "qtagent_schema"}));
    }
    QSqlDatabase::removeDatabase("mine");
}

void TestSqlCheckpointsFiles::fileThatIsNoneOfOursIsLeftAsItIs_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error");
    QTest::newRow("text") << QByteArray("Dear diary,\n") << "The database is damaged: file is not a database";
    QTest::newRow("header alone") << QByteArray("SQLite format 3\0", 16) + QByteArray(84, '\0')
                                  << "The database is damaged: file is not a database";
    QTest::newRow("database of another program")
        << QByteArray() << path().append(" is the database of another program.");
}

void TestSqlCheckpointsFiles::fileThatIsNoneOfOursIsLeftAsItIs()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, error);
    QFile file(path());
    if (content.isEmpty()) {
        SqliteFile(path()).run("CREATE TABLE notes (text TEXT)");
        error = path() + " is the database of another program.";
    } else {
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
    }
    const auto before = filesIn(m_folder->path());
    QString told;
    QVERIFY(!SqlCheckpoints::openSqlite(path(), &told));
    QCOMPARE(told, error);
    QVERIFY(!SqlCheckpoints::openSqlite(path()));
    QCOMPARE(filesIn(m_folder->path()), before);
}

void TestSqlCheckpointsFiles::newerFileIsLeftAsItIs()
{
    QVERIFY(save(SqlCheckpoints::openSqlite(path()).get()));
    SqliteFile(path()).run("PRAGMA user_version = 2");
    const auto before = filesIn(m_folder->path());
    QString error;
    QVERIFY(!SqlCheckpoints::openSqlite(path(), &error));
    QCOMPARE(error, path() + " was written by a newer version of the program.");
    QCOMPARE(filesIn(m_folder->path()), before);
    SqliteFile(path()).run("PRAGMA user_version = 1");
    SqliteFile(path()).run("UPDATE qtagent_schema SET version = 2");
    QVERIFY(!SqlCheckpoints::openSqlite(path(), &error));
    QCOMPARE(error, "The checkpoints were written by a newer version of the program.");
}

void TestSqlCheckpointsFiles::lockedFileIsAnError_data()
{
    QTest::addColumn<bool>("isOwn");
    QTest::newRow("file") << true;
    QTest::newRow("connection") << false;
}

void TestSqlCheckpointsFiles::lockedFileIsAnError()
{
    QFETCH(bool, isOwn);
    const QString locked = "The database is locked by another program.";
    const SqliteFile mine(path());
    const auto checkpoints =
        isOwn ? SqlCheckpoints::openSqlite(path()) : std::make_unique<SqlCheckpoints>(mine.database());
    QVERIFY(save(checkpoints.get()));
    if (!isOwn) // else each call would wait twice, 5 seconds the second time
        QCOMPARE(mine.run("PRAGMA busy_timeout"), QStringList("0"));
    const SqliteFile other(path());
    other.run("BEGIN IMMEDIATE");
    QString error;
    QCOMPARE(checkpoints->claim("t", "me", longMs, &error), Claim::Failed);
    QCOMPARE(error, locked);
    QVERIFY(!checkpoints->save(checkpointOf("t"), "me", &error));
    QCOMPARE(error, locked);
    QCOMPARE(checkpoints->load("t", &error).threadId, "t"); // readers do not wait
    other.run("COMMIT");
    QVERIFY(checkpoints->save(checkpointOf("t"), "me", &error));
}

// The node b locks the file, or stops the server, and what it returns cannot be saved.
static void checkThatTheRunEndsInWords(CheckpointStorage *storage, const std::function<void()> &takeAway,
                                       const std::function<void()> &giveBack, const QString &error)
{
    const auto b = [&takeAway](const QJsonObject &) {
        takeAway();
        return QJsonObject{{"b", 2}};
    };
    GraphFixture fixture(twoNodes(returns({{"a", 1}}), b));
    fixture.run->setCheckpoints(storage);
    fixture.start({}, "t");
    QVERIFY2(fixture.run->result().error.startsWith("Checkpoint of thread 't' not saved: " + error),
             qPrintable(fixture.run->result().error));
    QCOMPARE(fixture.log.last(), "error: " + fixture.run->result().error);
    fixture.resume("t");
    QVERIFY2(fixture.run->result().error.startsWith("Checkpoint of thread 't' not read: " + error),
             qPrintable(fixture.run->result().error));

    giveBack();
    fixture.run->setAsyncNode("b", finishesWith({{"b", "again"}}));
    fixture.resume("t");
    QCOMPARE(fixture.run->result().error, "");
    QCOMPARE(fixture.log.filter("started"), QStringList({"started a", "started b", "started b"}));
    QCOMPARE(storage->load("t", nullptr).state, QJsonObject({{"a", 1}, {"b", "again"}}));
}

void TestSqlCheckpointsFiles::runEndsInWordsWhereTheFileIsLocked()
{
    const auto checkpoints = SqlCheckpoints::openSqlite(path());
    const SqliteFile other(path());
    checkThatTheRunEndsInWords(
        checkpoints.get(), [&other] { other.run("BEGIN IMMEDIATE"); }, [&other] { other.run("COMMIT"); },
        "The database is locked by another program.");
}

void TestSqlCheckpointsFiles::runEndsInWordsWhereTheConnectionIsLost()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    for (int i = 0; i < 4; ++i) // prepared statements that are gone
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Unable to free statement"));
    {
        SqlCheckpoints checkpoints(PostgresCluster::connectTo(cluster.folder(), "server"));
        checkThatTheRunEndsInWords(
            &checkpoints, [&cluster] { cluster.stop(); }, [&cluster] { QVERIFY(cluster.start()); },
            "The database cannot be used: ");
    }
    QSqlDatabase::removeDatabase("server");
}

void TestSqlCheckpointsFiles::damageIsAnError()
{
    {
        const auto checkpoints = SqlCheckpoints::openSqlite(path());
        for (int i = 0; i < 50; ++i) {
            const QString id = QString("thread %1").arg(i);
            checkpoints->claim(id, "me", longMs, nullptr);
            QVERIFY(checkpoints->save(checkpointOf(id, {{"text", QString(5000, 'x')}}), "me", nullptr));
        }
    }
    QFile file(path());
    const qint64 whole = file.size() / 4 * 3; // where the first threads are
    QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(whole));
    file.write(QByteArray(int(file.size() - whole), '\x5a'));
    file.close();
    const auto before = filesIn(m_folder->path()).value("checkpoints.sqlite");
    auto checkpoints = SqlCheckpoints::openSqlite(path());
    QVERIFY(checkpoints);
    QString error;
    QVERIFY(checkpoints->threads(&error).isEmpty());
    const QString damaged = error;
    QVERIFY2(damaged.startsWith("The database is damaged: "), qPrintable(damaged));

    QCOMPARE(checkpoints->claim("thread 0", "me", longMs, &error), Claim::Failed);
    QCOMPARE(error, damaged);
    QVERIFY(!checkpoints->save(checkpointOf("thread 0"), "me", &error));
    QCOMPARE(error, damaged);
    checkpoints->release("thread 0", "me");
    QVERIFY(!checkpoints->remove("thread 0", &error));
    QCOMPARE(error, damaged);
    QCOMPARE(checkpoints->load("thread 0", &error).threadId, "");
    QCOMPARE(error, damaged);
    checkpoints.reset();
    QVERIFY(filesIn(m_folder->path()).value("checkpoints.sqlite") == before);
}

void TestSqlCheckpointsFiles::fullDiskEndsTheRunAtTheLastGoodCheckpoint()
{
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "mine");
        database.setDatabaseName(path());
        QVERIFY(database.open());
        SqlCheckpoints checkpoints(database);
        QVERIFY(save(&checkpoints));
        checkpoints.release("t", "me");
        QSqlQuery("PRAGMA max_page_count = 10", database);
        GraphFixture fixture(twoNodes(returns({{"a", 1}}), returns({{"b", QString(100000, 'x')}})));
        fixture.run->setCheckpoints(&checkpoints);
        fixture.start({}, "t");
        QCOMPARE(fixture.run->result().error, "Checkpoint of thread 't' not saved: The database cannot be "
                                              "used: database or disk is full");
        const Checkpoint stored = checkpoints.load("t", nullptr);
        QCOMPARE(stored.next, "b");
        QCOMPARE(stored.state, QJsonObject({{"a", 1}}));
        QCOMPARE(checkpoints.claim("t", "you", longMs, nullptr), Claim::Granted);
        QCOMPARE(SqliteFile(path()).run("PRAGMA integrity_check"), QStringList("ok"));
    }
    QSqlDatabase::removeDatabase("mine");
}

void TestSqlCheckpointsFiles::programsMayBeginAFileAtOnce()
{
    std::vector<std::unique_ptr<QThread>> threads;
    QAtomicInt opened;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back(QThread::create([&] {
            const auto checkpoints = SqlCheckpoints::openSqlite(path());
            opened += checkpoints ? 1 : 0;
        }));
    }
    for (const auto &thread : threads)
        thread->start();
    for (const auto &thread : threads)
        thread->wait();
    QCOMPARE(opened.loadRelaxed(), 8);
}

void TestSqlCheckpointsFiles::connectionThatIsNotOpenIsAnError()
{
    {
        const QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "closed");
        SqlCheckpoints checkpoints(database);
        QString error;
        QCOMPARE(checkpoints.claim("t", "me", longMs, &error), Claim::Failed);
        QCOMPARE(error, "The connection to the database is not open.");
    }
    QSqlDatabase::removeDatabase("closed");
}

void TestSqlCheckpointsFiles::lostConnectionIsOpenedByTheNextClaim()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    {
        const QSqlDatabase database = PostgresCluster::connectTo(cluster.folder(), "server");
        SqlCheckpoints checkpoints(database);
        QVERIFY(save(&checkpoints));
        cluster.stop();
        QString error;
        QVERIFY(!checkpoints.save(checkpointOf("t"), "me", &error));
        QVERIFY2(error.startsWith("The database cannot be used: "), qPrintable(error));
        QVERIFY(!error.contains('\n'));
        for (int i = 0; i < 3; ++i) // prepared statements that are gone
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Unable to free statement"));
        QCOMPARE(checkpoints.claim("t", "me", longMs, &error), Claim::Failed);
        QVERIFY(cluster.start());
        QVERIFY2(checkpoints.claim("t", "me", longMs, &error) == Claim::Granted, qPrintable(error));
        QCOMPARE(error, "");
        QVERIFY(checkpoints.save(checkpointOf("t"), "me", &error));
    }
    QSqlDatabase::removeDatabase("server");
}

void TestSqlCheckpointsFiles::tablesMayBeMadeAtOnce()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    std::vector<std::unique_ptr<QThread>> threads;
    QAtomicInt granted;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back(QThread::create([&, i] {
            const QString name = QString::number(i);
            {
                SqlCheckpoints checkpoints(PostgresCluster::connectTo(cluster.folder(), name));
                granted += checkpoints.claim(name, "me", longMs, nullptr) == Claim::Granted ? 1 : 0;
            }
            QSqlDatabase::removeDatabase(name);
        }));
    }
    for (const auto &thread : threads)
        thread->start();
    for (const auto &thread : threads)
        thread->wait();
    QCOMPARE(granted.loadRelaxed(), 8);
}

QTEST_GUILESS_MAIN(TestSqlCheckpointsFiles)
#include "tst_sqlcheckpoints_files.moc"
