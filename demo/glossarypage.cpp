#include "glossarypage.h"

#include "glossary.h"
#include "pageform.h"
#include "pagelayout.h"
#include "pageoutput.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/approvalprompt.h>

#include <QGroupBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

GlossaryPage::GlossaryPage(const ModelProvider &model, const ToolRegistryProvider &registry, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_registry(registry)
{
    layOutPage(this, createForm(), createOutputs());
    setRunning(false);
}

GlossaryPage::~GlossaryPage() = default;

QWidget *GlossaryPage::createForm()
{
    auto *form = new QGroupBox(QStringLiteral("AI 工具调用"));
    auto *layout = new QVBoxLayout(form);
    m_input = addInput(layout, QStringLiteral("用户问题"),
                       QStringLiteral("请解释 Orvane Workflow 和 Chain 的区别，并说明什么时候需要工具调用。"),
                       {340, 180});
    m_input->setObjectName(QStringLiteral("pageInput"));
    m_runButton = addButton(layout, QStringLiteral("让 AI 调用工具"), QStringLiteral("runButton"));
    m_stopButton = addButton(layout, QStringLiteral("停止"), QStringLiteral("stopButton"));
    pressByCtrlReturn(m_runButton, this);
    connect(m_runButton, &QPushButton::clicked, this, &GlossaryPage::run);
    connect(m_stopButton, &QPushButton::clicked, this, &GlossaryPage::stop);
    return form;
}

QWidget *GlossaryPage::createOutputs()
{
    const QString answerTitle = QStringLiteral("AI 最终回答");
    const QString traceTitle = QStringLiteral("工具调用轨迹");
    m_answer = createOutput(answerTitle);
    m_answer->setObjectName(QStringLiteral("pageOutput"));
    m_traces = createOutput(traceTitle);
    m_traces->setObjectName(QStringLiteral("traceOutput"));
    showAsCode(m_traces);
    auto *outputs = new QSplitter(Qt::Vertical);
    outputs->addWidget(createTitledArea(answerTitle, m_answer));
    outputs->addWidget(createTitledArea(traceTitle, m_traces));
    outputs->setStretchFactor(0, 2);
    outputs->setStretchFactor(1, 1);
    return outputs;
}

void GlossaryPage::setRunning(bool running)
{
    switchRunAndStop(running, m_runButton, m_stopButton, m_input);
}

void GlossaryPage::run()
{
    const QString question = m_input->toPlainText().trimmed();
    if (question.isEmpty())
        return;
    const QPointer<GlossaryPage> self(this);
    discardExecutor();
    if (!self)
        return;
    registerOrDelete(m_registry(), createGlossaryTool());
    m_executor = createExecutor();
    setRunning(true);
    m_answer->setPlainText(QStringLiteral("AI 正在思考...\n\n"));
    m_executor->run(question);
}

void GlossaryPage::discardExecutor()
{
    if (!m_executor)
        return;
    AgentExecutor *const executor = m_executor;
    m_executor.clear();
    executor->disconnect(this);
    executor->deleteLater();
    executor->cancel();
}

AgentExecutor *GlossaryPage::createExecutor()
{
    auto *executor = new AgentExecutor(this);
    executor->setMaxIterations(4);
    executor->setModel(m_model());
    executor->setToolRegistry(m_registry());
    executor->setSystemPrompt(
        QStringLiteral("You are an Orvane demo assistant. Use the lookup_term tool when the question needs "
                       "local glossary knowledge. "
                       "After tools return, answer in Chinese and mention which terms were looked up."));
    connect(executor, &AgentExecutor::assistantDelta, this,
            [this](const QString &delta) { appendText(m_answer, delta); });
    connect(executor, &AgentExecutor::assistantFinished, this, &GlossaryPage::rest);
    connect(executor, &AgentExecutor::traceAdded, this, &GlossaryPage::showTrace);
    connect(executor, &AgentExecutor::traceAdded, this, &GlossaryPage::rest); // a denial ends the run
    connect(executor, &AgentExecutor::failed, this, &GlossaryPage::showFailure);
    auto *prompt = new ApprovalPrompt(executor, this, executor);
    prompt->setBlocking(true);
    return executor;
}

void GlossaryPage::showTrace(const ToolCallTrace &trace)
{
    const QString separator = m_traces->document()->isEmpty() ? QString() : QStringLiteral("\n---\n");
    appendText(m_traces, separator + formatTrace(trace));
}

void GlossaryPage::showFailure(const QString &error)
{
    appendText(m_answer, QStringLiteral("\n错误：%1").arg(error));
    rest();
}

void GlossaryPage::stop()
{
    setRunning(false);
    if (m_executor)
        m_executor->cancel();
}

void GlossaryPage::rest()
{
    setRunning(m_executor && m_executor->isRunning());
}
