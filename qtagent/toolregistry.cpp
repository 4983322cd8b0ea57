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
    const quint64 place = ++m_lastPlace;
    m_places.insert(name, place);
    m_tools.insert(place, tool);
    connect(tool, &QObject::destroyed, this, [this, name, place] { forget(name, place); });
    return true;
}

// The name may belong to a later tool by now: a slot that learned of the death before may have registered it.
void ToolRegistry::forget(const QString &name, quint64 place)
{
    m_tools.remove(place);
    if (m_places.value(name) == place)
        m_places.remove(name);
}

AgentTool *ToolRegistry::tool(const QString &name) const
{
    return m_tools.value(m_places.value(name));
}

QVector<ToolDefinition> ToolRegistry::definitions() const
{
    QVector<ToolDefinition> definitions;
    // A tool may register another one when it is asked.
    const QMap<quint64, QPointer<AgentTool>> tools = m_tools;
    for (const QPointer<AgentTool> &tool : tools) {
        if (tool)
            definitions.append({tool->name(), tool->description(), tool->parameters(), tool->permission()});
    }
    return definitions;
}

} // namespace QtAgent
} // namespace MireloQtLib
