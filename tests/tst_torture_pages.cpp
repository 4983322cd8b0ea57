#include "support/heldmodel.h"
#include "support/offlineconfiguration.h"
#include "support/torture.h"

#include <demo/deviceagentpage.h>
#include <demo/devicetools.h>
#include <demo/modelpages.h>
#include <demo/orvanedemowindow.h>
#include <demo/workflowpages.h>
#include <qtagent/agentexecutor.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>

#include <QApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// What is done to which page.
struct PagePlot
{
    QString title;
    bool isInDemoWindow = false; // with the mock model, which takes its time
    bool isStopped = false;      // the user presses stop in the turn after the start
    bool isAllowed = true;       // the answer to an approval dialog
};

// A page that is run by its buttons, and the user who answers its approval dialog.
class PageStage : public TortureStage
{
    Q_OBJECT

public:
    explicit PageStage(const PagePlot &plot)
        : m_plot(plot)
    {
        if (plot.isInDemoWindow)
            openDemoWindow();
        else if (plot.title == "数据分析")
            openDevicePage();
        else
            openGroup();
        m_window->show();
        watchParts();
        addVictims();
        addActions();
    }

    ~PageStage() override
    {
        delete m_window;
        delete m_scriptedModel;
    }

Q_SIGNALS:
    void dialogShown();

protected:
    void start() override
    {
        ++m_runs;
        if (m_scriptedModel)
            script();
        if (m_plot.isStopped && m_runs == 1)
            QTimer::singleShot(0, this, [this] { press("stop"); });
        if (auto *input = part<QPlainTextEdit>("agentChatInput"))
            asClick([input] { input->setPlainText("查找异常设备并导出报告"); });
        press("run");
    }

    void turnEvents() override
    {
        constexpr int oneMockPieceMs = 60;
        turnEventsFor(m_plot.isInDemoWindow ? oneMockPieceMs : 0);
    }

    void inspect() override
    {
        if (count("AgentExecutor::assistantFinished") + count("AgentExecutor::failed") > m_runs)
            reportFault("more than one outcome");
        const QStringList late =
            signalsAfterAction().filter(QRegularExpression("^(ChatReply|AgentExecutor)"));
        if (action() == "delete window" && !isDeletionDeferred() && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        const bool mayWait = action().contains(QRegularExpression("delete (reply|model|executor)|replies"));
        if (!isIdle() && !mayWait)
            reportFault("the page does not come to rest");
        press("stop");
        waitUntilQuiet();
        if (!isIdle())
            reportFault("the page does not come to rest after stop");
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *dialog = qobject_cast<ApprovalDialog *>(watched);
        if (dialog && event->type() == QEvent::Show)
            QTimer::singleShot(0, dialog, [this, dialog] { answer(dialog); });
        return TortureStage::eventFilter(watched, event);
    }

private:
    template<typename Widget>
    Widget *part(const QString &name) const
    {
        return m_page ? m_page->findChild<Widget *>(name) : nullptr;
    }

    // "run" or "stop", whatever the page calls it.
    QPushButton *button(const QString &role) const
    {
        const QStringList names = role == "run" ? QStringList{"runButton", "firstTurnButton", "agentChatSend"}
                                                : QStringList{"stopButton", "agentChatStop"};
        for (const QString &name : names) {
            if (auto *found = part<QPushButton>(name))
                return found;
        }
        return nullptr;
    }

    void press(const QString &role)
    {
        if (QPushButton *pressed = button(role))
            asClick([pressed] { pressed->click(); });
    }

    bool isIdle() const
    {
        const QPushButton *run = button("run");
        const QPushButton *stop = button("stop");
        return (!run || run->isEnabled()) && (!stop || !stop->isEnabled());
    }

    void answer(ApprovalDialog *dialog)
    {
        const QPointer<ApprovalDialog> guard(dialog);
        watch(dialog, {"finished", "accepted", "rejected"});
        Q_EMIT dialogShown();
        const QString name = m_plot.isAllowed ? "approvalAllow" : "approvalDeny";
        if (guard)
            asClick([dialog, name] { dialog->findChild<QPushButton *>(name)->click(); });
    }

    void script()
    {
        m_scriptedModel->clearAnswers();
        if (m_plot.title == "数据分析")
            m_scriptedModel->addAnswer(
                HeldModel::inOneGo({""}, {makeToolCall("c1", "find_abnormal_devices", {}),
                                          makeToolCall("c2", "export_report", {{"fileName", "r.txt"}})}));
        if (m_plot.title == "工具调用")
            m_scriptedModel->addAnswer(
                HeldModel::inOneGo({""}, {makeToolCall("c1", "lookup_term", {{"term", "RAG"}})}));
        constexpr int mostRequests = 8; // three branches and their merge, where a click starts two runs
        for (int i = 0; i < mostRequests; ++i)
            m_scriptedModel->addAnswer(HeldModel::inOneGo({"one ", "two"}));
    }

    void useScriptedModel()
    {
        m_scriptedModel = new HeldModel;
        m_scriptedModel->onReply = [this](ChatReply *reply) { watch(reply); };
        m_model = m_scriptedModel;
        m_window = new QWidget;
        new QVBoxLayout(m_window);
        m_registry = new ToolRegistry(m_window);
    }

    void openDevicePage()
    {
        useScriptedModel();
        registerDeviceTools(m_registry, demoDevices());
        auto *executor = new AgentExecutor(m_window);
        executor->setToolRegistry(m_registry);
        executor->setModel(m_model);
        m_page = new DeviceAgentPage(demoDevices(), executor);
        m_window->layout()->addWidget(m_page);
    }

    void openGroup()
    {
        useScriptedModel();
        auto *tree = new QTreeWidget(m_window);
        auto *stack = new QStackedWidget(m_window);
        m_window->layout()->addWidget(stack);
        const auto model = [this]() -> ChatModel * { return m_model; };
        const auto registry = [this] { return m_registry.data(); };
        addModelPages(new QTreeWidgetItem(tree), stack, model, registry);
        addWorkflowPages(new QTreeWidgetItem(tree), stack, model, registry);
        showPage(tree, stack);
    }

    void openDemoWindow()
    {
        m_window = new OrvaneDemoWindow;
        m_model = m_window->findChild<MockChatModel *>();
        m_registry = m_window->findChild<ToolRegistry *>();
        showPage(m_window->findChild<QTreeWidget *>("navigationTree"),
                 m_window->findChild<QStackedWidget *>("pageStack"));
    }

    void showPage(const QTreeWidget *tree, QStackedWidget *stack)
    {
        const auto entries = tree->findItems(m_plot.title, Qt::MatchExactly | Qt::MatchRecursive);
        m_page = stack->widget(entries.first()->data(0, Qt::UserRole).toInt());
        stack->setCurrentWidget(m_page);
    }

    void watchParts()
    {
        for (QPushButton *const pushButton : m_page->findChildren<QPushButton *>())
            watch(pushButton, {"pressed", "released", "clicked"});
        for (QPlainTextEdit *const editor : m_page->findChildren<QPlainTextEdit *>())
            watch(editor, {"textChanged"});
        for (QTextBrowser *const browser : m_page->findChildren<QTextBrowser *>())
            watch(browser, {"textChanged"});
        for (AgentChatPanel *const panel : m_page->findChildren<AgentChatPanel *>())
            watch(panel, {"sendRequested", "stopRequested"});
        for (AgentExecutor *const executor : m_window->findChildren<AgentExecutor *>())
            watch(executor);
        watch(this, {"dialogShown"});
        watchNewObjects();
    }

    void addVictims()
    {
        addVictim("window", [this] { return m_window.data(); });
        addVictim("page", [this] { return m_page.data(); });
        addVictim("model", [this] { return m_model.data(); });
        addVictim("registry", [this] { return m_registry.data(); });
        addVictim("tool", [this]() -> QObject * {
            return m_registry ? m_registry->tool(m_plot.title == "数据分析" ? "export_report" : "lookup_term")
                              : nullptr;
        });
        addVictim("executor", [this] { return m_window ? m_window->findChild<AgentExecutor *>() : nullptr; });
        addVictim("reply", [this] { return m_window ? m_window->findChild<ChatReply *>() : nullptr; });
        addVictim("dialog", [] { return qobject_cast<ApprovalDialog *>(QApplication::activeModalWidget()); });
    }

    void addActions()
    {
        addAction("run again", [this] {
            press("stop");
            start();
        });
        if (button("stop"))
            addAction("press stop", [this] { press("stop"); });
        addAction("cancel the replies", [this] {
            QVector<QPointer<ChatReply>> replies;
            for (ChatReply *reply : m_window->findChildren<ChatReply *>())
                replies.append(reply);
            for (const QPointer<ChatReply> &reply : std::as_const(replies)) {
                if (reply)
                    reply->cancel();
            }
        });
    }

    const PagePlot m_plot;
    int m_runs = 0;
    QPointer<HeldModel> m_scriptedModel;
    QPointer<ChatModel> m_model;
    QPointer<ToolRegistry> m_registry;
    QPointer<QWidget> m_window;
    QPointer<QWidget> m_page;
};

QMap<QString, PagePlot> pagePlots()
{
    QMap<QString, PagePlot> plots;
    for (const char *title : {"可运行链", "简单 RAG", "模型节点", "状态流程", "循环直到完成", "人工审核",
                              "工具节点", "记忆检查点", "智能体流程", "并行分支", "工具调用", "数据分析"})
        plots.insert(title, {title, false, false, true});
    for (const char *title : {"并行分支", "工具调用", "数据分析"})
        plots.insert(QString("%1, stopped").arg(title), {title, false, true, true});
    plots.insert("数据分析, denied", {"数据分析", false, false, false});
    for (const char *title : {"基础对话", "数据分析"})
        plots.insert(QString("demo window, %1").arg(title), {title, true, false, true});
    plots.insert("demo window, 基础对话, stopped", {"基础对话", true, true, true});
    return plots;
}

} // namespace

// Whatever a slot does in whatever signal of a page, nothing breaks and the page comes to rest.
class TestTorturePages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void slotsMayDoAnything_data();
    void slotsMayDoAnything();

private:
    const OfflineConfiguration m_configuration;
    const QTemporaryDir m_temporaryFiles;
    const QMap<QString, PagePlot> m_plots = pagePlots();
    int m_combinations = 0;
};

void TestTorturePages::initTestCase()
{
    QVERIFY(m_temporaryFiles.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_temporaryFiles.path()));
}

void TestTorturePages::cleanupTestCase()
{
    qInfo("%d combinations of an emission and an action in %d scenarios", m_combinations,
          int(m_plots.size()));
}

void TestTorturePages::slotsMayDoAnything_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<int>("emission");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QStringList>("signalNames");
    for (auto plot = m_plots.cbegin(); plot != m_plots.cend(); ++plot) {
        PageStage rehearsal(plot.value());
        rehearsal.play();
        QVERIFY2(!rehearsal.emissions().isEmpty(), qPrintable(plot.key()));
        QVERIFY2(rehearsal.fault().isEmpty(), qPrintable(plot.key() + rehearsal.fault()));
        // The mock model streams for more than a second: there only what cuts its answer short.
        const bool isLong = plot.value().isInDemoWindow && plot.value().title == "数据分析";
        const QString actions = isLong ? "^delete (window|page|executor)$|press stop" : "";
        const int perSignal = plot.value().isInDemoWindow ? 1 : 0;
        addTortureRows(plot.key(), rehearsal, perSignal, QRegularExpression(actions));
    }
}

void TestTorturePages::slotsMayDoAnything()
{
    QFETCH(QString, scenario);
    QFETCH(int, emission);
    QFETCH(QString, action);
    PageStage stage(m_plots.value(scenario));
    stage.play(emission, action);
    ++m_combinations;
    QCOMPARE(stage.fault(), QString());
}

QTEST_MAIN(TestTorturePages)
#include "tst_torture_pages.moc"
