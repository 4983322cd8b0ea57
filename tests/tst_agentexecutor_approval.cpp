#include "support/agentfixture.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// How the host answers: in the slot, in a nested event loop that the slot runs, or when the slot is left.
enum class Answer { InTheSlot, InANestedLoop, Later };
Q_DECLARE_METATYPE(Answer)

class TestAgentExecutorApproval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void riskyToolWaitsForTheAnswer_data();
    void riskyToolWaitsForTheAnswer();
    void otherIdsAreIgnored();
    void answerWithoutAQuestionIsIgnored();
    void secondAnswerIsIgnored();
    void allowedCallRunsBeforeTheAnswerReturns();
    void timeOfWaitingIsNotMeasured();
    void allowedCallsLeadToOneNextRequest_data();
    void allowedCallsLeadToOneNextRequest();
    void denialHaltsTheRun_data();
    void denialHaltsTheRun();
    void denialIsTraced();
    void denialOfAToolThatDiedIsTracedAsReadOnly();
    void allowedToolThatDiedFailsTheRun();
    void allowedCallWithoutARegistryFailsTheRun();
    void cancelWithdrawsTheQuestion();
    void newRunWithdrawsTheQuestion();
    void toolsAreNeverNested();
};

namespace {

void answer(AgentFixture &agent, const ApprovalRequest &request, bool allowed, Answer when)
{
    const auto resolve = [&agent, id = request.approvalId, allowed] {
        agent.executor->resolveApproval(id, allowed);
    };
    if (when == Answer::InTheSlot) {
        resolve();
        return;
    }
    QTimer::singleShot(0, &agent, resolve);
    if (when == Answer::InANestedLoop)
        runUntilQuiet();
}

void answerEveryQuestion(AgentFixture &agent, bool allowed, Answer when)
{
    QObject::connect(
        agent.executor, &AgentExecutor::approvalRequired, &agent,
        [&agent, allowed, when](const ApprovalRequest &request) { answer(agent, request, allowed, when); });
}

void addAnswerRows(const QList<QStringList> &toolLists)
{
    QTest::addColumn<Answer>("when");
    QTest::addColumn<QStringList>("tools");
    for (const QStringList &tools : toolLists) {
        const QByteArray names = tools.join(", ").toUtf8();
        QTest::addRow("in the slot: %s", names.constData()) << Answer::InTheSlot << tools;
        QTest::addRow("in a nested loop: %s", names.constData()) << Answer::InANestedLoop << tools;
        QTest::addRow("later: %s", names.constData()) << Answer::Later << tools;
    }
}

} // namespace

void TestAgentExecutorApproval::riskyToolWaitsForTheAnswer_data()
{
    QTest::addColumn<int>("permission");
    QTest::addColumn<QString>("name");
    const QStringList names{"Write",      "Destructive",   "ExternalNetwork",
                            "FileSystem", "SystemCommand", "Unknown"};
    for (int i = 0; i < names.size(); ++i)
        QTest::newRow(qPrintable(names.at(i))) << i + 1 << names.at(i);
}

void TestAgentExecutorApproval::riskyToolWaitsForTheAnswer()
{
    QFETCH(int, permission);
    QFETCH(QString, name);
    AgentFixture agent;
    agent.addTool("risky", static_cast<ToolPermission>(permission));
    agent.model->addToolCalls({makeToolCall("c7", "risky", {{"file", "a.txt"}})});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval risky"}));
    QCOMPARE(agent.requestCount(), 1);

    const ApprovalRequest request = agent.approvals.first();
    QCOMPARE(request.approvalId, "c7");
    QCOMPARE(request.toolName, "risky");
    QCOMPARE(int(request.permission), permission);
    QCOMPARE(request.arguments, (QJsonObject{{"file", "a.txt"}}));
    QCOMPARE(request.reason, "该工具拥有 " + name + " 权限，需要用户确认后才能执行。");

    agent.resolve(true);
    QCOMPARE(agent.log.mid(2), (QStringList{"call risky", "trace risky success"}));
    QCOMPARE(int(agent.traces.first().permission), permission);
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorApproval::otherIdsAreIgnored()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "write"}));
    agent.run();
    for (const QString &id : {QString("c2"), QString("C1"), QString(""), QString()}) {
        agent.executor->resolveApproval(id, true);
        agent.executor->resolveApproval(id, false);
    }
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write"}));
    agent.executor->resolveApproval("c1", true);
    runUntilQuiet();
    QCOMPARE(agent.log.mid(2), (QStringList{"call write", "trace write success", "approval write"}));
}

void TestAgentExecutorApproval::answerWithoutAQuestionIsIgnored()
{
    AgentFixture agent;
    agent.executor->resolveApproval("", true);
    agent.executor->resolveApproval("c1", true);
    agent.executor->cancel();
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.executor->run("question");
    agent.executor->resolveApproval("", false);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "call read", "trace read success"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorApproval::secondAnswerIsIgnored()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    agent.run();
    agent.executor->resolveApproval("c1", true);
    agent.executor->resolveApproval("c1", true);
    agent.executor->resolveApproval("c1", false);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "call write", "trace write success"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorApproval::allowedCallRunsBeforeTheAnswerReturns()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.run();
    agent.executor->resolveApproval("c1", true);
    QCOMPARE(agent.log.mid(2), (QStringList{"call write", "trace write success"}));
    runUntilQuiet();
    QCOMPARE(agent.log.mid(4), (QStringList{"call read", "trace read success"}));
}

void TestAgentExecutorApproval::timeOfWaitingIsNotMeasured()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    agent.run();
    QElapsedTimer wait;
    wait.start();
    QTRY_VERIFY(wait.hasExpired(50));
    QElapsedTimer execution;
    execution.start();
    agent.resolve(true);
    QVERIFY(agent.traces.first().durationMs <= execution.elapsed());
}

void TestAgentExecutorApproval::allowedCallsLeadToOneNextRequest_data()
{
    addAnswerRows({{"write"}, {"write", "write"}, {"read", "write", "read"}, {"write", "read", "write"}});
}

void TestAgentExecutorApproval::allowedCallsLeadToOneNextRequest()
{
    QFETCH(Answer, when);
    QFETCH(QStringList, tools);
    AgentFixture agent;
    answerEveryQuestion(agent, true, when);
    agent.model->addToolCalls(AgentFixture::callsOf(tools));
    agent.model->addText({"done"});
    agent.run();

    QStringList expected{"delta "};
    for (const QString &tool : tools) {
        if (tool == "write")
            expected.append("approval write");
        expected.append({"call " + tool, "trace " + tool + " success"});
    }
    expected.append({"delta done", "finished done"});
    QCOMPARE(agent.log, expected);
    QCOMPARE(agent.requestCount(), 2);
    QCOMPARE(agent.messages(1).size(), 2 + tools.size());
}

void TestAgentExecutorApproval::denialHaltsTheRun_data()
{
    addAnswerRows({{"write"}, {"write", "write"}, {"write", "read"}});
}

void TestAgentExecutorApproval::denialHaltsTheRun()
{
    QFETCH(Answer, when);
    QFETCH(QStringList, tools);
    AgentFixture agent;
    answerEveryQuestion(agent, false, when);
    agent.model->addToolCalls(AgentFixture::callsOf(tools));
    agent.run();
    for (const char *id : {"", "c1", "c2"})
        agent.executor->resolveApproval(id, true);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "trace write denied"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutorApproval::denialIsTraced()
{
    AgentFixture agent;
    const QDateTime before = QDateTime::currentDateTime();
    agent.model->addToolCalls({makeToolCall("c7", "write", {{"file", "a.txt"}})});
    agent.run();
    agent.resolve(false);
    const ToolCallTrace trace = agent.traces.first();
    QCOMPARE(trace.callId, "c7");
    QCOMPARE(trace.toolName, "write");
    QCOMPARE(trace.status, "denied");
    QCOMPARE(trace.permission, ToolPermission::Write);
    QCOMPARE(trace.arguments, (QJsonObject{{"file", "a.txt"}}));
    QVERIFY(trace.output.isEmpty());
    QCOMPARE(trace.error, "用户拒绝了审批。");
    QCOMPARE(trace.durationMs, 0);
    QVERIFY(before <= trace.timestamp && trace.timestamp <= QDateTime::currentDateTime());
}

void TestAgentExecutorApproval::denialOfAToolThatDiedIsTracedAsReadOnly()
{
    for (const bool withRegistry : {true, false}) {
        AgentFixture agent;
        agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
        agent.run();
        if (withRegistry)
            delete agent.registry->tool("write");
        else
            delete agent.registry;
        agent.resolve(false);
        QCOMPARE(agent.log.last(), "trace write denied");
        QCOMPARE(agent.traces.first().permission, ToolPermission::ReadOnly);
    }
}

void TestAgentExecutorApproval::allowedToolThatDiedFailsTheRun()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.run();
    delete agent.registry->tool("write");
    agent.resolve(true);
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "failed 未找到工具：write"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutorApproval::allowedCallWithoutARegistryFailsTheRun()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.run();
    delete agent.registry;
    agent.resolve(true);
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "failed 工具注册表尚未配置。"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutorApproval::cancelWithdrawsTheQuestion()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.run();
    agent.executor->cancel();
    agent.resolve(true);
    agent.resolve(false);
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutorApproval::newRunWithdrawsTheQuestion()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.model->addText({"second"});
    agent.run("first");
    agent.run("second");
    agent.resolve(true);
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "delta second", "finished second"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorApproval::toolsAreNeverNested()
{
    AgentFixture agent;
    int depth = 0;
    const auto spin = [&agent, &depth] {
        ++depth;
        agent.log.append(QString("depth %1").arg(depth));
        agent.executor->resolveApproval("c1", true);
        agent.executor->resolveApproval("c2", true);
        runUntilQuiet();
        --depth;
    };
    agent.addTool("spin", ToolPermission::ReadOnly, spin);
    agent.addTool("ask", ToolPermission::Write, spin);
    answerEveryQuestion(agent, true, Answer::InANestedLoop);
    agent.model->addToolCalls(AgentFixture::callsOf({"spin", "ask", "spin"}));
    agent.model->addText({"done"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "call spin", "depth 1", "trace spin success", "approval ask",
                                     "call ask", "depth 1", "trace ask success", "call spin", "depth 1",
                                     "trace spin success", "delta done", "finished done"}));
    QCOMPARE(agent.requestCount(), 2);
}

QTEST_GUILESS_MAIN(TestAgentExecutorApproval)
#include "tst_agentexecutor_approval.moc"
