#ifndef MIRELOQTLIB_QTAGENT_TOOLCATALOG_P_H
#define MIRELOQTLIB_QTAGENT_TOOLCATALOG_P_H

#include "headerparameters_p.h"

#include <qtagent/agenttool.h>

#include <QHash>
#include <QJsonArray>
#include <QPointer>
#include <QStringList>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

// One tool of a server.
struct CatalogEntry
{
    // Under the server's own name; the permission stays aside.
    ToolDefinition definition;
    QVector<HeaderParameter> headers;
    // Why it is not to be used, else empty.
    QString problem;
    // What the host has registered.
    QPointer<AgentTool> tool;
};

// What a server offers, in its order.
class ToolCatalog
{
public:
    struct Changes
    {
        // Whether anything came, went or became another.
        bool isAny = false;
        // The names of tools that went or became others, and what was registered of them.
        QStringList withdrawn;
        QVector<QPointer<AgentTool>> tools;
    };

    // Takes the list over. @p usesHeaders says whether what the tools ask to have in headers goes there.
    Changes update(const QJsonArray &tools, bool usesHeaders);

    QVector<CatalogEntry> &entries() { return m_entries; }
    const QVector<CatalogEntry> &entries() const { return m_entries; }

    // Returns the entry of this name that may be used, or null.
    const CatalogEntry *find(const QString &name) const;

private:
    void append(CatalogEntry entry);

    QVector<CatalogEntry> m_entries;
    // Where those are that may be used.
    QHash<QString, int> m_positions;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
