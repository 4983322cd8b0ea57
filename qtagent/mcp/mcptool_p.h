#ifndef MIRELOQTLIB_QTAGENT_MCPTOOL_P_H
#define MIRELOQTLIB_QTAGENT_MCPTOOL_P_H

#include "mcpserverprivate_p.h"

namespace MireloQtLib {
namespace QtAgent {

// A tool of a server, as it is offered to a model. It is a child of its McpServer, and as unchangeable as
// what the host was asked about.
class McpTool : public AsyncTool
{
    Q_OBJECT

public:
    McpTool(McpServerPrivate *server, const QString &offeredName, const CatalogEntry &entry, QObject *parent);

    QString name() const override;
    QString description() const override;
    QJsonObject parameters() const override;
    ToolPermission permission() const override;
    ToolReply *start(const QJsonObject &arguments, QObject *parent) override;

private:
    McpServerPrivate *const m_server;
    const QString m_offeredName;
    const CatalogEntry m_entry;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
