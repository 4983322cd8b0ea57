#ifndef MIRELOQTLIB_QTAGENT_ANSWERRECEIVER_P_H
#define MIRELOQTLIB_QTAGENT_ANSWERRECEIVER_P_H

#include "answercontent_p.h"
#include "eventstreamreader_p.h"
#include "requestoutcome_p.h"

#include <qtagent/completionreply.h>

#include <QNetworkReply>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

// Turns what a network reply receives into the signals of a CompletionReply.
//
// It is a child of the network reply, which dies with the model. Every emission may delete the
// CompletionReply, the model and thereby this object, abort the request, or enter here again from a nested
// event loop. The network reply's signals are queued, because Qt still uses a network reply after it emitted
// readyRead().
class AnswerReceiver : public QObject
{
public:
    AnswerReceiver(QNetworkReply *networkReply, CompletionReply *reply);

    // Awaits an answer that arrives as a whole.
    void receiveWhole();

    // Awaits an answer that arrives in events.
    void receiveStream();

private:
    bool isWanted() const;
    void limitReadingAhead();
    void end(void (AnswerReceiver::*handle)());

    void endWhole();
    void readWhole(const QByteArray &body);
    void deliver(const QJsonObject &response);

    void readStream();
    bool hasPiece();
    void readEvent(const QJsonObject &event);
    void tellPiece();
    void endStream();

    void readMetadata(const QJsonObject &object, const QJsonObject &choice, const QJsonObject &message);
    void fail(const QString &error, const RequestOutcome &outcome, const QByteArray &body);

    QNetworkReply *const m_networkReply;
    const QPointer<CompletionReply> m_reply;
    EventStreamReader m_stream;
    AnswerContent m_content;
    // What was read and is still to be told. An emission that runs an event loop comes back for it.
    AnswerPiece m_piece;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
