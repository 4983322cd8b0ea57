#ifndef QTAGENT_TESTS_STYLESHEET_H
#define QTAGENT_TESTS_STYLESHEET_H

#include <QApplication>
#include <QFile>

/// Gives the application the demo's style sheet, or none.
inline void useStyleSheet(bool dark = true)
{
    QFile file(QStringLiteral(ORVANE_STYLE_SHEET));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The style sheet cannot be read.");
    qApp->setStyleSheet(dark ? QString::fromUtf8(file.readAll()) : QString());
}

#endif
