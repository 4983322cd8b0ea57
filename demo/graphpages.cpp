#include "graphpages.h"

#include "demographs.h"
#include "pageparts.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QJsonDocument>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int outputColumn = 2;

QTableWidget *createStepsTable()
{
    auto *table = new QTableWidget(0, 4);
    table->setObjectName(QStringLiteral("graphSteps"));
    table->setAccessibleName(QStringLiteral("步骤"));
    table->setHorizontalHeaderLabels(
        {QStringLiteral("节点"), QStringLiteral("路由"), QStringLiteral("输出"), QStringLiteral("状态")});
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setSectionResizeMode(outputColumn, QHeaderView::Stretch);
    table->horizontalHeader()->setStretchLastSection(true);
    table->setAlternatingRowColors(true);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setTabKeyNavigation(false);
    return table;
}

QPushButton *addRunButton(QVBoxLayout *layout)
{
    return addButton(layout, QStringLiteral("运行流程"), QStringLiteral("runButton"));
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

GraphRunPage::GraphRunPage(const QString &title, QWidget *parent)
    : QWidget(parent)
{
    auto *formBox = new QGroupBox(title);
    m_form = new QVBoxLayout(formBox);

    m_output = createOutput(QStringLiteral("输出"));
    m_output->setObjectName(QStringLiteral("pageOutput"));
    m_steps = createStepsTable();
    auto *results = new QSplitter(Qt::Vertical);
    results->addWidget(m_output);
    results->addWidget(m_steps);

    layOutPage(this, formBox, results);
}

GraphRunPage::~GraphRunPage() = default;

QVBoxLayout *GraphRunPage::form() const
{
    return m_form;
}

void GraphRunPage::showResult(const GraphRunResult &result)
{
    QString text;
    if (result.interrupted)
        text += QStringLiteral("在节点前中断：%1\n\n").arg(result.interruptedNode);
    if (!result.error.isEmpty())
        text += QStringLiteral("错误：%1\n\n").arg(result.error);
    m_output->setPlainText(text + indentedJson(result.state));
    showSteps(result.steps);
}

void GraphRunPage::showError(const QString &error)
{
    m_output->setPlainText(error);
    showSteps({});
}

void GraphRunPage::showSteps(const QVector<GraphStep> &steps)
{
    m_steps->setRowCount(0);
    m_steps->setRowCount(int(steps.size()));
    for (int row = 0; row < steps.size(); ++row) {
        const GraphStep &step = steps.at(row);
        const QStringList texts{step.node, step.route, indentedJson(step.update).simplified(),
                                indentedJson(step.after).simplified()};
        for (int column = 0; column < texts.size(); ++column)
            m_steps->setItem(row, column, new QTableWidgetItem(texts.at(column)));
    }
}

StateGraphPage::StateGraphPage(const Content &content, QWidget *parent)
    : GraphRunPage(content.title, parent)
    , m_createGraph(content.createGraph)
{
    m_state = addInput(form(), QStringLiteral("初始状态"), indentedJson(content.initialState));
    m_state->setObjectName(QStringLiteral("graphState"));
    m_check = new QCheckBox(content.checkText);
    m_check->setObjectName(QStringLiteral("approvedCheck"));
    m_check->setHidden(content.checkText.isEmpty());
    form()->addWidget(m_check, 0);
    connect(addRunButton(form()), &QPushButton::clicked, this, &StateGraphPage::run);
}

StateGraphPage::~StateGraphPage() = default;

void StateGraphPage::run()
{
    const ParsedState parsed = parseState(m_state->toPlainText());
    if (parsed.error.isEmpty())
        showResult(m_createGraph(m_check).run(parsed.state));
    else
        showError(QStringLiteral("状态 JSON 无效：%1").arg(parsed.error));
}

QuestionGraphPage::QuestionGraphPage(const Content &content, QWidget *parent)
    : GraphRunPage(content.title, parent)
{
    QPlainTextEdit *input = addInput(form(), content.inputLabel, content.defaultInput);
    input->setObjectName(QStringLiteral("pageInput"));
    connect(addRunButton(form()), &QPushButton::clicked, this,
            [this, input, run = content.run] { showResult(run(input->toPlainText().trimmed())); });
}

QuestionGraphPage::~QuestionGraphPage() = default;

MemoryPage::MemoryPage(QWidget *parent)
    : GraphRunPage(QStringLiteral("记忆检查点"), parent)
{
    m_threadId = new QLineEdit(QStringLiteral("demo-thread"));
    m_threadId->setObjectName(QStringLiteral("threadIdEdit"));
    m_message = new QLineEdit;
    m_message->setObjectName(QStringLiteral("messageEdit"));
    auto *fields = new QFormLayout;
    fields->addRow(QStringLiteral("线程 ID"), m_threadId);
    fields->addRow(QStringLiteral("消息"), m_message);
    form()->addLayout(fields);
    addTurn(QStringLiteral("运行第一轮"), QStringLiteral("firstTurnButton"),
            QStringLiteral("请记住：项目名称是 TAVO。"));
    addTurn(QStringLiteral("运行第二轮"), QStringLiteral("secondTurnButton"),
            QStringLiteral("我的项目叫什么？"));
    form()->addStretch(1);
}

MemoryPage::~MemoryPage() = default;

void MemoryPage::addTurn(const QString &buttonText, const QString &buttonName, const QString &message)
{
    connect(addButton(form(), buttonText, buttonName), &QPushButton::clicked, this,
            [this, message] { run(message); });
}

void MemoryPage::run(const QString &message)
{
    m_message->setText(message);
    const QJsonObject input{{QStringLiteral("input"), message}};
    showResult(memoryGraph().run(input, m_threadId->text(), &m_checkpoints));
}
