#include "toolset.h"

#include "clocktool.h"
#include "foldertools.h"
#include "mcpconnection.h"

#include <qtagent/toolcalltrace.h>

using namespace MireloQtLib::QtAgent;

namespace {

bool isSameServer(const McpServerSettings &left, const McpServerSettings &right)
{
    return left.name == right.name && left.url == right.url && left.program == right.program
        && left.arguments == right.arguments && left.variables == right.variables;
}

} // namespace

ToolSet::ToolSet(const ToolSettings &settings, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
{
    createOwnTools();
    updateConnections();
    rebuild();
}

ToolSet::~ToolSet() = default;

const ToolSettings &ToolSet::settings() const
{
    return m_settings;
}

void ToolSet::setSettings(const ToolSettings &settings)
{
    const bool hasOtherTools =
        settings.hasClock != m_settings.hasClock || settings.folder != m_settings.folder;
    m_settings = settings;
    if (hasOtherTools)
        createOwnTools();
    updateConnections();
    Q_EMIT connectionsChanged();
    rebuild();
}

ToolRegistry *ToolSet::registry() const
{
    return m_registry;
}

QString ToolSet::explanation(const ApprovalRequest &request) const
{
    const bool isOwn = m_ownTools.contains(m_registry->tool(request.toolName));
    return isOwn && request.toolName == QLatin1String("write_file")
             ? explainWriting(m_folder, request.arguments)
             : QString();
}

const QVector<McpConnection *> &ToolSet::connections() const
{
    return m_connections;
}

// They live on while registries are replaced: the user's answer counts for the tool that was asked about.
void ToolSet::createOwnTools()
{
    for (AgentTool *tool : std::exchange(m_ownTools, {}))
        tool->deleteLater();
    if (m_settings.hasClock)
        m_ownTools.append(createClockTool(this));
    m_folder = Folder(m_settings.folder);
    if (m_folder.isValid())
        m_ownTools += createFolderTools(m_folder, this);
}

void ToolSet::updateConnections()
{
    QVector<McpConnection *> old = std::exchange(m_connections, {});
    for (const McpServerSettings &server : qAsConst(m_settings.servers)) {
        const auto same = std::find_if(old.begin(), old.end(), [&server](const McpConnection *connection) {
            return isSameServer(connection->settings(), server);
        });
        McpConnection *connection = same == old.end() ? nullptr : *same;
        if (connection) {
            old.erase(same);
            connection->choose(server.hiddenTools, server.agreedTools);
        } else {
            connection = new McpConnection(server, this);
            connectTo(connection);
        }
        m_connections.append(connection);
    }
    takeAgreed();
    for (McpConnection *connection : qAsConst(old)) {
        connection->disconnect(this);
        connection->endAndDelete();
    }
}

void ToolSet::connectTo(McpConnection *connection)
{
    connect(connection, &McpConnection::toolsAgreed, this, [this] {
        takeAgreed();
        Q_EMIT settingsChanged();
    });
    connect(connection, &McpConnection::changed, this, &ToolSet::rebuild);
    connect(connection, &McpConnection::changed, this, &ToolSet::connectionsChanged);
    connect(connection, &McpConnection::toolsWaiting, this, [this, connection] {
        Q_EMIT toolsWaiting(connection->settings().name, connection->waitingText());
    });
}

void ToolSet::takeAgreed()
{
    for (int i = 0; i < m_connections.size(); ++i)
        m_settings.servers[i] = m_connections.at(i)->settings();
}

// A registry has no way to take a tool out that lives on.
void ToolSet::rebuild()
{
    ToolRegistry *old = std::exchange(m_registry, new ToolRegistry(this));
    for (AgentTool *tool : qAsConst(m_ownTools))
        m_registry->registerTool(tool);
    for (const McpConnection *connection : qAsConst(m_connections))
        connection->registerTools(m_registry);
    Q_EMIT registryChanged();
    if (old)
        old->deleteLater();
}
