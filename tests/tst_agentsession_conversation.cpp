#include "support/completions.h"
#include "support/loopbackserver.h"
#include "support/sessionfixture.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

using Step = std::function<void(SessionFixture &)>;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(QVector<ChatMessage>)

// What stands in the conversation, and when.
class TestAgentSessionConversation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sendContinuesAndRunBeginsAnew();
    void systemPromptComesFirst();
    void conversationIsCompleteInTheSignalThatTells();
    void slotThatSendsSwallowsNoSignal_data();
    void slotThatSendsSwallowsNoSignal();
    void whatArrivedOfAnAnswerStays_data();
    void whatArrivedOfAnAnswerStays();
    void callsThatAreNotExecutedSaySo_data();
    void callsThatAreNotExecutedSaySo();
    void callWithoutAnIdIsEchoedWithTheOneMadeUp();
    void executorEchoesCallsAsTheyCame();
    void callsAreEchoedWithWhatTheyLack_data();
    void callsAreEchoedWithWhatTheyLack();
    void responseThatCannotBeReadIsLeftOut_data();
    void responseThatCannotBeReadIsLeftOut();
    void badCallsMayBeToldToTheModel();
    void missingNameOrRegistryStillFails();
    void conversationIsSetCompleted_data();
    void conversationIsSetCompleted();
    void callsThatAreSetGetIds();
    void metadataStays();
    void conversationIsNotSetWhileARunIsInFlight();
    void strictServerAcceptsAWholeConversation();
};

namespace {

QJsonArray callsWithoutIds()
{
    QJsonObject call = makeToolCall("", "read", {{"a", 1}});
    call.insert("id", QJsonValue::Null);
    QJsonObject other = call;
    other.remove("id");
    return {call, other, makeToolCall("c3", "read", {})};
}

} // namespace

void TestAgentSessionConversation::sendContinuesAndRunBeginsAnew()
{
    SessionFixture agent;
    agent.model->addText({"one"});
    agent.model->addText({"two"});
    agent.send("first");
    agent.send("second");
    QCOMPARE(agent.messages(1), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "first"}},
                                            QJsonObject{{"role", "assistant"}, {"content", "one"}},
                                            QJsonObject{{"role", "user"}, {"content", "second"}}}));
    QCOMPARE(agent.conversation(),
             (QStringList{"user: first", "assistant: one", "user: second", "assistant: two"}));
    agent.run("third");
    QCOMPARE(agent.conversation(), QStringList{"user: third"});
}

void TestAgentSessionConversation::systemPromptComesFirst()
{
    SessionFixture agent;
    agent.session->setSystemPrompt(" Be brief. ");
    agent.session->send("first");
    agent.session->setSystemPrompt("Be kind.");
    agent.session->send("second");
    QCOMPARE(agent.conversation(), (QStringList{"system:  Be brief. ", "user: first", "user: second"}));
    agent.session->run("third");
    QCOMPARE(agent.conversation(), (QStringList{"system: Be kind.", "user: third"}));
    agent.session->setSystemPrompt(" \n");
    agent.session->run("fourth");
    QCOMPARE(agent.conversation(), QStringList{"user: fourth"});
}

void TestAgentSessionConversation::conversationIsCompleteInTheSignalThatTells()
{
    SessionFixture agent;
    QStringList last;
    agent.onEntry = [&](const QString &entry) {
        const QStringList lines = agent.conversation();
        last.append(entry + " | " + (lines.isEmpty() ? "" : lines.last()));
    };
    agent.model->addToolCalls(AgentFixture::callsOf({"read", "write"}), "Let me see.");
    agent.send("question");
    agent.model->addText({"do", "ne"});
    agent.session->resolveApproval("c2", true);
    runUntilQuiet();
    QCOMPARE(last, (QStringList{
                       "running true | user: question",
                       "conversation | user: question",
                       "delta Let me see. | user: question",
                       "conversation | tool c2: 未执行。",
                       "started read | tool c2: 未执行。",
                       "trace read success | tool c2: 未执行。",
                       "conversation | tool c2: 未执行。",
                       "approval write | tool c2: 未执行。",
                       "started write | tool c2: 未执行。",
                       "trace write success | tool c2: write done",
                       "conversation | tool c2: write done",
                       "delta do | tool c2: write done",
                       "delta ne | tool c2: write done",
                       "finished done | assistant: done",
                       "conversation | assistant: done",
                       "running false | assistant: done",
                       "ended Finished | assistant: done",
                   }));
}

void TestAgentSessionConversation::slotThatSendsSwallowsNoSignal_data()
{
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QStringList>("end");
    QTest::newRow("a trace") << "trace read success" << QStringList{"running false", "ended Replaced"};
    QTest::newRow("finished") << "finished done" << QStringList{"running false", "ended Finished"};
}

// Sends from the first conversationChanged() behind the signal.
void TestAgentSessionConversation::slotThatSendsSwallowsNoSignal()
{
    QFETCH(QString, signal);
    QFETCH(QStringList, end);
    SessionFixture agent;
    bool hasSent = false;
    agent.onEntry = [&](const QString &entry) {
        if (entry != "conversation" || !agent.log.contains(signal) || std::exchange(hasSent, true))
            return;
        agent.model->clearAnswers();
        agent.session->send("again");
    };
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.model->addText({"done"});
    agent.send("question");
    QCOMPARE(agent.outcomes.size(), 1);
    QCOMPARE(agent.log.mid(agent.log.indexOf(signal)),
             QStringList({signal, "conversation"}) + end + QStringList({"running true", "conversation"}));
}

void TestAgentSessionConversation::whatArrivedOfAnAnswerStays_data()
{
    QTest::addColumn<Step>("step");
    const auto row = [](const char *name, const Step &step) { QTest::newRow(name) << step; };
    row("failed", [](SessionFixture &agent) { agent.model->lastCall().reply->fail("broken"); });
    row("canceled", [](SessionFixture &agent) { agent.session->cancel(); });
    row("canceled by somebody else", [](SessionFixture &agent) { agent.model->lastCall().reply->cancel(); });
    row("replaced", [](SessionFixture &agent) { agent.session->send("again"); });
    row("the reply dies", [](SessionFixture &agent) {
        delete agent.model->lastCall().reply;
        runUntilQuiet();
    });
    row("the model dies", [](SessionFixture &agent) {
        delete agent.model;
        runUntilQuiet();
    });
}

void TestAgentSessionConversation::whatArrivedOfAnAnswerStays()
{
    QFETCH(Step, step);
    for (const QString &piece : {QString("half"), QString()}) {
        SessionFixture agent;
        agent.session->send("question");
        agent.model->lastCall().reply->appendDelta(piece);
        step(agent);
        QStringList expected{"user: question"};
        if (!piece.isEmpty())
            expected.append("assistant: half");
        if (agent.session->isRunning())
            expected.append("user: again");
        QCOMPARE(agent.conversation(), expected);
    }
}

void TestAgentSessionConversation::callsThatAreNotExecutedSaySo_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QStringList>("results");
    const auto row = [](const char *name, const QStringList &results, const Step &step) {
        QTest::newRow(name) << step << results;
    };
    const QStringList none{"tool c1: read done", "tool c2: 未执行。", "tool c3: 未执行。"};
    row("denied", {none.first(), "tool c2: 用户拒绝了审批。", none.last()},
        [](SessionFixture &agent) { agent.session->resolveApproval("c2", false); });
    row("canceled", none, [](SessionFixture &agent) { agent.session->cancel(); });
    row("replaced", none, [](SessionFixture &agent) { agent.session->send("again"); });
    row("failed", {none.first(), "tool c2: write done", none.last()}, [](SessionFixture &agent) {
        delete agent.registry->tool("read");
        agent.session->resolveApproval("c2", true);
        runUntilQuiet();
    });
}

void TestAgentSessionConversation::callsThatAreNotExecutedSaySo()
{
    QFETCH(Step, step);
    QFETCH(QStringList, results);
    SessionFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read", "write", "read"}));
    agent.send("question");
    step(agent);
    QCOMPARE(agent.conversation().mid(2, 3), results);
    QVERIFY(!agent.log.last().startsWith("FAULT"));
}

void TestAgentSessionConversation::callWithoutAnIdIsEchoedWithTheOneMadeUp()
{
    SessionFixture agent;
    agent.model->addToolCalls(callsWithoutIds(), "Let me see.");
    agent.model->addText({"done"});
    agent.send("question");
    QCOMPARE(agent.log.last(), "ended Finished");
    const QVector<ChatMessage> sent = agent.model->lastCall().messages;
    for (int i = 0; i < 3; ++i) {
        const QString id = sent.at(1).toolCalls.at(i)["id"].toString();
        QCOMPARE(id, agent.traces.at(i).callId);
        QCOMPARE(id, sent.at(2 + i).toolCallId);
        QCOMPARE(id == "c3", i == 2);
    }
}

void TestAgentSessionConversation::executorEchoesCallsAsTheyCame()
{
    AgentFixture agent;
    agent.model->addToolCalls(callsWithoutIds());
    agent.run();
    QCOMPARE(agent.model->lastCall().messages.at(1).toolCalls, callsWithoutIds());
}

void TestAgentSessionConversation::callsAreEchoedWithWhatTheyLack_data()
{
    QTest::addColumn<QJsonObject>("call");
    QTest::addColumn<QString>("arguments");
    const QJsonObject pump{{"pump", 4}};
    QTest::newRow("text") << AgentFixture::callWith("read", "{ \"pump\": 4}") << "{ \"pump\": 4}";
    QTest::newRow("object") << AgentFixture::callWith("read", pump) << "{\"pump\":4}";
    QTest::newRow("null") << AgentFixture::callWith("read", QJsonValue()) << "{}";
    QTest::newRow("no arguments") << AgentFixture::callWith("read", QJsonValue::Undefined) << "{}";
    QJsonObject typeless = AgentFixture::callWith("read", "");
    typeless.remove("type");
    QTest::newRow("no type") << typeless << "";
}

void TestAgentSessionConversation::callsAreEchoedWithWhatTheyLack()
{
    QFETCH(QJsonObject, call);
    QFETCH(QString, arguments);
    SessionFixture agent;
    agent.model->addToolCalls({call});
    agent.model->addText({"done"});
    agent.send("question");
    QCOMPARE(agent.log.last(), "ended Finished");
    const QJsonArray echoed = agent.model->lastCall().messages.at(1).toolCalls;
    QCOMPARE(echoed, QJsonArray{AgentFixture::callWith("read", arguments)});
    // A conversation that was kept as the model sent it is completed in the same way.
    QVERIFY(agent.session->setConversation({ChatMessage::user("Hi"), ChatMessage::assistant("", {call})}));
    QCOMPARE(agent.session->conversation().at(1).toolCalls, echoed);
}

void TestAgentSessionConversation::responseThatCannotBeReadIsLeftOut_data()
{
    QTest::addColumn<QJsonValue>("call");
    QTest::newRow("broken arguments") << QJsonValue(AgentFixture::callWith("read", "{\"a\":"));
    QTest::newRow("no name") << QJsonValue(QJsonObject{{"id", "c1"}});
    QTest::newRow("no object") << QJsonValue("read");
}

void TestAgentSessionConversation::responseThatCannotBeReadIsLeftOut()
{
    QFETCH(QJsonValue, call);
    SessionFixture agent;
    agent.model->addToolCalls({makeToolCall("c0", "read", {}), call}, "Let me see.");
    agent.send("question");
    QCOMPARE(agent.outcomes.last().end, RunEnd::Failed);
    QCOMPARE(agent.conversation(), QStringList{"user: question"});
    agent.model->addText({"done"});
    agent.send("again");
    QCOMPARE(agent.log.last(), "ended Finished");
}

void TestAgentSessionConversation::badCallsMayBeToldToTheModel()
{
    SessionFixture agent;
    agent.session->setTellsModelOfBadCalls(true);
    QJsonObject broken = AgentFixture::callWith("read", "[1]");
    broken.insert("id", "c2");
    const QJsonArray calls{makeToolCall("c1", "fly", {{"a", 1}}), broken, makeToolCall("c3", "read", {})};
    agent.model->addToolCalls(calls);
    agent.model->addText({"done"});
    agent.send("question");
    QCOMPARE(agent.log.mid(4),
             (QStringList{"trace fly failed", "conversation", "trace read failed", "conversation",
                          "started read", "call read", "trace read success", "conversation", "delta done",
                          "finished done", "conversation", "running false", "ended Finished"}));
    const QString unknown = "未找到工具：fly";
    const QString invalid = "Invalid tool arguments for read: no error occurred";
    QCOMPARE(agent.conversation().mid(2), (QStringList{"tool c1: " + unknown, "tool c2: " + invalid,
                                                       "tool c3: read done", "assistant: done"}));
    const QJsonArray echoed = agent.session->conversation().at(1).toolCalls;
    QCOMPARE(echoed.at(0), calls.at(0));
    QCOMPARE(echoed.at(1)["function"]["arguments"].toString(), "{}");
    QCOMPARE(echoed.at(2), calls.at(2));

    const ToolCallTrace trace = agent.traces.first();
    QVERIFY(trace
            == (ToolCallTrace{"c1",
                              "fly",
                              "failed",
                              ToolPermission::ReadOnly,
                              {{"a", 1}},
                              unknown,
                              unknown,
                              0,
                              trace.timestamp}));
    QVERIFY(trace.timestamp.isValid());
    QCOMPARE(agent.traces.at(1).error, invalid);
    QCOMPARE(agent.traces.at(1).arguments, QJsonObject());
}

void TestAgentSessionConversation::missingNameOrRegistryStillFails()
{
    SessionFixture agent;
    agent.session->setTellsModelOfBadCalls(true);
    agent.model->addToolCalls({makeToolCall("c1", " ", {}), makeToolCall("c2", "read", {})});
    agent.send("question");
    QCOMPARE(agent.outcomes.last().error, "Tool call is missing function name.");
    agent.session->setToolRegistry(nullptr);
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.send("question");
    QCOMPARE(agent.outcomes.last().error, "工具注册表尚未配置。");
}

void TestAgentSessionConversation::conversationIsSetCompleted_data()
{
    const ChatMessage question = ChatMessage::user("Hi");
    const ChatMessage answer = ChatMessage::assistant("Hello");
    const ChatMessage calls = ChatMessage::assistant("", AgentFixture::callsOf({"read", "write"}));
    const ChatMessage first = ChatMessage::tool("c1", "read", "one");
    const ChatMessage second = ChatMessage::tool("c2", "write", "two");
    const QStringList complete{"user: Hi", "assistant:  [read c1] [write c2]", "tool c1: one",
                               "tool c2: two"};

    QTest::addColumn<QVector<ChatMessage>>("given");
    QTest::addColumn<QStringList>("lines");
    const auto row = [](const char *name, const QVector<ChatMessage> &given, const QStringList &lines) {
        QTest::newRow(name) << given << lines;
    };
    row("nothing", {}, {});
    row("what is complete stays", {ChatMessage::system("s"), question, calls, first, second, answer},
        QStringList{"system: s"} + complete + QStringList{"assistant: Hello"});
    row("missing results are filled in", {question, calls, second},
        {complete[0], complete[1], "tool c1: 未执行。", complete[3]});
    row("all results are missing", {question, calls, question},
        {complete[0], complete[1], "tool c1: 未执行。", "tool c2: 未执行。", "user: Hi"});
    row("results are put into order", {question, calls, second, first}, complete);
    row("results behind another question are put in place", {question, calls, question, first, second},
        complete + QStringList{"user: Hi"});
    row("the second result of a call is dropped", {question, calls, first, first, second}, complete);
    row("results of no call are dropped", {first, question, ChatMessage::tool("c9", "fly", "x"), answer},
        {"user: Hi", "assistant: Hello"});
    row("results belong to the answer before them", {question, calls, first, second, question, calls},
        complete + QStringList{"user: Hi", complete[1], "tool c1: 未执行。", "tool c2: 未执行。"});
    row("instructions come first", {question, ChatMessage::system("s"), answer},
        {"system: s", "user: Hi", "assistant: Hello"});
}

void TestAgentSessionConversation::conversationIsSetCompleted()
{
    QFETCH(QVector<ChatMessage>, given);
    QFETCH(QStringList, lines);
    SessionFixture agent;
    QVERIFY(agent.session->setConversation(given));
    QCOMPARE(agent.conversation(), lines);
    QCOMPARE(agent.log, QStringList{"conversation"});
    QVERIFY(agent.session->setConversation(agent.session->conversation()));
    QCOMPARE(agent.conversation(), lines);
}

void TestAgentSessionConversation::callsThatAreSetGetIds()
{
    SessionFixture agent;
    const ChatMessage result = ChatMessage::tool("", "read", "one");
    agent.session->setConversation(
        {ChatMessage::user("Hi"), ChatMessage::assistant("", callsWithoutIds()), result});
    const QVector<ChatMessage> messages = agent.session->conversation();
    for (int i = 0; i < 3; ++i) {
        QVERIFY(!messages.at(2 + i).toolCallId.isEmpty());
        QCOMPARE(messages.at(1).toolCalls.at(i)["id"].toString(), messages.at(2 + i).toolCallId);
    }
    QCOMPARE(messages.at(2).content, "one");
    QCOMPARE(messages.at(3).content, "未执行。");
    QCOMPARE(messages.at(4).toolCallId, "c3");
}

void TestAgentSessionConversation::metadataStays()
{
    SessionFixture agent;
    ChatMessage answer = ChatMessage::assistant("Hello");
    answer.metadata.insert("rating", 5);
    agent.session->setConversation({ChatMessage::user("Hi"), answer});
    agent.session->send("again");
    QCOMPARE(agent.session->conversation().at(1), answer);
    QCOMPARE(agent.model->lastCall().messages.at(1), answer);
}

void TestAgentSessionConversation::conversationIsNotSetWhileARunIsInFlight()
{
    SessionFixture agent;
    agent.session->send("question");
    QVERIFY(!agent.session->setConversation({}));
    QCOMPARE(agent.conversation(), QStringList{"user: question"});
    agent.session->cancel();
    QVERIFY(agent.session->setConversation({}));
    QVERIFY(agent.session->conversation().isEmpty());
}

// A service behind HTTP that refuses what is not a strict conversation, over several questions with every
// kind of end.
void TestAgentSessionConversation::strictServerAcceptsAWholeConversation()
{
    QVector<QJsonArray> sentCalls;
    QVector<QJsonObject> answers{
        completion("", callsWithoutIds()),
        completion("All is well."),
        completion("Let me write.", {makeToolCall("w1", "write", {}), makeToolCall("r1", "read", {})}),
        completion("", {AgentFixture::callWith("read", "[")}),
        completion("Done."),
        QJsonObject(), // none
        completion("At last."),
    };
    LoopbackServer server;
    server.setHandler([&](const LoopbackRequest &request) {
        const QString fault = strictRequestFault(request.json["messages"].toArray(), sentCalls);
        if (!fault.isEmpty())
            return LoopbackAnswer::withStatus(400, fault.toUtf8());
        const QJsonObject answer = answers.takeFirst();
        if (answer.isEmpty())
            return LoopbackAnswer::withStatus(500, "down");
        const QJsonArray calls = answer["choices"][0]["message"]["tool_calls"].toArray();
        if (!calls.isEmpty())
            sentCalls.append(calls);
        return LoopbackAnswer::json(answer);
    });
    SessionFixture agent;
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "strict";
    model.setConfig(config);
    agent.session->setModel(&model);
    agent.session->setTellsModelOfBadCalls(true);

    agent.session->send("first");
    QTRY_COMPARE(agent.outcomes.size(), 1);
    agent.session->send("second");
    QTRY_COMPARE(agent.approvals.size(), 1);
    agent.session->answerApproval(agent.approvals.first(), false);
    agent.session->send("third");
    agent.session->send("fourth");
    QTRY_COMPARE(agent.outcomes.size(), 4);
    agent.session->send("fifth");
    QTRY_COMPARE(agent.outcomes.size(), 5);
    agent.session->send("sixth");
    agent.session->cancel();
    agent.session->send("seventh");
    delete agent.session->findChildren<ChatReply *>().last();
    agent.session->send("eighth");
    QTRY_COMPARE(agent.outcomes.size(), 8);
    QStringList ends;
    for (const RunOutcome &outcome : agent.outcomes)
        ends.append(QVariant::fromValue(outcome.end).toString());
    QCOMPARE(ends, (QStringList{"Finished", "Denied", "Replaced", "Finished", "Failed", "Canceled",
                                "Abandoned", "Finished"}));
    QVERIFY(agent.outcomes.at(4).error.contains("HTTP status: 500"));
    QVERIFY(answers.isEmpty());
}

QTEST_GUILESS_MAIN(TestAgentSessionConversation)
#include "tst_agentsession_conversation.moc"
