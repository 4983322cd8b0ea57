// What is left of a run whose program is killed, again and again, and what several programs do to one thread.

#include "support/postgrescluster.h"
#include "support/sqlitefile.h"

#include <qtagent/store/sqlcheckpoints.h>

#include <QRandomGenerator>
#include <QThread>
#include <QtTest>

#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int limitMs = 120000;
constexpr int mostNodes = 4;     // that a worker begins before it is killed, and some more
constexpr int mostMicros = 3000; // until then

// When the workers are killed. The seed of a run that failed may be set in the environment.
QRandomGenerator &chance()
{
    static QRandomGenerator generator = [] {
        const quint32 seed = qEnvironmentVariableIsSet("QTAGENT_TEST_SEED")
                               ? qEnvironmentVariable("QTAGENT_TEST_SEED").toUInt()
                               : QRandomGenerator::global()->generate();
        qInfo("QTAGENT_TEST_SEED=%u", seed);
        return QRandomGenerator(seed);
    }();
    return generator;
}

class WorkerProcess : public QProcess
{
public:
    explicit WorkerProcess(const QStringList &arguments)
    {
        setProcessChannelMode(QProcess::ForwardedErrorChannel);
        start(CHECKPOINT_WORKER, arguments);
    }

    /// Waits until the worker has begun another node; false where it has ended.
    bool waitForNode()
    {
        while (!canReadLine()) {
            if (!waitForReadyRead(limitMs))
                return false;
        }
        readLine();
        return true;
    }

    /// Kills the worker at some moment in or after its next nodes. Returns false where it has ended.
    bool killSomewhere()
    {
        for (int nodes = chance().bounded(mostNodes); nodes >= 0; --nodes) {
            if (!waitForNode())
                return false;
        }
        QThread::usleep(chance().bounded(mostMicros));
        kill();
        return waitForFinished(limitMs) && exitStatus() == QProcess::CrashExit;
    }

    bool succeeds()
    {
        return waitForFinished(limitMs) && exitStatus() == QProcess::NormalExit && exitCode() == EXIT_SUCCESS;
    }
};

QJsonObject stateAfter(int rounds)
{
    return {{"input", "kept"}, {"now", rounds}, {"later", rounds}, {"left", rounds}, {"right", rounds}};
}

// Each node once or more in a row, none left out: what the workers have written.
QStringList nodesBegunIn(const QString &folder)
{
    QFile file(QDir(folder).filePath("nodes"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList nodes;
    for (const QString &node : QString::fromUtf8(file.readAll()).split('\n')) {
        if (!node.isEmpty() && (nodes.isEmpty() || nodes.last() != node))
            nodes.append(node);
    }
    return nodes;
}

QStringList nodesOf(int rounds)
{
    QStringList nodes;
    for (int i = 1; i <= rounds; ++i)
        nodes << QString("now %1").arg(i) << QString("later %1").arg(i);
    return nodes;
}

} // namespace

class TestSqlCheckpointsPrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedProgramGoesOnWhereItStood();
    void programsTakeAThreadOverFromEachOther();
};

void TestSqlCheckpointsPrograms::killedProgramGoesOnWhereItStood()
{
    constexpr int kills = 200;
    constexpr int rounds = kills * (mostNodes + 2); // more than all of the killed ones come to
    const QTemporaryDir folder;
    const QString path = folder.filePath("checkpoints.sqlite");
    const QStringList arguments{path, folder.path(), "owner", QString::number(rounds)};
    for (int i = 0; i < kills; ++i)
        QVERIFY(WorkerProcess(arguments).killSomewhere());
    QCOMPARE(SqliteFile(path).run("PRAGMA integrity_check"), QStringList("ok"));
    QVERIFY(WorkerProcess(arguments).succeeds());

    const auto checkpoints = SqlCheckpoints::openSqlite(path);
    QVERIFY(checkpoints);
    const Checkpoint checkpoint = checkpoints->load("t", nullptr);
    QCOMPARE(checkpoint.next, "__end__");
    QCOMPARE(checkpoint.state, stateAfter(rounds));
    QCOMPARE(nodesBegunIn(folder.path()), nodesOf(rounds));
}

void TestSqlCheckpointsPrograms::programsTakeAThreadOverFromEachOther()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    constexpr int kills = 50;
    constexpr int rounds = kills * (mostNodes + 2);
    const QTemporaryDir folder;
    const auto begin = [&](int worker) {
        return std::make_unique<WorkerProcess>(
            QStringList{cluster.folder(), folder.path(), QString::number(worker), QString::number(rounds)});
    };
    // The one that works is killed, and the other one has to take over before it is begun again.
    std::unique_ptr<WorkerProcess> working = begin(0);
    QVERIFY(working->waitForNode());
    for (int i = 1; i <= kills; ++i) {
        std::unique_ptr<WorkerProcess> waiting = begin(i % 2);
        QVERIFY(working->killSomewhere());
        working = std::move(waiting);
        QVERIFY(working->waitForNode());
    }
    const std::unique_ptr<WorkerProcess> waiting = begin((kills + 1) % 2);
    QVERIFY(working->succeeds());
    QVERIFY(waiting->succeeds());

    const QSqlDatabase database = PostgresCluster::connectTo(cluster.folder(), "check");
    {
        const SqlCheckpoints checkpoints(database);
        QCOMPARE(checkpoints.load("t", nullptr).next, "__end__");
        QCOMPARE(checkpoints.load("t", nullptr).state, stateAfter(rounds));
    }
    QCOMPARE(nodesBegunIn(folder.path()), nodesOf(rounds));
}

QTEST_GUILESS_MAIN(TestSqlCheckpointsPrograms)
#include "tst_sqlcheckpoints_programs.moc"
