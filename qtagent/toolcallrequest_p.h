#ifndef MIRELOQTLIB_QTAGENT_TOOLCALLREQUEST_P_H
#define MIRELOQTLIB_QTAGENT_TOOLCALLREQUEST_P_H

#include <QJsonObject>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

// One tool call that a model asked for.
struct ToolCallRequest
{
    QString id;
    QString name;
    QJsonObject arguments;
    // The text of the arguments as the model sent it, empty where it sent none.
    QString rawArguments;
};

// One of the calls of a response, on its way to its tool.
struct PendingCall : ToolCallRequest
{
    // Why the arguments could not be read, else empty.
    QString error;
    // Its number in the response.
    int index = 0;
};

// Reads @p toolCall, an element of a response's "tool_calls". A call without an id gets a new one. Its
// arguments may be a text that holds a JSON object, such an object itself, or null, a blank text or nothing,
// which are no arguments. Where it has no function name, or other arguments, the error says why, and the
// arguments are empty.
PendingCall parseToolCall(const QJsonObject &toolCall);

// Returns @p toolCall, which was read as @p call, as a strict server takes it back: with an id, a type, and
// arguments that are a text, "{}" where they could not be read. What is there already stays as it came.
QJsonObject completedToolCall(const QJsonObject &toolCall, const PendingCall &call);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
