#include "answerreceiver_p.h"

#include "chatcompletion_p.h"
#include "reasoningfields_p.h"
#include "servicefailure_p.h"

#include <QJsonDocument>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// How much of a stream Qt's network thread may read ahead of the event loop, in bytes. Where a connection
// breaks while more is waiting, Qt drops what it holds back.
constexpr qint64 readAhead = 1024 * 1024;

qint64 tokens(const QJsonValue &count)
{
    constexpr double largestInteger = 9007199254740992.0;
    const double number = count.toDouble(-1);
    const bool isCount = number >= 0 && number <= largestInteger && double(qint64(number)) == number;
    return isCount ? qint64(number) : -1;
}

TokenUsage usageFrom(const QJsonObject &usage)
{
    const QJsonObject details = usage.value(QLatin1String("completion_tokens_details")).toObject();
    TokenUsage result;
    result.prompt = tokens(usage.value(QLatin1String("prompt_tokens")));
    result.completion = tokens(usage.value(QLatin1String("completion_tokens")));
    result.reasoning = tokens(details.value(QLatin1String("reasoning_tokens")));
    if (result.reasoning < 0)
        result.reasoning = tokens(usage.value(QLatin1String("reasoning_tokens")));
    return result;
}

} // namespace

AnswerReceiver::AnswerReceiver(QNetworkReply *networkReply, CompletionReply *reply)
    : QObject(networkReply)
    , m_networkReply(networkReply)
    , m_reply(reply)
{
    connect(reply, &ChatReply::canceled, networkReply, &QNetworkReply::abort);
    connect(reply, &QObject::destroyed, networkReply, &QNetworkReply::abort);
}

void AnswerReceiver::receiveWhole()
{
    connect(
        m_networkReply, &QNetworkReply::finished, this, [this] { end(&AnswerReceiver::endWhole); },
        Qt::QueuedConnection);
}

void AnswerReceiver::receiveStream()
{
    limitReadingAhead();
    connect(m_networkReply, &QNetworkReply::readyRead, this, &AnswerReceiver::readStream,
            Qt::QueuedConnection);
    connect(
        m_networkReply, &QNetworkReply::finished, this, [this] { end(&AnswerReceiver::endStream); },
        Qt::QueuedConnection);
}

bool AnswerReceiver::isWanted() const
{
    return m_reply && !m_reply->isCanceled();
}

// Without a limit a fast server fills the memory. Qt forgets one that is set before the network thread
// knows the request, which it does on the next turn of the event loop, or by the time of the head where a
// network has to be opened first. While bytes arrive the thread may not look for a new limit, so the head
// alone would be too late. A whole answer is read at its end, which one beyond the limit never reaches.
void AnswerReceiver::limitReadingAhead()
{
    const auto setLimit = [this] { m_networkReply->setReadBufferSize(readAhead); };
    QMetaObject::invokeMethod(m_networkReply, setLimit, Qt::QueuedConnection);
    connect(m_networkReply, &QNetworkReply::metaDataChanged, this, setLimit);
}

void AnswerReceiver::end(void (AnswerReceiver::*handle)())
{
    const QPointer<QNetworkReply> networkReply(m_networkReply);
    if (isWanted())
        (this->*handle)();
    if (networkReply)
        networkReply->deleteLater();
}

void AnswerReceiver::endWhole()
{
    QByteArray body = m_networkReply->readAll();
    const RequestOutcome outcome = outcomeOf(*m_networkReply, body.size());
    if (outcome.hasFailed())
        fail(outcome.report(body), outcome, body);
    else
        readWhole(std::exchange(body, {}));
}

void AnswerReceiver::readWhole(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (document.isObject()) {
        deliver(document.object());
        return;
    }
    fail(
        QStringLiteral("Invalid JSON response: %1\nResponse: %2").arg(error.errorString(), bodySummary(body)),
        outcomeOf(*m_networkReply, body.size()), body);
}

void AnswerReceiver::deliver(const QJsonObject &response)
{
    const QPointer<AnswerReceiver> self(this);
    const QJsonObject choice = choiceOf(response, ChoiceRule::First);
    const QJsonObject message = choice.value(QLatin1String("message")).toObject();
    const AnswerPiece piece = m_content.read(message);
    readMetadata(response, choice, message);
    ReasoningFields::set(m_reply, m_content.reasoningFields());
    if (!piece.reasoning.isEmpty())
        m_reply->appendReasoning(piece.reasoning);
    if (self && isWanted())
        m_reply->setResponse(response);
    if (self && m_reply)
        m_reply->appendDelta(piece.text);
    if (self && m_reply)
        m_reply->finish(piece.text);
}

void AnswerReceiver::readStream()
{
    const QPointer<AnswerReceiver> self(this);
    if (!isWanted())
        return;
    m_stream.append(m_networkReply->readAll());
    while (self && isWanted() && hasPiece())
        tellPiece();
}

// Reads on where everything was told.
bool AnswerReceiver::hasPiece()
{
    StreamEvent event;
    while (m_piece.reasoning.isEmpty() && m_piece.text.isEmpty()) {
        if (!m_stream.takeEvent(&event))
            return false;
        if (event.kind == StreamEvent::Kind::Object)
            readEvent(event.object);
    }
    return true;
}

void AnswerReceiver::readEvent(const QJsonObject &event)
{
    const QJsonObject choice = choiceOf(event, ChoiceRule::First);
    const QJsonObject delta = choice.value(QLatin1String("delta")).toObject();
    m_piece = m_content.read(delta);
    readMetadata(event, choice, delta);
}

void AnswerReceiver::tellPiece()
{
    if (!m_piece.reasoning.isEmpty())
        m_reply->appendReasoning(std::exchange(m_piece.reasoning, {}));
    else
        m_reply->appendDelta(std::exchange(m_piece.text, {}));
}

void AnswerReceiver::endStream()
{
    const QPointer<AnswerReceiver> self(this);
    readStream();
    if (!self || !isWanted())
        return;
    ReasoningFields::set(m_reply, m_content.reasoningFields());
    const RequestOutcome outcome = outcomeOf(*m_networkReply, m_stream.size());
    if (outcome.hasFailed())
        fail(outcome.report(m_stream.body()), outcome, m_stream.body());
    else
        m_reply->finish(m_reply->text());
}

void AnswerReceiver::readMetadata(const QJsonObject &object, const QJsonObject &choice,
                                  const QJsonObject &message)
{
    const QString reason = choice.value(QLatin1String("finish_reason")).toString();
    if (!reason.isEmpty())
        m_reply->setFinishReason(reason);
    const QString refusal = message.value(QLatin1String("refusal")).toString();
    if (!refusal.isEmpty())
        m_reply->setRefusal(m_reply->refusal() + refusal);
    QJsonValue usage = object.value(QLatin1String("usage"));
    if (!usage.isObject())
        usage = choice.value(QLatin1String("usage"));
    if (usage.isObject())
        m_reply->setUsage(usageFrom(usage.toObject()));
}

void AnswerReceiver::fail(const QString &error, const RequestOutcome &outcome, const QByteArray &body)
{
    m_reply->setFailure(failureOf(*m_networkReply, outcome, body));
    m_reply->fail(error);
}

} // namespace QtAgent
} // namespace MireloQtLib
