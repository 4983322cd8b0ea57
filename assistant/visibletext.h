#ifndef ORVANE_VISIBLETEXT_H
#define ORVANE_VISIBLETEXT_H

#include <QString>
#include <QVector>

/// Returns @p text, which a stranger wrote, with each character that nobody can see as its code, "U+202E".
/// Line feeds stay, other breaks of a line do not.
inline QString visibleText(const QString &text)
{
    QString visible;
    for (const char32_t code : text.toUcs4()) {
        const bool isBreak = code == QChar::LineSeparator || code == QChar::ParagraphSeparator;
        if (code == '\n' || (QChar::isPrint(code) && !isBreak))
            visible += QString::fromUcs4(&code, 1);
        else
            visible += QStringLiteral("U+%1").arg(uint(code), 4, 16, QLatin1Char('0')).toUpper();
    }
    return visible;
}

#endif
