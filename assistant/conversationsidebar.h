#ifndef ORVANE_CONVERSATIONSIDEBAR_H
#define ORVANE_CONVERSATIONSIDEBAR_H

#include <QWidget>

QT_BEGIN_NAMESPACE
class QLineEdit;
class QListView;
class QPushButton;
QT_END_NAMESPACE
class ConversationListModel;

/// The list of conversations with a field for the search above it and a button for a new one.
///
/// Return and a click open a conversation, F2 renames it, Delete asks for its removal. The search looks up
/// what stands in the field while it is typed; Down leads to the list. Names: conversationSearch,
/// conversationList, newConversation.
class ConversationSidebar : public QWidget
{
    Q_OBJECT

public:
    /// Shows @p model, which is not owned.
    explicit ConversationSidebar(ConversationListModel *model, QWidget *parent = nullptr);
    ~ConversationSidebar() override;

    /// Marks the conversation @p id as the current one; none where it is not in the list.
    void setCurrent(const QString &id);

    /// Returns the id of the selected conversation, or an empty text.
    QString selected() const;

    /// Puts the cursor into the search.
    void focusSearch();

    /// Lets the title of the selected conversation be edited.
    void editTitle();

Q_SIGNALS:
    /// The user wants the conversation @p id, and in it the message @p messageIndex, or -1.
    void openRequested(const QString &id, int messageIndex);

    /// The user wants to begin another conversation.
    void newRequested();

    /// The user wants to have the conversation @p id removed.
    void removeRequested(const QString &id);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setUpSearch();
    void setUpList();
    void open(const QModelIndex &index);
    void restoreCurrent();

    ConversationListModel *const m_model;
    QPushButton *m_newButton = nullptr;
    QLineEdit *m_search = nullptr;
    QListView *m_list = nullptr;
    QString m_current;
};

#endif
