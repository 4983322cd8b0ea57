#include "scriptedmodel.h"

#include "replyplayer_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

ReplyStep deltaStep(const QString &piece, int pauseMs = 0)
{
    return {pauseMs, [piece](ChatReply *reply) { reply->appendDelta(piece); }};
}

ReplyStep finishStep(const QString &text)
{
    return {0, [text](ChatReply *reply) { reply->finish(text); }};
}

ReplyStep failureStep(const QString &error)
{
    return {0, [error](ChatReply *reply) { reply->fail(error); }};
}

} // namespace

ScriptedModel::ScriptedModel(QObject *parent)
    : ChatModel(parent)
{}

ScriptedModel::~ScriptedModel() = default;

void ScriptedModel::addText(const QStringList &pieces, int pauseMs)
{
    QVector<ReplyStep> steps;
    for (const QString &piece : pieces)
        steps.append(deltaStep(piece, steps.isEmpty() ? 0 : pauseMs));
    steps.append(finishStep(pieces.join(QString())));
    m_answers.enqueue(steps);
}

void ScriptedModel::addToolCalls(const QJsonArray &toolCalls, const QString &content)
{
    const ReplyStep calls{
        0, [content, toolCalls](ChatReply *reply) { reply->setToolCalls(content, toolCalls); }};
    m_answers.enqueue({calls, deltaStep(content), finishStep(content)});
}

void ScriptedModel::addFailure(const QString &error)
{
    m_answers.enqueue({failureStep(error)});
}

void ScriptedModel::addSilence()
{
    m_answers.enqueue({});
}

QVector<ScriptedModel::Request> ScriptedModel::requests() const
{
    return m_requests;
}

int ScriptedModel::answersLeft() const
{
    return int(m_answers.size());
}

ChatReply *ScriptedModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                               QObject *parent)
{
    m_requests.append({messages, tools});
    QObject *owner = parent ? parent : this;
    if (m_answers.isEmpty())
        return ChatReply::failLater(QStringLiteral("ScriptedModel has no answer left."), owner);
    auto *reply = new ChatReply(owner);
    playLater(m_answers.dequeue(), reply);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
