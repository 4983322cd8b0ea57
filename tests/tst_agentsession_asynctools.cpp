#include "support/heldtool.h"
#include "support/sessionfixture.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// How a session tells of tools that take their time, and how it lets them overlap.
class TestAgentSessionAsyncTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void progressIsPassedOn();
    void cancelTellsTheEnd();
    void replacedCallIsCanceled();
    void cancelInStartIsToldBehindTheCall_data();
    void cancelInStartIsToldBehindTheCall();
    void cancelWhenAToolHasFinishedKeepsItsResult();
    void replacedInStartCountsAsNotExecuted();
    void deathCancelsTheTools();
    void dyingSessionBeginsNothing();
    void neighboursOverlap();
    void neighboursWaitByDefault();
    void otherCallsWait_data();
    void otherCallsWait();
    void readingCallsWaitForOthers();
    void overlappingCallsAreCanceledTogether();
    void overlappingCallsMayBeTakenUpAnew();
    void unknownToolFailsTheRunBehindTheOthers();
    void slotOfATraceMayCancelWhileAToolStarts();
    void slotOfATraceMayTurnTheLoopUntilTheNextQuestion();
    void slotOfATraceMayTurnTheLoopUntilTheNextRequest();
};

namespace {

// A session with the asynchronous tools "a" and "b", which only read, and "c", which writes.
class SlowSession : public SessionFixture
{
public:
    explicit SlowSession(bool parallel = true)
        : a(add("a", ToolPermission::ReadOnly))
        , b(add("b", ToolPermission::ReadOnly))
        , c(add("c", ToolPermission::Write))
    {
        session->setParallelToolCalls(parallel);
        connect(session, &AgentSession::toolProgressed, this, [this](const QString &id, const QString &text) {
            log.append("progress " + id + " " + text);
        });
    }

    void ask(const QStringList &names)
    {
        model->addToolCalls(callsOf(names));
        model->addText({"answer"});
        send("question");
        log.clear();
    }

    // Finishes "a", and "b" in a slot of its trace, which turns the event loop.
    void finishNested()
    {
        connect(session, &AgentSession::traceAdded, this, [this](const ToolCallTrace &trace) {
            if (trace.toolName == "a")
                finish(b, "two");
        });
        finish(a, "one");
    }

    static void finish(const QPointer<HeldTool> &tool, const QString &text)
    {
        tool->lastReply()->finish(success(text));
        runUntilQuiet();
    }

    const QPointer<HeldTool> a;
    const QPointer<HeldTool> b;
    const QPointer<HeldTool> c;

private:
    HeldTool *add(const QString &name, ToolPermission permission)
    {
        auto *tool = new HeldTool(name, permission, registry);
        registry->registerTool(tool);
        return tool;
    }
};

const QStringList canceledEnd{"conversation", "running false", "ended Canceled"};

} // namespace

void TestAgentSessionAsyncTools::progressIsPassedOn()
{
    SlowSession agent;
    agent.ask({"a"});
    agent.a->lastReply()->progress("1/2");
    agent.a->lastReply()->progress({});
    QCOMPARE(agent.log, (QStringList{"progress c1 1/2", "progress c1 "}));
    SlowSession::finish(agent.a, "done");
    QCOMPARE(agent.log.mid(2, 2), (QStringList{"trace a success", "conversation"}));
    QCOMPARE(agent.log.last(), "ended Finished");
}

void TestAgentSessionAsyncTools::cancelTellsTheEnd()
{
    SlowSession agent;
    agent.ask({"a", "b"});
    bool isTold = true;
    connect(agent.a->lastReply(), &ToolReply::canceled, &agent,
            [&] { isTold = agent.log.contains("ended Canceled"); });
    agent.session->cancel();
    QVERIFY(!isTold);
    QCOMPARE(agent.log, canceledEnd);
    QVERIFY(agent.a->lastReply()->isCanceled());
    QCOMPARE(agent.conversation().mid(2), (QStringList{"tool c1: 已取消。", "tool c2: 已取消。"}));
    agent.a->lastReply()->finish(AgentFixture::success("late"));
    runUntilQuiet();
    QCOMPARE(agent.log, canceledEnd);
}

void TestAgentSessionAsyncTools::replacedCallIsCanceled()
{
    SlowSession agent(false);
    agent.ask({"a", "b"});
    agent.session->send("again");
    runUntilQuiet();
    QCOMPARE(agent.log.mid(0, 4),
             (QStringList{"conversation", "running false", "ended Replaced", "running true"}));
    QCOMPARE(agent.log.last(), "ended Finished");
    QCOMPARE(agent.conversation().mid(2),
             (QStringList{"tool c1: 已取消。", "tool c2: 未执行。", "user: again", "assistant: answer"}));
}

void TestAgentSessionAsyncTools::cancelInStartIsToldBehindTheCall_data()
{
    QTest::addColumn<bool>("finishes");
    QTest::newRow("runs on") << false;
    QTest::newRow("has finished") << true;
}

void TestAgentSessionAsyncTools::cancelInStartIsToldBehindTheCall()
{
    QFETCH(bool, finishes);
    SlowSession agent;
    agent.a->onStart = [&](ToolReply *reply) {
        agent.log.clear();
        agent.session->cancel();
        agent.log.append("canceled in start");
        if (finishes)
            reply->finish(AgentFixture::success("done"));
    };
    agent.model->addToolCalls(AgentFixture::callsOf({"a"}));
    agent.send("question");
    QCOMPARE(agent.log, QStringList("canceled in start")
                            + (finishes ? QStringList("trace a success") : QStringList()) + canceledEnd);
    QCOMPARE(agent.conversation().last(), finishes ? "tool c1: done" : "tool c1: 已取消。");
}

// A slot that was connected before those of the session.
void TestAgentSessionAsyncTools::cancelWhenAToolHasFinishedKeepsItsResult()
{
    SlowSession agent;
    agent.a->onStart = [&agent](const ToolReply *reply) {
        connect(reply, &ToolReply::finished, agent.session, &AgentSession::cancel);
    };
    agent.ask({"a"});
    agent.finish(agent.a, "done");
    QCOMPARE(agent.log, canceledEnd);
    QCOMPARE(agent.conversation().last(), "tool c1: done");
}

void TestAgentSessionAsyncTools::replacedInStartCountsAsNotExecuted()
{
    SlowSession agent;
    agent.a->onStart = [&](ToolReply *) {
        agent.model->addText({"again"});
        agent.session->send("next");
    };
    agent.model->addToolCalls(AgentFixture::callsOf({"a"}));
    agent.send("question");
    QVERIFY(!agent.a->lastReply() || agent.a->lastReply()->isCanceled());
    QVERIFY(!agent.log.contains("trace a success"));
    QCOMPARE(agent.conversation().mid(2),
             (QStringList{"tool c1: 未执行。", "user: next", "assistant: again"}));
}

void TestAgentSessionAsyncTools::deathCancelsTheTools()
{
    SlowSession agent;
    agent.ask({"a", "b"});
    QStringList canceled;
    connect(agent.a->lastReply(), &ToolReply::canceled, &agent, [&] { canceled.append("a"); });
    connect(agent.b->lastReply(), &ToolReply::canceled, &agent, [&] { canceled.append("b"); });
    delete agent.session;
    QCOMPARE(canceled, (QStringList{"a", "b"}));
    QCOMPARE(agent.log, QStringList());
}

void TestAgentSessionAsyncTools::dyingSessionBeginsNothing()
{
    SlowSession agent;
    agent.ask({"a"});
    connect(agent.a->lastReply(), &ToolReply::canceled, &agent, [&agent] {
        agent.session->send("again");
        agent.session->run("again");
        agent.session->cancel();
        QVERIFY(!agent.session->regenerate());
        QVERIFY(!agent.session->setConversation({}));
    });
    delete agent.session;
    runUntilQuiet();
    QCOMPARE(agent.requestCount(), 1);
    QCOMPARE(agent.log, QStringList());
}

void TestAgentSessionAsyncTools::neighboursOverlap()
{
    SlowSession agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"a", "b", "a"}));
    agent.model->addText({"answer"});
    agent.send("question");
    QCOMPARE(agent.log.filter("started"), (QStringList{"started a", "started b", "started a"}));
    SlowSession::finish(agent.b, "two");
    SlowSession::finish(agent.a, "three");
    QCOMPARE(agent.requestCount(), 1);
    agent.a->replies.first()->finish(AgentFixture::success("one"));
    runUntilQuiet();
    QCOMPARE(agent.log.filter("trace"),
             (QStringList{"trace b success", "trace a success", "trace a success"}));
    QCOMPARE(agent.conversation().mid(2),
             (QStringList{"tool c1: one", "tool c2: two", "tool c3: three", "assistant: answer"}));
}

void TestAgentSessionAsyncTools::neighboursWaitByDefault()
{
    SlowSession agent;
    agent.session->setParallelToolCalls(false);
    agent.ask({"a", "b"});
    QVERIFY(agent.b->replies.isEmpty());
    SlowSession::finish(agent.a, "one");
    QCOMPARE(agent.b->replies.size(), 1);
}

void TestAgentSessionAsyncTools::otherCallsWait_data()
{
    QTest::addColumn<QString>("other");
    QTest::addColumn<QString>("entry");
    QTest::newRow("that need an approval") << "c"
                                           << "approval c";
    QTest::newRow("that need an approval and are not asynchronous") << "write"
                                                                    << "approval write";
    QTest::newRow("that are not asynchronous") << "read"
                                               << "started read";
    QTest::newRow("of unknown tools") << "nobody"
                                      << "failed 未找到工具：nobody";
}

void TestAgentSessionAsyncTools::otherCallsWait()
{
    QFETCH(QString, other);
    QFETCH(QString, entry);
    SlowSession agent;
    agent.ask({"a", other, "b"});
    QCOMPARE(agent.log, QStringList());
    QVERIFY(agent.b->replies.isEmpty());
    SlowSession::finish(agent.a, "one");
    QVERIFY(agent.log.contains(entry));
    QCOMPARE(agent.b->replies.size(), other == "read" ? 1 : 0);
}

void TestAgentSessionAsyncTools::readingCallsWaitForOthers()
{
    SlowSession agent;
    agent.ask({"c", "a", "b"});
    QVERIFY(agent.session->answerApproval(agent.approvals.first(), true));
    runUntilQuiet();
    QVERIFY(agent.a->replies.isEmpty());
    SlowSession::finish(agent.c, "written");
    QCOMPARE(agent.a->replies.size(), 1);
    QCOMPARE(agent.b->replies.size(), 1);
}

void TestAgentSessionAsyncTools::overlappingCallsAreCanceledTogether()
{
    SlowSession agent;
    agent.ask({"a", "b", "read"});
    // The second one is canceled, too, though the first one's slot begins the next run.
    connect(agent.a->lastReply(), &ToolReply::canceled, agent.session,
            [&agent] { agent.session->send("next"); });
    agent.session->cancel();
    QVERIFY(agent.b->lastReply()->isCanceled());
    runUntilQuiet();
    QCOMPARE(agent.log.filter("ended"), (QStringList{"ended Canceled", "ended Finished"}));
    QCOMPARE(agent.conversation().mid(2, 4),
             (QStringList{"tool c1: 已取消。", "tool c2: 已取消。", "tool c3: 未执行。", "user: next"}));
}

// A slot of toolStarted() that runs an event loop and takes the tool away.
void TestAgentSessionAsyncTools::overlappingCallsMayBeTakenUpAnew()
{
    SlowSession agent;
    connect(agent.session, &AgentSession::toolStarted, &agent, [&agent](const ToolCallTrace &call) {
        if (call.callId != "c2" || !agent.b)
            return;
        delete agent.b;
        agent.addTool("b", ToolPermission::ReadOnly);
        agent.a->lastReply()->finish(AgentFixture::success("one"));
        runUntilQuiet();
    });
    agent.ask({"a", "b", "a"});
    SlowSession::finish(agent.a, "three");
    QCOMPARE(agent.conversation().mid(2),
             (QStringList{"tool c1: one", "tool c2: b done", "tool c3: three", "assistant: answer"}));
}

void TestAgentSessionAsyncTools::unknownToolFailsTheRunBehindTheOthers()
{
    SlowSession agent;
    agent.ask({"a", "nobody"});
    SlowSession::finish(agent.a, "one");
    QCOMPARE(agent.log, (QStringList{"trace a success", "conversation", "failed 未找到工具：nobody",
                                     "running false", "ended Failed"}));
}

void TestAgentSessionAsyncTools::slotOfATraceMayCancelWhileAToolStarts()
{
    SlowSession agent;
    agent.b->onStart = [&agent](ToolReply *) { agent.a->lastReply()->finish(AgentFixture::success("one")); };
    connect(agent.session, &AgentSession::traceAdded, agent.session, &AgentSession::cancel);
    agent.ask({"a", "b"});
    QCOMPARE(agent.outcomes.size(), 1);
    QVERIFY(!agent.b->lastReply() || agent.b->lastReply()->isCanceled());
    QCOMPARE(agent.conversation().mid(2), (QStringList{"tool c1: one", "tool c2: 已取消。"}));
}

void TestAgentSessionAsyncTools::slotOfATraceMayTurnTheLoopUntilTheNextQuestion()
{
    SlowSession agent;
    agent.ask({"a", "b", "c", "c", "read"});
    agent.finishNested();
    QCOMPARE(agent.requestCount(), 1);
    QCOMPARE(agent.log.last(), "approval c");
    QCOMPARE(agent.approvals.size(), 1);
    QVERIFY(agent.session->answerApproval(agent.approvals.first(), true));
    SlowSession::finish(agent.c, "three");
    QVERIFY(agent.session->answerApproval(agent.approvals.last(), true));
    SlowSession::finish(agent.c, "four");
    QCOMPARE(agent.conversation().mid(2),
             (QStringList{"tool c1: one", "tool c2: two", "tool c3: three", "tool c4: four",
                          "tool c5: read done", "assistant: answer"}));
}

void TestAgentSessionAsyncTools::slotOfATraceMayTurnTheLoopUntilTheNextRequest()
{
    SlowSession agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"a", "b"}));
    agent.send("question");
    agent.finishNested();
    QCOMPARE(agent.requestCount(), 2);
    agent.model->lastCall().reply->finish("late");
    runUntilQuiet();
    QCOMPARE(agent.conversation().mid(2), (QStringList{"tool c1: one", "tool c2: two", "assistant: late"}));
    QCOMPARE(agent.outcomes.size(), 1);
}

QTEST_GUILESS_MAIN(TestAgentSessionAsyncTools)
#include "tst_agentsession_asynctools.moc"
