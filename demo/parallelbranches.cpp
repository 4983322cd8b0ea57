#include "parallelbranches.h"

#include "pageform.h"
#include "pagelayout.h"
#include "pageoutput.h"

#include <qtagent/chatmodel.h>

#include <QGroupBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

using namespace MireloQtLib::QtAgent;

// The bookkeeping of one run. Every handler of the run's replies holds it, so a late signal of a stopped
// or replaced run still finds its own.
struct ParallelRunState
{
    struct Branch
    {
        QString title;
        QString systemPrompt;
        QString instruction;
    };

    struct BranchRun
    {
        Branch branch;
        QPointer<ChatReply> reply;
        QString text;
        bool isDone = false;
    };

    bool isStopped = false;
    QVector<BranchRun> branches;
    QString input;
    QPointer<ChatReply> mergeReply;

    bool areBranchesDone() const
    {
        return std::all_of(branches.cbegin(), branches.cend(),
                           [](const BranchRun &run) { return run.isDone; });
    }

    QString mergeRequest() const
    {
        QStringList sections;
        for (const BranchRun &run : branches)
            sections.append(QStringLiteral("[%1]\n%2").arg(run.branch.title, run.text));
        return QStringLiteral("Original data:\n%1\n\nParallel branch outputs:\n%2")
            .arg(input, sections.join(QLatin1String("\n\n")));
    }

    // Slots of whoever listens to the replies may do anything, even delete the page.
    void stop()
    {
        isStopped = true;
        QVector<QPointer<ChatReply>> replies{mergeReply};
        for (const BranchRun &run : std::as_const(branches))
            replies.append(run.reply);
        for (const QPointer<ChatReply> &reply : std::as_const(replies)) {
            if (reply)
                reply->cancel();
        }
    }
};

namespace {

using Branch = ParallelRunState::Branch;
using BranchRun = ParallelRunState::BranchRun;

QVector<Branch> branchTable()
{
    return {
        {QStringLiteral("风险分析 AI"),
         QStringLiteral(
             "You are a risk analysis AI. Read the data and identify risk level, evidence, and immediate "
             "actions. Answer in Chinese."),
         QStringLiteral("请从风险分析角度处理这份数据。")},
        {QStringLiteral("产品体验 AI"),
         QStringLiteral("You are a product UX AI. Read the data and propose UI states, user guidance, and "
                        "interaction priorities. Answer in Chinese."),
         QStringLiteral("请从产品交互和用户体验角度处理这份数据。")},
        {QStringLiteral("工程执行 AI"),
         QStringLiteral(
             "You are an engineering AI. Read the data and propose implementation steps, diagnostics, "
             "and fallback handling. Answer in Chinese."),
         QStringLiteral("请从工程实现和排障角度处理这份数据。")},
    };
}

QString defaultInput()
{
    return QStringLiteral("{\n"
                          "  \"topic\": \"Orvane 设备巡检助手\",\n"
                          "  \"signals\": [\"设备 A 温度偏高\", \"设备 B 网络抖动\", \"设备 C 正常\"],\n"
                          "  \"goal\": \"判断风险、给出产品交互和工程处理建议\"\n"
                          "}");
}

} // namespace

ParallelBranchesPage::ParallelBranchesPage(const ModelProvider &model, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
{
    layOutPage(this, createForm(), createOutputs());
    setRunning(false);
}

ParallelBranchesPage::~ParallelBranchesPage() = default;

QWidget *ParallelBranchesPage::createForm()
{
    auto *form = new QGroupBox(QStringLiteral("多个 AI 并行处理"));
    auto *layout = new QVBoxLayout(form);
    m_input = addInput(layout, QStringLiteral("输入数据"), defaultInput());
    m_input->setObjectName(QStringLiteral("pageInput"));
    showAsCode(m_input);
    m_runButton = addButton(layout, QStringLiteral("并行运行"), QStringLiteral("runButton"));
    m_stopButton = addButton(layout, QStringLiteral("停止"), QStringLiteral("stopButton"));
    pressByCtrlReturn(m_runButton, this);
    connect(m_runButton, &QPushButton::clicked, this, &ParallelBranchesPage::start);
    connect(m_stopButton, &QPushButton::clicked, this, &ParallelBranchesPage::stop);
    return form;
}

QWidget *ParallelBranchesPage::createOutputs()
{
    const QString branchTitle = QStringLiteral("并行 AI 分支输出");
    const QString mergeTitle = QStringLiteral("汇总节点输出");
    auto *outputs = new QSplitter(Qt::Vertical);
    m_branchOutput = createOutput(branchTitle);
    m_branchOutput->setObjectName(QStringLiteral("branchOutput"));
    m_mergeOutput = createOutput(mergeTitle);
    m_mergeOutput->setObjectName(QStringLiteral("mergeOutput"));
    outputs->addWidget(createTitledArea(branchTitle, m_branchOutput));
    outputs->addWidget(createTitledArea(mergeTitle, m_mergeOutput));
    return outputs;
}

void ParallelBranchesPage::setRunning(bool running)
{
    switchRunAndStop(running, m_runButton, m_stopButton, m_input);
}

void ParallelBranchesPage::start()
{
    const QPointer<ParallelBranchesPage> self(this);
    if (const Run earlier = m_run)
        earlier->stop();
    if (!self)
        return;

    const Run run = std::make_shared<ParallelRunState>();
    m_run = run;
    run->input = m_input->toPlainText();
    for (const Branch &branch : branchTable())
        run->branches.append({branch, nullptr, QString(), false});
    setRunning(true);
    m_branchOutput->setPlainText(
        QStringLiteral("正在并行启动 %1 个 AI 分支...\n\n").arg(run->branches.size()));
    m_mergeOutput->clear();
    for (int index = 0; index < run->branches.size(); ++index)
        startBranch(run, index);
}

void ParallelBranchesPage::startBranch(const Run &run, int index)
{
    const Branch branch = run->branches.at(index).branch;
    const QString request = QStringLiteral("%1\n\nInput data:\n%2").arg(branch.instruction, run->input);
    ChatReply *reply =
        askModel(m_model, {ChatMessage::system(branch.systemPrompt), ChatMessage::user(request)}, this);
    run->branches[index].reply = reply;
    connect(reply, &ChatReply::finished, this,
            [this, run, index](const QString &text) { completeBranch(run, index, text); });
    connect(reply, &ChatReply::failed, this, [this, run, index](const QString &error) {
        completeBranch(run, index, QStringLiteral("分支失败：%1").arg(error));
    });
    deleteWhenOver(reply);
}

void ParallelBranchesPage::completeBranch(const Run &run, int index, const QString &text)
{
    if (!isCurrent(run))
        return;
    BranchRun &branchRun = run->branches[index];
    branchRun.text = text;
    branchRun.isDone = true;
    appendText(m_branchOutput, QStringLiteral("[%1]\n%2\n").arg(branchRun.branch.title, text));
    if (run->areBranchesDone())
        startMerge(run);
}

void ParallelBranchesPage::startMerge(const Run &run)
{
    m_mergeOutput->setPlainText(QStringLiteral("汇总节点正在合并分支结果...\n\n"));
    const QString systemPrompt = QStringLiteral(
        "You are the merge node in an Orvane parallel workflow. Merge multiple AI branch outputs into one "
        "concise "
        "Chinese decision report. Keep conflicts visible, then provide a final recommendation.");
    ChatReply *reply =
        askModel(m_model, {ChatMessage::system(systemPrompt), ChatMessage::user(run->mergeRequest())}, this);
    run->mergeReply = reply;
    connect(reply, &ChatReply::deltaReceived, this, [this, run](const QString &delta) {
        if (isCurrent(run))
            appendText(m_mergeOutput, delta);
    });
    connect(reply, &ChatReply::finished, this, [this, run] {
        if (isCurrent(run))
            setRunning(false);
    });
    connect(reply, &ChatReply::failed, this, [this, run](const QString &error) { failMerge(run, error); });
    deleteWhenOver(reply);
}

void ParallelBranchesPage::failMerge(const Run &run, const QString &error)
{
    if (!isCurrent(run))
        return;
    appendText(m_mergeOutput, QStringLiteral("\n汇总节点错误：%1").arg(error));
    setRunning(false);
}

void ParallelBranchesPage::stop()
{
    const Run run = m_run;
    if (!run || run->isStopped)
        return;
    const QPointer<ParallelBranchesPage> self(this);
    run->stop();
    if (!self || m_run != run)
        return;
    appendText(run->areBranchesDone() ? m_mergeOutput : m_branchOutput, QStringLiteral("\n已停止。"));
    setRunning(false);
}

bool ParallelBranchesPage::isCurrent(const Run &run) const
{
    return run == m_run && !run->isStopped;
}
