#include "demostartup.h"
#include "orvanedemowindow.h"
#include "pagetour.h"

#include <qtagent/modelconfig.h>
#include <qtagent/widgets/modelconfigwidget.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QTemporaryDir>

#include <cstdio>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#    include <QTextCodec>
#endif

using namespace MireloQtLib::QtAgent;

namespace {

// The titles in the pictures' names are Chinese, also where no locale is set.
void useUtf8FileNames()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
#endif
}

void printLine(const QString &line, FILE *stream = stdout)
{
    std::fprintf(stream, "%s\n", line.toUtf8().constData());
    std::fflush(stream);
}

// Returns the folder's path, or an empty text where it cannot be made.
QString existingFolder(const QString &path)
{
    return QDir().mkpath(path) ? path : QString();
}

QString createFolder()
{
    QTemporaryDir folder(QDir::temp().filePath(QStringLiteral("orvane-tour-XXXXXX")));
    folder.setAutoRemove(false);
    return folder.isValid() ? folder.path() : QString();
}

// Replaces the profiles that the window has loaded by the one of a machine where nothing is configured.
void useMockModel(const OrvaneDemoWindow &window)
{
    const ModelProfiles offline = loadModelProfiles({}, QProcessEnvironment());
    window.findChild<ModelConfigWidget *>()->setProfiles(offline.profiles, offline.currentIndex);
}

int tourWindow(const QDir &folder, bool realModel)
{
    OrvaneDemoWindow window;
    if (!realModel)
        useMockModel(window);
    window.show();

    PageTour tour(&window, folder);
    QObject::connect(&tour, &PageTour::pageDone, &window, [](const QString &report) { printLine(report); });
    QObject::connect(&tour, &PageTour::finished, &window,
                     [](bool succeeded) { QCoreApplication::exit(succeeded ? EXIT_SUCCESS : EXIT_FAILURE); });
    tour.start();
    return QApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    useUtf8FileNames();
    prepareDemoApplication();
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false); // a tour ends behind its last page
    applyDemoStyle();
    applyDemoIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Uses every page of the demo and saves a picture of it."));
    parser.addHelpOption();
    const QCommandLineOption real(QStringLiteral("real"),
                                  QStringLiteral("Ask the configured model instead of the mock model."));
    parser.addOption(real);
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder for the pictures."),
                                 QStringLiteral("[DIR]"));
    parser.process(application);

    const QStringList folders = parser.positionalArguments();
    if (folders.size() > 1)
        parser.showHelp(EXIT_FAILURE);
    const QString folder = folders.isEmpty() ? createFolder() : existingFolder(folders.first());
    if (folder.isEmpty()) {
        printLine(QStringLiteral("Cannot make the folder for the pictures."), stderr);
        return EXIT_FAILURE;
    }
    if (folders.isEmpty())
        printLine(folder);
    applyDemoLanguage(); // after the command line, whose help is English
    return tourWindow(QDir(folder), parser.isSet(real));
}
