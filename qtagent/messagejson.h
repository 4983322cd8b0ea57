#ifndef MIRELOQTLIB_QTAGENT_MESSAGEJSON_H
#define MIRELOQTLIB_QTAGENT_MESSAGEJSON_H

#include <qtagent/chatmessage.h>
#include <qtagent/qtagent_export.h>
#include <qtagent/tooldefinition.h>

#include <QJsonObject>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

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

#endif
