#include "picturefile.h"

#include <QDir>
#include <QHash>
#include <QImage>
#include <QImageWriter>
#include <QVector>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int mostColours = 256;
constexpr int mostCompression = 100;

// Grounds and texts have the most frequent colours; below this number only the edges of letters differ.
constexpr int exactColours = 64;
constexpr int visibleDifference = 8;

QHash<QRgb, int> countedColours(const QImage &picture)
{
    QHash<QRgb, int> counts;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            ++counts[picture.pixel(x, y)];
    }
    return counts;
}

QVector<QRgb> coloursByFrequency(const QImage &picture)
{
    const QHash<QRgb, int> counts = countedColours(picture);
    QVector<QRgb> colours(counts.keyBegin(), counts.keyEnd());
    std::sort(colours.begin(), colours.end(), [&counts](QRgb left, QRgb right) {
        const int leftCount = counts.value(left);
        const int rightCount = counts.value(right);
        return leftCount > rightCount || (leftCount == rightCount && left < right);
    });
    return colours;
}

bool isLike(QRgb left, QRgb right)
{
    return qAbs(qRed(left) - qRed(right)) < visibleDifference
        && qAbs(qGreen(left) - qGreen(right)) < visibleDifference
        && qAbs(qBlue(left) - qBlue(right)) < visibleDifference;
}

// The most frequent colours, then those that differ from all of the table.
QVector<QRgb> colourTable(const QImage &picture)
{
    QVector<QRgb> table;
    for (const QRgb colour : coloursByFrequency(picture)) {
        const auto isLikeColour = [colour](QRgb other) { return isLike(colour, other); };
        if (table.size() == mostColours)
            break;
        if (table.size() < exactColours || std::none_of(table.cbegin(), table.cend(), isLikeColour))
            table.append(colour);
    }
    return table;
}

} // namespace

bool savePicture(const QImage &picture, const QDir &folder, const QString &name)
{
    const QImage opaque = picture.convertToFormat(QImage::Format_RGB32);
    QImageWriter writer(folder.filePath(name), "png");
    writer.setCompression(mostCompression);
    if (writer.write(
            opaque.convertToFormat(QImage::Format_Indexed8, colourTable(opaque), Qt::ThresholdDither)))
        return true;
    std::fprintf(stderr, "Cannot write %s: %s\n", qUtf8Printable(writer.fileName()),
                 qUtf8Printable(writer.errorString()));
    return false;
}
