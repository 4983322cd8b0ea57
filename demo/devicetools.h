#ifndef ORVANE_DEVICETOOLS_H
#define ORVANE_DEVICETOOLS_H

#include <QPointer>
#include <QString>
#include <QVector>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QTableWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class AgentChatPanel;
class AgentExecutor;
class ToolCallTraceView;
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

/// A device of the demo plant.
struct DeviceRecord
{
    QString id;
    QString name;
    /// "正常" for a device that works as it should; any other text is abnormal.
    QString status;
    /// In degrees Celsius.
    double temperature = 0;
    double vibration = 0;
    /// What is wrong, else empty.
    QString alarm;
};

/// Returns the five devices of the demo plant.
QVector<DeviceRecord> demoDevices();

/// Returns the instruction for a model that answers with the device tools.
QString deviceSystemPrompt();

/// Adds the five tools that answer for @p devices to @p registry, which owns them: query_device_status,
/// find_abnormal_devices, generate_alarm_summary, export_report and query_all_device. A name that is taken
/// already is left to the tool that has it.
///
/// export_report writes a text file, into the folder for temporary files unless its fileName is an absolute
/// path, and therefore needs the user's approval. It replaces a file that exists. All others only read.
void registerDeviceTools(MireloQtLib::QtAgent::ToolRegistry *registry, const QVector<DeviceRecord> &devices);

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
