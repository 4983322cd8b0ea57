#include "stepstable.h"

#include "pageform.h"
#include "pagelayout.h"
#include "pageoutput.h"

#include <QBoxLayout>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QStyledItemDelegate>

using namespace MireloQtLib::QtAgent;

namespace {

enum Column { NodeColumn, RouteColumn, UpdateColumn, StateColumn };

constexpr int cellLength = 200;
constexpr int toolTipLength = 1000;
constexpr int toolTipLines = 30;
constexpr int widestColumn = 240; // until the user drags it wider

// No character outside the basic plane is cut in two.
QString beginningOf(const QString &text, int maximum)
{
    if (text.size() <= maximum)
        return text;
    const bool endsInsidePair = text.at(maximum - 1).isHighSurrogate();
    return text.left(endsInsidePair ? maximum - 1 : maximum) + QStringLiteral("…");
}

// Measures and paints the beginning of a text only.
class BeginningDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QString displayText(const QVariant &value, const QLocale & /*locale*/) const override
    {
        return beginningOf(value.toString(), cellLength);
    }
};

QString jsonToolTip(const QJsonObject &object)
{
    const QStringList lines =
        beginningOf(indentedJson(object).trimmed(), toolTipLength).split(QLatin1Char('\n'));
    QString text = lines.mid(0, toolTipLines).join(QLatin1Char('\n'));
    if (lines.size() > toolTipLines)
        text += QStringLiteral("\n…");
    return QStringLiteral("<div style=\"white-space:pre-wrap; font-family:monospace\">%1</div>")
        .arg(text.toHtmlEscaped());
}

// Makes its tool tip when it is asked for one.
class JsonItem : public QTableWidgetItem
{
public:
    explicit JsonItem(const QJsonObject &object)
        : QTableWidgetItem(indentedJson(object).simplified())
        , m_object(object)
    {
        setFont(codeFont());
    }

    QVariant data(int role) const override
    {
        return role == Qt::ToolTipRole ? jsonToolTip(m_object) : QTableWidgetItem::data(role);
    }

private:
    const QJsonObject m_object;
};

QString detailsOf(const GraphStep &step)
{
    return QStringLiteral("节点：%1\n路由：%2\n\n输出：\n%3\n状态：\n%4")
        .arg(step.node, step.route, indentedJson(step.update), indentedJson(step.after));
}

} // namespace

StepsTable::StepsTable(QWidget *parent)
    : QTableWidget(0, 4, parent)
    , m_fittedWidths{}
{
    setAccessibleName(QStringLiteral("步骤"));
    setAccessibleDescription(QStringLiteral("按 Return 键或双击一行，查看该步骤的全部内容。"));
    setHorizontalHeaderLabels(
        {QStringLiteral("节点"), QStringLiteral("路由"), QStringLiteral("输出"), QStringLiteral("状态")});
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setItemDelegate(new BeginningDelegate(this));
    setAlternatingRowColors(true);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setTabKeyNavigation(false);
    setWordWrap(false);
    for (int column = 0; column < columnCount(); ++column)
        m_fittedWidths.at(column) = columnWidth(column);
    fitColumns();
    connect(this, &QTableWidget::cellActivated, this, &StepsTable::showStep);
}

StepsTable::~StepsTable() = default;

void StepsTable::setSteps(const QVector<GraphStep> &steps)
{
    m_steps = steps;
    setRowCount(0);
    setRowCount(int(steps.size()));
    for (int row = 0; row < steps.size(); ++row) {
        const GraphStep &step = steps.at(row);
        setItem(row, NodeColumn, new QTableWidgetItem(step.node));
        setItem(row, RouteColumn, new QTableWidgetItem(step.route));
        setItem(row, UpdateColumn, new JsonItem(step.update));
        setItem(row, StateColumn, new JsonItem(step.after));
    }
    fitColumns();
}

void StepsTable::fitColumns()
{
    for (const int column : {NodeColumn, RouteColumn, UpdateColumn})
        fitColumn(column);
    stretchLastColumn(this, fittingWidth(StateColumn));
}

void StepsTable::fitColumn(int column)
{
    if (columnWidth(column) != m_fittedWidths.at(column))
        return; // the user has dragged it
    setColumnWidth(column, fittingWidth(column));
    m_fittedWidths.at(column) = columnWidth(column);
}

int StepsTable::fittingWidth(int column) const
{
    const int width = qMax(sizeHintForColumn(column), horizontalHeader()->sectionSizeHint(column));
    return qMin(width, widestColumn);
}

void StepsTable::showStep(int row)
{
    auto *dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(QStringLiteral("步骤 %1").arg(row + 1));
    QPlainTextEdit *details = createOutput(QStringLiteral("步骤的全部内容"));
    details->setObjectName(QStringLiteral("stepDetails"));
    showAsCode(details);
    details->setPlainText(detailsOf(m_steps.at(row)));
    auto *buttons = new QDialogButtonBox;
    buttons->addButton(QStringLiteral("关闭"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    auto *layout = new QVBoxLayout(dialog);
    layout->addWidget(details);
    layout->addWidget(buttons);
    dialog->resize(560, 420);
    dialog->open();
}
