#ifndef ORVANE_TOURRUN_H
#define ORVANE_TOURRUN_H

#include <QDir>
#include <QStringList>

/// Returns the looks that a tour shows: language, colours and scale, for example "zh-dark-200".
QStringList tourLooks();

/// Runs this program once for each look, and waits for it. Returns EXIT_FAILURE where one failed.
int runTours(const QDir &folder);

/// Leads a window with the look @p look through its states, and returns the exit status. The scale is that of
/// the process.
int runTour(const QDir &folder, const QString &look);

#endif
