#include "toolcatalog_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool isSameTool(const CatalogEntry &left, const CatalogEntry &right)
{
    return left.definition.name == right.definition.name
        && left.definition.description == right.definition.description
        && left.definition.parameters == right.definition.parameters && left.problem == right.problem;
}

QJsonObject schemaOf(const QJsonObject &tool)
{
    const QJsonValue schema = tool.value(QLatin1String("inputSchema"));
    // Services want a schema, also of a tool without arguments.
    return schema.isObject() ? schema.toObject()
                             : QJsonObject{{QStringLiteral("type"), QStringLiteral("object")}};
}

bool needsTask(const QJsonObject &tool)
{
    const QJsonObject execution = tool.value(QLatin1String("execution")).toObject();
    return execution.value(QLatin1String("taskSupport")) == QLatin1String("required");
}

CatalogEntry entryOf(const QJsonObject &tool, bool usesHeaders)
{
    CatalogEntry entry;
    entry.definition.name = tool.value(QLatin1String("name")).toString();
    entry.definition.description = tool.value(QLatin1String("description")).toString();
    entry.definition.parameters = schemaOf(tool);
    const bool hasValidHeaders = readHeaderParameters(entry.definition.parameters, &entry.headers);
    if (entry.definition.name.isEmpty())
        entry.problem = QStringLiteral("Tool name is empty.");
    else if (needsTask(tool))
        entry.problem = QStringLiteral("Tool runs as a task only.");
    else if (usesHeaders && !hasValidHeaders)
        entry.problem = QStringLiteral("Tool asks for headers that are not valid.");
    return entry;
}

} // namespace

ToolCatalog::Changes ToolCatalog::update(const QJsonArray &tools, bool usesHeaders)
{
    const QVector<CatalogEntry> before = std::exchange(m_entries, {});
    m_positions.clear();
    for (const QJsonValue &tool : tools)
        append(entryOf(tool.toObject(), usesHeaders));

    Changes changes;
    int same = 0;
    for (const CatalogEntry &old : before) {
        const int position = m_positions.value(old.definition.name, -1);
        if (position >= 0 && isSameTool(old, m_entries.at(position))) {
            m_entries[position].tool = old.tool;
            ++same;
        } else if (old.problem.isEmpty()) {
            changes.withdrawn.append(old.definition.name);
            changes.tools.append(old.tool);
        }
    }
    changes.isAny = !changes.withdrawn.isEmpty() || same != m_positions.size();
    return changes;
}

void ToolCatalog::append(CatalogEntry entry)
{
    const QString name = entry.definition.name;
    if (entry.problem.isEmpty() && m_positions.contains(name))
        entry.problem = QStringLiteral("Tool is listed twice.");
    if (entry.problem.isEmpty())
        m_positions.insert(name, int(m_entries.size()));
    m_entries.append(entry);
}

const CatalogEntry *ToolCatalog::find(const QString &name) const
{
    const int position = m_positions.value(name, -1);
    return position < 0 ? nullptr : &m_entries.at(position);
}

} // namespace QtAgent
} // namespace MireloQtLib
