// Shows that servers leave nothing behind: qtagent-mcp-soak [STARTS], 1,000 by default. A server is started,
// listed, called and, by turns, stopped, deleted while a call runs, and killed by itself. The exit status is
// 1 where a process or a descriptor is left, or memory has grown by more than the smallest QObject a start.

#include "support/heapusage.h"
#include "support/mcpfixture.h"
#include "support/mcpscript.h"
#include "support/processtable.h"

#include <cstdio>

using namespace MireloQtLib::QtAgent;

namespace {

McpScript script()
{
    McpScript script = McpScript::legacy(
        "2025-11-25", {McpScript::tool("echo"), McpScript::tool("die"), McpScript::tool("wait")});
    script.on("tools/call echo", {McpScript::textResult("hello")})
        .on("tools/call die", {McpScript::exit(1)})
        .on("tools/call wait", {});
    return script;
}

// Returns whether the server did what it was to do.
bool start(McpScript &script, int round)
{
    McpFixture mcp;
    if (!mcp.openScript(script).isEmpty() || mcp.result("echo").content != "hello")
        return false;
    if (round % 3 == 0)
        mcp.stop();
    else if (round % 3 == 1)
        mcp.call("wait");
    else
        return mcp.result("die").error == "MCP server ended. Program ended with code 1.";
    return true;
}

struct Remains
{
    qint64 heap = 0;
    int descriptors = 0;
    int processes = 0;
};

Remains remains()
{
    runUntilQuiet();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return {heapUsage().value_or(0), openDescriptors(), int(childProcesses().size())};
}

bool print(int rounds, const Remains &before, const Remains &after)
{
    constexpr qint64 bytesPerRound = 64;
    constexpr qint64 slack = 128 * 1024;
    const bool holds = after.processes == 0 && after.descriptors == before.descriptors
                    && after.heap - before.heap <= slack + rounds * bytesPerRound;
    std::printf("%d starts: %d processes left, %d descriptors more, heap grown by %.1f KB%s\n", rounds,
                after.processes, after.descriptors - before.descriptors,
                double(after.heap - before.heap) / 1024, holds ? "" : ": FAILED");
    return holds;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? QByteArray(argv[1]).toInt() : 1000;
    constexpr int warmUp = 30;
    McpScript played = script();
    Remains before;
    for (int round = -warmUp; round < rounds; ++round) {
        if (round == 0)
            before = remains();
        if (!start(played, round + warmUp)) {
            std::printf("start %d failed\n", round);
            return EXIT_FAILURE;
        }
    }
    return print(rounds, before, remains()) ? EXIT_SUCCESS : EXIT_FAILURE;
}
