#ifndef MIRELOQTLIB_QTAGENT_CHATMESSAGE_H
#define MIRELOQTLIB_QTAGENT_CHATMESSAGE_H

#include <qtagent/qtagent_export.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// One message of a conversation with a language model.
///
/// A conversation is a `QVector<ChatMessage>`, oldest message first:
/// @code
/// const QVector<ChatMessage> conversation{
///     ChatMessage::system(QStringLiteral("You are a concise assistant.")),
///     ChatMessage::user(QStringLiteral("What is a chain?")),
/// };
/// @endcode
struct QTAGENT_EXPORT ChatMessage
{
    Q_GADGET

public:
    /// The speaker as it stands on the wire: "system", "user", "assistant" or "tool".
    QString role;
    /// The text. A null string is left out of the request, an empty one is sent as "".
    QString content;
    /// The name of the tool whose result a "tool" message carries, else empty.
    QString name;
    /// Data that travels with the message inside the program. It is never sent.
    QJsonObject metadata;
    /// The tool calls of an "assistant" message, as the model returned them (see makeToolCall()).
    QJsonArray toolCalls;
    /// The id of the call that a "tool" message answers, else empty.
    QString toolCallId;

    /// Returns an instruction to the model.
    static ChatMessage system(const QString &content);

    /// Returns what the user said.
    static ChatMessage user(const QString &content);

    /// Returns what the model said, with the tool calls that it asked for.
    static ChatMessage assistant(const QString &content, const QJsonArray &toolCalls = {});

    /// Returns the result @p content of the tool @p name, which answers the call @p toolCallId.
    static ChatMessage tool(const QString &toolCallId, const QString &name, const QString &content);

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ChatMessage &left, const ChatMessage &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ChatMessage &left, const ChatMessage &right) { return !(left == right); }
};

/// What a tool may do. Everything but ReadOnly needs the user's approval.
enum class ToolPermission : int {
    /// Reads what the program knows and changes nothing.
    ReadOnly = 0,
    /// Changes data of the program.
    Write = 1,
    /// Deletes, or changes what cannot be restored.
    Destructive = 2,
    /// Sends something to another machine.
    ExternalNetwork = 3,
    /// Reads or writes files.
    FileSystem = 4,
    /// Starts other programs.
    SystemCommand = 5,
};

/// Returns the enumerator's name, for example "FileSystem", or "Unknown" for any other value.
QTAGENT_EXPORT QString permissionToString(ToolPermission permission);

/// Returns whether a tool with @p permission may run only after the user allowed it: true for
/// every value but ToolPermission::ReadOnly, unknown values included.
QTAGENT_EXPORT bool requiresApproval(ToolPermission permission);

/// A tool as it is offered to a model.
struct QTAGENT_EXPORT ToolDefinition
{
    Q_GADGET

public:
    /// The name under which the model calls the tool.
    QString name;
    /// What the tool does, written for the model.
    QString description;
    /// The JSON Schema object of the tool's arguments.
    QJsonObject parameters;
    /// What the tool may do.
    ToolPermission permission = ToolPermission::ReadOnly;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ToolDefinition &left, const ToolDefinition &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ToolDefinition &left, const ToolDefinition &right)
    {
        return !(left == right);
    }
};

/// Returns @p message as an element of a request's "messages": "role" always, "content" unless it
/// is null, "name", "tool_call_id" and "tool_calls" unless they are empty.
QTAGENT_EXPORT QJsonObject messageToJson(const ChatMessage &message);

/// Returns @p definition as an element of a request's "tools". The permission is not sent.
QTAGENT_EXPORT QJsonObject toolDefinitionToJson(const ToolDefinition &definition);

/// Returns a tool call as a model sends it: "id", "type" and "function", in which "arguments" is
/// the compact JSON text of @p arguments.
QTAGENT_EXPORT QJsonObject makeToolCall(const QString &id, const QString &name, const QJsonObject &arguments);

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ToolPermission)

#endif
