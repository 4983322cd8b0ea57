#include "devicetools.h"

#include <qtagent/agenttool.h>
#include <qtagent/toolregistry.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QStandardPaths>
#include <QTextStream>

using namespace MireloQtLib::QtAgent;

namespace {

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

} // namespace

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
