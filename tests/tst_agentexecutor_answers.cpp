#include "support/agentfixture.h"

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

using Step = std::function<void(AgentFixture &)>;
using Change = std::function<void(ApprovalRequest &)>;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Change)

// Whether a run is in flight, whether an answer counts, and when a question is over.
class TestAgentExecutorAnswers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runIsInFlightUntilTheSignalThatEndsIt_data();
    void runIsInFlightUntilTheSignalThatEndsIt();
    void cancelEndsTheRunAtOnce();
    void runThatNobodyCanAnswerIsOver_data();
    void runThatNobodyCanAnswerIsOver();
    void orphanedReplyIsHeardAsBefore();
    void modelThatDiesWhileAToolRunsEndsNothing();

    void answerCountsForTheCallThatWasShown_data();
    void answerCountsForTheCallThatWasShown();
    void answerIsGivenOnce();
    void answerToAnEarlierCallDoesNotAllowThisOne();
    void equalCallsAreOneQuestion();
    void allowedCallRunsBeforeTheAnswerReturns();
    void answerForAnotherToolIsAskedAnew_data();
    void answerForAnotherToolIsAskedAnew();
    void denialCountsWhateverBecameOfTheTool();
    void toolThatIsGoneFailsTheRun();
    void outdatedCallLeadsToOneNextRequest();
    void resolveApprovalAllowsWhateverToolIsThere();

    void endOfAQuestionIsToldOnTheNextTurn_data();
    void endOfAQuestionIsToldOnTheNextTurn();
    void withoutAQuestionItIsOverOnTheNextTurn();
    void endIsToldWhileTheAllowedToolRuns();
    void endsAreToldInTheOrderOfRegistration();
    void nothingIsToldWithoutContextOrFunction();
    void contextThatDiesIsNotTold();
};

namespace {

// Runs until a call of "write" with the id "c1" and the argument a = 1 waits for the user.
void askToWrite(AgentFixture &agent)
{
    agent.model->addToolCalls({makeToolCall("c1", "write", {{"a", 1}})});
    agent.run();
}

void replaceTool(AgentFixture &agent, ToolPermission permission)
{
    delete agent.registry->tool("write");
    agent.addTool("write", permission);
}

// A tool whose permission may change.
class ChangingTool : public AgentTool
{
public:
    using AgentTool::AgentTool;
    ToolPermission currentPermission = ToolPermission::Write;

    QString name() const override { return "change"; }
    QString description() const override { return {}; }
    QJsonObject parameters() const override { return {}; }
    ToolPermission permission() const override { return currentPermission; }
    ToolResult invoke(const QJsonObject & /*arguments*/) override { return AgentFixture::success("changed"); }
};

} // namespace

void TestAgentExecutorAnswers::runIsInFlightUntilTheSignalThatEndsIt_data()
{
    QTest::addColumn<Step>("addAnswer");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("finished") << Step([](AgentFixture &agent) { agent.model->addText({"done"}); })
                              << QStringList{"delta: running", "finished: over"};
    QTest::newRow("failed") << Step([](AgentFixture &agent) { agent.model->addFailure("no network"); })
                            << QStringList{"failed: over"};
    QTest::newRow("without a model") << Step([](AgentFixture &agent) { agent.executor->setModel(nullptr); })
                                     << QStringList{"failed: over"};
    QTest::newRow("denied") << Step([](AgentFixture &agent) {
        agent.model->addToolCalls(AgentFixture::callsOf({"read", "write"}), "Let me see.");
    }) << QStringList{"delta: running", "trace: running", "approval: running", "trace: over"};
}

void TestAgentExecutorAnswers::runIsInFlightUntilTheSignalThatEndsIt()
{
    QFETCH(Step, addAnswer);
    AgentFixture agent;
    QStringList log;
    const auto add = [&](const char *name) {
        log.append(QString("%1: %2").arg(name, agent.executor->isRunning() ? "running" : "over"));
    };
    connect(agent.executor, &AgentExecutor::assistantDelta, &agent, [&] { add("delta"); });
    connect(agent.executor, &AgentExecutor::assistantFinished, &agent, [&] { add("finished"); });
    connect(agent.executor, &AgentExecutor::failed, &agent, [&] { add("failed"); });
    connect(agent.executor, &AgentExecutor::traceAdded, &agent, [&] { add("trace"); });
    connect(agent.executor, &AgentExecutor::approvalRequired, &agent, [&](const ApprovalRequest &request) {
        add("approval");
        agent.executor->answerApproval(request, false);
    });
    addAnswer(agent);
    QVERIFY(!agent.executor->isRunning());
    agent.run();
    QTEST(log, "log");
    QVERIFY(!agent.executor->isRunning());
}

void TestAgentExecutorAnswers::cancelEndsTheRunAtOnce()
{
    AgentFixture agent;
    agent.executor->run("question");
    QVERIFY(agent.executor->isRunning());
    agent.executor->cancel();
    QVERIFY(!agent.executor->isRunning());
    askToWrite(agent);
    QVERIFY(agent.executor->isRunning());
    agent.executor->cancel();
    QVERIFY(!agent.executor->isRunning());
}

void TestAgentExecutorAnswers::runThatNobodyCanAnswerIsOver_data()
{
    QTest::addColumn<Step>("step");
    QTest::newRow("the reply dies") << Step(
        [](AgentFixture &agent) { delete agent.model->lastCall().reply; });
    QTest::newRow("the model dies") << Step([](AgentFixture &agent) { delete agent.model; });
    QTest::newRow("somebody cancels the reply")
        << Step([](AgentFixture &agent) { agent.model->lastCall().reply->cancel(); });
}

void TestAgentExecutorAnswers::runThatNobodyCanAnswerIsOver()
{
    QFETCH(Step, step);
    AgentFixture agent;
    agent.executor->run("question");
    QVERIFY(agent.executor->isRunning());
    step(agent);
    QVERIFY(!agent.executor->isRunning());
    runUntilQuiet();
    QVERIFY(agent.log.isEmpty());
}

void TestAgentExecutorAnswers::orphanedReplyIsHeardAsBefore()
{
    AgentFixture agent;
    agent.executor->run("question");
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    delete agent.model;
    QVERIFY(!agent.executor->isRunning());
    reply->appendDelta("late");
    reply->finish("late");
    QCOMPARE(agent.log, (QStringList{"delta late", "finished late"}));
    QVERIFY(!agent.executor->isRunning());
}

void TestAgentExecutorAnswers::modelThatDiesWhileAToolRunsEndsNothing()
{
    AgentFixture agent;
    agent.addTool("kill", ToolPermission::ReadOnly, [&agent] {
        delete agent.model;
        agent.log.append(agent.executor->isRunning() ? "running" : "over");
    });
    agent.model->addToolCalls(AgentFixture::callsOf({"kill"}));
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "call kill", "running", "trace kill success",
                                     "failed 智能体模型尚未配置。"}));
}

void TestAgentExecutorAnswers::answerCountsForTheCallThatWasShown_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<bool>("counts");
    const auto row = [](const char *name, bool counts, const Change &change) {
        QTest::newRow(name) << change << counts;
    };
    row("as it was shown", true, [](ApprovalRequest &) {});
    row("another reason", true, [](ApprovalRequest &request) { request.reason.clear(); });
    row("another permission", true,
        [](ApprovalRequest &request) { request.permission = ToolPermission::ReadOnly; });
    row("another id", false, [](ApprovalRequest &request) { request.approvalId = "c2"; });
    row("no id", false, [](ApprovalRequest &request) { request.approvalId.clear(); });
    row("another tool", false, [](ApprovalRequest &request) { request.toolName = "read"; });
    row("other arguments", false, [](ApprovalRequest &request) { request.arguments = {{"a", 2}}; });
    row("no arguments", false, [](ApprovalRequest &request) { request.arguments = {}; });
}

void TestAgentExecutorAnswers::answerCountsForTheCallThatWasShown()
{
    QFETCH(Change, change);
    QFETCH(bool, counts);
    for (const bool allowed : {true, false}) {
        AgentFixture agent;
        askToWrite(agent);
        ApprovalRequest request = agent.approvals.first();
        change(request);
        QCOMPARE(agent.executor->answerApproval(request, allowed), counts);
        QCOMPARE(agent.traces.size(), counts ? 1 : 0);
        QCOMPARE(agent.executor->answerApproval(agent.approvals.first(), false), !counts);
    }
}

void TestAgentExecutorAnswers::answerIsGivenOnce()
{
    AgentFixture agent;
    QVERIFY(!agent.executor->answerApproval(ApprovalRequest(), true));
    askToWrite(agent);
    const ApprovalRequest request = agent.approvals.first();
    QVERIFY(agent.executor->answerApproval(request, true));
    QVERIFY(!agent.executor->answerApproval(request, true));
    QVERIFY(!agent.executor->answerApproval(request, false));
    agent.executor->resolveApproval(request.approvalId, true);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "call write", "trace write success"}));
    QCOMPARE(agent.requestCount(), 2);
}

// A model that counts its calls from 0 in every answer asked for a harmless file first.
void TestAgentExecutorAnswers::answerToAnEarlierCallDoesNotAllowThisOne()
{
    AgentFixture agent;
    agent.model->addToolCalls({makeToolCall("call_0", "write", {{"path", "harmless.txt"}})});
    agent.run("first");
    agent.model->addToolCalls({makeToolCall("call_0", "write", {{"path", "/etc/precious"}})});
    agent.run("second");
    QCOMPARE(agent.approvals.size(), 2);
    QVERIFY(!agent.executor->answerApproval(agent.approvals.first(), true));
    QVERIFY(!agent.executor->answerApproval(agent.approvals.first(), false));
    QVERIFY(agent.traces.isEmpty());
    QVERIFY(agent.executor->answerApproval(agent.approvals.last(), true));
    QCOMPARE(agent.traces.first().arguments, (QJsonObject{{"path", "/etc/precious"}}));
}

void TestAgentExecutorAnswers::equalCallsAreOneQuestion()
{
    AgentFixture agent;
    askToWrite(agent);
    askToWrite(agent);
    QCOMPARE(agent.approvals.size(), 2);
    QVERIFY(agent.executor->answerApproval(agent.approvals.first(), true));
    QVERIFY(!agent.executor->answerApproval(agent.approvals.last(), true));
    QCOMPARE(agent.traces.size(), 1);
}

void TestAgentExecutorAnswers::allowedCallRunsBeforeTheAnswerReturns()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.run();
    QVERIFY(agent.executor->answerApproval(agent.approvals.first(), true));
    QCOMPARE(agent.log.mid(2), (QStringList{"call write", "trace write success"}));
    runUntilQuiet();
    QCOMPARE(agent.log.mid(4), (QStringList{"call read", "trace read success"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorAnswers::answerForAnotherToolIsAskedAnew_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<Step>("change");
    QTest::addColumn<QStringList>("log");
    const auto changeTo = [](ToolPermission permission) {
        return Step([permission](AgentFixture &agent) {
            static_cast<ChangingTool *>(agent.registry->tool("change"))->currentPermission = permission;
        });
    };
    QTest::newRow("another tool") << "write" << Step([](AgentFixture &agent) {
        replaceTool(agent, ToolPermission::Write);
    }) << QStringList{"approval write"};
    QTest::newRow("another tool that reads")
        << "write" << Step([](AgentFixture &agent) { replaceTool(agent, ToolPermission::ReadOnly); })
        << QStringList{"call write", "trace write success"};
    QTest::newRow("another registry") << "write" << Step([](AgentFixture &agent) {
        auto *registry = new ToolRegistry(agent.registry);
        registry->registerTool(new FunctionTool("write", "", {}, ToolPermission::Write, {}));
        agent.executor->setToolRegistry(registry);
    }) << QStringList{"approval write"};
    QTest::newRow("another tool that is gone again") << "write" << Step([](AgentFixture &agent) {
        replaceTool(agent, ToolPermission::Write);
        QTimer::singleShot(0, &agent, [&agent] { delete agent.registry->tool("write"); });
    }) << QStringList{"failed 未找到工具：write"};
    QTest::newRow("another permission")
        << "change" << changeTo(ToolPermission::Destructive) << QStringList{"approval change"};
    QTest::newRow("a tool that only reads now")
        << "change" << changeTo(ToolPermission::ReadOnly) << QStringList{"trace change success"};
}

void TestAgentExecutorAnswers::answerForAnotherToolIsAskedAnew()
{
    QFETCH(QString, tool);
    QFETCH(Step, change);
    QFETCH(QStringList, log);
    AgentFixture agent;
    agent.registry->registerTool(new ChangingTool);
    agent.model->addToolCalls({makeToolCall("c1", tool, {})});
    agent.run();
    const QStringList before = agent.log;
    change(agent);
    QVERIFY(!agent.executor->answerApproval(agent.approvals.first(), true));
    QCOMPARE(agent.log, before);
    runUntilQuiet();
    QCOMPARE(agent.log, before + log);
}

void TestAgentExecutorAnswers::denialCountsWhateverBecameOfTheTool()
{
    const Step replace = [](AgentFixture &agent) { replaceTool(agent, ToolPermission::Destructive); };
    const Step remove = [](AgentFixture &agent) { delete agent.registry->tool("write"); };
    for (const Step &change : {replace, remove}) {
        AgentFixture agent;
        askToWrite(agent);
        change(agent);
        QVERIFY(agent.executor->answerApproval(agent.approvals.first(), false));
        runUntilQuiet();
        QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "trace write denied"}));
        QVERIFY(!agent.executor->isRunning());
    }
}

void TestAgentExecutorAnswers::toolThatIsGoneFailsTheRun()
{
    for (const bool withRegistry : {true, false}) {
        AgentFixture agent;
        askToWrite(agent);
        if (withRegistry)
            delete agent.registry->tool("write");
        else
            delete agent.registry;
        QVERIFY(agent.executor->answerApproval(agent.approvals.first(), true));
        QCOMPARE(agent.log.last(), withRegistry ? "failed 未找到工具：write" : "failed 工具注册表尚未配置。");
    }
}

void TestAgentExecutorAnswers::outdatedCallLeadsToOneNextRequest()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read", "write", "read"}));
    agent.model->addText({"done"});
    agent.run();
    replaceTool(agent, ToolPermission::Write);
    QVERIFY(!agent.executor->answerApproval(agent.approvals.last(), true));
    runUntilQuiet();
    QVERIFY(agent.executor->answerApproval(agent.approvals.last(), true));
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "call read", "trace read success", "approval write",
                                     "approval write", "call write", "trace write success", "call read",
                                     "trace read success", "delta done", "finished done"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorAnswers::resolveApprovalAllowsWhateverToolIsThere()
{
    AgentFixture agent;
    askToWrite(agent);
    replaceTool(agent, ToolPermission::Destructive);
    agent.resolve(true);
    QCOMPARE(agent.log.mid(2), (QStringList{"call write", "trace write success"}));
}

void TestAgentExecutorAnswers::endOfAQuestionIsToldOnTheNextTurn_data()
{
    QTest::addColumn<Step>("step");
    const auto row = [](const char *name, const Step &step) { QTest::newRow(name) << step; };
    row("allowed",
        [](AgentFixture &agent) { agent.executor->answerApproval(agent.approvals.first(), true); });
    row("denied",
        [](AgentFixture &agent) { agent.executor->answerApproval(agent.approvals.first(), false); });
    row("resolved", [](AgentFixture &agent) { agent.executor->resolveApproval("c1", true); });
    row("outdated", [](AgentFixture &agent) {
        replaceTool(agent, ToolPermission::Write);
        agent.executor->answerApproval(agent.approvals.first(), true);
    });
    row("canceled", [](AgentFixture &agent) { agent.executor->cancel(); });
    row("another run", [](AgentFixture &agent) { agent.executor->run("again"); });
    row("the executor dies", [](AgentFixture &agent) { delete agent.executor; });
}

void TestAgentExecutorAnswers::endOfAQuestionIsToldOnTheNextTurn()
{
    QFETCH(Step, step);
    AgentFixture agent;
    askToWrite(agent);
    int calls = 0;
    agent.executor->whenApprovalOver(this, [&calls] { ++calls; });
    runUntilQuiet();
    QCOMPARE(calls, 0);
    step(agent);
    QCOMPARE(calls, 0);
    runUntilQuiet();
    QCOMPARE(calls, 1);
}

void TestAgentExecutorAnswers::withoutAQuestionItIsOverOnTheNextTurn()
{
    AgentFixture agent;
    int calls = 0;
    agent.executor->whenApprovalOver(this, [&calls] { ++calls; });
    agent.executor->run("question");
    agent.executor->whenApprovalOver(this, [&calls] { ++calls; });
    QCOMPARE(calls, 0);
    runUntilQuiet();
    QCOMPARE(calls, 2);
}

// A dialog closes though the tool keeps the answer from returning.
void TestAgentExecutorAnswers::endIsToldWhileTheAllowedToolRuns()
{
    AgentFixture agent;
    agent.addTool("slow", ToolPermission::Write, [] { runUntilQuiet(); });
    agent.model->addToolCalls(AgentFixture::callsOf({"slow"}));
    agent.run();
    agent.executor->whenApprovalOver(&agent, [&agent] { agent.log.append("over"); });
    agent.executor->answerApproval(agent.approvals.first(), true);
    QCOMPARE(agent.log.mid(2), (QStringList{"call slow", "over", "trace slow success"}));
}

void TestAgentExecutorAnswers::endsAreToldInTheOrderOfRegistration()
{
    AgentFixture agent;
    askToWrite(agent);
    QObject other;
    QStringList order;
    agent.executor->whenApprovalOver(this, [&order] { order.append("first"); });
    agent.executor->whenApprovalOver(&other, [&order] { order.append("second"); });
    agent.executor->whenApprovalOver(this, [&order] { order.append("third"); });
    agent.executor->cancel();
    agent.executor->whenApprovalOver(&other, [&order] { order.append("fourth"); });
    runUntilQuiet();
    QCOMPARE(order, (QStringList{"first", "second", "third", "fourth"}));
}

void TestAgentExecutorAnswers::nothingIsToldWithoutContextOrFunction()
{
    AgentFixture agent;
    int calls = 0;
    for (int i = 0; i < 2; ++i) {
        agent.executor->whenApprovalOver(nullptr, [&calls] { ++calls; });
        agent.executor->whenApprovalOver(this, {});
        askToWrite(agent);
    }
    agent.executor->cancel();
    runUntilQuiet();
    QCOMPARE(calls, 0);
}

void TestAgentExecutorAnswers::contextThatDiesIsNotTold()
{
    AgentFixture agent;
    int calls = 0;
    auto context = std::make_unique<QObject>();
    agent.executor->whenApprovalOver(context.get(), [&calls] { ++calls; });
    context = std::make_unique<QObject>();
    runUntilQuiet();
    askToWrite(agent);
    agent.executor->whenApprovalOver(context.get(), [&calls] { ++calls; });
    context.reset();
    agent.executor->cancel();
    runUntilQuiet();
    QCOMPARE(calls, 0);
}

QTEST_GUILESS_MAIN(TestAgentExecutorAnswers)
#include "tst_agentexecutor_answers.moc"
