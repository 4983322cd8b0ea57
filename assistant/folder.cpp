#include "folder.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace {

constexpr int mostNames = 1000;
constexpr qint64 largestText = 256 * 1024;

// Qt warns of names that no file can have.
QString canonicalPathOf(const QString &path)
{
    return path.contains(QChar(0)) ? QString() : QFileInfo(path).canonicalFilePath();
}

} // namespace

Folder::Folder(const QString &path)
    : m_root(path.isEmpty() || !QFileInfo(path).isDir() ? QString() : QFileInfo(path).canonicalFilePath())
{}

bool Folder::isValid() const
{
    return !m_root.isEmpty();
}

QStringList Folder::list(const QString &path, QString *error) const
{
    const QString place = existing(path, error);
    if (!error->isEmpty())
        return {};
    if (!QFileInfo(place).isDir()) {
        *error = QStringLiteral("This is not a folder.");
        return {};
    }
    QStringList names;
    const auto entries =
        QDir(place).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    for (const QFileInfo &entry : entries.mid(0, mostNames))
        names.append(entry.isDir() ? entry.fileName() + QLatin1Char('/') : entry.fileName());
    if (entries.size() > mostNames)
        names.append(QStringLiteral("(%1 more)").arg(entries.size() - mostNames));
    return names;
}

QString Folder::read(const QString &path, QString *error) const
{
    const QString place = existing(path, error);
    if (!error->isEmpty())
        return {};
    QFile file(place);
    // A FIFO or a device would never end.
    if (!QFileInfo(place).isFile() || !file.open(QIODevice::ReadOnly))
        *error = QStringLiteral("This file cannot be read.");
    else if (file.size() > largestText)
        *error = QStringLiteral("The file has more than 256 KiB.");
    if (!error->isEmpty())
        return {};
    const QByteArray content = file.read(largestText);
    const QString text = QString::fromUtf8(content);
    // What is read with replacements would be written back with them.
    if (content.contains('\0') || !content.endsWith(text.toUtf8()))
        *error = QStringLiteral("The file is not a text in UTF-8.");
    return error->isEmpty() ? text : QString();
}

bool Folder::write(const QString &path, const QString &text, QString *error) const
{
    const QString place = writable(path, error);
    if (!error->isEmpty())
        return false;
    const QByteArray content = text.toUtf8();
    QSaveFile file(place);
    const bool isWritten =
        file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit();
    if (!isWritten)
        *error = QStringLiteral("This file cannot be written.");
    return isWritten;
}

QString Folder::existing(const QString &path, QString *error) const
{
    const QString place = canonicalPathOf(m_root + QLatin1Char('/') + path);
    // Whether there is something outside is nothing to be told, either.
    const bool isAllowed = isValid() && !place.isEmpty() && holds(place);
    *error = isAllowed ? QString() : QStringLiteral("There is no such path in the folder.");
    return isAllowed ? place : QString();
}

// What is to be written need not exist, but its folder must. A link is followed only to where it may lead.
QString Folder::writable(const QString &path, QString *error) const
{
    const QFileInfo target(path.contains(QChar(0)) ? QString() : m_root + QLatin1Char('/') + path);
    if (target.isSymLink() || target.exists()) {
        QString place = existing(path, error);
        if (error->isEmpty() && !QFileInfo(place).isFile())
            *error = QStringLiteral("This is not a file.");
        return place;
    }
    const QString parent = target.dir().canonicalPath();
    const QString name = target.fileName();
    const bool isAllowed = isValid() && !target.filePath().isEmpty() && !parent.isEmpty() && holds(parent)
                        && !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..");
    *error = isAllowed ? QString() : QStringLiteral("There is no such path in the folder.");
    return isAllowed ? parent + QLatin1Char('/') + name : QString();
}

bool Folder::holds(const QString &canonicalPath) const
{
    const QString root = m_root.endsWith(QLatin1Char('/')) ? m_root : m_root + QLatin1Char('/');
    return canonicalPath == m_root || canonicalPath.startsWith(root);
}
