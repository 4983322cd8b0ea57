#ifndef MIRELOQTLIB_QTAGENT_REPLYPLAYER_P_H
#define MIRELOQTLIB_QTAGENT_REPLYPLAYER_P_H

#include <qtagent/chatmodel.h>

#include <QObject>
#include <QTimer>
#include <QVector>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

/// What happens to a reply, and how many milliseconds after the step before.
struct ReplyStep
{
    qint64 pauseMs = 0;
    std::function<void(ChatReply *)> play;
};

/// Plays @p steps on @p reply from the event loop, and stops where the reply ends. Steps without a pause are
/// played in the turn of the step before them, or by an event loop that a slot runs meanwhile.
void playLater(const QVector<ReplyStep> &steps, ChatReply *reply);

/// Plays steps on a reply, which is its parent.
class ReplyPlayer : public QObject
{
    Q_OBJECT

public:
    ReplyPlayer(const QVector<ReplyStep> &steps, ChatReply *reply);

    void schedule();

private:
    void playDue();

    const QVector<ReplyStep> m_steps;
    ChatReply *const m_reply;
    int m_next = 0;
    QTimer m_timer;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
