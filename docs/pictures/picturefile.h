#ifndef ORVANE_PICTUREFILE_H
#define ORVANE_PICTUREFILE_H

#include <QString>

QT_BEGIN_NAMESPACE
class QDir;
class QImage;
QT_END_NAMESPACE

/// Saves @p picture to the file @p name of @p folder as a small PNG of at most 256 colours. Returns false,
/// and says so on the standard error, where that fails.
bool savePicture(const QImage &picture, const QDir &folder, const QString &name);

#endif
