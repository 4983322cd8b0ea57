#include "support/heldmodel.h"
#include "support/pagegroup.h"

#include <demo/parallelbranches.h>
#include <qtagent/mockchatmodel.h>

#include <QGroupBox>
#include <QLabel>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QString startLine = QStringLiteral("正在并行启动 3 个 AI 分支...\n\n");
const QString mergeLine = QStringLiteral("汇总节点正在合并分支结果...\n\n");

} // namespace

class TestParallelBranches : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pageHasItsLayoutAndTexts();
    void threeRequestsAreInFlightTogether();
    void requestOfABranchCarriesItsPrompts_data();
    void requestOfABranchCarriesItsPrompts();
    void inputGoesOutAsItStands();
    void blocksStandInTheOrderOfCompletion();
    void deltasOfBranchesAreNotShown();
    void mergeFollowsTheLastBranch();
    void mergedAnswerStreamsInAndEndsTheRun();
    void failedBranchTakesPartInTheMerge();
    void allBranchesMayFail();
    void failedMergeIsAppendedAndEndsTheRun();
    void stopBeforeTheFirstBlock();
    void stopBetweenBlocksKeepsThem();
    void stopDuringTheMerge();
    void stopAfterTheEndDoesNothing();
    void secondRunReplacesTheFirst();
    void runAfterStopStartsAfresh();
    void branchThatFailsAtOnceDoesNotDisturbTheOthers();
    void pageMayDieAtEveryMoment_data();
    void pageMayDieAtEveryMoment();
    void slotOfAReplyMayDeleteThePage();
    void repliesAreDeletedWhenTheyAreOver();
    void mockModelReachesTheEnd();
    void modelDeletedBeforeTheMergeIsReported();

private:
    // cppcheck-suppress CastIntegerToAddressAtReturn ; a member that is called reply
    ChatReply *reply(int index) const { return m_model->calls().at(index).reply; }
    QString branches() const { return m_driver->text("branchOutput"); }
    QString merge() const { return m_driver->text("mergeOutput"); }
    void press(const char *button) { m_driver->click(button); }
    QString areaTitle(const QString &editor) const
    {
        return qobject_cast<QGroupBox *>(m_driver->editor(editor)->parentWidget())->title();
    }
    void finishBranches();

    std::unique_ptr<HeldModel> m_model;
    QPointer<ParallelBranchesPage> m_page;
    std::unique_ptr<PageDriver> m_driver;
};

void TestParallelBranches::init()
{
    m_model = std::make_unique<HeldModel>();
    m_page = new ParallelBranchesPage([this] { return m_model.get(); });
    m_driver = std::make_unique<PageDriver>(m_page);
}

void TestParallelBranches::cleanup()
{
    delete m_page;
    m_driver.reset();
    m_model.reset();
}

void TestParallelBranches::finishBranches()
{
    reply(0)->finish("A");
    reply(1)->finish("B");
    reply(2)->finish("C");
}

void TestParallelBranches::pageHasItsLayoutAndTexts()
{
    QCOMPARE(areaTitle("pageInput"), QStringLiteral("多个 AI 并行处理"));
    QCOMPARE(areaTitle("branchOutput"), QStringLiteral("并行 AI 分支输出"));
    QCOMPARE(areaTitle("mergeOutput"), QStringLiteral("汇总节点输出"));
    const auto *label = m_page->findChild<QLabel *>();
    QCOMPARE(label->text(), QStringLiteral("输入数据"));
    QCOMPARE(label->buddy(), m_driver->editor("pageInput"));
    QCOMPARE(m_driver->text("pageInput"),
             QStringLiteral("{\n  \"topic\": \"Orvane 设备巡检助手\",\n"
                            "  \"signals\": [\"设备 A 温度偏高\", \"设备 B 网络抖动\", \"设备 C 正常\"],\n"
                            "  \"goal\": \"判断风险、给出产品交互和工程处理建议\"\n}"));
    QCOMPARE(m_driver->button("runButton")->text(), QStringLiteral("并行运行"));
    QCOMPARE(m_driver->button("stopButton")->text(), QStringLiteral("停止"));
    QVERIFY(m_driver->editor("branchOutput")->isReadOnly());
    QVERIFY(m_driver->editor("mergeOutput")->isReadOnly());
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::threeRequestsAreInFlightTogether()
{
    press("runButton");
    QCOMPARE(m_model->calls().size(), 3);
    QCOMPARE(branches(), startLine);
    QCOMPARE(merge(), QString());
    QVERIFY(!m_driver->button("runButton")->isEnabled());
    QVERIFY(m_driver->button("stopButton")->isEnabled());
}

void TestParallelBranches::requestOfABranchCarriesItsPrompts_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("system");
    QTest::addColumn<QString>("user");
    QTest::newRow("risk")
        << 0
        << "You are a risk analysis AI. Read the data and identify risk level, evidence, and "
           "immediate actions. Answer in Chinese."
        << "请从风险分析角度处理这份数据。\n\nInput data:\nx %1";
    QTest::newRow("product")
        << 1
        << "You are a product UX AI. Read the data and propose UI states, user guidance, and "
           "interaction priorities. Answer in Chinese."
        << "请从产品交互和用户体验角度处理这份数据。\n\nInput data:\nx %1";
    QTest::newRow("engineering")
        << 2
        << "You are an engineering AI. Read the data and propose implementation steps, "
           "diagnostics, and fallback handling. Answer in Chinese."
        << "请从工程实现和排障角度处理这份数据。\n\nInput data:\nx %1";
}

void TestParallelBranches::requestOfABranchCarriesItsPrompts()
{
    QFETCH(int, index);
    m_driver->type("x %1");
    press("runButton");
    const HeldModel::Call &call = m_model->calls().at(index);
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(call.messages.at(0).role, QStringLiteral("system"));
    QTEST(call.messages.at(0).content, "system");
    QCOMPARE(call.messages.at(1).role, QStringLiteral("user"));
    QTEST(call.messages.at(1).content, "user");
    QVERIFY(call.tools.isEmpty());
}

void TestParallelBranches::inputGoesOutAsItStands()
{
    m_driver->type(" x \n");
    press("runButton");
    QVERIFY(m_model->calls().at(0).messages.at(1).content.endsWith("\n\nInput data:\n x \n"));
}

void TestParallelBranches::blocksStandInTheOrderOfCompletion()
{
    press("runButton");
    reply(2)->finish("C %1");
    reply(0)->finish("<b>A</b>");
    QCOMPARE(branches(), startLine + "[工程执行 AI]\nC %1\n[风险分析 AI]\n<b>A</b>\n");
    QCOMPARE(m_model->calls().size(), 3);
    reply(1)->finish("B");
    QCOMPARE(branches(), startLine + "[工程执行 AI]\nC %1\n[风险分析 AI]\n<b>A</b>\n[产品体验 AI]\nB\n");
}

void TestParallelBranches::deltasOfBranchesAreNotShown()
{
    press("runButton");
    reply(0)->appendDelta("half");
    QCOMPARE(branches(), startLine);
}

void TestParallelBranches::mergeFollowsTheLastBranch()
{
    m_driver->type("data %2");
    press("runButton");
    reply(1)->finish("B");
    reply(2)->finish("C");
    QCOMPARE(merge(), QString());
    reply(0)->finish("A %1");
    QCOMPARE(merge(), mergeLine);
    QCOMPARE(m_model->calls().size(), 4);
    const HeldModel::Call &call = m_model->lastCall();
    QCOMPARE(call.messages.at(0).content,
             QStringLiteral(
                 "You are the merge node in an Orvane parallel workflow. Merge multiple AI branch outputs "
                 "into one concise Chinese decision report. Keep conflicts visible, then provide a final "
                 "recommendation."));
    QCOMPARE(call.messages.at(1).content,
             QStringLiteral("Original data:\ndata %2\n\nParallel branch outputs:\n"
                            "[风险分析 AI]\nA %1\n\n[产品体验 AI]\nB\n\n[工程执行 AI]\nC"));
    QVERIFY(call.tools.isEmpty());
    QVERIFY(!m_driver->isIdle());
}

void TestParallelBranches::mergedAnswerStreamsInAndEndsTheRun()
{
    press("runButton");
    finishBranches();
    reply(3)->appendDelta("one ");
    QCOMPARE(merge(), mergeLine + "one ");
    QVERIFY(!m_driver->isIdle());
    reply(3)->appendDelta("two");
    reply(3)->finish("one two");
    QCOMPARE(merge(), mergeLine + "one two");
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::failedBranchTakesPartInTheMerge()
{
    press("runButton");
    reply(0)->finish("A");
    reply(1)->fail("no network");
    QCOMPARE(branches(), startLine + "[风险分析 AI]\nA\n[产品体验 AI]\n分支失败：no network\n");
    reply(2)->finish("C");
    QVERIFY(m_model->lastCall().messages.at(1).content.endsWith(
        "[风险分析 AI]\nA\n\n[产品体验 AI]\n分支失败：no network\n\n[工程执行 AI]\nC"));
}

void TestParallelBranches::allBranchesMayFail()
{
    press("runButton");
    for (int index : {2, 1, 0})
        reply(index)->fail("x");
    QCOMPARE(m_model->calls().size(), 4);
    reply(3)->fail("y");
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::failedMergeIsAppendedAndEndsTheRun()
{
    press("runButton");
    finishBranches();
    reply(3)->appendDelta("half");
    reply(3)->fail("no %1");
    QCOMPARE(merge(), mergeLine + "half\n汇总节点错误：no %1");
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::stopBeforeTheFirstBlock()
{
    press("runButton");
    press("stopButton");
    QCOMPARE(branches(), startLine + "\n已停止。");
    QCOMPARE(merge(), QString());
    for (int index : {0, 1, 2})
        QVERIFY(reply(index)->isCanceled());
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::stopBetweenBlocksKeepsThem()
{
    press("runButton");
    reply(1)->finish("B");
    press("stopButton");
    reply(0)->finish("late");
    reply(2)->fail("late");
    QCOMPARE(branches(), startLine + "[产品体验 AI]\nB\n\n已停止。");
    QCOMPARE(m_model->calls().size(), 3);
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::stopDuringTheMerge()
{
    press("runButton");
    finishBranches();
    const QString blocks = branches();
    reply(3)->appendDelta("half");
    press("stopButton");
    QVERIFY(reply(3)->isCanceled());
    QCOMPARE(merge(), mergeLine + "half\n已停止。");
    QCOMPARE(branches(), blocks);
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::stopAfterTheEndDoesNothing()
{
    press("runButton");
    finishBranches();
    reply(3)->finish("done");
    const QString merged = merge();
    press("stopButton");
    QCOMPARE(merge(), merged);
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::secondRunReplacesTheFirst()
{
    press("runButton");
    reply(0)->finish("old");
    m_driver->button("runButton")->setEnabled(true);
    press("runButton");
    QVERIFY(reply(1)->isCanceled());
    QVERIFY(reply(2)->isCanceled());
    QCOMPARE(branches(), startLine);
    reply(3)->finish("new");
    QCOMPARE(branches(), startLine + "[风险分析 AI]\nnew\n");
    QCOMPARE(m_model->calls().size(), 6);
}

void TestParallelBranches::runAfterStopStartsAfresh()
{
    press("runButton");
    press("stopButton");
    press("runButton");
    QCOMPARE(branches(), startLine);
    reply(3)->finish("A");
    reply(4)->finish("B");
    reply(5)->finish("C");
    QCOMPARE(merge(), mergeLine);
    reply(6)->finish(QString());
    QVERIFY(m_driver->isIdle());
}

void TestParallelBranches::branchThatFailsAtOnceDoesNotDisturbTheOthers()
{
    m_model->addFailure("at once");
    press("runButton");
    QTRY_COMPARE(branches(), startLine + "[风险分析 AI]\n分支失败：at once\n");
    reply(1)->finish("B");
    reply(2)->finish("C");
    QCOMPARE(merge(), mergeLine);
}

void TestParallelBranches::pageMayDieAtEveryMoment_data()
{
    QTest::addColumn<int>("finishedBranches");
    QTest::newRow("before the first block") << 0;
    QTest::newRow("between blocks") << 2;
    QTest::newRow("during the merge") << 3;
}

void TestParallelBranches::pageMayDieAtEveryMoment()
{
    QFETCH(int, finishedBranches);
    press("runButton");
    for (int index = 0; index < finishedBranches; ++index)
        reply(index)->finish("x");
    delete m_page;
    for (const HeldModel::Call &call : m_model->calls())
        QVERIFY(!call.reply);
}

void TestParallelBranches::slotOfAReplyMayDeleteThePage()
{
    press("runButton");
    connect(reply(1), &ChatReply::canceled, this, [this] { delete m_page; });
    press("stopButton");
    QVERIFY(!m_page);
    QVERIFY(!reply(2));
}

void TestParallelBranches::repliesAreDeletedWhenTheyAreOver()
{
    press("runButton");
    finishBranches();
    reply(3)->finish("done");
    QTRY_VERIFY(m_driver->replies().isEmpty());
}

void TestParallelBranches::mockModelReachesTheEnd()
{
    MockChatModel mock;
    ParallelBranchesPage page([&mock] { return &mock; });
    const PageDriver driver(&page);
    driver.run();
    QTRY_VERIFY(driver.isIdle());
    QVERIFY(driver.text("mergeOutput").startsWith(mergeLine + "Orvane 模拟模型正在本地运行。"));
    QCOMPARE(driver.text("branchOutput").count("Orvane 模拟模型正在本地运行。"), 3);
}

void TestParallelBranches::modelDeletedBeforeTheMergeIsReported()
{
    press("runButton");
    const QVector<QPointer<ChatReply>> replies{reply(0), reply(1), reply(2)};
    m_model.reset();
    for (const QPointer<ChatReply> &branch : replies)
        branch->finish("x");
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(merge(), mergeLine + "\n汇总节点错误：智能体模型尚未配置。");
}

QTEST_MAIN(TestParallelBranches)
#include "tst_parallelbranches.moc"
