#include "support/sessionfixture.h"

#include <QMetaMethod>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What a session tells of its runs, and when.
class TestAgentSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsKeepTheirOrder();
    void runIsToldFromItsBeginningToItsEnd();
    void toolsAreAnnounced();
    void sameThroughAPointerToTheExecutor();
    void slotThatCancelsKeepsTheToolFromRunning();
    void toolThatASlotRemovesIsNotCalled();
    void toolThatASlotReplacesIsAskedAbout();
    void toolThatCancelsIsTracedBeforeTheEnd();
    void toolThatBeginsTheNextRunIsNotTraced();
    void toolThatCancelsAndSetsAConversationIsNotTraced();
    void requestThatIsSentWhileTheRunEndsIsAborted();
    void deniedRunMayGoOn();
    void regenerateNeedsAQuestionAndAnIdleSession();
    void repliesAreDeletedWhenTheirRequestIsOver();
    void replacedRequestIsAborted();
    void outcomesWithTheSameFieldsAreEqual();
    void outcomesTravelThroughQueuedStringConnections();
};

namespace {

const QStringList begun{"running true", "conversation"};

// Asks for a call of "write" with the id "c1", denies it, and asks again.
template<typename Executor>
void playThrough(Executor *executor, SessionFixture &agent)
{
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    executor->run("first");
    runUntilQuiet();
    executor->resolveApproval("c1", false);
    executor->run("second");
    executor->cancel();
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    agent.model->addText({"done"});
    executor->run("third");
    runUntilQuiet();
    executor->answerApproval(agent.approvals.last(), true);
    runUntilQuiet();
}

} // namespace

void TestAgentSession::signalsKeepTheirOrder()
{
    const QMetaObject &meta = AgentSession::staticMetaObject;
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(signatures, (QStringList{"runningChanged(bool)", "runEnded(MireloQtLib::QtAgent::RunOutcome)",
                                      "toolStarted(MireloQtLib::QtAgent::ToolCallTrace)",
                                      "toolProgressed(QString,QString)", "approvalWithdrawn(QString)",
                                      "conversationChanged()"}));
}

void TestAgentSession::runIsToldFromItsBeginningToItsEnd()
{
    SessionFixture agent;
    agent.model->addText({"Hello ", "world"});
    agent.session->send("Hi");
    QCOMPARE(agent.log, begun);
    QCOMPARE(agent.requestCount(), 1);
    QVERIFY(agent.session->isRunning());
    runUntilQuiet();
    QCOMPARE(agent.log.mid(2), (QStringList{"delta Hello ", "delta world", "finished Hello world",
                                            "conversation", "running false", "ended Finished"}));
    QVERIFY(!agent.session->isRunning());
}

void TestAgentSession::toolsAreAnnounced()
{
    SessionFixture agent;
    agent.model->addToolCalls({makeToolCall("c1", "read", {{"a", 1}}), makeToolCall("c2", "write", {})});
    QVector<ToolCallTrace> started;
    connect(agent.session, &AgentSession::toolStarted, &agent,
            [&](const ToolCallTrace &call) { started.append(call); });
    const QDateTime before = QDateTime::currentDateTime();
    agent.send("question");
    agent.session->answerApproval(agent.approvals.first(), true);
    QCOMPARE(agent.log.mid(2),
             (QStringList{"delta ", "conversation", "started read", "call read", "trace read success",
                          "conversation", "approval write", "started write", "call write",
                          "trace write success", "conversation"}));
    QCOMPARE(started.size(), 2);
    const ToolCallTrace &first = started.first();
    QVERIFY(before <= first.timestamp && first.timestamp <= agent.traces.first().timestamp);
    QVERIFY(first
            == (ToolCallTrace{
                "c1", "read", "running", ToolPermission::ReadOnly, {{"a", 1}}, "", "", 0, first.timestamp}));
    QCOMPARE(started.last().permission, ToolPermission::Write);
}

void TestAgentSession::sameThroughAPointerToTheExecutor()
{
    SessionFixture session;
    playThrough(session.session.data(), session);
    SessionFixture executor;
    playThrough(executor.executor.data(), executor);
    QCOMPARE(executor.log, session.log);
    QCOMPARE(executor.conversation(), session.conversation());
    QCOMPARE(executor.log.filter("ended"), (QStringList{"ended Denied", "ended Canceled", "ended Finished"}));
    QCOMPARE(executor.conversation().first(), "user: third");
}

void TestAgentSession::slotThatCancelsKeepsTheToolFromRunning()
{
    for (const char *tool : {"read", "write"}) {
        SessionFixture agent;
        connect(agent.session, &AgentSession::toolStarted, agent.session, &AgentSession::cancel);
        agent.model->addToolCalls(AgentFixture::callsOf({tool}));
        agent.send("question");
        agent.executor->resolveApproval("c1", true);
        QCOMPARE(agent.log.filter("call"), QStringList());
        QCOMPARE(agent.log.last(), "ended Canceled");
        QCOMPARE(agent.conversation().last(), "tool c1: 未执行。");
    }
}

void TestAgentSession::toolThatASlotRemovesIsNotCalled()
{
    SessionFixture agent;
    connect(agent.session, &AgentSession::toolStarted, &agent,
            [&agent] { delete agent.registry->tool("read"); });
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.send("question");
    QCOMPARE(agent.log.mid(4),
             (QStringList{"started read", "failed 未找到工具：read", "running false", "ended Failed"}));
}

void TestAgentSession::toolThatASlotReplacesIsAskedAbout()
{
    SessionFixture agent;
    connect(agent.session, &AgentSession::toolStarted, &agent, [&agent] {
        delete agent.registry->tool("read");
        agent.addTool("read", ToolPermission::Destructive);
    });
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.send("question");
    QCOMPARE(agent.log.mid(4), (QStringList{"started read", "approval read"}));
}

void TestAgentSession::toolThatCancelsIsTracedBeforeTheEnd()
{
    SessionFixture agent;
    agent.addTool("stop", ToolPermission::ReadOnly, [&agent] {
        agent.session->cancel();
        QVERIFY(!agent.session->isRunning());
    });
    agent.model->addToolCalls(AgentFixture::callsOf({"stop", "read"}));
    agent.send("question");
    QCOMPARE(agent.log.mid(4), (QStringList{"started stop", "call stop", "trace stop success", "conversation",
                                            "running false", "ended Canceled"}));
    QCOMPARE(agent.conversation().mid(2), (QStringList{"tool c1: stop done", "tool c2: 未执行。"}));
}

void TestAgentSession::toolThatBeginsTheNextRunIsNotTraced()
{
    for (const bool cancels : {false, true}) {
        SessionFixture agent;
        agent.addTool("again", ToolPermission::ReadOnly, [&agent, cancels] {
            if (cancels)
                agent.session->cancel();
            agent.session->send("again");
        });
        agent.model->addToolCalls(AgentFixture::callsOf({"again"}));
        agent.model->addText({"done"});
        agent.send("question");
        QStringList expected{"started again", "call again", "running false"};
        expected += cancels ? "ended Canceled" : "ended Replaced";
        expected += begun;
        expected += {"delta done", "finished done", "conversation", "running false", "ended Finished"};
        QCOMPARE(agent.log.mid(4), expected);
        QCOMPARE(agent.conversation().mid(2),
                 (QStringList{"tool c1: 未执行。", "user: again", "assistant: done"}));
    }
}

void TestAgentSession::toolThatCancelsAndSetsAConversationIsNotTraced()
{
    SessionFixture agent;
    agent.addTool("reset", ToolPermission::ReadOnly, [&agent] {
        QVERIFY(!agent.session->setConversation({}));
        agent.session->cancel();
        QVERIFY(agent.session->setConversation({}));
    });
    agent.model->addToolCalls(AgentFixture::callsOf({"reset"}));
    agent.send("question");
    QCOMPARE(agent.log.mid(4),
             (QStringList{"started reset", "call reset", "running false", "ended Canceled", "conversation"}));
    QVERIFY(agent.session->conversation().isEmpty());
}

void TestAgentSession::requestThatIsSentWhileTheRunEndsIsAborted()
{
    for (const bool sends : {false, true}) {
        SessionFixture agent;
        StrictModel model;
        agent.session->setModel(&model);
        model.onRequest = [&] {
            model.onRequest = nullptr;
            sends ? agent.session->send("second") : agent.session->cancel();
        };
        agent.session->send("first");
        QVERIFY(model.lastCall().reply->isCanceled());
        QCOMPARE(agent.outcomes.size(), 1);
        QCOMPARE(agent.outcomes.first().requests, 1);
        QCOMPARE(agent.outcomes.first().end, sends ? RunEnd::Replaced : RunEnd::Canceled);
        QCOMPARE(agent.session->isRunning(), sends);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(agent.session->findChildren<ChatReply *>().size(), sends ? 1 : 0);
    }
}

void TestAgentSession::deniedRunMayGoOn()
{
    SessionFixture agent;
    agent.session->setAfterDenial(AgentSession::AfterDenial::TellModel);
    agent.model->addToolCalls(AgentFixture::callsOf({"write", "read"}));
    agent.model->addText({"All right."});
    agent.send("question");
    agent.session->answerApproval(agent.approvals.first(), false);
    QVERIFY(agent.session->isRunning());
    runUntilQuiet();
    QCOMPARE(agent.log.mid(5),
             (QStringList{"trace write denied", "conversation", "started read", "call read",
                          "trace read success", "conversation", "delta All right.", "finished All right.",
                          "conversation", "running false", "ended Finished"}));
    QCOMPARE(agent.conversation(),
             (QStringList{"user: question", "assistant:  [write c1] [read c2]", "tool c1: 用户拒绝了审批。",
                          "tool c2: read done", "assistant: All right."}));
}

void TestAgentSession::regenerateNeedsAQuestionAndAnIdleSession()
{
    SessionFixture agent;
    QVERIFY(!agent.session->regenerate());
    agent.session->send("question");
    QVERIFY(!agent.session->regenerate());
    QCOMPARE(agent.log, begun);
    agent.model->lastCall().reply->finish("first");
    agent.model->addText({"second"});
    agent.log.clear();
    QVERIFY(agent.session->regenerate());
    QCOMPARE(agent.log, begun);
    runUntilQuiet();
    QCOMPARE(agent.log.last(), "ended Finished");
    QCOMPARE(agent.conversation(), (QStringList{"user: question", "assistant: second"}));
}

void TestAgentSession::repliesAreDeletedWhenTheirRequestIsOver()
{
    SessionFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.model->addText({"done"});
    agent.model->addFailure("broken");
    for (int i = 0; i < 3; ++i) {
        agent.send("question");
        agent.session->cancel();
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(agent.requestCount(), 4);
    QVERIFY(agent.session->findChildren<ChatReply *>().isEmpty());
}

void TestAgentSession::replacedRequestIsAborted()
{
    SessionFixture agent;
    agent.session->send("first");
    const QPointer<ChatReply> first = agent.model->lastCall().reply;
    agent.session->send("second");
    QVERIFY(first->isCanceled());
    QVERIFY(!agent.model->lastCall().reply->isCanceled());
}

void TestAgentSession::outcomesWithTheSameFieldsAreEqual()
{
    const RunOutcome outcome{RunEnd::Failed, "text", "error", 2};
    QVERIFY(outcome == RunOutcome(outcome));
    QVERIFY(outcome != (RunOutcome{RunEnd::Denied, "text", "error", 2}));
    QVERIFY(outcome != (RunOutcome{RunEnd::Failed, "other", "error", 2}));
    QVERIFY(outcome != (RunOutcome{RunEnd::Failed, "text", "other", 2}));
    QVERIFY(outcome != (RunOutcome{RunEnd::Failed, "text", "error", 3}));
    QCOMPARE(RunOutcome().end, RunEnd::Canceled);
    QCOMPARE(RunOutcome().requests, 0);
}

class OutcomeReceiver : public QObject
{
    Q_OBJECT

public:
    QVector<RunOutcome> outcomes;

public Q_SLOTS:
    void add(const MireloQtLib::QtAgent::RunOutcome &outcome) { outcomes.append(outcome); }
};

void TestAgentSession::outcomesTravelThroughQueuedStringConnections()
{
    SessionFixture agent;
    OutcomeReceiver receiver;
    connect(agent.session, SIGNAL(runEnded(MireloQtLib::QtAgent::RunOutcome)), &receiver,
            SLOT(add(MireloQtLib::QtAgent::RunOutcome)), Qt::QueuedConnection);
    agent.model->addText({"done"});
    agent.send("question");
    QCOMPARE(receiver.outcomes, (QVector<RunOutcome>{{RunEnd::Finished, "done", "", 1}}));
}

QTEST_GUILESS_MAIN(TestAgentSession)
#include "tst_agentsession.moc"
