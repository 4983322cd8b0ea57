#include "toolsettings.h"

#include "privatefile.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

const QLatin1String clockKey("clock");
const QLatin1String folderKey("folder");
const QLatin1String serversKey("servers");
const QLatin1String nameKey("name");
const QLatin1String urlKey("url");
const QLatin1String programKey("program");
const QLatin1String argumentsKey("arguments");
const QLatin1String variablesKey("variables");
const QLatin1String hiddenKey("hiddenTools");
const QLatin1String agreedKey("agreedTools");

QStringList toTexts(const QJsonValue &value)
{
    QStringList texts;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &text : array)
        texts.append(text.toString());
    return texts;
}

QMap<QString, QString> toMap(const QJsonValue &value)
{
    QMap<QString, QString> texts;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        texts.insert(it.key(), it.value().toString());
    return texts;
}

QJsonObject toJson(const QMap<QString, QString> &texts)
{
    QJsonObject object;
    for (auto it = texts.begin(); it != texts.end(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

McpServerSettings serverFrom(const QJsonObject &json)
{
    McpServerSettings server;
    server.name = json.value(nameKey).toString();
    server.url = json.value(urlKey).toString();
    server.program = json.value(programKey).toString();
    server.arguments = toTexts(json.value(argumentsKey));
    server.hiddenTools = toTexts(json.value(hiddenKey));
    server.variables = toMap(json.value(variablesKey));
    server.agreedTools = toMap(json.value(agreedKey));
    return server;
}

QJsonObject toJson(const McpServerSettings &server)
{
    return {{nameKey, server.name},
            {urlKey, server.url},
            {programKey, server.program},
            {argumentsKey, QJsonArray::fromStringList(server.arguments)},
            {variablesKey, toJson(server.variables)},
            {hiddenKey, QJsonArray::fromStringList(server.hiddenTools)},
            {agreedKey, toJson(server.agreedTools)}};
}

} // namespace

ToolSettings loadToolSettings(const QString &path)
{
    ToolSettings settings;
    QJsonObject root;
    if (!readPrivateObject(path, &root)) {
        settings.isFileDamaged = isDamagedPrivateFile(path);
        return settings;
    }
    settings.hasClock = root.value(clockKey).toBool(true);
    settings.folder = root.value(folderKey).toString();
    const QJsonArray servers = root.value(serversKey).toArray();
    for (const QJsonValue &server : servers)
        settings.servers.append(serverFrom(server.toObject()));
    return settings;
}

bool saveToolSettings(const ToolSettings &settings, const QString &path, QString *error)
{
    QJsonArray servers;
    for (const McpServerSettings &server : settings.servers)
        servers.append(toJson(server));
    const QJsonObject root{
        {clockKey, settings.hasClock}, {folderKey, settings.folder}, {serversKey, servers}};
    return writePrivateObject(path, root, error);
}
