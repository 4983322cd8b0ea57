#ifndef MIRELOQTLIB_QTAGENT_CHILDPROCESS_P_H
#define MIRELOQTLIB_QTAGENT_CHILDPROCESS_P_H

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QThread>

#ifdef Q_OS_UNIX
#    include <cerrno>
#    include <csignal>
#    include <cstring>
#    include <unistd.h>
#endif

namespace MireloQtLib {
namespace QtAgent {

// A program in a process group of its own, so that what it starts can be ended with it, and with a chosen
// environment. On Windows there is no group: the program alone is meant. Part of more than one library,
// therefore inline and without a meta object.
class ChildProcess : public QProcess
{
public:
    explicit ChildProcess(QObject *parent = nullptr)
        : QProcess(parent)
    {
#if defined(Q_OS_UNIX) && QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier([] { ::setpgid(0, 0); });
#endif
        // Direct: the group's number must not be used once the system can have given it to others.
        connect(this, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                m_group = 0;
        });
    }

    ~ChildProcess() override
    {
        disconnect();
        killGroup();
        waitForFinished();
    }
    Q_DISABLE_COPY(ChildProcess)

    // Ours are passed on in part, and @p added may add to them or replace them.
    void setChosenEnvironment(const QProcessEnvironment &added)
    {
        const QProcessEnvironment ours = QProcessEnvironment::systemEnvironment();
        QProcessEnvironment chosen;
        for (const char *variable : {"HOME", "LOGNAME", "PATH", "SHELL", "TERM", "USER"}) {
            const QString name = QString::fromLatin1(variable);
            if (ours.contains(name))
                chosen.insert(name, ours.value(name));
        }
        chosen.insert(added);
        m_hasEmptyEnvironment = chosen.isEmpty();
        setProcessEnvironment(chosen);
    }

    // Reports a failure by errorOccurred() before it returns, or later.
    void startGroup(const QString &program, const QStringList &arguments, OpenMode mode = ReadWrite)
    {
#ifdef Q_OS_UNIX
        // Qt 6.4 loses a descriptor for every program that fails to start: the usual reasons are looked for
        // before.
        const QString path = pathOf(program);
        if (const int problem = problemOf(path)) {
            setErrorString(QString::fromLocal8Bit(std::strerror(problem)));
            Q_EMIT errorOccurred(QProcess::FailedToStart);
            return;
        }
        start(path, arguments, mode);
        // The child does the same. Whoever is first, a signal to the group finds it from now on.
        m_group = pid_t(processId());
        if (m_group > 0)
            ::setpgid(m_group, m_group);
#else
        start(program, arguments, mode);
#endif
    }

    // Whether the program or anything that it has started is left.
    bool hasGroup() const
    {
#ifdef Q_OS_UNIX
        return m_group > 0 && ::kill(-m_group, 0) == 0;
#else
        return state() != QProcess::NotRunning;
#endif
    }

    void terminateGroup()
    {
#ifdef Q_OS_UNIX
        if (m_group > 0)
            ::kill(-m_group, SIGTERM);
#else
        terminate();
#endif
    }

    // Nothing of the group outlives this, so that its number is given up.
    void killGroup()
    {
#ifdef Q_OS_UNIX
        if (m_group > 0)
            ::kill(-m_group, SIGKILL);
        m_group = 0;
#else
        kill();
#endif
    }

    // Kills the group and deletes this object once the program is reaped, without waiting for that where an
    // event loop can do it.
    static void discard(ChildProcess *process)
    {
        process->disconnect();
        process->killGroup();
        QCoreApplication *const application = QCoreApplication::instance();
        if (!application || application->thread() != process->thread()) {
            delete process;
            return;
        }
        process->setParent(application);
        if (process->state() == QProcess::NotRunning)
            process->deleteLater();
        connect(process, &QProcess::stateChanged, process, [process](QProcess::ProcessState state) {
            if (state == QProcess::NotRunning)
                process->deleteLater();
        });
    }

#if defined(Q_OS_UNIX) && QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override
    {
        ::setpgid(0, 0);
#    ifndef Q_OS_DARWIN
        // Qt 5 takes an empty environment for none, and would pass ours on.
        static char *nothing = nullptr;
        if (m_hasEmptyEnvironment)
            environ = &nothing;
#    endif
    }
#endif

private:
#ifdef Q_OS_UNIX
    // A name without a folder is looked for in PATH, any other counts from the working directory.
    QString pathOf(const QString &program) const
    {
        if (!program.contains(QLatin1Char('/')))
            return QStandardPaths::findExecutable(program);
        return QDir(workingDirectory()).absoluteFilePath(program);
    }

    int problemOf(const QString &path) const
    {
        const QFileInfo file(path);
        if (path.isEmpty() || !file.exists() || !QDir(workingDirectory()).exists())
            return ENOENT;
        return file.isFile() && file.isExecutable() ? 0 : EACCES;
    }

    pid_t m_group = 0;
#endif
    bool m_hasEmptyEnvironment = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
