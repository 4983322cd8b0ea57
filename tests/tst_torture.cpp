#include "support/completions.h"
#include "support/graphstage.h"
#include "support/heldmodel.h"
#include "support/heldtool.h"
#include "support/loopbackserver.h"
#include "support/torture.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/retryingmodel.h>
#include <qtagent/runnablechain.h>
#include <qtagent/simpleragchain.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// Longer than the mock model waits between two pieces, and long enough for a server on this machine.
constexpr int nestedLoopMs = 60;

// How the run of an agent goes.
struct AgentPlot
{
    bool isAllowed = true;
    bool isAnsweredLater = false;
    bool fails = false;
    bool actsFirst = true; // the slots that act are connected before those of the executor and the host
    bool isAsynchronous = false;
};

// An agent with two calls that only read and one that needs an approval, then a text in two pieces.
class AgentStage : public TortureStage
{
public:
    explicit AgentStage(const AgentPlot &plot)
        : m_plot(plot)
    {
        m_read = addTool("read", ToolPermission::ReadOnly);
        m_write = addTool("write", ToolPermission::Write);
        m_executor->setModel(m_model);
        m_executor->setToolRegistry(m_registry);
        addVictims();
        addAction("cancel", [this] { m_executor->cancel(); });
        addAction("run again", [this] { start(); });
        connectHost();
    }

    ~AgentStage() override
    {
        delete m_executor;
        delete m_model;
    }

protected:
    void start() override
    {
        const auto call = [](const QString &id, const QString &name) { return makeToolCall(id, name, {}); };
        m_model->clearAnswers();
        const QJsonArray calls{call("c1", "read"), call("c2", "read"), call("c3", "write")};
        m_model->addAnswer(HeldModel::inOneGo({"Let me see."}, calls));
        if (m_plot.fails)
            m_model->addAnswer([](const QPointer<ChatReply> &reply) { reply->fail("no network"); });
        else
            m_model->addAnswer(HeldModel::inOneGo({"one ", "two"}));
        ++m_run;
        m_executor->run("question");
    }

    void inspect() override
    {
        const int outcomes = count("AgentExecutor::assistantFinished") + count("AgentExecutor::failed");
        const int lateOutcomes =
            countAfterAction("AgentExecutor::assistantFinished") + countAfterAction("AgentExecutor::failed");
        QStringList late = signalsAfterAction();
        late.removeAll("ChatReply::canceled");
        late.removeAll("ToolReply::canceled");
        late.removeAll("ChatReply::responseReceived"); // is reported of canceled requests, too

        if (outcomes - lateOutcomes > 1 || lateOutcomes > 1 || outcomes > m_run)
            reportFault("more than one outcome");
        if ((action() == "cancel" || action() == "delete executor") && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        if (action() == "run again" && lateOutcomes != (m_plot.isAllowed ? 1 : 0))
            reportFault("the second run does not end as it should");
        const bool isMissingOne = action().contains(QRegularExpression("delete (model|registry|tool)"));
        if (isMissingOne && m_plot.isAllowed && outcomes != 1)
            reportFault("the run does not report its end");
    }

private:
    AgentTool *addTool(const QString &name, ToolPermission permission)
    {
        AgentTool *tool = m_plot.isAsynchronous ? makeSlowTool(name, permission) : makeTool(name, permission);
        m_registry->registerTool(tool);
        return tool;
    }

    AgentTool *makeTool(const QString &name, ToolPermission permission)
    {
        const auto handler = [name](const QJsonObject &) {
            ToolResult result;
            result.success = true;
            result.content = name;
            return result;
        };
        return new FunctionTool(name, "Does things.", {{"type", "object"}}, permission, handler, m_registry);
    }

    AgentTool *makeSlowTool(const QString &name, ToolPermission permission)
    {
        auto *tool = new HeldTool(name, permission, m_registry);
        tool->onStart = [this, name](ToolReply *reply) {
            m_toolReply = reply;
            watch(reply);
            QTimer::singleShot(0, reply, [this, reply] { actAfterwards(reply); });
            HeldTool::finishLater(reply, name);
        };
        return tool;
    }

    void addVictims()
    {
        addVictim("executor", [this] { return m_executor.data(); });
        addVictim("model", [this] { return m_model.data(); });
        addVictim("registry", [this] { return m_registry.data(); });
        addVictim("tool read", [this] { return m_read.data(); });
        addVictim("tool write", [this] { return m_write.data(); });
        addVictim("tool reply", [this] { return m_toolReply.data(); });
        addVictim("reply", [this]() -> QObject * {
            return m_model && !m_model->calls().isEmpty() ? m_model->lastCall().reply.data() : nullptr;
        });
    }

    void connectHost()
    {
        setActsLast(!m_plot.actsFirst);
        m_model->onReply = [this](ChatReply *reply) { watch(reply); };
        m_model->onAnswer = [this](ChatReply *reply) { actAfterwards(reply); };
        watch(m_executor);
        connect(m_executor, &AgentExecutor::approvalRequired, this, &AgentStage::answer);
        actAfterwards(m_executor);
    }

    void answer(const ApprovalRequest &request)
    {
        const int run = m_run;
        const auto resolve = [this, run, id = request.approvalId] {
            if (m_executor && run == m_run)
                m_executor->resolveApproval(id, m_plot.isAllowed);
        };
        if (m_plot.isAnsweredLater)
            QTimer::singleShot(0, this, resolve);
        else
            resolve();
    }

    const AgentPlot m_plot;
    int m_run = 0;
    QObject m_owner;
    const QPointer<HeldModel> m_model{new HeldModel};
    const QPointer<ToolRegistry> m_registry{new ToolRegistry(&m_owner)};
    const QPointer<AgentExecutor> m_executor{new AgentExecutor};
    QPointer<AgentTool> m_read;
    QPointer<AgentTool> m_write;
    QPointer<ToolReply> m_toolReply;
};

// A request and its answer, asked for by a model or through a chain.
class RequestStage : public TortureStage
{
public:
    RequestStage()
    {
        addVictim("reply", [this] { return m_reply.data(); });
        addVictim("model", [this] { return m_model.data(); });
        addVictim("parent", [this] { return m_parent.data(); });
        addVictim("chain", [this] { return m_chain.data(); });
        addVictim("model behind it", [this] { return m_modelBehind.data(); });
        addAction("cancel", [this] { m_reply->cancel(); });
        addAction("run again", [this] { start(); });
    }

    ~RequestStage() override
    {
        delete m_chain;
        delete m_parent;
        delete m_model;
        delete m_modelBehind;
    }

    void useMock(const QVector<ToolDefinition> &tools = {})
    {
        m_model = new MockChatModel;
        m_ask = [this, tools] { return m_model->chat({ChatMessage::user("device")}, tools, m_parent); };
    }

    void useServer(const QString &baseUrl, const QString &modelName, bool stream)
    {
        auto *model = new OpenAICompatibleModel;
        ModelConfig config;
        config.baseUrl = baseUrl;
        config.model = modelName;
        config.stream = stream;
        model->setConfig(config);
        m_model = model;
        m_isRemote = true;
        m_ask = [this] { return m_model->chat({ChatMessage::user("Hi")}, {}, m_parent); };
    }

    // Asks the model in use again where it fails. Each question is another one.
    void askAgain(const QVector<ToolDefinition> &tools)
    {
        RequestOptions options;
        options.streamToolCalls = true;
        qobject_cast<OpenAICompatibleModel *>(m_model)->setRequestOptions(options);
        auto *retrying = new RetryingModel(m_model);
        retrying->setDelays(0, 0);
        m_modelBehind = m_model;
        m_model = retrying;
        m_needsBoth = true;
        watch(retrying);
        m_ask = [this, tools] {
            static int questions = 0;
            return m_model->chat({ChatMessage::user(QString::number(++questions))}, tools, m_parent);
        };
    }

    void useChain()
    {
        auto *chain = new RunnableChain;
        chain->setPromptTemplate("{x}");
        chain->setModel(m_model);
        m_chain = chain;
        m_ask = [chain] { return chain->invoke({{"x", "y"}}); };
    }

    void useRetrieval()
    {
        auto *chain = new SimpleRagChain;
        chain->setDocuments({"one", "two"});
        chain->setModel(m_model);
        m_chain = chain;
        m_ask = [chain] { return chain->invoke("one?", 1); };
    }

    // The user cancels: at once, or in the turn after the first piece.
    void cancelOnOurOwn(bool atOnce) { m_cancels = atOnce ? AtOnce : AfterFirstPiece; }

protected:
    void start() override
    {
        m_reply = m_ask();
        ChatReply *const reply = m_reply;
        watch(reply);
        const auto cancel = [reply] { QTimer::singleShot(0, reply, &ChatReply::cancel); };
        if (m_cancels == AtOnce)
            cancel();
        if (m_cancels == AfterFirstPiece)
            connect(reply, &ChatReply::deltaReceived, reply, cancel);
        ++m_requests;
    }

    void turnEvents() override { turnEventsFor(nestedLoopMs); }

    bool canAnswer() const override { return (m_model || !m_isRemote) && (m_modelBehind || !m_needsBoth); }

    void inspect() override
    {
        const int ends = countAfterAction("ChatReply::finished") + countAfterAction("ChatReply::failed")
                       + countAfterAction("ChatReply::canceled");
        if (action() == "run again" && ends < 1)
            reportFault("the second request has no end");
        const QStringList late = signalsAfterAction();
        if (action() == "cancel" && !late.filter(QRegularExpression("finished|failed|delta")).isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        if (action() == "delete reply" && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        if (action() == "delete model" && m_isRemote && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
    }

private:
    enum Cancellation { Never, AtOnce, AfterFirstPiece };

    std::function<ChatReply *()> m_ask;
    QPointer<QObject> m_parent{new QObject};
    QPointer<ChatModel> m_model;
    QPointer<ChatModel> m_modelBehind;
    QPointer<QObject> m_chain;
    QPointer<ChatReply> m_reply;
    Cancellation m_cancels = Never;
    bool m_isRemote = false;
    bool m_needsBoth = false;
    int m_requests = 0;
};

using StageFactory = std::function<std::unique_ptr<TortureStage>()>;

StageFactory request(const std::function<void(RequestStage &)> &setUp)
{
    return [setUp] {
        auto stage = std::make_unique<RequestStage>();
        setUp(*stage);
        return stage;
    };
}

QMap<QString, StageFactory> agentScenarios()
{
    QMap<QString, StageFactory> scenarios;
    for (const bool actsFirst : {true, false}) {
        const auto add = [&scenarios, actsFirst](const QString &name, AgentPlot plot) {
            plot.actsFirst = actsFirst;
            const QString place = actsFirst ? ", first slot" : ", last slot";
            scenarios.insert(name + place, [plot] { return std::make_unique<AgentStage>(plot); });
            plot.isAsynchronous = true;
            scenarios.insert(name + ", slow tools" + place,
                             [plot] { return std::make_unique<AgentStage>(plot); });
        };
        add("agent, allowed in the signal", {});
        add("agent, allowed later", {true, true, false, true});
        add("agent, denied in the signal", {false, false, false, true});
        add("agent, denied later", {false, true, false, true});
        add("agent, failing request", {true, false, true, true});
    }
    return scenarios;
}

QMap<QString, StageFactory> graphScenarios()
{
    QMap<QString, StageFactory> scenarios;
    for (const bool actsFirst : {true, false}) {
        const auto add = [&scenarios, actsFirst](const QString &name, GraphPlot plot) {
            plot.actsFirst = actsFirst;
            scenarios.insert(name + (actsFirst ? ", first slot" : ", last slot"),
                             [plot] { return std::make_unique<GraphStage>(plot); });
        };
        add("graph", {true, false, true});
        add("graph without a storage", {false, false, true});
        add("graph, failing branch", {true, true, true});
    }
    return scenarios;
}

QVector<ToolDefinition> exportTool()
{
    ToolDefinition tool;
    tool.name = "export_report";
    return {tool};
}

QMap<QString, StageFactory> requestScenarios(const QString &baseUrl)
{
    const auto server = [baseUrl](const QString &modelName, bool stream, bool cancels = false) {
        return request([=](RequestStage &stage) {
            stage.useServer(baseUrl, modelName, stream);
            if (cancels)
                stage.cancelOnOurOwn(true);
        });
    };
    const auto askedAgain = [baseUrl](const QString &modelName) {
        return request([=](RequestStage &stage) {
            stage.useServer(baseUrl, modelName, true);
            stage.askAgain(exportTool());
        });
    };
    return {
        {"server, asked again, answer", askedAgain("busy once")},
        {"server, asked again, error", askedAgain("bad")},
        {"mock model", request([](RequestStage &stage) { stage.useMock(); })},
        {"mock model, tool calls", request([](RequestStage &stage) { stage.useMock(exportTool()); })},
        {"mock model, canceled", request([](RequestStage &stage) {
             stage.useMock();
             stage.cancelOnOurOwn(false);
         })},
        {"server, stream", server("good", true)},
        {"server, whole answer", server("good", false)},
        {"server, error", server("bad", true)},
        {"server, canceled", server("good", true, true)},
        {"chain", request([](RequestStage &stage) {
             stage.useMock();
             stage.useChain();
         })},
        {"chain with a server", request([baseUrl](RequestStage &stage) {
             stage.useServer(baseUrl, "good", true);
             stage.useChain();
         })},
        {"retrieval chain", request([](RequestStage &stage) {
             stage.useMock();
             stage.useRetrieval();
         })},
        {"retrieval chain with a server", request([baseUrl](RequestStage &stage) {
             stage.useServer(baseUrl, "good", true);
             stage.useRetrieval();
         })},
    };
}

LoopbackAnswer thoughtTextAndCall()
{
    const QByteArray begin = R"(data: {"choices":[{"delta":{)";
    const QByteArray call =
        R"("tool_calls":[{"index":0,"id":"c","function":{"name":"export_report","arguments":)";
    return LoopbackAnswer::stream({begin + R"("reasoning":"Hm","content":"a"}}]})" + "\n\n",
                                   begin + call + "\"{\"}}]}}]}\n\n", begin + call + "\"}\"}}]}}]}\n\n",
                                   doneEvent()});
}

LoopbackAnswer answerTo(const LoopbackRequest &received)
{
    static QSet<QByteArray> refused;
    const bool isNew = !refused.contains(received.body);
    if (received.json["model"] == "bad" || (received.json["model"] == "busy once" && isNew)) {
        refused.insert(received.body);
        return LoopbackAnswer::withStatus(500, "{}");
    }
    if (received.json["model"] == "busy once")
        return thoughtTextAndCall();
    if (received.json["stream"].toBool())
        return LoopbackAnswer::stream({deltaEvent("a") + deltaEvent("b"), deltaEvent("c"), doneEvent()});
    return LoopbackAnswer::json(completion("whole"));
}

} // namespace

// Whatever a slot does in whatever signal, nothing breaks.
class TestTorture : public TortureTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

private:
    LoopbackServer m_server;
};

void TestTorture::initTestCase()
{
    m_server.setHandler(answerTo);
    QMap<QString, StageFactory> scenarios = requestScenarios(m_server.baseUrl());
    for (const QMap<QString, StageFactory> &more : {agentScenarios(), graphScenarios()}) {
        for (auto scenario = more.cbegin(); scenario != more.cend(); ++scenario)
            scenarios.insert(scenario.key(), scenario.value());
    }
    for (auto scenario = scenarios.cbegin(); scenario != scenarios.cend(); ++scenario)
        addScenario(scenario.key(), scenario.value());
}

QTEST_GUILESS_MAIN(TestTorture)
#include "tst_torture.moc"
