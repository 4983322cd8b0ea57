#ifndef QTAGENT_TESTS_OFFLINECONFIGURATION_H
#define QTAGENT_TESTS_OFFLINECONFIGURATION_H

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

/// Keeps the developer's own profiles out of a test: the process works in a new folder, in which a
/// configuration file names the mock model, and has none of the variables that name a service.
class OfflineConfiguration
{
public:
    OfflineConfiguration()
    {
        for (const char *service : {"OPENAI", "DEEPSEEK"}) {
            for (const char *value : {"_API_KEY", "_BASE_URL", "_MODEL"})
                qunsetenv(QByteArray(service).append(value).constData());
        }
        QDir::setCurrent(m_folder.path());
        write({{QStringLiteral("name"), QStringLiteral("offline")},
               {QStringLiteral("provider"), QStringLiteral("mock")}});
    }

    ~OfflineConfiguration() { QDir::setCurrent(m_previousFolder); }
    Q_DISABLE_COPY(OfflineConfiguration)

    /// Makes @p configuration the content of the file.
    void write(const QJsonObject &configuration) const
    {
        QFile file(m_folder.filePath(QStringLiteral("orvane.local.json")));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("The configuration file cannot be written.");
        file.write(QJsonDocument(configuration).toJson());
    }

    /// Returns the folder.
    QString path() const { return m_folder.path(); }

private:
    const QString m_previousFolder = QDir::currentPath();
    QTemporaryDir m_folder;
};

#endif
