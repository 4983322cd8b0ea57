#include "demostartup.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QStyleFactory>

namespace {

QString styleSheetOfProgram()
{
    QFile file(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("styles/dark.qss")));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(file.readAll());
}

} // namespace

void enableHighDpi()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#else
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Round);
#endif
}

void applyDemoStyle()
{
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QString styleSheet = styleSheetOfProgram();
    if (!styleSheet.isEmpty())
        qApp->setStyleSheet(styleSheet);
}
