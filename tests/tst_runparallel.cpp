#include <qtagent/runparallel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestRunParallel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void branchesRunInAscendingOrder();
    void branchesSeeTheSameVariables();
    void branchesMayChangeTheCallersMaps();
    void noBranchesGiveNoTexts();
    void emptyBranchThrows();
};

void TestRunParallel::branchesRunInAscendingOrder()
{
    QStringList order;
    const auto branch = [&order](const QString &name) {
        return [&order, name](const PromptVariables &variables) {
            order.append(name);
            return name + " of " + variables["topic"];
        };
    };
    const QMap<QString, QString> texts =
        runParallel({{"b", branch("b")}, {"a", branch("a")}, {"C", branch("C")}}, {{"topic", "x"}});
    QCOMPARE(order, (QStringList{"C", "a", "b"}));
    QCOMPARE(texts, (QMap<QString, QString>{{"C", "C of x"}, {"a", "a of x"}, {"b", "b of x"}}));
}

void TestRunParallel::branchesSeeTheSameVariables()
{
    PromptVariables variables{{"topic", "x"}};
    const auto read = [](const PromptVariables &seen) { return seen["topic"]; };
    const auto change = [&variables](const PromptVariables &seen) {
        variables["topic"] = "changed";
        return seen["topic"];
    };
    QCOMPARE(runParallel({{"a", change}, {"b", read}}, variables),
             (QMap<QString, QString>{{"a", "x"}, {"b", "x"}}));
}

void TestRunParallel::branchesMayChangeTheCallersMaps()
{
    QMap<QString, ParallelBranch> branches;
    branches["a"] = [&branches](const PromptVariables &) {
        branches.clear();
        return QString("1");
    };
    branches["b"] = [](const PromptVariables &) { return QString("2"); };
    QCOMPARE(runParallel(branches, {}), (QMap<QString, QString>{{"a", "1"}, {"b", "2"}}));
    QVERIFY(branches.isEmpty());
}

void TestRunParallel::noBranchesGiveNoTexts()
{
    QVERIFY(runParallel({}, {{"a", "1"}}).isEmpty());
}

void TestRunParallel::emptyBranchThrows()
{
    int runs = 0;
    const auto count = [&runs](const PromptVariables &) {
        ++runs;
        return QString();
    };
    const QMap<QString, ParallelBranch> branches{{"a", count}, {"b", ParallelBranch()}, {"c", count}};
    QVERIFY_EXCEPTION_THROWN(runParallel(branches, {}), std::bad_function_call);
    QCOMPARE(runs, 1);
}

QTEST_APPLESS_MAIN(TestRunParallel)
#include "tst_runparallel.moc"
