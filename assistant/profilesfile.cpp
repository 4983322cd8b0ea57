#include "profilesfile.h"

#include "privatefile.h"

#include <QDir>
#include <QJsonArray>
#include <QStandardPaths>

using namespace MireloQtLib::QtAgent;

namespace {

const QLatin1String profilesKey("profiles");
const QLatin1String currentKey("currentProfile");
const QLatin1String optionsKey("options");
const QLatin1String keychainKey("keychainEntry");

// The last profile may have been removed: such a file says nothing, though the library would take its root
// for a profile.
bool isEmptyList(const QJsonObject &root)
{
    return root.value(profilesKey).isArray() && root.value(profilesKey).toArray().isEmpty();
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
    json.insert(QStringLiteral("apiKey"), profile.keychainEntry.isEmpty() ? config.apiKey : QString());
    json.insert(QStringLiteral("baseUrl"), config.baseUrl);
    json.insert(QStringLiteral("model"), config.model);
    json.insert(QStringLiteral("maxTokens"), config.maxTokens);
    json.insert(QStringLiteral("timeoutMs"), config.timeoutMs);
    json.insert(QStringLiteral("stream"), config.stream);
    if (profile.options.isEmpty())
        json.remove(optionsKey);
    else
        json.insert(optionsKey, profile.options);
    if (profile.keychainEntry.isEmpty())
        json.remove(keychainKey);
    else
        json.insert(keychainKey, profile.keychainEntry);
    return json;
}

// A file with one profile at its root becomes one with a list.
QJsonObject contentOf(const AssistantProfiles &profiles)
{
    QJsonObject root;
    if (!readPrivateObject(profiles.path, &root) || !root.contains(profilesKey))
        root = {};
    QJsonArray entries;
    for (const AssistantProfile &profile : profiles.profiles)
        entries.append(toJson(profile));
    root.insert(profilesKey, entries);
    root.insert(currentKey, profiles.currentIndex);
    return root;
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
        QJsonObject root;
        if (!readPrivateObject(path, &root) || isEmptyList(root))
            continue;
        result.path = path;
        result.isFromFile = true;
        sources = sourcesIn(root);
        break;
    }
    result.isOwnFile = result.path == candidates.last();
    result.isFileDamaged = isDamagedPrivateFile(result.path);
    const ModelProfiles loaded =
        loadModelProfiles(result.isFromFile ? QStringList(result.path) : QStringList(), environment);
    for (int i = 0; i < loaded.profiles.size(); ++i) {
        const QJsonObject source = sources.value(i);
        const QString entry = result.isOwnFile ? source.value(keychainKey).toString() : QString();
        result.profiles.append({loaded.profiles.at(i), source.value(optionsKey).toObject(), source, entry});
    }
    result.currentIndex = loaded.currentIndex;
    return result;
}

bool saveProfiles(const AssistantProfiles &profiles, QString *error)
{
    return writePrivateObject(profiles.path, contentOf(profiles), error);
}
