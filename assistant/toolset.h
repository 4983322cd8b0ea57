#ifndef ORVANE_TOOLSET_H
#define ORVANE_TOOLSET_H

#include "folder.h"
#include "toolsettings.h"

#include <QObject>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {
class AgentTool;
class ToolRegistry;
struct ApprovalRequest;
} // namespace QtAgent
} // namespace MireloQtLib
class McpConnection;

/// The tools that the user has chosen, offered in a registry.
class ToolSet : public QObject
{
    Q_OBJECT

public:
    /// Offers what @p settings say.
    explicit ToolSet(const ToolSettings &settings, QObject *parent = nullptr);
    ~ToolSet() override;

    /// Returns them with what the user has agreed to.
    const ToolSettings &settings() const;

    /// Offers what @p settings say from now on. Servers that are started in the same way run on, and what the
    /// user has agreed to stays so; calls of the others are cut short.
    void setSettings(const ToolSettings &settings);

    /// Returns the registry, until registryChanged() tells of another one.
    MireloQtLib::QtAgent::ToolRegistry *registry() const;

    /// Tells the user what the call that @p request asks about would do, and to what. Empty where that is not
    /// known.
    QString explanation(const MireloQtLib::QtAgent::ApprovalRequest &request) const;

    /// Returns the servers in the order of the settings.
    const QVector<McpConnection *> &connections() const;

Q_SIGNALS:
    /// Other tools are offered, in another registry. The old one is deleted later.
    void registryChanged();

    /// A server's state or its words may be others.
    void connectionsChanged();

    /// A server has listed its tools for the first time: settings() say so, and are to be kept.
    void settingsChanged();

    /// Tools of the server with this name wait until the user agrees to what they say:
    /// McpConnection::waitingText().
    void toolsWaiting(const QString &server, const QString &tools);

private:
    void createOwnTools();
    void updateConnections();
    void connectTo(McpConnection *connection);
    void takeAgreed();
    void rebuild();

    ToolSettings m_settings;
    Folder m_folder{QString()};
    QVector<McpConnection *> m_connections;
    QVector<MireloQtLib::QtAgent::AgentTool *> m_ownTools;
    MireloQtLib::QtAgent::ToolRegistry *m_registry = nullptr;
};

#endif
