#ifndef ORVANE_DEVICETOOLS_H
#define ORVANE_DEVICETOOLS_H

#include <demo/devices.h>

namespace MireloQtLib {
namespace QtAgent {
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

/// Returns the instruction for a model that answers with the device tools.
QString deviceSystemPrompt();

/// Adds the five tools that answer for @p devices to @p registry, which owns them: query_device_status,
/// find_abnormal_devices, generate_alarm_summary, export_report and query_all_device. A name that is taken
/// already is left to the tool that has it.
///
/// export_report writes a text file, into the folder for temporary files unless its fileName is an absolute
/// path, and therefore needs the user's approval. It replaces a file that exists. All others only read.
void registerDeviceTools(MireloQtLib::QtAgent::ToolRegistry *registry, const QVector<DeviceRecord> &devices);

#endif
