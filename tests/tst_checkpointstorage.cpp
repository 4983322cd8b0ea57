#include "support/memorycheckpoints.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

using Claim = CheckpointStorage::Claim;
using Change = std::function<void(Checkpoint *)>;
Q_DECLARE_METATYPE(Change)

namespace {

Checkpoint checkpointOf(const QString &threadId)
{
    return {threadId, {{"count", 1}}, "review", true, 2, "f00d", 5};
}

} // namespace

// The record, and what every storage promises, shown by the one in memory that tests use.
class TestCheckpointStorage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void checkpointStandsForNothingByDefault();
    void checkpointsWithTheSameFieldsAreEqual_data();
    void checkpointsWithTheSameFieldsAreEqual();
    void checkpointTravelsInAVariant();

    void claimIsGrantedToOneOwnerAtATime();
    void claimIsRenewed();
    void expiredClaimMayBeTaken();
    void saveNeedsTheClaim();
    void expiredClaimThatNobodyTookStillSaves();
    void savedCheckpointIsLoadedWithItsTime();
    void unknownThreadIsNoError();
    void onlyTheOwnerReleases();
    void threadsAreSortedAndWithoutStates();
    void heldThreadIsNotRemoved();
    void errorIsEmptiedOnSuccess();
};

void TestCheckpointStorage::checkpointStandsForNothingByDefault()
{
    const Checkpoint checkpoint;
    QVERIFY(checkpoint.threadId.isEmpty());
    QVERIFY(checkpoint.state.isEmpty());
    QVERIFY(checkpoint.next.isEmpty());
    QVERIFY(!checkpoint.interrupted);
    QCOMPARE(checkpoint.attempt, 0);
    QVERIFY(checkpoint.fingerprint.isEmpty());
    QCOMPARE(checkpoint.savedAtMs, qint64(0));
}

void TestCheckpointStorage::checkpointsWithTheSameFieldsAreEqual_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<bool>("isEqual");
    QTest::newRow("the same") << Change([](Checkpoint *) {}) << true;
    QTest::newRow("threadId") << Change([](Checkpoint *checkpoint) { checkpoint->threadId = "x"; }) << false;
    QTest::newRow("state") << Change([](Checkpoint *checkpoint) { checkpoint->state = {}; }) << false;
    QTest::newRow("next") << Change([](Checkpoint *checkpoint) { checkpoint->next = "x"; }) << false;
    QTest::newRow("interrupted") << Change([](Checkpoint *checkpoint) { checkpoint->interrupted = false; })
                                 << false;
    QTest::newRow("attempt") << Change([](Checkpoint *checkpoint) { checkpoint->attempt = 1; }) << false;
    QTest::newRow("fingerprint") << Change([](Checkpoint *checkpoint) { checkpoint->fingerprint = "x"; })
                                 << false;
    QTest::newRow("savedAtMs") << Change([](Checkpoint *checkpoint) { checkpoint->savedAtMs = 1; }) << false;
}

void TestCheckpointStorage::checkpointsWithTheSameFieldsAreEqual()
{
    QFETCH(Change, change);
    QFETCH(bool, isEqual);
    Checkpoint checkpoint = checkpointOf("t");
    change(&checkpoint);
    QCOMPARE(checkpoint == checkpointOf("t"), isEqual);
    QCOMPARE(checkpoint != checkpointOf("t"), !isEqual);
}

void TestCheckpointStorage::checkpointTravelsInAVariant()
{
    QCOMPARE(QVariant::fromValue(checkpointOf("t")).value<Checkpoint>(), checkpointOf("t"));
}

void TestCheckpointStorage::claimIsGrantedToOneOwnerAtATime()
{
    MemoryCheckpoints storage;
    QString error;
    QCOMPARE(storage.claim("t", "me", 100, &error), Claim::Granted);
    QCOMPARE(storage.claim("t", "you", 100, &error), Claim::Held);
    QCOMPARE(storage.claim("other", "you", 100, &error), Claim::Granted);
    storage.release("t", "me");
    QCOMPARE(storage.claim("t", "you", 100, &error), Claim::Granted);
}

void TestCheckpointStorage::claimIsRenewed()
{
    MemoryCheckpoints storage;
    QString error;
    storage.claim("t", "me", 100, &error);
    storage.nowMs += 90;
    QCOMPARE(storage.claim("t", "me", 100, &error), Claim::Granted);
    storage.nowMs += 90;
    QCOMPARE(storage.claim("t", "you", 100, &error), Claim::Held);
}

void TestCheckpointStorage::expiredClaimMayBeTaken()
{
    MemoryCheckpoints storage;
    QString error;
    storage.claim("t", "me", 100, &error);
    storage.nowMs += 100;
    QCOMPARE(storage.claim("t", "you", 100, &error), Claim::Granted);
    QCOMPARE(storage.claim("t", "me", 100, &error), Claim::Held);
}

void TestCheckpointStorage::saveNeedsTheClaim()
{
    MemoryCheckpoints storage;
    QString error;
    QVERIFY(!storage.save(checkpointOf("t"), "me", &error));
    QCOMPARE(error, "not the owner");
    storage.claim("t", "you", 100, &error);
    QVERIFY(!storage.save(checkpointOf("t"), "me", &error));
    QVERIFY(storage.save(checkpointOf("t"), "you", &error));
}

void TestCheckpointStorage::expiredClaimThatNobodyTookStillSaves()
{
    MemoryCheckpoints storage;
    QString error;
    storage.claim("t", "me", 100, &error);
    storage.nowMs += 200;
    QVERIFY(storage.save(checkpointOf("t"), "me", &error));
    storage.release("t", "me");
    QVERIFY(!storage.save(checkpointOf("t"), "me", &error));
}

void TestCheckpointStorage::savedCheckpointIsLoadedWithItsTime()
{
    MemoryCheckpoints storage;
    QString error;
    storage.claim("t", "me", 100, &error);
    storage.save(checkpointOf("t"), "me", &error);
    Checkpoint expected = checkpointOf("t");
    expected.savedAtMs = storage.nowMs;
    QCOMPARE(storage.load("t", &error), expected);
}

void TestCheckpointStorage::unknownThreadIsNoError()
{
    const MemoryCheckpoints storage;
    QString error;
    QCOMPARE(storage.load("t", &error), Checkpoint());
    QCOMPARE(error, "");
}

void TestCheckpointStorage::onlyTheOwnerReleases()
{
    MemoryCheckpoints storage;
    QString error;
    storage.claim("t", "me", 100, &error);
    storage.release("t", "you");
    QCOMPARE(storage.claim("t", "you", 100, &error), Claim::Held);
}

void TestCheckpointStorage::threadsAreSortedAndWithoutStates()
{
    MemoryCheckpoints storage;
    QString error;
    for (const char *id : {"b", "a", "claimed"})
        storage.claim(id, "me", 100, &error);
    storage.save(checkpointOf("b"), "me", &error);
    storage.save(checkpointOf("a"), "me", &error);
    const QVector<Checkpoint> threads = storage.threads(&error);
    QCOMPARE(threads.size(), 2);
    QCOMPARE(threads.at(0).threadId, "a");
    QCOMPARE(threads.at(1).threadId, "b");
    QCOMPARE(threads.at(0).state, QJsonObject());
    QCOMPARE(threads.at(0).next, "review");
}

void TestCheckpointStorage::heldThreadIsNotRemoved()
{
    MemoryCheckpoints storage;
    QString error;
    QVERIFY(storage.remove("t", &error));
    storage.claim("t", "me", 100, &error);
    storage.save(checkpointOf("t"), "me", &error);
    QVERIFY(!storage.remove("t", &error));
    QVERIFY(!error.isEmpty());
    storage.nowMs += 100;
    QVERIFY(storage.remove("t", &error));
    QCOMPARE(storage.load("t", &error), Checkpoint());
}

void TestCheckpointStorage::errorIsEmptiedOnSuccess()
{
    MemoryCheckpoints storage;
    const auto succeeds = [](const std::function<void(QString *)> &call) {
        QString error = "of an earlier call";
        call(&error);
        return error.isEmpty();
    };
    QVERIFY(succeeds([&](QString *error) { storage.claim("t", "me", 100, error); }));
    QVERIFY(succeeds([&](QString *error) { storage.save(checkpointOf("t"), "me", error); }));
    QVERIFY(succeeds([&](QString *error) { storage.load("t", error); }));
    QVERIFY(succeeds([&](QString *error) { storage.threads(error); }));
    storage.release("t", "me");
    QVERIFY(succeeds([&](QString *error) { storage.remove("t", error); }));
}

QTEST_APPLESS_MAIN(TestCheckpointStorage)
#include "tst_checkpointstorage.moc"
