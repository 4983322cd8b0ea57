#ifndef MIRELOQTLIB_QTAGENT_CHATMESSAGE_H
#define MIRELOQTLIB_QTAGENT_CHATMESSAGE_H

#include <qtagent/qtagent_export.h>
#include <qtagent/tooldefinition.h>

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
    /// Data that travels with the message inside the program. It is never sent, except for the reasoning of
    /// an answer with tool calls where RequestOptions::keepReasoning asks for it.
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

} // namespace QtAgent
} // namespace MireloQtLib

// It needs what stands above, and whoever includes this header has always found it here.
#include <qtagent/messagejson.h>

#endif
