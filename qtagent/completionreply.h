#ifndef MIRELOQTLIB_QTAGENT_COMPLETIONREPLY_H
#define MIRELOQTLIB_QTAGENT_COMPLETIONREPLY_H

#include <qtagent/chatmodel.h>

#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// How many tokens a request took, as the service counts them. -1: not told, or no sound number.
struct TokenUsage
{
    /// Those of the conversation and the tools.
    qint64 prompt = -1;
    /// Those of the answer, its reasoning included.
    qint64 completion = -1;
    /// Those of the reasoning alone.
    qint64 reasoning = -1;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const TokenUsage &left, const TokenUsage &right);
    /// Returns whether a field differs.
    friend bool operator!=(const TokenUsage &left, const TokenUsage &right) { return !(left == right); }
};

/// Why a request failed, in parts that a program can decide on. The text for the user is that of
/// ChatReply::failed().
struct QTAGENT_EXPORT ChatFailure
{
    /// The status of the answer, 0 where none arrived.
    qint32 httpStatus = 0;
    /// The number in QNetworkReply::NetworkError, 0 where Qt reports no error. A status of 400 and more is an
    /// error of Qt, too.
    qint32 networkError = 0;
    /// The service's word for the kind of failure, for example "invalid_request_error", else empty.
    QString type;
    /// The service's code, a number as its text, for example "context_length_exceeded" or "503"; the name of
    /// the quota where one for the day is used up. For what the client finds in a stream that it reads
    /// strictly: the finish reason of an answer that broke off, "stream_ended_early", "no_answer" or
    /// "incomplete_tool_call". Else empty.
    QString code;
    /// The service's own words, else empty.
    QString message;
    /// How long the service asks to wait, in milliseconds; -1 where it does not.
    qint64 retryAfterMs = -1;
    /// 1 where the service says that asking again helps, 0 where it says that it does not, else -1.
    qint32 shouldRetry = -1;

    /// Returns whether the same request may succeed later: where the network broke, or the service was
    /// overloaded, restarting, or asked too often. False where the request, the key or the account is at
    /// fault, and where nothing is known, as for a default ChatFailure. What the service says in
    /// shouldRetry wins.
    bool isTemporary() const;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ChatFailure &left, const ChatFailure &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ChatFailure &left, const ChatFailure &right) { return !(left == right); }
};

/// A reply that also tells how the model came to its answer, what that cost and why it ended.
///
/// Reasoning is never part of text(). The response() of a whole answer is as it came, think tags included.
///
/// OpenAICompatibleModel, DeepSeekModel and RetryingModel answer with one:
/// @code
/// auto *reply = qobject_cast<CompletionReply *>(model->chat(conversation, {}, this));
/// connect(reply, &CompletionReply::reasoningReceived, this, [this](const QString &piece) { think(piece); });
/// reply->whenEnded(this, [this, reply = QPointer<CompletionReply>(reply)](const ChatResult &result) {
///     showEnd(result);
///     if (reply) // not deleted meanwhile
///         showDetails(reply->usage(), reply->failure().isTemporary());
/// });
/// @endcode
///
/// What a service does not tell stays empty. What it tells is set before the signal of ChatReply that
/// follows. Reasoning is never part of text(). A reply belongs to the thread of its model.
class QTAGENT_EXPORT CompletionReply : public ChatReply
{
    Q_OBJECT

public:
    /// Creates a reply that nothing has arrived for. Applications receive theirs from ChatModel::chat().
    explicit CompletionReply(QObject *parent = nullptr);
    ~CompletionReply() override;

    /// Returns the reasoning so far.
    QString reasoning() const;

    /// Returns why the model stopped, in the service's word: "stop" at the end of an answer, "length" where
    /// the token limit cut it, "tool_calls", "content_filter" or another. Empty while it has not.
    QString finishReason() const;

    /// Returns what the model said in place of an answer that it refuses to give, so far.
    QString refusal() const;

    /// Returns the tokens counted last.
    TokenUsage usage() const;

    /// Returns why the request failed; a default one before failed() and where it has not.
    ChatFailure failure() const;

    /// @name For models
    /// Under the same rule as those of ChatReply: they do nothing once the reply is canceled, finished or
    /// failed.
    /// @{

    /// Appends @p piece to reasoning() and emits reasoningReceived(), also for an empty piece.
    void appendReasoning(const QString &piece);

    /// Emits toolCallProgressed().
    void progressToolCall(qint32 index, const QString &name, const QString &argumentsSoFar);

    /// Sets finishReason().
    void setFinishReason(const QString &reason);

    /// Sets refusal(), all of it so far.
    void setRefusal(const QString &refusal);

    /// Sets usage().
    void setUsage(const TokenUsage &usage);

    /// Sets failure(). Call ChatReply::fail() afterwards.
    void setFailure(const ChatFailure &failure);
    /// @}

Q_SIGNALS:
    /// A piece of the reasoning arrived; reasoning() holds it already. Of one event of a stream, the
    /// reasoning is told before the text.
    void reasoningReceived(const QString &piece);

    /// A piece of the tool call number @p index, counted from 0 in order of arrival, came in a stream. Its
    /// name and arguments may go on; the arguments are JSON only once they are complete. The calls count once
    /// finished() is emitted, when ChatReply::toolCalls() returns them.
    void toolCallProgressed(qint32 index, const QString &name, const QString &argumentsSoFar);

private:
    friend class ReasoningFields;

    QString m_reasoning;
    QJsonObject m_reasoningFields;
    bool m_hasReasoningFields = false;
    QString m_finishReason;
    QString m_refusal;
    TokenUsage m_usage;
    ChatFailure m_failure;
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::TokenUsage)
Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ChatFailure)

#endif
