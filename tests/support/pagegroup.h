#ifndef QTAGENT_TESTS_PAGEGROUP_H
#define QTAGENT_TESTS_PAGEGROUP_H

#include <qtagent/chatmodel.h>

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QTreeWidget>

/// A navigation tree with one group and the stack of its pages, as the demo's window has them.
class PageGroup
{
public:
    QTreeWidgetItem *item() { return m_group; }
    QStackedWidget *stack() { return &m_stack; }

    QStringList titles() const
    {
        QStringList titles;
        for (int i = 0; i < m_group->childCount(); ++i)
            titles.append(m_group->child(i)->text(0));
        return titles;
    }

    QWidget *page(const QString &title) const
    {
        const QVariant index = m_group->child(int(titles().indexOf(title)))->data(0, Qt::UserRole);
        return m_stack.widget(index.toInt());
    }

private:
    QTreeWidget m_tree;
    QStackedWidget m_stack;
    QTreeWidgetItem *m_group = new QTreeWidgetItem(&m_tree);
};

/// The parts of one page, looked up below it by their object names.
class PageDriver
{
public:
    explicit PageDriver(QWidget *page)
        : m_page(page)
    {}

    QPlainTextEdit *editor(const QString &name) const { return m_page->findChild<QPlainTextEdit *>(name); }
    QString text(const QString &name) const { return editor(name)->toPlainText(); }
    QString output() const { return text("pageOutput"); }
    QPushButton *button(const QString &name) const { return m_page->findChild<QPushButton *>(name); }

    void type(const QString &text) const { editor("pageInput")->setPlainText(text); }
    void click(const QString &name) const { button(name)->click(); }
    void run() const { click("runButton"); }

    /// Whether the page is at rest: it can be run, and there is nothing to stop.
    bool isIdle() const
    {
        const QPushButton *stop = button("stopButton");
        return button("runButton")->isEnabled() && (!stop || !stop->isEnabled());
    }

    /// The replies that have not been deleted yet.
    QList<MireloQtLib::QtAgent::ChatReply *> replies() const
    {
        return m_page->findChildren<MireloQtLib::QtAgent::ChatReply *>();
    }

private:
    QWidget *const m_page;
};

#endif
