#include "chatmodel.h"

#include "chatcompletion_p.h"

#include <QTimer>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A null content would be left out of a request.
QString notNull(const QString &content)
{
    return content.isNull() ? QLatin1String("") : content;
}

} // namespace

bool operator==(const ChatResult &left, const ChatResult &right)
{
    return left.end == right.end && left.text == right.text && left.error == right.error
        && left.response == right.response;
}

ChatReply::ChatReply(QObject *parent)
    : QObject(parent)
{}

ChatReply::~ChatReply()
{
    for (const Callback &callback : qAsConst(m_callbacks))
        post(callback);
}

bool ChatReply::isRunning() const
{
    return m_end == ChatResult::End::Deleted;
}

bool ChatReply::isCanceled() const
{
    return m_canceled;
}

QString ChatReply::text() const
{
    return m_text;
}

QString ChatReply::error() const
{
    return m_error;
}

QJsonObject ChatReply::response() const
{
    return m_response;
}

QJsonArray ChatReply::toolCalls() const
{
    return toolCallsOf(responseMessage(m_response));
}

ChatMessage ChatReply::message() const
{
    const QJsonObject message = responseMessage(m_response);
    const QJsonArray toolCalls = toolCallsOf(message);
    return ChatMessage::assistant(notNull(toolCalls.isEmpty() ? m_text : contentOf(message)), toolCalls);
}

void ChatReply::whenEnded(QObject *context, const std::function<void(const ChatResult &)> &callback)
{
    if (!context || !callback)
        return;
    removeDeadCallbacks();
    const Callback entry{context, callback, !isRunning()};
    // Behind earlier ones, which wait until the slots of the ending signal have returned.
    if (entry.isLate && m_callbacks.isEmpty())
        post(entry);
    else
        m_callbacks.append(entry);
}

// A long answer may be waited for by many that give up.
void ChatReply::removeDeadCallbacks()
{
    const auto isDead = [](const Callback &callback) { return !callback.context; };
    m_callbacks.erase(std::remove_if(m_callbacks.begin(), m_callbacks.end(), isDead), m_callbacks.end());
}

ChatResult ChatReply::result() const
{
    return {m_end, m_text, m_error, m_response};
}

void ChatReply::tellEnd()
{
    if (m_callbacks.isEmpty())
        return;
    const QPointer<ChatReply> self(this);
    while (self && !m_callbacks.isEmpty()) {
        const Callback callback = m_callbacks.takeFirst();
        if (callback.isLate)
            post(callback);
        else if (callback.context)
            callback.function(result());
    }
}

// Queued calls need no event loop at this moment: the destructor may run after that of the application.
void ChatReply::post(const Callback &callback) const
{
    if (!callback.context)
        return;
    QMetaObject::invokeMethod(
        callback.context, [function = callback.function, result = result()] { function(result); },
        Qt::QueuedConnection);
}

// The arguments below are emitted as copies: a caller may pass something that dies with the reply, and a
// slot may delete the reply.

void ChatReply::appendDelta(const QString &delta)
{
    if (!isRunning())
        return;
    m_text += delta;
    Q_EMIT deltaReceived(QString(delta));
}

void ChatReply::setResponse(const QJsonObject &response)
{
    m_response = response;
    Q_EMIT responseReceived(QJsonObject(response));
}

void ChatReply::setToolCalls(const QString &content, const QJsonArray &toolCalls)
{
    setResponse(toolCallResponse(notNull(content), toolCalls));
}

void ChatReply::finish(const QString &text)
{
    if (!isRunning())
        return;
    const QPointer<ChatReply> self(this);
    m_end = ChatResult::End::Finished;
    m_text = text;
    Q_EMIT finished(QString(text));
    if (self)
        tellEnd();
}

void ChatReply::fail(const QString &error)
{
    if (!isRunning())
        return;
    const QPointer<ChatReply> self(this);
    m_end = ChatResult::End::Failed;
    m_error = error;
    Q_EMIT failed(QString(error));
    if (self)
        tellEnd();
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
    const QPointer<ChatReply> self(this);
    const bool isEnd = isRunning();
    m_canceled = true;
    if (isEnd)
        m_end = ChatResult::End::Canceled;
    Q_EMIT canceled();
    if (self && isEnd)
        tellEnd();
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
