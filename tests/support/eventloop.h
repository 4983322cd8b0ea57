#ifndef QTAGENT_TESTS_EVENTLOOP_H
#define QTAGENT_TESTS_EVENTLOOP_H

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <functional>

/// Runs the event loop until it has nothing left to do: no posted event, no timer that is due.
inline void runUntilQuiet()
{
    while (QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents)) {
    }
}

/// Runs the event loop until @p condition holds, at most for half a minute, and returns whether it does.
/// Looks after every event, and now and then without one, for what other threads and processes do.
inline bool runUntil(const std::function<bool()> &condition)
{
    constexpr int patienceMs = 30000;
    constexpr int lookMs = 10;
    QTimer look;
    look.start(lookMs);
    const QDeadlineTimer limit(patienceMs);
    while (!condition() && !limit.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return condition();
}

#endif
