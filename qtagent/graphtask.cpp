#include "graphexecution_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A reply for a task that is over; it deletes itself, for the task may be gone before it fails.
ChatReply *lateReply()
{
    ChatReply *reply = ChatReply::failLater(QStringLiteral("The task has ended."), nullptr);
    reply->whenEnded(reply, [reply](const ChatResult &) { reply->deleteLater(); });
    return reply;
}

} // namespace

GraphTask::GraphTask(const QString &node, const QString &branch, const Checkpoint &checkpoint,
                     GraphExecution *execution, QObject *parent)
    : QObject(parent)
    , m_node(node)
    , m_branch(branch)
    , m_checkpoint(checkpoint)
    , m_execution(execution)
{}

GraphTask::~GraphTask()
{
    if (m_execution)
        m_execution->taskFailed(*this, QStringLiteral("abandoned"));
}

QString GraphTask::node() const
{
    return m_node;
}

QString GraphTask::branch() const
{
    return m_branch;
}

QString GraphTask::threadId() const
{
    return m_checkpoint.threadId;
}

QJsonObject GraphTask::state() const
{
    return m_checkpoint.state;
}

qint32 GraphTask::attempt() const
{
    return m_checkpoint.attempt;
}

bool GraphTask::isRunning() const
{
    return m_execution;
}

void GraphTask::finish(const QJsonObject &update)
{
    const QPointer<GraphExecution> execution = std::exchange(m_execution, nullptr);
    if (!execution)
        return;
    execution->taskFinished(*this, update);
    cancelReplies();
}

void GraphTask::fail(const QString &error)
{
    const QPointer<GraphExecution> execution = std::exchange(m_execution, nullptr);
    if (!execution)
        return;
    execution->taskFailed(*this, error);
    cancelReplies();
}

void GraphTask::cancel()
{
    const QPointer<GraphTask> self(this);
    if (std::exchange(m_execution, nullptr)) {
        cancelReplies();
        if (self)
            Q_EMIT canceled();
    }
    if (self)
        deleteLater();
}

void GraphTask::cancelReplies()
{
    const QVector<QPointer<ChatReply>> replies = std::exchange(m_replies, {});
    for (const QPointer<ChatReply> &reply : replies) {
        if (reply && reply->isRunning())
            reply->cancel();
    }
}

ChatReply *GraphTask::ask(ChatModel *model, const QVector<ChatMessage> &messages, const QString &key)
{
    const QPointer<GraphTask> self(this);
    // It may lie in what dies while the model is asked.
    const QString answerKey = key; // NOLINT(performance-unnecessary-copy-initialization)
    ChatReply *reply = isRunning() ? sendTo(model, messages) : nullptr;
    if (self && reply)
        follow(reply, answerKey);
    return reply ? reply : lateReply();
}

// Returns null where the task was over before the model returned.
ChatReply *GraphTask::sendTo(ChatModel *model, const QVector<ChatMessage> &messages)
{
    if (!model)
        return ChatReply::failLater(QStringLiteral("There is no model to ask."), this);
    const QPointer<GraphTask> self(this);
    const QPointer<ChatModel> asked(model);
    ChatReply *reply = model->chat(messages, {}, this);
    if (!self)
        return nullptr;
    if (!isRunning()) {
        if (reply)
            reply->cancel();
        return nullptr;
    }
    if (!reply)
        return ChatReply::failLater(QStringLiteral("Model returned no reply."), this);
    const auto fail = [reply] { reply->fail(QStringLiteral("The model was deleted.")); };
    if (asked)
        connect(asked, &QObject::destroyed, reply, fail, Qt::QueuedConnection);
    else
        QTimer::singleShot(0, reply, fail);
    return reply;
}

void GraphTask::follow(ChatReply *reply, const QString &key)
{
    m_replies.append(reply);
    connect(reply, &ChatReply::deltaReceived, this, [this](const QString &delta) {
        if (m_execution)
            m_execution->deltaArrived(*this, delta);
    });
    reply->whenEnded(this, [this, key](const ChatResult &result) { endWith(result, key); });
}

void GraphTask::endWith(const ChatResult &result, const QString &key)
{
    switch (result.end) {
    case ChatResult::End::Finished:
        return finish({{key, result.text}});
    case ChatResult::End::Failed:
        return fail(result.error);
    case ChatResult::End::Canceled:
        return fail(QStringLiteral("The reply was canceled."));
    case ChatResult::End::Deleted:
        return fail(QStringLiteral("The reply was deleted."));
    }
}

} // namespace QtAgent
} // namespace MireloQtLib
