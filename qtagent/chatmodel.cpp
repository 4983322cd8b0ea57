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

// The arguments below are emitted as copies: a caller may pass something that dies with the reply, and a
// slot may delete the reply.

void ChatReply::appendDelta(const QString &delta)
{
    if (isOver())
        return;
    m_text += delta;
    Q_EMIT deltaReceived(QString(delta));
}

void ChatReply::setResponse(const QJsonObject &response)
{
    m_response = response;
    Q_EMIT responseReceived(QJsonObject(response));
}

void ChatReply::finish(const QString &text)
{
    if (isOver())
        return;
    m_ended = true;
    m_text = text;
    Q_EMIT finished(QString(text));
}

void ChatReply::fail(const QString &error)
{
    if (isOver())
        return;
    m_ended = true;
    Q_EMIT failed(QString(error));
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
