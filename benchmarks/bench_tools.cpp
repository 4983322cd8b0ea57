// What tools of other programs cost, and what slow ones do to the window.
//
// - gap: the longest time between two turns of the event loop while an agent waits for a tool that works for
//   1.5 s on another thread (goal: at most 30 ms);
// - ratio: the time of 10,000 tool calls over a pipe by that of a plain QProcess that writes the same lines
//   to the same program and reads the same answers, one after another (goal: at most 1.5). Each iteration
//   measures a pair; the column is the median over the pairs, and beside it that of this program's share of
//   processor time, which others on the machine disturb less;
// - registered: tools that are registered and listed, of which twenty thousand take as long each as two
//   thousand do.
//
// The server is this program, started with the argument "serve".

#include "../tests/support/eventloop.h"

#include <qtagent/agentsession.h>
#include <qtagent/asynctool.h>
#include <qtagent/mcp/mcpserver.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFutureInterface>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int callCount = 10000;

// The server

void answer(const std::string &id, const char *members)
{
    std::printf("{\"jsonrpc\":\"2.0\",\"id\":%s,%s}\n", id.c_str(), members);
    std::fflush(stdout);
}

std::string idIn(const std::string &line)
{
    const std::size_t begin = line.find("\"id\":") + 5;
    return line.substr(begin, line.find_first_of(",}", begin) - begin);
}

int serve()
{
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line.find("\"tools/call\"") != std::string::npos)
            answer(idIn(line), R"("result":{"content":[{"type":"text","text":"12.5 bar"}]})");
        else if (line.find("\"tools/list\"") != std::string::npos)
            answer(idIn(line), R"("result":{"tools":[{"name":"read","inputSchema":{"type":"object"}}]})");
        else if (line.find("\"initialize\"") != std::string::npos)
            answer(
                idIn(line),
                R"("result":{"protocolVersion":"2025-11-25","capabilities":{"tools":{}},"serverInfo":{}})");
        else if (line.find("\"id\":") != std::string::npos)
            answer(idIn(line), R"("error":{"code":-32601,"message":"Method not found"})");
    }
    return 0;
}

// As a call of the client is written.
QByteArray requestLine(int id)
{
    return QByteArray(R"({"id":%,"jsonrpc":"2.0","method":"tools/call","params":{"_meta":)"
                      R"({"progressToken":%},"arguments":{"deviceId":"Pump-001"},"name":"read"}})"
                      "\n")
        .replace("%", QByteArray::number(id));
}

double plainSeconds()
{
    QProcess server;
    server.start(QCoreApplication::applicationFilePath(), {"serve"});
    // Started is what runs, not what is being linked.
    server.write(requestLine(0));
    while (!server.canReadLine()) {
        if (!server.waitForReadyRead())
            qFatal("The server does not start.");
    }
    server.readLine();
    int answers = 0;
    QElapsedTimer clock;
    QObject::connect(&server, &QProcess::readyReadStandardOutput, &server, [&] {
        while (server.canReadLine()) {
            benchmark::DoNotOptimize(server.readLine());
            if (++answers < callCount)
                server.write(requestLine(answers));
        }
    });
    clock.start();
    server.write(requestLine(0));
    while (answers < callCount)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    server.closeWriteChannel();
    server.waitForFinished();
    return seconds;
}

class Caller
{
public:
    Caller()
    {
        m_server.startProcess(QCoreApplication::applicationFilePath(), {"serve"});
        if (!runUntil([this] { return m_server.isReady(); }) || !m_server.registerTools(&m_registry))
            qFatal("The server is not ready.");
        m_tool = qobject_cast<AsyncTool *>(m_registry.tool("bench__read"));
    }

    double seconds()
    {
        QElapsedTimer clock;
        clock.start();
        call();
        while (m_answers < callCount)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return double(clock.nsecsElapsed()) / 1e9;
    }

private:
    void call()
    {
        ToolReply *reply = m_tool->start({{"deviceId", "Pump-001"}}, &m_registry);
        QObject::connect(reply, &ToolReply::finished, reply, [this, reply](const ToolResult &result) {
            if (!result.success)
                qFatal("%s", qPrintable(result.error));
            reply->deleteLater();
            if (++m_answers < callCount)
                call();
        });
    }

    McpServer m_server{"bench"};
    ToolRegistry m_registry;
    AsyncTool *m_tool = nullptr;
    int m_answers = 0;
};

// What this program has used, in seconds.
double processorTime()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

void callsOverAPipe(benchmark::State &state)
{
    std::vector<double> ratios;
    std::vector<double> processorRatios;
    for (auto _ : state) {
        const double begin = processorTime();
        const double plain = plainSeconds();
        const double between = processorTime();
        const double calls = Caller().seconds();
        state.SetIterationTime(calls);
        ratios.push_back(calls / plain);
        processorRatios.push_back((processorTime() - between) / (between - begin));
    }
    state.counters["ratio"] = median(ratios);
    state.counters["processor_ratio"] = median(processorRatios);
}

// Slow tools

// Asks for the tool "slow", and is satisfied with what it returned.
class AskingModel : public ChatModel
{
public:
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        auto *reply = new ChatReply(parent);
        const bool hasResult = messages.last().role == QLatin1String("tool");
        QTimer::singleShot(0, reply, [reply, hasResult] {
            if (!hasResult)
                reply->setToolCalls(QString(), {makeToolCall("c1", "slow", {})});
            reply->finish(hasResult ? QString("done") : QString());
        });
        return reply;
    }
};

QFuture<ToolResult> workOnAnotherThread(const QJsonObject & /*arguments*/)
{
    QFutureInterface<ToolResult> work;
    work.reportStarted();
    std::thread([work]() mutable {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        ToolResult result;
        result.success = true;
        work.reportFinished(&result);
    }).detach();
    return work.future();
}

void gapBesideASlowTool(benchmark::State &state)
{
    double longestMs = 0;
    for (auto _ : state) {
        AskingModel model;
        ToolRegistry registry;
        registry.registerTool(
            new FutureTool("slow", "", {}, ToolPermission::ReadOnly, &workOnAnotherThread, &registry));
        AgentSession session;
        session.setModel(&model);
        session.setToolRegistry(&registry);
        session.send("question");
        QTimer turns;
        turns.start(1);
        QElapsedTimer turn;
        turn.start();
        while (session.isRunning()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            longestMs = std::max(longestMs, double(turn.nsecsElapsed()) / 1e6);
            turn.restart();
        }
    }
    state.counters["gap_ms"] = longestMs;
}

// A registry

void registered(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        QObject owner;
        std::vector<AgentTool *> tools;
        for (int i = 0; i < state.range(0); ++i)
            tools.push_back(new FunctionTool(
                QString("tool%1").arg(i), "", {}, ToolPermission::ReadOnly,
                [](const QJsonObject &) { return ToolResult(); }, &owner));
        ToolRegistry registry;
        state.ResumeTiming();
        for (AgentTool *tool : tools)
            registry.registerTool(tool);
        benchmark::DoNotOptimize(registry.definitions());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(registered)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(gapBesideASlowTool)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(callsOverAPipe)->Iterations(9)->Unit(benchmark::kMillisecond)->UseManualTime();

int main(int argc, char **argv)
{
    if (argc == 2 && !qstrcmp(argv[1], "serve"))
        return serve();
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
