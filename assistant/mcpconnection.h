#ifndef ORVANE_MCPCONNECTION_H
#define ORVANE_MCPCONNECTION_H

#include "toolsettings.h"

#include <qtagent/mcp/mcpserver.h>

#include <QObject>

/// A server of tools that runs as the user has set it up.
///
/// Whoever sets a server up agrees to the tools that it lists first. What comes later, or says something else
/// about itself, waits until the user agrees to it: what a tool says is read by the model.
class McpConnection : public QObject
{
    Q_OBJECT

public:
    /// Starts the server that @p settings name. changed() follows from the event loop.
    explicit McpConnection(const McpServerSettings &settings, QObject *parent = nullptr);
    ~McpConnection() override;

    /// Returns them with what the user has agreed to.
    const McpServerSettings &settings() const;

    /// Offers other tools from now on: without the @p hidden ones, and with those that the user agreed to,
    /// @p agreed, besides those of before.
    void choose(const QStringList &hidden, const QMap<QString, QString> &agreed);

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

    /// Returns what the tool with this name says about itself, as the server wrote it.
    QString toolText(const QString &name) const;

    /// Returns whether the user has agreed to what the tool with this name says.
    bool isAgreed(const QString &name) const;

    /// Returns the names of the tools that wait for the user, without those that are hidden.
    QStringList waitingTools() const;

    /// Returns these names for the user, on one line, cut where they are long.
    QString waitingText() const;

    /// Registers those of its tools that are neither hidden nor waiting with @p registry.
    void registerTools(MireloQtLib::QtAgent::ToolRegistry *registry) const;

Q_SIGNALS:
    /// Its state or its tools are others.
    void changed();

    /// The server has listed its tools for the first time, and settings() name them.
    void toolsAgreed();

    /// Other tools than before wait for the user: waitingTools().
    void toolsWaiting();

private:
    void start();
    void takeTools();
    void agreeToFirstTools();
    void tellWaiting();
    void takeEnd(const QString &error);

    McpServerSettings m_settings;
    MireloQtLib::QtAgent::McpServer *const m_server;
    MireloQtLib::QtAgent::ToolRegistry *const m_all;
    QString m_error;
    QStringList m_toldWaiting;
    bool m_isOver = false;
};

#endif
