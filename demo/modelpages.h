#ifndef ORVANE_MODELPAGES_H
#define ORVANE_MODELPAGES_H

#include <demo/modelprovider.h>

QT_BEGIN_NAMESPACE
class QStackedWidget;
class QTreeWidgetItem;
QT_END_NAMESPACE

/// Adds the pages of the group "模型能力", in their order.
void addModelPages(QTreeWidgetItem *group, QStackedWidget *stack, const ModelProvider &model,
                   const ToolRegistryProvider &registry);

#endif
