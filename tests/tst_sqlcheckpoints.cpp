// What SqlCheckpoints promises of every engine.

#include "support/graphfixture.h"
#include "support/postgrescluster.h"

#include <qtagent/store/sqlcheckpoints.h>

#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

#include <cmath>
#include <memory>

using namespace MireloQtLib::QtAgent;

using Claim = CheckpointStorage::Claim;
using Texts = QStringList;

namespace {

constexpr qint64 longMs = 3600000;
constexpr qint64 expiredMs = 0;

Checkpoint checkpointOf(const QString &threadId)
{
    return {threadId, {{"count", 1}}, "review", true, 2, "f00d", 5};
}

QJsonObject nested(int levels)
{
    QJsonObject object;
    for (int i = 1; i < levels; ++i)
        object = {{"a", object}};
    return object;
}

// JSON does not know them.
Texts halvesOfPairs()
{
    return {QString(QChar(0xd800)), QString(QChar(0xdc00)) + 'x'};
}

// Texts that engines, encodings or statements could take for something else.
Texts strangeTexts()
{
    return halvesOfPairs()
         + Texts{"'; DROP TABLE qtagent_checkpoints; --",
                 "\"",
                 "\\",
                 "\\u0041",
                 "?",
                 ":id",
                 "%1",
                 " ",
                 "\n",
                 "泵-1",
                 "\U0001f600",
                 QString(QChar(0)),
                 QString("a").append(QChar(0)).append('b'),
                 QString(QChar(0xfeff)) + "t",
                 QString(QChar(0xfffe)) + "t",
                 "t" + QString(QChar(0xffff)),
                 "t",
                 "T",
                 "t "};
}

} // namespace

class TestSqlCheckpoints : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();
    void init();
    void cleanup();

    void claimIsGrantedToOneOwnerAtATime();
    void claimIsRenewed();
    void expiredClaimMayBeTaken();
    void anyLeaseIsTaken();
    void saveNeedsTheClaim();
    void expiredClaimThatNobodyTookStillSaves();
    void savedCheckpointIsLoadedWithItsTime();
    void laterCheckpointReplacesTheEarlierOne();
    void unknownThreadIsNoError();
    void onlyTheOwnerReleases();
    void threadThatWasNeverSavedLeavesNothing();
    void threadsAreSortedAndWithoutStates();
    void heldThreadIsNotRemoved();
    void errorsMayBeIgnored();
    void anyTextIsAThreadId();
    void anyTextIsANodeAnOwnerAndAFingerprint();
    void stateIsLoadedAsItWasSaved();
    void stateOfTenMegabytesIsKept();
    void stateThatCouldNotBeReadBackIsRefused();
    void stateThatSomebodySpoiltIsAnError();
    void tablesOfANewerVersionAreLeftAlone();
    void runIsResumedByAnotherObject();
    void runWhoseClaimNobodyTookGoesOn();

private:
    QSqlDatabase connect(const QString &name);
    std::unique_ptr<SqlCheckpoints> open();
    bool save(const QString &threadId, const QJsonObject &state, QString *error = nullptr);
    QStringList run(const QString &sql);

    std::unique_ptr<PostgresCluster> m_cluster;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SqlCheckpoints> m_storage;
    int m_connections = 0;
};

void TestSqlCheckpoints::initTestCase_data()
{
    QTest::addColumn<QString>("engine");
    QTest::newRow("file") << "file";
    QTest::newRow("connection to SQLite") << "QSQLITE";
    QTest::newRow("PostgreSQL") << "QPSQL";
}

void TestSqlCheckpoints::init()
{
    QFETCH_GLOBAL(QString, engine);
    m_folder = std::make_unique<QTemporaryDir>();
    if (engine == "QPSQL") {
        const QString missing = PostgresCluster::whatIsMissing();
        if (!missing.isEmpty())
            QSKIP(qPrintable(missing));
        if (!m_cluster) {
            m_cluster = std::make_unique<PostgresCluster>();
            QVERIFY(m_cluster->create());
        }
    }
    m_storage = open();
    QVERIFY(m_storage);
}

void TestSqlCheckpoints::cleanup()
{
    m_storage.reset();
    QFETCH_GLOBAL(QString, engine);
    if (engine == "QPSQL" && m_cluster)
        run("DROP TABLE IF EXISTS qtagent_checkpoints, qtagent_schema");
    for (const QString &name : QSqlDatabase::connectionNames())
        QSqlDatabase::removeDatabase(name);
}

QSqlDatabase TestSqlCheckpoints::connect(const QString &name)
{
    QFETCH_GLOBAL(QString, engine);
    if (engine == "QPSQL")
        return PostgresCluster::connectTo(m_cluster->folder(), name);
    QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", name);
    database.setDatabaseName(m_folder->filePath("checkpoints.sqlite"));
    database.open();
    return database;
}

// Another one with each call, as in another program.
std::unique_ptr<SqlCheckpoints> TestSqlCheckpoints::open()
{
    QFETCH_GLOBAL(QString, engine);
    if (engine == "file")
        return SqlCheckpoints::openSqlite(m_folder->filePath("checkpoints.sqlite"));
    return std::make_unique<SqlCheckpoints>(connect(QString::number(++m_connections)));
}

bool TestSqlCheckpoints::save(const QString &threadId, const QJsonObject &state, QString *error)
{
    Checkpoint checkpoint = checkpointOf(threadId);
    checkpoint.state = state;
    return m_storage->claim(threadId, "me", longMs, error) == Claim::Granted
        && m_storage->save(checkpoint, "me", error);
}

// Returns the first column of the rows, or why there are none.
QStringList TestSqlCheckpoints::run(const QString &sql)
{
    QStringList values;
    {
        QSqlQuery query(connect("aside"));
        if (!query.exec(sql))
            values = QStringList{query.lastError().text()};
        while (query.next())
            values.append(query.value(0).toString());
    }
    QSqlDatabase::removeDatabase("aside");
    return values;
}

void TestSqlCheckpoints::claimIsGrantedToOneOwnerAtATime()
{
    const auto other = open();
    QString error;
    QCOMPARE(m_storage->claim("t", "me", longMs, &error), Claim::Granted);
    QCOMPARE(other->claim("t", "you", longMs, &error), Claim::Held);
    QCOMPARE(error, "");
    QCOMPARE(other->claim("other", "you", longMs, &error), Claim::Granted);
    m_storage->release("t", "me");
    QCOMPARE(other->claim("t", "you", longMs, &error), Claim::Granted);
    QCOMPARE(m_storage->claim("t", "me", longMs, &error), Claim::Held);
}

void TestSqlCheckpoints::claimIsRenewed()
{
    QString error;
    m_storage->claim("t", "me", expiredMs, &error);
    QCOMPARE(m_storage->claim("t", "me", longMs, &error), Claim::Granted);
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Held);
}

void TestSqlCheckpoints::expiredClaimMayBeTaken()
{
    QString error;
    m_storage->claim("t", "me", expiredMs, &error);
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Granted);
    QCOMPARE(m_storage->claim("t", "me", longMs, &error), Claim::Held);
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", &error));
}

void TestSqlCheckpoints::anyLeaseIsTaken()
{
    QString error;
    QCOMPARE(m_storage->claim("t", "me", std::numeric_limits<qint64>::max(), &error), Claim::Granted);
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Held);
    QCOMPARE(m_storage->claim("t", "me", -longMs, &error), Claim::Granted);
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Granted);
}

void TestSqlCheckpoints::saveNeedsTheClaim()
{
    QString error;
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", &error));
    QCOMPARE(error, "The thread is not claimed by this owner.");
    m_storage->claim("t", "you", longMs, &error);
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", &error));
    QCOMPARE(m_storage->load("t", &error), Checkpoint());
    QVERIFY(m_storage->save(checkpointOf("t"), "you", &error));
    QCOMPARE(error, "");
}

void TestSqlCheckpoints::expiredClaimThatNobodyTookStillSaves()
{
    QString error;
    m_storage->claim("t", "me", expiredMs, &error);
    QVERIFY(m_storage->save(checkpointOf("t"), "me", &error));
    m_storage->release("t", "me");
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", &error));
}

void TestSqlCheckpoints::savedCheckpointIsLoadedWithItsTime()
{
    QString error;
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    m_storage->claim("t", "me", longMs, &error);
    QVERIFY2(m_storage->save(checkpointOf("t"), "me", &error), qPrintable(error));
    Checkpoint loaded = open()->load("t", &error);
    QVERIFY(loaded.savedAtMs >= before - 1 && loaded.savedAtMs <= QDateTime::currentMSecsSinceEpoch() + 1);
    loaded.savedAtMs = checkpointOf("t").savedAtMs;
    QCOMPARE(loaded, checkpointOf("t"));
}

void TestSqlCheckpoints::laterCheckpointReplacesTheEarlierOne()
{
    QString error;
    QVERIFY(save("t", {{"a", 1}}));
    QVERIFY(save("t", {{"b", 2}}));
    QCOMPARE(m_storage->load("t", &error).state, QJsonObject({{"b", 2}}));
    QCOMPARE(m_storage->threads(&error).size(), 1);
}

void TestSqlCheckpoints::unknownThreadIsNoError()
{
    QString error = "of an earlier call";
    QCOMPARE(m_storage->load("t", &error), Checkpoint());
    QCOMPARE(error, "");
    m_storage->claim("t", "me", longMs, &error);
    QCOMPARE(m_storage->load("t", &error), Checkpoint());
    QCOMPARE(error, "");
    m_storage->release("unknown", "me");
}

void TestSqlCheckpoints::onlyTheOwnerReleases()
{
    QString error;
    m_storage->claim("t", "me", longMs, &error);
    m_storage->release("t", "you");
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Held);
}

void TestSqlCheckpoints::threadThatWasNeverSavedLeavesNothing()
{
    QVERIFY(save("saved", {}));
    QString error;
    m_storage->claim("t", "me", longMs, &error);
    m_storage->release("saved", "me");
    m_storage->release("t", "me");
    QCOMPARE(run("SELECT thread_id FROM qtagent_checkpoints"), QStringList("saved"));
}

void TestSqlCheckpoints::threadsAreSortedAndWithoutStates()
{
    QString error;
    m_storage->claim("claimed", "me", longMs, &error);
    for (const char *id : {"b", "B", "a", "ä"})
        QVERIFY(save(id, {{"a", 1}}));
    QStringList ids;
    for (const Checkpoint &checkpoint : m_storage->threads(&error)) {
        ids.append(checkpoint.threadId);
        QCOMPARE(checkpoint.state, QJsonObject());
        QCOMPARE(checkpoint.next, "review");
        QCOMPARE(checkpoint.attempt, 2);
        QVERIFY(checkpoint.savedAtMs > 0);
    }
    QCOMPARE(ids, QStringList({"B", "a", "b", "ä"}));
    QCOMPARE(error, "");
}

void TestSqlCheckpoints::heldThreadIsNotRemoved()
{
    QString error;
    QVERIFY(m_storage->remove("t", &error));
    QVERIFY(save("t", {}));
    QVERIFY(!m_storage->remove("t", &error));
    QCOMPARE(error, "The thread is in use.");
    m_storage->claim("t", "me", expiredMs, &error);
    QVERIFY(m_storage->remove("t", &error));
    QCOMPARE(error, "");
    QCOMPARE(m_storage->load("t", &error), Checkpoint());
    QVERIFY(m_storage->threads(&error).isEmpty());
}

void TestSqlCheckpoints::errorsMayBeIgnored()
{
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", nullptr));
    QCOMPARE(m_storage->claim("t", "me", longMs, nullptr), Claim::Granted);
    QVERIFY(m_storage->save(checkpointOf("t"), "me", nullptr));
    QCOMPARE(m_storage->load("t", nullptr).threadId, "t");
    QCOMPARE(m_storage->threads(nullptr).size(), 1);
    QVERIFY(!m_storage->remove("t", nullptr));
}

void TestSqlCheckpoints::anyTextIsAThreadId()
{
    QString error;
    Texts ids = strangeTexts();
    for (const QString &id : ids)
        QVERIFY2(save(id, {{"id", id.size()}, {"last", id.back().unicode()}}, &error), qPrintable(error));
    for (const QString &id : ids) {
        const Checkpoint loaded = m_storage->load(id, &error);
        QCOMPARE(loaded.threadId, id);
        QCOMPARE(loaded.state, QJsonObject({{"id", id.size()}, {"last", id.back().unicode()}}));
    }
    ids.sort();
    Texts listed;
    for (const Checkpoint &checkpoint : m_storage->threads(&error))
        listed.append(checkpoint.threadId);
    QCOMPARE(listed, ids);
    for (const QString &id : ids) {
        m_storage->release(id, "me");
        QVERIFY(m_storage->remove(id, &error));
    }
    QVERIFY(m_storage->threads(&error).isEmpty());
}

void TestSqlCheckpoints::anyTextIsANodeAnOwnerAndAFingerprint()
{
    const Texts texts = strangeTexts() + Texts{""};
    for (const QString &text : texts) {
        QString error;
        const QString owner = "owner" + text;
        const Checkpoint checkpoint{"t", {}, text, false, 1, text, 0};
        QCOMPARE(m_storage->claim("t", owner, longMs, &error), Claim::Granted);
        QVERIFY2(m_storage->save(checkpoint, owner, &error), qPrintable(error));
        QCOMPARE(m_storage->load("t", &error).next, text);
        QCOMPARE(m_storage->load("t", &error).fingerprint, text);
        QCOMPARE(m_storage->claim("t", "another" + text, longMs, &error), Claim::Held);
        m_storage->release("t", owner);
    }
}

void TestSqlCheckpoints::stateIsLoadedAsItWasSaved()
{
    QString error;
    QJsonObject state{{"", QJsonValue::Null}, {"number", 0.1}, {"big", 9007199254740991.0}, {"tiny", 5e-324}};
    for (const QString &text : strangeTexts())
        state[text] = QJsonArray{text, QJsonObject{{text, true}}};
    for (const QString &text : halvesOfPairs())
        state.remove(text);
    state.remove("\U0001f600"); // which Qt 5 does not find beside U+FEFF in what it has parsed
    QVERIFY2(save("t", state, &error), qPrintable(error));
    QCOMPARE(open()->load("t", &error).state, state);
}

void TestSqlCheckpoints::stateOfTenMegabytesIsKept()
{
    QString error;
    const QJsonObject state{{"text", QString(10 * 1024 * 1024, 'x')}, {"泵", QString(100000, QChar(0x6cf5))}};
    QVERIFY2(save("t", state, &error), qPrintable(error));
    QVERIFY(open()->load("t", &error).state == state);
    QVERIFY(save("t", {{"a", 1}}));
    QCOMPARE(open()->load("t", &error).state, QJsonObject({{"a", 1}}));
}

void TestSqlCheckpoints::stateThatCouldNotBeReadBackIsRefused()
{
    constexpr int mostLevels = 1024;
    QVERIFY(save("t", nested(mostLevels)));
    for (const QJsonObject &state : {nested(mostLevels + 1), QJsonObject{{"a", std::nan("")}},
                                     QJsonObject{{"a", std::numeric_limits<double>::infinity()}},
                                     QJsonObject{{"a", QJsonArray{halvesOfPairs().first()}}},
                                     QJsonObject{{halvesOfPairs().last(), 1}}}) {
        QString error;
        QVERIFY(!save("t", state, &error));
        QCOMPARE(error, "The state cannot be kept as JSON.");
        QVERIFY(m_storage->load("t", &error).state == nested(mostLevels));
    }
}

void TestSqlCheckpoints::stateThatSomebodySpoiltIsAnError()
{
    QVERIFY(save("t", {}));
    for (const char *state : {"'{'", "''", "NULL", "'[1]'"}) {
        QCOMPARE(run(QString("UPDATE qtagent_checkpoints SET state = %1").arg(state)), QStringList());
        QString error;
        QCOMPARE(m_storage->load("t", &error), Checkpoint());
        QCOMPARE(error, "The state is damaged.");
    }
}

void TestSqlCheckpoints::tablesOfANewerVersionAreLeftAlone()
{
    QVERIFY(save("t", {}));
    run("UPDATE qtagent_schema SET version = 2");
    m_storage.reset();
    m_storage = open();
    if (!m_storage)
        return; // as it is for a file
    const QString newer = "The checkpoints were written by a newer version of the program.";
    QString error;
    QCOMPARE(m_storage->claim("t", "you", longMs, &error), Claim::Failed);
    QCOMPARE(error, newer);
    QVERIFY(!m_storage->save(checkpointOf("t"), "me", &error));
    QCOMPARE(error, newer);
    m_storage->release("t", "me");
    QVERIFY(!m_storage->remove("t", &error));
    QCOMPARE(error, newer);
    QVERIFY(m_storage->threads(&error).isEmpty());
    QCOMPARE(error, newer);
    QCOMPARE(run("SELECT owner FROM qtagent_checkpoints"), QStringList("me"));
}

void TestSqlCheckpoints::runIsResumedByAnotherObject()
{
    {
        GraphFixture first;
        first.run->setAsyncNode("b", [](GraphTask *) {});
        first.run->setCheckpoints(m_storage.get());
        first.start({{"input", 1}}, "t");
        QCOMPARE(first.log, QStringList({"started a", "step a", "started b"}));
    }
    const auto storage = open();
    GraphFixture second;
    second.run->setAsyncNode("b", [](GraphTask *task) { task->finish({{"attempt", task->attempt()}}); });
    second.run->setCheckpoints(storage.get());
    second.resume("t");
    QCOMPARE(second.log, QStringList({"started b", "step b", "finished"}));
    QCOMPARE(second.run->result().state, QJsonObject({{"input", 1}, {"a", 1}, {"attempt", 2}}));
}

// The claim expires again and again, and what the run finds then has been in JSON.
void TestSqlCheckpoints::runWhoseClaimNobodyTookGoesOn()
{
    const QJsonObject state{{"\U0001f600", 1}, {"（泵）", 2}, {"\uffee", 9007199254740994.0}, {"a", 0.1}};
    GraphFixture fixture;
    QPointer<GraphTask> task;
    fixture.run->setAsyncNode("b", keepsIn(&task));
    fixture.run->setCheckpoints(m_storage.get());
    fixture.run->setLease(1);
    fixture.run->start(state, "t");
    QVERIFY(runUntil([&] { return task || !fixture.run->isRunning(); }));
    const auto heldUntil = [this] { return run("SELECT held_until FROM qtagent_checkpoints"); };
    for (int i = 0; i < 3 && fixture.run->isRunning(); ++i) {
        const QStringList before = heldUntil();
        QThread::msleep(2); // the lease
        QVERIFY(runUntil([&] { return heldUntil() != before; }));
    }
    QCOMPARE(fixture.run->result().error, "");
    task->finish({});
    fixture.waitForEnd();
    QCOMPARE(fixture.run->result().error, "");
    QCOMPARE(m_storage->load("t", nullptr).next, "__end__");
}

QTEST_GUILESS_MAIN(TestSqlCheckpoints)
#include "tst_sqlcheckpoints.moc"
