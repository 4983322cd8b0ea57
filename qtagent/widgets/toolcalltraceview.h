#ifndef MIRELOQTLIB_QTAGENT_TOOLCALLTRACEVIEW_H
#define MIRELOQTLIB_QTAGENT_TOOLCALLTRACEVIEW_H

#include <qtagent/toolcalltrace.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QTableWidget>

namespace MireloQtLib {
namespace QtAgent {

/// A table of tool calls, one row each, in the order in which they ran.
///
/// @code
/// auto *traces = new ToolCallTraceView(this);
/// connect(executor, &AgentExecutor::traceAdded, traces, &ToolCallTraceView::addTrace);
/// @endcode
///
/// The columns are 工具, 状态, 权限, 耗时, 输入, 输出 and 时间. Their widths follow the contents of
/// the hundred rows in and around the view; rows are selected whole and cannot be edited.
///
/// What models and tools write is shown as plain text on one line, line breaks and control characters as
/// blanks. A cell measures and paints no more than the first 200 characters, so a result of several
/// megabytes costs the window what a short one costs; the item's text() is complete. The tool tip of a
/// name, an input and an output shows its first 1,000 characters, unless the item was given another.
class QTAGENT_WIDGETS_EXPORT ToolCallTraceView : public QTableWidget
{
    Q_OBJECT

public:
    /// Creates an empty table.
    explicit ToolCallTraceView(QWidget *parent = nullptr);
    ~ToolCallTraceView() override;

    /// Appends a row for @p trace and scrolls to it. The cells hold the tool's name, the status, the name of
    /// the permission, the duration as "12 ms", the arguments as compact JSON, the error or, where there is
    /// none, the output, and the time as "14:05:09".
    void addTrace(const MireloQtLib::QtAgent::ToolCallTrace &trace);

    /// Removes all rows.
    void clearTraces();
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
