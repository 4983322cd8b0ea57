#ifndef ORVANE_FOLDER_H
#define ORVANE_FOLDER_H

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A folder that a model may use, and nothing outside of it: paths are looked up with all their links, and
/// those that lead out are refused.
///
/// A call that fails returns an empty result and a reason in its error, for the model. Paths are relative to
/// the folder, with "/".
class Folder
{
public:
    /// The folder at @p path.
    explicit Folder(const QString &path);

    /// Returns whether there is such a folder.
    bool isValid() const;

    /// Returns what is in the folder @p path, sorted, folders with "/" at their end: at most 1,000
    /// names, and behind them how many there are more.
    QStringList list(const QString &path, QString *error) const;

    /// Returns the text of the file @p path, of at most 256 KiB in UTF-8.
    QString read(const QString &path, QString *error) const;

    /// Replaces the file @p path by @p text, or makes it, in a folder that exists. All of it is written, or
    /// nothing.
    bool write(const QString &path, const QString &text, QString *error) const;

    /// Returns where write() would write the file @p path, with all links looked up.
    QString writable(const QString &path, QString *error) const;

private:
    QString existing(const QString &path, QString *error) const;
    bool holds(const QString &canonicalPath) const;

    QString m_root; // canonical
};

#endif
