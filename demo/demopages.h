#ifndef ORVANE_DEMOPAGES_H
#define ORVANE_DEMOPAGES_H

#include <QString>

#include <functional>

QT_BEGIN_NAMESPACE
class QStackedWidget;
class QTreeWidgetItem;
class QWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class ChatModel;
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

/// Returns the model that the user chose, configured as the profile form shows at that moment. Pages call
/// it whenever they ask a model, never while they are built.
using ModelProvider = std::function<MireloQtLib::QtAgent::ChatModel *()>;

/// Returns the registry that all pages share.
using ToolRegistryProvider = std::function<MireloQtLib::QtAgent::ToolRegistry *()>;

/// Adds @p page to @p stack, which takes ownership, and an entry @p title below @p group of the navigation
/// tree. The entry keeps the page's index of the stack in column 0 under Qt::UserRole.
void addPage(QTreeWidgetItem *group, QStackedWidget *stack, const QString &title, QWidget *page);

#endif
