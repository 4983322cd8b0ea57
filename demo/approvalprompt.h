#ifndef ORVANE_APPROVALPROMPT_H
#define ORVANE_APPROVALPROMPT_H

#include <QObject>
#include <QPointer>

#include <optional>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
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

    /// Asks the user above @p window and returns the answer. Returns nothing where the run that asks was
    /// left meanwhile, or where the prompt itself, and with it most likely its page, is gone.
    std::optional<bool> ask(const MireloQtLib::QtAgent::ApprovalRequest &request, QWidget *window);

    /// Closes an open dialog, whose answer no longer counts. Call it whenever a run ends or is replaced.
    void leaveRun();

private:
    QPointer<MireloQtLib::QtAgent::ApprovalDialog> m_dialog;
    int m_run = 0;
};

#endif
