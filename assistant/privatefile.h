#ifndef ORVANE_PRIVATEFILE_H
#define ORVANE_PRIVATEFILE_H

#include <QByteArray>
#include <QString>

/// Replaces the file at @p path by @p content, or makes it and its folder. Only the user can read it from
/// then on, also where others could before. Either all of it is written or nothing.
bool writePrivateFile(const QString &path, const QByteArray &content, QString *error);

#endif
