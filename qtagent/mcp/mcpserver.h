#ifndef MIRELOQTLIB_QTAGENT_MCPSERVER_H
#define MIRELOQTLIB_QTAGENT_MCPSERVER_H

#include <qtagent/chatmessage.h>
#include <qtagent/mcp/qtagent_mcp_export.h>
#include <qtagent/toolregistry.h>

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVector>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class McpServerPrivate;

/// The tools of another program, or of a service, that speaks the Model Context Protocol.
///
/// @code
/// auto *files = new McpServer("files", this);
/// connect(files, &McpServer::ready, this, [=] {
///     QString error;
///     if (!files->registerTools(registry, &error))
///         showError(error);
/// });
/// connect(files, &McpServer::ended, this, [this](const QString &error) {
///     if (!error.isEmpty()) // empty after stop()
///         showError(error);
/// });
/// files->startProcess("mcp-server-filesystem", {folder});
/// @endcode
///
/// A server is a program of somebody else's. Nothing that it says about itself is trusted: each of its tools
/// has the permission ToolPermission::ExternalNetwork until setPermission() says otherwise, and what it
/// writes about a tool reaches the model as it is. A tool whose description or schema changes is withdrawn:
/// it is deleted, its permission is forgotten, and toolsChanged() asks the host to look again.
///
/// Servers of the revisions 2024-11-05 to 2025-11-25, which open with a handshake, and of 2026-07-28 are
/// understood, over pipes and over streamable HTTP; the older HTTP+SSE transport is not. Only tools are
/// used. What a server asks of its host is refused, apart from a ping; where it does not take these answers,
/// further ones are dropped.
///
/// The results of its tools:
/// - what the server sends as text is the content; an image or a sound becomes "[image: image/png, 1234
///   bytes]", a resource or a link to one "[resource: URI]", anything else its kind in brackets. Nothing is
///   loaded because a result names it;
/// - structured content is the data;
/// - where the server says that the tool failed, the text is the error and the content is empty.
///
/// A call fails with the server's own words where it refuses the call, and else with one of
/// - "Server is not ready.", before ready() and after ended();
/// - "MCP server ended.", where the server or this object ends while the call runs, followed by a blank and
///   the reason of ended() where there is one;
/// - "MCP server did not answer within 60000 ms.", with the time limit, upon which the server is told that
///   the call is canceled;
/// - "MCP server asked for input.", which is not given;
/// - "MCP server sent an invalid answer.";
/// - "MCP tool has changed.", where the server lost the session and its new list has another tool of this
///   name;
///
/// and over HTTP
/// - "Connection to the MCP server failed: " and the reason;
/// - "MCP server closed the connection before it answered. The call may have run.";
/// - "MCP server answered with HTTP status 503.", with its status, and on a further line what the server
///   says about authorization.
///
/// A call that may have run is never repeated, but for one whose session the server had lost: it is opened
/// anew and the call sent once more.
///
/// A server, its tools and the registry belong to one thread, whose event loop it needs.
class QTAGENT_MCP_EXPORT McpServer : public QObject
{
    Q_OBJECT

public:
    /// Creates a server that is not started. @p name is the host's own word for it, 1 to 24 of the
    /// characters A–Z, a–z, 0–9, _ and -, and stands before the name of every tool. With another name every
    /// start ends with "MCP server name is not valid.".
    explicit McpServer(const QString &name, QObject *parent = nullptr);

    /// Ends a server that runs and deletes its tools. Calls fail with "MCP server ended.", from the event
    /// loop. A program is ended as stop() does it, waiting at most 200 ms for each step. Nothing is emitted.
    ~McpServer() override;

    /// Starts @p program, without a shell, and speaks with it over its standard input and output. Of this
    /// program's environment HOME, LOGNAME, PATH, SHELL, TERM and USER are passed on; @p environment adds to
    /// them or replaces them. ready() or ended() follows from the event loop.
    ///
    /// Where a server runs already, this does nothing but warn.
    void startProcess(const QString &program, const QStringList &arguments = {},
                      const QProcessEnvironment &environment = {});

    /// Speaks with the server at @p url, which begins with https:// or http://. @p headers go to it with
    /// each request, for example {"Authorization", "Bearer ..."}: with headers, plain http is refused but to
    /// this computer. They and the session's id appear in no text, and redirects are not followed. ready() or
    /// ended() follows from the event loop.
    ///
    /// Where a server runs already, this does nothing but warn.
    void connectTo(const QUrl &url, const QMap<QByteArray, QByteArray> &headers = {});

    /// Returns whether calls are possible: from ready() until stop(), or until the server's end. Calls fail
    /// at once where a program ends; ended() follows when what it has started is over, too.
    bool isReady() const;

    /// Returns what the server offers, under its own names, and with the permissions of this moment: to ask
    /// the user about. Empty before the first ready(); after ended() it is what the server offered last.
    QVector<ToolDefinition> tools() const;

    /// Sets what the user is asked about a tool, by its name in tools(); also before the server is started.
    /// ToolPermission::ExternalNetwork is the default, which no hint of the server changes.
    void setPermission(const QString &serverToolName, ToolPermission permission);

    /// Registers every tool of tools() with @p registry that is not registered there. The tools are children
    /// of this object. Their names are this server's name, "__" and the tool's name, in which "_" stands for
    /// everything but A–Z, a–z, 0–9, _ and -. After another start, those that have not changed work on.
    ///
    /// Returns false where a tool was left out, with a line "name: reason" for each in @p error: its name
    /// would have more than 64 characters or is taken, or it cannot be called by this class. Registers
    /// nothing before ready(), "Server is not ready.", and with null, "Tool registry is null.".
    bool registerTools(ToolRegistry *registry, QString *error = nullptr);

    /// Returns what the program has written to its error output, and lines on its standard output that are no
    /// messages: the last 64 KiB since it was started. It is for the user, as plain text, if anybody asks.
    QString errorOutput() const;

    /// Sets how long the server may take to answer one request, in ms: by default 60,000; 0 or less means no
    /// limit. Progress does not extend it. Holds for requests from now on.
    void setTimeLimit(qint64 ms);

public Q_SLOTS:
    /// Ends the server; ended() follows, without an error, once it is over. Calls that run fail with "MCP
    /// server ended." from the event loop. Does nothing where no server runs.
    ///
    /// A program gets 2 s to leave by itself once its standard input is closed, then its process group
    /// is sent SIGTERM, and SIGKILL after 2 s more. On Windows only the program itself is ended.
    void stop();

Q_SIGNALS:
    /// The server may be used: its tools are known.
    void ready();

    /// tools() changed while the server was ready, or is not what it was before this start. Tools that
    /// changed or are gone have been withdrawn; registerTools() registers those that are new.
    void toolsChanged();

    /// The server is over, and may be started again, also in a slot of this signal. Emitted once for each
    /// start, from the event loop. @p error is empty after stop(), and else
    /// - "MCP server name is not valid.";
    /// - "Program could not be started: " and the system's text, "Program ended with code 1.", also for code
    ///   0, or "Program crashed.";
    /// - "Line is too long." where a line of its standard output has more than 16 MiB;
    /// - "Address of the MCP server is neither https nor http.", "Headers go to an https address or to this
    ///   computer only." or "Header name is not valid.";
    /// - "MCP server refused initialize: " or "MCP server refused tools/list: " and its words;
    /// - "MCP server speaks another version of the protocol: " and those that it named;
    /// - "MCP server has more than 64 pages of tools.";
    /// - one of the texts that calls fail with.
    void ended(const QString &error);

private:
    const std::unique_ptr<McpServerPrivate> d;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
