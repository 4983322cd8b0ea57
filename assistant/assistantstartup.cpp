#include "assistantstartup.h"

#include <QApplication>

void prepareAssistantApplication()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}

void applyAssistantIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Mirelo"));
    QCoreApplication::setApplicationName(QStringLiteral("orvane-assistant"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Orvane"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.mirelo.OrvaneAssistant"));
}
