#include "pagepictures.h"
#include "widgetpictures.h"

#include <demo/demostartup.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QStyleFactory>

#include <cstdio>

namespace {

int printNames(const QStringList &names)
{
    for (const QString &name : names)
        std::printf("%s\n", qUtf8Printable(name));
    return EXIT_SUCCESS;
}

// The widgets are shown as a program gets them that has no style sheet of its own.
int savePictures(const QDir &folder)
{
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    if (!saveWidgetPictures(folder))
        return EXIT_FAILURE;
    applyDemoStyle();
    return savePagePictures(folder) ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Saves the manual's pictures of the library's widgets and of the demo's pages."));
    parser.addHelpOption();
    const QCommandLineOption list(QStringLiteral("list"),
                                  QStringLiteral("Print the pictures' names and save nothing."));
    parser.addOption(list);
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Existing folder for the pictures."),
                                 QStringLiteral("[DIR]"));
    parser.process(application);

    const QStringList folders = parser.positionalArguments();
    if (folders.size() != (parser.isSet(list) ? 0 : 1))
        parser.showHelp(EXIT_FAILURE);
    QString error;
    const QStringList pagePictures = pagePictureNames(&error);
    if (!error.isEmpty()) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(error));
        return EXIT_FAILURE;
    }
    return parser.isSet(list) ? printNames(widgetPictureNames() + pagePictures)
                              : savePictures(QDir(folders.first()));
}
