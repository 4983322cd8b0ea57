#include "assistantwindow.h"

#include "answerwatch.h"
#include "assistantmenus.h"
#include "assistantsettings.h"
#include "chatinput.h"
#include "chatpage.h"
#include "conversationfiles.h"
#include "conversationkeeper.h"
#include "conversationlistmodel.h"
#include "conversationsidebar.h"
#include "modelchoice.h"
#include "noticebar.h"
#include "profilelistmodel.h"
#include "profilesdialog.h"
#include "removedconversation.h"
#include "textzoom.h"
#include "toolsdialog.h"
#include "toolset.h"
#include "usagetext.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>
#include <qtagent/widgets/approvalprompt.h>
#include <qtagent/widgets/markdowntranscript.h>

#include <QCloseEvent>
#include <QFileDialog>
#include <QMenuBar>
#include <QSplitter>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

AssistantWindow::AssistantWindow(ConversationStore *store, AssistantSettings *settings, QWidget *parent)
    : QMainWindow(parent)
    , m_store(store)
    , m_settings(settings)
{
    setUpParts();
    setUpLayout();
    setUpZoom();
    connectList();
    connectConversationMenu();
    connectMessageMenu();
    connectViewMenu();
    m_list->refresh();
    restoreState();
    m_page->input()->setFocus();
}

AssistantWindow::~AssistantWindow()
{
    // What is running is kept while everything that shows it still exists.
    m_session->cancel();
}

void AssistantWindow::setUpParts()
{
    m_session = new AgentSession(this);
    m_watch = new AnswerWatch(this);
    m_session->setModel(m_watch);
    m_session->setAfterDenial(AgentSession::AfterDenial::TellModel);
    m_session->setTellsModelOfBadCalls(true);
    m_session->setParallelToolCalls(true);
    m_session->setMaxIterations(20);
    new ApprovalPrompt(m_session, this, this);
    m_keeper = new ConversationKeeper(m_store, m_session, this);
    m_keeper->setWatch(m_watch);
    m_removed = new RemovedConversation(m_store, this);
    m_list = new ConversationListModel(m_store, this);
    m_menus = new AssistantMenus(menuBar(), m_settings->sendKey(), m_settings->language(), this);
    m_notice = new NoticeBar;
    m_notice->setObjectName(QStringLiteral("notice"));
    m_sidebar = new ConversationSidebar(m_list);
    m_page = new ChatPage(m_session, m_watch);
    m_page->input()->setSendKey(m_settings->sendKey());
}

void AssistantWindow::setUpLayout()
{
    constexpr QSize firstSize(1000, 700);
    constexpr int listWidth = 240;
    m_splitter = new QSplitter;
    m_splitter->addWidget(m_sidebar);
    m_splitter->addWidget(m_page);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setSizes({listWidth, firstSize.width() - listWidth});

    auto *center = new QWidget;
    auto *layout = new QVBoxLayout(center);
    layout->setContentsMargins({});
    layout->addWidget(m_notice);
    layout->addWidget(m_splitter, 1);
    setCentralWidget(center);
    resize(firstSize);
}

void AssistantWindow::setUpZoom()
{
    m_zoom = new TextZoom(this);
    m_zoom->add(m_page->transcript());
    m_zoom->add(m_page->input());
    m_zoom->setSteps(m_settings->textSteps());
    connect(m_zoom, &TextZoom::stepsChanged, this, [this](int steps) { m_settings->setTextSteps(steps); });
}

void AssistantWindow::connectList()
{
    connect(m_sidebar, &ConversationSidebar::newRequested, m_keeper, &ConversationKeeper::begin);
    connect(m_sidebar, &ConversationSidebar::openRequested, this, &AssistantWindow::open);
    connect(m_sidebar, &ConversationSidebar::removeRequested, this, &AssistantWindow::remove);
    connect(m_list, &ConversationListModel::renameRequested, m_keeper, &ConversationKeeper::rename);
    connect(m_list, &ConversationListModel::failed, this, &AssistantWindow::tell);
    connect(m_keeper, &ConversationKeeper::saved, m_list, &ConversationListModel::refresh);
    connect(m_keeper, &ConversationKeeper::saved, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, m_page, &ChatPage::showConversation);
    connect(m_keeper, &ConversationKeeper::opened, m_page->input(), [this] { m_page->input()->setFocus(); });
    connect(m_keeper, &ConversationKeeper::failed, this, &AssistantWindow::tell);
    connect(m_removed, &RemovedConversation::removed, this, &AssistantWindow::offerUndo);
    connect(m_removed, &RemovedConversation::restored, this, [this](const QString &id) {
        m_menus->setCanUndo(false);
        m_notice->clear();
        open(id, -1);
    });
    connect(m_removed, &RemovedConversation::failed, this, &AssistantWindow::tell);
    connect(m_notice, &NoticeBar::acted, m_removed, &RemovedConversation::undo);
}

void AssistantWindow::connectConversationMenu()
{
    connect(m_menus, &AssistantMenus::newRequested, m_keeper, &ConversationKeeper::begin);
    connect(m_menus, &AssistantMenus::searchRequested, m_sidebar, &ConversationSidebar::focusSearch);
    connect(m_menus, &AssistantMenus::renameRequested, m_sidebar, &ConversationSidebar::editTitle);
    connect(m_menus, &AssistantMenus::removeRequested, this, [this] { remove(m_sidebar->selected()); });
    connect(m_menus, &AssistantMenus::undoRequested, m_removed, &RemovedConversation::undo);
    connect(m_menus, &AssistantMenus::exportRequested, this, &AssistantWindow::chooseExport);
    connect(m_menus, &AssistantMenus::importRequested, this, &AssistantWindow::chooseImport);
    connect(m_menus, &AssistantMenus::quitRequested, this, &QWidget::close);
}

void AssistantWindow::connectMessageMenu()
{
    connect(m_menus, &AssistantMenus::stopRequested, m_page, &ChatPage::stop);
    connect(m_menus, &AssistantMenus::regenerateRequested, m_page, &ChatPage::regenerate);
    connect(m_menus, &AssistantMenus::editRequested, m_page, &ChatPage::editQuestion);
    connect(m_menus, &AssistantMenus::copyRequested, m_page, &ChatPage::copyMessage);
}

void AssistantWindow::connectViewMenu()
{
    connect(m_menus, &AssistantMenus::enlargeRequested, m_zoom, &TextZoom::enlarge);
    connect(m_menus, &AssistantMenus::reduceRequested, m_zoom, &TextZoom::reduce);
    connect(m_menus, &AssistantMenus::resetRequested, m_zoom, &TextZoom::reset);
    connect(m_menus, &AssistantMenus::languageRequested, this, &AssistantWindow::takeLanguage);
    connect(m_menus, &AssistantMenus::sendKeyRequested, this, [this](ChatInput::SendKey key) {
        m_settings->setSendKey(key);
        m_page->input()->setSendKey(key);
    });
}

void AssistantWindow::takeLanguage(const QString &language)
{
    m_settings->setLanguage(language);
    Q_EMIT languageChanged();
}

void AssistantWindow::setModel(ChatModel *model, const QString &name)
{
    // Nobody would end a request of a model that is gone.
    m_session->cancel();
    m_watch->setModel(model);
    m_keeper->setModelName(name);
}

void AssistantWindow::setModelChoice(ModelChoice *choice)
{
    m_choice = choice;
    connect(choice, &ModelChoice::changed, this, &AssistantWindow::takeChoice);
    connect(choice, &ModelChoice::retrying, m_page, &ChatPage::showRetry);
    connect(choice, &ModelChoice::keyMissing, this,
            [this](const QString &error) { tell(tr("无法从系统的密钥环读取密钥：%1").arg(error)); });
    connect(m_page, &ChatPage::profileChosen, choice, &ModelChoice::choose);
    connect(m_page, &ChatPage::hintActed, this, &AssistantWindow::editProfiles);
    connect(m_menus, &AssistantMenus::modelsRequested, this, &AssistantWindow::editProfiles);
    takeChoice();
}

void AssistantWindow::takeChoice()
{
    setModel(m_choice->model(), m_choice->modelName());
    QStringList names;
    for (const AssistantProfile &profile : m_choice->profiles().profiles)
        names.append(shownName(profile));
    if (m_choice->isUnconfigured())
        names = QStringList(tr("模拟模型"));
    m_page->setProfiles(names, m_choice->profiles().currentIndex);
    if (m_choice->isUnconfigured())
        m_page->setHint(tr("还没有配置模型，现在由离线的模拟模型回答。"), tr("配置模型(&M)…"));
    else
        m_page->setHint({});
}

void AssistantWindow::editProfiles()
{
    auto *dialog = new ProfilesDialog(m_choice->profiles(), this);
    dialog->setKeychain(m_choice->keychain());
    dialog->setObjectName(QStringLiteral("profilesDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, m_choice,
            [this, dialog] { m_choice->setProfiles(dialog->profiles()); });
    dialog->open();
}

void AssistantWindow::setToolSet(ToolSet *tools, const QString &path)
{
    m_tools = tools;
    m_toolsPath = path;
    m_session->setToolRegistry(tools->registry());
    connect(tools, &ToolSet::registryChanged, this,
            [this] { m_session->setToolRegistry(m_tools->registry()); });
    connect(m_menus, &AssistantMenus::toolsRequested, this, &AssistantWindow::editTools);
}

void AssistantWindow::editTools()
{
    auto *dialog = new ToolsDialog(m_tools, this);
    dialog->setObjectName(QStringLiteral("toolsDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] { takeTools(dialog->settings()); });
    dialog->open();
}

void AssistantWindow::takeTools(const ToolSettings &settings)
{
    QString error;
    m_tools->setSettings(settings);
    if (!saveToolSettings(settings, m_toolsPath, &error))
        tell(tr("无法保存到 %1：%2").arg(QDir::toNativeSeparators(m_toolsPath), error));
}

void AssistantWindow::tell(const QString &text)
{
    m_notice->tell(text);
}

void AssistantWindow::exportTo(const QString &path)
{
    QString error;
    if (exportConversation(*m_store, m_keeper->conversation().id, path, &error))
        tell(tr("对话已导出到 %1。").arg(QDir::toNativeSeparators(path)));
    else
        tell(tr("无法导出：%1").arg(error));
}

void AssistantWindow::importFrom(const QString &path)
{
    QString error;
    const QString id = importConversation(m_store, path, &error);
    if (id.isEmpty())
        return tell(tr("无法导入：%1").arg(error));
    m_list->refresh();
    open(id, -1);
}

void AssistantWindow::closeEvent(QCloseEvent *event)
{
    rememberState();
    QMainWindow::closeEvent(event);
}

void AssistantWindow::open(const QString &id, int messageIndex)
{
    m_list->refresh();
    if (id.isEmpty())
        return m_keeper->begin();
    if (id != m_keeper->conversation().id && !m_keeper->open(id))
        return;
    if (messageIndex >= 0)
        m_page->scrollToMessage(messageIndex);
}

void AssistantWindow::remove(const QString &id)
{
    if (id.isEmpty())
        return;
    if (id == m_keeper->conversation().id)
        m_session->cancel();
    if (m_removed->remove(id) && id == m_keeper->conversation().id)
        m_keeper->begin();
}

void AssistantWindow::offerUndo(const QString &title)
{
    m_list->refresh();
    m_menus->setCanUndo(true);
    m_notice->tell(tr("已删除“%1”。").arg(title), tr("撤销(&U)"));
}

void AssistantWindow::chooseExport()
{
    const Conversation &conversation = m_keeper->conversation();
    if (conversation.id.isEmpty())
        return tell(tr("对话还是空的。"));
    const QString path = QFileDialog::getSaveFileName(
        this, tr("导出对话"), fileNameFor(conversation.title) + QStringLiteral(".json"),
        tr("JSON，可以再导入 (*.json);;Markdown，供阅读 (*.md)"));
    if (!path.isEmpty())
        exportTo(path);
}

void AssistantWindow::chooseImport()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("导入对话"), {}, tr("对话 (*.json)"));
    if (!path.isEmpty())
        importFrom(path);
}

void AssistantWindow::rememberState()
{
    m_settings->setGeometry(saveGeometry());
    m_settings->setSplitterState(m_splitter->saveState());
    m_settings->setConversationId(m_keeper->conversation().id);
}

void AssistantWindow::restoreState()
{
    restoreGeometry(m_settings->geometry());
    m_splitter->restoreState(m_settings->splitterState());
    const QModelIndex last = m_list->indexOf(m_settings->conversationId());
    const QModelIndex first = last.isValid() ? last : m_list->index(0);
    open(first.data(ConversationListModel::IdRole).toString(), -1);
}

void AssistantWindow::showTitle()
{
    const Conversation &conversation = m_keeper->conversation();
    m_sidebar->setCurrent(conversation.id);
    m_page->setUsage(usageText(conversation));
    const QString title = conversation.id.isEmpty() ? tr("新对话") : conversation.title;
    setWindowTitle(tr("%1 — Orvane 助手").arg(title));
}
