#include "openaicompatiblemodel.h"

#include "answerreceiver_p.h"
#include "chatcompletion_p.h"
#include "completionrequest_p.h"
#include "modellistreceiver_p.h"
#include "reasoningmemory_p.h"
#include "requestoutcome_p.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

AnswerRules rulesFor(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                     const RequestOptions &options)
{
    AnswerRules rules;
    rules.options = options;
    if (!options.streamToolCalls)
        return rules;
    for (const ToolDefinition &tool : tools)
        rules.toolNames.append(tool.name);
    for (const ChatMessage &message : messages) {
        rules.callIds.insert(message.toolCallId);
        for (const QJsonValue &call : message.toolCalls)
            rules.callIds.insert(call.toObject().value(QLatin1String("id")).toString());
    }
    return rules;
}

ChatReply *failLater(const QString &error, const ChatFailure &failure, QObject *owner)
{
    auto *reply = new CompletionReply(owner);
    reply->setFailure(failure);
    QTimer::singleShot(0, reply, [reply, error] { reply->fail(error); });
    return reply;
}

ChatFailure failureOfUnknownProtocol()
{
    ChatFailure failure;
    failure.networkError = QNetworkReply::ProtocolUnknownError;
    return failure;
}

} // namespace

OpenAICompatibleModel::OpenAICompatibleModel(QObject *parent)
    : ChatModel(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_memory(std::make_shared<ReasoningMemory>())
{}

OpenAICompatibleModel::~OpenAICompatibleModel() = default;

void OpenAICompatibleModel::setRequestOptions(const RequestOptions &options)
{
    m_options = options;
}

RequestOptions OpenAICompatibleModel::requestOptions() const
{
    return m_options;
}

void OpenAICompatibleModel::setNetworkAccessManager(QNetworkAccessManager *manager)
{
    m_foreignNetwork = manager;
}

QNetworkAccessManager *OpenAICompatibleModel::network() const
{
    return m_foreignNetwork ? m_foreignNetwork.data() : m_network;
}

ChatReply *OpenAICompatibleModel::chat(const QVector<ChatMessage> &messages,
                                       const QVector<ToolDefinition> &tools, QObject *parent)
{
    QObject *const owner = parent ? parent : this;
    const ModelConfig &profile = config();
    if (profile.baseUrl.trimmed().isEmpty() || profile.model.trimmed().isEmpty())
        return failLater(QStringLiteral("Missing baseUrl or model."), {}, owner);

    const QNetworkRequest request = requestTo(QStringLiteral("/chat/completions"), profile, m_options);
    if (!isHttp(request.url()))
        return failLater(outcomeOfUnknownProtocol(request.url()).report({}), failureOfUnknownProtocol(),
                         owner);

    const bool stream = profile.stream && (tools.isEmpty() || m_options.streamToolCalls);
    const QByteArray body = bodyOf(messages, tools, stream, request.url());
    dropIdleConnections(request.url());
    auto *reply = new CompletionReply(owner);
    QNetworkReply *networkReply = network()->post(request, body);
    receive(networkReply, reply, rulesFor(messages, tools, m_options), stream);
    return reply;
}

ModelListReply *OpenAICompatibleModel::listModels(QObject *parent)
{
    auto *reply = new ModelListReply(parent ? parent : this);
    const auto failLater = [reply](const QString &error, const ChatFailure &failure) {
        QTimer::singleShot(0, reply, [reply, error, failure] { reply->fail(error, failure); });
        return reply;
    };
    ModelConfig profile = config();
    if (profile.baseUrl.trimmed().isEmpty())
        profile.baseUrl = m_defaultBaseUrl;
    if (profile.baseUrl.isEmpty())
        return failLater(QStringLiteral("Missing baseUrl."), {});
    const QNetworkRequest request = requestTo(QStringLiteral("/models"), profile, m_options);
    if (!isHttp(request.url()))
        return failLater(outcomeOfUnknownProtocol(request.url()).report({}), failureOfUnknownProtocol());

    dropIdleConnections(request.url());
    QNetworkReply *networkReply = network()->get(request);
    auto *receiver = new ModelListReceiver(networkReply, reply);
    if (m_options.applyTimeLimit)
        receiver->limitSilence(profile.timeoutMs);
    if (network() != m_network)
        connect(this, &QObject::destroyed, receiver, &ModelListReceiver::abandon);
    return reply;
}

QByteArray OpenAICompatibleModel::bodyOf(const QVector<ChatMessage> &messages,
                                         const QVector<ToolDefinition> &tools, bool stream,
                                         const QUrl &url) const
{
    const bool keepsReasoning = m_options.keepReasoning || m_alwaysKeepsReasoning;
    const QJsonArray array = keepsReasoning ? m_memory->toJson(url, messages) : messagesToJson(messages);
    return requestBody(config(), array, tools, stream, m_options);
}

void OpenAICompatibleModel::receive(QNetworkReply *networkReply, CompletionReply *reply,
                                    const AnswerRules &answerRules, bool stream)
{
    AnswerRules rules = answerRules;
    if (m_options.keepReasoning || m_alwaysKeepsReasoning)
        rules.memory = m_memory;
    auto *receiver = new AnswerReceiver(networkReply, reply, rules);
    if (stream)
        receiver->receiveStream();
    else
        receiver->receiveWhole();
    if (m_options.applyTimeLimit)
        receiver->limitSilence(config().timeoutMs);
    // The model's own manager takes its requests along.
    if (network() != m_network)
        connect(this, &QObject::destroyed, receiver, &AnswerReceiver::abandon);
}

// Some servers keep a connection that was to be closed, and on a kept one the body waits for the delayed
// acknowledgement of the head. A request in flight would never end.
void OpenAICompatibleModel::dropIdleConnections(const QUrl &url)
{
    if (url.scheme() != QLatin1String("http") || network() != m_network)
        return;
    const auto replies = m_network->findChildren<QNetworkReply *>(QString(), Qt::FindDirectChildrenOnly);
    const bool isIdle = std::none_of(replies.cbegin(), replies.cend(),
                                     [](const QNetworkReply *reply) { return reply->isRunning(); });
    if (isIdle)
        m_network->clearConnectionCache();
}

} // namespace QtAgent
} // namespace MireloQtLib
