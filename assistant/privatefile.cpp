#include "privatefile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace {

constexpr qint64 largestFile = 1024 * 1024;

bool setAside(const QString &path, QString *error)
{
    QFile file(path);
    int number = 1;
    const auto name = [&] { return QStringLiteral("%1.damaged-%2").arg(path, QString::number(number)); };
    while (QFileInfo::exists(name()))
        ++number;
    const bool isRenamed = file.rename(name());
    *error = isRenamed ? QString() : file.errorString();
    return isRenamed;
}

} // namespace

bool readPrivateObject(const QString &path, QJsonObject *object)
{
    QFile file(path);
    // A FIFO would wait for its writer.
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > largestFile)
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(file.read(largestFile));
    *object = document.object();
    return document.isObject();
}

bool isDamagedPrivateFile(const QString &path)
{
    QJsonObject object;
    return QFileInfo(path).size() > 0 && QFileInfo(path).isFile() && !readPrivateObject(path, &object);
}

bool writePrivateObject(const QString &path, const QJsonObject &object, QString *error)
{
    QDir().mkpath(QFileInfo(path).path());
    if (isDamagedPrivateFile(path) && !setAside(path, error))
        return false;
    const QByteArray content = QJsonDocument(object).toJson();
    QSaveFile file(path);
    // Before a key is in it.
    const bool isWritten = file.open(QIODevice::WriteOnly)
                        && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
                        && file.write(content) == content.size() && file.commit();
    *error = isWritten ? QString() : file.errorString();
    return isWritten;
}
