#ifndef ORVANE_ASSISTANTWINDOW_H
#define ORVANE_ASSISTANTWINDOW_H

#include <QMainWindow>

QT_BEGIN_NAMESPACE
class QSplitter;
QT_END_NAMESPACE
namespace MireloQtLib {
namespace QtAgent {
class AgentSession;
class ChatModel;
class ConversationStore;
} // namespace QtAgent
} // namespace MireloQtLib
class ChatPage;
class ConversationKeeper;
class ConversationListModel;
class ConversationSidebar;

/// The window of the assistant: the conversations of a store on the left, the current one on the right.
class AssistantWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Shows what @p store has and goes on with its newest conversation. The store is not owned, is open, and
    /// outlives the window.
    explicit AssistantWindow(MireloQtLib::QtAgent::ConversationStore *store, QWidget *parent = nullptr);
    ~AssistantWindow() override;

    /// Sets the model that answers, which is not owned.
    void setModel(MireloQtLib::QtAgent::ChatModel *model, const QString &name);

    /// Tells the user of something in the status bar, until something else is told.
    void tell(const QString &text);

private:
    void setUpParts();
    void setUpLayout();
    void setUpMenus();
    void connectParts();
    void open(const QString &id, int messageIndex);
    void showTitle();

    MireloQtLib::QtAgent::ConversationStore *const m_store;
    MireloQtLib::QtAgent::AgentSession *m_session = nullptr;
    ConversationKeeper *m_keeper = nullptr;
    ConversationListModel *m_list = nullptr;
    ConversationSidebar *m_sidebar = nullptr;
    ChatPage *m_page = nullptr;
    QSplitter *m_splitter = nullptr;
};

#endif
