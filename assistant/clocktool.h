#ifndef ORVANE_CLOCKTOOL_H
#define ORVANE_CLOCKTOOL_H

#include <QtGlobal>

QT_BEGIN_NAMESPACE
class QObject;
QT_END_NAMESPACE
namespace MireloQtLib {
namespace QtAgent {
class AgentTool;
}
} // namespace MireloQtLib

/// Returns the tool "clock", which tells date, time, day of the week and time zone of this computer.
MireloQtLib::QtAgent::AgentTool *createClockTool(QObject *parent);

#endif
