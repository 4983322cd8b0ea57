#include "privatefile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

bool writePrivateFile(const QString &path, const QByteArray &content, QString *error)
{
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    // Before a key is in it.
    const bool isWritten = file.open(QIODevice::WriteOnly)
                        && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
                        && file.write(content) == content.size() && file.commit();
    *error = isWritten ? QString() : file.errorString();
    return isWritten;
}
