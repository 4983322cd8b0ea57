#ifndef ORVANE_MCPCONNECTION_H
#define ORVANE_MCPCONNECTION_H

#include "toolsettings.h"

#include <qtagent/mcp/mcpserver.h>

#include <QObject>

/// A server of tools that runs as the user has set it up.
class McpConnection : public QObject
{
    Q_OBJECT

public:
    /// Starts the server that @p settings name. changed() follows from the event loop.
    explicit McpConnection(const McpServerSettings &settings, QObject *parent = nullptr);
    ~McpConnection() override;

    const McpServerSettings &settings() const;

    /// Returns whether the server has ended, or never came up.
    bool isOver() const;

    /// Starts the server again where it isOver(). changed() is emitted, and again from the event loop.
    void restart();

    /// Ends the server and deletes this object once it is over, which may take seconds.
    void endAndDelete();

    /// Returns what the user is told of its state.
    QString stateText() const;

    /// Returns what the server has said besides, for the user, as plain text.
    QString words() const;

    /// Returns the server's own names of its tools.
    QStringList toolNames() const;

    /// Registers those of its tools that are not hidden with @p registry.
    void registerTools(MireloQtLib::QtAgent::ToolRegistry *registry) const;

Q_SIGNALS:
    /// Its state or its tools are others.
    void changed();

private:
    void start();
    void takeTools();
    void takeEnd(const QString &error);

    const McpServerSettings m_settings;
    MireloQtLib::QtAgent::McpServer *const m_server;
    MireloQtLib::QtAgent::ToolRegistry *const m_all;
    QString m_error;
    bool m_isOver = false;
};

#endif
