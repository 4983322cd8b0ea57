#ifndef MIRELOQTLIB_QTAGENT_OPENAICOMPATIBLEMODEL_H
#define MIRELOQTLIB_QTAGENT_OPENAICOMPATIBLEMODEL_H

#include <qtagent/completionreply.h>
#include <qtagent/modellist.h>
#include <qtagent/requestoptions.h>

#include <memory>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
class QNetworkReply;
class QUrl;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

struct AnswerRules;
class ReasoningMemory;

/// A model behind an HTTP service that speaks the OpenAI chat-completions protocol.
///
/// @code
/// ModelConfig config;
/// config.baseUrl = QStringLiteral("http://127.0.0.1:8080/v1");
/// config.model = QStringLiteral("local-model");
/// auto *model = new OpenAICompatibleModel(this);
/// model->setConfig(config);
/// ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// A request is one POST to the profile's address and "/chat/completions", over HTTP/1.1 and with a new
/// connection each time where the address is not encrypted. The answer is streamed where the profile asks
/// for it and no tools are offered; with tools it arrives whole. The API key goes into the Authorization
/// header, without line breaks, and nowhere else; redirects are not followed. No time limit is set: a request
/// runs until the network ends it or ChatReply::cancel() is called. RequestOptions change each of these.
///
/// Each reply is a CompletionReply, which also tells reasoning, tokens and why a request failed.
///
/// ChatReply::failed() reports:
/// - "Missing baseUrl or model." where the profile lacks one of them (nothing is sent);
/// - "Invalid JSON response: ..." and a summary of the body, where a whole answer is not a JSON object;
/// - "OpenAI-compatible request failed." for every network error and every status of 400 and more,
///   followed by lines with the address, the status, Qt's error number and text, and a summary of the body.
///   An address that begins with neither "http://" nor "https://" is such an error (nothing is sent), and so
///   are an answer that ends before the length it announced, whether or not Qt noticed, and one that is
///   compressed, which was not asked for.
///
/// Where RequestOptions::streamToolCalls or strictStreams is set it also reports, each before such a report:
/// "Incomplete tool call from the model.", "Error event in the stream.", "The model stopped: ...", "No answer
/// in the stream." and "The stream ended early.". Where RequestOptions::applyTimeLimit is set, silence is a
/// network error, too: "Network error: 4 (No data for ... ms)".
///
/// Else what is wrong inside a stream is passed over: an event that is not JSON, a last line without a line
/// feed, an error object in an answer of status 200. Such an answer ends with finished() and the text that
/// was understood, which may be empty. So does a redirect. So may a stream that announces no length and is
/// cut off: over unencrypted connections Qt does not always notice.
///
/// A stream is read as fast as the event loop takes it: no more than a few megabytes wait. What has arrived
/// of a whole answer, of a line and of the text is kept however long it gets; cancel() a reply that goes on
/// for too long.
///
/// Deleting the model ends its requests without a signal.
class QTAGENT_EXPORT OpenAICompatibleModel : public ChatModel
{
    Q_OBJECT

public:
    /// Creates a model with a default ModelConfig, whose address and model name are to be set before chat().
    explicit OpenAICompatibleModel(QObject *parent = nullptr);
    ~OpenAICompatibleModel() override;

    /// Sends the request, as ChatModel::chat() describes, and returns a CompletionReply. Where the profile
    /// lacks the address or the model's name nothing is sent, and the reply fails on the next turn of the
    /// event loop.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

    /// Sets what requests sent from now on, and their answers, do otherwise.
    void setRequestOptions(const RequestOptions &options);

    /// Returns the options.
    RequestOptions requestOptions() const;

    /// Sends requests through @p manager from now on, for example for its proxy, its certificates or its
    /// connections. It is not owned. With null, and once it is deleted, the model uses its own again. It has
    /// to belong to the model's thread. Requests in flight die with the manager that they were sent through,
    /// without a signal.
    void setNetworkAccessManager(QNetworkAccessManager *manager);

    /// Asks the service for its models: a GET of the profile's address and "/models", with the headers, the
    /// query and the time limit of chat(). Nothing else ever sends it. The reply is owned by @p parent, or by
    /// the model where that is null. It fails with the reports of chat(); with "Missing baseUrl." where the
    /// profile has no address, for which a DeepSeekModel uses its default.
    ModelListReply *listModels(QObject *parent = nullptr);

private:
    friend class DeepSeekModel;

    QNetworkAccessManager *network() const;
    QByteArray bodyOf(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools, bool stream,
                      const QUrl &url) const;
    void dropIdleConnections(const QUrl &url);
    void receive(QNetworkReply *networkReply, CompletionReply *reply, const AnswerRules &rules, bool stream);

    QNetworkAccessManager *m_network;
    QPointer<QNetworkAccessManager> m_foreignNetwork;
    RequestOptions m_options;
    // What holds for one service whatever is set.
    bool m_alwaysKeepsReasoning = false;
    QString m_defaultBaseUrl;
    std::shared_ptr<ReasoningMemory> m_memory;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
