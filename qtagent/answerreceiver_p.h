#ifndef MIRELOQTLIB_QTAGENT_ANSWERRECEIVER_P_H
#define MIRELOQTLIB_QTAGENT_ANSWERRECEIVER_P_H

#include "answercontent_p.h"
#include "chatcompletion_p.h"
#include "eventstreamreader_p.h"
#include "requestoutcome_p.h"
#include "silencetimer_p.h"
#include "toolcallassembly_p.h"

#include <qtagent/completionreply.h>

#include <QNetworkReply>
#include <QPointer>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class ReasoningMemory;

// How an answer is read.
struct AnswerRules
{
    RequestOptions options;
    // Those offered with the request.
    QStringList toolNames;
    // The ids of the calls in the request's messages.
    QSet<QString> callIds;
    // Null where reasoning is not kept.
    std::shared_ptr<ReasoningMemory> memory;

    // Whether calls are put together from the pieces of a stream.
    bool assemblesCalls() const { return options.streamToolCalls && !toolNames.isEmpty(); }

    ChoiceRule choiceRule() const { return takesWholeAnswers() ? ChoiceRule::IndexZero : ChoiceRule::First; }

    // Whether an answer counts that came whole though a stream was asked for.
    bool takesWholeAnswers() const { return options.streamToolCalls || options.strictStreams; }
};

// Turns what a network reply receives into the signals of a CompletionReply.
//
// It is a child of the network reply, which dies with the model. Every emission may delete the
// CompletionReply, the model and thereby this object, abort the request, or enter here again from a nested
// event loop. The network reply's signals are queued, because Qt still uses a network reply after it emitted
// readyRead().
class AnswerReceiver : public QObject
{
public:
    AnswerReceiver(QNetworkReply *networkReply, CompletionReply *reply, const AnswerRules &rules);

    // Awaits an answer that arrives as a whole.
    void receiveWhole();

    // Awaits an answer that arrives in events.
    void receiveStream();

    // Fails the request where no byte goes either way for @p milliseconds, 0 or less for no limit.
    void limitSilence(int milliseconds);

    // Ends the request without a signal.
    void abandon();

private:
    bool isWanted() const;
    void end(void (AnswerReceiver::*handle)());

    void endWhole();
    void readWhole(const QByteArray &body, const RequestOutcome &outcome);
    void deliver(const QJsonObject &response);

    void readStream();
    bool hasPiece();
    void readEvent(const StreamEvent &event);
    void readObject(const QJsonObject &event);
    void readCalls(const QJsonObject &delta);
    bool isTold() const;
    void tellPiece();
    void tellCallPiece();
    void tellRest();
    void endStream();
    void endSoundStream(const RequestOutcome &outcome);
    bool hasEnd() const;
    bool mayHandOver() const;
    QString streamFault() const;
    void handOver();
    QString faultCode() const;

    void keepReasoning(const QJsonArray &calls);
    void endSilence();

    void readMetadata(const QJsonObject &object, const QJsonObject &choice);
    void readRefusal(const QJsonObject &message);
    void fail(const QString &error, const RequestOutcome &outcome, const QByteArray &body);
    void failByEvent(const QString &error, const RequestOutcome &outcome);
    void failStream(const QString &fault, const RequestOutcome &outcome);

    QNetworkReply *const m_networkReply;
    const QPointer<CompletionReply> m_reply;
    EventStreamReader m_stream;
    const AnswerRules m_rules;
    AnswerContent m_content;
    ToolCallAssembly m_calls;
    // What was read and is still to be told. An emission that runs an event loop comes back for it.
    AnswerPiece m_piece;
    QJsonArray m_callPieces;
    int m_nextCallPiece = 0;
    // What the stream has said about itself: whether anything was understood, whether it has ended, and the
    // first error event.
    bool m_isUnderstood = false;
    bool m_hasEndMark = false;
    QByteArray m_errorEvent;
    // Null where silence is not limited.
    SilenceTimer *m_silence = nullptr;
    bool m_isStream = false;
    bool m_isOver = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
