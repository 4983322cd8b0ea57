#include "devices.h"

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
