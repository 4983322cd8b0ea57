#include "tooldefinition.h"

namespace MireloQtLib {
namespace QtAgent {

bool operator==(const ToolDefinition &left, const ToolDefinition &right)
{
    return left.name == right.name && left.description == right.description
        && left.parameters == right.parameters && left.permission == right.permission;
}

QString permissionToString(ToolPermission permission)
{
    switch (permission) {
    case ToolPermission::ReadOnly:
        return QStringLiteral("ReadOnly");
    case ToolPermission::Write:
        return QStringLiteral("Write");
    case ToolPermission::Destructive:
        return QStringLiteral("Destructive");
    case ToolPermission::ExternalNetwork:
        return QStringLiteral("ExternalNetwork");
    case ToolPermission::FileSystem:
        return QStringLiteral("FileSystem");
    case ToolPermission::SystemCommand:
        return QStringLiteral("SystemCommand");
    }
    return QStringLiteral("Unknown");
}

bool requiresApproval(ToolPermission permission)
{
    return permission != ToolPermission::ReadOnly;
}

} // namespace QtAgent
} // namespace MireloQtLib
