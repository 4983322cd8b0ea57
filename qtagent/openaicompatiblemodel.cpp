#include "openaicompatiblemodel.h"

#include "answerreceiver_p.h"
#include "chatcompletion_p.h"
#include "requestoutcome_p.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QUrl completionsUrl(const QString &baseUrl)
{
    QString address = baseUrl.trimmed();
    while (address.endsWith(QLatin1Char('/')))
        address.chop(1);
    const QUrl url(address + QLatin1String("/chat/completions"), QUrl::TolerantMode);
    // Of an address with a bad port Qt would still use the host, and send the key to its port 80.
    return url.isValid() ? url : QUrl();
}

// QNetworkAccessManager also knows protocols that send nothing, or to nobody.
bool isHttp(const QUrl &url)
{
    return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
}

// A line break in a header's value would start a header of its own.
QByteArray authorization(QString apiKey)
{
    apiKey.remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
    return QStringLiteral("Bearer %1").arg(apiKey).toUtf8();
}

QNetworkRequest requestFor(const ModelConfig &config)
{
    QNetworkRequest request(completionsUrl(config.baseUrl));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    if (!config.apiKey.isEmpty())
        request.setRawHeader(QByteArrayLiteral("Authorization"), authorization(config.apiKey));
    // The key and the conversation go to the host that the user named and to no other.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    // Over HTTP/2, which Qt 6 would choose, no limit holds back a fast server.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // Left to itself Qt asks for gzip and unpacks it, on Qt 5 without a limit: a megabyte becomes a gigabyte.
    request.setRawHeader(QByteArrayLiteral("Accept-Encoding"), QByteArrayLiteral("identity"));
    // Qt writes head and body apart and leaves Nagle's algorithm on: on a connection that is kept alive
    // the body waits for the server's delayed acknowledgement. A new connection does not wait.
    if (request.url().scheme() == QLatin1String("http"))
        request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("close"));
    return request;
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

ChatReply *OpenAICompatibleModel::chat(const QVector<ChatMessage> &messages,
                                       const QVector<ToolDefinition> &tools, QObject *parent)
{
    QObject *const owner = parent ? parent : this;
    const ModelConfig &profile = config();
    if (profile.baseUrl.trimmed().isEmpty() || profile.model.trimmed().isEmpty())
        return failLater(QStringLiteral("Missing baseUrl or model."), {}, owner);

    const QNetworkRequest request = requestFor(profile);
    if (!isHttp(request.url()))
        return failUnknownProtocol(request.url(), owner);

    const bool stream = profile.stream && tools.isEmpty();
    auto *reply = new CompletionReply(owner);
    QNetworkReply *networkReply = m_network->post(request, requestBody(profile, messages, tools, stream));
    auto *receiver = new AnswerReceiver(networkReply, reply);
    if (stream)
        receiver->receiveStream();
    else
        receiver->receiveWhole();
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
