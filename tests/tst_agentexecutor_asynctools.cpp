#include "support/agentfixture.h"
#include "support/heldtool.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

using Action = std::function<void(ToolReply *)>;

Q_DECLARE_METATYPE(Action)

// How an executor waits for tools that take their time.
class TestAgentExecutorAsyncTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void traceComesInsideFinish();
    void durationLastsUntilTheResult();
    void callsRunOneAfterAnother();
    void toolThatFinishesAtOnceIsTreatedLikeAnyOther();
    void allowingAnswerStartsTheTool();
    void permissionIsReadBeforeTheToolStarts();
    void oddRepliesFailInWords_data();
    void oddRepliesFailInWords();
    void repliesAreDeletedOnceTheyEnded();
    void cancelCancelsTheTool();
    void newRunCancelsTheTool();
    void runInASlotOfCanceledWins();
    void deathCancelsTheTool();
    void dyingExecutorBeginsNothing();
    void deletedToolLeavesItsReplyRunning();
    void toolsMayDoAnythingInStart_data();
    void toolsMayDoAnythingInStart();
    void slotsMayDoAnythingInCanceled_data();
    void slotsMayDoAnythingInCanceled();
};

namespace {

// An agent whose model asks for calls of the tools "slow" and "read", and then answers.
class SlowAgent : public AgentFixture
{
public:
    explicit SlowAgent(ToolPermission permission = ToolPermission::ReadOnly)
        : tool(new HeldTool("slow", permission, registry))
    {
        registry->registerTool(tool);
        model->addToolCalls(callsOf({"slow", "read"}));
        model->addText({"answer"});
    }

    const QPointer<HeldTool> tool;
};

const QStringList untilTheEnd{"call read", "trace read success", "delta answer", "finished answer"};

void logCanceled(SlowAgent &agent)
{
    QObject::connect(agent.tool->lastReply(), &ToolReply::canceled, &agent,
                     [&agent] { agent.log.append("canceled"); });
}

void addActions()
{
    QTest::addColumn<QString>("action");
    for (const char *action : {"cancel", "run", "cancel and run", "delete executor", "delete registry",
                               "delete model", "nest", "cancel and nest"})
        QTest::newRow(action) << action;
}

void act(SlowAgent &agent, const QString &action)
{
    if (action.startsWith("cancel"))
        agent.executor->cancel();
    if (action.endsWith("run")) {
        agent.model->clearAnswers();
        agent.model->addText({"again"});
        agent.executor->run("again");
    }
    if (action == "delete executor")
        delete agent.executor;
    if (action == "delete registry")
        delete agent.registry;
    if (action == "delete model")
        delete agent.model;
    if (action.endsWith("nest"))
        runUntilQuiet();
}

} // namespace

void TestAgentExecutorAsyncTools::traceComesInsideFinish()
{
    SlowAgent agent;
    agent.run();
    QCOMPARE(agent.log, QStringList{"delta "});
    QVERIFY(agent.executor->isRunning());
    ToolResult result = AgentFixture::success("12 bar");
    result.data = {{"pressure", 12}};
    agent.tool->lastReply()->finish(result);
    QCOMPARE(agent.log, (QStringList{"delta ", "trace slow success"}));
    QCOMPARE(agent.traces.first().output, toolResultText(result));
    QCOMPARE(agent.requestCount(), 1);
    runUntilQuiet();
    QCOMPARE(agent.log.mid(2), untilTheEnd);
    QCOMPARE(agent.messages(1).at(2).toObject()["content"].toString(), toolResultText(result));
}

void TestAgentExecutorAsyncTools::durationLastsUntilTheResult()
{
    SlowAgent agent;
    QElapsedTimer clock;
    agent.tool->onStart = [&clock](ToolReply *) { clock.start(); };
    agent.run();
    QVERIFY(runUntil([&clock] { return clock.elapsed() >= 50; }));
    agent.tool->lastReply()->finish(AgentFixture::success("done"));
    QVERIFY(agent.traces.first().durationMs >= 50);
    QVERIFY(agent.traces.first().durationMs <= clock.elapsed());
}

void TestAgentExecutorAsyncTools::callsRunOneAfterAnother()
{
    SlowAgent agent;
    agent.model->clearAnswers();
    agent.model->addToolCalls(AgentFixture::callsOf({"slow", "slow"}));
    agent.model->addText({"answer"});
    agent.run();
    QCOMPARE(agent.tool->replies.size(), 1);
    agent.tool->lastReply()->finish(AgentFixture::success("one"));
    QCOMPARE(agent.tool->replies.size(), 1);
    runUntilQuiet();
    QCOMPARE(agent.tool->replies.size(), 2);
    agent.tool->lastReply()->finish(AgentFixture::success("two"));
    runUntilQuiet();
    QCOMPARE(agent.log.last(), "finished answer");
    QCOMPARE(agent.messages(1).at(2).toObject()["content"].toString(), "one");
    QCOMPARE(agent.messages(1).at(3).toObject()["content"].toString(), "two");
}

void TestAgentExecutorAsyncTools::toolThatFinishesAtOnceIsTreatedLikeAnyOther()
{
    SlowAgent agent;
    agent.tool->onStart = [](ToolReply *reply) { reply->finish(AgentFixture::success("at once")); };
    agent.run();
    QCOMPARE(agent.log, QStringList({"delta ", "trace slow success"}) + untilTheEnd);
    QCOMPARE(agent.traces.first().output, "at once");
}

void TestAgentExecutorAsyncTools::allowingAnswerStartsTheTool()
{
    SlowAgent agent(ToolPermission::Write);
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "approval slow"}));
    QVERIFY(agent.tool->replies.isEmpty());
    QVERIFY(agent.executor->answerApproval(agent.approvals.first(), true));
    QCOMPARE(agent.tool->replies.size(), 1);
    runUntilQuiet();
    QCOMPARE(agent.log.size(), 2);
    agent.tool->lastReply()->finish(AgentFixture::success("done"));
    runUntilQuiet();
    QCOMPARE(agent.log.mid(2), QStringList("trace slow success") + untilTheEnd);
}

void TestAgentExecutorAsyncTools::permissionIsReadBeforeTheToolStarts()
{
    SlowAgent agent;
    agent.tool->onStart = [&agent](ToolReply *reply) {
        agent.tool->setPermission(ToolPermission::SystemCommand);
        reply->finish(AgentFixture::success("done"));
    };
    agent.run();
    QCOMPARE(agent.traces.first().permission, ToolPermission::ReadOnly);
    QCOMPARE(agent.tool->permission(), ToolPermission::SystemCommand);
}

void TestAgentExecutorAsyncTools::oddRepliesFailInWords_data()
{
    QTest::addColumn<Action>("inStart");
    QTest::addColumn<Action>("later");
    QTest::addColumn<QString>("error");
    const Action nothing;
    const Action remove = [](ToolReply *reply) { delete reply; };
    const Action cancel = [](ToolReply *reply) { reply->cancel(); };
    const Action finishTwice = [](ToolReply *reply) {
        const QPointer<ToolReply> finished(reply);
        reply->finish({false, {}, {}, "first", {}});
        if (finished)
            reply->finish(AgentFixture::success("second"));
    };
    const Action finishAndCancel = [](ToolReply *reply) {
        reply->finish({false, {}, {}, "finished", {}});
        reply->cancel();
    };
    QTest::newRow("null") << remove << nothing << "Tool returned no reply.";
    QTest::newRow("deleted") << nothing << remove << "Tool reply was deleted.";
    QTest::newRow("canceled at once") << cancel << nothing << "Tool call was canceled.";
    QTest::newRow("canceled by somebody else") << nothing << cancel << "Tool call was canceled.";
    QTest::newRow("finishes twice at once") << finishTwice << nothing << "first";
    QTest::newRow("finishes twice") << nothing << finishTwice << "first";
    QTest::newRow("canceled when it has finished") << nothing << finishAndCancel << "finished";
}

void TestAgentExecutorAsyncTools::oddRepliesFailInWords()
{
    QFETCH(Action, inStart);
    QFETCH(Action, later);
    QFETCH(QString, error);
    SlowAgent agent;
    agent.tool->onStart = inStart;
    agent.run();
    if (later)
        later(agent.tool->lastReply());
    runUntilQuiet();
    QCOMPARE(agent.log, QStringList({"delta ", "trace slow failed"}) + untilTheEnd);
    QCOMPARE(agent.traces.first().error, error);
    QCOMPARE(agent.messages(1).at(2).toObject()["content"].toString(), error);
}

void TestAgentExecutorAsyncTools::repliesAreDeletedOnceTheyEnded()
{
    const auto isDeletedAfter = [](const Action &inStart, const Action &later) {
        SlowAgent agent;
        agent.tool->onStart = inStart;
        agent.run();
        const QPointer<ToolReply> reply = agent.tool->lastReply();
        const bool belongsToTheExecutor = !reply || reply->parent() == agent.executor;
        if (later)
            later(reply);
        runUntilQuiet();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return belongsToTheExecutor && !reply && agent.executor;
    };
    const Action finish = [](ToolReply *reply) { reply->finish({}); };
    const Action cancel = [](ToolReply *reply) { reply->cancel(); };
    const Action stop = [](ToolReply *reply) { qobject_cast<AgentExecutor *>(reply->parent())->cancel(); };
    for (const Action &end : {finish, cancel, stop}) {
        QVERIFY(isDeletedAfter(end, {}));
        QVERIFY(isDeletedAfter({}, end));
    }
}

void TestAgentExecutorAsyncTools::cancelCancelsTheTool()
{
    SlowAgent agent;
    agent.run();
    logCanceled(agent);
    bool isWhole = false;
    connect(agent.tool->lastReply(), &ToolReply::canceled, &agent, [&] {
        isWhole =
            agent.tool && agent.tool->lastReply()->parent() == agent.executor && !agent.executor->isRunning();
    });
    agent.executor->cancel();
    QVERIFY(isWhole);
    QVERIFY(agent.tool->lastReply()->isCanceled());
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "canceled"}));
    QCOMPARE(agent.requestCount(), 1);
    QVERIFY(!agent.executor->isRunning());
}

void TestAgentExecutorAsyncTools::newRunCancelsTheTool()
{
    SlowAgent agent;
    agent.run();
    logCanceled(agent);
    int requests = 0;
    bool isRunning = false;
    connect(agent.tool->lastReply(), &ToolReply::canceled, &agent, [&] {
        requests = agent.requestCount();
        isRunning = agent.executor->isRunning();
    });
    agent.executor->run("again");
    QVERIFY(isRunning);
    QCOMPARE(requests, 1);
    QCOMPARE(agent.requestCount(), 2);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "canceled", "delta answer", "finished answer"}));
    QCOMPARE(agent.messages(1), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "again"}}}));
}

void TestAgentExecutorAsyncTools::runInASlotOfCanceledWins()
{
    SlowAgent agent;
    agent.run();
    connect(agent.tool->lastReply(), &ToolReply::canceled, agent.executor,
            [&agent] { agent.executor->run("third"); });
    agent.executor->run("second");
    runUntilQuiet();
    QCOMPARE(agent.requestCount(), 2);
    QCOMPARE(agent.messages(1), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "third"}}}));
    QCOMPARE(agent.log, (QStringList{"delta ", "delta answer", "finished answer"}));
}

void TestAgentExecutorAsyncTools::deathCancelsTheTool()
{
    SlowAgent agent;
    agent.run();
    const QPointer<ToolReply> reply = agent.tool->lastReply();
    bool isWhole = false;
    connect(reply, &ToolReply::canceled, &agent,
            [&] { isWhole = agent.tool && reply->parent() == agent.executor; });
    logCanceled(agent);
    delete agent.executor;
    QVERIFY(isWhole);
    QVERIFY(!reply);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "canceled"}));
}

void TestAgentExecutorAsyncTools::dyingExecutorBeginsNothing()
{
    SlowAgent agent;
    agent.run();
    connect(agent.tool->lastReply(), &ToolReply::canceled, &agent, [&agent] {
        agent.executor->run("again");
        agent.executor->cancel();
        QVERIFY(!agent.executor->isRunning());
    });
    delete agent.executor;
    runUntilQuiet();
    QCOMPARE(agent.requestCount(), 1);
    QCOMPARE(agent.log, QStringList{"delta "});
}

void TestAgentExecutorAsyncTools::deletedToolLeavesItsReplyRunning()
{
    SlowAgent agent;
    agent.run();
    const QPointer<ToolReply> reply = agent.tool->lastReply();
    delete agent.tool;
    runUntilQuiet();
    QVERIFY(reply->isRunning());
    reply->finish(AgentFixture::success("done"));
    runUntilQuiet();
    QCOMPARE(agent.log, QStringList({"delta ", "trace slow success"}) + untilTheEnd);
}

void TestAgentExecutorAsyncTools::toolsMayDoAnythingInStart_data()
{
    addActions();
}

void TestAgentExecutorAsyncTools::toolsMayDoAnythingInStart()
{
    QFETCH(QString, action);
    SlowAgent agent;
    agent.tool->onStart = [&](ToolReply *reply) {
        connect(reply, &ToolReply::canceled, &agent, [&agent] { agent.log.append("canceled"); });
        act(agent, action);
    };
    agent.run();
    const bool isOver = action.startsWith("cancel") || action.endsWith("run");
    QCOMPARE(agent.log.contains("canceled"), isOver);
    if (agent.tool && agent.tool->lastReply() && !isOver)
        agent.tool->lastReply()->finish(AgentFixture::success("done"));
    runUntilQuiet();
    QCOMPARE(agent.log.contains("trace slow success"), action == "delete model" || action == "nest");
    QCOMPARE(agent.log.contains("finished again"), action.endsWith("run"));
    if (agent.executor)
        QVERIFY(!agent.executor->isRunning() || action == "delete registry");
}

void TestAgentExecutorAsyncTools::slotsMayDoAnythingInCanceled_data()
{
    addActions();
}

void TestAgentExecutorAsyncTools::slotsMayDoAnythingInCanceled()
{
    QFETCH(QString, action);
    for (const char *end : {"cancel", "run", "delete executor"}) {
        SlowAgent agent;
        agent.run();
        bool isDone = false;
        connect(agent.tool->lastReply(), &ToolReply::canceled, &agent, [&] {
            const bool isDying = !qstrcmp(end, "delete executor") && action == "delete executor";
            if (!std::exchange(isDone, true) && !isDying)
                act(agent, action);
        });
        act(agent, end);
        runUntilQuiet();
        QVERIFY(isDone);
        QVERIFY(!agent.log.contains("trace slow success"));
        QVERIFY(!agent.executor || !agent.executor->isRunning());
    }
}

QTEST_GUILESS_MAIN(TestAgentExecutorAsyncTools)
#include "tst_agentexecutor_asynctools.moc"
