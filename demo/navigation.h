#ifndef ORVANE_NAVIGATION_H
#define ORVANE_NAVIGATION_H

#include <QString>

QT_BEGIN_NAMESPACE
class QStackedWidget;
class QTreeWidgetItem;
class QWidget;
QT_END_NAMESPACE

/// Adds @p page to @p stack, which takes ownership, and an entry @p title below @p group of the navigation
/// tree. The entry keeps the page's index of the stack in column 0 under Qt::UserRole.
void addPage(QTreeWidgetItem *group, QStackedWidget *stack, const QString &title, QWidget *page);

#endif
