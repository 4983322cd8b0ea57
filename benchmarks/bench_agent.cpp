// What the agent loop costs: a tool call through an executor and a session beside the same call made by hand,
// and the time and memory of a run. The model answers at once, so everything measured is the library's own.
// And what it costs to register tools and to ask for their definitions (goal: linear in their number).
// To compare with an earlier version, run the programs of both in turns and take the median of the ratios.

#include "../tests/support/eventloop.h"
#include "../tests/support/heapusage.h"

#include <qtagent/agentsession.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QTimer>

#include <benchmark/benchmark.h>

using namespace MireloQtLib::QtAgent;

namespace {

QJsonArray toolCalls(int count)
{
    QJsonArray calls;
    for (int i = 0; i < count; ++i)
        calls.append(makeToolCall(QString("call-%1").arg(i), "query", {{"deviceId", "Pump-001"}}));
    return calls;
}

// Answers a question with tool calls and their results with a text, on the next turn of the event loop.
class InstantModel : public ChatModel
{
public:
    explicit InstantModel(int callCount)
        : m_calls(toolCalls(callCount))
    {}

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        auto *reply = new ChatReply(parent);
        const bool hasResults = messages.last().role == QLatin1String("tool");
        QTimer::singleShot(0, reply, [this, reply, hasResults] {
            if (!hasResults)
                reply->setToolCalls(QString(), m_calls);
            reply->finish(hasResults ? QString("done") : QString());
        });
        return reply;
    }

private:
    const QJsonArray m_calls;
};

ToolResult queryDevice(const QJsonObject &arguments)
{
    ToolResult result;
    result.success = true;
    result.content = arguments.value("deviceId").toString();
    return result;
}

void registerQuery(ToolRegistry &registry)
{
    registry.registerTool(
        new FunctionTool("query", "Reads a device.", {}, ToolPermission::ReadOnly, queryDevice));
}

// One call as a program without an executor would make it.
ChatMessage callByHand(const ToolRegistry &registry, const QJsonObject &call)
{
    const QJsonObject function = call.value("function").toObject();
    const QString name = function.value("name").toString();
    const QByteArray arguments = function.value("arguments").toString().toUtf8();
    const ToolResult result = registry.tool(name)->invoke(QJsonDocument::fromJson(arguments).object());
    return ChatMessage::tool(call.value("id").toString(), name, toolResultText(result));
}

void setCallCounters(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void callsByHand(benchmark::State &state)
{
    ToolRegistry registry;
    registerQuery(registry);
    const QJsonArray calls = toolCalls(int(state.range(0)));
    for ([[maybe_unused]] auto iteration : state) {
        QVector<ChatMessage> conversation;
        for (const QJsonValue &call : calls)
            conversation.append(callByHand(registry, call.toObject()));
        benchmark::DoNotOptimize(conversation);
    }
    setCallCounters(state);
}

// By hand, but one call a turn of the event loop, as a window needs it to stay alive.
void callsByHandOneATurn(benchmark::State &state)
{
    ToolRegistry registry;
    registerQuery(registry);
    const QJsonArray calls = toolCalls(int(state.range(0)));
    QObject context;
    for ([[maybe_unused]] auto iteration : state) {
        QVector<ChatMessage> conversation;
        std::function<void()> callNext = [&] {
            conversation.append(callByHand(registry, calls.at(conversation.size()).toObject()));
            if (conversation.size() < calls.size())
                QTimer::singleShot(0, &context, callNext);
        };
        QTimer::singleShot(0, &context, callNext);
        runUntilQuiet();
        benchmark::DoNotOptimize(conversation);
    }
    setCallCounters(state);
}

// What deleteLater() was called for goes in the next turn, as in a program.
void runUntilOver()
{
    runUntilQuiet();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

template<typename Executor>
void callsThrough(benchmark::State &state)
{
    InstantModel model(int(state.range(0)));
    ToolRegistry registry;
    registerQuery(registry);
    for ([[maybe_unused]] auto iteration : state) {
        Executor executor;
        executor.setModel(&model);
        executor.setToolRegistry(&registry);
        executor.run("question");
        runUntilOver();
    }
    setCallCounters(state);
}

// Runs of one object, with one tool call each. The replies of an executor are kept until it dies, those of a
// session are deleted.
template<typename Executor>
void runsOfOne(benchmark::State &state)
{
    InstantModel model(1);
    ToolRegistry registry;
    registerQuery(registry);
    for ([[maybe_unused]] auto iteration : state) {
        Executor executor;
        executor.setModel(&model);
        executor.setToolRegistry(&registry);
        const auto before = heapUsage();
        for (int i = 0; i < state.range(0); ++i) {
            executor.run("question");
            runUntilOver();
        }
        const auto after = heapUsage();
        if (before && after)
            state.counters["bytes_per_run"] = double(*after - *before) / double(state.range(0));
    }
    setCallCounters(state);
    state.SetComplexityN(state.range(0));
}

void registerAndDefine(benchmark::State &state)
{
    for ([[maybe_unused]] auto iteration : state) {
        ToolRegistry registry;
        for (int number = 0; number < state.range(0); ++number)
            registry.registerTool(
                new FunctionTool(QString::number(number), {}, {}, ToolPermission::ReadOnly, {}));
        benchmark::DoNotOptimize(registry.definitions());
    }
    state.SetComplexityN(state.range(0));
}

BENCHMARK(callsByHand)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(callsByHandOneATurn)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_TEMPLATE(callsThrough, AgentExecutor)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_TEMPLATE(callsThrough, AgentSession)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_TEMPLATE(runsOfOne, AgentExecutor)
    ->RangeMultiplier(10)
    ->Range(100, 10000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK_TEMPLATE(runsOfOne, AgentSession)
    ->RangeMultiplier(10)
    ->Range(100, 10000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK(registerAndDefine)
    ->RangeMultiplier(10)
    ->Range(200, 20000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
