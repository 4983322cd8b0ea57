#include "support/sessionfixture.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

using Step = std::function<void(SessionFixture &)>;
Q_DECLARE_METATYPE(Step)

// Every run has one end, which is told in its order.
class TestAgentSessionEnds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyRunHasOneEnd_data();
    void everyRunHasOneEnd();
    void outcomeHoldsWhatTheRunBrought_data();
    void outcomeHoldsWhatTheRunBrought();
    void endIsToldInsideTheCallThatEndsTheRun_data();
    void endIsToldInsideTheCallThatEndsTheRun();
    void missingModelFailsInsideSend();
    void abandonedRunIsToldFromTheEventLoop_data();
    void abandonedRunIsToldFromTheEventLoop();
    void abandonedRunIsToldBeforeWhatFollows_data();
    void abandonedRunIsToldBeforeWhatFollows();
    void orphanedReplyIsDropped();
    void nextRunEndsTheOneInFlight_data();
    void nextRunEndsTheOneInFlight();
    void waitingQuestionIsWithdrawn_data();
    void waitingQuestionIsWithdrawn();
    void slotThatBeginsTheNextRunGetsOneEndFirst_data();
    void slotThatBeginsTheNextRunGetsOneEndFirst();
    void whatASlotBeganIsReplacedInTurn();
    void slotMayDeleteTheSessionAtEveryStep_data();
    void slotMayDeleteTheSessionAtEveryStep();
    void deletedSessionTellsNothing_data();
    void deletedSessionTellsNothing();
};

namespace {

class SilentModel : public ChatModel
{
public:
    using ChatModel::ChatModel;
    ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                    QObject * /*parent*/) override
    {
        return nullptr;
    }
};

// Runs until a call of "write" with the id "c1" waits for the user.
void askToWrite(SessionFixture &agent)
{
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    agent.send("question");
}

const QStringList begun{"running true", "conversation"};

QStringList ended(const QString &end)
{
    return {"running false", "ended " + end};
}

} // namespace

void TestAgentSessionEnds::everyRunHasOneEnd_data()
{
    QTest::addColumn<Step>("prepare");
    QTest::addColumn<Step>("step");
    QTest::addColumn<QStringList>("log");
    const Step none = [](SessionFixture &) {};
    const auto row = [](const char *name, const Step &prepare, const Step &step, const QStringList &log) {
        QTest::newRow(name) << prepare << step << log;
    };
    const auto failed = [](const QString &error) {
        return QStringList{"failed " + error, "running false", "ended Failed"};
    };
    row(
        "the model fails", [](SessionFixture &agent) { agent.model->addFailure("no network"); }, none,
        begun + failed("no network"));
    row(
        "no model", [](SessionFixture &agent) { agent.session->setModel(nullptr); }, none,
        begun + failed("智能体模型尚未配置。"));
    row(
        "too many requests",
        [](SessionFixture &agent) {
            agent.session->setMaxIterations(1);
            agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
        },
        none,
        begun
            + QStringList{"delta ", "conversation", "started read", "call read", "trace read success",
                          "conversation"}
            + failed("Agent exceeded max iterations."));
    row(
        "unknown tool",
        [](SessionFixture &agent) { agent.model->addToolCalls(AgentFixture::callsOf({"fly"})); }, none,
        begun + QStringList{"delta ", "conversation"} + failed("未找到工具：fly"));
    row(
        "unreadable calls",
        [](SessionFixture &agent) { agent.model->addToolCalls({AgentFixture::callWith("read", "[")}); }, none,
        begun + QStringList{"delta "} + failed("Invalid tool arguments for read: unterminated array"));
    row(
        "denied", askToWrite,
        [](SessionFixture &agent) { agent.session->answerApproval(agent.approvals.first(), false); },
        begun + QStringList{"delta ", "conversation", "approval write", "trace write denied", "conversation"}
            + ended("Denied"));
    row(
        "canceled", none, [](SessionFixture &agent) { agent.session->cancel(); }, begun + ended("Canceled"));
    row(
        "canceled by somebody else", none,
        [](SessionFixture &agent) { agent.model->lastCall().reply->cancel(); }, begun + ended("Canceled"));
    row(
        "canceled twice", none,
        [](SessionFixture &agent) {
            agent.session->cancel();
            agent.session->cancel();
        },
        begun + ended("Canceled"));
    row(
        "the reply dies", none, [](SessionFixture &agent) { delete agent.model->lastCall().reply; },
        begun + ended("Abandoned"));
    row(
        "the model dies", none, [](SessionFixture &agent) { delete agent.model; },
        begun + ended("Abandoned"));
}

void TestAgentSessionEnds::everyRunHasOneEnd()
{
    QFETCH(Step, prepare);
    QFETCH(Step, step);
    QFETCH(QStringList, log);
    SessionFixture agent;
    prepare(agent);
    if (agent.log.isEmpty())
        agent.send("question");
    step(agent);
    runUntilQuiet();
    QCOMPARE(agent.log, log);
    QVERIFY(!agent.session->isRunning());
}

void TestAgentSessionEnds::outcomeHoldsWhatTheRunBrought_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<RunOutcome>("outcome");
    const auto row = [](const char *name, const RunOutcome &outcome, const Step &step) {
        QTest::newRow(name) << step << outcome;
    };
    row("finished", {RunEnd::Finished, "one two", "", 2}, [](SessionFixture &agent) {
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}), "Let me see.");
        agent.model->addText({"one ", "two"});
        agent.send("question");
    });
    row("failed in the middle of an answer", {RunEnd::Failed, "half", "broken", 1},
        [](SessionFixture &agent) {
            agent.session->send("question");
            agent.model->lastCall().reply->appendDelta("half");
            agent.model->lastCall().reply->fail("broken");
        });
    row("failed on the second answer", {RunEnd::Failed, "", "broken", 2}, [](SessionFixture &agent) {
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}), "Let me see.");
        agent.model->addFailure("broken");
        agent.send("question");
    });
    row("failed on calls that cannot be read",
        {RunEnd::Failed, "Let me see.", "Tool call is missing function name.", 1}, [](SessionFixture &agent) {
            agent.model->addToolCalls({QJsonObject{{"id", "c1"}}}, "Let me see.");
            agent.send("question");
        });
    row("denied", {RunEnd::Denied, "", "", 1}, [](SessionFixture &agent) {
        askToWrite(agent);
        agent.session->answerApproval(agent.approvals.first(), false);
    });
    row("canceled in the middle of an answer", {RunEnd::Canceled, "half", "", 1}, [](SessionFixture &agent) {
        agent.session->send("question");
        agent.model->lastCall().reply->appendDelta("half");
        agent.session->cancel();
    });
    row("replaced in the middle of an answer", {RunEnd::Replaced, "half", "", 1}, [](SessionFixture &agent) {
        agent.session->send("question");
        agent.model->lastCall().reply->appendDelta("half");
        agent.session->run("again");
    });
    row("abandoned in the middle of an answer", {RunEnd::Abandoned, "half", "", 1},
        [](SessionFixture &agent) {
            agent.session->send("question");
            agent.model->lastCall().reply->appendDelta("half");
            delete agent.model->lastCall().reply;
            runUntilQuiet();
        });
}

void TestAgentSessionEnds::outcomeHoldsWhatTheRunBrought()
{
    QFETCH(Step, step);
    QFETCH(RunOutcome, outcome);
    SessionFixture agent;
    step(agent);
    QCOMPARE(agent.outcomes.size(), 1);
    const RunOutcome &told = agent.outcomes.first();
    QCOMPARE(told.end, outcome.end);
    QCOMPARE(told.text, outcome.text);
    QCOMPARE(told.error, outcome.error);
    QCOMPARE(told.requests, outcome.requests);
}

void TestAgentSessionEnds::endIsToldInsideTheCallThatEndsTheRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QString>("last");
    const auto row = [](const char *name, const Step &step) {
        QTest::newRow(name) << step << QString("ended %1").arg(name);
    };
    row("Finished", [](SessionFixture &agent) { agent.model->lastCall().reply->finish("done"); });
    row("Failed", [](SessionFixture &agent) { agent.model->lastCall().reply->fail("broken"); });
    row("Canceled", [](SessionFixture &agent) { agent.session->cancel(); });
    row("Denied", [](SessionFixture &agent) {
        agent.model->lastCall().reply->setToolCalls("", AgentFixture::callsOf({"write"}));
        agent.model->lastCall().reply->finish("");
        agent.session->resolveApproval("c1", false);
    });
}

void TestAgentSessionEnds::endIsToldInsideTheCallThatEndsTheRun()
{
    QFETCH(Step, step);
    QFETCH(QString, last);
    SessionFixture agent;
    agent.session->send("question");
    step(agent);
    QCOMPARE(agent.log.last(), last);
    const QStringList log = agent.log;
    runUntilQuiet();
    QCOMPARE(agent.log, log);
}

void TestAgentSessionEnds::missingModelFailsInsideSend()
{
    SessionFixture agent;
    agent.session->setModel(nullptr);
    agent.session->send("question");
    QCOMPARE(agent.log.last(), "ended Failed");
    QCOMPARE(agent.outcomes.first().requests, 0);
}

void TestAgentSessionEnds::abandonedRunIsToldFromTheEventLoop_data()
{
    QTest::addColumn<Step>("step");
    QTest::newRow("the reply dies") << Step(
        [](SessionFixture &agent) { delete agent.model->lastCall().reply; });
    QTest::newRow("the model dies") << Step([](SessionFixture &agent) { delete agent.model; });
    QTest::newRow("both die") << Step([](SessionFixture &agent) {
        delete agent.model->lastCall().reply;
        delete agent.model;
    });
}

void TestAgentSessionEnds::abandonedRunIsToldFromTheEventLoop()
{
    QFETCH(Step, step);
    SessionFixture agent;
    agent.session->send("question");
    step(agent);
    QVERIFY(!agent.session->isRunning());
    agent.session->cancel();
    QCOMPARE(agent.log, begun);
    runUntilQuiet();
    QCOMPARE(agent.log, begun + ended("Abandoned"));
}

void TestAgentSessionEnds::abandonedRunIsToldBeforeWhatFollows_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QStringList>("log");
    const auto row = [](const char *name, const Step &step, const QStringList &log) {
        QTest::newRow(name) << step << log;
    };
    row(
        "send", [](SessionFixture &agent) { agent.session->send("again"); }, begun);
    row(
        "run", [](SessionFixture &agent) { agent.session->run("again"); }, begun);
    row(
        "regenerate", [](SessionFixture &agent) { QVERIFY(agent.session->regenerate()); }, begun);
    row("setConversation", [](SessionFixture &agent) { QVERIFY(agent.session->setConversation({})); },
        {"conversation"});
}

void TestAgentSessionEnds::abandonedRunIsToldBeforeWhatFollows()
{
    QFETCH(Step, step);
    QFETCH(QStringList, log);
    SessionFixture agent;
    agent.session->send("question");
    delete agent.model->lastCall().reply;
    step(agent);
    QCOMPARE(agent.log, begun + ended("Abandoned") + log);
    runUntilQuiet();
    QCOMPARE(agent.log, begun + ended("Abandoned") + log);
}

void TestAgentSessionEnds::orphanedReplyIsDropped()
{
    SessionFixture agent;
    agent.session->send("question");
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    delete agent.model;
    reply->appendDelta("late");
    reply->finish("late");
    runUntilQuiet();
    QCOMPARE(agent.log, begun + ended("Abandoned"));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!reply);
}

void TestAgentSessionEnds::nextRunEndsTheOneInFlight_data()
{
    QTest::addColumn<Step>("prepare");
    QTest::newRow("while it awaits an answer") << Step([](SessionFixture &agent) { agent.send("question"); });
    QTest::newRow("while the user is asked") << Step(askToWrite);
    QTest::newRow("between two steps") << Step([](SessionFixture &agent) {
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
        agent.session->send("question");
        QCoreApplication::processEvents();
    });
}

void TestAgentSessionEnds::nextRunEndsTheOneInFlight()
{
    QFETCH(Step, prepare);
    for (const bool sends : {true, false}) {
        SessionFixture agent;
        prepare(agent);
        agent.log.clear();
        agent.model->addText({"second"});
        sends ? agent.session->send("again") : agent.session->run("again");
        agent.log.removeAll("withdrawn c1");
        QCOMPARE(agent.log, ended("Replaced") + begun);
        runUntilQuiet();
        QCOMPARE(agent.log.last(), "ended Finished");
        QCOMPARE(agent.outcomes.size(), 2);
    }
}

void TestAgentSessionEnds::waitingQuestionIsWithdrawn_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QString>("end");
    QTest::newRow("cancel") << Step([](SessionFixture &agent) { agent.session->cancel(); }) << "Canceled";
    QTest::newRow("send") << Step([](SessionFixture &agent) { agent.session->send("again"); }) << "Replaced";
    QTest::newRow("run") << Step([](SessionFixture &agent) { agent.session->run("again"); }) << "Replaced";
}

void TestAgentSessionEnds::waitingQuestionIsWithdrawn()
{
    QFETCH(Step, step);
    QFETCH(QString, end);
    SessionFixture agent;
    askToWrite(agent);
    agent.log.clear();
    step(agent);
    QCOMPARE(agent.log.mid(0, 3), QStringList{"withdrawn c1"} + ended(end));
    QVERIFY(!agent.session->answerApproval(agent.approvals.first(), true));
}

void TestAgentSessionEnds::slotThatBeginsTheNextRunGetsOneEndFirst_data()
{
    QTest::addColumn<QString>("place");
    QTest::addColumn<Step>("step");
    QTest::addColumn<QStringList>("end");
    const QStringList finished{"finished first", "conversation", "running false", "ended Finished"};
    const QStringList failed{"failed broken", "running false", "ended Failed"};
    const QStringList denied{"trace write denied", "conversation", "running false", "ended Denied"};
    const QStringList canceled{"withdrawn c1", "running false", "ended Canceled"};
    const Step finish = [](SessionFixture &agent) { agent.model->lastCall().reply->finish("first"); };
    const Step fail = [](SessionFixture &agent) { agent.model->lastCall().reply->fail("broken"); };
    const Step ask = [](SessionFixture &agent) {
        agent.model->lastCall().reply->setToolCalls("", AgentFixture::callsOf({"write"}));
        agent.model->lastCall().reply->finish("");
    };
    const Step deny = [ask](SessionFixture &agent) {
        ask(agent);
        agent.session->answerApproval(agent.approvals.last(), false);
    };
    const Step cancel = [ask](SessionFixture &agent) {
        ask(agent);
        agent.session->cancel();
    };
    const auto rows = [](const QStringList &end, const Step &step) {
        for (const QString &place : end)
            QTest::newRow(qPrintable(end.last() + " in " + place)) << place << step << end;
    };
    rows(finished, finish);
    rows(failed, fail);
    rows(denied, deny);
    rows(canceled, cancel);
}

void TestAgentSessionEnds::slotThatBeginsTheNextRunGetsOneEndFirst()
{
    QFETCH(QString, place);
    QFETCH(Step, step);
    QFETCH(QStringList, end);
    SessionFixture agent;
    agent.session->send("question");
    agent.log.clear();
    agent.onEntry = [&](const QString &entry) {
        if (entry != place || agent.requestCount() > 1)
            return;
        // The "conversation" of an answer with calls is not that of the end.
        if (!agent.session->isRunning())
            agent.session->send("again");
    };
    step(agent);
    QCOMPARE(agent.log.mid(agent.log.indexOf(end.first())), end + begun);
    QCOMPARE(agent.outcomes.size(), 1);
    agent.model->lastCall().reply->finish("second");
    QCOMPARE(agent.log.filter("ended").size(), 2);
    QCOMPARE(agent.log.last(), "ended Finished");
}

// Each of three slots of runEnded() that sends begins a run, which the send that goes on afterwards replaces.
void TestAgentSessionEnds::whatASlotBeganIsReplacedInTurn()
{
    SessionFixture agent;
    agent.session->send("first");
    int sent = 0;
    connect(agent.session, &AgentSession::runEnded, &agent, [&] {
        if (++sent <= 2)
            agent.session->send(QString("from slot %1").arg(sent));
    });
    agent.session->send("last");
    QCOMPARE(agent.outcomes.size(), 3);
    for (const RunOutcome &outcome : agent.outcomes)
        QCOMPARE(outcome.end, RunEnd::Replaced);
    QCOMPARE(agent.conversation(),
             (QStringList{"user: first", "user: from slot 1", "user: from slot 2", "user: last"}));
    QVERIFY(agent.session->isRunning());
}

void TestAgentSessionEnds::slotMayDeleteTheSessionAtEveryStep_data()
{
    slotThatBeginsTheNextRunGetsOneEndFirst_data();
}

void TestAgentSessionEnds::slotMayDeleteTheSessionAtEveryStep()
{
    QFETCH(QString, place);
    QFETCH(Step, step);
    SessionFixture agent;
    agent.session->send("question");
    agent.onEntry = [&](const QString &entry) {
        if (entry == place && !agent.session->isRunning())
            delete agent.session;
    };
    step(agent);
    runUntilQuiet();
    QVERIFY(!agent.session);
    QCOMPARE(agent.log.last(), place);
}

void TestAgentSessionEnds::deletedSessionTellsNothing_data()
{
    QTest::addColumn<Step>("prepare");
    QTest::newRow("while it awaits an answer") << Step([](SessionFixture &agent) { agent.send("question"); });
    QTest::newRow("while the user is asked") << Step(askToWrite);
    QTest::newRow("before it told that it is abandoned") << Step([](SessionFixture &agent) {
        agent.send("question");
        delete agent.model->lastCall().reply;
    });
}

void TestAgentSessionEnds::deletedSessionTellsNothing()
{
    QFETCH(Step, prepare);
    SessionFixture agent;
    prepare(agent);
    const QStringList log = agent.log;
    delete agent.session;
    runUntilQuiet();
    QCOMPARE(agent.log, log);
}

QTEST_GUILESS_MAIN(TestAgentSessionEnds)
#include "tst_agentsession_ends.moc"
