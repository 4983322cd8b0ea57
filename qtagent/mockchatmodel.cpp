#include "mockchatmodel.h"

#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int chunkIntervalMs = 45;

struct ScriptedCall
{
    QString toolName;
    QString callId;
    QJsonObject arguments;
};

QVector<ScriptedCall> scriptedCalls()
{
    return {
        {QStringLiteral("find_abnormal_devices"), QStringLiteral("mock_find_abnormal_devices"), {}},
        {QStringLiteral("generate_alarm_summary"), QStringLiteral("mock_generate_alarm_summary"), {}},
        {QStringLiteral("export_report"),
         QStringLiteral("mock_export_report"),
         {{QStringLiteral("fileName"), QStringLiteral("orvane-demo-report.txt")}}},
    };
}

QString lastUserText(const QVector<ChatMessage> &messages)
{
    const auto last = std::find_if(messages.crbegin(), messages.crend(), [](const ChatMessage &message) {
        return message.role == QLatin1String("user");
    });
    return last == messages.crend() ? QString() : last->content;
}

bool isToolMessage(const ChatMessage &message)
{
    return message.role == QLatin1String("tool");
}

QString summaryOfToolResults(const QVector<ChatMessage> &messages)
{
    QStringList lines;
    for (const ChatMessage &message : messages) {
        if (isToolMessage(message) && !message.content.isEmpty())
            lines.append(QStringLiteral("%1: %2").arg(message.name, message.content));
    }
    return MockChatModel::tr("工具调用已完成，结果如下：\n- %1").arg(lines.join(QLatin1String("\n- ")));
}

bool asksForDevices(const QString &userText)
{
    const QStringList keywords{
        QStringLiteral("abnormal"), QStringLiteral("device"), QStringLiteral("report"),
        QStringLiteral("export"),   QStringLiteral("设备"),   QStringLiteral("异常"),
        QStringLiteral("报告"),     QStringLiteral("导出"),
    };
    const QString lowered = userText.toLower();
    return std::any_of(keywords.cbegin(), keywords.cend(),
                       [&lowered](const QString &keyword) { return lowered.contains(keyword); });
}

QJsonArray callsOfOfferedTools(const QVector<ToolDefinition> &tools)
{
    QJsonArray calls;
    for (const ScriptedCall &call : scriptedCalls()) {
        const bool offered = std::any_of(tools.cbegin(), tools.cend(), [&call](const ToolDefinition &tool) {
            return tool.name == call.toolName;
        });
        if (offered)
            calls.append(makeToolCall(call.callId, call.toolName, call.arguments));
    }
    return calls;
}

QStringList chunksOf(const QString &text)
{
    QStringList chunks = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (QString &chunk : chunks)
        chunk.append(QLatin1Char(' '));
    return chunks;
}

void streamChunk(ChatReply *reply, const QStringList &chunks, int index)
{
    if (reply->isCanceled())
        return;
    if (index == chunks.size()) {
        reply->finish(reply->text());
        return;
    }
    const QPointer<ChatReply> guard(reply);
    reply->appendDelta(chunks.at(index));
    if (!guard)
        return;
    QTimer::singleShot(chunkIntervalMs, Qt::PreciseTimer, reply,
                       [reply, chunks, index] { streamChunk(reply, chunks, index + 1); });
}

void streamText(ChatReply *reply, const QString &text)
{
    QTimer::singleShot(0, reply, [reply, chunks = chunksOf(text)] { streamChunk(reply, chunks, 0); });
}

void sendToolCalls(ChatReply *reply, const QJsonArray &toolCalls)
{
    QTimer::singleShot(0, reply, [reply, toolCalls] {
        const QPointer<ChatReply> guard(reply);
        reply->setToolCalls(MockChatModel::tr("我将调用工具完成设备分析。"), toolCalls);
        if (guard)
            reply->finish(QString());
    });
}

} // namespace

MockChatModel::MockChatModel(QObject *parent)
    : ChatModel(parent)
{}

MockChatModel::~MockChatModel() = default;

ChatReply *MockChatModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                               QObject *parent)
{
    auto *reply = new ChatReply(parent ? parent : this);
    if (std::any_of(messages.cbegin(), messages.cend(), isToolMessage)) {
        streamText(reply, summaryOfToolResults(messages));
        return reply;
    }
    if (tools.isEmpty() || !asksForDevices(lastUserText(messages))) {
        streamText(reply, tr("Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，"
                             "因此可以离线测试演示程序。"));
        return reply;
    }
    const QJsonArray toolCalls = callsOfOfferedTools(tools);
    if (toolCalls.isEmpty())
        streamText(reply, tr("当前没有可用的设备分析工具。"));
    else
        sendToolCalls(reply, toolCalls);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
