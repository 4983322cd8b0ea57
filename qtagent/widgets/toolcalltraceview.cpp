#include "toolcalltraceview.h"

#include "fixedwidthfont_p.h"
#include "plaintext_p.h"

#include <QHeaderView>
#include <QJsonDocument>
#include <QStyledItemDelegate>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int nameColumn = 0;
constexpr int statusColumn = 1;
constexpr int inputColumn = 4;
constexpr int outputColumn = 5;
constexpr int cellLength = 200;
constexpr int rowsThatFitColumns = 100;

// Measures and paints the beginning of a text only.
class CellDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QString displayText(const QVariant &value, const QLocale & /*locale*/) const override
    {
        return singleLine(cutText(value.toString(), cellLength));
    }
};

// Makes its tool tip when it is asked for one, unless it was given another.
class ToolTipItem : public QTableWidgetItem
{
public:
    using QTableWidgetItem::QTableWidgetItem;

    QVariant data(int role) const override
    {
        const QVariant value = QTableWidgetItem::data(role);
        return role == Qt::ToolTipRole && !value.isValid() ? plainToolTip(text()) : value;
    }
};

bool hasToolTip(int column)
{
    return column == nameColumn || column == inputColumn || column == outputColumn;
}

QTableWidgetItem *createCell(int column, const QString &text)
{
    QTableWidgetItem *cell = hasToolTip(column) ? new ToolTipItem(text) : new QTableWidgetItem(text);
    if (column == inputColumn || column == outputColumn)
        cell->setFont(fixedWidthFont());
    return cell;
}

QString compactJson(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace

ToolCallTraceView::ToolCallTraceView(QWidget *parent)
    : QTableWidget(parent)
{
    const QStringList labels{
        tr("工具"), tr("状态"), tr("权限"), tr("耗时"), tr("输入"), tr("输出"), tr("时间"),
    };
    setColumnCount(labels.size());
    setHorizontalHeaderLabels(labels);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    horizontalHeader()->setResizeContentsPrecision(rowsThatFitColumns);
    setItemDelegate(new CellDelegate(this));
    setAlternatingRowColors(true);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setTabKeyNavigation(false);
    setWordWrap(false);
}

ToolCallTraceView::~ToolCallTraceView() = default;

void ToolCallTraceView::addTrace(const ToolCallTrace &trace)
{
    const int runningRow = takeRunningRow(trace.callId);
    const int row = runningRow < 0 ? appendRow() : runningRow;
    fillRow(row, trace, trace.status, QStringLiteral("%1 ms").arg(trace.durationMs));
    if (runningRow < 0)
        scrollToBottom();
}

void ToolCallTraceView::showRunning(const ToolCallTrace &call)
{
    const int row = appendRow();
    fillRow(row, call, QStringLiteral("running"), QString());
    item(row, nameColumn)->setData(Qt::UserRole, call.callId);
    m_running.append(model()->index(row, 0));
    scrollToBottom();
}

// Rows may have been removed, or moved, by the host.
int ToolCallTraceView::takeRunningRow(const QString &callId)
{
    for (int i = int(m_running.size()) - 1; i >= 0; --i) {
        const QPersistentModelIndex index = m_running.at(i);
        if (!index.isValid() || index.data(Qt::UserRole).toString() != callId)
            continue;
        m_running.removeAt(i);
        return index.row();
    }
    return -1;
}

int ToolCallTraceView::appendRow()
{
    const int row = rowCount();
    insertRow(row);
    return row;
}

void ToolCallTraceView::fillRow(int row, const ToolCallTrace &trace, const QString &status,
                                const QString &duration)
{
    const QStringList texts{
        trace.toolName,
        status,
        permissionToString(trace.permission),
        duration,
        compactJson(trace.arguments),
        trace.error.isEmpty() ? trace.output : trace.error,
        trace.timestamp.toString(QStringLiteral("HH:mm:ss")),
    };
    for (int column = 0; column < texts.size(); ++column) {
        if (QTableWidgetItem *cell = item(row, column))
            cell->setText(texts.at(column));
        else
            setItem(row, column, createCell(column, texts.at(column)));
    }
}

void ToolCallTraceView::clearRunning()
{
    const QVector<QPersistentModelIndex> running = std::exchange(m_running, {});
    for (const QPersistentModelIndex &index : running) {
        if (index.isValid())
            item(index.row(), statusColumn)->setText(QStringLiteral("canceled"));
    }
}

void ToolCallTraceView::clearTraces()
{
    setRowCount(0);
    m_running.clear();
}

} // namespace QtAgent
} // namespace MireloQtLib
