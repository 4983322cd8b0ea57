#include "support/agentfixture.h"
#include "support/completions.h"
#include "support/loopbackserver.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// The agent beside a server: what goes over the wire.
class TestAgentExecutorHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeRunIsSentAsItStands_data();
    void wholeRunIsSentAsItStands();
    void serverErrorFailsTheRun_data();
    void serverErrorFailsTheRun();
    void cancelAbortsTheRequest_data();
    void cancelAbortsTheRequest();
};

namespace {

ModelConfig configFor(const LoopbackServer &server)
{
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.apiKey = "key";
    config.model = "test-model";
    return config;
}

// The same runs go through streams, too.
void addWays()
{
    QTest::addColumn<bool>("isStreamed");
    QTest::newRow("whole answers") << false;
    QTest::newRow("streamed answers") << true;
}

void streamToolCalls(OpenAICompatibleModel *model)
{
    RequestOptions options;
    options.streamToolCalls = true;
    model->setRequestOptions(options);
}

// Returns @p answer, a completion, as it comes in events.
LoopbackAnswer streamOf(const QJsonObject &answer)
{
    const QJsonObject message = answer["choices"].toArray().at(0).toObject()["message"].toObject();
    QVector<QByteArray> events{deltaEvent(message["content"].toString())};
    events += callEvents(message["tool_calls"].toArray());
    events.append(doneEvent());
    return LoopbackAnswer::stream(events);
}

LoopbackAnswer answerOf(const QJsonObject &answer, bool isStreamed)
{
    return isStreamed ? streamOf(answer) : LoopbackAnswer::json(answer);
}

QJsonObject definitionOf(const QString &name)
{
    const QJsonObject function{
        {"name", name}, {"description", "Does things."}, {"parameters", QJsonObject{{"type", "object"}}}};
    return {{"type", "function"}, {"function", function}};
}

QJsonObject requestWith(const QJsonArray &messages, bool isStreamed)
{
    return {
        {"model", "test-model"}, {"messages", messages},
        {"temperature", 0.2},    {"max_tokens", 1024},
        {"stream", isStreamed},  {"tools", QJsonArray{definitionOf("read"), definitionOf("write")}},
        {"tool_choice", "auto"},
    };
}

QJsonObject resultOf(const QString &id, const QString &name)
{
    return {{"role", "tool"}, {"name", name}, {"tool_call_id", id}, {"content", name + " done"}};
}

// A completion whose content is null, as services send it beside tool calls.
QJsonObject completionWithoutContent(const QJsonArray &toolCalls)
{
    const QJsonObject message{
        {"role", "assistant"}, {"content", QJsonValue::Null}, {"tool_calls", toolCalls}};
    return {{"choices", QJsonArray{QJsonObject{{"index", 0}, {"message", message}}}}};
}

} // namespace

void TestAgentExecutorHttp::wholeRunIsSentAsItStands_data()
{
    addWays();
}

void TestAgentExecutorHttp::wholeRunIsSentAsItStands()
{
    QFETCH(bool, isStreamed);
    const QJsonArray first{makeToolCall("a1", "read", {{"泵", 1}}), makeToolCall("a2", "write", {})};
    const QJsonArray second{makeToolCall("b1", "read", {})};
    LoopbackServer server;
    server.enqueue(answerOf(completionWithoutContent(first), isStreamed));
    server.enqueue(answerOf(completion("One more look.", second), isStreamed));
    server.enqueue(answerOf(completion("All fine."), isStreamed));

    AgentFixture agent;
    OpenAICompatibleModel model;
    model.setConfig(configFor(server));
    if (isStreamed)
        streamToolCalls(&model);
    agent.executor->setModel(&model);
    agent.executor->setSystemPrompt("You look after pumps.");
    connect(agent.executor, &AgentExecutor::approvalRequired, &agent,
            [&agent](const ApprovalRequest &request) {
                agent.executor->resolveApproval(request.approvalId, true);
            });
    QSignalSpy finished(agent.executor, &AgentExecutor::assistantFinished);
    agent.executor->run("查找异常设备");
    QVERIFY(finished.wait());
    runUntilQuiet();

    if (!isStreamed)
        QCOMPARE(agent.log.takeFirst(), "delta "); // of an answer without a text
    QCOMPARE(agent.log, (QStringList{"call read", "trace read success", "approval write", "call write",
                                     "trace write success", "delta One more look.", "call read",
                                     "trace read success", "delta All fine.", "finished All fine."}));
    QJsonArray messages{
        QJsonObject{{"role", "system"}, {"content", "You look after pumps."}},
        QJsonObject{{"role", "user"}, {"content", "查找异常设备"}},
    };
    QCOMPARE(server.requests().size(), 3);
    QCOMPARE(server.requests().at(0).json, requestWith(messages, isStreamed));

    messages.append(QJsonObject{{"role", "assistant"}, {"content", ""}, {"tool_calls", first}});
    messages.append(resultOf("a1", "read"));
    messages.append(resultOf("a2", "write"));
    QCOMPARE(server.requests().at(1).json, requestWith(messages, isStreamed));

    messages.append(
        QJsonObject{{"role", "assistant"}, {"content", "One more look."}, {"tool_calls", second}});
    messages.append(resultOf("b1", "read"));
    QCOMPARE(server.requests().at(2).json, requestWith(messages, isStreamed));
}

void TestAgentExecutorHttp::serverErrorFailsTheRun_data()
{
    addWays();
}

void TestAgentExecutorHttp::serverErrorFailsTheRun()
{
    QFETCH(bool, isStreamed);
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})"));
    AgentFixture agent;
    OpenAICompatibleModel model;
    model.setConfig(configFor(server));
    if (isStreamed)
        streamToolCalls(&model);
    agent.executor->setModel(&model);
    QSignalSpy failed(agent.executor, &AgentExecutor::failed);
    agent.executor->run("question");
    QVERIFY(failed.wait());
    runUntilQuiet();
    QCOMPARE(agent.log.size(), 1);
    QVERIFY2(agent.log.first().startsWith("failed OpenAI-compatible request failed.\n")
                 && agent.log.first().endsWith("\nResponse: bad key"),
             qPrintable(agent.log.first()));
    QCOMPARE(server.requests().size(), 1);
}

void TestAgentExecutorHttp::cancelAbortsTheRequest_data()
{
    addWays();
}

void TestAgentExecutorHttp::cancelAbortsTheRequest()
{
    QFETCH(bool, isStreamed);
    LoopbackServer server;
    server.enqueue(answerOf(completion("late", AgentFixture::callsOf({"read"})), isStreamed).held());
    server.enqueue(answerOf(completion("fresh"), isStreamed));
    AgentFixture agent;
    OpenAICompatibleModel model;
    model.setConfig(configFor(server));
    if (isStreamed)
        streamToolCalls(&model);
    agent.executor->setModel(&model);
    agent.executor->run("first");
    QTRY_COMPARE(server.requests().size(), 1);
    agent.executor->cancel();
    server.release();

    QSignalSpy finished(agent.executor, &AgentExecutor::assistantFinished);
    agent.executor->run("second");
    QVERIFY(finished.wait());
    QCOMPARE(agent.log, (QStringList{"delta fresh", "finished fresh"}));
}

QTEST_GUILESS_MAIN(TestAgentExecutorHttp)
#include "tst_agentexecutor_http.moc"
