#include "demostartup.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QLibraryInfo>
#include <QStyleFactory>
#include <QTranslator>

// Nothing else refers to them in a static library. The macro has to stand in no namespace.
static void initPictures()
{
    Q_INIT_RESOURCE(orvane);
}

namespace {

QStyle *createStyle()
{
    return QStyleFactory::create(QStringLiteral("Fusion"));
}

QString styleSheetOfProgram()
{
    QFile file(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("styles/dark.qss")));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(file.readAll());
}

QString translationsFolder()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
#else
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
#endif
}

QIcon demoIcon()
{
    QIcon icon;
    for (const int size : {16, 32, 48, 128, 256})
        icon.addFile(QStringLiteral(":/orvane/orvane-%1.png").arg(size));
    return icon;
}

} // namespace

void prepareDemoApplication()
{
    // Without a style Qt 6 looks for plug-ins in the program's folder styles/, takes the style sheet there
    // for one, and prints what is wrong with it where it is empty.
    QApplication::setStyle(createStyle());
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#else
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Round);
#endif
}

void applyDemoStyle()
{
    initPictures(); // of the style sheet
    QApplication::setStyle(createStyle());
    const QString styleSheet = styleSheetOfProgram();
    if (!styleSheet.isEmpty())
        qApp->setStyleSheet(styleSheet);
}

void applyDemoLanguage()
{
    auto *translator = new QTranslator(qApp);
    if (translator->load(QStringLiteral("qtbase_zh_CN"), translationsFolder()))
        QCoreApplication::installTranslator(translator);
}

void applyDemoIdentity()
{
    initPictures();
    QApplication::setWindowIcon(demoIcon());
    QGuiApplication::setDesktopFileName(QStringLiteral("com.mirelo.OrvaneDemo"));
}
