#include "devicetools.h"

#include "pageparts.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/agenttool.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvalprompt.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QBoxLayout>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QJsonArray>
#include <QLabel>
#include <QSplitter>
#include <QStandardPaths>
#include <QTableWidget>
#include <QTextStream>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int devicePageSpacing = 10;
constexpr int tracesHeight = 190;
constexpr int widestTableMinimum = 460; // leaves room for the chat in a small window

// Devices

bool isAbnormal(const DeviceRecord &device)
{
    return device.status != QStringLiteral("正常");
}

QVector<DeviceRecord> abnormalOf(const QVector<DeviceRecord> &devices)
{
    QVector<DeviceRecord> abnormal;
    for (const DeviceRecord &device : devices) {
        if (isAbnormal(device))
            abnormal.append(device);
    }
    return abnormal;
}

QString joinedIds(const QVector<DeviceRecord> &devices)
{
    QStringList ids;
    for (const DeviceRecord &device : devices)
        ids.append(device.id);
    return ids.join(QStringLiteral(", "));
}

QJsonObject statusObject(const DeviceRecord &device)
{
    return {
        {QStringLiteral("id"), device.id},
        {QStringLiteral("name"), device.name},
        {QStringLiteral("status"), device.status},
        {QStringLiteral("temperature"), device.temperature},
        {QStringLiteral("vibration"), device.vibration},
        {QStringLiteral("alarm"), device.alarm},
    };
}

QJsonObject listObject(const QVector<DeviceRecord> &devices)
{
    QJsonArray entries;
    for (const DeviceRecord &device : devices) {
        entries.append(QJsonObject{
            {QStringLiteral("id"), device.id},
            {QStringLiteral("status"), device.status},
            {QStringLiteral("temperature"), device.temperature},
            {QStringLiteral("alarm"), device.alarm},
        });
    }
    return {{QStringLiteral("devices"), entries}};
}

// Tools

ToolResult success(const QString &content, const QJsonObject &data = {})
{
    ToolResult result;
    result.success = true;
    result.data = data;
    result.content = content;
    return result;
}

ToolResult failure(const QString &error)
{
    ToolResult result;
    result.error = error;
    return result;
}

ToolResult queryDeviceStatus(const QVector<DeviceRecord> &devices, const QJsonObject &arguments)
{
    const QString id = arguments.value(QStringLiteral("deviceId")).toString();
    for (const DeviceRecord &device : devices) {
        if (device.id == id)
            return success(QStringLiteral("%1 当前状态：%2。").arg(id, device.status), statusObject(device));
    }
    return failure(QStringLiteral("未找到设备：%1").arg(id));
}

ToolResult findAbnormalDevices(const QVector<DeviceRecord> &devices, const QJsonObject & /*arguments*/)
{
    const QVector<DeviceRecord> abnormal = abnormalOf(devices);
    return success(QStringLiteral("异常设备：%1").arg(joinedIds(abnormal)), listObject(abnormal));
}

ToolResult generateAlarmSummary(const QVector<DeviceRecord> &devices, const QJsonObject & /*arguments*/)
{
    QStringList alarms;
    for (const DeviceRecord &device : abnormalOf(devices))
        alarms.append(QStringLiteral("%1 (%2): %3").arg(device.id, device.status, device.alarm));
    return success(QStringLiteral("告警摘要：%1").arg(alarms.join(QStringLiteral("; "))));
}

ToolResult queryAllDevices(const QVector<DeviceRecord> &devices, const QJsonObject & /*arguments*/)
{
    return success(QStringLiteral("设备：%1").arg(joinedIds(devices)), listObject(devices));
}

// The header's bytes are taken for Latin-1, so its Chinese words come out garbled while those of the
// devices do not. Readers of the report rely on these bytes.
QString reportHeader()
{
    return QString::fromLatin1("Qt-UI Orvane 演示报告\n\n");
}

bool writeReport(const QString &path, const QVector<DeviceRecord> &devices)
{
    if (path.contains(QChar::Null)) // would end the name there and write another file
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream stream(&file);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    stream.setEncoding(QStringConverter::System); // the default of Qt 5
#endif
    stream << reportHeader();
    for (const DeviceRecord &device : devices) {
        const QStringList fields{device.id, device.name, device.status, device.alarm};
        stream << fields.join(QStringLiteral(", ")) << '\n';
    }
    stream.flush();
    return stream.status() == QTextStream::Ok && file.flush();
}

ToolResult exportReport(const QVector<DeviceRecord> &devices, const QJsonObject &arguments)
{
    const QString fileName =
        arguments.value(QStringLiteral("fileName")).toString(QStringLiteral("orvane-demo-report.txt"));
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::TempLocation));
    const QString path = folder.filePath(fileName);
    if (!writeReport(path, devices))
        return failure(QStringLiteral("无法写入报告：%1").arg(path));
    return success(QStringLiteral("报告已导出到 %1").arg(path), {{QStringLiteral("path"), path}});
}

struct DeviceTool
{
    QString name;
    QString description;
    QJsonObject properties;
    QJsonArray required;
    ToolPermission permission;
    ToolResult (*run)(const QVector<DeviceRecord> &devices, const QJsonObject &arguments);
};

QJsonObject textProperty(const QString &name, const QString &description)
{
    const QJsonObject property{{QStringLiteral("type"), QStringLiteral("string")},
                               {QStringLiteral("description"), description}};
    return {{name, property}};
}

QVector<DeviceTool> deviceTools()
{
    const QString deviceId = QStringLiteral("deviceId");
    return {
        {QStringLiteral("query_device_status"),
         QStringLiteral("按 deviceId 查询单个演示设备状态。"),
         textProperty(deviceId, QStringLiteral("设备 id，例如 Pump-001")),
         {deviceId},
         ToolPermission::ReadOnly,
         queryDeviceStatus},
        {QStringLiteral("find_abnormal_devices"),
         QStringLiteral("查找预警或严重状态的演示设备。"),
         {},
         {},
         ToolPermission::ReadOnly,
         findAbnormalDevices},
        {QStringLiteral("generate_alarm_summary"),
         QStringLiteral("为异常设备生成简要告警摘要。"),
         {},
         {},
         ToolPermission::ReadOnly,
         generateAlarmSummary},
        {QStringLiteral("export_report"),
         QStringLiteral("将演示报告导出到系统临时目录。"),
         textProperty(QStringLiteral("fileName"), QStringLiteral("输出文件名")),
         {},
         ToolPermission::FileSystem,
         exportReport},
        {QStringLiteral("query_all_device"),
         QStringLiteral("查询所有的设备。"),
         {},
         {},
         ToolPermission::ReadOnly,
         queryAllDevices},
    };
}

QJsonObject schemaOf(const DeviceTool &tool)
{
    QJsonObject schema{{QStringLiteral("type"), QStringLiteral("object")},
                       {QStringLiteral("properties"), tool.properties}};
    if (!tool.required.isEmpty())
        schema.insert(QStringLiteral("required"), tool.required);
    return schema;
}

// Page

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

QVector<DeviceRecord> demoDevices()
{
    constexpr struct
    {
        const char *id;
        const char *name;
        const char *status;
        double temperature;
        double vibration;
        const char *alarm;
    } rows[] = {
        {"Pump-001", "主冷却泵", "正常", 53.2, 0.18, ""},
        {"Pump-002", "备用冷却泵", "预警", 74.5, 0.42, "温度持续升高"},
        {"Valve-014", "蒸汽阀门", "严重", 88.1, 0.66, "压力波动"},
        {"Fan-008", "排风机", "正常", 42.0, 0.12, ""},
        {"Motor-021", "输送电机", "预警", 69.3, 0.39, "振动超过阈值"},
    };
    QVector<DeviceRecord> devices;
    for (const auto &row : rows) {
        devices.append({QString::fromUtf8(row.id), QString::fromUtf8(row.name), QString::fromUtf8(row.status),
                        row.temperature, row.vibration, QString::fromUtf8(row.alarm)});
    }
    return devices;
}

QString deviceSystemPrompt()
{
    return QStringLiteral("你是设备状态分析助手。用户要求查找异常设备、生成告警摘要或导出报告时，"
                          "应优先使用可用工具完成任务。需要导出报告时调用 export_report。");
}

void registerDeviceTools(ToolRegistry *registry, const QVector<DeviceRecord> &devices)
{
    for (const DeviceTool &tool : deviceTools()) {
        const auto handler = [devices, run = tool.run](const QJsonObject &arguments) {
            return run(devices, arguments);
        };
        auto *function =
            new FunctionTool(tool.name, tool.description, schemaOf(tool), tool.permission, handler);
        if (!registry->registerTool(function))
            delete function;
    }
}

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
