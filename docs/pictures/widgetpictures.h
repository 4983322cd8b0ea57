#ifndef ORVANE_WIDGETPICTURES_H
#define ORVANE_WIDGETPICTURES_H

#include <QStringList>

QT_BEGIN_NAMESPACE
class QDir;
class QImage;
QT_END_NAMESPACE

// The pictures of the library's widgets, each with the content of an everyday moment. They are named after
// the widgets' headers. One is of the window of an example.

/// Returns the file names of the pictures.
QStringList widgetPictureNames();

/// Saves the pictures to @p folder, in the application's style. Returns false where one could not be saved.
bool saveWidgetPictures(const QDir &folder);

/// Saves @p picture to the file @p name of @p folder. Returns false, and says so on the standard error, where
/// that fails.
bool savePicture(const QImage &picture, const QDir &folder, const QString &name);

#endif
