#include "support/agentfixture.h"

#include <qtagent/mockchatmodel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestAgentExecutor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsAndSlotsKeepTheirOrder();
    void answerWithoutToolCallsEndsTheRun();
    void blankSystemPromptIsLeftOut_data();
    void blankSystemPromptIsLeftOut();
    void everyRunIsANewConversation();
    void toolsOfTheRegistryAreOffered();
    void withoutARegistryNoToolsAreOffered();
    void repliesAreChildrenOfTheExecutor();
    void missingModelFailsTheRun();
    void modelThatDiedFailsTheRun();
    void modelWithoutAReplyFailsTheRun();
    void failedRequestFailsTheRun();
    void requestsAreLimited_data();
    void requestsAreLimited();
    void everyRunCountsItsRequests();
    void toolCallsRunOneAfterAnother();
    void firstToolCallRunsWhenTheAnswerArrives();
    void oneToolCallATurnOfTheEventLoop();
    void nextRequestHasATurnOfItsOwn();
    void resultsGoBackToTheModel();
    void missingContentIsSentAsEmpty_data();
    void missingContentIsSentAsEmpty();
    void brokenToolCallsFailTheRun_data();
    void brokenToolCallsFailTheRun();
    void blankArgumentsAreAnEmptyObject_data();
    void blankArgumentsAreAnEmptyObject();
    void argumentsReachTheTool_data();
    void argumentsReachTheTool();
    void callWithoutAnIdGetsOneForEverything();
    void callWithoutARegistryFailsTheRun();
    void unknownToolFailsTheRunWhenItsTurnComes();
    void successfulCallIsTraced();
    void failedCallIsTracedAndTheRunGoesOn();
    void mockModelIsServedToTheEnd();
    void recordsTravelThroughQueuedStringConnections();
};

void TestAgentExecutor::signalsAndSlotsKeepTheirOrder()
{
    const QMetaObject &meta = AgentExecutor::staticMetaObject;
    QList<QByteArray> signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(meta.method(i).methodSignature());
    const QList<QByteArray> expected{
        "assistantDelta(QString)",
        "assistantFinished(QString)",
        "traceAdded(MireloQtLib::QtAgent::ToolCallTrace)",
        "approvalRequired(MireloQtLib::QtAgent::ApprovalRequest)",
        "failed(QString)",
        "cancel()",
        "resolveApproval(QString,bool)",
    };
    QCOMPARE(signatures, expected);
}

void TestAgentExecutor::answerWithoutToolCallsEndsTheRun()
{
    AgentFixture agent;
    agent.executor->setSystemPrompt(" Be brief. ");
    agent.model->addText({"Hello ", "world"});
    agent.executor->run("Hi");
    QCOMPARE(agent.requestCount(), 1);
    QVERIFY(agent.log.isEmpty());

    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta Hello ", "delta world", "finished Hello world"}));
    QCOMPARE(agent.requestCount(), 1);
    QCOMPARE(agent.messages(0), (QJsonArray{QJsonObject{{"role", "system"}, {"content", " Be brief. "}},
                                            QJsonObject{{"role", "user"}, {"content", "Hi"}}}));
}

void TestAgentExecutor::blankSystemPromptIsLeftOut_data()
{
    QTest::addColumn<QString>("prompt");
    QTest::newRow("null") << QString();
    QTest::newRow("empty") << "";
    QTest::newRow("blanks") << " \t\n";
}

void TestAgentExecutor::blankSystemPromptIsLeftOut()
{
    QFETCH(QString, prompt);
    AgentFixture agent;
    agent.executor->setSystemPrompt(prompt);
    agent.run("Hi");
    QCOMPARE(agent.messages(0), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "Hi"}}}));
}

void TestAgentExecutor::everyRunIsANewConversation()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.model->addText({"first answer"});
    agent.run("first");
    agent.run("second");
    QCOMPARE(agent.messages(2), (QJsonArray{QJsonObject{{"role", "user"}, {"content", "second"}}}));
}

void TestAgentExecutor::toolsOfTheRegistryAreOffered()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.addTool("later", ToolPermission::Destructive);
    agent.run();

    for (const auto &call : agent.model->calls()) {
        QCOMPARE(call.tools.size(), 3);
        QCOMPARE(call.tools.at(0).name, "read");
        QCOMPARE(call.tools.at(1).name, "write");
        QCOMPARE(call.tools.at(2).name, "later");
        QCOMPARE(call.tools.at(2).permission, ToolPermission::Destructive);
    }
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutor::withoutARegistryNoToolsAreOffered()
{
    AgentFixture agent;
    agent.executor->setToolRegistry(nullptr);
    agent.run();
    agent.executor->setToolRegistry(agent.registry);
    delete agent.registry;
    agent.run();
    QCOMPARE(agent.requestCount(), 2);
    QVERIFY(agent.model->calls().at(0).tools.isEmpty());
    QVERIFY(agent.model->calls().at(1).tools.isEmpty());
}

void TestAgentExecutor::repliesAreChildrenOfTheExecutor()
{
    AgentFixture agent;
    agent.model->addText({"one"});
    agent.run();
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    QCOMPARE(agent.model->lastCall().parent, agent.executor);
    QVERIFY(reply);
    delete agent.executor;
    QVERIFY(!reply);
}

void TestAgentExecutor::missingModelFailsTheRun()
{
    AgentFixture agent;
    agent.executor->setModel(nullptr);
    agent.executor->run("Hi");
    QCOMPARE(agent.log, QStringList{"failed 智能体模型尚未配置。"});
    runUntilQuiet();
    QCOMPARE(agent.log.size(), 1);
}

void TestAgentExecutor::modelThatDiedFailsTheRun()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    connect(agent.executor, &AgentExecutor::traceAdded, &agent, [&agent] { delete agent.model; });
    agent.run();
    QCOMPARE(agent.log,
             (QStringList{"delta ", "call read", "trace read success", "failed 智能体模型尚未配置。"}));
}

void TestAgentExecutor::modelWithoutAReplyFailsTheRun()
{
    class SilentModel : public ChatModel
    {
        ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                        QObject * /*parent*/) override
        {
            return nullptr;
        }
    };
    SilentModel model;
    AgentFixture agent;
    agent.executor->setModel(&model);
    agent.executor->run("question");
    QCOMPARE(agent.log, QStringList{"failed Model returned no reply."});
    agent.executor->cancel();
    QCOMPARE(agent.log.size(), 1);
}

void TestAgentExecutor::failedRequestFailsTheRun()
{
    AgentFixture agent;
    agent.model->addFailure("line 1\nline 2");
    agent.run();
    QCOMPARE(agent.log, QStringList{"failed line 1\nline 2"});
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutor::requestsAreLimited_data()
{
    QTest::addColumn<QVariant>("limit");
    QTest::addColumn<int>("requests");
    QTest::newRow("six by default") << QVariant() << 6;
    QTest::newRow("two") << QVariant(2) << 2;
    QTest::newRow("one") << QVariant(1) << 1;
    QTest::newRow("zero counts as one") << QVariant(0) << 1;
    QTest::newRow("a negative number counts as one") << QVariant(-3) << 1;
}

void TestAgentExecutor::requestsAreLimited()
{
    QFETCH(QVariant, limit);
    QFETCH(int, requests);
    AgentFixture agent;
    if (limit.isValid())
        agent.executor->setMaxIterations(limit.toInt());
    for (int i = 0; i < 10; ++i)
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.run();
    QCOMPARE(agent.requestCount(), requests);
    QCOMPARE(agent.traces.size(), requests);
    QCOMPARE(agent.log.filter("failed"), QStringList{"failed Agent exceeded max iterations."});
    QCOMPARE(agent.log.last(), "failed Agent exceeded max iterations.");
}

void TestAgentExecutor::everyRunCountsItsRequests()
{
    AgentFixture agent;
    agent.executor->setMaxIterations(2);
    for (int i = 0; i < 2; ++i) {
        agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
        agent.model->addText({"done"});
        agent.run();
        QCOMPARE(agent.log.last(), "finished done");
    }
    QCOMPARE(agent.requestCount(), 4);
}

void TestAgentExecutor::toolCallsRunOneAfterAnother()
{
    AgentFixture agent;
    agent.addTool("second", ToolPermission::ReadOnly);
    agent.model->addToolCalls(AgentFixture::callsOf({"second", "read", "second"}), "Let me see.");
    agent.model->addText({"done"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta Let me see.", "call second", "trace second success", "call read",
                                     "trace read success", "call second", "trace second success",
                                     "delta done", "finished done"}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutor::firstToolCallRunsWhenTheAnswerArrives()
{
    if (AgentFixture::isStreamed())
        QSKIP("The answer arrives whole.");
    AgentFixture agent;
    agent.executor->run("question");
    const QPointer<ChatReply> reply = agent.model->lastCall().reply;
    const QJsonObject message{{"tool_calls", AgentFixture::callsOf({"read", "read"})}};
    reply->setResponse({{"choices", QJsonArray{QJsonObject{{"message", message}}}}});
    QVERIFY(agent.log.isEmpty());
    reply->finish("");
    QCOMPARE(agent.log, (QStringList{"call read", "trace read success"}));
}

void TestAgentExecutor::oneToolCallATurnOfTheEventLoop()
{
    AgentFixture agent;
    const auto logNextTurn = [&agent] {
        QTimer::singleShot(0, &agent, [&agent] { agent.log.append("turn"); });
    };
    agent.addTool("tool", ToolPermission::ReadOnly, logNextTurn);
    agent.model->addToolCalls(AgentFixture::callsOf({"tool", "tool"}));
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "call tool", "trace tool success", "turn", "call tool",
                                     "trace tool success", "turn"}));
}

void TestAgentExecutor::nextRequestHasATurnOfItsOwn()
{
    AgentFixture agent;
    QVector<int> requestsByTurn;
    const auto countInTheNextTwoTurns = [&agent, &requestsByTurn] {
        QTimer::singleShot(0, &agent, [&agent, &requestsByTurn] {
            requestsByTurn.append(agent.requestCount());
            QTimer::singleShot(0, &agent,
                               [&agent, &requestsByTurn] { requestsByTurn.append(agent.requestCount()); });
        });
    };
    agent.addTool("tool", ToolPermission::ReadOnly, countInTheNextTwoTurns);
    agent.model->addToolCalls(AgentFixture::callsOf({"tool"}));
    agent.run();
    // The first turn finds the queue empty, the second one sends.
    QCOMPARE(requestsByTurn, (QVector<int>{1, 1}));
    QCOMPARE(agent.requestCount(), 2);
}

void TestAgentExecutor::resultsGoBackToTheModel()
{
    AgentFixture agent;
    const QJsonArray calls = AgentFixture::callsOf({"read", "read"});
    agent.executor->setSystemPrompt("Be brief.");
    agent.model->addToolCalls(calls, "Let me see.");
    agent.run("Hi");
    const QJsonArray expected{
        QJsonObject{{"role", "system"}, {"content", "Be brief."}},
        QJsonObject{{"role", "user"}, {"content", "Hi"}},
        QJsonObject{{"role", "assistant"}, {"content", "Let me see."}, {"tool_calls", calls}},
        QJsonObject{{"role", "tool"}, {"name", "read"}, {"tool_call_id", "c1"}, {"content", "read done"}},
        QJsonObject{{"role", "tool"}, {"name", "read"}, {"tool_call_id", "c2"}, {"content", "read done"}},
    };
    QCOMPARE(agent.messages(1), expected);
}

void TestAgentExecutor::missingContentIsSentAsEmpty_data()
{
    QTest::addColumn<QJsonObject>("message");
    QTest::newRow("absent") << QJsonObject();
    QTest::newRow("null") << QJsonObject{{"content", QJsonValue::Null}};
    QTest::newRow("empty") << QJsonObject{{"content", ""}};
    QTest::newRow("no text") << QJsonObject{{"content", 7}};
}

void TestAgentExecutor::missingContentIsSentAsEmpty()
{
    QFETCH(QJsonObject, message);
    AgentFixture agent;
    const QJsonArray calls = AgentFixture::callsOf({"read"});
    message.insert("tool_calls", calls);
    agent.run();
    ChatReply *reply = agent.model->lastCall().reply;
    reply->setResponse({{"choices", QJsonArray{QJsonObject{{"message", message}}}}});
    reply->finish(QString());
    runUntilQuiet();
    QCOMPARE(agent.messages(1).at(1).toObject(),
             (QJsonObject{{"role", "assistant"}, {"content", ""}, {"tool_calls", calls}}));
}

void TestAgentExecutor::brokenToolCallsFailTheRun_data()
{
    const QString noName = "Tool call is missing function name.";
    const auto invalid = [](const char *reason) {
        return QString("Invalid tool arguments for %1: %2").arg("read", reason);
    };
    QTest::addColumn<QJsonValue>("call");
    QTest::addColumn<QString>("error");
    QTest::newRow("no object") << QJsonValue("read") << noName;
    QTest::newRow("no function") << QJsonValue(QJsonObject{{"id", "c1"}}) << noName;
    QTest::newRow("blank name") << QJsonValue(AgentFixture::callWith(" ", "{}")) << noName;
    QTest::newRow("no JSON") << QJsonValue(AgentFixture::callWith("read", "{\"a\":"))
                             << invalid("unterminated object");
    QTest::newRow("an array parses without an error")
        << QJsonValue(AgentFixture::callWith("read", "[1]")) << invalid("no error occurred");
    QTest::newRow("an array") << QJsonValue(AgentFixture::callWith("read", QJsonArray{1}))
                              << invalid("no error occurred");
    QTest::newRow("a number") << QJsonValue(AgentFixture::callWith("read", 7))
                              << invalid("no error occurred");
    QTest::newRow("a truth value") << QJsonValue(AgentFixture::callWith("read", false))
                                   << invalid("no error occurred");
    QTest::newRow("place markers in a name are plain text")
        << QJsonValue(AgentFixture::callWith("%2", "[1]"))
        << "Invalid tool arguments for %2: no error occurred";
}

void TestAgentExecutor::brokenToolCallsFailTheRun()
{
    if (AgentFixture::isStreamed())
        QSKIP("No stream hands over such calls.");
    QFETCH(QJsonValue, call);
    QFETCH(QString, error);
    AgentFixture agent;
    QJsonArray calls = AgentFixture::callsOf({"read", "write"});
    calls.append(call);
    agent.model->addToolCalls(calls);
    agent.run();
    agent.executor->resolveApproval("c2", true);
    runUntilQuiet();
    QCOMPARE(agent.log, (QStringList{"delta ", "failed " + error}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutor::blankArgumentsAreAnEmptyObject_data()
{
    QTest::addColumn<QJsonObject>("call");
    QTest::newRow("empty text") << AgentFixture::callWith("read", "");
    QTest::newRow("blanks") << AgentFixture::callWith("read", " \n\t");
    QTest::newRow("empty object") << AgentFixture::callWith("read", " {} ");
    QTest::newRow("null") << AgentFixture::callWith("read", QJsonValue::Null);
    QTest::newRow("an empty object itself") << AgentFixture::callWith("read", QJsonObject());
    QTest::newRow("absent") << QJsonObject{{"function", QJsonObject{{"name", "read"}}}};
}

void TestAgentExecutor::blankArgumentsAreAnEmptyObject()
{
    QFETCH(QJsonObject, call);
    AgentFixture agent;
    agent.model->addToolCalls({call});
    agent.run();
    QCOMPARE(agent.traces.size(), 1);
    QCOMPARE(agent.traces.first().arguments, QJsonObject());
}

void TestAgentExecutor::argumentsReachTheTool_data()
{
    QTest::addColumn<QJsonValue>("sent");
    const QJsonObject arguments{{"deviceId", "Pump-001"}, {"名", QJsonArray{1, "二"}}};
    const QByteArray text = QJsonDocument(arguments).toJson();
    QTest::newRow("as a text") << QJsonValue(QString::fromUtf8(text));
    if (!AgentFixture::isStreamed()) // whose pieces are texts
        QTest::newRow("as an object") << QJsonValue(arguments);
}

void TestAgentExecutor::argumentsReachTheTool()
{
    QFETCH(QJsonValue, sent);
    const QJsonObject arguments{{"deviceId", "Pump-001"}, {"名", QJsonArray{1, "二"}}};
    AgentFixture agent;
    QJsonObject received;
    const auto handler = [&received](const QJsonObject &given) {
        received = given;
        return AgentFixture::success("ok");
    };
    agent.registry->registerTool(new FunctionTool("query", "", {}, ToolPermission::ReadOnly, handler));
    agent.model->addToolCalls({AgentFixture::callWith("query", sent)});
    agent.run();
    QCOMPARE(received, arguments);
    QCOMPARE(agent.traces.first().arguments, arguments);
}

void TestAgentExecutor::callWithoutAnIdGetsOneForEverything()
{
    if (AgentFixture::isStreamed())
        QSKIP("A stream gives each call an id.");
    AgentFixture agent;
    QJsonObject call = AgentFixture::callWith("write", "{}");
    call.remove("id");
    agent.model->addToolCalls({call, call});
    agent.run();
    agent.resolve(true);
    agent.resolve(true);

    const QRegularExpression uuid("^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$");
    QCOMPARE(agent.traces.size(), 2);
    for (int i = 0; i < 2; ++i) {
        const QString id = agent.approvals.at(i).approvalId;
        QVERIFY2(uuid.match(id).hasMatch(), qPrintable(id));
        QCOMPARE(agent.traces.at(i).callId, id);
        QCOMPARE(agent.messages(1).at(i + 2).toObject().value("tool_call_id").toString(), id);
    }
    QVERIFY(agent.traces.at(0).callId != agent.traces.at(1).callId);
}

void TestAgentExecutor::callWithoutARegistryFailsTheRun()
{
    if (AgentFixture::isStreamed())
        QSKIP("No stream hands over a call of a tool that was not offered.");
    AgentFixture agent;
    agent.executor->setToolRegistry(nullptr);
    agent.model->addToolCalls(AgentFixture::callsOf({"read"}));
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "failed 工具注册表尚未配置。"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutor::unknownToolFailsTheRunWhenItsTurnComes()
{
    AgentFixture agent;
    agent.model->addToolCalls(AgentFixture::callsOf({"read", "%1 <b>", "read"}));
    agent.run();
    QCOMPARE(agent.log,
             (QStringList{"delta ", "call read", "trace read success", "failed 未找到工具：%1 <b>"}));
    QCOMPARE(agent.requestCount(), 1);
}

void TestAgentExecutor::successfulCallIsTraced()
{
    AgentFixture agent;
    agent.addTool("tool", ToolPermission::ReadOnly, [] {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 3) {
        }
    });
    const QDateTime before = QDateTime::currentDateTime();
    agent.model->addToolCalls({makeToolCall("c9", "tool", {{"a", 1}})});
    agent.run();
    const ToolCallTrace trace = agent.traces.first();
    QCOMPARE(trace.callId, "c9");
    QCOMPARE(trace.toolName, "tool");
    QCOMPARE(trace.status, "success");
    QCOMPARE(trace.permission, ToolPermission::ReadOnly);
    QCOMPARE(trace.arguments, (QJsonObject{{"a", 1}}));
    QCOMPARE(trace.output, "tool done");
    QCOMPARE(trace.error, "");
    QVERIFY(trace.durationMs >= 3);
    QVERIFY(before.addMSecs(3) <= trace.timestamp && trace.timestamp <= QDateTime::currentDateTime());
    QCOMPARE(trace.timestamp.timeSpec(), Qt::LocalTime);
}

void TestAgentExecutor::failedCallIsTracedAndTheRunGoesOn()
{
    AgentFixture agent;
    agent.registry->registerTool(new FunctionTool("broken", "", {}, ToolPermission::ReadOnly, {}));
    agent.model->addToolCalls(AgentFixture::callsOf({"broken"}));
    agent.model->addText({"done"});
    agent.run();
    QCOMPARE(agent.log, (QStringList{"delta ", "trace broken failed", "delta done", "finished done"}));
    QCOMPARE(agent.traces.first().output, "Tool handler is empty.");
    QCOMPARE(agent.traces.first().error, "Tool handler is empty.");
    QCOMPARE(agent.messages(1).last().toObject(), (QJsonObject{{"role", "tool"},
                                                               {"name", "broken"},
                                                               {"tool_call_id", "c1"},
                                                               {"content", "Tool handler is empty."}}));
}

void TestAgentExecutor::mockModelIsServedToTheEnd()
{
    AgentFixture agent;
    MockChatModel model;
    agent.executor->setModel(&model);
    agent.addTool("find_abnormal_devices", ToolPermission::ReadOnly);
    agent.addTool("export_report", ToolPermission::FileSystem);
    connect(agent.executor, &AgentExecutor::approvalRequired, &agent,
            [&agent](const ApprovalRequest &request) {
                agent.executor->resolveApproval(request.approvalId, true);
            });
    QSignalSpy finished(agent.executor, &AgentExecutor::assistantFinished);
    agent.executor->run("导出报告");
    QVERIFY(finished.wait());
    runUntilQuiet();

    QCOMPARE(agent.log.filter(QRegularExpression("^(call|approval)")),
             (QStringList{"call find_abnormal_devices", "approval export_report", "call export_report"}));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toString(),
             "工具调用已完成，结果如下：\n- find_abnormal_devices: find_abnormal_devices done\n"
             "- export_report: export_report done ");
}

class RecordReceiver : public QObject
{
    Q_OBJECT

public:
    QStringList names;

public Q_SLOTS:
    void addTrace(const MireloQtLib::QtAgent::ToolCallTrace &trace) { names.append(trace.toolName); }
    void addRequest(const MireloQtLib::QtAgent::ApprovalRequest &request) { names.append(request.toolName); }
};

void TestAgentExecutor::recordsTravelThroughQueuedStringConnections()
{
    AgentFixture agent;
    RecordReceiver receiver;
    connect(agent.executor, SIGNAL(traceAdded(MireloQtLib::QtAgent::ToolCallTrace)), &receiver,
            SLOT(addTrace(MireloQtLib::QtAgent::ToolCallTrace)), Qt::QueuedConnection);
    connect(agent.executor, SIGNAL(approvalRequired(MireloQtLib::QtAgent::ApprovalRequest)), &receiver,
            SLOT(addRequest(MireloQtLib::QtAgent::ApprovalRequest)), Qt::QueuedConnection);
    agent.model->addToolCalls(AgentFixture::callsOf({"read", "write"}));
    agent.run();
    QCOMPARE(receiver.names, (QStringList{"read", "write"}));
}

QTEST_GUILESS_MAIN(TestAgentExecutor)
#include "tst_agentexecutor.moc"
