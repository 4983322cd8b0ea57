#include "replyplayer_p.h"

#include <QPointer>
#include <QTimer>

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
{}

void ReplyPlayer::schedule()
{
    if (m_next == m_steps.size())
        return;
    const qint64 pauseMs = std::min<qint64>(m_steps.at(m_next).pauseMs, std::numeric_limits<int>::max());
    QTimer::singleShot(int(pauseMs), Qt::PreciseTimer, this, &ReplyPlayer::playDue);
}

void ReplyPlayer::playDue()
{
    const QPointer<ReplyPlayer> self(this);
    const QVector<ReplyStep> steps = m_steps; // a slot may delete the reply, and thereby this object
    do {
        if (!m_reply->isRunning())
            return;
        steps.at(m_next++).play(m_reply);
    } while (self && m_next < steps.size() && steps.at(m_next).pauseMs <= 0);
    if (self)
        schedule();
}

} // namespace QtAgent
} // namespace MireloQtLib
