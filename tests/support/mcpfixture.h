#ifndef QTAGENT_TESTS_MCPFIXTURE_H
#define QTAGENT_TESTS_MCPFIXTURE_H

#include "eventloop.h"

#include <qtagent/asynctool.h>
#include <qtagent/mcp/mcpserver.h>

#include <QtTest>

/// A server named "s", a registry for its tools, and the log of what both tell.
class McpFixture : public QObject
{
public:
    using AsyncTool = MireloQtLib::QtAgent::AsyncTool;
    using McpServer = MireloQtLib::QtAgent::McpServer;
    using ToolRegistry = MireloQtLib::QtAgent::ToolRegistry;
    using ToolReply = MireloQtLib::QtAgent::ToolReply;
    using ToolResult = MireloQtLib::QtAgent::ToolResult;

    McpFixture()
    {
        connect(server, &McpServer::ready, this, [this] { log.append("ready"); });
        connect(server, &McpServer::toolsChanged, this, [this] { log.append("toolsChanged"); });
        connect(server, &McpServer::ended, this,
                [this](const QString &error) { log.append("ended " + error); });
    }

    ~McpFixture() override { delete server; }

    /// Starts what @p start starts, waits until it is ready, and registers its tools. Returns what went
    /// wrong.
    template<typename Start>
    QString open(const Start &start)
    {
        log.clear();
        start();
        if (!runUntil([this] { return !log.isEmpty(); }))
            return "neither ready nor ended";
        QString error;
        if (log.first() != "ready")
            return log.first();
        return server->registerTools(registry, &error) ? QString() : error;
    }

    template<typename Script>
    QString openScript(Script &script)
    {
        return open([this, &script] { script.start(server); });
    }

    /// Calls the server's tool @p name. The reply is logged and belongs to the fixture.
    ToolReply *call(const QString &name, const QJsonObject &arguments = {})
    {
        auto *tool = qobject_cast<AsyncTool *>(registry->tool("s__" + name));
        if (!tool)
            qFatal("There is no tool of this name: %s", qPrintable(name));
        ToolReply *reply = tool->start(arguments, this);
        connect(reply, &ToolReply::progressed, this,
                [this](const QString &text) { log.append("progress " + text); });
        connect(reply, &ToolReply::finished, this, [this](const ToolResult &result) {
            log.append((result.success ? "success " : "failure ") + result.content + result.error);
        });
        connect(reply, &ToolReply::canceled, this, [this] { log.append("canceled"); });
        return reply;
    }

    /// Calls the tool and waits for its result.
    ToolResult result(const QString &name, const QJsonObject &arguments = {})
    {
        ToolReply *reply = call(name, arguments);
        if (!reply->isRunning() || !runUntil([reply] { return !reply->isRunning(); }))
            return {false, {}, {}, "The reply did not finish from the event loop.", {}};
        return reply->result();
    }

    /// Stops the server and waits until it has ended.
    void stop()
    {
        QSignalSpy ended(server, &McpServer::ended);
        server->stop();
        if (!runUntil([&ended] { return !ended.isEmpty(); }))
            qFatal("The server does not end.");
    }

    /// For example "ready", "toolsChanged", "ended ", "progress 1/2", "success text", "failure text".
    QStringList log;

    const QPointer<ToolRegistry> registry{new ToolRegistry(this)};
    const QPointer<McpServer> server{new McpServer("s")};
};

#endif
