#include "navigation.h"

#include <QStackedWidget>
#include <QTreeWidgetItem>

void addPage(QTreeWidgetItem *group, QStackedWidget *stack, const QString &title, QWidget *page)
{
    auto *entry = new QTreeWidgetItem(group, {title});
    entry->setData(0, Qt::UserRole, stack->addWidget(page));
}
