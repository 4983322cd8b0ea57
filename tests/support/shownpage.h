#ifndef QTAGENT_TESTS_SHOWNPAGE_H
#define QTAGENT_TESTS_SHOWNPAGE_H

#include "offlineconfiguration.h"

#include <demo/orvanedemowindow.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>
#include <QTreeWidget>

/// The active window with one of its pages in front. The mock model answers.
class ShownPage
{
public:
    explicit ShownPage(const QString &title)
    {
        m_window.show();
        if (!QTest::qWaitForWindowActive(&m_window))
            qFatal("The window does not become active.");
        turnTo(title);
    }

    /// Brings another page to the front.
    void turnTo(const QString &title)
    {
        auto *navigation = m_window.findChild<QTreeWidget *>(QStringLiteral("navigationTree"));
        navigation->setCurrentItem(navigation->findItems(title, Qt::MatchExactly | Qt::MatchRecursive).at(0));
        m_page = m_window.findChild<QStackedWidget *>(QStringLiteral("pageStack"))->currentWidget();
    }

    /// Returns the titles of all pages.
    QStringList titles()
    {
        QStringList titles;
        auto *navigation = m_window.findChild<QTreeWidget *>(QStringLiteral("navigationTree"));
        for (QTreeWidgetItemIterator it(navigation, QTreeWidgetItemIterator::NoChildren); *it; ++it)
            titles.append((*it)->text(0));
        return titles;
    }

    QWidget *window() { return &m_window; }
    QWidget *page() const { return m_page; }
    bool isRunning() const { return button("stopButton")->isEnabled(); }

    // The parts of the page, by their object names.
    QPushButton *button(const char *name) const { return child<QPushButton>(name); }
    QPlainTextEdit *editor(const char *name) const { return child<QPlainTextEdit>(name); }

    template<typename Widget>
    Widget *child(const char *name) const
    {
        return m_page->findChild<Widget *>(QLatin1String(name));
    }

private:
    const OfflineConfiguration m_configuration;
    OrvaneDemoWindow m_window;
    QWidget *m_page = nullptr;
};

#endif
