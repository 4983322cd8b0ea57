#include "support/httpendpoint.h"
#include "support/pagegroup.h"

#include <demo/parallelbranches.h>

#include <QtTest>

#include <array>
#include <memory>

using namespace MireloQtLib::QtAgent;

// The parallel page beside servers that answer late, with an error, or never.
//
// Every request of a run goes to a server of its own, so that each can be released by itself: the three
// branches in the order of their table, then the merge.
class TestParallelBranchesHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void oneServerSeesTheBranchesTogether();
    void requestsAreSentAsTheyStand();
    void blocksAppearAsTheServersAnswer();
    void mergedAnswerStreamsIn();
    void failedBranchIsMerged();
    void allBranchesMayFail();
    void failedMergeEndsTheRun();
    void branchThatNeverAnswersCanBeStopped();
    void stopDuringTheMergeKeepsWhatStreamed();
    void runAfterAStopShowsNothingOfTheFirst_data();
    void runAfterAStopShowsNothingOfTheFirst();
    void pageMayCloseAtEveryMoment_data();
    void pageMayCloseAtEveryMoment();

private:
    HttpEndpoint &endpoint(int index) { return *m_endpoints.at(size_t(index)); }
    QString branches() const { return m_driver->text("branchOutput"); }
    QString merged() const { return m_driver->text("mergeOutput"); }
    void holdEveryAnswer();
    void runUntil(int releasedAnswers);

    std::array<std::unique_ptr<HttpEndpoint>, 4> m_endpoints;
    int m_modelRequests = 0;
    QPointer<ParallelBranchesPage> m_page;
    std::unique_ptr<PageDriver> m_driver;
};

namespace {

constexpr int merge = 3;
const QString startLine = QStringLiteral("正在并行启动 3 个 AI 分支...\n\n");
const QString mergeLine = QStringLiteral("汇总节点正在合并分支结果...\n\n");
const QString stopLine = QStringLiteral("\n已停止。");

} // namespace

void TestParallelBranchesHttp::init()
{
    for (auto &endpoint : m_endpoints)
        endpoint = std::make_unique<HttpEndpoint>();
    m_modelRequests = 0;
    m_page = new ParallelBranchesPage(
        [this] { return &endpoint(m_modelRequests++ % int(m_endpoints.size())).model; });
    m_driver = std::make_unique<PageDriver>(m_page);
    m_driver->type("data");
}

void TestParallelBranchesHttp::cleanup()
{
    delete m_page;
    m_driver.reset();
    for (auto &endpoint : m_endpoints)
        endpoint.reset();
}

// Answers "0", "1" and "2" for the branches, "3" and "4" for the merge, of which the first comes at once.
void TestParallelBranchesHttp::holdEveryAnswer()
{
    for (int index = 0; index < merge; ++index)
        endpoint(index).addStream({QString::number(index)}, 0);
    endpoint(merge).addStream({"3", "4"}, 1);
}

// Runs the page until that many branches have answered, or with 3 until the merge has begun to.
void TestParallelBranchesHttp::runUntil(int releasedAnswers)
{
    holdEveryAnswer();
    m_driver->run();
    for (int index = 0; index < releasedAnswers; ++index)
        endpoint(index).server.release();
    QTRY_COMPARE(branches().count('['), releasedAnswers);
    if (releasedAnswers == merge)
        QTRY_COMPARE(merged(), mergeLine + "3");
    for (int index = 0; index < merge; ++index)
        QTRY_COMPARE(endpoint(index).server.requests().size(), 1);
}

void TestParallelBranchesHttp::oneServerSeesTheBranchesTogether()
{
    ParallelBranchesPage page([this] { return &endpoint(0).model; });
    const PageDriver driver(&page);
    for (int index = 0; index < merge; ++index)
        endpoint(0).addStream({"same"}, 0);
    endpoint(0).addStream({"report"});
    driver.run();
    QTRY_COMPARE(endpoint(0).server.requests().size(), 3);
    QCOMPARE(driver.text("branchOutput"), startLine);
    endpoint(0).server.release();
    QTRY_VERIFY(driver.isIdle());
    QCOMPARE(driver.text("branchOutput").count("]\nsame\n"), 3);
    QCOMPARE(driver.text("mergeOutput"), mergeLine + "report");
}

void TestParallelBranchesHttp::requestsAreSentAsTheyStand()
{
    for (int index = 0; index <= merge; ++index)
        endpoint(index).addStream({QString::number(index)});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    const QVector<QPair<QString, QString>> prompts{
        {"You are a risk analysis AI. Read the data and identify risk level, evidence, and immediate "
         "actions. Answer in Chinese.",
         "请从风险分析角度处理这份数据。\n\nInput data:\ndata"},
        {"You are a product UX AI. Read the data and propose UI states, user guidance, and interaction "
         "priorities. Answer in Chinese.",
         "请从产品交互和用户体验角度处理这份数据。\n\nInput data:\ndata"},
        {"You are an engineering AI. Read the data and propose implementation steps, diagnostics, and "
         "fallback handling. Answer in Chinese.",
         "请从工程实现和排障角度处理这份数据。\n\nInput data:\ndata"},
        {"You are the merge node in an Orvane parallel workflow. Merge multiple AI branch outputs into one "
         "concise Chinese decision report. Keep conflicts visible, then provide a final recommendation.",
         "Original data:\ndata\n\nParallel branch outputs:\n"
         "[风险分析 AI]\n0\n\n[产品体验 AI]\n1\n\n[工程执行 AI]\n2"},
    };
    for (int index = 0; index <= merge; ++index) {
        const QJsonArray messages{HttpEndpoint::message("system", prompts.at(index).first),
                                  HttpEndpoint::message("user", prompts.at(index).second)};
        QCOMPARE(endpoint(index).server.requests().size(), 1);
        QCOMPARE(endpoint(index).server.requests().first().json, HttpEndpoint::requestWith(messages));
    }
}

void TestParallelBranchesHttp::blocksAppearAsTheServersAnswer()
{
    holdEveryAnswer();
    m_driver->run();
    QString blocks = startLine;
    QCOMPARE(branches(), blocks);
    const QVector<QPair<int, QString>> order{
        {2, "[工程执行 AI]\n2\n"}, {0, "[风险分析 AI]\n0\n"}, {1, "[产品体验 AI]\n1\n"}};
    for (const auto &block : order) {
        QCOMPARE(merged(), QString());
        endpoint(block.first).server.release();
        blocks += block.second;
        QTRY_COMPARE(branches(), blocks);
    }
    QVERIFY(merged().startsWith(mergeLine));
}

void TestParallelBranchesHttp::mergedAnswerStreamsIn()
{
    runUntil(merge);
    QVERIFY(!m_driver->isIdle());
    endpoint(merge).server.release();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(merged(), mergeLine + "34");
}

void TestParallelBranchesHttp::failedBranchIsMerged()
{
    endpoint(0).addStream({"A"}, 0);
    endpoint(1).addRefusal();
    endpoint(2).addStream({"C"}, 0);
    endpoint(merge).addStream({"report"});
    m_driver->run();
    const QString failure = QStringLiteral("[产品体验 AI]\n分支失败：OpenAI-compatible request failed.\n");
    QTRY_VERIFY(branches().startsWith(startLine + failure));
    QVERIFY2(branches().endsWith("\nResponse: bad key\n"), qPrintable(branches()));
    QVERIFY(!m_driver->isIdle());
    endpoint(0).server.release();
    endpoint(2).server.release();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(merged(), mergeLine + "report");

    const QJsonArray messages = endpoint(merge).server.requests().first().json["messages"].toArray();
    const QString request = messages.last()["content"].toString();
    QVERIFY(request.contains("\n[风险分析 AI]\nA\n\n" + failure));
    QVERIFY2(request.endsWith("\nResponse: bad key\n\n[工程执行 AI]\nC"), qPrintable(request));
}

void TestParallelBranchesHttp::allBranchesMayFail()
{
    for (int index = 0; index < merge; ++index)
        endpoint(index).addRefusal();
    endpoint(merge).addStream({"report"});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(branches().count("分支失败：OpenAI-compatible request failed."), 3);
    QCOMPARE(merged(), mergeLine + "report");
}

void TestParallelBranchesHttp::failedMergeEndsTheRun()
{
    for (int index = 0; index < merge; ++index)
        endpoint(index).addStream({"x"});
    endpoint(merge).addRefusal();
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QVERIFY(merged().startsWith(mergeLine + "\n汇总节点错误：OpenAI-compatible request failed.\n"));
    QVERIFY2(merged().endsWith("\nResponse: bad key"), qPrintable(merged()));
}

void TestParallelBranchesHttp::branchThatNeverAnswersCanBeStopped()
{
    runUntil(2);
    const QString blocks = branches();
    m_driver->click("stopButton");
    QVERIFY(m_driver->isIdle());
    QCOMPARE(branches(), blocks + stopLine);
    QTRY_VERIFY(m_driver->replies().isEmpty());
    QCOMPARE(merged(), QString());
    QCOMPARE(endpoint(merge).server.requests().size(), 0);
}

void TestParallelBranchesHttp::stopDuringTheMergeKeepsWhatStreamed()
{
    runUntil(merge);
    const QString blocks = branches();
    m_driver->click("stopButton");
    QVERIFY(m_driver->isIdle());
    endpoint(merge).server.release();
    QTRY_VERIFY(m_driver->replies().isEmpty());
    QCOMPARE(merged(), mergeLine + "3" + stopLine);
    QCOMPARE(branches(), blocks);
}

void TestParallelBranchesHttp::runAfterAStopShowsNothingOfTheFirst_data()
{
    QTest::addColumn<int>("releasedAnswers");
    QTest::newRow("before the first block") << 0;
    QTest::newRow("between blocks") << 2;
    QTest::newRow("during the merge") << 3;
}

void TestParallelBranchesHttp::runAfterAStopShowsNothingOfTheFirst()
{
    QFETCH(int, releasedAnswers);
    runUntil(releasedAnswers);
    m_driver->click("stopButton");
    for (int index = 0; index <= merge; ++index)
        endpoint(index).server.release();

    m_modelRequests = 0;
    for (int index = 0; index < merge; ++index)
        endpoint(index).addStream({"new"});
    endpoint(merge).addStream({"report"});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(branches().count('['), 3);
    QCOMPARE(branches().count("]\nnew\n"), 3);
    // A merge that the first run never asked for has left its answer to this one.
    QCOMPARE(merged(), mergeLine + (releasedAnswers == merge ? "report" : "34"));
}

void TestParallelBranchesHttp::pageMayCloseAtEveryMoment_data()
{
    runAfterAStopShowsNothingOfTheFirst_data();
}

void TestParallelBranchesHttp::pageMayCloseAtEveryMoment()
{
    QFETCH(int, releasedAnswers);
    runUntil(releasedAnswers);
    QVector<QPointer<ChatReply>> replies;
    for (ChatReply *reply : m_driver->replies())
        replies.append(reply);
    QVERIFY(!replies.isEmpty());
    delete m_page;
    for (const QPointer<ChatReply> &reply : replies)
        QVERIFY(!reply);

    // The models are free for the next page.
    ParallelBranchesPage page([this] { return &endpoint(0).model; });
    for (int index = 0; index <= merge; ++index)
        endpoint(0).addStream({"x"});
    const PageDriver driver(&page);
    driver.run();
    QTRY_VERIFY(driver.isIdle());
    QCOMPARE(driver.text("mergeOutput"), mergeLine + "x");
}

QTEST_MAIN(TestParallelBranchesHttp)
#include "tst_parallelbranches_http.moc"
