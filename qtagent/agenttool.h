#ifndef MIRELOQTLIB_QTAGENT_AGENTTOOL_H
#define MIRELOQTLIB_QTAGENT_AGENTTOOL_H

#include <qtagent/chatmessage.h>
#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace MireloQtLib {
namespace QtAgent {

/// What one tool call gave.
struct ToolResult
{
    /// Whether the tool did what was asked.
    bool success = false;
    /// The structured result, which may be empty.
    QJsonObject data;
    /// The result as text for the model and the user, which may be empty.
    QString content;
    /// What went wrong, else empty.
    QString error;
    /// Further data for the application. The library does not use it.
    QJsonObject metadata;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ToolResult &left, const ToolResult &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ToolResult &left, const ToolResult &right) { return !(left == right); }
};

/// Returns the text of @p result that the model and the user see: the content, else the error, else the
/// data as compact JSON, else "工具执行完成。" for a success and "工具执行失败。" for a failure.
QTAGENT_EXPORT QString toolResultText(const ToolResult &result);

/// What a FunctionTool does with the arguments of a call.
using ToolHandler = std::function<ToolResult(const QJsonObject &)>;

/// An operation that a model may ask to call.
///
/// Most tools are a FunctionTool; derive from this class where a tool needs state of its own. Tools are
/// offered to a model through a ToolRegistry, and belong to its thread: there they are called.
class QTAGENT_EXPORT AgentTool : public QObject
{
    Q_OBJECT

public:
    /// Creates a tool. One without a parent becomes the child of the registry that it is registered with.
    explicit AgentTool(QObject *parent = nullptr);
    ~AgentTool() override;

    /// Returns the name under which a model calls the tool.
    virtual QString name() const = 0;

    /// Returns what the tool does, written for the model.
    virtual QString description() const = 0;

    /// Returns the JSON Schema object of the arguments.
    virtual QJsonObject parameters() const = 0;

    /// Returns what the tool may do. Every value but ToolPermission::ReadOnly needs the user's approval.
    virtual ToolPermission permission() const = 0;

    /// Runs the tool. @p arguments come from a model and may be anything, whatever the schema says. Runs
    /// in the caller's thread and should return soon; report a failure in the result, do not throw.
    virtual ToolResult invoke(const QJsonObject &arguments) = 0;
};

/// A tool made of values and a function.
///
/// @code
/// const QJsonObject noArguments{{"type", "object"}, {"properties", QJsonObject()}};
/// const auto tellTime = [](const QJsonObject &) {
///     ToolResult result;
///     result.success = true;
///     result.content = QTime::currentTime().toString();
///     return result;
/// };
/// auto *clock = new FunctionTool("current_time", "Returns the local time.", noArguments,
///                                ToolPermission::ReadOnly, tellTime);
/// registry->registerTool(clock); // the registry owns it now
/// @endcode
class QTAGENT_EXPORT FunctionTool : public AgentTool
{
    Q_OBJECT

public:
    /// Creates a tool that returns @p name, @p description, @p parameters and @p permission as they are, and
    /// calls @p handler for each call. The handler is kept for as long as the tool lives, with its state: a
    /// mutable lambda that counts its calls counts on.
    FunctionTool(const QString &name, const QString &description, const QJsonObject &parameters,
                 ToolPermission permission, ToolHandler handler, QObject *parent = nullptr);
    ~FunctionTool() override;

    QString name() const override;
    QString description() const override;
    QJsonObject parameters() const override;
    ToolPermission permission() const override;

    /// Returns what the handler returns for @p arguments, which are not checked against the schema. An
    /// empty handler gives a failure with the error "Tool handler is empty.". The handler may delete the
    /// tool.
    ToolResult invoke(const QJsonObject &arguments) override;

private:
    const QString m_name;
    const QString m_description;
    const QJsonObject m_parameters;
    const ToolPermission m_permission;
    const std::shared_ptr<ToolHandler> m_handler;
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ToolResult)

#endif
