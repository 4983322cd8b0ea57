#include "assistantmenus.h"

#include <QActionGroup>
#include <QMenu>
#include <QMenuBar>

AssistantMenus::AssistantMenus(QMenuBar *bar, ChatInput::SendKey sendKey, const QString &language,
                               QObject *parent)
    : QObject(parent)
{
    addConversationMenu(bar);
    addMessageMenu(bar);
    addViewMenu(bar);
    addSettingsMenu(bar, sendKey, language);
    setCanUndo(false);
}

AssistantMenus::~AssistantMenus() = default;

void AssistantMenus::setCanUndo(bool canUndo)
{
    m_undo->setEnabled(canUndo);
}

void AssistantMenus::addConversationMenu(QMenuBar *bar)
{
    QMenu *menu = bar->addMenu(tr("对话(&C)"));
    add(menu, tr("新对话(&N)"), QKeySequence::New, &AssistantMenus::newRequested, "newRequested");
    add(menu, tr("搜索(&F)"), QKeySequence::Find, &AssistantMenus::searchRequested, "searchRequested");
    menu->addSeparator();
    add(menu, tr("重命名(&R)"), {}, &AssistantMenus::renameRequested, "renameRequested");
    add(menu, tr("删除(&D)"), {}, &AssistantMenus::removeRequested, "removeRequested");
    m_undo = add(menu, tr("撤销删除(&U)"), {}, &AssistantMenus::undoRequested, "undoRequested");
    menu->addSeparator();
    add(menu, tr("导出(&E)…"), QKeySequence::SaveAs, &AssistantMenus::exportRequested, "exportRequested");
    add(menu, tr("导入(&I)…"), QKeySequence::Open, &AssistantMenus::importRequested, "importRequested");
    menu->addSeparator();
    add(menu, tr("退出(&Q)"), QKeySequence::Quit, &AssistantMenus::quitRequested, "quitRequested");
}

void AssistantMenus::addMessageMenu(QMenuBar *bar)
{
    QMenu *menu = bar->addMenu(tr("消息(&M)"));
    add(menu, tr("停止(&T)"), Qt::Key_Escape, &AssistantMenus::stopRequested, "stopRequested");
    menu->addSeparator();
    add(menu, tr("重新回答(&R)"), QKeySequence(QStringLiteral("Ctrl+R")),
        &AssistantMenus::regenerateRequested, "regenerateRequested");
    add(menu, tr("修改问题(&E)"), QKeySequence(QStringLiteral("Ctrl+E")), &AssistantMenus::editRequested,
        "editRequested");
    add(menu, tr("复制消息(&C)"), QKeySequence(QStringLiteral("Ctrl+Shift+C")),
        &AssistantMenus::copyRequested, "copyRequested");
}

void AssistantMenus::addViewMenu(QMenuBar *bar)
{
    QMenu *menu = bar->addMenu(tr("查看(&V)"));
    add(menu, tr("放大文字(&L)"), QKeySequence::ZoomIn, &AssistantMenus::enlargeRequested,
        "enlargeRequested");
    add(menu, tr("缩小文字(&S)"), QKeySequence::ZoomOut, &AssistantMenus::reduceRequested, "reduceRequested");
    add(menu, tr("恢复文字大小(&0)"), QKeySequence(QStringLiteral("Ctrl+0")), &AssistantMenus::resetRequested,
        "resetRequested");
}

void AssistantMenus::addSettingsMenu(QMenuBar *bar, ChatInput::SendKey sendKey, const QString &language)
{
    QMenu *menu = bar->addMenu(tr("设置(&G)"));
    add(menu, tr("模型(&M)…"), {}, &AssistantMenus::modelsRequested, "modelsRequested");
    add(menu, tr("工具(&T)…"), {}, &AssistantMenus::toolsRequested, "toolsRequested");
    menu->addSeparator();
    addSendKeys(menu, sendKey);
    menu->addSeparator();
    addLanguages(menu->addMenu(tr("语言(&L)")), language);
}

// Each language is called what its readers call it.
void AssistantMenus::addLanguages(QMenu *menu, const QString &current)
{
    auto *group = new QActionGroup(this);
    const auto addLanguage = [this, menu, group, current](const QString &text, const QString &language,
                                                          const char *name) {
        QAction *action = menu->addAction(text);
        action->setObjectName(QLatin1String(name));
        action->setCheckable(true);
        action->setChecked(language == current);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, language] { Q_EMIT languageRequested(language); });
    };
    addLanguage(tr("跟随系统(&S)"), QString(), "languageOfSystem");
    addLanguage(QStringLiteral("中文"), QStringLiteral("zh"), "languageChinese");
    addLanguage(QStringLiteral("English"), QStringLiteral("en"), "languageEnglish");
}

void AssistantMenus::addSendKeys(QMenu *menu, ChatInput::SendKey sendKey)
{
    auto *group = new QActionGroup(this);
    const auto addKey = [this, menu, group, sendKey](const QString &text, ChatInput::SendKey key,
                                                     const char *name) {
        QAction *action = menu->addAction(text);
        action->setObjectName(QLatin1String(name));
        action->setCheckable(true);
        action->setChecked(key == sendKey);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, key] { Q_EMIT sendKeyRequested(key); });
    };
    addKey(tr("用 Ctrl+Enter 发送(&C)"), ChatInput::SendKey::CtrlReturn, "sendWithCtrlReturn");
    addKey(tr("用 Enter 发送(&E)"), ChatInput::SendKey::Return, "sendWithReturn");
}

QAction *AssistantMenus::add(QMenu *menu, const QString &text, const QKeySequence &shortcut, Request request,
                             const char *name)
{
    QAction *action = menu->addAction(text, this, request);
    action->setObjectName(QLatin1String(name));
    action->setShortcut(shortcut);
    return action;
}
