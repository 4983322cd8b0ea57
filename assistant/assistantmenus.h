#ifndef ORVANE_ASSISTANTMENUS_H
#define ORVANE_ASSISTANTMENUS_H

#include "chatinput.h"

#include <QObject>

QT_BEGIN_NAMESPACE
class QAction;
class QMenu;
class QMenuBar;
QT_END_NAMESPACE

/// The menus of the window. Each entry is a signal; its shortcut holds in the whole window.
///
/// The actions are named like their signals, for example "newRequested".
class AssistantMenus : public QObject
{
    Q_OBJECT

public:
    /// Fills @p bar, and marks @p sendKey as the one that sends and @p language, which may be empty for that
    /// of the system, as the one that is spoken.
    AssistantMenus(QMenuBar *bar, ChatInput::SendKey sendKey, const QString &language,
                   QObject *parent = nullptr);
    ~AssistantMenus() override;

    /// Sets whether there is a removed conversation to bring back.
    void setCanUndo(bool canUndo);

Q_SIGNALS:
    void newRequested();
    void searchRequested();
    void renameRequested();
    void removeRequested();
    void undoRequested();
    void exportRequested();
    void importRequested();
    void quitRequested();

    void stopRequested();
    void regenerateRequested();
    void editRequested();
    void copyRequested();

    void enlargeRequested();
    void reduceRequested();
    void resetRequested();
    void modelsRequested();
    void toolsRequested();
    void sendKeyRequested(ChatInput::SendKey key);
    void languageRequested(const QString &language);

private:
    using Request = void (AssistantMenus::*)();

    void addConversationMenu(QMenuBar *bar);
    void addMessageMenu(QMenuBar *bar);
    void addViewMenu(QMenuBar *bar);
    void addSettingsMenu(QMenuBar *bar, ChatInput::SendKey sendKey, const QString &language);
    void addLanguages(QMenu *menu, const QString &current);
    void addSendKeys(QMenu *menu, ChatInput::SendKey sendKey);
    QAction *add(QMenu *menu, const QString &text, const QKeySequence &shortcut, Request request,
                 const char *name);

    QAction *m_undo = nullptr;
};

#endif
