#include "faultrun.h"

#include "eventloop.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/replyrecorder.h>

#include <QNetworkReply>

using namespace MireloQtLib::QtAgent;

namespace {

// What goes out with a request that has all options. No text that comes back holds it.
const QString secretHeader = "a header of our own";
const QString secretThought = "a thought of our own";

QVector<ChatMessage> conversationFor(const RequestOptions &options)
{
    QVector<ChatMessage> messages{ChatMessage::user("Hi")};
    if (!options.keepReasoning)
        return messages;
    ChatMessage answer = ChatMessage::assistant("", {makeToolCall("c", "f", {})});
    answer.metadata.insert("reasoning_content", secretThought);
    return messages + QVector<ChatMessage>{answer, ChatMessage::tool("c", "f", "1")};
}

QVector<ToolDefinition> toolsFor(const RequestOptions &options)
{
    return options.streamToolCalls
             ? QVector<ToolDefinition>{{"f", "d", {{"type", "object"}}, ToolPermission::ReadOnly}}
             : QVector<ToolDefinition>();
}

} // namespace

QString faultKey()
{
    return "sk-only-for-the-header";
}

ModelConfig faultConfig(const QString &baseUrl, AnswerMode mode)
{
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.apiKey = faultKey();
    config.model = "m";
    config.stream = mode == AnswerMode::Stream;
    return config;
}

RequestOptions allOptions()
{
    RequestOptions options;
    options.extra = {{"seed", 7}};
    options.without = QStringList{"temperature"};
    options.headers = {{"X-Title", secretHeader.toUtf8()}};
    options.useMaxCompletionTokens = true;
    options.keepReasoning = true;
    options.askForUsage = true;
    options.streamToolCalls = true;
    options.readThinkTags = true;
    options.strictStreams = true;
    options.applyTimeLimit = true;
    options.query = "?run=1";
    return options;
}

QStringList signalsOf(const QString &baseUrl, AnswerMode mode, const RequestOptions &options)
{
    OpenAICompatibleModel model;
    model.setConfig(faultConfig(baseUrl, mode));
    model.setRequestOptions(options);
    const ReplyRecorder recorder(model.chat(conversationFor(options), toolsFor(options), nullptr));
    // As long as something of the request is left, a second outcome could come.
    const bool isOver = runUntil([&] { return recorder.isOver() && !model.findChild<QNetworkReply *>(); });
    runUntilQuiet();
    QStringList log = recorder.lines();
    if (!isOver)
        log += "(nothing more arrives)";
    log.replaceInStrings(baseUrl + "/chat/completions" + options.query, "{url}");
    log.replaceInStrings(faultKey(), "{key}");
    if (!log.filter(secretHeader).isEmpty() || !log.filter(secretThought).isEmpty())
        log += "(a text holds what was only sent)";
    return log;
}

QString failure(const QString &status, const QString &networkError, const QString &response)
{
    QStringList lines{"failed: OpenAI-compatible request failed.", "URL: {url}"};
    if (!status.isEmpty())
        lines.append("HTTP status: " + status);
    if (!networkError.isEmpty())
        lines.append("Network error: " + networkError);
    lines.append("Response: " + response);
    return lines.join("\n");
}
