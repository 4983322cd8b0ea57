#ifndef QTAGENT_TESTS_SQLITEFILE_H
#define QTAGENT_TESTS_SQLITEFILE_H

#include <QDir>
#include <QFile>
#include <QMap>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QUuid>
#include <QVariant>

/// Another program's connection to a file of SQLite, for as long as the object lives.
class SqliteFile
{
public:
    explicit SqliteFile(const QString &path)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", m_name);
        database.setDatabaseName(path);
        if (!database.open())
            qFatal("cannot open %s", qPrintable(path));
    }

    ~SqliteFile() { QSqlDatabase::removeDatabase(m_name); }

    Q_DISABLE_COPY(SqliteFile)

    QSqlDatabase database() const { return QSqlDatabase::database(m_name); }

    /// Runs one statement and returns the first column of its result, or why it failed.
    QStringList run(const QString &sql) const
    {
        QSqlQuery query(database());
        if (!query.exec(sql))
            return {query.lastError().text()};
        QStringList values;
        while (query.next())
            values.append(query.value(0).toString());
        return values;
    }

private:
    const QString m_name = QUuid::createUuid().toString();
};

/// Returns what the files of a folder hold, by name.
inline QMap<QString, QByteArray> filesIn(const QString &folder)
{
    QMap<QString, QByteArray> contents;
    for (const QFileInfo &info : QDir(folder).entryInfoList(QDir::Files | QDir::System | QDir::Hidden)) {
        QFile file(info.filePath());
        contents[info.fileName()] = info.isFile() && file.open(QIODevice::ReadOnly) ? file.readAll() : "?";
    }
    return contents;
}

#endif
