#include "support/agentfixture.h"

#include <qtagent/agentsession.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// A place in a run at which the application gets control.
enum class Place {
    Delta,
    Finished,
    Failed,
    ReadTrace,
    Approval,
    WriteTrace,
    DeniedTrace,
    ReadTool,
    WriteTool
};

Q_DECLARE_METATYPE(Place)

// What happens to a run, whatever the application does to its objects.
class TestAgentExecutorLifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cancelEndsTheRun_data();
    void cancelEndsTheRun();
    void newRunReplacesTheRun_data();
    void newRunReplacesTheRun();
    void newRunAfterCancelReplacesTheRun_data();
    void newRunAfterCancelReplacesTheRun();
    void executorMayDie_data();
    void executorMayDie();
    void othersMayDie_data();
    void othersMayDie();
    void postedStepsDieWithTheirRun_data();
    void postedStepsDieWithTheirRun();
    void earlierRequestIsNotListenedToNorCanceled();
    void cancelReachesTheRequestInFlight();
    void cancelWithoutARunDoesNothing();
    void cancelWhileTheRequestIsSentReachesIt();
    void runWhileTheRequestIsSentReplacesIt();
    void signalsAfterCancelAreIgnored();
    void secondEndOfAReplyIsIgnored();
    void replyThatDiesEndsTheRunSilently();
    void modelMayFailItsRequestsWhenItDiesWithTheExecutor();
};

namespace {

// Calls an action once, at a place of the first run, and keeps the log as it was then.
class Visitor : public QObject
{
public:
    Visitor(AgentFixture &agent, Place place, std::function<void()> action)
        : m_agent(agent)
        , m_place(place)
        , m_action(std::move(action))
    {
        AgentExecutor *executor = agent.executor;
        connect(executor, &AgentExecutor::assistantDelta, this, [this] { visit(Place::Delta); });
        connect(executor, &AgentExecutor::assistantFinished, this, [this] { visit(Place::Finished); });
        connect(executor, &AgentExecutor::failed, this, [this] { visit(Place::Failed); });
        connect(executor, &AgentExecutor::approvalRequired, this, &Visitor::visitApproval);
        connect(executor, &AgentExecutor::traceAdded, this, [this](const ToolCallTrace &trace) {
            if (trace.status == "denied")
                visit(Place::DeniedTrace);
            else
                visit(trace.toolName == "reader" ? Place::ReadTrace : Place::WriteTrace);
        });
        agent.addTool("reader", ToolPermission::ReadOnly, [this] { visit(Place::ReadTool); });
        agent.addTool("writer", ToolPermission::Write, [this] { visit(Place::WriteTool); });
    }

    // The log as it was when the action was called.
    QStringList logBefore;
    bool visited = false;

private:
    void visitApproval(const ApprovalRequest &request)
    {
        const QPointer<AgentExecutor> executor = m_agent.executor;
        visit(Place::Approval);
        if (executor)
            executor->resolveApproval(request.approvalId, m_place != Place::DeniedTrace);
    }

    void visit(Place place)
    {
        if (place != m_place || visited)
            return;
        visited = true;
        logBefore = m_agent.log;
        m_action();
    }

    AgentFixture &m_agent;
    const Place m_place;
    const std::function<void()> m_action;
};

// A run that passes every place that does not exclude another one: two calls, then the end.
void addScript(AgentFixture &agent, Place place)
{
    agent.model->addToolCalls(AgentFixture::callsOf({"reader", "writer", "reader"}), "Let me see.");
    if (place == Place::Failed)
        agent.model->addFailure("no network");
    else
        agent.model->addText({"first"});
}

const QVector<QPair<const char *, Place>> places{
    {"in a slot of assistantDelta", Place::Delta},
    {"in a slot of assistantFinished", Place::Finished},
    {"in a slot of failed", Place::Failed},
    {"in a slot of traceAdded", Place::ReadTrace},
    {"in a slot of approvalRequired", Place::Approval},
    {"in a slot of traceAdded, approved", Place::WriteTrace},
    {"inside a tool", Place::ReadTool},
    {"inside an approved tool", Place::WriteTool},
    {"in a slot of traceAdded, denied", Place::DeniedTrace},
};

// A session is an executor, too.
void addPlaceRows()
{
    QTest::addColumn<bool>("isSession");
    QTest::addColumn<Place>("place");
    for (const auto &[name, place] : places) {
        QTest::addRow("%s", name) << false << place;
        QTest::addRow("session, %s", name) << true << place;
    }
}

AgentExecutor *newExecutor(bool isSession)
{
    return isSession ? new AgentSession : new AgentExecutor;
}

} // namespace

void TestAgentExecutorLifetime::cancelEndsTheRun_data()
{
    addPlaceRows();
}

void TestAgentExecutorLifetime::cancelEndsTheRun()
{
    QFETCH(bool, isSession);
    QFETCH(Place, place);
    AgentFixture agent(newExecutor(isSession));
    int requests = 0;
    Visitor visitor(agent, place, [&agent, &requests] {
        requests = agent.requestCount();
        agent.executor->cancel();
        agent.executor->cancel();
    });
    addScript(agent, place);
    agent.run();

    QVERIFY(visitor.visited);
    // A tool that has run is traced.
    const QStringList traced = place == Place::ReadTool  ? QStringList{"trace reader success"}
                             : place == Place::WriteTool ? QStringList{"trace writer success"}
                                                         : QStringList();
    QCOMPARE(agent.log, visitor.logBefore + traced);
    QCOMPARE(agent.requestCount(), requests);
    QVERIFY(isSession || agent.model->lastCall().reply->isCanceled());
}

void TestAgentExecutorLifetime::newRunReplacesTheRun_data()
{
    addPlaceRows();
}

void TestAgentExecutorLifetime::newRunReplacesTheRun()
{
    QFETCH(bool, isSession);
    QFETCH(Place, place);
    AgentFixture agent(newExecutor(isSession));
    int requests = 0;
    Visitor visitor(agent, place, [&agent, &requests] {
        requests = agent.requestCount();
        agent.model->clearAnswers();
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
        agent.model->addText({"second"});
        agent.executor->run("again");
    });
    addScript(agent, place);
    agent.run();

    QVERIFY(visitor.visited);
    QCOMPARE(agent.log, visitor.logBefore
                            + (QStringList{"delta ", "call read", "trace read success", "delta second",
                                           "finished second"}));
    QCOMPARE(agent.requestCount(), requests + 2);
    QVERIFY(isSession || !agent.model->calls().at(requests - 1).reply->isCanceled());
    QCOMPARE(agent.messages(requests), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "again"}}}));
    const QJsonArray last = agent.messages(requests + 1);
    QCOMPARE(last.size(), 3);
    QCOMPARE(last.at(2).toObject().value("content").toString(), "read done");
}

void TestAgentExecutorLifetime::newRunAfterCancelReplacesTheRun_data()
{
    addPlaceRows();
}

void TestAgentExecutorLifetime::newRunAfterCancelReplacesTheRun()
{
    QFETCH(bool, isSession);
    QFETCH(Place, place);
    AgentFixture agent(newExecutor(isSession));
    int requests = 0;
    Visitor visitor(agent, place, [&agent, &requests] {
        requests = agent.requestCount();
        agent.model->clearAnswers();
        agent.model->addText({"second"});
        agent.executor->cancel();
        agent.executor->run("again");
    });
    addScript(agent, place);
    agent.run();
    QVERIFY(visitor.visited);
    QCOMPARE(agent.log, visitor.logBefore + (QStringList{"delta second", "finished second"}));
    QCOMPARE(agent.requestCount(), requests + 1);
}

void TestAgentExecutorLifetime::executorMayDie_data()
{
    addPlaceRows();
}

void TestAgentExecutorLifetime::executorMayDie()
{
    QFETCH(bool, isSession);
    QFETCH(Place, place);
    AgentFixture agent(newExecutor(isSession));
    int requests = 0;
    Visitor visitor(agent, place, [&agent, &requests] {
        requests = agent.requestCount();
        delete agent.executor;
    });
    addScript(agent, place);
    agent.run();
    QVERIFY(visitor.visited);
    QCOMPARE(agent.log, visitor.logBefore);
    QCOMPARE(agent.requestCount(), requests);
}

void TestAgentExecutorLifetime::othersMayDie_data()
{
    QTest::addColumn<bool>("isSession");
    QTest::addColumn<Place>("place");
    QTest::addColumn<QString>("victim");
    QTest::addColumn<QString>("end");
    // How the run ends where the object that dies is still needed at each of the places above.
    const QMap<QString, QStringList> ends{
        {"model",
         {"failed 智能体模型尚未配置。", "finished first", "failed no network", "failed 智能体模型尚未配置。",
          "failed 智能体模型尚未配置。", "failed 智能体模型尚未配置。", "failed 智能体模型尚未配置。",
          "failed 智能体模型尚未配置。", "trace writer denied"}},
        {"registry",
         {"failed 工具注册表尚未配置。", "finished first", "failed no network", "failed 工具注册表尚未配置。",
          "failed 工具注册表尚未配置。", "failed 工具注册表尚未配置。", "failed 工具注册表尚未配置。",
          "failed 工具注册表尚未配置。", "trace writer denied"}},
        {"tool reader",
         {"failed 未找到工具：reader", "finished first", "failed no network", "failed 未找到工具：reader",
          "failed 未找到工具：reader", "failed 未找到工具：reader", "failed 未找到工具：reader",
          "failed 未找到工具：reader", "trace writer denied"}},
        {"tool writer",
         {"failed 未找到工具：writer", "finished first", "failed no network", "failed 未找到工具：writer",
          "failed 未找到工具：writer", "finished first", "failed 未找到工具：writer", "finished first",
          "trace writer denied"}},
        {"reply",
         {"delta Let me see.", "finished first", "failed no network", "finished first", "finished first",
          "finished first", "finished first", "finished first", "trace writer denied"}},
    };
    for (auto it = ends.cbegin(); it != ends.cend(); ++it) {
        for (int i = 0; i < places.size(); ++i) {
            const auto &[name, place] = places.at(i);
            // A session gives up the answer of a model that died, and a service's own reply never ends.
            const bool isAbandoned = it.key() == "model" && place == Place::Delta;
            const QString end = isAbandoned ? "delta Let me see." : it.value().at(i);
            QTest::addRow("%s %s", qPrintable(it.key()), name)
                << false << place << it.key() << (AgentFixture::isStreamed() ? end : it.value().at(i));
            QTest::addRow("session, %s %s", qPrintable(it.key()), name) << true << place << it.key() << end;
        }
    }
}

void TestAgentExecutorLifetime::othersMayDie()
{
    QFETCH(bool, isSession);
    QFETCH(Place, place);
    QFETCH(QString, victim);
    QFETCH(QString, end);
    AgentFixture agent(newExecutor(isSession));
    Visitor visitor(agent, place, [&agent, &victim] {
        if (victim == "model")
            delete agent.model;
        else if (victim == "registry")
            delete agent.registry;
        else if (victim == "reply")
            delete agent.model->lastCall().reply;
        else
            delete agent.registry->tool(victim.mid(5));
    });
    addScript(agent, place);
    agent.run();
    QVERIFY(visitor.visited);
    QCOMPARE(agent.log.last(), end);
    const QStringList ends = agent.log.filter(QRegularExpression("^(finished|failed)"));
    QVERIFY(ends.size() <= 1);
}

void TestAgentExecutorLifetime::postedStepsDieWithTheirRun_data()
{
    QTest::addColumn<QStringList>("tools");
    QTest::newRow("the next call") << QStringList{"read", "read"};
    QTest::newRow("the next request") << QStringList{"read"};
}

void TestAgentExecutorLifetime::postedStepsDieWithTheirRun()
{
    QFETCH(QStringList, tools);
    for (const bool start : {true, false}) {
        AgentFixture agent;
        agent.model->addToolCalls(AgentFixture::callsOf(tools));
        // Runs between two steps of the executor, after one was posted.
        connect(agent.executor, &AgentExecutor::traceAdded, &agent, [&agent, start] {
            QTimer::singleShot(0, &agent, [&agent, start] {
                if (start)
                    agent.executor->run("again");
                else
                    agent.executor->cancel();
            });
        });
        agent.run();
        QCOMPARE(agent.log, (QStringList{"delta ", "call read", "trace read success"}));
        QCOMPARE(agent.requestCount(), start ? 2 : 1);
    }
}

void TestAgentExecutorLifetime::earlierRequestIsNotListenedToNorCanceled()
{
    AgentFixture agent;
    agent.executor->run("first");
    const QPointer<ChatReply> first = agent.model->lastCall().reply;
    agent.executor->run("second");
    const QPointer<ChatReply> second = agent.model->lastCall().reply;
    first->appendDelta("one");
    first->finish("one");
    QVERIFY(!first->isCanceled());
    second->appendDelta("two");
    second->finish("two");
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta two", "finished two"}));
}

void TestAgentExecutorLifetime::cancelReachesTheRequestInFlight()
{
    AgentFixture agent;
    agent.executor->run("question");
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    QSignalSpy canceled(reply, &ChatReply::canceled);
    agent.executor->cancel();
    QCOMPARE(canceled.count(), 1);
    reply->appendDelta("late");
    reply->finish("late");
    runUntilQuiet();
    QVERIFY(agent.log.isEmpty());

    agent.model->addText({"fresh"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta fresh", "finished fresh"}));
}

void TestAgentExecutorLifetime::cancelWithoutARunDoesNothing()
{
    AgentFixture agent;
    agent.executor->cancel();
    agent.model->addText({"answer"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta answer", "finished answer"}));
    agent.executor->cancel();
    QCOMPARE(agent.log.size(), 2);
}

// A model that calls the application back while it sends a request, as one that asks for a key does.
class AskingModel : public HeldModel
{
public:
    std::function<void()> question;

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override
    {
        const auto asked = std::exchange(question, {});
        if (asked)
            asked();
        return HeldModel::chat(messages, tools, parent);
    }
};

void TestAgentExecutorLifetime::cancelWhileTheRequestIsSentReachesIt()
{
    AgentFixture agent;
    AskingModel model;
    agent.executor->setModel(&model);
    model.addText({"late"});
    model.question = [&agent] { agent.executor->cancel(); };
    agent.run();
    QVERIFY(model.lastCall().reply->isCanceled());
    QVERIFY(agent.log.isEmpty());
}

void TestAgentExecutorLifetime::runWhileTheRequestIsSentReplacesIt()
{
    AgentFixture agent;
    AskingModel model;
    agent.executor->setModel(&model);
    model.addText({"second"});
    model.addText({"first"});
    model.question = [&agent] { agent.executor->run("second question"); };
    agent.run("first question");
    QCOMPARE(model.calls().at(0).messages.first().content, "second question");
    QCOMPARE(model.calls().at(1).messages.first().content, "first question");
    QCOMPARE(agent.log, (QStringList{"delta second", "finished second"}));
}

// Models report through the functions of ChatReply, which guard the order; nothing stops a model from
// emitting the signals itself.
void TestAgentExecutorLifetime::signalsAfterCancelAreIgnored()
{
    AgentFixture agent;
    agent.executor->run("question");
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    agent.executor->cancel();
    Q_EMIT reply->deltaReceived("late");
    Q_EMIT reply->failed("late");
    Q_EMIT reply->finished("late");
    QVERIFY(agent.log.isEmpty());
}

void TestAgentExecutorLifetime::secondEndOfAReplyIsIgnored()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"write"}));
    agent.run();
    Q_EMIT agent.model->lastCall().reply->finished("");
    agent.resolve(true);
    QCOMPARE(agent.log, (QStringList{"delta ", "approval write", "call write", "trace write success"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutorLifetime::replyThatDiesEndsTheRunSilently()
{
    AgentFixture agent;
    agent.executor->run("question");
    delete agent.model->lastCall().reply;
    runUntilQuiet();
    agent.executor->cancel();
    QVERIFY(agent.log.isEmpty());
    agent.model->addText({"answer"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta answer", "finished answer"}));
}

void TestAgentExecutorLifetime::modelMayFailItsRequestsWhenItDiesWithTheExecutor()
{
    class FailingModel : public HeldModel
    {
    public:
        using HeldModel::HeldModel;
        ~FailingModel() override { lastCall().reply->fail("The model is gone."); }
    };
    AgentFixture agent;
    agent.executor->setModel(new FailingModel(agent.executor));
    agent.executor->run("question");
    delete agent.executor;
    QVERIFY(agent.log.isEmpty());
}

QTEST_GUILESS_MAIN(TestAgentExecutorLifetime)
#include "tst_agentexecutor_lifetime.moc"
