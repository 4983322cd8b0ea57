#ifndef MIRELOQTLIB_QTAGENT_CHATMODEL_H
#define MIRELOQTLIB_QTAGENT_CHATMODEL_H

#include <qtagent/chatmessage.h>
#include <qtagent/modelconfig.h>

#include <QObject>
#include <QPointer>
#include <QVector>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

/// How a reply ended and what it brought, as ChatReply::whenEnded() tells it.
struct QTAGENT_EXPORT ChatResult
{
    Q_GADGET

public:
    /// What ended the reply. The first end counts: a reply that is canceled after it had finished is
    /// Finished.
    enum class End {
        /// finished() was emitted.
        Finished,
        /// failed() was emitted.
        Failed,
        /// cancel() was called.
        Canceled,
        /// The reply was deleted before any other end.
        Deleted,
    };
    Q_ENUM(End)

    /// What ended the reply.
    End end = End::Deleted;
    /// The answer's text; what had arrived of it by then where the reply did not finish.
    QString text;
    /// The report of failed(), else empty.
    QString error;
    /// The object of the last responseReceived(), or an empty object.
    QJsonObject response;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ChatResult &left, const ChatResult &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ChatResult &left, const ChatResult &right) { return !(left == right); }
};

/// The answer to one request, as it arrives.
///
/// ChatModel::chat() returns a reply before anything is emitted, so connecting right after the call
/// loses nothing:
/// @code
/// ChatReply *reply = model->chat(conversation, {}, this);
/// connect(reply, &ChatReply::deltaReceived, this, [this](const QString &delta) { show(delta); });
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// reply->whenEnded(reply, [reply](const ChatResult &) { reply->deleteLater(); });
/// @endcode
///
/// Signals come in one of these orders:
/// - a streamed answer: deltaReceived() any number of times, then finished();
/// - a whole answer: responseReceived(), one deltaReceived() with all the text, then finished();
/// - the mock model's tool calls: responseReceived(), then finished() with an empty text;
/// - a failure: failed(), after whatever had arrived by then.
///
/// A reply ends with exactly one of finished() and failed(), unless it is canceled or deleted first or,
/// with a model that works over the network, the model dies first: then neither is emitted. whenEnded() tells
/// of every end of the reply itself, whichever it is.
///
/// The reply belongs to its parent. Models never delete it; call deleteLater() when it has ended. It may
/// be deleted or canceled at any time, also from a slot connected to one of its signals; deleting it
/// while its request runs aborts the request. A reply and its model belong to one thread.
class QTAGENT_EXPORT ChatReply : public QObject
{
    Q_OBJECT

public:
    /// Creates a reply that nothing has arrived for. Applications receive theirs from ChatModel::chat().
    explicit ChatReply(QObject *parent = nullptr);
    ~ChatReply() override;

    /// Returns whether the reply is neither finished, failed nor canceled. False already in the slots of the
    /// signal that tells the end.
    bool isRunning() const;

    /// Returns whether cancel() was called.
    bool isCanceled() const;

    /// Returns the text so far, and the whole text once finished() is emitted.
    QString text() const;

    /// Returns the report of failed(), or an empty text.
    QString error() const;

    /// Returns the object of the last responseReceived(), or an empty object.
    QJsonObject response() const;

    /// Returns the tool calls in response(), as the model sent them (see makeToolCall()), or an empty array.
    /// They are complete once finished() is emitted.
    QJsonArray toolCalls() const;

    /// Returns the answer as it goes into a conversation: the content and the calls of response() where that
    /// has calls, else text(). The content is never null.
    ChatMessage message() const;

    /// Calls @p callback once, with the end that the reply reaches first: after the slots of the signal that
    /// tells it; from the next turn of the event loop where the reply had ended already, and where it is
    /// deleted. In the last case a window that owns it may be half gone, which is why nothing is called then.
    ///
    /// Callbacks come in the order in which they were registered, and never once @p context is deleted. So
    /// one that a slot of the ending signal registers behind others comes once that slot has returned, even
    /// where the slot runs an event loop. A callback may delete the reply. Nothing is registered where
    /// @p context is null or @p callback empty.
    void whenEnded(QObject *context, const std::function<void(const ChatResult &)> &callback);

    /// @name For models
    /// The rules of what may be emitted when are kept here, so a model only reports what it receives.
    /// Any of these may delete the reply, through a slot of the application: guard it with a QPointer.
    /// @{

    /// Appends @p delta to text() and emits deltaReceived(), also for an empty delta. Does nothing once
    /// the reply is canceled, finished or failed.
    void appendDelta(const QString &delta);

    /// Stores @p response and emits responseReceived(), also once the reply is canceled, finished or failed.
    void setResponse(const QJsonObject &response);

    /// Hands over an answer that asks for @p toolCalls and says @p content: setResponse() with the object
    /// that a chat-completions service would send, whatever protocol the model speaks. Call finish()
    /// afterwards.
    void setToolCalls(const QString &content, const QJsonArray &toolCalls);

    /// Sets text() to @p text and emits finished(). Does nothing once the reply is canceled, finished or
    /// failed.
    void finish(const QString &text);

    /// Emits failed(). Does nothing once the reply is canceled, finished or failed.
    void fail(const QString &error);

    /// Returns a new reply, owned by @p parent, that fails with @p error on the next turn of the event loop.
    static ChatReply *failLater(const QString &error, QObject *parent);
    /// @}

public Q_SLOTS:
    /// Stops the answer: emits canceled() and, after that, none of deltaReceived(), finished() and
    /// failed(). The request is aborted. A second call does nothing. A reply that has ended can still be
    /// canceled, which only emits canceled().
    void cancel();

Q_SIGNALS:
    /// A piece of the answer's text arrived; text() holds it already.
    void deltaReceived(const QString &delta);

    /// A complete response object arrived; response() returns it already.
    void responseReceived(const QJsonObject &response);

    /// The answer is complete. @p text is all of it.
    void finished(const QString &text);

    /// The request failed. @p error is a report to show to the user and may have several lines.
    void failed(const QString &error);

    /// cancel() was called for the first time.
    void canceled();

private:
    struct Callback
    {
        QPointer<QObject> context;
        std::function<void(const ChatResult &)> function;
        bool isLate = false;
    };

    ChatResult result() const;
    void removeDeadCallbacks();
    void tellEnd();
    void post(const Callback &callback) const;

    ChatResult::End m_end = ChatResult::End::Deleted; // as long as it has no other
    QString m_text;
    QString m_error;
    QJsonObject m_response;
    bool m_canceled = false;
    QVector<Callback> m_callbacks;
};

/// A model that answers conversations; the base of MockChatModel, OpenAICompatibleModel and DeepSeekModel.
///
/// @code
/// ModelConfig config;
/// config.baseUrl = QStringLiteral("https://api.openai.com/v1");
/// config.apiKey = key;
/// config.model = QStringLiteral("gpt-4.1-mini");
/// auto *model = new OpenAICompatibleModel(this);
/// model->setConfig(config);
/// ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// A model is used on the thread that it belongs to; its replies live and emit there.
class QTAGENT_EXPORT ChatModel : public QObject
{
    Q_OBJECT

public:
    /// Creates a model with a default ModelConfig.
    explicit ChatModel(QObject *parent = nullptr);
    ~ChatModel() override;

    /// Sends @p messages, offering @p tools, and returns the reply at once: it is owned by @p parent, or
    /// by the model where that is null. Nothing is emitted before the call returns. Several requests may
    /// be in flight.
    virtual ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                            QObject *parent) = 0;

    /// Replaces the whole profile. Requests in flight keep the one that they were sent with.
    void setConfig(const ModelConfig &config);

    /// Returns the profile.
    const ModelConfig &config() const;

private:
    ModelConfig m_config;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
