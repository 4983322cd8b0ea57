#ifndef ORVANE_ASSISTANTWINDOW_H
#define ORVANE_ASSISTANTWINDOW_H

#include <QMainWindow>

#include <functional>

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
class AnswerWatch;
class AssistantMenus;
class AssistantSettings;
class ChatPage;
class ConversationKeeper;
class ConversationListModel;
class ConversationSidebar;
class ModelChoice;
class NoticeBar;
class RemovedConversation;
class TextZoom;
class ToolSet;
struct ToolSettings;

/// The window of the assistant: the conversations of a store on the left, the current one on the right.
///
/// What cannot be saved is told as long as it is so, and asked for before it would be dropped. Names: the
/// bars notice and unsaved, and unsavedQuestion with exportButton and discardButton.
class AssistantWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Shows what @p store has, as @p settings say, and goes on with the conversation that was open last.
    /// Neither is owned, the store is open, and both outlive the window.
    AssistantWindow(MireloQtLib::QtAgent::ConversationStore *store, AssistantSettings *settings,
                    QWidget *parent = nullptr);
    ~AssistantWindow() override;

    /// Sets the model that answers, which is not owned.
    void setModel(MireloQtLib::QtAgent::ChatModel *model, const QString &name);

    /// Lets @p choice say which model answers, and the user change it; what he chose last is chosen again. It
    /// is not owned.
    void setModelChoice(ModelChoice *choice);

    /// Offers the tools of @p tools to the model, and lets the user change them; what he chooses is kept in
    /// the file at @p path. They are not owned.
    void setToolSet(ToolSet *tools, const QString &path);

    /// Writes down where the window is, which conversation is open and what is not sent, as closing it does.
    void rememberState();

    /// Tells the user of something, until he closes it or something else is told.
    void tell(const QString &text);

    /// Writes the current conversation to the file at @p path, in the format of its ending: ".md" for
    /// readers, else JSON.
    void exportTo(const QString &path);

    /// Reads the conversation in the file at @p path and goes on with it.
    void importFrom(const QString &path);

Q_SIGNALS:
    /// The user has chosen another language, which windows speak that are made from now on. Comes when what
    /// is running has ended.
    void languageChanged();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void setUpParts();
    void setUpLayout();
    void setUpZoom();
    void connectList();
    void connectKeeper();
    void connectDraft();
    void connectConversationMenu();
    void connectMessageMenu();
    void connectViewMenu();
    void begin();
    void open(const QString &id, int messageIndex);
    void remove(const QString &id);
    void leaveConversation(const std::function<void()> &next);
    void askAboutUnsaved(const std::function<void()> &next);
    void showSaved();
    void offerUndo(const QString &title);
    void offer(const QString &text, const QString &action, const std::function<void()> &act);
    void chooseExport();
    void chooseImport();
    void restoreState();
    void showTitle();
    void rememberConversation();
    void takeChoice();
    QStringList profileNames() const;
    void rememberProfile();
    void takeLanguage(const QString &language);
    void switchLanguage();
    void editProfiles();
    void editTools(const QString &server = {});
    void takeTools(const ToolSettings &settings);
    void keepTools();
    void offerWaitingTools(const QString &server, const QString &tools);

    MireloQtLib::QtAgent::ConversationStore *const m_store;
    AssistantSettings *const m_settings;
    MireloQtLib::QtAgent::AgentSession *m_session = nullptr;
    AnswerWatch *m_watch = nullptr;
    ModelChoice *m_choice = nullptr;
    ToolSet *m_tools = nullptr;
    QString m_toolsPath;
    ConversationKeeper *m_keeper = nullptr;
    RemovedConversation *m_removed = nullptr;
    ConversationListModel *m_list = nullptr;
    TextZoom *m_zoom = nullptr;
    AssistantMenus *m_menus = nullptr;
    NoticeBar *m_notice = nullptr;
    NoticeBar *m_unsaved = nullptr;
    std::function<void()> m_offered; // by the notice
    bool m_offersReplaced = false;
    bool m_switchesLanguage = false;
    ConversationSidebar *m_sidebar = nullptr;
    ChatPage *m_page = nullptr;
    QSplitter *m_splitter = nullptr;
};

#endif
