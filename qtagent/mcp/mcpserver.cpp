#include "mcpserver.h"

#include "httptransport_p.h"
#include "mcpserverprivate_p.h"
#include "mcptool_p.h"
#include "stdiotransport_p.h"

#include <QPointer>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool report(const QStringList &problems, QString *error)
{
    if (error)
        *error = problems.join(QLatin1Char('\n'));
    return problems.isEmpty();
}

} // namespace

McpServer::McpServer(const QString &name, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<McpServerPrivate>(this, name))
{}

// The tools ask the private part. Whoever listens to the end of one may delete others.
McpServer::~McpServer()
{
    QVector<QPointer<McpTool>> tools;
    for (McpTool *tool : findChildren<McpTool *>(QString(), Qt::FindDirectChildrenOnly))
        tools.append(tool);
    for (const QPointer<McpTool> &tool : std::as_const(tools))
        delete tool;
}

void McpServer::startProcess(const QString &program, const QStringList &arguments,
                             const QProcessEnvironment &environment)
{
    if (d->isIdle())
        d->start(new StdioTransport(program, arguments, environment));
    else
        qWarning("McpServer: the server is running already.");
}

void McpServer::connectTo(const QUrl &url, const QMap<QByteArray, QByteArray> &headers)
{
    if (d->isIdle())
        d->start(new HttpTransport(url, headers));
    else
        qWarning("McpServer: the server is running already.");
}

bool McpServer::isReady() const
{
    return d->isReady();
}

QVector<ToolDefinition> McpServer::tools() const
{
    return d->tools();
}

void McpServer::setPermission(const QString &serverToolName, ToolPermission permission)
{
    d->setPermission(serverToolName, permission);
}

bool McpServer::registerTools(ToolRegistry *registry, QString *error)
{
    if (!registry)
        return report({QStringLiteral("Tool registry is null.")}, error);
    if (!isReady())
        return report({QStringLiteral("Server is not ready.")}, error);
    return report(d->registerTools(registry), error);
}

QString McpServer::errorOutput() const
{
    return d->errorOutput();
}

void McpServer::setTimeLimit(qint64 ms)
{
    d->setTimeLimit(ms);
}

void McpServer::stop()
{
    d->stop();
}

} // namespace QtAgent
} // namespace MireloQtLib
