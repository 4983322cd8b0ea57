#include "openaicompatiblemodel.h"

#include "answerreceiver_p.h"
#include "chatcompletion_p.h"
#include "completionrequest_p.h"
#include "requestoutcome_p.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTimer>

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

// An address that nothing is sent to.
ChatReply *failUnknownProtocol(const QUrl &url, QObject *owner)
{
    const RequestOutcome outcome = outcomeOfUnknownProtocol(url);
    ChatFailure failure;
    failure.networkError = int(outcome.error);
    return failLater(outcome.report({}), failure, owner);
}

} // namespace

OpenAICompatibleModel::OpenAICompatibleModel(QObject *parent)
    : ChatModel(parent)
    , m_network(new QNetworkAccessManager(this))
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
        return failUnknownProtocol(request.url(), owner);

    const bool stream = profile.stream && (tools.isEmpty() || m_options.streamToolCalls);
    const QByteArray body = requestBody(profile, messages, tools, stream, m_options);
    auto *reply = new CompletionReply(owner);
    QNetworkReply *networkReply = network()->post(request, body);
    auto *receiver = new AnswerReceiver(networkReply, reply, rulesFor(messages, tools, m_options));
    if (stream)
        receiver->receiveStream();
    else
        receiver->receiveWhole();
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
