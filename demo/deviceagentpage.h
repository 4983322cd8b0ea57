#ifndef ORVANE_DEVICEAGENTPAGE_H
#define ORVANE_DEVICEAGENTPAGE_H

#include <demo/devices.h>

#include <QPointer>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QTableWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class AgentChatPanel;
class AgentExecutor;
class ToolCallTraceView;
} // namespace QtAgent
} // namespace MireloQtLib

/// The page "数据分析": a table of devices, a chat with an agent that knows them, and the agent's tool calls.
///
/// @code
/// registerDeviceTools(registry, demoDevices());
/// executor->setToolRegistry(registry);
/// executor->setSystemPrompt(deviceSystemPrompt());
/// auto *page = new DeviceAgentPage(demoDevices(), executor);
/// @endcode
///
/// Every question starts a run of the executor, which answers with the model that it was given. Before a
/// risky tool runs, the user is asked in an ApprovalDialog above the page's window. A denial ends the run;
/// stopping or starting a run closes the dialog of the one before, whose answer counts no more.
///
/// For style sheets and user-interface tests the children are named agentPageTitle, deviceTable and
/// toolCallTraces.
class DeviceAgentPage : public QWidget
{
    Q_OBJECT

public:
    /// Creates the page of @p devices. @p executor stays with its owner and is used by this page alone.
    DeviceAgentPage(const QVector<DeviceRecord> &devices, MireloQtLib::QtAgent::AgentExecutor *executor,
                    QWidget *parent = nullptr);
    ~DeviceAgentPage() override;

private:
    void layOut(QTableWidget *deviceTable);
    void connectChat();
    void connectExecutor();

    void send(const QString &text);
    void stop();
    void finish();
    void showFailure(const QString &error);
    void rest();

    QPointer<MireloQtLib::QtAgent::AgentExecutor> m_executor;
    MireloQtLib::QtAgent::AgentChatPanel *m_chat;
    MireloQtLib::QtAgent::ToolCallTraceView *m_traces;
};

#endif
