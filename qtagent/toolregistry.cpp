#include "toolregistry.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool refuse(const QString &reason, QString *error)
{
    if (error)
        *error = reason;
    return false;
}

} // namespace

ToolRegistry::ToolRegistry(QObject *parent)
    : QObject(parent)
{}

ToolRegistry::~ToolRegistry() = default;

bool ToolRegistry::registerTool(AgentTool *tool, QString *error)
{
    if (!tool)
        return refuse(QStringLiteral("Tool is null."), error);
    const QString name = tool->name();
    if (name.trimmed().isEmpty())
        return refuse(QStringLiteral("Tool name is empty."), error);
    if (this->tool(name))
        return refuse(QStringLiteral("Tool already registered: %1").arg(name), error);

    if (!tool->parent())
        tool->setParent(this);
    m_order.removeOne(name);
    m_order.append(name);
    m_tools.insert(name, tool);
    return true;
}

AgentTool *ToolRegistry::tool(const QString &name) const
{
    return m_tools.value(name);
}

QVector<ToolDefinition> ToolRegistry::definitions() const
{
    QVector<ToolDefinition> definitions;
    for (const QString &name : m_order) {
        if (const AgentTool *tool = this->tool(name))
            definitions.append({tool->name(), tool->description(), tool->parameters(), tool->permission()});
    }
    return definitions;
}

} // namespace QtAgent
} // namespace MireloQtLib
