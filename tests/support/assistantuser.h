#ifndef QTAGENT_TESTS_ASSISTANTUSER_H
#define QTAGENT_TESTS_ASSISTANTUSER_H

#include "assistantfixture.h"

#include <assistant/assistantsettings.h>
#include <assistant/assistantwindow.h>
#include <assistant/noticebar.h>

#include <QAbstractButton>
#include <QAction>
#include <QListView>
#include <QPlainTextEdit>
#include <QTextBrowser>

/// The window of the assistant, used through the names of its parts.
class AssistantUser : public AssistantFixture
{
public:
    /// Shows a window of its own on what the store has.
    void start()
    {
        window.reset();
        window.reset(new AssistantWindow(&store, &settings));
        window->setModel(&model, "test-model");
        window->show();
        if (!QTest::qWaitForWindowExposed(window.data()))
            qFatal("The window does not show.");
    }

    template<typename Widget>
    Widget *find(const QString &name) const
    {
        auto *widget = window->findChild<Widget *>(name);
        if (!widget)
            qFatal("There is no %s.", qPrintable(name));
        return widget;
    }

    void click(const QString &name) const { QTest::mouseClick(find<QAbstractButton>(name), Qt::LeftButton); }

    void ask(const QString &question) const
    {
        find<QPlainTextEdit>("chatInput")->setPlainText(question);
        click("sendButton");
    }

    bool isIdle() const { return !find<QAbstractButton>("stopButton")->isEnabled(); }
    QString transcript() const { return find<QTextBrowser>("transcript")->toPlainText().simplified(); }

    QStringList titles() const
    {
        const QAbstractItemModel *list = find<QListView>("conversationList")->model();
        QStringList result;
        for (int row = 0; row < list->rowCount(); ++row)
            result.append(list->index(row, 0).data().toString());
        return result;
    }

    void choose(const QString &action) const
    {
        auto *found = window->findChild<QAction *>(action);
        if (!found)
            qFatal("There is no %s.", qPrintable(action));
        found->trigger();
    }

    QString notice() const { return find<NoticeBar>("notice")->text(); }

    AssistantSettings settings{folder.filePath("assistant.ini")};
    QScopedPointer<AssistantWindow> window;
};

#endif
