#ifndef QTAGENT_TESTS_CONTRAST_H
#define QTAGENT_TESTS_CONTRAST_H

#include <QColor>
#include <QHash>
#include <QImage>
#include <QPixmap>
#include <QWidget>

#include <cmath>

// How well something can be seen in a picture of a widget.

inline double linear(double channel)
{
    return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

inline double luminance(const QColor &color)
{
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

/// The contrast ratio of the Web Content Accessibility Guidelines, from 1 to 21.
inline double contrast(const QColor &one, const QColor &other)
{
    const double brighter = qMax(luminance(one), luminance(other));
    const double darker = qMin(luminance(one), luminance(other));
    return (brighter + 0.05) / (darker + 0.05);
}

/// The ground of a painted text is its most frequent colour.
inline QColor groundOf(const QImage &image)
{
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            ++counts[image.pixel(x, y)];
    }
    QRgb ground = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > counts.value(ground))
            ground = it.key();
    }
    return QColor(ground);
}

/// The contrast that the core of the letters in a picture of a text reaches.
inline double paintedContrast(const QImage &image)
{
    const QColor ground = groundOf(image);
    double best = 1;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            best = qMax(best, contrast(ground, image.pixelColor(x, y)));
    }
    return best;
}

inline QImage picture(QWidget *widget, QRect part = {})
{
    if (part.isNull())
        part = widget->rect();
    return widget->grab(part).toImage().convertToFormat(QImage::Format_RGB32);
}

#endif
