#include "conversationsidebar.h"

#include "conversationdelegate.h"
#include "conversationlistmodel.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

ConversationSidebar::ConversationSidebar(ConversationListModel *model, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
{
    m_newButton = new QPushButton(tr("新对话(&N)"));
    m_newButton->setObjectName(QStringLiteral("newConversation"));
    connect(m_newButton, &QPushButton::clicked, this, &ConversationSidebar::newRequested);
    setUpSearch();
    setUpList();

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_newButton);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
}

ConversationSidebar::~ConversationSidebar() = default;

void ConversationSidebar::setUpSearch()
{
    m_search = new QLineEdit;
    m_search->setObjectName(QStringLiteral("conversationSearch"));
    m_search->setAccessibleName(tr("搜索对话"));
    m_search->setPlaceholderText(tr("搜索对话"));
    m_search->setClearButtonEnabled(true);
    m_search->installEventFilter(this);
    connect(m_search, &QLineEdit::textChanged, m_model, &ConversationListModel::setSearchText);
}

void ConversationSidebar::setUpList()
{
    m_list = new QListView;
    m_list->setObjectName(QStringLiteral("conversationList"));
    m_list->setAccessibleName(tr("对话"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(new ConversationDelegate(m_list));
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setUniformItemSizes(true);
    m_list->setEditTriggers(QAbstractItemView::EditKeyPressed);
    m_list->installEventFilter(this);
    connect(m_list, &QListView::clicked, this, &ConversationSidebar::open);
    connect(m_list, &QListView::activated, this, &ConversationSidebar::open);
    connect(m_model, &ConversationListModel::modelReset, this, &ConversationSidebar::restoreCurrent);
}

void ConversationSidebar::setCurrent(const QString &id)
{
    // What the user has selected meanwhile stays while the conversation is saved again and again.
    if (std::exchange(m_current, id) != id || id.isEmpty())
        restoreCurrent();
}

QString ConversationSidebar::selected() const
{
    return m_list->currentIndex().data(ConversationListModel::IdRole).toString();
}

void ConversationSidebar::focusSearch()
{
    m_search->setFocus(Qt::ShortcutFocusReason);
    m_search->selectAll();
}

void ConversationSidebar::editTitle()
{
    if (m_list->currentIndex().isValid())
        m_list->edit(m_list->currentIndex());
}

bool ConversationSidebar::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    const bool isReturn = key == Qt::Key_Return || key == Qt::Key_Enter;
    if (watched == m_search && key == Qt::Key_Down)
        m_list->setFocus(Qt::TabFocusReason);
    else if (watched == m_search && isReturn)
        open(m_model->index(0));
    else if (watched == m_list && key == Qt::Key_Delete && !selected().isEmpty())
        Q_EMIT removeRequested(selected());
    else
        return QWidget::eventFilter(watched, event);
    return true;
}

void ConversationSidebar::open(const QModelIndex &index)
{
    if (index.isValid())
        Q_EMIT openRequested(index.data(ConversationListModel::IdRole).toString(),
                             index.data(ConversationListModel::MessageIndexRole).toInt());
}

void ConversationSidebar::restoreCurrent()
{
    m_list->setCurrentIndex(m_model->indexOf(m_current));
}
