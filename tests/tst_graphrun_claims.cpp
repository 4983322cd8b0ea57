#include "support/storedfixture.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QtTest>

#include <stdexcept>

using namespace MireloQtLib::QtAgent;

namespace {

// The lease of a run whose claims expire, or are renewed, while a test waits.
constexpr int shortLeaseMs = 3;

void blockForLongerThan(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() <= milliseconds) {
    }
}

/// Notes the intervals of the timers whose events arrive, other than those of each turn.
class IntervalLog : public QObject
{
public:
    IntervalLog() { QCoreApplication::instance()->installEventFilter(this); }

    const QSet<int> &intervals() const { return m_intervals; }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const auto *timer = qobject_cast<QTimer *>(watched);
        if (event->type() == QEvent::Timer && timer && timer->interval() > 0)
            m_intervals.insert(timer->interval());
        return false;
    }

private:
    QSet<int> m_intervals;
};

/// A run whose node a is left to the test and whose claim is renewed all the time.
struct RenewingFixture : public StoredFixture
{
    explicit RenewingFixture(const QJsonObject &state = {})
    {
        run->setAsyncNode("a", keepsIn(&task));
        run->setLease(shortLeaseMs);
        start(state, "t");
        logCancel(task, &log);
        log.clear();
    }

    void claimExpires()
    {
        storage.nowMs += 100;
        blockForLongerThan(shortLeaseMs);
    }

    /// Runs the event loop until the claim was renewed twice, or the run is over.
    void waitForRenewals()
    {
        const int enough = int(storage.callsOf("claim").size()) + 2;
        while (run->isRunning() && storage.callsOf("claim").size() < enough)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    QPointer<GraphTask> task;
};

} // namespace

// How a run keeps its thread, and how it loses it.
class TestGraphRunClaims : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void claimIsRenewedWhileATaskRuns();
    void claimIsRenewedEveryThirdOfTheLease_data();
    void claimIsRenewedEveryThirdOfTheLease();
    void renewalThatFailsDoesNotEndTheRun_data();
    void renewalThatFailsDoesNotEndTheRun();
    void threadThatIsTakenOverEndsTheRunAtOnce();
    void nodeThatBlocksForTooLongIsRefused();
    void threadThatWasRunAndGivenBackMeanwhileIsNoLongerOurs_data();
    void threadThatWasRunAndGivenBackMeanwhileIsNoLongerOurs();
    void expiredClaimThatNobodyTookGoesOn_data();
    void expiredClaimThatNobodyTookGoesOn();
    void whatCannotBeReadAgainIsNotWrittenOver();
};

void TestGraphRunClaims::claimIsRenewedWhileATaskRuns()
{
    RenewingFixture f;
    f.storage.nowMs += 100;
    f.waitForRenewals();
    QVERIFY(f.run->isRunning());
    QCOMPARE(f.storage.claims["t"].untilMs, f.storage.nowMs + shortLeaseMs);
    f.task->finish({{"a", 1}});
    f.waitForEnd();
    QCOMPARE(f.log.last(), "finished");
    f.log.clear();
    blockForLongerThan(shortLeaseMs);
    runUntilQuiet();
    QCOMPARE(f.log, QStringList());
}

void TestGraphRunClaims::claimIsRenewedEveryThirdOfTheLease_data()
{
    QTest::addColumn<qint64>("lease");
    QTest::addColumn<int>("interval");
    QTest::newRow("lease of 60 ms") << qint64(60) << 20;
    QTest::newRow("lease of 31 ms") << qint64(31) << 10;
    QTest::newRow("shortest interval") << qint64(2) << 1;
    QTest::newRow("no lease") << qint64(0) << 1;
}

void TestGraphRunClaims::claimIsRenewedEveryThirdOfTheLease()
{
    QFETCH(qint64, lease);
    QFETCH(int, interval);
    StoredFixture f;
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", keepsIn(&task));
    f.run->setLease(lease);
    IntervalLog timers;
    f.start({}, "t");
    while (f.run->isRunning() && f.storage.callsOf("claim").size() < 3)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QVERIFY(f.run->isRunning());
    QCOMPARE(timers.intervals(), QSet<int>({interval}));
}

void TestGraphRunClaims::renewalThatFailsDoesNotEndTheRun_data()
{
    QTest::addColumn<bool>("throws");
    QTest::newRow("with an error") << false;
    QTest::newRow("with an exception") << true;
}

void TestGraphRunClaims::renewalThatFailsDoesNotEndTheRun()
{
    QFETCH(bool, throws);
    RenewingFixture f;
    f.storage.failAt("claim", 1, "no connection");
    f.storage.failAt("load", 1, "no connection");
    f.storage.onCall = [throws](const QString &line) {
        if (throws && line == "claim t")
            throw std::runtime_error("no connection");
    };
    f.waitForRenewals();
    QVERIFY(f.run->isRunning());
    f.storage.onCall = {};
    f.task->finish({});
    f.waitForEnd();
    QCOMPARE(f.log.last(), "finished");
}

void TestGraphRunClaims::threadThatIsTakenOverEndsTheRunAtOnce()
{
    RenewingFixture f;
    const Checkpoint stored = f.storage.checkpoints["t"];
    f.storage.giveTo("other", "t");
    f.waitForEnd();
    QCOMPARE(f.log.mid(f.log.indexOf("claim t")),
             QStringList({"claim t", "task canceled a", "error: Thread 't' was taken over."}));
    QCOMPARE(f.storage.checkpoints["t"], stored);
    QCOMPARE(f.storage.claims["t"].owner, "other");
}

void TestGraphRunClaims::nodeThatBlocksForTooLongIsRefused()
{
    MemoryCheckpoints *storage = nullptr;
    StoredFixture f(twoNodes([&storage](const QJsonObject &) {
        storage->giveTo("other", "t");
        return QJsonObject{{"a", "late"}};
    }));
    storage = &f.storage;
    f.start({}, "t");
    QCOMPARE(f.log.mid(3), QStringList({"started a", R"(save t: b 1 {"a":"late"})", "claim t", "step a",
                                        "error: Thread 't' was taken over."}));
    QCOMPARE(f.stored(), "a 1 {}");
    QCOMPARE(f.storage.claims["t"].owner, "other");
}

void TestGraphRunClaims::threadThatWasRunAndGivenBackMeanwhileIsNoLongerOurs_data()
{
    QTest::addColumn<bool>("inNode");
    QTest::newRow("while a node blocked") << true;
    QTest::newRow("while the machine slept") << false;
}

void TestGraphRunClaims::threadThatWasRunAndGivenBackMeanwhileIsNoLongerOurs()
{
    QFETCH(bool, inNode);
    StoredFixture f;
    const auto runElsewhere = [&f] {
        blockForLongerThan(shortLeaseMs);
        f.storage.claims.remove("t");
        f.storage.checkpoints["t"].state = {{"by", "another program"}};
        f.storage.checkpoints["t"].next = EndNode;
    };
    QPointer<GraphTask> task;
    f.run->setAsyncNode("a", [&](GraphTask *started) {
        task = started;
        if (inNode) {
            runElsewhere();
            started->finish({});
        }
    });
    f.run->setLease(shortLeaseMs);
    f.run->start({}, "t");
    while (!task)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    if (!inNode)
        runElsewhere();
    f.waitForEnd();
    QCOMPARE(f.log.last(), "error: Thread 't' was taken over.");
    QCOMPARE(f.stored(), R"(__end__ 1 {"by":"another program"})");
    QVERIFY(f.storage.claims.isEmpty());
}

void TestGraphRunClaims::expiredClaimThatNobodyTookGoesOn_data()
{
    constexpr double large = 9007199254740994; // beyond 2^53
    QTest::addColumn<QJsonObject>("state");
    QTest::newRow("no state") << QJsonObject();
    QTest::newRow("keys in any order")
        << QJsonObject{{"\U0001f600", 1},
                       {"（泵）", 2},
                       {"\uffee", QJsonObject{{"\U0001f600", 1}, {"（泵）", 2}}},
                       {"a", 3}};
    QTest::newRow("numbers") << QJsonObject{{"large", large},
                                            {"list", QJsonArray{large, 1e300, 0.1, -3, true, QJsonValue()}}};
}

// What the storage reads has come back from JSON.
void TestGraphRunClaims::expiredClaimThatNobodyTookGoesOn()
{
    QFETCH(QJsonObject, state);
    RenewingFixture f(state);
    Checkpoint &stored = f.storage.checkpoints["t"];
    stored.state = QJsonDocument::fromJson(QJsonDocument(stored.state).toJson()).object();
    for (int i = 0; i < 3; ++i) {
        f.claimExpires();
        f.waitForRenewals();
        QVERIFY(f.run->isRunning());
    }
    QVERIFY(!f.storage.callsOf("load").isEmpty());
    f.task->finish({});
    f.waitForEnd();
    QCOMPARE(f.log.last(), "finished");
}

// Somebody else ran the thread while the claim had expired, and the storage does not tell.
void TestGraphRunClaims::whatCannotBeReadAgainIsNotWrittenOver()
{
    RenewingFixture f;
    f.storage.checkpoints["t"].next = EndNode;
    f.storage.onCall = [&f](const QString &line) {
        if (line.startsWith("load"))
            f.storage.failAt("load", 1, "no connection");
    };
    f.claimExpires();
    f.waitForRenewals();
    QVERIFY(f.run->isRunning());
    const int calls = int(f.storage.log.size());
    f.task->finish({{"a", "late"}});
    f.waitForEnd();
    QCOMPARE(f.run->result().error, "Checkpoint of thread 't' not saved: no connection");
    QCOMPARE(f.stored(), "__end__ 1 {}");
    QCOMPARE(QStringList(f.storage.log.mid(calls)).filter("save"), QStringList());
}

QTEST_GUILESS_MAIN(TestGraphRunClaims)
#include "tst_graphrun_claims.moc"
