#include "support/completions.h"
#include "support/heldmodel.h"
#include "support/loopbackserver.h"
#include "support/offlineconfiguration.h"

#include <demo/deviceagentpage.h>
#include <demo/devicetools.h>
#include <demo/orvanedemowindow.h>
#include <qtagent/agentexecutor.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QtTest>

#include <functional>

using namespace MireloQtLib::QtAgent;

namespace {

const char *const question = "查找异常设备并导出报告";
const char *const denial = "用户拒绝了审批。";
const char *const abnormalDevices = "异常设备：Pump-002, Valve-014, Motor-021";
const char *const alarmSummary = "告警摘要：Pump-002 (预警): 温度持续升高; Valve-014 (严重): 压力波动; "
                                 "Motor-021 (预警): 振动超过阈值";

// What a test does to the page.
class PageDriver
{
public:
    explicit PageDriver(QWidget *page)
        : m_page(page)
    {}

    void ask(const QString &text) const
    {
        child<QPlainTextEdit>("agentChatInput")->setPlainText(text);
        child<QPushButton>("agentChatSend")->click();
    }

    void stop() const { child<QPushButton>("agentChatStop")->click(); }

    bool isBusy() const
    {
        return !child<QPushButton>("agentChatSend")->isEnabled()
            && child<QPushButton>("agentChatStop")->isEnabled();
    }

    bool isIdle() const
    {
        return child<QPushButton>("agentChatSend")->isEnabled()
            && !child<QPushButton>("agentChatStop")->isEnabled();
    }

    QStringList transcript() const
    {
        return child<QTextBrowser>("agentChatHistory")->toPlainText().split('\n');
    }

    // "tool status" of every row.
    QStringList traces() const
    {
        const auto *view = child<ToolCallTraceView>("toolCallTraces");
        QStringList rows;
        for (int row = 0; row < view->rowCount(); ++row)
            rows.append(view->item(row, 0)->text() + " " + view->item(row, 1)->text());
        return rows;
    }

    QString traceOutput(int row) const
    {
        return child<ToolCallTraceView>("toolCallTraces")->item(row, 5)->text();
    }

    template<typename Widget>
    Widget *child(const char *name) const
    {
        return m_page->findChild<Widget *>(name);
    }

private:
    QWidget *m_page;
};

// Hands every approval dialog that shows to a function, once each.
class DialogAnswers
{
public:
    using Answer = std::function<void(ApprovalDialog *dialog)>;

    explicit DialogAnswers(const Answer &answer)
        : m_answer(answer)
    {
        QObject::connect(&m_poll, &QTimer::timeout, &m_poll, [this] { look(); });
        m_poll.start(1);
    }

    int count() const { return m_count; }

    static void allow(ApprovalDialog *dialog) { dialog->findChild<QPushButton *>("approvalAllow")->click(); }
    static void deny(ApprovalDialog *dialog) { dialog->findChild<QPushButton *>("approvalDeny")->click(); }

private:
    void look()
    {
        auto *dialog = qobject_cast<ApprovalDialog *>(QApplication::activeModalWidget());
        if (!dialog || dialog == m_last)
            return;
        m_last = dialog;
        ++m_count;
        // Not from the timer's own slot: it must go on while the answer waits for another dialog.
        QTimer::singleShot(0, dialog, [this, dialog] { m_answer(dialog); });
    }

    Answer m_answer;
    QTimer m_poll;
    QPointer<ApprovalDialog> m_last;
    int m_count = 0;
};

// The page in a window of its own, with a model that a test scripts.
struct ScriptedPage
{
    ScriptedPage()
    {
        registerDeviceTools(&registry, demoDevices());
        executor->setToolRegistry(&registry);
        executor->setModel(&model);
        window->setLayout(new QVBoxLayout);
        window->layout()->addWidget(page);
        window->show();
    }

    ~ScriptedPage() { delete window; }

    void addExport(const QString &id, const QString &fileName)
    {
        model.addToolCalls({makeToolCall(id, "export_report", {{"fileName", fileName}})});
    }

    HeldModel model;
    ToolRegistry registry;
    QPointer<QWidget> window{new QWidget};
    QPointer<AgentExecutor> executor{new AgentExecutor(window)};
    QPointer<DeviceAgentPage> page{new DeviceAgentPage(demoDevices(), executor)};
    PageDriver driver{page};
};

// The page in the demo's window.
struct Demo
{
    QScopedPointer<OrvaneDemoWindow> window{new OrvaneDemoWindow};
    PageDriver driver{window->findChild<DeviceAgentPage *>()};
};

// Lets everything happen that is posted by now or follows from it.
void drainEvents()
{
    for (int turn = 0; turn < 20; ++turn)
        QCoreApplication::processEvents();
}

QJsonObject toolJson(const QString &name, const QString &description, const QJsonObject &properties = {},
                     const QJsonArray &required = {})
{
    QJsonObject parameters{{"type", "object"}, {"properties", properties}};
    if (!required.isEmpty())
        parameters.insert("required", required);
    const QJsonObject function{{"name", name}, {"description", description}, {"parameters", parameters}};
    return {{"type", "function"}, {"function", function}};
}

QJsonArray toolsJson()
{
    const QJsonObject deviceId{{"type", "string"}, {"description", "设备 id，例如 Pump-001"}};
    const QJsonObject fileName{{"type", "string"}, {"description", "输出文件名"}};
    return {
        toolJson("query_device_status", "按 deviceId 查询单个演示设备状态。", {{"deviceId", deviceId}},
                 {"deviceId"}),
        toolJson("find_abnormal_devices", "查找预警或严重状态的演示设备。"),
        toolJson("generate_alarm_summary", "为异常设备生成简要告警摘要。"),
        toolJson("export_report", "将演示报告导出到系统临时目录。", {{"fileName", fileName}}),
        toolJson("query_all_device", "查询所有的设备。"),
    };
}

QJsonObject requestJson(const QJsonArray &messages)
{
    return {{"model", "test-model"}, {"messages", messages}, {"temperature", 0.2},   {"max_tokens", 512},
            {"stream", false},       {"tools", toolsJson()}, {"tool_choice", "auto"}};
}

QJsonObject toolMessage(const QString &id, const QString &name, const QString &content)
{
    return {{"role", "tool"}, {"tool_call_id", id}, {"name", name}, {"content", content}};
}

QJsonObject assistantMessage(const QString &content, const QJsonArray &calls)
{
    return {{"role", "assistant"}, {"content", content}, {"tool_calls", calls}};
}

ModelConfig serverProfile(const LoopbackServer &server)
{
    ModelConfig config;
    config.provider = "openai";
    config.baseUrl = server.baseUrl();
    config.model = "test-model";
    config.maxTokens = 512;
    return config;
}

} // namespace

class TestDeviceAgentPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void pageHasItsParts();
    void tableShowsTheDevices();
    void offlineRunFindsDevicesAndExportsTheReport();
    void denialLeavesThePanelReadyForTheNextQuestion();
    void denialOfOneCallDropsTheOthers();
    void dialogIsAboveThePagesWindow();
    void closingTheDialogDenies();
    void stopEndsTheRun();
    void failureIsShownAsANote();
    void missingModelLeavesThePanelIdle();
    void argumentsAgainstTheSchemaDoNotEndTheRun();
    void stopWhileTheDialogIsOpenClosesItAndDropsItsAnswer();
    void newRunWhileTheDialogIsOpenAsksAnew();
    void newRunWhileTheDialogIsOpenKeepsThePanelBusy();
    void acceptedAnswerOfAnEndedRunIsDropped();
    void runThatTheTraceOfADenialStartsGoesOn();
    void windowMayBeDeletedWhileTheDialogIsOpen();
    void pageMayBeDeletedWhileTheDialogIsOpen();
    void executorMayBeDeletedWhileTheDialogIsOpen();
    void executorMayBeDeletedBetweenRuns();
    void demoWindowMayBeDeletedWhileTheDialogIsOpen();
    void runAgainstAServer();

private:
    QString path(const QString &name) const { return m_folder.filePath(name); }
    QStringList files() const { return m_folder.entryList(QDir::Files); }

    const QTemporaryDir m_root;
    const OfflineConfiguration m_configuration;
    int m_testNumber = 0;
    QDir m_folder; // for temporary files, a fresh one for every test
};

void TestDeviceAgentPage::initTestCase()
{
    QVERIFY(m_root.isValid());
}

void TestDeviceAgentPage::init()
{
    const QString folder = m_root.filePath(QString::number(++m_testNumber));
    QVERIFY(QDir().mkdir(folder));
    qputenv("TMPDIR", QFile::encodeName(folder));
    m_folder = QDir(folder);
}

void TestDeviceAgentPage::pageHasItsParts()
{
    const ScriptedPage scripted;
    const auto *layout = qobject_cast<QVBoxLayout *>(scripted.page->layout());
    QVERIFY(layout);
    QCOMPARE(layout->contentsMargins(), QMargins(14, 14, 14, 14));
    QCOMPARE(layout->spacing(), 10);
    QCOMPARE(layout->count(), 3);

    const auto *title = qobject_cast<QLabel *>(layout->itemAt(0)->widget());
    QVERIFY(title);
    QCOMPARE(title->text(), "设备监控分析");
    QCOMPARE(title->objectName(), "agentPageTitle");

    const auto *splitter = qobject_cast<QSplitter *>(layout->itemAt(1)->widget());
    QVERIFY(splitter);
    QCOMPARE(splitter->orientation(), Qt::Horizontal);
    QCOMPARE(splitter->widget(0)->objectName(), "deviceTable");
    QVERIFY(qobject_cast<AgentChatPanel *>(splitter->widget(1)));
    for (int index : {0, 1})
        QCOMPARE(splitter->widget(index)->sizePolicy().horizontalStretch(), 1);
    for (int index : {0, 1, 2})
        QCOMPARE(layout->stretch(index), index == 1 ? 1 : 0);

    const auto *traces = qobject_cast<ToolCallTraceView *>(layout->itemAt(2)->widget());
    QVERIFY(traces);
    QCOMPARE(traces->objectName(), "toolCallTraces");
    QCOMPARE(traces->minimumHeight(), 190);

    QVERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript(), QStringList({"系统", "可以尝试：查找异常设备并导出报告。"}));
}

void TestDeviceAgentPage::tableShowsTheDevices()
{
    const ScriptedPage scripted;
    const auto *table = scripted.driver.child<QTableWidget>("deviceTable");
    QVector<QStringList> rows{QStringList()};
    for (int column = 0; column < table->columnCount(); ++column)
        rows[0].append(table->horizontalHeaderItem(column)->text());
    for (int row = 0; row < table->rowCount(); ++row) {
        rows.append(QStringList());
        for (int column = 0; column < table->columnCount(); ++column)
            rows.last().append(table->item(row, column)->text());
    }
    QCOMPARE(rows, QVector<QStringList>({{"设备", "状态", "温度", "振动", "告警"},
                                         {"Pump-001 - 主冷却泵", "正常", "53.2", "0.18", ""},
                                         {"Pump-002 - 备用冷却泵", "预警", "74.5", "0.42", "温度持续升高"},
                                         {"Valve-014 - 蒸汽阀门", "严重", "88.1", "0.66", "压力波动"},
                                         {"Fan-008 - 排风机", "正常", "42.0", "0.12", ""},
                                         {"Motor-021 - 输送电机", "预警", "69.3", "0.39", "振动超过阈值"}}));
    QVERIFY(table->horizontalHeader()->stretchLastSection());
    QVERIFY(table->alternatingRowColors());
    QCOMPARE(table->editTriggers(), QAbstractItemView::EditTriggers(QAbstractItemView::NoEditTriggers));
}

void TestDeviceAgentPage::offlineRunFindsDevicesAndExportsTheReport()
{
    const Demo demo;
    const DialogAnswers answers(DialogAnswers::allow);
    demo.driver.ask(question);
    QVERIFY(demo.driver.isBusy());
    QTRY_VERIFY(demo.driver.isIdle());

    QCOMPARE(answers.count(), 1);
    QCOMPARE(demo.driver.traces(), QStringList({"find_abnormal_devices success",
                                                "generate_alarm_summary success", "export_report success"}));
    QCOMPARE(demo.driver.traceOutput(0), abnormalDevices);
    QCOMPARE(demo.driver.traceOutput(1), alarmSummary);
    QCOMPARE(demo.driver.traceOutput(2), "报告已导出到 " + path("orvane-demo-report.txt"));

    QCOMPARE(
        demo.driver.transcript(),
        QStringList({"系统", "可以尝试：查找异常设备并导出报告。", "用户", question, "智能体",
                     "工具调用已完成，结果如下：", QString("- find_abnormal_devices: ") + abnormalDevices,
                     QString("- generate_alarm_summary: ") + alarmSummary,
                     "- export_report: 报告已导出到 " + path("orvane-demo-report.txt") + " "}));

    QFile report(path("orvane-demo-report.txt"));
    QVERIFY(report.open(QIODevice::ReadOnly | QIODevice::Text));
    const QList<QByteArray> reportLines = report.readAll().split('\n');
    QCOMPARE(reportLines.size(), 8);
    QVERIFY(reportLines.at(0).startsWith("Qt-UI Orvane "));
    QCOMPARE(reportLines.at(1), QByteArray());
    QVERIFY(reportLines.at(2).startsWith("Pump-001, "));
    QVERIFY(reportLines.at(6).startsWith("Motor-021, "));
    QCOMPARE(reportLines.at(7), QByteArray());
}

void TestDeviceAgentPage::denialLeavesThePanelReadyForTheNextQuestion()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    scripted.model.addText({"下一个", "回答"});
    const DialogAnswers answers(DialogAnswers::deny);
    scripted.driver.ask("导出");
    QTRY_VERIFY(scripted.driver.isIdle());
    drainEvents();

    QCOMPARE(scripted.driver.traces(), QStringList("export_report denied"));
    QCOMPARE(scripted.driver.traceOutput(0), denial);
    QCOMPARE(scripted.model.calls().size(), 1);
    QCOMPARE(files(), QStringList());
    const QStringList before = scripted.driver.transcript();
    QCOMPARE(before.filter("审批"), QStringList());

    scripted.driver.ask("你好");
    QCOMPARE(scripted.driver.traces(), QStringList());
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript().filter("智能体").size(), 2);
    QCOMPARE(scripted.driver.transcript().last(), "下一个回答");
}

void TestDeviceAgentPage::denialOfOneCallDropsTheOthers()
{
    ScriptedPage scripted;
    scripted.model.addToolCalls({makeToolCall("c1", "find_abnormal_devices", {}),
                                 makeToolCall("c2", "export_report", {}),
                                 makeToolCall("c3", "query_all_device", {})});
    const DialogAnswers answers(DialogAnswers::deny);
    scripted.driver.ask(question);
    QTRY_VERIFY(scripted.driver.isIdle());
    drainEvents();
    QCOMPARE(scripted.driver.traces(),
             QStringList({"find_abnormal_devices success", "export_report denied"}));
    QCOMPARE(scripted.model.calls().size(), 1);
}

void TestDeviceAgentPage::dialogIsAboveThePagesWindow()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    QString name;
    const QWidget *parent = nullptr;
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        name = dialog->findChild<QLabel *>("approvalTool")->text();
        parent = dialog->parentWidget();
        dialog->reject();
    });
    scripted.driver.ask(question);
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(name, "允许调用工具：export_report");
    QCOMPARE(parent, scripted.window.data());
}

void TestDeviceAgentPage::closingTheDialogDenies()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    const DialogAnswers answers([](ApprovalDialog *dialog) { dialog->close(); });
    scripted.driver.ask(question);
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.traces(), QStringList("export_report denied"));
    QCOMPARE(files(), QStringList());
}

void TestDeviceAgentPage::stopEndsTheRun()
{
    ScriptedPage scripted;
    scripted.driver.ask("一");
    QVERIFY(scripted.driver.isBusy());
    scripted.driver.stop();
    QVERIFY(scripted.driver.isIdle());
    QVERIFY(scripted.model.lastCall().reply->isCanceled());

    scripted.model.addText({"二"});
    scripted.driver.ask("二");
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript().filter("智能体").size(), 2);
}

void TestDeviceAgentPage::failureIsShownAsANote()
{
    ScriptedPage scripted;
    scripted.model.addFailure("<b>no</b> network");
    scripted.model.addText({"好"});
    scripted.driver.ask("一");
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript().mid(scripted.driver.transcript().size() - 2),
             QStringList({"系统", "<b>no</b> network"}));

    scripted.driver.ask("二");
    QTRY_VERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript().filter("智能体").size(), 2);
}

void TestDeviceAgentPage::missingModelLeavesThePanelIdle()
{
    ScriptedPage scripted;
    scripted.executor->setModel(nullptr);
    scripted.driver.ask("一");
    QVERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.transcript().last(), "智能体模型尚未配置。");
}

void TestDeviceAgentPage::argumentsAgainstTheSchemaDoNotEndTheRun()
{
    ScriptedPage scripted;
    scripted.model.addToolCalls({makeToolCall("c1", "query_device_status", {{"deviceId", 7}}),
                                 makeToolCall("c2", "query_device_status", {}),
                                 makeToolCall("c3", "export_report", {{"fileName", ""}}),
                                 makeToolCall("c4", "export_report", {{"fileName", "none/r.txt"}})});
    scripted.model.addText({"完成"});
    const DialogAnswers answers(DialogAnswers::allow);
    scripted.driver.ask(question);
    QTRY_VERIFY(scripted.driver.isIdle());

    QCOMPARE(answers.count(), 2);
    QCOMPARE(scripted.driver.traces(),
             QStringList({"query_device_status failed", "query_device_status failed", "export_report failed",
                          "export_report failed"}));
    QCOMPARE(scripted.model.calls().size(), 2);
    QStringList results;
    for (const ChatMessage &message : scripted.model.lastCall().messages.mid(2))
        results.append(message.content);
    QCOMPARE(results, QStringList({"未找到设备：", "未找到设备：", "无法写入报告：" + m_folder.filePath(""),
                                   "无法写入报告：" + path("none/r.txt")}));
    QCOMPARE(scripted.driver.transcript().last(), "完成");
}

void TestDeviceAgentPage::stopWhileTheDialogIsOpenClosesItAndDropsItsAnswer()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    bool closed = false;
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        scripted.driver.stop();
        QTRY_VERIFY(!dialog->isVisible());
        closed = true;
    });
    scripted.driver.ask(question);
    QTRY_VERIFY(closed);
    drainEvents();
    QVERIFY(scripted.driver.isIdle());
    QCOMPARE(scripted.driver.traces(), QStringList());
    QCOMPARE(scripted.model.calls().size(), 1);
    QVERIFY(scripted.window->findChildren<ApprovalDialog *>().isEmpty());
}

void TestDeviceAgentPage::newRunWhileTheDialogIsOpenAsksAnew()
{
    ScriptedPage scripted;
    scripted.addExport("same", "first.txt");
    scripted.addExport("same", "second.txt");
    scripted.model.addText({"完成"});
    QPointer<ApprovalDialog> first;
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        if (first) {
            QVERIFY(!first->isVisible());
            DialogAnswers::allow(dialog);
            return;
        }
        first = dialog;
        scripted.driver.stop();
        scripted.driver.ask("二");
        QTRY_COMPARE(scripted.driver.traces(), QStringList("export_report success"));
        QVERIFY(first);
    });
    scripted.driver.ask("一");
    QTRY_COMPARE(answers.count(), 2);
    QTRY_VERIFY(scripted.driver.isIdle());
    drainEvents();

    QVERIFY(!first);
    QCOMPARE(files(), QStringList("second.txt"));
    QCOMPARE(scripted.driver.traces(), QStringList("export_report success"));
    QCOMPARE(scripted.model.calls().size(), 3);
    QCOMPARE(scripted.driver.transcript().last(), "完成");
}

void TestDeviceAgentPage::newRunWhileTheDialogIsOpenKeepsThePanelBusy()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    const DialogAnswers answers([&](ApprovalDialog *) {
        scripted.driver.stop();
        scripted.driver.ask("二"); // is left without an answer
    });
    scripted.driver.ask("一");
    QTRY_COMPARE(scripted.model.calls().size(), 2);
    QTRY_VERIFY(scripted.window->findChildren<ApprovalDialog *>().isEmpty());
    drainEvents();
    QVERIFY(scripted.driver.isBusy());
    QVERIFY(!scripted.model.lastCall().reply->isCanceled());
}

void TestDeviceAgentPage::acceptedAnswerOfAnEndedRunIsDropped()
{
    ScriptedPage scripted;
    scripted.addExport("same", "first.txt");
    scripted.addExport("same", "second.txt");
    QPointer<ApprovalDialog> first;
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        if (first) {
            DialogAnswers::deny(dialog);
            return;
        }
        first = dialog;
        dialog->accept(); // its exec() returns only behind that of the next dialog
        scripted.driver.stop();
        scripted.driver.ask("二");
        QTRY_COMPARE(scripted.driver.traces(), QStringList("export_report denied"));
    });
    scripted.driver.ask("一");
    QTRY_COMPARE(scripted.driver.traces(), QStringList("export_report denied"));
    drainEvents();
    QCOMPARE(files(), QStringList());
    QVERIFY(scripted.driver.isIdle());
}

void TestDeviceAgentPage::runThatTheTraceOfADenialStartsGoesOn()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    QObject::connect(scripted.executor, &AgentExecutor::traceAdded, scripted.page,
                     [&scripted] { scripted.driver.ask("二"); });
    const DialogAnswers answers(DialogAnswers::deny);
    scripted.driver.ask("一");
    QTRY_COMPARE(scripted.model.calls().size(), 2);
    drainEvents();
    QVERIFY(scripted.driver.isBusy());
}

void TestDeviceAgentPage::windowMayBeDeletedWhileTheDialogIsOpen()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    const DialogAnswers answers([&](ApprovalDialog *) { delete scripted.window; });
    scripted.driver.ask(question);
    QTRY_VERIFY(!scripted.window);
    drainEvents();
    QVERIFY(!scripted.page);
    QVERIFY(!scripted.executor);
    QCOMPARE(files(), QStringList());
    QCOMPARE(scripted.model.calls().size(), 1);
}

void TestDeviceAgentPage::pageMayBeDeletedWhileTheDialogIsOpen()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        delete scripted.page;
        DialogAnswers::allow(dialog);
    });
    scripted.driver.ask(question);
    QTRY_COMPARE(answers.count(), 1);
    drainEvents();
    QVERIFY(!scripted.page);
    QCOMPARE(files(), QStringList());
}

void TestDeviceAgentPage::executorMayBeDeletedWhileTheDialogIsOpen()
{
    ScriptedPage scripted;
    scripted.addExport("c1", "r.txt");
    const DialogAnswers answers([&](ApprovalDialog *dialog) {
        delete scripted.executor;
        DialogAnswers::allow(dialog);
    });
    scripted.driver.ask(question);
    QTRY_COMPARE(answers.count(), 1);
    drainEvents();
    scripted.driver.stop();
    QVERIFY(scripted.driver.isIdle());
    QCOMPARE(files(), QStringList());
}

void TestDeviceAgentPage::executorMayBeDeletedBetweenRuns()
{
    ScriptedPage scripted;
    delete scripted.executor;
    scripted.driver.ask(question);
    QVERIFY(scripted.driver.isIdle());
}

void TestDeviceAgentPage::demoWindowMayBeDeletedWhileTheDialogIsOpen()
{
    Demo demo;
    const DialogAnswers answers([&](ApprovalDialog *) { demo.window.reset(); });
    demo.driver.ask(question);
    QTRY_COMPARE(answers.count(), 1);
    drainEvents();
    QVERIFY(!demo.window);
    QCOMPARE(files(), QStringList());
}

void TestDeviceAgentPage::runAgainstAServer()
{
    const QJsonArray firstCalls{makeToolCall("c1", "find_abnormal_devices", {}),
                                makeToolCall("c2", "query_device_status", {{"deviceId", "pump-002"}})};
    const QJsonArray secondCalls{makeToolCall("c3", "export_report", {{"fileName", "server.txt"}})};
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json(completion("我先查询。", firstCalls)));
    server.enqueue(LoopbackAnswer::json(completion("", secondCalls)));
    server.enqueue(LoopbackAnswer::json(completion("报告已完成。")));

    const Demo demo;
    demo.window->findChild<ModelConfigWidget *>()->setProfiles({serverProfile(server)}, 0);
    const DialogAnswers answers(DialogAnswers::allow);
    demo.driver.ask(question);
    QTRY_VERIFY(demo.driver.isIdle());

    QCOMPARE(answers.count(), 1);
    QCOMPARE(files(), QStringList("server.txt"));
    QCOMPARE(demo.driver.traces(), QStringList({"find_abnormal_devices success", "query_device_status failed",
                                                "export_report success"}));
    QCOMPARE(demo.driver.transcript().last(), "我先查询。报告已完成。");

    QJsonArray messages{QJsonObject{{"role", "system"}, {"content", deviceSystemPrompt()}},
                        QJsonObject{{"role", "user"}, {"content", question}}};
    QCOMPARE(server.requests().size(), 3);
    QCOMPARE(server.requests().at(0).json, requestJson(messages));

    messages.append(assistantMessage("我先查询。", firstCalls));
    messages.append(toolMessage("c1", "find_abnormal_devices", abnormalDevices));
    messages.append(toolMessage("c2", "query_device_status", "未找到设备：pump-002"));
    QCOMPARE(server.requests().at(1).json, requestJson(messages));

    messages.append(assistantMessage("", secondCalls));
    messages.append(toolMessage("c3", "export_report", "报告已导出到 " + path("server.txt")));
    QCOMPARE(server.requests().at(2).json, requestJson(messages));
}

QTEST_MAIN(TestDeviceAgentPage)
#include "tst_deviceagentpage.moc"
