#ifndef ORVANE_WORKFLOWPAGES_H
#define ORVANE_WORKFLOWPAGES_H

#include <demo/modelprovider.h>

QT_BEGIN_NAMESPACE
class QStackedWidget;
class QTreeWidgetItem;
QT_END_NAMESPACE

/// Adds the pages of the group "流程能力", in their order.
void addWorkflowPages(QTreeWidgetItem *group, QStackedWidget *stack, const ModelProvider &model,
                      const ToolRegistryProvider &registry);

#endif
