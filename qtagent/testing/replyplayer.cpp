#include "replyplayer_p.h"

#include <QPointer>

#include <algorithm>
#include <limits>

namespace MireloQtLib {
namespace QtAgent {

void playLater(const QVector<ReplyStep> &steps, ChatReply *reply)
{
    (new ReplyPlayer(steps, reply))->schedule();
}

ReplyPlayer::ReplyPlayer(const QVector<ReplyStep> &steps, ChatReply *reply)
    : QObject(reply)
    , m_steps(steps)
    , m_reply(reply)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &ReplyPlayer::playDue);
}

void ReplyPlayer::schedule()
{
    if (m_next == m_steps.size())
        return;
    const qint64 pauseMs = std::min<qint64>(m_steps.at(m_next).pauseMs, std::numeric_limits<int>::max());
    m_timer.start(int(pauseMs));
}

// What comes next is due before a step is played: a slot may run an event loop until the reply has ended.
void ReplyPlayer::playDue()
{
    const QPointer<ReplyPlayer> self(this);
    const QVector<ReplyStep> steps = m_steps; // a slot may delete the reply, and thereby this object
    for (int step = m_next; step < steps.size() && m_reply->isRunning(); ++step) {
        m_next = step + 1;
        schedule();
        steps.at(step).play(m_reply);
        const bool isInterrupted = !self || m_next != step + 1;
        if (isInterrupted || (m_next < steps.size() && steps.at(m_next).pauseMs > 0))
            return;
    }
    m_timer.stop();
}

} // namespace QtAgent
} // namespace MireloQtLib
