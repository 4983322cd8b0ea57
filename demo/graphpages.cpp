#include "graphpages.h"

#include "demographs.h"
#include "pageform.h"
#include "pagelayout.h"
#include "pageoutput.h"
#include "stepstable.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QJsonDocument>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

namespace {

QPushButton *addRunButton(QVBoxLayout *layout, QWidget *page)
{
    QPushButton *button = addButton(layout, QStringLiteral("运行流程"), QStringLiteral("runButton"));
    pressByCtrlReturn(button, page);
    return button;
}

struct ParsedState
{
    QJsonObject state;
    QString error;
};

ParsedState parseState(const QString &text)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return {{}, parseError.errorString()};
    if (!document.isObject())
        return {{}, QStringLiteral("JSON root is not an object.")};
    return {document.object(), {}};
}

} // namespace

GraphResults::GraphResults(QWidget *parent)
    : QSplitter(Qt::Vertical, parent)
    , m_output(createOutput(QStringLiteral("输出")))
    , m_steps(new StepsTable)
{
    m_output->setObjectName(QStringLiteral("pageOutput"));
    showAsCode(m_output);
    m_steps->setObjectName(QStringLiteral("graphSteps"));
    addWidget(m_output);
    addWidget(m_steps);
}

GraphResults::~GraphResults() = default;

void GraphResults::showRun(const GraphRunResult &result)
{
    QString text;
    if (result.interrupted)
        text += QStringLiteral("在节点前中断：%1\n\n").arg(result.interruptedNode);
    if (!result.error.isEmpty())
        text += QStringLiteral("错误：%1\n\n").arg(result.error);
    m_output->setPlainText(text + indentedJson(result.state));
    m_steps->setSteps(result.steps);
}

void GraphResults::showError(const QString &error)
{
    m_output->setPlainText(error);
    m_steps->setSteps({});
}

StateGraphPage::StateGraphPage(const Content &content, QWidget *parent)
    : QWidget(parent)
    , m_createGraph(content.createGraph)
    , m_results(new GraphResults)
{
    auto *form = new QGroupBox(content.title);
    auto *layout = new QVBoxLayout(form);
    m_state = addInput(layout, QStringLiteral("初始状态"), indentedJson(content.initialState));
    m_state->setObjectName(QStringLiteral("graphState"));
    showAsCode(m_state);
    m_check = new QCheckBox(content.checkText);
    m_check->setObjectName(QStringLiteral("approvedCheck"));
    m_check->setHidden(content.checkText.isEmpty());
    layout->addWidget(m_check, 0);
    connect(addRunButton(layout, this), &QPushButton::clicked, this, &StateGraphPage::run);
    layOutPage(this, form, m_results);
}

StateGraphPage::~StateGraphPage() = default;

void StateGraphPage::run()
{
    const ParsedState parsed = parseState(m_state->toPlainText());
    if (parsed.error.isEmpty())
        m_results->showRun(m_createGraph(m_check).run(parsed.state));
    else
        m_results->showError(QStringLiteral("状态 JSON 无效：%1").arg(parsed.error));
}

QuestionGraphPage::QuestionGraphPage(const Content &content, QWidget *parent)
    : QWidget(parent)
{
    auto *form = new QGroupBox(content.title);
    auto *layout = new QVBoxLayout(form);
    QPlainTextEdit *input = addInput(layout, content.inputLabel, content.defaultInput);
    input->setObjectName(QStringLiteral("pageInput"));
    auto *results = new GraphResults;
    connect(addRunButton(layout, this), &QPushButton::clicked, results,
            [input, results, run = content.run] { results->showRun(run(input->toPlainText().trimmed())); });
    layOutPage(this, form, results);
}

QuestionGraphPage::~QuestionGraphPage() = default;

MemoryPage::MemoryPage(QWidget *parent)
    : QWidget(parent)
    , m_results(new GraphResults)
{
    layOutPage(this, createForm(), m_results);
}

MemoryPage::~MemoryPage() = default;

QWidget *MemoryPage::createForm()
{
    auto *form = new QGroupBox(QStringLiteral("记忆检查点"));
    auto *layout = new QVBoxLayout(form);
    m_threadId = new QLineEdit(QStringLiteral("demo-thread"));
    m_threadId->setObjectName(QStringLiteral("threadIdEdit"));
    m_message = new QLineEdit;
    m_message->setObjectName(QStringLiteral("messageEdit"));
    auto *fields = new QWidget;
    fields->setMinimumWidth(InputSize().width);
    auto *rows = new QFormLayout(fields);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addRow(QStringLiteral("线程 ID"), m_threadId);
    rows->addRow(QStringLiteral("消息"), m_message);
    layout->addWidget(fields);
    const QPushButton *first =
        addButton(layout, QStringLiteral("运行第一轮"), QStringLiteral("firstTurnButton"));
    connect(first, &QPushButton::clicked, this, [this] { run(QStringLiteral("请记住：项目名称是 TAVO。")); });
    const QPushButton *second =
        addButton(layout, QStringLiteral("运行第二轮"), QStringLiteral("secondTurnButton"));
    connect(second, &QPushButton::clicked, this, [this] { run(QStringLiteral("我的项目叫什么？")); });
    layout->addStretch(1);
    return form;
}

void MemoryPage::run(const QString &message)
{
    m_message->setText(message);
    m_message->home(false); // where it is too long, its beginning is shown
    const QJsonObject input{{QStringLiteral("input"), message}};
    m_results->showRun(memoryGraph().run(input, m_threadId->text(), &m_checkpoints));
}
