#include "assistantwindow.h"

#include "chatinput.h"
#include "chatpage.h"
#include "conversationkeeper.h"
#include "conversationlistmodel.h"
#include "conversationsidebar.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>

#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>

using namespace MireloQtLib::QtAgent;

AssistantWindow::AssistantWindow(ConversationStore *store, QWidget *parent)
    : QMainWindow(parent)
    , m_store(store)
{
    setUpParts();
    setUpLayout();
    setUpMenus();
    connectParts();
    m_list->refresh();
    open(m_list->index(0).data(ConversationListModel::IdRole).toString(), -1);
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
    m_keeper = new ConversationKeeper(m_store, m_session, this);
    m_list = new ConversationListModel(m_store, this);
    m_sidebar = new ConversationSidebar(m_list);
    m_page = new ChatPage(m_session);
}

void AssistantWindow::setUpLayout()
{
    constexpr int listWidth = 240;
    m_splitter = new QSplitter;
    m_splitter->addWidget(m_sidebar);
    m_splitter->addWidget(m_page);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setSizes({listWidth, width() - listWidth});
    setCentralWidget(m_splitter);
    statusBar();
    resize(1000, 700);
}

void AssistantWindow::setUpMenus()
{
    QMenu *conversation = menuBar()->addMenu(tr("对话(&C)"));
    conversation->addAction(tr("新对话(&N)"), m_keeper, &ConversationKeeper::begin)
        ->setShortcut(QKeySequence::New);
    conversation->addAction(tr("搜索(&F)"), m_sidebar, &ConversationSidebar::focusSearch)
        ->setShortcut(QKeySequence::Find);
    conversation->addAction(tr("停止(&T)"), m_session, &AgentSession::cancel)->setShortcut(Qt::Key_Escape);
    conversation->addSeparator();
    conversation->addAction(tr("退出(&Q)"), this, &QWidget::close)->setShortcut(QKeySequence::Quit);
}

void AssistantWindow::connectParts()
{
    connect(m_sidebar, &ConversationSidebar::newRequested, m_keeper, &ConversationKeeper::begin);
    connect(m_sidebar, &ConversationSidebar::openRequested, this, &AssistantWindow::open);
    connect(m_list, &ConversationListModel::renameRequested, m_keeper, &ConversationKeeper::rename);
    connect(m_list, &ConversationListModel::failed, this, &AssistantWindow::tell);
    connect(m_keeper, &ConversationKeeper::saved, m_list, &ConversationListModel::refresh);
    connect(m_keeper, &ConversationKeeper::saved, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, this, &AssistantWindow::showTitle);
    connect(m_keeper, &ConversationKeeper::opened, m_page->input(), [this] { m_page->input()->setFocus(); });
    connect(m_keeper, &ConversationKeeper::failed, this, &AssistantWindow::tell);
}

void AssistantWindow::setModel(ChatModel *model, const QString &name)
{
    m_session->setModel(model);
    m_keeper->setModelName(name);
    m_page->setHint(name != QLatin1String("mock")
                        ? QString()
                        : tr("还没有配置模型，现在由离线的模拟模型回答。请把服务地址、密钥和模型名称写入 "
                             "orvane.local.json，或者设置环境变量 OPENAI_API_KEY 或 DEEPSEEK_API_KEY，"
                             "然后重新启动程序。"));
}

void AssistantWindow::tell(const QString &text)
{
    statusBar()->showMessage(text);
}

void AssistantWindow::open(const QString &id, int messageIndex)
{
    if (id.isEmpty())
        return m_keeper->begin();
    if (id != m_keeper->conversation().id && !m_keeper->open(id))
        return;
    if (messageIndex >= 0)
        m_page->scrollToMessage(messageIndex);
}

void AssistantWindow::showTitle()
{
    const Conversation &conversation = m_keeper->conversation();
    m_sidebar->setCurrent(conversation.id);
    const QString title = conversation.id.isEmpty() ? tr("新对话") : conversation.title;
    setWindowTitle(tr("%1 — Orvane 助手").arg(title));
}
