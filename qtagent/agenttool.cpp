#include "agenttool.h"

#include <QJsonDocument>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

bool operator==(const ToolResult &left, const ToolResult &right)
{
    return left.success == right.success && left.data == right.data && left.content == right.content
        && left.error == right.error && left.metadata == right.metadata;
}

QString toolResultText(const ToolResult &result)
{
    if (!result.content.isEmpty())
        return result.content;
    if (!result.error.isEmpty())
        return result.error;
    if (!result.data.isEmpty())
        return QString::fromUtf8(QJsonDocument(result.data).toJson(QJsonDocument::Compact));
    return result.success ? QStringLiteral("工具执行完成。") : QStringLiteral("工具执行失败。");
}

AgentTool::AgentTool(QObject *parent)
    : QObject(parent)
{}

AgentTool::~AgentTool() = default;

FunctionTool::FunctionTool(const QString &name, const QString &description, const QJsonObject &parameters,
                           ToolPermission permission, ToolHandler handler, QObject *parent)
    : AgentTool(parent)
    , m_name(name)
    , m_description(description)
    , m_parameters(parameters)
    , m_permission(permission)
    , m_handler(std::make_shared<ToolHandler>(std::move(handler)))
{}

FunctionTool::~FunctionTool() = default;

QString FunctionTool::name() const
{
    return m_name;
}

QString FunctionTool::description() const
{
    return m_description;
}

QJsonObject FunctionTool::parameters() const
{
    return m_parameters;
}

ToolPermission FunctionTool::permission() const
{
    return m_permission;
}

ToolResult FunctionTool::invoke(const QJsonObject &arguments)
{
    if (!*m_handler) {
        ToolResult result;
        result.error = QStringLiteral("Tool handler is empty.");
        return result;
    }
    // A handler may delete its own tool; this keeps it alive during the call.
    const std::shared_ptr<ToolHandler> handler = m_handler;
    return (*handler)(arguments);
}

} // namespace QtAgent
} // namespace MireloQtLib
