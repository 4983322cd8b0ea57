#include "tourrun.h"

#include "assistantstartup.h"
#include "assistanttour.h"

#include <QApplication>
#include <QProcess>

#include <cstdio>

namespace {

void printLine(const QString &line)
{
    std::fprintf(stdout, "%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

bool runLook(const QDir &folder, const QString &look)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"),
                       look.endsWith(QLatin1String("-200")) ? QStringLiteral("2") : QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--tour"), folder.path(), QStringLiteral("--look"), look});
    return process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == EXIT_SUCCESS;
}

} // namespace

QStringList tourLooks()
{
    QStringList looks;
    for (const char *language : {"zh", "en"}) {
        for (const char *colors : {"light", "dark"}) {
            for (const char *scale : {"100", "200"})
                looks.append(QStringLiteral("%1-%2-%3")
                                 .arg(QLatin1String(language), QLatin1String(colors), QLatin1String(scale)));
        }
    }
    return looks;
}

// How large a point is a process decides when it starts.
int runTours(const QDir &folder)
{
    bool succeeded = true;
    for (const QString &look : tourLooks())
        succeeded = runLook(folder, look) && succeeded;
    return succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
}

int runTour(const QDir &folder, const QString &look)
{
    applyAssistantLanguage(look.section(QLatin1Char('-'), 0, 0));
    applyAssistantColors(look.section(QLatin1Char('-'), 1, 1) == QLatin1String("dark"));
    QApplication::setQuitOnLastWindowClosed(false); // a tour ends behind its last state
    AssistantTour tour(folder, look + QLatin1Char('-'));
    QObject::connect(&tour, &AssistantTour::stateDone, &tour,
                     [look](const QString &report) { printLine(look + QLatin1Char(' ') + report); });
    QObject::connect(&tour, &AssistantTour::finished, &tour,
                     [](bool succeeded) { QCoreApplication::exit(succeeded ? EXIT_SUCCESS : EXIT_FAILURE); });
    QTimer::singleShot(0, &tour, &AssistantTour::start);
    return QApplication::exec();
}
