#ifndef ORVANE_MCPSERVERSPAGE_H
#define ORVANE_MCPSERVERSPAGE_H

#include "toolsettings.h"

#include <QPointer>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QScrollArea;
QT_END_NAMESPACE
class McpConnection;
class ToolSet;

/// The servers of tools: a list, and for each what starts it, its state, its words and its tools to tick.
///
/// What was edited takes effect with the next ToolSet::setSettings(). Names: serverList, addServer,
/// removeServer, serverNameEdit, serverKindCombo, serverTargetEdit, serverArgumentsEdit, serverVariablesEdit,
/// serverState, serverRestart, serverWords, serverTools, serverToolText.
///
/// Ticking a tool that waits for the user agrees to what it says, which is shown with what it said before.
class McpServersPage : public QWidget
{
    Q_OBJECT

public:
    /// Edits the servers of @p tools, which is not owned.
    explicit McpServersPage(const ToolSet *tools, QWidget *parent = nullptr);
    ~McpServersPage() override;

    /// Returns the servers as edited. Those without a name or a target are left out.
    QVector<McpServerSettings> servers() const;

    /// Shows the first server that cannot be used as it was edited, and why. Returns whether there is one.
    bool showProblem();

    /// Shows the tools of the server with this name, and the first of them that waits for the user.
    void showTools(const QString &serverName);

private:
    QWidget *createList();
    QWidget *createForm();
    void addFields(QFormLayout *form);
    void addState(QFormLayout *form);
    void add();
    void remove();
    void showCurrent();
    void showState();
    void showOffered(const McpConnection *connection, const McpServerSettings &server);
    void showToolText();
    void takeTicks(McpServerSettings *server) const;
    void takeForm();
    void showWords();
    void restart();
    QString problemOf(int row) const;

    QVector<McpServerSettings> m_servers;
    QVector<QPointer<McpConnection>> m_connections; // of each server, null where it is new
    bool m_isFilling = false;
    QString m_shownWords;
    QListWidget *m_list = nullptr;
    QPushButton *m_remove = nullptr;
    QScrollArea *m_area = nullptr;
    QWidget *m_form = nullptr;
    QLineEdit *m_name = nullptr;
    QComboBox *m_kind = nullptr;
    QLineEdit *m_target = nullptr;
    QPlainTextEdit *m_arguments = nullptr;
    QPlainTextEdit *m_variables = nullptr;
    QLabel *m_state = nullptr;
    QPushButton *m_restart = nullptr;
    QPlainTextEdit *m_words = nullptr;
    QListWidget *m_offered = nullptr;
    QPlainTextEdit *m_toolText = nullptr;
};

#endif
