#ifndef ORVANE_DEVICES_H
#define ORVANE_DEVICES_H

#include <QString>
#include <QVector>

/// A device of the demo plant.
struct DeviceRecord
{
    QString id;
    QString name;
    /// "正常" for a device that works as it should; any other text is abnormal.
    QString status;
    /// In degrees Celsius.
    double temperature = 0;
    double vibration = 0;
    /// What is wrong, else empty.
    QString alarm;
};

/// Returns the five devices of the demo plant.
QVector<DeviceRecord> demoDevices();

#endif
