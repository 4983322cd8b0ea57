#ifndef ORVANE_GLOSSARYPAGE_H
#define ORVANE_GLOSSARYPAGE_H

#include <demo/modelprovider.h>

#include <qtagent/toolcalltrace.h>

#include <QPointer>
#include <QWidget>

namespace MireloQtLib {
namespace QtAgent {
class AgentExecutor;
} // namespace QtAgent
} // namespace MireloQtLib

QT_BEGIN_NAMESPACE
class QPlainTextEdit;
class QPushButton;
QT_END_NAMESPACE

/// The page "工具调用": a model answers a question with the tools of the shared registry, to which the page
/// adds the glossary.
///
/// Every run has an executor of its own, a child of the page. A new run replaces the one before.
class GlossaryPage : public QWidget
{
    Q_OBJECT

public:
    GlossaryPage(const ModelProvider &model, const ToolRegistryProvider &registry, QWidget *parent = nullptr);
    ~GlossaryPage() override;

private:
    QWidget *createForm();
    QWidget *createOutputs();
    void setRunning(bool running);

    void run();
    void discardExecutor();
    MireloQtLib::QtAgent::AgentExecutor *createExecutor();
    void showTrace(const MireloQtLib::QtAgent::ToolCallTrace &trace);
    void showFailure(const QString &error);
    void stop();
    void rest();

    const ModelProvider m_model;
    const ToolRegistryProvider m_registry;
    QPlainTextEdit *m_input = nullptr;
    QPlainTextEdit *m_answer = nullptr;
    QPlainTextEdit *m_traces = nullptr;
    QPushButton *m_runButton = nullptr;
    QPushButton *m_stopButton = nullptr;
    QPointer<MireloQtLib::QtAgent::AgentExecutor> m_executor;
};

#endif
