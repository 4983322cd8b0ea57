#include "openaicompatiblemodel.h"

#include "chatcompletion_p.h"
#include "eventstreamreader_p.h"
#include "requestoutcome_p.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// How much of a stream Qt's network thread may read ahead of the event loop, in bytes. Where a connection
// breaks while more is waiting, Qt drops what it holds back.
constexpr qint64 readAhead = 1024 * 1024;

// Turns what a network reply receives into the signals of a ChatReply.
//
// It is a child of the network reply, which dies with the model. Every emission may delete the ChatReply,
// the model and thereby this object, abort the request, or enter here again from a nested event loop. The
// network reply's signals are queued, because Qt still uses a network reply after it emitted readyRead().
class AnswerReceiver : public QObject
{
public:
    AnswerReceiver(QNetworkReply *networkReply, ChatReply *reply)
        : QObject(networkReply)
        , m_networkReply(networkReply)
        , m_reply(reply)
    {
        connect(reply, &ChatReply::canceled, networkReply, &QNetworkReply::abort);
        connect(reply, &QObject::destroyed, networkReply, &QNetworkReply::abort);
    }

    void receiveWhole()
    {
        connect(
            m_networkReply, &QNetworkReply::finished, this, [this] { end(&AnswerReceiver::endWhole); },
            Qt::QueuedConnection);
    }

    void receiveStream()
    {
        limitReadingAhead();
        connect(m_networkReply, &QNetworkReply::readyRead, this, &AnswerReceiver::readStream,
                Qt::QueuedConnection);
        connect(
            m_networkReply, &QNetworkReply::finished, this, [this] { end(&AnswerReceiver::endStream); },
            Qt::QueuedConnection);
    }

private:
    bool isWanted() const { return m_reply && !m_reply->isCanceled(); }

    // Without a limit a fast server fills the memory. Qt forgets one that is set before the network thread
    // knows the request, which it does on the next turn of the event loop, or by the time of the head where a
    // network has to be opened first. While bytes arrive the thread may not look for a new limit, so the head
    // alone would be too late. A whole answer is read at its end, which one beyond the limit never reaches.
    void limitReadingAhead()
    {
        const auto setLimit = [this] { m_networkReply->setReadBufferSize(readAhead); };
        QMetaObject::invokeMethod(m_networkReply, setLimit, Qt::QueuedConnection);
        connect(m_networkReply, &QNetworkReply::metaDataChanged, this, setLimit);
    }

    void end(void (AnswerReceiver::*handle)())
    {
        const QPointer<QNetworkReply> networkReply(m_networkReply);
        if (isWanted())
            (this->*handle)();
        if (networkReply)
            networkReply->deleteLater();
    }

    void endWhole()
    {
        QByteArray body = m_networkReply->readAll();
        const RequestOutcome outcome = outcomeOf(*m_networkReply, body.size());
        if (outcome.hasFailed()) {
            m_reply->fail(outcome.report(body));
            return;
        }
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(body, &error);
        if (!document.isObject()) {
            m_reply->fail(QStringLiteral("Invalid JSON response: %1\nResponse: %2")
                              .arg(error.errorString(), bodySummary(body)));
            return;
        }
        body.clear();
        deliver(document.object());
    }

    void deliver(const QJsonObject &response)
    {
        const QPointer<AnswerReceiver> self(this);
        const QString content = contentOf(responseMessage(response));
        // cppcheck-suppress nullPointerRedundantCheck ; a slot may delete the reply
        m_reply->setResponse(response);
        if (self && m_reply)
            m_reply->appendDelta(content);
        if (self && m_reply)
            m_reply->finish(content);
    }

    void readStream()
    {
        const QPointer<AnswerReceiver> self(this);
        if (!isWanted())
            return;
        m_stream.append(m_networkReply->readAll());
        QString delta;
        while (self && isWanted() && m_stream.takeDelta(&delta))
            m_reply->appendDelta(delta);
    }

    void endStream()
    {
        const QPointer<AnswerReceiver> self(this);
        readStream();
        if (!self || !isWanted())
            return;
        const RequestOutcome outcome = outcomeOf(*m_networkReply, m_stream.size());
        if (outcome.hasFailed())
            m_reply->fail(outcome.report(m_stream.body()));
        else
            m_reply->finish(m_reply->text());
    }

    QNetworkReply *const m_networkReply;
    const QPointer<ChatReply> m_reply;
    EventStreamReader m_stream;
};

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
        return ChatReply::failLater(QStringLiteral("Missing baseUrl or model."), owner);

    const QNetworkRequest request = requestFor(profile);
    if (!isHttp(request.url()))
        return ChatReply::failLater(outcomeOfUnknownProtocol(request.url()).report({}), owner);

    const bool stream = profile.stream && tools.isEmpty();
    auto *reply = new ChatReply(owner);
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
