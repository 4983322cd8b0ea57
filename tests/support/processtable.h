#ifndef QTAGENT_TESTS_PROCESSTABLE_H
#define QTAGENT_TESTS_PROCESSTABLE_H

#include <QDir>
#include <QFile>
#include <QStringList>

// What the system knows of this program's processes and files. Linux only.

/// Returns the numbers of the processes that this one has started and not yet reaped, ended ones included.
inline QStringList childProcesses()
{
    QStringList children;
    const QStringList threads = QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads) {
        QFile file("/proc/self/task/" + thread + "/children");
        if (file.open(QIODevice::ReadOnly))
            children += QString::fromLatin1(file.readAll()).split(' ', Qt::SkipEmptyParts);
    }
    return children;
}

/// Returns whether the process with this number exists and has not ended.
inline bool isProcessRunning(const QString &number)
{
    QFile file("/proc/" + number.trimmed() + "/stat");
    if (number.trimmed().isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray stat = file.readAll();
    const QByteArray state = stat.mid(stat.lastIndexOf(')') + 2, 1);
    return !state.isEmpty() && state != "Z" && state != "X";
}

/// Returns how many files, pipes and sockets this process has open.
inline int openDescriptors()
{
    return int(QDir("/proc/self/fd").entryList(QDir::System | QDir::Files | QDir::NoDotAndDotDot).size());
}

#endif
