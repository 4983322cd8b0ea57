#include "tourmodel.h"

#include <QTimer>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

const QLatin1String markdownAnswer(
    "## Valves\n\nA *valve* **opens** and closes a pipe:\n\n1. gate valves\n2. ball valves\n\n"
    "| Valve | Turns |\n|---|---|\n| gate | many |\n| ball | a quarter |\n\n"
    "```cpp\nvoid close(Valve *valve)\n{\n    valve->turn(90);\n}\n```\n\nSee [the "
    "manual](https://example.com).");

QString lastQuestion(const QVector<ChatMessage> &messages)
{
    const auto question = std::find_if(messages.crbegin(), messages.crend(), [](const ChatMessage &message) {
        return message.role == QLatin1String("user");
    });
    return question == messages.crend() ? QString() : question->content;
}

void finish(CompletionReply *reply, const QString &text, const QString &reason = QStringLiteral("stop"))
{
    reply->setFinishReason(reason);
    reply->setUsage({120, 48, -1});
    reply->appendDelta(text);
    reply->finish(text);
}

void refuse(CompletionReply *reply, const QString &text)
{
    reply->setRefusal(text);
    finish(reply, text);
}

void fail(CompletionReply *reply, int status)
{
    ChatFailure failure;
    failure.httpStatus = status;
    failure.networkError = status ? 0 : 1;
    failure.message = QStringLiteral("The service says no (%1).").arg(status);
    reply->setFailure(failure);
    reply->fail(failure.message);
}

void call(CompletionReply *reply, const QString &tool, const QJsonObject &arguments)
{
    reply->setToolCalls(QString(), {makeToolCall(QStringLiteral("call-1"), tool, arguments)});
    reply->finish(QString());
}

void answer(CompletionReply *reply, const QString &question, bool hasResult)
{
    const QStringList words = question.split(QLatin1Char(' '));
    const QString &script = words.first();
    if (hasResult)
        finish(reply, QStringLiteral("Done."));
    else if (script == QLatin1String("half"))
        reply->appendDelta(QStringLiteral("A valve opens and"));
    else if (script == QLatin1String("cut"))
        finish(reply, QStringLiteral("A valve opens and"), QStringLiteral("length"));
    else if (script == QLatin1String("refuse"))
        refuse(reply, QStringLiteral("I will not."));
    else if (script == QLatin1String("wait"))
        return;
    else if (script == QLatin1String("fail"))
        fail(reply, words.value(1).toInt());
    else if (script == QLatin1String("clock"))
        call(reply, script, {});
    else if (script == QLatin1String("write"))
        call(reply, QStringLiteral("write_file"),
             {{QStringLiteral("path"), QStringLiteral("valves.md")},
              {QStringLiteral("content"), QStringLiteral("# Valves\n\nValve 7 leaks.\n")}});
    else
        finish(reply, markdownAnswer);
}

} // namespace

TourModel::TourModel(QObject *parent)
    : ChatModel(parent)
{}

TourModel::~TourModel() = default;

ChatReply *TourModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                           QObject *parent)
{
    auto *reply = new CompletionReply(parent ? parent : this);
    const QString question = lastQuestion(messages);
    const bool hasResult = !messages.isEmpty() && messages.last().role == QLatin1String("tool");
    QTimer::singleShot(0, reply, [reply, question, hasResult] {
        if (question.startsWith(QLatin1String("think")))
            reply->appendReasoning(QStringLiteral("The user wants to know what a valve is."));
        answer(reply, question, hasResult);
    });
    return reply;
}
