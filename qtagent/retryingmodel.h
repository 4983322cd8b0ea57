#ifndef MIRELOQTLIB_QTAGENT_RETRYINGMODEL_H
#define MIRELOQTLIB_QTAGENT_RETRYINGMODEL_H

#include <qtagent/completionreply.h>

#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

/// A model that asks another one, and asks again where that may help.
///
/// @code
/// auto *retrying = new RetryingModel(model, this);
/// connect(retrying, &RetryingModel::retrying, this, [this](qint32 attempt, qint64 delayMs) {
///     showStatus(tr("Attempt %1 in %2 ms").arg(attempt).arg(delayMs));
/// });
/// executor->setModel(retrying);
/// @endcode
///
/// A reply looks to its host like any other: it is a CompletionReply, and fails only where the last attempt
/// did. A request is repeated where ChatFailure::isTemporary() says so, and only while nothing of an answer
/// was passed on: no text, no response, no reasoning, no tool call. The reply of a model that is no
/// CompletionReply is never repeated.
///
/// Before the attempt number n it waits the first delay, doubled n - 2 times, at most the maximum delay, less
/// up to a quarter at random. Where the service asks for a wait, exactly that is kept; where it is longer
/// than the maximum wait, the reply fails at once.
///
/// Canceling or deleting a reply ends its wait and its request. So does deleting this model, without a
/// signal. Besides the texts of the other model, ChatReply::failed() reports "Model is gone." where that
/// model is null or was deleted, and "Model returned no reply." where it returned null. Both models belong to
/// one thread.
class QTAGENT_EXPORT RetryingModel : public ChatModel
{
    Q_OBJECT

public:
    /// Asks @p model, which is not owned and whose ChatModel::config() counts: the one of this model is
    /// unused.
    explicit RetryingModel(ChatModel *model, QObject *parent = nullptr);
    ~RetryingModel() override;

    /// Returns the model that is asked, or null where it was deleted.
    ChatModel *model() const;

    /// Sets how often a request is sent at most, 3 by default. Below 1 is 1.
    void setMaxAttempts(qint32 attempts);

    /// Sets the first and the largest delay in milliseconds, 500 and 8000 by default. Negative is 0.
    void setDelays(qint64 firstMs, qint64 maximumMs);

    /// Sets the longest wait in milliseconds that a service may ask for, 60,000 by default. Negative is 0.
    void setMaximumWait(qint64 ms);

    /// Asks the other model and returns a CompletionReply.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

Q_SIGNALS:
    /// The request of @p reply failed with the report @p error and is sent again, as the attempt number @p
    /// attempt (2, 3, ...), in @p delayMs milliseconds.
    void retrying(qint32 attempt, qint64 delayMs, const QString &error,
                  MireloQtLib::QtAgent::ChatReply *reply);

private:
    friend class RetriedRequest;

    qint64 delayBefore(qint32 attempt) const;

    QPointer<ChatModel> m_model;
    qint32 m_maxAttempts = 3;
    qint64 m_firstDelayMs = 500;
    qint64 m_maximumDelayMs = 8000;
    qint64 m_maximumWaitMs = 60000;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
