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
#include "focusring.h"
#include "mcpconnection.h"
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
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>

#include <utility>

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
    connectKeeper();
    connectConversationMenu();
    connectMessageMenu();
    connectViewMenu();
    m_list->refresh();
    restoreState();
    connectDraft();
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
    auto *prompt = new ApprovalPrompt(m_session, this, this);
    prompt->setExplanation([this](const ApprovalRequest &request) {
        return m_tools ? m_tools->explanation(request) : QString();
    });
    m_keeper = new ConversationKeeper(m_store, m_session, this);
    m_keeper->setWatch(m_watch);
    m_removed = new RemovedConversation(m_store, this);
    m_list = new ConversationListModel(m_store, this);
    m_menus = new AssistantMenus(menuBar(), m_settings->sendKey(), m_settings->language(), this);
    m_notice = new NoticeBar;
    m_notice->setObjectName(QStringLiteral("notice"));
    m_unsaved = new NoticeBar;
    m_unsaved->setObjectName(QStringLiteral("unsaved"));
    m_unsaved->setIcon(QStyle::SP_MessageBoxWarning);
    m_sidebar = new ConversationSidebar(m_list);
    m_page = new ChatPage(m_session, m_keeper, m_watch);
    m_page->input()->setSendKey(m_settings->sendKey());
    new FocusRing(this);
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
    layout->addWidget(m_unsaved);
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
    connect(m_sidebar, &ConversationSidebar::newRequested, this, &AssistantWindow::begin);
    connect(m_sidebar, &ConversationSidebar::openRequested, this, &AssistantWindow::open);
    connect(m_sidebar, &ConversationSidebar::removeRequested, this, &AssistantWindow::remove);
    connect(m_list, &ConversationListModel::renameRequested, m_keeper, &ConversationKeeper::rename);
    connect(m_list, &ConversationListModel::failed, this, &AssistantWindow::tell);
    connect(m_removed, &RemovedConversation::removed, this, &AssistantWindow::offerUndo);
    connect(m_removed, &RemovedConversation::restored, this, [this](const QString &id) {
        m_menus->setCanUndo(false);
        m_notice->clear();
        m_list->refresh();
        if (!m_session->isRunning()) // which another conversation would end
            open(id, -1);
    });
    connect(m_removed, &RemovedConversation::failed, this, &AssistantWindow::tell);
    connect(m_notice, &NoticeBar::acted, this, [this] {
        if (const auto act = std::exchange(m_offered, {}))
            act();
    });
}

void AssistantWindow::connectKeeper()
{
    connect(m_keeper, &ConversationKeeper::saved, m_list, &ConversationListModel::refresh);
    connect(m_keeper, &ConversationKeeper::saved, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, this, &AssistantWindow::rememberConversation);
    connect(m_keeper, &ConversationKeeper::saved, this, &AssistantWindow::rememberConversation);
    connect(m_keeper, &ConversationKeeper::opened, m_page, &ChatPage::showConversation);
    connect(m_keeper, &ConversationKeeper::opened, m_page->input(), [this] { m_page->input()->setFocus(); });
    connect(m_keeper, &ConversationKeeper::savedChanged, this, &AssistantWindow::showSaved);
    connect(m_keeper, &ConversationKeeper::failed, this, &AssistantWindow::tell);
    connect(m_keeper, &ConversationKeeper::replaced, this, [this] {
        offer(tr("原来的消息已被替换。"), tr("撤销(&U)"), [this] {
            m_notice->clear();
            m_keeper->undoReplacing();
        });
        m_offersReplaced = true;
    });
    const auto withdraw = [this] {
        if (std::exchange(m_offersReplaced, false))
            m_notice->clear();
    };
    connect(m_keeper, &ConversationKeeper::opened, m_notice, withdraw);
    connect(m_session, &AgentSession::runningChanged, m_notice, withdraw);
    connect(m_unsaved, &NoticeBar::acted, this, &AssistantWindow::chooseExport);
}

// A draft is as safe as an answer.
void AssistantWindow::connectDraft()
{
    constexpr int intervalMs = 1000;
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setInterval(intervalMs);
    connect(timer, &QTimer::timeout, this, [this] { m_settings->setDraft(m_page->draft()); });
    connect(m_page->input(), &QPlainTextEdit::textChanged, timer, [timer] {
        if (!timer->isActive())
            timer->start();
    });
}

void AssistantWindow::connectConversationMenu()
{
    connect(m_menus, &AssistantMenus::newRequested, this, &AssistantWindow::begin);
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

// Another language needs another window, which an answer that is arriving would not survive.
void AssistantWindow::takeLanguage(const QString &language)
{
    if (language == m_settings->language())
        return;
    m_settings->setLanguage(language);
    if (!m_session->isRunning())
        return switchLanguage();
    tell(tr("回答结束后切换语言。"));
    if (!std::exchange(m_switchesLanguage, true))
        connect(m_session, &AgentSession::runEnded, this, &AssistantWindow::switchLanguage,
                Qt::QueuedConnection);
}

void AssistantWindow::switchLanguage()
{
    if (!m_session->isRunning())
        leaveConversation([this] { Q_EMIT languageChanged(); });
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
    choice->choose(m_settings->profileAmong(profileNames()));
    connect(choice, &ModelChoice::changed, this, &AssistantWindow::takeChoice);
    connect(choice, &ModelChoice::retrying, m_page, &ChatPage::showRetry);
    connect(choice, &ModelChoice::keyMissing, this,
            [this](const QString &error) { tell(tr("无法从系统的密钥环读取密钥：%1").arg(error)); });
    connect(m_page, &ChatPage::profileChosen, this, [this](int index) {
        m_choice->choose(index);
        rememberProfile();
    });
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
        m_page->setHint(tr("还没有配置模型，现在由离线的模拟模型回答。"), tr("配置模型(&P)…"));
    else
        m_page->setHint({});
}

// As they are in the file, whatever they are called in this language.
QStringList AssistantWindow::profileNames() const
{
    QStringList names;
    for (const AssistantProfile &profile : m_choice->profiles().profiles)
        names.append(profile.config.name);
    return names;
}

// Not in their file, which other programs may read.
void AssistantWindow::rememberProfile()
{
    m_settings->setProfile(m_choice->profiles().currentIndex, profileNames());
}

void AssistantWindow::editProfiles()
{
    auto *dialog = new ProfilesDialog(m_choice->profiles(), this);
    dialog->setKeychain(m_choice->keychain());
    dialog->setObjectName(QStringLiteral("profilesDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        m_choice->setProfiles(dialog->profiles());
        rememberProfile();
    });
    dialog->open();
}

void AssistantWindow::setToolSet(ToolSet *tools, const QString &path)
{
    m_tools = tools;
    m_toolsPath = path;
    m_session->setToolRegistry(tools->registry());
    connect(tools, &ToolSet::registryChanged, this,
            [this] { m_session->setToolRegistry(m_tools->registry()); });
    connect(tools, &ToolSet::settingsChanged, this, &AssistantWindow::keepTools);
    connect(tools, &ToolSet::toolsWaiting, this, &AssistantWindow::offerWaitingTools);
    connect(m_menus, &AssistantMenus::toolsRequested, this, [this] { editTools(); });
    for (const McpConnection *connection : tools->connections()) {
        if (!connection->waitingTools().isEmpty())
            offerWaitingTools(connection->settings().name, connection->waitingText());
    }
}

void AssistantWindow::offerWaitingTools(const QString &server, const QString &tools)
{
    offer(tr("服务器 %1 的这些工具是新的，或与您同意时不同，您同意之后才会提供给模型：%2").arg(server, tools),
          tr("查看(&V)…"), [this, server] {
              m_notice->clear();
              editTools(server);
          });
}

// With a server, its tools are shown first.
void AssistantWindow::editTools(const QString &server)
{
    auto *dialog = new ToolsDialog(m_tools, this);
    dialog->setObjectName(QStringLiteral("toolsDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] { takeTools(dialog->settings()); });
    if (!server.isEmpty())
        dialog->showServer(server);
    dialog->open();
}

void AssistantWindow::takeTools(const ToolSettings &settings)
{
    m_tools->setSettings(settings);
    keepTools();
}

void AssistantWindow::keepTools()
{
    QString error;
    if (!saveToolSettings(m_tools->settings(), m_toolsPath, &error))
        tell(tr("无法保存到 %1：%2").arg(QDir::toNativeSeparators(m_toolsPath), error));
}

void AssistantWindow::tell(const QString &text)
{
    offer(text, {}, {});
}

void AssistantWindow::offer(const QString &text, const QString &action, const std::function<void()> &act)
{
    m_offersReplaced = false;
    m_offered = act;
    m_notice->tell(text, action);
}

void AssistantWindow::exportTo(const QString &path)
{
    QString error;
    const bool isExported = m_keeper->isSaved()
                              ? exportConversation(*m_store, m_keeper->conversation().id, path, &error)
                              : exportUnsaved(m_keeper->conversation(), path, &error);
    if (isExported)
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
    // The end of a run may bring a question back into the input.
    const bool isSaved = m_keeper->finish();
    rememberState();
    if (isSaved)
        return QMainWindow::closeEvent(event);
    event->ignore();
    askAboutUnsaved([this] { close(); });
}

void AssistantWindow::begin()
{
    leaveConversation([this] { m_keeper->begin(); });
}

void AssistantWindow::open(const QString &id, int messageIndex)
{
    m_list->refresh();
    if (id.isEmpty())
        return begin();
    if (id == m_keeper->conversation().id)
        return m_page->scrollToMessage(messageIndex);
    leaveConversation([this, id, messageIndex] {
        if (m_keeper->open(id))
            m_page->scrollToMessage(messageIndex);
    });
}

void AssistantWindow::remove(const QString &id)
{
    if (id.isEmpty())
        return;
    if (id != m_keeper->conversation().id) {
        m_removed->remove(id);
        return;
    }
    leaveConversation([this, id] {
        if (m_removed->remove(id))
            m_keeper->begin();
    });
}

// Whoever goes on to something else calls this, for nothing that was said is dropped unasked.
void AssistantWindow::leaveConversation(const std::function<void()> &next)
{
    if (m_keeper->finish())
        next();
    else
        askAboutUnsaved(next);
}

void AssistantWindow::askAboutUnsaved(const std::function<void()> &next)
{
    if (findChild<QMessageBox *>(QStringLiteral("unsavedQuestion")))
        return;
    auto *question = new QMessageBox(QMessageBox::Warning, tr("Orvane 助手"),
                                     tr("对话没有保存：%1").arg(m_keeper->saveError()), {}, this);
    question->setObjectName(QStringLiteral("unsavedQuestion"));
    question->setAttribute(Qt::WA_DeleteOnClose);
    question->setTextFormat(Qt::PlainText);
    question->setInformativeText(tr("可以先导出，再放弃。"));
    auto *exporting = question->addButton(tr("导出(&E)…"), QMessageBox::AcceptRole);
    exporting->setObjectName(QStringLiteral("exportButton"));
    auto *discarding = question->addButton(tr("放弃(&D)"), QMessageBox::DestructiveRole);
    discarding->setObjectName(QStringLiteral("discardButton"));
    question->setEscapeButton(question->addButton(tr("取消(&C)"), QMessageBox::RejectRole));
    connect(exporting, &QPushButton::clicked, this, &AssistantWindow::chooseExport);
    connect(discarding, &QPushButton::clicked, this, [this, next] {
        m_keeper->discard();
        next();
    });
    question->open();
}

void AssistantWindow::showSaved()
{
    if (m_keeper->isSaved())
        m_unsaved->clear();
    else
        m_unsaved->tell(tr("对话没有保存：%1\n程序会继续尝试。").arg(m_keeper->saveError()), tr("导出(&X)…"));
}

void AssistantWindow::offerUndo(const QString &title)
{
    m_list->refresh();
    m_menus->setCanUndo(true);
    offer(tr("已删除“%1”。").arg(title), tr("撤销(&U)"), [this] { m_removed->undo(); });
}

void AssistantWindow::chooseExport()
{
    const Conversation &conversation = m_keeper->conversation();
    if (conversation.messages.isEmpty())
        return tell(tr("对话还是空的。"));
    const QString json = tr("JSON，可以再导入 (*.json)");
    const QString markdown = tr("Markdown，供阅读 (*.md)");
    auto *dialog = new QFileDialog(this, tr("导出对话"));
    dialog->setObjectName(QStringLiteral("exportDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setNameFilters({json, markdown});
    dialog->setDefaultSuffix(QStringLiteral("json"));
    dialog->selectFile(fileNameFor(conversation.title) + QStringLiteral(".json"));
    connect(dialog, &QFileDialog::filterSelected, dialog, [dialog, markdown](const QString &filter) {
        const QString suffix = filter == markdown ? QStringLiteral("md") : QStringLiteral("json");
        const QFileInfo file(dialog->selectedFiles().value(0));
        dialog->setDefaultSuffix(suffix);
        dialog->selectFile(file.completeBaseName() + QLatin1Char('.') + suffix);
    });
    connect(dialog, &QFileDialog::fileSelected, this, &AssistantWindow::exportTo);
    dialog->open();
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
    m_settings->setDraft(m_page->draft());
    rememberConversation();
}

void AssistantWindow::rememberConversation()
{
    const QString id = m_keeper->conversation().id;
    if (m_settings->conversationId() != id)
        m_settings->setConversationId(id);
}

void AssistantWindow::restoreState()
{
    restoreGeometry(m_settings->geometry());
    m_splitter->restoreState(m_settings->splitterState());
    m_page->input()->setPlainText(m_settings->draft());
    m_page->input()->moveCursor(QTextCursor::End);
    const std::optional<QString> id = m_settings->conversationId();
    if (id && id->isEmpty())
        return begin();
    const QModelIndex last = m_list->indexOf(id.value_or(QString()));
    const QModelIndex first = last.isValid() ? last : m_list->index(0);
    open(first.data(ConversationListModel::IdRole).toString(), -1);
}

void AssistantWindow::showTitle()
{
    const Conversation &conversation = m_keeper->conversation();
    m_sidebar->setCurrent(conversation.id);
    m_page->setUsage(usageText(conversation));
    QString title = conversation.id.isEmpty() ? tr("新对话") : conversation.title;
    title.replace(QLatin1String("[*]"), QLatin1String("[*][*]")); // which a window shows as it stands
    setWindowTitle(tr("%1 — Orvane 助手").arg(title));
}
