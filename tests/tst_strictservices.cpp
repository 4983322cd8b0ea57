// The demo's agent and its tools beside services that enforce what they document.

#include "support/completions.h"
#include "support/loopbackserver.h"

#include <demo/devicetools.h>

#include <qtagent/agentsession.h>
#include <qtagent/deepseekmodel.h>
#include <qtagent/toolregistry.h>

#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// What a service refuses about a request, in its own words, or an empty text.
using Rule = std::function<QString(const QJsonObject &request)>;

// Asks for the three tools that a device analysis takes, one after the other, thinks at each, and ends with a
// text.
class Service
{
public:
    Service(LoopbackServer *server, const Rule &rule)
        : m_rule(rule)
    {
        server->setHandler([this](const LoopbackRequest &request) { return answerTo(request.json); });
    }

private:
    LoopbackAnswer answerTo(const QJsonObject &request) const
    {
        const QString fault = m_rule(request);
        if (!fault.isEmpty())
            return LoopbackAnswer::withStatus(400, R"({"error":{"message":")" + fault.toUtf8() + "\"}}");
        const QStringList names{"find_abnormal_devices", "generate_alarm_summary", "export_report"};
        const int round = roundOf(request);
        QJsonObject message{{"role", "assistant"}, {"content", round < 3 ? "" : "All fine."}};
        message.insert("reasoning_content", QString("secret thought %1").arg(round));
        if (round < 3)
            message.insert("tool_calls",
                           QJsonArray{makeToolCall(QString("c%1").arg(round), names.at(round), {})});
        const QString key = request["stream"].toBool() ? "delta" : "message";
        const QString reason = round < 3 ? "tool_calls" : "stop";
        const QJsonObject answer{
            {"choices", QJsonArray{QJsonObject{{"index", 0}, {key, message}, {"finish_reason", reason}}}}};
        if (!request["stream"].toBool())
            return LoopbackAnswer::json(answer);
        const QByteArray json = QJsonDocument(answer).toJson(QJsonDocument::Compact);
        return LoopbackAnswer::stream({"data: " + json + "\n\n", doneEvent()});
    }

    static int roundOf(const QJsonObject &request)
    {
        int results = 0;
        const QJsonArray messages = request["messages"].toArray();
        for (const QJsonValue &message : messages)
            results += message.toObject()["role"] == QJsonValue("tool") ? 1 : 0;
        return results;
    }

    const Rule m_rule;
};

QString wantsReasoning(const QJsonObject &request)
{
    int round = 0;
    const QJsonArray messages = request["messages"].toArray();
    for (const QJsonValue &value : messages) {
        const QJsonObject message = value.toObject();
        if (message.contains("tool_calls")
            && message["reasoning_content"] != QJsonValue(QString("secret thought %1").arg(round++)))
            return "The reasoning_content in the thinking mode must be passed back to the API.";
    }
    return {};
}

QString refusesReasoning(const QJsonObject &request)
{
    const QByteArray messages = QJsonDocument(request["messages"].toArray()).toJson();
    return messages.contains("reasoning") ? "property 'reasoning_content' is unsupported" : QString();
}

QString refusesMaxTokens(const QJsonObject &request)
{
    const bool isFine = request.contains("max_completion_tokens") && !request.contains("max_tokens")
                     && !request.contains("temperature") && request["reasoning_effort"] == QJsonValue("none");
    return isFine ? QString() : "Unsupported parameter: 'max_tokens'";
}

QString wantsStreams(const QJsonObject &request)
{
    return request["stream"].toBool()
             ? QString()
             : "parameter.enable_thinking must be set to false for non-streaming calls";
}

} // namespace

Q_DECLARE_METATYPE(Rule)

class TestStrictServices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void agentEndsItsRun_data();
    void agentEndsItsRun();
    void withoutItsOptionTheServiceRefuses_data();
    void withoutItsOptionTheServiceRefuses();

private:
    static void addRows();
    QStringList run(const Rule &rule, OpenAICompatibleModel *model, AgentExecutor *executor);

    QTemporaryDir m_folder;
};

void TestStrictServices::initTestCase()
{
    QVERIFY(m_folder.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_folder.path()));
}

// Returns everything that was emitted.
QStringList TestStrictServices::run(const Rule &rule, OpenAICompatibleModel *model, AgentExecutor *executor)
{
    LoopbackServer server;
    const Service service(&server, rule);
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.apiKey = "sk-secret";
    config.model = "m";
    model->setConfig(config);
    ToolRegistry registry;
    registerDeviceTools(&registry, demoDevices());
    executor->setModel(model);
    executor->setToolRegistry(&registry);
    QStringList log;
    QObject context;
    connect(executor, &AgentExecutor::approvalRequired, &context,
            [executor](const ApprovalRequest &request) { executor->answerApproval(request, true); });
    connect(executor, &AgentExecutor::assistantDelta, &context,
            [&log](const QString &delta) { log += delta; });
    connect(executor, &AgentExecutor::traceAdded, &context,
            [&log](const ToolCallTrace &trace) { log += formatTrace(trace); });
    connect(executor, &AgentExecutor::assistantFinished, &context,
            [&log](const QString &text) { log += "finished " + text; });
    connect(executor, &AgentExecutor::failed, &context,
            [&log](const QString &error) { log += "failed " + error; });
    executor->run("查找异常设备");
    const auto isOver = [&log] {
        return !log.isEmpty() && log.last().contains(QRegularExpression("^(finished|failed) "));
    };
    if (!QTest::qWaitFor(isOver))
        log += "(not over)";
    return log;
}

void TestStrictServices::addRows()
{
    QTest::addColumn<Rule>("rule");
    QTest::addColumn<QJsonObject>("options");
    QTest::newRow("wants reasoning back") << Rule(wantsReasoning) << QJsonObject{{"keepReasoning", true}};
    QTest::newRow("refuses another name of the limit")
        << Rule(refusesMaxTokens)
        << QJsonObject{{"useMaxCompletionTokens", true},
                       {"without", QJsonArray{"temperature"}},
                       {"extra", QJsonObject{{"reasoning_effort", "none"}}}};
    QTest::newRow("wants streams") << Rule(wantsStreams) << QJsonObject{{"streamToolCalls", true}};
}

void TestStrictServices::agentEndsItsRun_data()
{
    addRows();
    QTest::newRow("wants reasoning back, streamed")
        << Rule(wantsReasoning)
        << QJsonObject{{"keepReasoning", true}, {"streamToolCalls", true}, {"strictStreams", true}};
    QTest::newRow("refuses reasoning") << Rule(refusesReasoning) << QJsonObject();
    QTest::newRow("refuses reasoning, streamed")
        << Rule(refusesReasoning) << QJsonObject{{"streamToolCalls", true}};
}

void TestStrictServices::agentEndsItsRun()
{
    QFETCH(Rule, rule);
    QFETCH(QJsonObject, options);
    for (const bool isSession : {false, true}) {
        OpenAICompatibleModel model;
        model.setRequestOptions(requestOptionsFromJson(options));
        const std::unique_ptr<AgentExecutor> executor(isSession ? new AgentSession : new AgentExecutor);
        const QStringList log = run(rule, &model, executor.get());
        QCOMPARE(log.last(), "finished All fine.");
        QCOMPARE(log.filter("export_report").size(), 1);
        QVERIFY(log.filter("secret").isEmpty());
    }
}

void TestStrictServices::withoutItsOptionTheServiceRefuses_data()
{
    addRows();
}

void TestStrictServices::withoutItsOptionTheServiceRefuses()
{
    QFETCH(Rule, rule);
    OpenAICompatibleModel model;
    AgentExecutor executor;
    const QStringList log = run(rule, &model, &executor);
    QVERIFY2(log.last().startsWith("failed OpenAI-compatible request failed."), qPrintable(log.last()));
    QVERIFY(log.filter("secret").isEmpty());
    DeepSeekModel deepSeek;
    AgentExecutor other;
    const bool isDeepSeek = QByteArray(QTest::currentDataTag()) == "wants reasoning back";
    QCOMPARE(run(rule, &deepSeek, &other).last().startsWith("finished "), isDeepSeek);
}

QTEST_GUILESS_MAIN(TestStrictServices)
#include "tst_strictservices.moc"
