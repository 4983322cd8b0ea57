#include "completionreply.h"

#include "reasoningfields_p.h"
#include "requestoutcome_p.h"

#include <QNetworkReply>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// The service asks for money, or for a wait until tomorrow.
bool isOutOfQuota(const QString &word)
{
    static const QStringList words{
        QStringLiteral("insufficient_quota"),
        QStringLiteral("exceeded_current_quota_error"),
        QStringLiteral("credit_balance_exhausted"),
    };
    return words.contains(word) || word.endsWith(QLatin1String("_spend_limit_exceeded"));
}

bool isTemporaryStatus(qint32 status, bool hasWait)
{
    const QList<qint32> temporary{408, 409, 425, 429, 498};
    return status >= 500 || temporary.contains(status) || (status == 402 && hasWait);
}

// Some services count their errors beyond what a status can be.
bool isStatus(qint32 code)
{
    return code >= 100 && code < 600;
}

bool isTemporaryError(qint32 networkError)
{
    const QList<qint32> temporary{
        QNetworkReply::ConnectionRefusedError,    QNetworkReply::RemoteHostClosedError,
        QNetworkReply::HostNotFoundError,         QNetworkReply::TimeoutError,
        QNetworkReply::OperationCanceledError,    QNetworkReply::TemporaryNetworkFailureError,
        QNetworkReply::NetworkSessionFailedError, QNetworkReply::UnknownNetworkError,
    };
    return temporary.contains(networkError);
}

// Of an error inside an answer that began well.
bool isTemporaryWord(const QString &word)
{
    return word == QLatin1String("server_error") || word == QLatin1String("overloaded_error");
}

// Among them the finish reasons of answers that broke off.
bool isTemporaryCode(const QString &code)
{
    static const QStringList codes{
        QStringLiteral("error"),
        QStringLiteral("abort"),
        QStringLiteral("network_error"),
        QStringLiteral("insufficient_system_resource"),
        QStringLiteral("stream_ended_early"),
    };
    return codes.contains(code) || isTemporaryWord(code);
}

void registerTokensAndFailures()
{
    qRegisterMetaType<TokenUsage>("MireloQtLib::QtAgent::TokenUsage");
    qRegisterMetaType<ChatFailure>("MireloQtLib::QtAgent::ChatFailure");
}
Q_CONSTRUCTOR_FUNCTION(registerTokensAndFailures)

} // namespace

bool operator==(const TokenUsage &left, const TokenUsage &right)
{
    return left.prompt == right.prompt && left.completion == right.completion
        && left.reasoning == right.reasoning;
}

bool operator==(const ChatFailure &left, const ChatFailure &right)
{
    return left.httpStatus == right.httpStatus && left.networkError == right.networkError
        && left.type == right.type && left.code == right.code && left.message == right.message
        && left.retryAfterMs == right.retryAfterMs && left.shouldRetry == right.shouldRetry;
}

bool ChatFailure::isTemporary() const
{
    if (shouldRetry >= 0)
        return shouldRetry > 0;
    const bool isError = httpStatus >= firstErrorStatus;
    if (!isError && networkError != 0)
        return isTemporaryError(networkError);
    if (isOutOfQuota(type) || isOutOfQuota(code) || code.contains(QLatin1String("PerDay")))
        return false;
    const qint32 status = isError ? httpStatus : code.toInt();
    if (isError || isStatus(status))
        return isTemporaryStatus(status, retryAfterMs >= 0);
    return isTemporaryWord(type) || isTemporaryCode(code);
}

CompletionReply::CompletionReply(QObject *parent)
    : ChatReply(parent)
{}

CompletionReply::~CompletionReply() = default;

QString CompletionReply::reasoning() const
{
    return m_reasoning;
}

QString CompletionReply::finishReason() const
{
    return m_finishReason;
}

QString CompletionReply::refusal() const
{
    return m_refusal;
}

TokenUsage CompletionReply::usage() const
{
    return m_usage;
}

ChatFailure CompletionReply::failure() const
{
    return m_failure;
}

// As in ChatReply, the arguments are emitted as copies.

void CompletionReply::appendReasoning(const QString &piece)
{
    if (!isRunning())
        return;
    m_reasoning += piece;
    Q_EMIT reasoningReceived(QString(piece));
}

void CompletionReply::progressToolCall(qint32 index, const QString &name, const QString &argumentsSoFar)
{
    if (isRunning())
        Q_EMIT toolCallProgressed(index, QString(name), QString(argumentsSoFar));
}

void CompletionReply::setFinishReason(const QString &reason)
{
    if (isRunning())
        m_finishReason = reason;
}

void CompletionReply::setRefusal(const QString &refusal)
{
    if (isRunning())
        m_refusal = refusal;
}

void CompletionReply::setUsage(const TokenUsage &usage)
{
    if (isRunning())
        m_usage = usage;
}

void CompletionReply::setFailure(const ChatFailure &failure)
{
    if (isRunning())
        m_failure = failure;
}

void ReasoningFields::set(CompletionReply *reply, const QJsonObject &fields)
{
    reply->m_reasoningFields = fields;
    reply->m_hasReasoningFields = true;
}

QJsonObject ReasoningFields::of(const ChatReply &reply)
{
    const auto *completion = qobject_cast<const CompletionReply *>(&reply);
    if (!completion)
        return {};
    if (completion->m_hasReasoningFields || completion->m_reasoning.isEmpty())
        return completion->m_reasoningFields;
    return {{QStringLiteral("reasoning_content"), completion->m_reasoning}};
}

} // namespace QtAgent
} // namespace MireloQtLib
