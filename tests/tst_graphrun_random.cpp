#include "support/graphfixture.h"
#include "support/randomgraph.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr quint32 graphCount = 2000;

// How the nodes of a graph are run.
using Arrange = std::function<void(GraphRun *, const QString &name, const NodeFunction &)>;

void leavePlain(GraphRun *, const QString &, const NodeFunction &) {}

void finishAtOnce(GraphRun *run, const QString &name, const NodeFunction &function)
{
    run->setAsyncNode(name, [function](GraphTask *task) { task->finish(function(task->state())); });
}

void finishLater(GraphRun *run, const QString &name, const NodeFunction &function)
{
    run->setAsyncNode(name, [function](GraphTask *task) {
        QTimer::singleShot(0, task, [task, function] { task->finish(function(task->state())); });
    });
}

// Every key of the update comes from a branch of its own, the last branch first.
void finishInBranches(GraphRun *run, const QString &name, const NodeFunction &function)
{
    const auto finishWith = [function](const QStringList &keys, bool isLate) {
        return [function, keys, isLate](GraphTask *task) {
            const QJsonObject all = function(task->state());
            QJsonObject update;
            for (const QString &key : keys) {
                if (all.contains(key))
                    update.insert(key, all.value(key));
            }
            const auto finish = [task, update] { task->finish(update); };
            QTimer::singleShot(0, task, [task, finish, isLate] {
                if (isLate)
                    QTimer::singleShot(0, task, finish);
                else
                    finish();
            });
        };
    };
    run->setParallelNode(name, {{"1", finishWith({"count", "text"}, true)},
                                {"2", finishWith({"key0", "key1", "key2", "key3"}, false)}});
}

QString kindOf(const GraphRunResult &result)
{
    if (result.interrupted)
        return "interrupted";
    return result.error.isEmpty() ? "finished" : result.error.section(' ', 0, 1);
}

} // namespace

Q_DECLARE_METATYPE(Arrange)

// The same graphs run at once and with the event loop.
class TestGraphRunRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void graphsEndInEveryWay();
    void resultsEqualThoseOfARunAtOnce_data();
    void resultsEqualThoseOfARunAtOnce();
    void resumedRunsAddUpToOneWithoutInterrupts();
};

void TestGraphRunRandom::graphsEndInEveryWay()
{
    QMap<QString, int> ends;
    int longRuns = 0;
    for (quint32 seed = 0; seed < graphCount; ++seed) {
        QStringList log;
        const RandomGraph random(seed, &log);
        const GraphRunResult result = random.graph.run(random.input);
        ++ends[kindOf(result)];
        longRuns += result.steps.size() > random.functions.size() ? 1 : 0;
    }
    QCOMPARE(ends.keys(), QStringList({"Graph exceeded", "Missing graph", "No edge", "No route", "finished",
                                       "interrupted"}));
    for (const QString &end : ends.keys())
        QVERIFY2(ends[end] >= 50, qPrintable(QString("%1: %2").arg(end).arg(ends[end])));
    QVERIFY2(longRuns >= 100, qPrintable(QString::number(longRuns)));
}

void TestGraphRunRandom::resultsEqualThoseOfARunAtOnce_data()
{
    QTest::addColumn<Arrange>("arrange");
    QTest::addColumn<bool>("callsOnce");
    QTest::newRow("plain nodes") << Arrange(leavePlain) << true;
    QTest::newRow("tasks that end at once") << Arrange(finishAtOnce) << true;
    QTest::newRow("tasks that end later") << Arrange(finishLater) << true;
    QTest::newRow("branches") << Arrange(finishInBranches) << false;
}

void TestGraphRunRandom::resultsEqualThoseOfARunAtOnce()
{
    QFETCH(Arrange, arrange);
    QFETCH(bool, callsOnce);
    for (quint32 seed = 0; seed < graphCount; ++seed) {
        QStringList calls;
        const RandomGraph random(seed, &calls);
        const GraphRunResult expected = random.graph.run(random.input);
        const QStringList expectedCalls = std::exchange(calls, {});

        GraphFixture f(random.graph);
        for (auto function = random.functions.cbegin(); function != random.functions.cend(); ++function)
            arrange(f.run, function.key(), function.value());
        f.run->start(random.input);
        f.waitForEnd();
        QVERIFY2(f.run->result() == expected, qPrintable(QString::number(seed)));
        QCOMPARE(f.log.filter(QRegularExpression("^step ")).size(), expected.steps.size());
        QCOMPARE(f.log.last(), GraphRunLog::textOf(expected));
        if (callsOnce)
            QCOMPARE(calls, expectedCalls);
    }
}

void TestGraphRunRandom::resumedRunsAddUpToOneWithoutInterrupts()
{
    int resumes = 0;
    for (quint32 seed = 0; seed < graphCount; ++seed) {
        QStringList calls;
        RandomGraph random(seed, &calls, false);
        random.graph.maxSteps = 40;
        const GraphRunResult expected = random.graph.run(random.input);
        if (kindOf(expected) == "Graph exceeded")
            continue;

        RandomGraph interrupted(seed, &calls);
        interrupted.graph.maxSteps = 40;
        GraphFixture f(interrupted.graph);
        f.start(random.input);
        QVector<GraphStep> steps = f.run->result().steps;
        for (; f.run->result().interrupted; ++resumes) {
            f.resume();
            steps += f.run->result().steps;
        }
        QVERIFY2(steps == expected.steps, qPrintable(QString::number(seed)));
        QCOMPARE(f.run->result().state, expected.state);
        QCOMPARE(f.run->result().error, expected.error);
    }
    QVERIFY2(resumes >= 250, qPrintable(QString::number(resumes)));
}

QTEST_GUILESS_MAIN(TestGraphRunRandom)
#include "tst_graphrun_random.moc"
