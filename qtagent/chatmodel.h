#ifndef MIRELOQTLIB_QTAGENT_CHATMODEL_H
#define MIRELOQTLIB_QTAGENT_CHATMODEL_H

#include <qtagent/chatmessage.h>
#include <qtagent/modelconfig.h>

#include <QObject>

namespace MireloQtLib {
namespace QtAgent {

/// The answer to one request, as it arrives.
///
/// ChatModel::chat() returns a reply before anything is emitted, so connecting right after the call
/// loses nothing:
/// @code
/// ChatReply *reply = model->chat(conversation, {}, this);
/// connect(reply, &ChatReply::deltaReceived, this, [this](const QString &delta) { show(delta); });
/// connect(reply, &ChatReply::finished, reply, &QObject::deleteLater);
/// connect(reply, &ChatReply::failed, reply, &QObject::deleteLater);
/// @endcode
///
/// Signals come in one of these orders:
/// - a streamed answer: deltaReceived() any number of times, then finished();
/// - a whole answer: responseReceived(), one deltaReceived() with all the text, then finished();
/// - the mock model's tool calls: responseReceived(), then finished() with an empty text;
/// - a failure: failed(), after whatever had arrived by then.
///
/// A reply ends with exactly one of finished() and failed(), unless it is canceled or deleted first or,
/// with a model that works over the network, the model dies first: then neither is emitted.
///
/// The reply belongs to its parent. Models never delete it; call deleteLater() when it has ended. It may
/// be deleted or canceled at any time, also from a slot connected to one of its signals; deleting it
/// while its request runs aborts the request.
class QTAGENT_EXPORT ChatReply : public QObject
{
    Q_OBJECT

public:
    /// Creates a reply that nothing has arrived for. Applications receive theirs from ChatModel::chat().
    explicit ChatReply(QObject *parent = nullptr);
    ~ChatReply() override;

    /// Returns whether cancel() was called.
    bool isCanceled() const;

    /// Returns the text so far, and the whole text once finished() is emitted.
    QString text() const;

    /// Returns the object of the last responseReceived(), or an empty object. A reply's tool calls are
    /// at "choices"[0]."message"."tool_calls"; a streamed answer has none.
    QJsonObject response() const;

    /// @name For models
    /// The rules of what may be emitted when are kept here, so a model only reports what it receives.
    /// Any of these may delete the reply, through a slot of the application: guard it with a QPointer.
    /// @{

    /// Appends @p delta to text() and emits deltaReceived(), also for an empty delta. Does nothing once
    /// the reply is canceled, finished or failed.
    void appendDelta(const QString &delta);

    /// Stores @p response and emits responseReceived(), also once the reply is canceled, finished or failed.
    void setResponse(const QJsonObject &response);

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
    bool isOver() const;

    QString m_text;
    QJsonObject m_response;
    bool m_canceled = false;
    bool m_ended = false;
};

/// A model that answers conversations; the base of MockChatModel, OpenAICompatibleModel and DeepSeekModel.
///
/// @code
/// OpenAICompatibleModel model;
/// ModelConfig config;
/// config.baseUrl = QStringLiteral("https://api.openai.com/v1");
/// config.apiKey = key;
/// config.model = QStringLiteral("gpt-4.1-mini");
/// model.setConfig(config);
/// ChatReply *reply = model.chat({ChatMessage::user(question)}, {}, this);
/// @endcode
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
