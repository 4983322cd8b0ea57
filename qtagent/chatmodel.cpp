#include "chatmodel.h"

#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

ChatReply::ChatReply(QObject *parent)
    : QObject(parent)
{}

ChatReply::~ChatReply() = default;

bool ChatReply::isCanceled() const
{
    return m_canceled;
}

QString ChatReply::text() const
{
    return m_text;
}

QJsonObject ChatReply::response() const
{
    return m_response;
}

bool ChatReply::isOver() const
{
    return m_canceled || m_ended;
}

// The arguments below are copied before they are emitted: a caller may pass something that dies with
// the reply, and a slot may delete the reply.

void ChatReply::appendDelta(const QString &delta)
{
    if (isOver())
        return;
    const QString piece = delta;
    m_text += piece;
    Q_EMIT deltaReceived(piece);
}

void ChatReply::setResponse(const QJsonObject &response)
{
    const QJsonObject received = response;
    m_response = received;
    Q_EMIT responseReceived(received);
}

void ChatReply::finish(const QString &text)
{
    if (isOver())
        return;
    const QString whole = text;
    m_ended = true;
    m_text = whole;
    Q_EMIT finished(whole);
}

void ChatReply::fail(const QString &error)
{
    if (isOver())
        return;
    const QString report = error;
    m_ended = true;
    Q_EMIT failed(report);
}

ChatReply *ChatReply::failLater(const QString &error, QObject *parent)
{
    auto *reply = new ChatReply(parent);
    QTimer::singleShot(0, reply, [reply, error] { reply->fail(error); });
    return reply;
}

void ChatReply::cancel()
{
    if (m_canceled)
        return;
    m_canceled = true;
    Q_EMIT canceled();
}

ChatModel::ChatModel(QObject *parent)
    : QObject(parent)
{}

ChatModel::~ChatModel() = default;

void ChatModel::setConfig(const ModelConfig &config)
{
    m_config = config;
}

const ModelConfig &ChatModel::config() const
{
    return m_config;
}

} // namespace QtAgent
} // namespace MireloQtLib
