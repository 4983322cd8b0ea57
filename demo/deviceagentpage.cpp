#include "deviceagentpage.h"

#include "pagelayout.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvalprompt.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QSplitter>
#include <QTableWidget>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int devicePageSpacing = 10;
constexpr int tracesHeight = 190;
constexpr int widestTableMinimum = 460; // leaves room for the chat in a small window

QStringList tableRow(const DeviceRecord &device)
{
    return {device.id + QStringLiteral(" - ") + device.name, device.status,
            QString::number(device.temperature, 'f', 1), QString::number(device.vibration, 'f', 2),
            device.alarm};
}

// Returns the width that all columns need.
int fitColumns(QTableWidget *table)
{
    table->resizeColumnsToContents();
    const int width = table->horizontalHeader()->length() + 2 * table->frameWidth();
    stretchLastColumn(table, table->columnWidth(table->columnCount() - 1));
    return width;
}

QTableWidget *createDeviceTable(const QVector<DeviceRecord> &devices)
{
    const QStringList labels{QStringLiteral("设备"), QStringLiteral("状态"), QStringLiteral("温度"),
                             QStringLiteral("振动"), QStringLiteral("告警")};
    auto *table = new QTableWidget(devices.size(), labels.size());
    table->setObjectName(QStringLiteral("deviceTable"));
    table->setAccessibleName(QStringLiteral("设备"));
    table->setHorizontalHeaderLabels(labels);
    table->verticalHeader()->hide(); // leaves its width to the alarms
    table->setAlternatingRowColors(true);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setTabKeyNavigation(false);
    for (int row = 0; row < devices.size(); ++row) {
        const QStringList texts = tableRow(devices.at(row));
        for (int column = 0; column < texts.size(); ++column)
            table->setItem(row, column, new QTableWidgetItem(texts.at(column)));
    }
    table->setMinimumWidth(qMin(fitColumns(table), widestTableMinimum));
    return table;
}

} // namespace

DeviceAgentPage::DeviceAgentPage(const QVector<DeviceRecord> &devices, AgentExecutor *executor,
                                 QWidget *parent)
    : QWidget(parent)
    , m_executor(executor)
    , m_chat(new AgentChatPanel)
    , m_traces(new ToolCallTraceView)
{
    layOut(createDeviceTable(devices));
    m_chat->appendSystemMessage(QStringLiteral("可以尝试：查找异常设备并导出报告。"));
    connectChat();
    connectExecutor();
}

DeviceAgentPage::~DeviceAgentPage() = default;

void DeviceAgentPage::layOut(QTableWidget *deviceTable)
{
    auto *title = new QLabel(QStringLiteral("设备监控分析"));
    title->setObjectName(QStringLiteral("agentPageTitle"));
    m_traces->setObjectName(QStringLiteral("toolCallTraces"));
    m_traces->setAccessibleName(QStringLiteral("工具调用"));
    m_traces->setMinimumHeight(tracesHeight);

    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->addWidget(deviceTable);
    splitter->addWidget(m_chat);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    layout->setSpacing(devicePageSpacing);
    layout->addWidget(title, 0);
    layout->addWidget(splitter, 1);
    layout->addWidget(m_traces, 0);
}

void DeviceAgentPage::connectChat()
{
    connect(m_chat, &AgentChatPanel::sendRequested, this, &DeviceAgentPage::send);
    connect(m_chat, &AgentChatPanel::stopRequested, this, &DeviceAgentPage::stop);
}

void DeviceAgentPage::connectExecutor()
{
    connect(m_executor, &AgentExecutor::assistantDelta, m_chat, &AgentChatPanel::appendAgentDelta);
    connect(m_executor, &AgentExecutor::assistantFinished, this, &DeviceAgentPage::finish);
    connect(m_executor, &AgentExecutor::traceAdded, m_traces, &ToolCallTraceView::addTrace);
    connect(m_executor, &AgentExecutor::traceAdded, this, &DeviceAgentPage::rest); // a denial ends the run
    connect(m_executor, &AgentExecutor::failed, this, &DeviceAgentPage::showFailure);
    auto *prompt = new ApprovalPrompt(m_executor, this, this);
    prompt->setBlocking(true);
}

void DeviceAgentPage::send(const QString &text)
{
    if (!m_executor)
        return;
    m_traces->clearTraces();
    m_chat->finishAgentMessage(); // a stop, a denial or a failure leaves the last answer open
    m_chat->appendUserMessage(text);
    m_chat->beginAgentMessage();
    m_chat->setBusy(true);
    m_executor->run(text);
}

void DeviceAgentPage::stop()
{
    m_chat->setBusy(false);
    if (m_executor)
        m_executor->cancel();
}

void DeviceAgentPage::finish()
{
    m_chat->finishAgentMessage();
    rest();
}

void DeviceAgentPage::showFailure(const QString &error)
{
    m_chat->appendSystemMessage(error);
    rest();
}

// A slot of the same signal may have begun the next run.
void DeviceAgentPage::rest()
{
    m_chat->setBusy(m_executor && m_executor->isRunning());
}
