#ifndef ORVANE_TOOLSDIALOG_H
#define ORVANE_TOOLSDIALOG_H

#include "toolsettings.h"

#include <QDialog>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QLabel;
class QLineEdit;
class QTabWidget;
QT_END_NAMESPACE
class McpServersPage;
class ToolSet;

/// Lets the user choose the tools that are offered to the model.
///
/// Names: toolTabs, clockCheck, folderEdit, folderButton, folderProblem, and those of McpServersPage.
class ToolsDialog : public QDialog
{
    Q_OBJECT

public:
    /// Edits the settings of @p tools, which is not owned, and shows the state of its servers.
    explicit ToolsDialog(const ToolSet *tools, QWidget *parent = nullptr);
    ~ToolsDialog() override;

    /// Returns the settings as edited.
    ToolSettings settings() const;

    /// Shows the tools of the server with this name.
    void showServer(const QString &name);

public Q_SLOTS:
    /// Stays open where the folder or a server cannot be used, and says why.
    void accept() override;

private:
    QWidget *createOwnTools(const ToolSettings &settings);
    void chooseFolder();

    QCheckBox *m_clock = nullptr;
    QLineEdit *m_folder = nullptr;
    QLabel *m_folderProblem = nullptr;
    QTabWidget *m_tabs = nullptr;
    McpServersPage *m_servers = nullptr;
};

#endif
