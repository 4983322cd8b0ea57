#include "support/exampletest.h"

#include <qtagent/mockchatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>

using namespace MireloQtLib::QtAgent;

class TestAgentApproval : public PanelExampleTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void deniedToolDoesNotRun();
    void allowedToolWritesTheReport();
    void failedToolIsReportedToTheModel();
    void stopEndsTheRun();
    void closingTheWindowEndsTheProgram();

private:
    QString reportPath() const { return m_folder.filePath("orvane-demo-report.txt"); }

    void answerDialog(const QString &answer);
    QStringList lastTrace() const;

    QTemporaryDir m_folder;
    ToolCallTraceView *m_traces = nullptr;
    QString m_question;
    QTimer m_answering;
};

// The dialog opens once the model has asked for the tool: a timer waits for it.
void TestAgentApproval::answerDialog(const QString &answer)
{
    m_question.clear();
    m_answering.disconnect();
    connect(&m_answering, &QTimer::timeout, this, [this, answer] {
        const auto *dialog = qobject_cast<ApprovalDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        m_answering.stop();
        m_question = dialog->findChild<QLabel *>("approvalTool")->text();
        QTest::mouseClick(dialog->findChild<QPushButton *>(answer), Qt::LeftButton);
    });
    m_answering.start();
}

// Tool, state, permission, input and output: what is the same in every run.
QStringList TestAgentApproval::lastTrace() const
{
    QStringList texts;
    for (const int column : {0, 1, 2, 4, 5})
        texts.append(m_traces->item(m_traces->rowCount() - 1, column)->text());
    return texts;
}

void TestAgentApproval::initTestCase()
{
    QVERIFY(m_folder.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_folder.path()));
}

void TestAgentApproval::init()
{
    m_panel = shownWidget<AgentChatPanel>();
    m_traces = shownWidget<ToolCallTraceView>();
    QVERIFY(m_panel);
    QVERIFY(m_traces);
    QCOMPARE(m_traces->window(), m_panel->window());
    m_traces->clearTraces();
    QTest::mouseClick(button("agentChatClear"), Qt::LeftButton);
}

void TestAgentApproval::deniedToolDoesNotRun()
{
    answerDialog("approvalDeny");
    send("Export the report");
    QVERIFY(!isIdle());
    QTRY_VERIFY(isIdle());
    QCOMPARE(m_question, "允许调用工具：export_report");
    QCOMPARE(m_traces->rowCount(), 1);
    QCOMPARE(lastTrace(), QStringList({"export_report", "denied", "FileSystem",
                                       R"({"fileName":"orvane-demo-report.txt"})", "用户拒绝了审批。"}));
    QCOMPARE(transcript(), "用户\nExport the report");
    QVERIFY(!QFile::exists(reportPath()));
}

void TestAgentApproval::allowedToolWritesTheReport()
{
    answerDialog("approvalAllow");
    send("Export the report");
    QTRY_VERIFY(isIdle());
    QCOMPARE(m_question, "允许调用工具：export_report");
    QCOMPARE(m_traces->rowCount(), 1);
    QCOMPARE(lastTrace(), QStringList({"export_report", "success", "FileSystem",
                                       R"({"fileName":"orvane-demo-report.txt"})", reportPath()}));
    QCOMPARE(transcript(),
             QString("用户\nExport the report\n智能体\n工具调用已完成，结果如下：\n- export_report: %1 ")
                 .arg(reportPath()));
    QFile report(reportPath());
    QVERIFY(report.open(QIODevice::ReadOnly));
    QCOMPARE(report.readAll(), QByteArray("All pumps run.\n"));
    QVERIFY(report.remove());
}

void TestAgentApproval::failedToolIsReportedToTheModel()
{
    QVERIFY(QDir().mkdir(reportPath()));
    answerDialog("approvalAllow");
    send("Export the report");
    QTRY_VERIFY(isIdle());
    QCOMPARE(lastTrace(),
             QStringList({"export_report", "failed", "FileSystem", R"({"fileName":"orvane-demo-report.txt"})",
                          "Filename refers to a directory"}));
    QCOMPARE(transcript(), "用户\nExport the report\n智能体\n工具调用已完成，结果如下：\n"
                           "- export_report: Filename refers to a directory ");
    QVERIFY(QDir().rmdir(reportPath()));
}

// By the time that another model's whole answer has arrived, a run that goes on has asked its question.
void TestAgentApproval::stopEndsTheRun()
{
    answerDialog("approvalDeny");
    send("Export the report");
    QTest::mouseClick(button("agentChatStop"), Qt::LeftButton);
    MockChatModel other;
    QSignalSpy otherAnswer(other.chat({}, {}, nullptr), &ChatReply::finished);
    QVERIFY(otherAnswer.wait());
    m_answering.stop();
    QCOMPARE(m_question, QString());
    QVERIFY(isIdle());
    send("What is a valve?");
    QTRY_VERIFY(isIdle());
    QCOMPARE(m_traces->rowCount(), 0);
    QCOMPARE(transcript(),
             "用户\nExport the report\n用户\nWhat is a valve?\n智能体\nOrvane "
             "模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。 ");
}

void TestAgentApproval::closingTheWindowEndsTheProgram()
{
    send("What is a valve?");
    QVERIFY(m_panel->window()->close());
}

int main(int argc, char *argv[])
{
    return ExampleRun<TestAgentApproval>::execute(argc, argv);
}

#include "tst_example_agent_approval.moc"
