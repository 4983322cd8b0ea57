#ifndef MIRELOQTLIB_QTAGENT_SILENCETIMER_P_H
#define MIRELOQTLIB_QTAGENT_SILENCETIMER_P_H

#include <QNetworkReply>
#include <QTimer>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

// Tells when no byte of a request went either way for some time. Qt's own limit would end in the same error
// as a canceled request. It is a child of the network reply.
class SilenceTimer : public QObject
{
public:
    // @p milliseconds is above 0. @p callback may delete the network reply.
    SilenceTimer(QNetworkReply *networkReply, int milliseconds, const std::function<void()> &callback);

    int interval() const { return m_timer.interval(); }
    void restart() { m_timer.start(); }

private:
    void check();

    QNetworkReply *const m_networkReply;
    const std::function<void()> m_callback;
    QTimer m_timer;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
