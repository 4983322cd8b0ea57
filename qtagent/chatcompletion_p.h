#ifndef MIRELOQTLIB_QTAGENT_CHATCOMPLETION_P_H
#define MIRELOQTLIB_QTAGENT_CHATCOMPLETION_P_H

#include <qtagent/chatmodel.h>
#include <qtagent/requestoptions.h>

#include <QByteArray>
#include <QJsonParseError>

namespace MireloQtLib {
namespace QtAgent {

// The JSON of the chat-completions protocol.

/// Returns @p messages as they are sent.
QJsonArray messagesToJson(const QVector<ChatMessage> &messages);

/// Returns the compact body of a request with @p messages as they are sent.
QByteArray requestBody(const ModelConfig &config, const QJsonArray &messages,
                       const QVector<ToolDefinition> &tools, bool stream, const RequestOptions &options);

/// Returns the compact body of a request without options.
QByteArray requestBody(const ModelConfig &config, const QVector<ChatMessage> &messages,
                       const QVector<ToolDefinition> &tools, bool stream);

/// Returns "choices"[0]."message" of a whole response, or an empty object.
QJsonObject responseMessage(const QJsonObject &response);

/// Returns the text at "content" of a message.
QString contentOf(const QJsonObject &message);

/// Returns the array at "tool_calls" of a message.
QJsonArray toolCallsOf(const QJsonObject &message);

/// Returns a whole response whose message says @p content and asks for @p toolCalls.
QJsonObject toolCallResponse(const QString &content, const QJsonArray &toolCalls);

/// Which of several choices counts: the first one, or the first one with the index 0 or without an index.
enum class ChoiceRule { First, IndexZero };

/// Returns the choice that counts of a response or of a stream's event, or an empty object.
QJsonObject choiceOf(const QJsonObject &object, ChoiceRule rule);

/// Returns whether QByteArray::trimmed() takes @p character away.
constexpr bool isWhiteSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// Returns what a user should read of @p body in an error report.
QString bodySummary(const QByteArray &body);

/// Returns the report of an answer that is not the JSON it should be.
QString invalidJsonReport(const QJsonParseError &error, const QByteArray &body);

/// Keeps as much of a body as bodySummary() needs: all of what may be JSON, the beginning of everything else.
class SummarizedBody
{
public:
    /// Adds received bytes.
    void append(const QByteArray &bytes);

    /// Returns bytes with the same bodySummary() as all that were appended.
    const QByteArray &bytes() const;

private:
    enum class Form { Unknown, Json, Text };

    const char *appendBeginning(const char *begin, const char *end);
    void appendText(const char *begin, const char *end);

    Form m_form = Form::Unknown;
    QByteArray m_bytes;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
