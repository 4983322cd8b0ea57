#ifndef ORVANE_TOOLCALLPANEL_H
#define ORVANE_TOOLCALLPANEL_H

#include <QWidget>

QT_BEGIN_NAMESPACE
class QPushButton;
QT_END_NAMESPACE
namespace MireloQtLib {
namespace QtAgent {
class AgentSession;
class ToolCallTraceView;
} // namespace QtAgent
} // namespace MireloQtLib

/// The tool calls of a session: a row for each, from its start on. A row that is opened, with Return or a
/// double click, shows the call in full; the button stops the run, and the call with it. It is hidden until
/// the first call.
///
/// Names: toolCalls, stopCallButton, and toolCallDialog with toolCallText.
class ToolCallPanel : public QWidget
{
    Q_OBJECT

public:
    /// Shows the calls of @p session, which is not owned.
    explicit ToolCallPanel(MireloQtLib::QtAgent::AgentSession *session, QWidget *parent = nullptr);
    ~ToolCallPanel() override;

public Q_SLOTS:
    /// Forgets all calls and hides the panel.
    void clear();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void connectSession(MireloQtLib::QtAgent::AgentSession *session);
    void openRow(int row);

    MireloQtLib::QtAgent::ToolCallTraceView *m_calls;
    QPushButton *m_stop;
};

#endif
