#ifndef ORVANE_TOOLSETTINGS_H
#define ORVANE_TOOLSETTINGS_H

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

/// A server of tools, as the user has set it up.
struct McpServerSettings
{
    /// Stands before the names of its tools.
    QString name;
    /// The address of a service, or empty where it is a program.
    QString url;
    /// The program, with its arguments.
    QString program;
    QStringList arguments;
    /// Headers of a service, variables of a program.
    QMap<QString, QString> variables;
    /// The tools that are not offered, by the server's own names.
    QStringList hiddenTools;
    /// What the user has agreed to, by the server's own names of its tools: what each said about itself.
    /// Empty until the server has listed its tools for the first time.
    QMap<QString, QString> agreedTools;
};

/// The tools that are offered to the model.
struct ToolSettings
{
    bool hasClock = true;
    /// The folder that may be used, or empty.
    QString folder;
    QVector<McpServerSettings> servers;
    /// Whether the file that was read is damaged. It is renamed when the settings are saved.
    bool isFileDamaged = false;
};

/// Returns what is in the file at @p path; the default where there is none that can be read.
ToolSettings loadToolSettings(const QString &path);

/// Writes @p settings to the file at @p path, which only the user can read. Either all of it is written or
/// nothing.
bool saveToolSettings(const ToolSettings &settings, const QString &path, QString *error);

#endif
