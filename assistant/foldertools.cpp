#include "foldertools.h"

#include "visibletext.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using namespace MireloQtLib::QtAgent;

namespace {

QJsonObject schemaOf(const QStringList &keys, const QStringList &required)
{
    QJsonObject properties;
    for (const QString &key : keys)
        properties.insert(key, QJsonObject{{QStringLiteral("type"), QStringLiteral("string")}});
    return {{QStringLiteral("type"), QStringLiteral("object")},
            {QStringLiteral("properties"), properties},
            {QStringLiteral("required"), QJsonArray::fromStringList(required)}};
}

QString pathIn(const QJsonObject &arguments)
{
    return arguments.value(QLatin1String("path")).toString();
}

ToolResult resultOf(const QString &content, const QString &error)
{
    ToolResult result;
    result.success = error.isEmpty();
    result.content = result.success ? content : QString();
    result.error = error;
    return result;
}

ToolResult list(const Folder &folder, const QJsonObject &arguments)
{
    QString error;
    const QStringList names = folder.list(pathIn(arguments), &error);
    return resultOf(names.isEmpty() ? QStringLiteral("The folder is empty.") : names.join(QLatin1Char('\n')),
                    error);
}

ToolResult read(const Folder &folder, const QJsonObject &arguments)
{
    QString error;
    const QString text = folder.read(pathIn(arguments), &error);
    return resultOf(text.isEmpty() ? QStringLiteral("The file is empty.") : text, error);
}

ToolResult write(const Folder &folder, const QJsonObject &arguments)
{
    QString error;
    const QJsonValue content = arguments.value(QLatin1String("content"));
    if (!content.isString())
        return resultOf({}, QStringLiteral("The content is missing."));
    folder.write(pathIn(arguments), content.toString(), &error);
    return resultOf(QStringLiteral("Written."), error);
}

} // namespace

QString explainWriting(const Folder &folder, const QJsonObject &arguments)
{
    QString error;
    const QString place = folder.writable(pathIn(arguments), &error);
    if (!error.isEmpty())
        return QCoreApplication::translate("FolderTools", "不能写入这个路径，调用会失败。");
    // A name with a line break could look like words of the program.
    const QString shown =
        visibleText(QDir::toNativeSeparators(place)).replace(QLatin1Char('\n'), QLatin1String("U+000A"));
    return QFileInfo::exists(place)
             ? QCoreApplication::translate("FolderTools", "将替换已有的文件：%1").arg(shown)
             : QCoreApplication::translate("FolderTools", "将新建文件：%1").arg(shown);
}

QVector<AgentTool *> createFolderTools(const Folder &folder, QObject *parent)
{
    const QString path = QStringLiteral("path");
    const QString content = QStringLiteral("content");
    const auto create = [&folder, parent](const QString &name, const QString &description,
                                          const QJsonObject &schema, ToolPermission permission,
                                          ToolResult (*handler)(const Folder &, const QJsonObject &)) {
        const auto call = [folder, handler](const QJsonObject &arguments) {
            return handler(folder, arguments);
        };
        return new FunctionTool(name, description, schema, permission, call, parent);
    };
    return {
        create(QStringLiteral("list_folder"),
               QStringLiteral("Lists what is in the user's folder, or in one below it."),
               schemaOf({path}, {}), ToolPermission::ReadOnly, list),
        create(QStringLiteral("read_file"), QStringLiteral("Reads a text file in the user's folder."),
               schemaOf({path}, {path}), ToolPermission::ReadOnly, read),
        create(QStringLiteral("write_file"),
               QStringLiteral("Writes a text file in the user's folder, replacing it where it exists."),
               schemaOf({path, content}, {path, content}), ToolPermission::FileSystem, write),
    };
}
