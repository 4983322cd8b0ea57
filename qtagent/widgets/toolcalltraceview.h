#ifndef MIRELOQTLIB_QTAGENT_TOOLCALLTRACEVIEW_H
#define MIRELOQTLIB_QTAGENT_TOOLCALLTRACEVIEW_H

#include <qtagent/toolcalltrace.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QPersistentModelIndex>
#include <QTableWidget>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// A table of tool calls, one row each, in the order in which they ran.
///
/// @code
/// auto *traces = new ToolCallTraceView(this);
/// connect(executor, &AgentExecutor::traceAdded, traces, &ToolCallTraceView::addTrace);
/// @endcode
///
/// With an AgentSession, calls are shown from their start on:
/// @code
/// connect(session, &AgentSession::toolStarted, traces, &ToolCallTraceView::showRunning);
/// connect(session, &AgentSession::traceAdded, traces, &ToolCallTraceView::addTrace);
/// connect(session, &AgentSession::runEnded, traces, &ToolCallTraceView::clearRunning);
/// @endcode
///
/// The columns are 工具, 状态, 权限, 耗时, 输入, 输出 and 时间. Their widths follow the contents of
/// the hundred rows in and around the view; rows are selected whole and cannot be edited.
///
/// What models and tools write is shown as plain text on one line, line breaks and control characters as
/// blanks. A cell measures and paints no more than the first 200 characters, so a result of several
/// megabytes costs the window what a short one costs; the item's text() is complete. The tool tip of a
/// name, an input and an output shows its first 1,000 characters, unless the item was given another.
///
/// Like every widget the view belongs to the application's main thread.
class QTAGENT_WIDGETS_EXPORT ToolCallTraceView : public QTableWidget
{
    Q_OBJECT

public:
    /// Creates an empty table.
    explicit ToolCallTraceView(QWidget *parent = nullptr);
    ~ToolCallTraceView() override;

    /// Appends a row for @p trace and scrolls to it, or fills the row that showRunning() added for its call;
    /// of several with the same id the newest is meant. The cells hold the tool's name, the status, the name
    /// of the permission, the duration as "12 ms", the arguments as compact JSON, the error or, where there
    /// is none, the output, and the time as "14:05:09".
    void addTrace(const MireloQtLib::QtAgent::ToolCallTrace &trace);

    /// Appends a row for @p call with the status "running" and without a duration, and scrolls to it. The
    /// next trace with the id of the call takes its place.
    void showRunning(const MireloQtLib::QtAgent::ToolCallTrace &call);

    /// Gives the rows that still run the status "canceled": no trace of them is to come.
    void clearRunning();

    /// Removes all rows.
    void clearTraces();

private:
    int takeRunningRow(const QString &callId);
    int appendRow();
    void fillRow(int row, const ToolCallTrace &trace, const QString &status, const QString &duration);

    // The first cells of the rows that run; the cell holds the call's id.
    QVector<QPersistentModelIndex> m_running;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
