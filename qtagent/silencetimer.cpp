#include "silencetimer_p.h"

namespace MireloQtLib {
namespace QtAgent {

SilenceTimer::SilenceTimer(QNetworkReply *networkReply, int milliseconds,
                           const std::function<void()> &callback)
    : QObject(networkReply)
    , m_networkReply(networkReply)
    , m_callback(callback)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(milliseconds);
    connect(networkReply, &QNetworkReply::metaDataChanged, this, &SilenceTimer::restart);
    connect(networkReply, &QNetworkReply::readyRead, this, &SilenceTimer::restart);
    connect(networkReply, &QNetworkReply::uploadProgress, this, &SilenceTimer::restart);
    connect(networkReply, &QNetworkReply::finished, &m_timer, &QTimer::stop);
    // Where the program was busy for longer than that, what arrived meanwhile waits before this call.
    connect(&m_timer, &QTimer::timeout, this, &SilenceTimer::check, Qt::QueuedConnection);
    restart();
}

void SilenceTimer::check()
{
    const std::function<void()> callback = m_callback;
    if (!m_timer.isActive() && !m_networkReply->isFinished())
        callback();
}

} // namespace QtAgent
} // namespace MireloQtLib
