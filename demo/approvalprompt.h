#ifndef ORVANE_APPROVALPROMPT_H
#define ORVANE_APPROVALPROMPT_H

#include <QObject>
#include <QPointer>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class AgentExecutor;
class ApprovalDialog;
struct ApprovalRequest;
} // namespace QtAgent
} // namespace MireloQtLib

/// The approval dialog of a page that runs an agent.
///
/// Ids of tool calls come from a model and repeat, so an executor cannot tell the answer to an earlier run
/// from one to the current run. The prompt drops the former.
class ApprovalPrompt : public QObject
{
    Q_OBJECT

public:
    explicit ApprovalPrompt(QObject *parent = nullptr);
    ~ApprovalPrompt() override;

    /// Asks the user above @p window and hands the answer to @p executor. Hands on nothing where the run
    /// that asks was left meanwhile, or where the prompt itself, and most likely its page, is gone.
    void ask(const MireloQtLib::QtAgent::ApprovalRequest &request,
             MireloQtLib::QtAgent::AgentExecutor *executor, QWidget *window);

    /// Closes an open dialog, whose answer no longer counts. Call it whenever a run ends or is replaced.
    void leaveRun();

Q_SIGNALS:
    /// The user denied, which ends the run. Emitted before the executor hears of it: a slot of its trace may
    /// start the next run.
    void denied();

private:
    QPointer<MireloQtLib::QtAgent::ApprovalDialog> m_dialog;
    int m_run = 0;
};

#endif
