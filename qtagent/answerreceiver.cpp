#include "answerreceiver_p.h"

#include "readahead_p.h"
#include "reasoningfields_p.h"
#include "reasoningmemory_p.h"
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

bool isTrue(const QJsonValue &value)
{
    return value.isObject() || value.isArray() || value.toBool() || value.toDouble() != 0
        || !value.toString().isEmpty();
}

// Old servers send the error as a field of its own, as JSON.
bool isErrorField(const QByteArray &value)
{
    const QJsonDocument document = QJsonDocument::fromJson('[' + value + ']');
    return document.isArray() ? isTrue(document.array().at(0)) : !value.isEmpty();
}

// Finish reasons of answers that broke off.
bool isFailure(const QString &finishReason)
{
    const QStringList reasons{QStringLiteral("error"), QStringLiteral("abort"),
                              QStringLiteral("network_error"),
                              QStringLiteral("insufficient_system_resource")};
    return reasons.contains(finishReason);
}

// Whether an event is one of the protocol.
bool isUnderstood(const QJsonObject &event)
{
    return event.value(QLatin1String("choices")).isArray() || event.value(QLatin1String("usage")).isObject();
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

AnswerReceiver::AnswerReceiver(QNetworkReply *networkReply, CompletionReply *reply, const AnswerRules &rules)
    : QObject(networkReply)
    , m_networkReply(networkReply)
    , m_reply(reply)
    , m_rules(rules)
    , m_content(rules.options)
    , m_calls(rules.toolNames)
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
    m_isStream = true;
    limitReadingAhead(m_networkReply, readAhead);
    connect(m_networkReply, &QNetworkReply::readyRead, this, &AnswerReceiver::readStream,
            Qt::QueuedConnection);
    connect(
        m_networkReply, &QNetworkReply::finished, this, [this] { end(&AnswerReceiver::endStream); },
        Qt::QueuedConnection);
}

void AnswerReceiver::limitSilence(int milliseconds)
{
    if (milliseconds > 0)
        m_silence = new SilenceTimer(m_networkReply, milliseconds, [this] { endSilence(); });
}

void AnswerReceiver::endSilence()
{
    if (!isWanted())
        return;
    const QPointer<AnswerReceiver> self(this);
    const qint64 sizeBefore = m_stream.size();
    if (m_isStream)
        readStream();
    if (!self || !isWanted())
        return;
    if (m_stream.size() > sizeBefore) {
        m_silence->restart();
        return;
    }
    tellRest();
    if (!self || !isWanted())
        return;
    const QByteArray body = m_isStream ? m_stream.body() : m_networkReply->readAll();
    const RequestOutcome outcome = outcomeOfSilence(*m_networkReply, m_silence->interval());
    m_isOver = true;
    m_networkReply->abort();
    if (self && m_reply)
        fail(outcome.report(body), outcome, body);
}

void AnswerReceiver::abandon()
{
    m_isOver = true;
    m_networkReply->abort();
}

bool AnswerReceiver::isWanted() const
{
    return m_reply && !m_reply->isCanceled() && !m_isOver;
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
        readWhole(std::exchange(body, {}), outcome);
}

// Of a body that came as a stream only what a report needs may be left.
void AnswerReceiver::readWhole(const QByteArray &body, const RequestOutcome &outcome)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (document.isObject()) {
        deliver(document.object());
        return;
    }
    const QString report = invalidJsonReport(error, body);
    if (m_errorEvent.isEmpty())
        fail(report, outcome, body);
    else
        failByEvent(report, outcome);
}

void AnswerReceiver::deliver(const QJsonObject &response)
{
    const QPointer<AnswerReceiver> self(this);
    const QJsonObject choice = choiceOf(response, m_rules.choiceRule());
    const QJsonObject message = choice.value(QLatin1String("message")).toObject();
    const AnswerPiece piece = m_content.readWhole(message);
    readMetadata(response, choice);
    readRefusal(message);
    keepReasoning(toolCallsOf(message));
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
    while (isTold()) {
        if (!m_stream.takeEvent(&event))
            return false;
        readEvent(event);
    }
    return true;
}

bool AnswerReceiver::isTold() const
{
    return m_piece.reasoning.isEmpty() && m_piece.text.isEmpty() && m_nextCallPiece == m_callPieces.size();
}

void AnswerReceiver::readEvent(const StreamEvent &event)
{
    if (event.kind == StreamEvent::Kind::Object)
        readObject(event.object);
    else if (event.kind == StreamEvent::Kind::EndMark)
        m_hasEndMark = true;
    else if (m_errorEvent.isEmpty() && isErrorField(event.error))
        m_errorEvent = event.error;
}

void AnswerReceiver::readObject(const QJsonObject &event)
{
    const QJsonObject choice = choiceOf(event, m_rules.choiceRule());
    const QJsonObject delta = choice.value(QLatin1String("delta")).toObject();
    m_piece = m_content.read(delta);
    readMetadata(event, choice);
    // Most deltas hold a text and nothing else.
    if (delta.size() > 1 || m_piece.text.isEmpty())
        readRefusal(delta);
    if (!m_rules.takesWholeAnswers())
        return;
    m_isUnderstood = m_isUnderstood || isUnderstood(event);
    if (m_errorEvent.isEmpty() && isTrue(event.value(QLatin1String("error"))))
        m_errorEvent = QJsonDocument(event).toJson(QJsonDocument::Compact);
    if (m_rules.assemblesCalls())
        readCalls(delta);
}

// An old form of the protocol knows one call, which is no list.
void AnswerReceiver::readCalls(const QJsonObject &delta)
{
    m_calls.beginEvent();
    m_nextCallPiece = 0;
    m_callPieces = toolCallsOf(delta);
    const QJsonValue function = delta.value(QLatin1String("function_call"));
    if (m_callPieces.isEmpty() && function.isObject())
        m_callPieces = {QJsonObject{{QStringLiteral("function"), function}}};
}

void AnswerReceiver::tellPiece()
{
    if (!m_piece.reasoning.isEmpty())
        m_reply->appendReasoning(std::exchange(m_piece.reasoning, {}));
    else if (!m_piece.text.isEmpty())
        m_reply->appendDelta(std::exchange(m_piece.text, {}));
    else
        tellCallPiece();
}

void AnswerReceiver::tellCallPiece()
{
    const int call = m_calls.addPiece(m_callPieces.at(m_nextCallPiece++));
    if (call >= 0)
        m_reply->progressToolCall(call, m_calls.name(call), m_calls.arguments(call));
}

// Everything else was told.
void AnswerReceiver::tellRest()
{
    const QPointer<AnswerReceiver> self(this);
    m_piece = m_content.end();
    while (self && isWanted() && !isTold())
        tellPiece();
}

void AnswerReceiver::endStream()
{
    const QPointer<AnswerReceiver> self(this);
    readStream();
    if (self && isWanted())
        tellRest();
    if (!self || !isWanted())
        return;
    const RequestOutcome outcome = outcomeOf(*m_networkReply, m_stream.size());
    if (outcome.hasFailed())
        fail(outcome.report(m_stream.body()), outcome, m_stream.body());
    else
        endSoundStream(outcome);
}

// What arrived may still be no answer.
void AnswerReceiver::endSoundStream(const RequestOutcome &outcome)
{
    const bool isNoStream = m_rules.takesWholeAnswers() && !m_isUnderstood;
    const QString fault = streamFault();
    const bool isWhole = isNoStream && QJsonDocument::fromJson(m_stream.body()).isObject();
    if (!isWhole && !fault.isEmpty())
        failStream(fault, outcome);
    else if (isWhole || (isNoStream && m_rules.assemblesCalls()))
        readWhole(m_stream.body(), outcome);
    else
        handOver();
}

// Returns the first line of the report, empty where nothing is wrong.
QString AnswerReceiver::streamFault() const
{
    const bool isStrict = m_rules.options.strictStreams;
    if (isStrict && !m_errorEvent.isEmpty())
        return QStringLiteral("Error event in the stream.");
    if (isStrict && isFailure(m_reply->finishReason()))
        return QStringLiteral("The model stopped: %1.").arg(m_reply->finishReason());
    if (!m_calls.isEmpty() && !mayHandOver())
        return QStringLiteral("Incomplete tool call from the model.");
    if (isStrict && !m_isUnderstood)
        return QStringLiteral("No answer in the stream.");
    if (isStrict && !hasEnd())
        return QStringLiteral("The stream ended early.");
    return {};
}

bool AnswerReceiver::hasEnd() const
{
    return m_hasEndMark || !m_reply->finishReason().isEmpty() || m_stream.endsWithEndMark();
}

bool AnswerReceiver::mayHandOver() const
{
    return m_errorEvent.isEmpty() && hasEnd() && m_calls.isComplete();
}

void AnswerReceiver::handOver()
{
    const QPointer<AnswerReceiver> self(this);
    const QJsonArray calls = m_calls.calls(m_rules.callIds);
    keepReasoning(calls);
    if (!calls.isEmpty())
        m_reply->setToolCalls(m_reply->text(), calls);
    if (self && m_reply)
        m_reply->finish(m_reply->text());
}

void AnswerReceiver::readMetadata(const QJsonObject &object, const QJsonObject &choice)
{
    const QString reason = choice.value(QLatin1String("finish_reason")).toString();
    if (!reason.isEmpty())
        m_reply->setFinishReason(reason);
    QJsonValue usage = object.value(QLatin1String("usage"));
    if (!usage.isObject())
        usage = choice.value(QLatin1String("usage"));
    if (usage.isObject())
        m_reply->setUsage(usageFrom(usage.toObject()));
}

// A refusal of many pieces grows in place, as long as nobody else holds it.
void AnswerReceiver::readRefusal(const QJsonObject &message)
{
    const QString piece = message.value(QLatin1String("refusal")).toString();
    if (piece.isEmpty())
        return;
    QString refusal = m_reply->refusal();
    m_reply->setRefusal({});
    refusal += piece;
    m_reply->setRefusal(refusal);
}

void AnswerReceiver::fail(const QString &error, const RequestOutcome &outcome, const QByteArray &body)
{
    m_reply->setFailure(failureOf(*m_networkReply, outcome, body));
    m_reply->fail(error);
}

void AnswerReceiver::failStream(const QString &fault, const RequestOutcome &outcome)
{
    const bool tellsEvent = m_rules.options.strictStreams && !m_errorEvent.isEmpty();
    const QString report =
        QStringLiteral("%1\n%2").arg(fault, outcome.report(tellsEvent ? m_errorEvent : m_stream.body()));
    if (!m_errorEvent.isEmpty()) {
        failByEvent(report, outcome);
        return;
    }
    ChatFailure failure = failureOf(*m_networkReply, outcome, {});
    failure.code = faultCode();
    m_reply->setFailure(failure);
    m_reply->fail(report);
}

void AnswerReceiver::failByEvent(const QString &error, const RequestOutcome &outcome)
{
    ChatFailure failure = failureOf(*m_networkReply, outcome, m_errorEvent);
    if (failure.message.isEmpty())
        failure.message = bodySummary(m_errorEvent);
    m_reply->setFailure(failure);
    m_reply->fail(error);
}

QString AnswerReceiver::faultCode() const
{
    if (isFailure(m_reply->finishReason()))
        return m_reply->finishReason();
    if (!m_isUnderstood)
        return QStringLiteral("no_answer");
    return hasEnd() ? QStringLiteral("incomplete_tool_call") : QStringLiteral("stream_ended_early");
}

void AnswerReceiver::keepReasoning(const QJsonArray &calls)
{
    const QJsonObject fields = m_content.reasoningFields();
    ReasoningFields::set(m_reply, fields);
    if (!m_rules.memory)
        return;
    const QUrl url = m_networkReply->request().url();
    m_rules.memory->rememberKeys(url, m_content.reasoningKeys());
    if (!calls.isEmpty())
        m_rules.memory->remember(url, calls, fields);
}

} // namespace QtAgent
} // namespace MireloQtLib
