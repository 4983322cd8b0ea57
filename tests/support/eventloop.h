#ifndef QTAGENT_TESTS_EVENTLOOP_H
#define QTAGENT_TESTS_EVENTLOOP_H

#include <QAbstractEventDispatcher>

/// Runs the event loop until it has nothing left to do: no posted event, no timer that is due.
inline void runUntilQuiet()
{
    while (QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents)) {
    }
}

#endif
