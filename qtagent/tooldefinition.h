#ifndef MIRELOQTLIB_QTAGENT_TOOLDEFINITION_H
#define MIRELOQTLIB_QTAGENT_TOOLDEFINITION_H

#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

Q_NAMESPACE_EXPORT(QTAGENT_EXPORT)

/// What a tool may do. Everything but ReadOnly needs the user's approval.
enum class ToolPermission : int {
    /// Reads what the program knows and changes nothing.
    ReadOnly = 0,
    /// Changes data of the program.
    Write = 1,
    /// Deletes, or changes what cannot be restored.
    Destructive = 2,
    /// Sends something to another machine.
    ExternalNetwork = 3,
    /// Reads or writes files.
    FileSystem = 4,
    /// Starts other programs.
    SystemCommand = 5,
};
Q_ENUM_NS(ToolPermission)

/// Returns the enumerator's name, for example "FileSystem", or "Unknown" for any other value.
QTAGENT_EXPORT QString permissionToString(ToolPermission permission);

/// Returns whether a tool with @p permission may run only after the user allowed it: true for
/// every value but ToolPermission::ReadOnly, unknown values included.
QTAGENT_EXPORT bool requiresApproval(ToolPermission permission);

/// A tool as it is offered to a model.
struct QTAGENT_EXPORT ToolDefinition
{
    Q_GADGET

public:
    /// The name under which the model calls the tool.
    QString name;
    /// What the tool does, written for the model.
    QString description;
    /// The JSON Schema object of the tool's arguments.
    QJsonObject parameters;
    /// What the tool may do.
    ToolPermission permission = ToolPermission::ReadOnly;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ToolDefinition &left, const ToolDefinition &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ToolDefinition &left, const ToolDefinition &right)
    {
        return !(left == right);
    }
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ToolPermission)

#endif
