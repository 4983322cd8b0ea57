#include "mcptool_p.h"

namespace MireloQtLib {
namespace QtAgent {

McpTool::McpTool(McpServerPrivate *server, const QString &offeredName, const CatalogEntry &entry,
                 QObject *parent)
    : AsyncTool(parent)
    , m_server(server)
    , m_offeredName(offeredName)
    , m_entry(entry)
{}

QString McpTool::name() const
{
    return m_offeredName;
}

QString McpTool::description() const
{
    return m_entry.definition.description;
}

QJsonObject McpTool::parameters() const
{
    return m_entry.definition.parameters;
}

ToolPermission McpTool::permission() const
{
    return m_server->permission(m_entry.definition.name);
}

ToolReply *McpTool::start(const QJsonObject &arguments, QObject *parent)
{
    return m_server->call(m_entry, arguments, parent);
}

} // namespace QtAgent
} // namespace MireloQtLib
