#include "profilesfile.h"

#include "privatefile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr qint64 largestFile = 1024 * 1024;
const QLatin1String profilesKey("profiles");
const QLatin1String currentKey("currentProfile");
const QLatin1String optionsKey("options");

// An empty object where there is none that the library would read.
QJsonObject rootOf(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > largestFile)
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

bool isReadable(const QString &path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) && file.size() <= largestFile
        && QJsonDocument::fromJson(file.readAll()).isObject();
}

// The objects in the order of the profiles that the library makes of them.
QVector<QJsonObject> sourcesIn(const QJsonObject &root)
{
    const QJsonArray entries = root.value(profilesKey).toArray();
    if (entries.isEmpty())
        return {root};
    QVector<QJsonObject> sources;
    for (const QJsonValue &entry : entries) {
        if (entry.isObject())
            sources.append(entry.toObject());
    }
    return sources;
}

QJsonObject toJson(const AssistantProfile &profile)
{
    const ModelConfig &config = profile.config;
    QJsonObject json = profile.source;
    json.insert(QStringLiteral("name"), config.name);
    json.insert(QStringLiteral("provider"), config.provider);
    json.insert(QStringLiteral("apiKey"), config.apiKey);
    json.insert(QStringLiteral("baseUrl"), config.baseUrl);
    json.insert(QStringLiteral("model"), config.model);
    json.insert(QStringLiteral("maxTokens"), config.maxTokens);
    json.insert(QStringLiteral("timeoutMs"), config.timeoutMs);
    json.insert(QStringLiteral("stream"), config.stream);
    if (profile.options.isEmpty())
        json.remove(optionsKey);
    else
        json.insert(optionsKey, profile.options);
    return json;
}

// A file with one profile at its root becomes one with a list.
QByteArray contentOf(const AssistantProfiles &profiles)
{
    QJsonObject root = rootOf(profiles.path);
    if (!root.contains(profilesKey))
        root = {};
    QJsonArray entries;
    for (const AssistantProfile &profile : profiles.profiles)
        entries.append(toJson(profile));
    root.insert(profilesKey, entries);
    root.insert(currentKey, profiles.currentIndex);
    return QJsonDocument(root).toJson();
}

} // namespace

QStringList profileFileCandidates()
{
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    return modelConfigFileCandidates() + QStringList(folder.filePath(QStringLiteral("orvane.local.json")));
}

AssistantProfiles loadProfiles(const QStringList &candidates, const QProcessEnvironment &environment)
{
    AssistantProfiles result;
    QVector<QJsonObject> sources;
    result.path = candidates.last();
    for (const QString &path : candidates) {
        if (!isReadable(path))
            continue;
        result.path = path;
        result.isFromFile = true;
        sources = sourcesIn(rootOf(path));
        break;
    }
    const ModelProfiles loaded =
        loadModelProfiles(result.isFromFile ? QStringList(result.path) : QStringList(), environment);
    for (int i = 0; i < loaded.profiles.size(); ++i) {
        const QJsonObject source = sources.value(i);
        result.profiles.append({loaded.profiles.at(i), source.value(optionsKey).toObject(), source});
    }
    result.currentIndex = loaded.currentIndex;
    return result;
}

bool saveProfiles(const AssistantProfiles &profiles, QString *error)
{
    return writePrivateFile(profiles.path, contentOf(profiles), error);
}
