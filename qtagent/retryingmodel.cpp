#include "retryingmodel.h"

#include "reasoningfields_p.h"

#include <QDeadlineTimer>
#include <QRandomGenerator>
#include <QTimer>

#include <limits>

namespace MireloQtLib {
namespace QtAgent {

// One request and its attempts. It is a child of the reply that the host holds, and owns those of the
// attempts. Every emission may delete the reply, the models and thereby this object.
class RetriedRequest : public QObject
{
public:
    RetriedRequest(RetryingModel *model, CompletionReply *reply, const QVector<ChatMessage> &messages,
                   const QVector<ToolDefinition> &tools)
        : QObject(reply)
        , m_model(model)
        , m_reply(reply)
        , m_messages(messages)
        , m_tools(tools)
    {
        m_wait.setSingleShot(true);
        m_wait.setTimerType(Qt::PreciseTimer);
        connect(&m_wait, &QTimer::timeout, this, &RetriedRequest::waitOn);
        connect(reply, &ChatReply::canceled, this, &RetriedRequest::stop);
        connect(model, &QObject::destroyed, this, &RetriedRequest::stop);
    }

    // Returns what cannot be asked, else an empty text.
    QString attempt()
    {
        ++m_attempt;
        if (!m_model->m_model)
            return QStringLiteral("Model is gone.");
        const QPointer<RetriedRequest> self(this);
        ChatReply *attempt = m_model->m_model->chat(m_messages, m_tools, this);
        if (!self)
            return {};
        // The other model may have called somebody who ended this request.
        if (m_isStopped) {
            m_current = attempt;
            stop();
            return {};
        }
        if (!attempt)
            return QStringLiteral("Model returned no reply.");
        follow(attempt);
        return {};
    }

    void failLater(const QString &error)
    {
        QTimer::singleShot(0, this, [this, error] {
            if (!m_isStopped)
                m_reply->fail(error);
        });
    }

private:
    void follow(ChatReply *attempt)
    {
        m_current = attempt;
        connect(attempt, &ChatReply::deltaReceived, this, [this](const QString &delta) {
            passOnDetails();
            m_reply->appendDelta(delta);
        });
        connect(attempt, &ChatReply::responseReceived, this, [this](const QJsonObject &response) {
            passOnDetails();
            passOnReasoningFields();
            m_reply->setResponse(response);
        });
        connect(attempt, &ChatReply::finished, this, &RetriedRequest::finish);
        connect(attempt, &ChatReply::failed, this, &RetriedRequest::receiveFailure);
        connect(attempt, &ChatReply::canceled, m_reply, &ChatReply::cancel);
        if (auto *completion = qobject_cast<CompletionReply *>(attempt))
            followDetails(completion);
    }

    void followDetails(CompletionReply *attempt)
    {
        connect(attempt, &CompletionReply::reasoningReceived, this, [this](const QString &piece) {
            passOnDetails();
            m_reply->appendReasoning(piece);
        });
        connect(attempt, &CompletionReply::toolCallProgressed, this,
                [this](qint32 index, const QString &name, const QString &argumentsSoFar) {
                    passOnDetails();
                    m_reply->progressToolCall(index, name, argumentsSoFar);
                });
    }

    // What has no signal of its own. From now on the host knows of this attempt.
    void passOnDetails()
    {
        m_isPassedOn = true;
        const auto *attempt = qobject_cast<CompletionReply *>(m_current);
        if (!attempt)
            return;
        m_reply->setFinishReason(attempt->finishReason());
        m_reply->setRefusal(attempt->refusal());
        m_reply->setUsage(attempt->usage());
    }

    // Of which a piece more costs all that came before.
    void passOnReasoningFields()
    {
        if (const auto *attempt = qobject_cast<CompletionReply *>(m_current))
            ReasoningFields::set(m_reply, ReasoningFields::of(*attempt));
    }

    void finish(const QString &text)
    {
        passOnDetails();
        passOnReasoningFields();
        releaseCurrent();
        m_reply->finish(text);
    }

    void receiveFailure(const QString &error)
    {
        const auto *attempt = qobject_cast<CompletionReply *>(m_current);
        const ChatFailure failure = attempt ? attempt->failure() : ChatFailure();
        const bool isLast = m_isPassedOn || m_attempt >= m_model->m_maxAttempts || !failure.isTemporary()
                         || failure.retryAfterMs > m_model->m_maximumWaitMs;
        if (!isLast) {
            releaseCurrent();
            retry(error, failure.retryAfterMs);
            return;
        }
        passOnDetails();
        passOnReasoningFields();
        releaseCurrent();
        m_reply->setFailure(failure);
        m_reply->fail(error);
    }

    void retry(const QString &error, qint64 askedWaitMs)
    {
        const QPointer<RetriedRequest> self(this);
        const qint32 next = m_attempt + 1;
        const qint64 delayMs = askedWaitMs > 0 ? askedWaitMs : m_model->delayBefore(next);
        Q_EMIT m_model->retrying(next, delayMs, error, m_reply);
        if (!self || m_isStopped || !m_reply->isRunning())
            return;
        m_deadline = QDeadlineTimer(delayMs, Qt::PreciseTimer);
        m_wait.start(shortened(delayMs));
    }

    // A timer knows no more than 24 days.
    static int shortened(qint64 ms) { return int(qMin<qint64>(ms, std::numeric_limits<int>::max())); }

    void waitOn()
    {
        if (!m_deadline.hasExpired()) {
            m_wait.start(shortened(m_deadline.remainingTime()));
            return;
        }
        const QPointer<RetriedRequest> self(this);
        const QString error = attempt();
        if (self && !error.isEmpty())
            m_reply->fail(error);
    }

    void releaseCurrent()
    {
        if (!m_current)
            return;
        m_current->disconnect(this);
        m_current->disconnect(m_reply);
        m_current->deleteLater();
        m_current.clear();
    }

    void stop()
    {
        m_isStopped = true;
        m_wait.stop();
        const QPointer<ChatReply> current(m_current);
        releaseCurrent();
        if (current)
            current->cancel();
    }

    RetryingModel *const m_model; // without which this is stopped
    CompletionReply *const m_reply;
    const QVector<ChatMessage> m_messages;
    const QVector<ToolDefinition> m_tools;
    QPointer<ChatReply> m_current;
    QTimer m_wait;
    QDeadlineTimer m_deadline;
    qint32 m_attempt = 0;
    bool m_isPassedOn = false;
    bool m_isStopped = false;
};

RetryingModel::RetryingModel(ChatModel *model, QObject *parent)
    : ChatModel(parent)
    , m_model(model)
{}

RetryingModel::~RetryingModel() = default;

ChatModel *RetryingModel::model() const
{
    return m_model;
}

void RetryingModel::setMaxAttempts(qint32 attempts)
{
    m_maxAttempts = qMax(1, attempts);
}

void RetryingModel::setDelays(qint64 firstMs, qint64 maximumMs)
{
    m_firstDelayMs = qMax<qint64>(0, firstMs);
    m_maximumDelayMs = qMax<qint64>(0, maximumMs);
}

void RetryingModel::setMaximumWait(qint64 ms)
{
    m_maximumWaitMs = qMax<qint64>(0, ms);
}

ChatReply *RetryingModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                               QObject *parent)
{
    const QPointer<CompletionReply> reply(new CompletionReply(parent ? parent : this));
    auto *request = new RetriedRequest(this, reply, messages, tools);
    const QPointer<RetriedRequest> guard(request);
    const QString error = request->attempt();
    if (guard && !error.isEmpty())
        request->failLater(error);
    return reply;
}

qint64 RetryingModel::delayBefore(qint32 attempt) const
{
    qint64 delayMs = qMin(m_firstDelayMs, m_maximumDelayMs);
    for (qint32 doubled = 2; doubled < attempt && delayMs > 0 && delayMs < m_maximumDelayMs; ++doubled)
        delayMs = delayMs > m_maximumDelayMs / 2 ? m_maximumDelayMs : delayMs * 2;
    return delayMs - qint64(0.25 * double(delayMs) * QRandomGenerator::global()->generateDouble());
}

} // namespace QtAgent
} // namespace MireloQtLib
