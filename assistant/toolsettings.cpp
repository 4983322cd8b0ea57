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

QStringList toTexts(const QJsonValue &value)
{
    QStringList texts;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &text : array)
        texts.append(text.toString());
    return texts;
}

McpServerSettings serverFrom(const QJsonObject &json)
{
    McpServerSettings server;
    server.name = json.value(nameKey).toString();
    server.url = json.value(urlKey).toString();
    server.program = json.value(programKey).toString();
    server.arguments = toTexts(json.value(argumentsKey));
    server.hiddenTools = toTexts(json.value(hiddenKey));
    const QJsonObject variables = json.value(variablesKey).toObject();
    for (auto it = variables.begin(); it != variables.end(); ++it)
        server.variables.insert(it.key(), it.value().toString());
    return server;
}

QJsonObject toJson(const McpServerSettings &server)
{
    QJsonObject variables;
    for (auto it = server.variables.begin(); it != server.variables.end(); ++it)
        variables.insert(it.key(), it.value());
    return {{nameKey, server.name},       {urlKey, server.url},
            {programKey, server.program}, {argumentsKey, QJsonArray::fromStringList(server.arguments)},
            {variablesKey, variables},    {hiddenKey, QJsonArray::fromStringList(server.hiddenTools)}};
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
