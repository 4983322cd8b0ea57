#include "toolcallpanel.h"

#include "librarytexts.h"

#include <qtagent/agentsession.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QDialog>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

ToolCallPanel::ToolCallPanel(AgentSession *session, QWidget *parent)
    : QWidget(parent)
    , m_calls(new ToolCallTraceView)
    , m_stop(new QPushButton(tr("停止工具(&O)")))
{
    constexpr int rows = 3;
    m_calls->setObjectName(QStringLiteral("toolCalls"));
    m_calls->setAccessibleName(tr("工具调用"));
    m_calls->setTabKeyNavigation(false);
    m_calls->setFixedHeight(m_calls->horizontalHeader()->sizeHint().height()
                            + rows * m_calls->verticalHeader()->defaultSectionSize());
    m_calls->installEventFilter(this);
    m_stop->setObjectName(QStringLiteral("stopCallButton"));
    m_stop->setEnabled(false);
    connect(m_stop, &QPushButton::clicked, session, &AgentSession::cancel);
    connect(m_calls, &QTableWidget::cellDoubleClicked, this, &ToolCallPanel::openRow);
    connectSession(session);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins({});
    layout->addWidget(m_calls, 1);
    layout->addWidget(m_stop, 0, Qt::AlignTop);
    hide();
}

ToolCallPanel::~ToolCallPanel() = default;

void ToolCallPanel::connectSession(AgentSession *session)
{
    connect(session, &AgentSession::toolStarted, m_calls, &ToolCallTraceView::showRunning);
    connect(session, &AgentSession::toolStarted, this, [this] {
        m_stop->setEnabled(true);
        show();
    });
    connect(session, &AgentSession::traceAdded, m_calls, [this](ToolCallTrace trace) {
        trace.output = shownText(trace.output);
        trace.error = shownText(trace.error);
        m_calls->addTrace(trace);
    });
    connect(session, &AgentSession::traceAdded, this, &QWidget::show);
    connect(session, &AgentSession::traceAdded, this, [this] { m_stop->setEnabled(false); });
    connect(session, &AgentSession::runEnded, m_calls, &ToolCallTraceView::clearRunning);
    connect(session, &AgentSession::runEnded, this, [this] { m_stop->setEnabled(false); });
}

void ToolCallPanel::clear()
{
    m_calls->clearTraces();
    hide();
}

bool ToolCallPanel::eventFilter(QObject *watched, QEvent *event)
{
    const bool isKey = watched == m_calls && event->type() == QEvent::KeyPress;
    const int key = isKey ? static_cast<QKeyEvent *>(event)->key() : 0;
    if (key != Qt::Key_Return && key != Qt::Key_Enter)
        return QWidget::eventFilter(watched, event);
    openRow(m_calls->currentRow());
    return true;
}

void ToolCallPanel::openRow(int row)
{
    if (row < 0)
        return;
    QStringList lines;
    for (int column = 0; column < m_calls->columnCount(); ++column) {
        const QString heading = m_calls->horizontalHeaderItem(column)->text();
        lines.append(tr("%1：%2").arg(heading, m_calls->item(row, column)->text()));
    }
    auto *dialog = new QDialog(this);
    dialog->setObjectName(QStringLiteral("toolCallDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("工具调用"));
    auto *text = new QPlainTextEdit(lines.join(QStringLiteral("\n\n")));
    text->setObjectName(QStringLiteral("toolCallText"));
    text->setReadOnly(true);
    text->setTabChangesFocus(true);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    auto *layout = new QVBoxLayout(dialog);
    layout->addWidget(text);
    layout->addWidget(buttons);
    dialog->resize(560, 400);
    dialog->open();
}
