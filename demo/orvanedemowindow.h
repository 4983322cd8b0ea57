#ifndef ORVANE_ORVANEDEMOWINDOW_H
#define ORVANE_ORVANEDEMOWINDOW_H

#include <demo/modelprovider.h>

#include <QMainWindow>
#include <QPointer>

QT_BEGIN_NAMESPACE
class QSplitter;
class QStackedWidget;
class QTreeWidget;
class QTreeWidgetItem;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class AgentExecutor;
class ModelConfigWidget;
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

/// The demo's main window: a navigation tree beside a page for every capability of the library.
///
/// The window loads the model profiles when it is created (see loadModelProfiles()) and shows them in the
/// form of the page "基础对话". That form decides for all pages which model answers, and with which
/// profile: its provider "openai" or "deepseek" names a service, anything else means the offline mock
/// model.
///
/// The tools of the page "数据分析" are in a registry that all pages share.
///
/// The window owns its models, its pages and the replies that are under way; it may be deleted at any time.
/// For style sheets and user-interface tests the tree is named navigationTree and the stack pageStack.
class OrvaneDemoWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Creates the window with the page "基础对话" in front and the focus in its chat input.
    explicit OrvaneDemoWindow(QWidget *parent = nullptr);
    ~OrvaneDemoWindow() override;

private:
    void setUpDeviceAgent();
    void addQuickStartPages(QTreeWidgetItem *group);
    void addPages();
    void showFirstPage();
    void showPageOf(const QTreeWidgetItem *entry);
    void fillSplitter(QSplitter *splitter);
    void loadProfiles();
    void applyModelConfig();
    MireloQtLib::QtAgent::ChatModel *activeModel() const;
    ModelProvider modelProvider();
    ToolRegistryProvider toolRegistryProvider() const;

    QPointer<MireloQtLib::QtAgent::ChatModel> m_mockModel;
    QPointer<MireloQtLib::QtAgent::ChatModel> m_openAiModel;
    QPointer<MireloQtLib::QtAgent::ChatModel> m_deepSeekModel;
    QPointer<MireloQtLib::QtAgent::ToolRegistry> m_toolRegistry;
    QPointer<MireloQtLib::QtAgent::AgentExecutor> m_executor;
    QTreeWidget *m_navigation = nullptr;
    QStackedWidget *m_pages = nullptr;
    QPointer<MireloQtLib::QtAgent::ModelConfigWidget> m_modelConfig;
};

#endif
