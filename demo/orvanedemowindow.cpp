#include "orvanedemowindow.h"

#include "basicchatpage.h"
#include "deviceagentpage.h"
#include "devicetools.h"
#include "modelpages.h"
#include "navigation.h"
#include "workflowpages.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/modelconfigwidget.h>

#include <QSplitter>
#include <QStackedWidget>
#include <QTreeWidget>

using namespace MireloQtLib::QtAgent;

namespace {

QTreeWidget *createNavigation(QWidget *parent)
{
    auto *navigation = new QTreeWidget(parent);
    navigation->setObjectName(QStringLiteral("navigationTree"));
    navigation->setAccessibleName(QStringLiteral("导航"));
    navigation->setHeaderHidden(true);
    navigation->setUniformRowHeights(true);
    navigation->setMinimumWidth(240);
    navigation->setMaximumWidth(360);
    return navigation;
}

QStackedWidget *createPageStack(QWidget *parent)
{
    auto *pages = new QStackedWidget(parent);
    pages->setObjectName(QStringLiteral("pageStack"));
    return pages;
}

} // namespace

OrvaneDemoWindow::OrvaneDemoWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_mockModel(new MockChatModel(this))
    , m_openAiModel(new OpenAICompatibleModel(this))
    , m_deepSeekModel(new DeepSeekModel(this))
    , m_toolRegistry(new ToolRegistry(this))
    , m_executor(new AgentExecutor(this))
{
    setWindowTitle(QStringLiteral("Qt-UI Orvane 演示"));
    resize(1280, 820);
    setUpDeviceAgent();

    auto *splitter = new QSplitter(Qt::Horizontal);
    m_navigation = createNavigation(splitter);
    m_pages = createPageStack(splitter);
    addPages();
    showFirstPage();
    connect(m_navigation, &QTreeWidget::currentItemChanged, this, &OrvaneDemoWindow::showPageOf);
    fillSplitter(splitter);
    loadProfiles();
}

OrvaneDemoWindow::~OrvaneDemoWindow() = default;

void OrvaneDemoWindow::setUpDeviceAgent()
{
    m_executor->setToolRegistry(m_toolRegistry);
    m_executor->setSystemPrompt(deviceSystemPrompt());
    registerDeviceTools(m_toolRegistry, demoDevices());
}

void OrvaneDemoWindow::addPages()
{
    auto *quickStart = new QTreeWidgetItem(m_navigation, {QStringLiteral("快速开始")});
    auto *modelGroup = new QTreeWidgetItem(m_navigation, {QStringLiteral("模型能力")});
    auto *workflowGroup = new QTreeWidgetItem(m_navigation, {QStringLiteral("流程能力")});
    addQuickStartPages(quickStart);
    addModelPages(modelGroup, m_pages, modelProvider(), toolRegistryProvider());
    addWorkflowPages(workflowGroup, m_pages, modelProvider(), toolRegistryProvider());
    m_navigation->expandAll();
}

void OrvaneDemoWindow::addQuickStartPages(QTreeWidgetItem *group)
{
    auto *chatPage = new BasicChatPage(modelProvider(), this);
    m_modelConfig = chatPage->modelConfig();
    addPage(group, m_pages, QStringLiteral("基础对话"), chatPage);
    addPage(group, m_pages, QStringLiteral("数据分析"), new DeviceAgentPage(demoDevices(), m_executor));
}

void OrvaneDemoWindow::showFirstPage()
{
    QTreeWidgetItem *first = m_navigation->topLevelItem(0)->child(0);
    m_navigation->setCurrentItem(first);
    showPageOf(first);
}

void OrvaneDemoWindow::showPageOf(const QTreeWidgetItem *entry)
{
    if (!entry)
        return;
    const QVariant pageIndex = entry->data(0, Qt::UserRole);
    if (pageIndex.isValid())
        m_pages->setCurrentIndex(pageIndex.toInt());
}

void OrvaneDemoWindow::fillSplitter(QSplitter *splitter)
{
    splitter->addWidget(m_navigation);
    splitter->addWidget(m_pages);
    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    setCentralWidget(splitter);
    m_pages->currentWidget()->findChild<QWidget *>(QStringLiteral("agentChatInput"))->setFocus();
}

void OrvaneDemoWindow::loadProfiles()
{
    const ModelProfiles loaded = loadModelProfiles();
    m_modelConfig->setProfiles(loaded.profiles, loaded.currentIndex);
    applyModelConfig();
    connect(m_modelConfig, &ModelConfigWidget::configChanged, this, &OrvaneDemoWindow::applyModelConfig);
}

void OrvaneDemoWindow::applyModelConfig()
{
    if (!m_modelConfig)
        return;
    const ModelConfig config = m_modelConfig->currentConfig();
    for (ChatModel *model : {m_mockModel.data(), m_openAiModel.data(), m_deepSeekModel.data()}) {
        if (model)
            model->setConfig(config);
    }
    if (m_executor)
        m_executor->setModel(activeModel());
}

ChatModel *OrvaneDemoWindow::activeModel() const
{
    const QString provider = m_modelConfig ? m_modelConfig->currentConfig().provider : QString();
    if (provider == QLatin1String("openai"))
        return m_openAiModel;
    if (provider == QLatin1String("deepseek"))
        return m_deepSeekModel;
    return m_mockModel;
}

ModelProvider OrvaneDemoWindow::modelProvider()
{
    return [this] {
        applyModelConfig();
        return activeModel();
    };
}

ToolRegistryProvider OrvaneDemoWindow::toolRegistryProvider() const
{
    return [registry = m_toolRegistry] { return registry; };
}
