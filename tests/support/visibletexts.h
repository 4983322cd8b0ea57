#ifndef QTAGENT_TESTS_VISIBLETEXTS_H
#define QTAGENT_TESTS_VISIBLETEXTS_H

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTabWidget>
#include <QTableView>
#include <QTextEdit>

// What a program shows to its user, in words.

inline QStringList textsOfModel(const QAbstractItemModel *model)
{
    QStringList texts;
    for (int row = 0; row < model->rowCount(); ++row) {
        for (int column = 0; column < model->columnCount(); ++column) {
            for (const int role : {Qt::DisplayRole, Qt::ToolTipRole})
                texts.append(model->index(row, column).data(role).toString());
        }
    }
    for (int column = 0; column < model->columnCount(); ++column)
        texts.append(model->headerData(column, Qt::Horizontal).toString());
    return texts;
}

inline QStringList textsOfContent(const QWidget *widget)
{
    if (const auto *label = qobject_cast<const QLabel *>(widget))
        return {label->text()};
    if (const auto *button = qobject_cast<const QAbstractButton *>(widget))
        return {button->text()};
    if (const auto *line = qobject_cast<const QLineEdit *>(widget))
        return {line->displayText(), line->placeholderText()};
    if (const auto *editor = qobject_cast<const QPlainTextEdit *>(widget))
        return {editor->toPlainText(), editor->placeholderText()};
    if (const auto *editor = qobject_cast<const QTextEdit *>(widget))
        return {editor->toPlainText(), editor->placeholderText()};
    if (const auto *group = qobject_cast<const QGroupBox *>(widget))
        return {group->title()};
    if (const auto *menu = qobject_cast<const QMenu *>(widget))
        return {menu->title()};
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return textsOfModel(combo->model());
    if (qobject_cast<const QTableView *>(widget) || qobject_cast<const QListView *>(widget))
        return textsOfModel(qobject_cast<const QAbstractItemView *>(widget)->model());
    return {};
}

/// Every text of what can be seen now, and of the menus: contents, tool tips, accessible names and titles.
inline QStringList visibleTexts()
{
    QStringList texts;
    for (const QWidget *widget : QApplication::allWidgets()) {
        const bool isMenu = qobject_cast<const QMenu *>(widget);
        if (!widget->isVisible() && !isMenu)
            continue;
        texts += textsOfContent(widget);
        texts +=
            {widget->toolTip(), widget->accessibleName(), widget->isWindow() ? widget->windowTitle() : ""};
        if (const auto *tabs = qobject_cast<const QTabWidget *>(widget)) {
            for (int i = 0; i < tabs->count(); ++i)
                texts.append(tabs->tabText(i));
        }
        for (const QAction *action : widget->actions())
            texts += {action->text(), action->toolTip()};
    }
    texts.removeAll(QString());
    return texts;
}

#endif
