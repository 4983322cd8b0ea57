#ifndef ORVANE_PAGEPICTURES_H
#define ORVANE_PAGEPICTURES_H

#include <QString>
#include <QStringList>

QT_BEGIN_NAMESPACE
class QDir;
QT_END_NAMESPACE

// The pictures of the demo's pages, each in the window after it was used once, and of the dialog that one of
// them opens. The mock model answers.

/// Returns the file names of the pictures. Where a page of the window has no picture, or a picture no page,
/// the list is empty and @p error says so.
QStringList pagePictureNames(QString *error);

/// Saves the pictures, which all have a name, to @p folder in the application's style. Returns false, and
/// says why on the standard error, where a page fails or a picture could not be saved.
bool savePagePictures(const QDir &folder);

#endif
