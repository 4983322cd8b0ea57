#ifndef MIRELOQTLIB_QTAGENT_TOOLREGISTRY_H
#define MIRELOQTLIB_QTAGENT_TOOLREGISTRY_H

#include <qtagent/agenttool.h>
#include <qtagent/chatmessage.h>

#include <QHash>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// The tools that an AgentExecutor offers to its model.
///
/// @code
/// auto *registry = new ToolRegistry(this);
/// QString error;
/// if (!registry->registerTool(tool, &error))
///     qWarning() << error;
/// executor->setToolRegistry(registry);
/// @endcode
///
/// Tools are held by weak references: one that is deleted is no longer offered, and its name is free again.
/// Nothing of it is kept.
/// A registry, its tools and the executors that use them belong to one thread.
class QTAGENT_EXPORT ToolRegistry : public QObject
{
    Q_OBJECT

public:
    /// Creates an empty registry.
    explicit ToolRegistry(QObject *parent = nullptr);
    ~ToolRegistry() override;

    /// Adds @p tool under its name, exactly as AgentTool::name() returns it, and returns true. A tool
    /// without a parent becomes the registry's child; any other keeps its owner.
    ///
    /// Returns false and leaves @p tool as it is where it is refused; @p error, if given, is then one of
    /// "Tool is null.", "Tool name is empty." (blanks count as nothing) and "Tool already registered: "
    /// with the name. On success @p error is not touched.
    bool registerTool(AgentTool *tool, QString *error = nullptr);

    /// Returns the tool registered under exactly @p name, or null where there is none.
    AgentTool *tool(const QString &name) const;

    /// Returns what to offer to a model: the living tools, in the order in which they were registered.
    QVector<ToolDefinition> definitions() const;

private:
    void forget(const QString &name, quint64 place);

    QHash<QString, quint64> m_places;
    QMap<quint64, QPointer<AgentTool>> m_tools;
    quint64 m_lastPlace = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
