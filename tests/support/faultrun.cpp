#include "faultrun.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QEventLoop>
#include <QNetworkReply>
#include <QTimer>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int patienceMs = 20000;

// Whether the reply is over and nothing is left of its request, from which a second outcome could come.
bool runUntilOver(ChatReply *reply)
{
    QEventLoop loop;
    QTimer patience;
    QObject::connect(&patience, &QTimer::timeout, &loop, [&loop] { loop.exit(1); });
    patience.start(patienceMs);
    const auto quitOnceOver = [&loop, reply] {
        if (const auto *networkReply = reply->parent()->findChild<QNetworkReply *>())
            QObject::connect(networkReply, &QObject::destroyed, &loop, &QEventLoop::quit,
                             Qt::QueuedConnection);
        else
            QTimer::singleShot(0, &loop, &QEventLoop::quit);
    };
    QObject::connect(reply, &ChatReply::finished, &loop, quitOnceOver);
    QObject::connect(reply, &ChatReply::failed, &loop, quitOnceOver);
    return loop.exec() == 0;
}

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
    ChatReply *reply = model.chat(conversationFor(options), toolsFor(options), nullptr);
    QStringList log;
    QObject::connect(reply, &ChatReply::deltaReceived, reply,
                     [&](const QString &text) { log += "delta " + text; });
    QObject::connect(reply, &ChatReply::responseReceived, reply, [&] { log += "response"; });
    QObject::connect(reply, &ChatReply::finished, reply,
                     [&](const QString &text) { log += "finished " + text; });
    QObject::connect(reply, &ChatReply::failed, reply, [&](const QString &text) { log += "failed " + text; });
    if (!runUntilOver(reply))
        log += "(nothing more arrives)";
    log.replaceInStrings(baseUrl + "/chat/completions" + options.query, "{url}");
    log.replaceInStrings(faultKey(), "{key}");
    if (!log.filter(secretHeader).isEmpty() || !log.filter(secretThought).isEmpty())
        log += "(a text holds what was only sent)";
    return log;
}

QString failure(const QString &status, const QString &networkError, const QString &response)
{
    QStringList lines{"failed OpenAI-compatible request failed.", "URL: {url}"};
    if (!status.isEmpty())
        lines.append("HTTP status: " + status);
    if (!networkError.isEmpty())
        lines.append("Network error: " + networkError);
    lines.append("Response: " + response);
    return lines.join("\n");
}
