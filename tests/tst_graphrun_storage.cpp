#include "support/storedfixture.h"

#include <QtTest>

#include <stdexcept>

using namespace MireloQtLib::QtAgent;

using Act = std::function<void(StoredFixture *)>;
Q_DECLARE_METATYPE(Act)

namespace {

const QStringList callsOfTwoNodes{
    "claim t",  "load t", "save t: a 1 {}", R"(save t: b 1 {"a":1})", R"(save t: __end__ 1 {"a":1,"b":2})",
    "release t"};

} // namespace

// Storages that fail, and threads that others hold.
class TestGraphRunStorage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threadThatOthersHoldIsLeftAlone_data();
    void threadThatOthersHoldIsLeftAlone();
    void twoRunsNeverHaveOneThread();
    void ownerMayClaimItsThreadAgain();
    void emptyOwnerIsIgnored();
    void claimLastsForTheLease();
    void settingsCountFromTheNextStart();

    void failingCallEndsTheRun_data();
    void failingCallEndsTheRun();
    void failingSaveAtAnInterruptIsNoInterrupt();
    void failingReleaseGoesUnnoticed();
    void throwingCallEndsTheRun_data();
    void throwingCallEndsTheRun();
    void runThatFailedToSaveIsResumedAtItsLastGoodCheckpoint();

    void storageMayDoAnything_data();
    void storageMayDoAnything();
    void claimThatIsGrantedTooLateIsGivenBack();
};

void TestGraphRunStorage::threadThatOthersHoldIsLeftAlone_data()
{
    QTest::addColumn<Act>("act");
    QTest::newRow("start") << Act([](StoredFixture *f) { f->start({{"input", "x"}}, "t"); });
    QTest::newRow("resume") << Act([](StoredFixture *f) { f->resume("t"); });
}

void TestGraphRunStorage::threadThatOthersHoldIsLeftAlone()
{
    QFETCH(Act, act);
    StoredFixture f;
    f.storage.giveTo("other", "t");
    act(&f);
    QCOMPARE(f.log, QStringList({"claim t", "error: Thread 't' is running elsewhere."}));
    QCOMPARE(f.storage.claims["t"].owner, "other");
}

void TestGraphRunStorage::twoRunsNeverHaveOneThread()
{
    MemoryCheckpoints storage;
    GraphFixture first;
    GraphFixture second;
    QPointer<GraphTask> task;
    first.run->setAsyncNode("a", keepsIn(&task));
    first.run->setCheckpoints(&storage);
    second.run->setCheckpoints(&storage);
    first.start({}, "t");
    second.start({}, "t");
    QCOMPARE(second.log, QStringList{"error: Thread 't' is running elsewhere."});
    task->finish({});
    runUntilQuiet();
    second.start({}, "t");
    QCOMPARE(second.log.last(), "finished");
}

void TestGraphRunStorage::ownerMayClaimItsThreadAgain()
{
    StoredFixture f;
    f.storage.giveTo("me", "t");
    f.start({}, "t");
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunStorage::emptyOwnerIsIgnored()
{
    StoredFixture f;
    f.run->setOwner("");
    f.onEntry("started a", [&f] { QCOMPARE(f.storage.claims["t"].owner, "me"); });
    f.start({}, "t");
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunStorage::claimLastsForTheLease()
{
    StoredFixture f;
    f.onEntry("started a", [&f] { QCOMPARE(f.storage.claims["t"].untilMs, f.storage.nowMs + 30000); });
    f.start({}, "t");
    f.run->setLease(5000);
    f.onEntry("started a", [&f] { QCOMPARE(f.storage.claims["t"].untilMs, f.storage.nowMs + 5000); });
    f.start({}, "t");
}

void TestGraphRunStorage::settingsCountFromTheNextStart()
{
    StoredFixture f;
    MemoryCheckpoints other;
    f.onEntry("started a", [&] {
        f.run->setCheckpoints(&other);
        f.run->setOwner("another");
    });
    f.start({}, "t");
    QCOMPARE(f.storage.log, callsOfTwoNodes);
    QCOMPARE(other.log, QStringList());
    f.start({}, "t");
    QCOMPARE(other.log, callsOfTwoNodes);
}

void TestGraphRunStorage::failingCallEndsTheRun_data()
{
    const QStringList opening{"claim t", "load t", "save t: a 1 {}"};
    const QStringList afterA{"started a", R"(save t: b 1 {"a":1})"};
    const QStringList afterB{"step a", "started b", R"(save t: __end__ 1 {"a":1,"b":2})"};
    const QString notSaved = "error: Checkpoint of thread 't' not saved: disk full";
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("count");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("claim") << "claim" << 1
                           << QStringList{"claim t", "error: Checkpoint of thread 't' not read: disk full"};
    QTest::newRow("load") << "load" << 1
                          << QStringList{"claim t", "load t", "release t",
                                         "error: Checkpoint of thread 't' not read: disk full"};
    QTest::newRow("save before the first node")
        << "save" << 1 << opening + QStringList{"claim t", "release t", notSaved};
    QTest::newRow("save after a node")
        << "save" << 2 << opening + afterA + QStringList{"claim t", "step a", "release t", notSaved};
    QTest::newRow("save at the end") << "save" << 3
                                     << opening + afterA + afterB
                                            + QStringList{"claim t", "step b", "release t", notSaved};
}

void TestGraphRunStorage::failingCallEndsTheRun()
{
    QFETCH(QString, name);
    QFETCH(int, count);
    StoredFixture f;
    f.storage.failAt(name, count);
    f.run->start({}, "t");
    QCOMPARE(f.log, QStringList());
    runUntilQuiet();
    QTEST(f.log, "log");
    QVERIFY(f.storage.claims.isEmpty());
    QCOMPARE(f.run->result().steps.size(), f.log.filter(QRegularExpression("^step ")).size());
}

void TestGraphRunStorage::failingSaveAtAnInterruptIsNoInterrupt()
{
    StateGraph graph = twoNodes();
    graph.addInterruptBefore("b");
    StoredFixture f(graph);
    f.storage.failAt("save", 2);
    f.start({}, "t");
    QVERIFY(!f.run->result().interrupted);
    QCOMPARE(f.run->result().interruptedNode, "");
    QCOMPARE(f.run->result().error, "Checkpoint of thread 't' not saved: disk full");
}

void TestGraphRunStorage::failingReleaseGoesUnnoticed()
{
    StoredFixture f;
    f.storage.failAt("release", 1);
    f.start({}, "t");
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunStorage::throwingCallEndsTheRun_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("end");
    QTest::newRow("claim") << "claim t"
                           << "error: Checkpoint of thread 't' not read: thrown";
    QTest::newRow("load") << "load t"
                          << "error: Checkpoint of thread 't' not read: thrown";
    QTest::newRow("save") << "save t: a 1 {}"
                          << "error: Checkpoint of thread 't' not saved: thrown";
    QTest::newRow("release") << "release t"
                             << "finished";
}

void TestGraphRunStorage::throwingCallEndsTheRun()
{
    QFETCH(QString, call);
    QFETCH(QString, end);
    StoredFixture f;
    f.storage.onCall = [call](const QString &line) {
        if (line == call)
            throw std::runtime_error("thrown");
    };
    f.start({}, "t");
    QCOMPARE(f.log.last(), end);
    QVERIFY(!f.run->isRunning());
}

void TestGraphRunStorage::runThatFailedToSaveIsResumedAtItsLastGoodCheckpoint()
{
    StoredFixture f;
    f.storage.failAt("save", 3);
    f.start({}, "t");
    QCOMPARE(f.run->result().state, (QJsonObject{{"a", 1}, {"b", 2}}));
    QCOMPARE(f.stored(), R"(b 1 {"a":1})");
    f.resume("t");
    QCOMPARE(f.log.last(), "finished");
    QCOMPARE(f.run->result().steps.size(), 1);
    QCOMPARE(f.stored(), R"(__end__ 1 {"a":1,"b":2})");
}

void TestGraphRunStorage::storageMayDoAnything_data()
{
    const QMap<QString, Act> acts{
        {"spins an event loop", [](StoredFixture *) { runUntilQuiet(); }},
        {"cancels the run", [](StoredFixture *f) { f->run->cancel(); }},
        {"deletes the run", [](StoredFixture *f) { delete f->run; }},
        {"begins another run by start()",
         [](StoredFixture *f) {
             f->run->start({{"again", true}}, "t");
         }},
        {"begins another run by resume()", [](StoredFixture *f) { f->run->resume("t"); }},
    };
    QTest::addColumn<QString>("call");
    QTest::addColumn<Act>("act");
    QTest::addColumn<bool>("fails");
    QTest::addColumn<int>("runs");
    for (const QString &call : callsOfTwoNodes) {
        for (auto act = acts.cbegin(); act != acts.cend(); ++act) {
            for (const bool fails : {false, true}) {
                const QString name =
                    QString("%1 and %2: %3").arg(act.key(), fails ? "fails" : "goes on", call);
                QTest::newRow(qPrintable(name))
                    << call << act.value() << fails << (act.key().startsWith("begins") ? 2 : 1);
            }
        }
    }
}

void TestGraphRunStorage::storageMayDoAnything()
{
    QFETCH(QString, call);
    QFETCH(Act, act);
    QFETCH(bool, fails);
    QFETCH(int, runs);
    StoredFixture f;
    bool hasActed = false;
    f.storage.onCall = [&](const QString &line) {
        f.log.append(line);
        if (line != call || std::exchange(hasActed, true))
            return;
        if (fails)
            f.storage.failAt(call.section(' ', 0, 0), 1);
        act(&f);
    };
    f.start({}, "t");
    QVERIFY(hasActed);
    const auto ends = f.log.filter(QRegularExpression("^(finished|error|canceled)")).size();
    QVERIFY2(ends == (f.run ? runs : 0), qPrintable(f.log.join("; ")));
    QVERIFY(!f.run || !f.run->isRunning());
    QVERIFY(!f.log.contains("still running"));
    if (!(fails && call == "release t"))
        QVERIFY2(f.storage.claims.isEmpty(), qPrintable(f.log.join("; ")));
}

void TestGraphRunStorage::claimThatIsGrantedTooLateIsGivenBack()
{
    StoredFixture f;
    f.storage.onCall = [&f](const QString &line) {
        if (line == "claim t")
            delete f.run;
    };
    f.start({}, "t");
    QVERIFY(f.storage.claims.isEmpty());
    QCOMPARE(f.storage.log, QStringList({"claim t", "release t"}));
}

QTEST_GUILESS_MAIN(TestGraphRunStorage)
#include "tst_graphrun_storage.moc"
