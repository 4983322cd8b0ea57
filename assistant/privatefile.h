#ifndef ORVANE_PRIVATEFILE_H
#define ORVANE_PRIVATEFILE_H

#include <QByteArray>
#include <QJsonObject>
#include <QString>

/// Returns whether @p path is a regular file of at most 1 MiB that holds a JSON object, which is then in
/// @p object.
bool readPrivateObject(const QString &path, QJsonObject *object);

/// Returns whether there is a file with content at @p path that readPrivateObject() cannot read.
bool isDamagedPrivateFile(const QString &path);

/// Replaces the file at @p path by @p content, or makes it and its folder. Only the user can read it from
/// then on, also where others could before. A damaged file is renamed first, to its name and ".damaged-1" or
/// the next free number. Either all of it is written or nothing.
bool writePrivateObject(const QString &path, const QJsonObject &object, QString *error);

#endif
