#include "clocktool.h"

#include <qtagent/agenttool.h>

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

using namespace MireloQtLib::QtAgent;

namespace {

ToolResult now(const QJsonObject & /*arguments*/)
{
    const QDateTime time = QDateTime::currentDateTime();
    ToolResult result;
    result.success = true;
    result.content = QStringLiteral("%1, %2, %3")
                         .arg(time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate),
                              QLocale::c().dayName(time.date().dayOfWeek()),
                              QString::fromLatin1(QTimeZone::systemTimeZoneId()));
    return result;
}

} // namespace

AgentTool *createClockTool(QObject *parent)
{
    const QJsonObject schema{{QStringLiteral("type"), QStringLiteral("object")},
                             {QStringLiteral("properties"), QJsonObject()}};
    return new FunctionTool(QStringLiteral("clock"),
                            QStringLiteral("Tells the date, the time and the time zone."), schema,
                            ToolPermission::ReadOnly, now, parent);
}
