#include "mcpconnection.h"

#include "beginningof.h"
#include "visibletext.h"

#include <QJsonDocument>
#include <QUrl>

#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

// The registry names a tool "server__tool", with "_" for what does not belong into a name.
QString registeredName(const QString &server, const QString &tool)
{
    QString name = tool;
    for (QChar &character : name) {
        const ushort code = character.unicode();
        const bool isPlain = (code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z')
                          || (code >= '0' && code <= '9') || code == '_' || code == '-';
        if (!isPlain)
            character = QLatin1Char('_');
    }
    return server + QLatin1String("__") + name;
}

QString textOf(const ToolDefinition &tool)
{
    return tool.description + QLatin1Char('\n') + QString::fromUtf8(QJsonDocument(tool.parameters).toJson());
}

} // namespace

McpConnection::McpConnection(const McpServerSettings &settings, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_server(new McpServer(settings.name, this))
    , m_all(new ToolRegistry(this))
{
    connect(m_server, &McpServer::ready, this, &McpConnection::takeTools);
    connect(m_server, &McpServer::toolsChanged, this, &McpConnection::takeTools);
    connect(m_server, &McpServer::ended, this, &McpConnection::takeEnd);
    start();
}

McpConnection::~McpConnection() = default;

void McpConnection::start()
{
    if (!m_settings.url.isEmpty()) {
        QMap<QByteArray, QByteArray> headers;
        for (auto it = m_settings.variables.begin(); it != m_settings.variables.end(); ++it)
            headers.insert(it.key().toUtf8(), it.value().toUtf8());
        m_server->connectTo(QUrl(m_settings.url), headers);
        return;
    }
    QProcessEnvironment environment;
    for (auto it = m_settings.variables.begin(); it != m_settings.variables.end(); ++it)
        environment.insert(it.key(), it.value());
    m_server->startProcess(m_settings.program, m_settings.arguments, environment);
}

const McpServerSettings &McpConnection::settings() const
{
    return m_settings;
}

void McpConnection::choose(const QStringList &hidden, const QMap<QString, QString> &agreed)
{
    m_settings.hiddenTools = hidden;
    for (auto it = agreed.begin(); it != agreed.end(); ++it)
        m_settings.agreedTools.insert(it.key(), it.value());
    m_toldWaiting = waitingTools();
}

bool McpConnection::isOver() const
{
    return m_isOver;
}

void McpConnection::restart()
{
    if (!m_isOver)
        return;
    m_isOver = false;
    m_error.clear();
    start();
    Q_EMIT changed();
}

void McpConnection::endAndDelete()
{
    if (m_isOver)
        return deleteLater();
    connect(m_server, &McpServer::ended, this, &QObject::deleteLater);
    m_server->stop();
}

QString McpConnection::stateText() const
{
    if (m_isOver)
        return m_error.isEmpty() ? tr("已停止") : tr("已停止：%1").arg(m_error);
    if (!m_server->isReady())
        return tr("正在启动…");
    const QString state = tr("可以使用，%n 个工具", nullptr, static_cast<int>(m_server->tools().size()));
    QStringList parts{m_error.isEmpty() ? state : tr("%1；不能使用的：%2").arg(state, m_error)};
    if (!waitingTools().isEmpty())
        parts.append(tr("等待您同意：%1").arg(waitingText()));
    return parts.join(QLatin1Char('\n'));
}

QString McpConnection::words() const
{
    return m_server->errorOutput();
}

QStringList McpConnection::toolNames() const
{
    QStringList names;
    for (const ToolDefinition &tool : m_server->tools())
        names.append(tool.name);
    return names;
}

QString McpConnection::toolText(const QString &name) const
{
    for (const ToolDefinition &tool : m_server->tools()) {
        if (tool.name == name)
            return textOf(tool);
    }
    return {};
}

bool McpConnection::isAgreed(const QString &name) const
{
    return m_settings.agreedTools.value(name) == toolText(name);
}

QStringList McpConnection::waitingTools() const
{
    QStringList waiting;
    for (const ToolDefinition &tool : m_server->tools()) {
        const bool isHidden = m_settings.hiddenTools.contains(tool.name);
        if (!isHidden && m_settings.agreedTools.value(tool.name) != textOf(tool))
            waiting.append(tool.name);
    }
    return waiting;
}

QString McpConnection::waitingText() const
{
    constexpr int maximumLength = 200;
    const QString names = visibleText(waitingTools().join(QStringLiteral(", ")));
    return beginningOf(names.simplified(), maximumLength);
}

void McpConnection::registerTools(ToolRegistry *registry) const
{
    if (!m_server->isReady())
        return;
    QStringList hidden; // two tools may have one registered name
    for (const QString &name : m_settings.hiddenTools + waitingTools())
        hidden.append(registeredName(m_settings.name, name));
    for (const QString &name : toolNames()) {
        const QString registered = registeredName(m_settings.name, name);
        AgentTool *tool = m_all->tool(registered);
        if (tool && !hidden.contains(registered))
            registry->registerTool(tool);
    }
}

void McpConnection::takeTools()
{
    m_server->registerTools(m_all, &m_error);
    agreeToFirstTools();
    Q_EMIT changed();
    tellWaiting();
}

void McpConnection::agreeToFirstTools()
{
    if (!m_settings.agreedTools.isEmpty() || m_server->tools().isEmpty())
        return;
    for (const ToolDefinition &tool : m_server->tools())
        m_settings.agreedTools.insert(tool.name, textOf(tool));
    Q_EMIT toolsAgreed();
}

void McpConnection::tellWaiting()
{
    const QStringList waiting = waitingTools();
    if (waiting != std::exchange(m_toldWaiting, waiting) && !waiting.isEmpty())
        Q_EMIT toolsWaiting();
}

void McpConnection::takeEnd(const QString &error)
{
    m_isOver = true;
    m_error = error;
    Q_EMIT changed();
}
