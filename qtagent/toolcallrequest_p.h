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
    // The text of the arguments as the model sent it.
    QString rawArguments;
};

// Reads @p toolCall, an element of a response's "tool_calls". A call without an id gets a new one. Where
// the call has no function name, or arguments that are not a JSON object, the result is empty and
// @p error says why; otherwise @p error is cleared.
ToolCallRequest parseToolCall(const QJsonObject &toolCall, QString *error);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
