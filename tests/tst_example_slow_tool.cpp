#include "support/exampletest.h"

#include <qtagent/widgets/toolcalltraceview.h>

#include <QLabel>
#include <QSplitter>

using namespace MireloQtLib::QtAgent;

class TestSlowTool : public PanelExampleTest
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void progressIsShownUntilTheResult();
    void stopEndsTheToolHalfWay();
    void closingTheWindowEndsTheProgram();

private:
    QString traceText(int column) const { return m_traces->item(m_traces->rowCount() - 1, column)->text(); }

    ToolCallTraceView *m_traces = nullptr;
    QLabel *m_progress = nullptr;
};

void TestSlowTool::init()
{
    m_panel = shownWidget<AgentChatPanel>();
    m_traces = shownWidget<ToolCallTraceView>();
    QVERIFY(m_panel && m_traces);
    m_progress = m_panel->window()->findChild<QLabel *>(QString(), Qt::FindDirectChildrenOnly);
    QVERIFY(m_progress);
    m_traces->clearTraces();
    QTest::mouseClick(button("agentChatClear"), Qt::LeftButton);
}

void TestSlowTool::progressIsShownUntilTheResult()
{
    send("Which device is abnormal?");
    QTRY_COMPARE(m_progress->text(), "1 of 20 devices");
    QCOMPARE(traceText(1), "running");
    QTRY_COMPARE(m_progress->text(), "19 of 20 devices");
    QTRY_VERIFY(isIdle());
    QCOMPARE(m_progress->text(), "");
    QCOMPARE(m_traces->rowCount(), 1);
    QCOMPARE(traceText(1), "success");
    QCOMPARE(traceText(5), "Pump-003 is too hot.");
    QVERIFY(transcript().contains("find_abnormal_devices: Pump-003 is too hot."));
}

void TestSlowTool::stopEndsTheToolHalfWay()
{
    send("Which device is abnormal?");
    QTRY_COMPARE(m_progress->text(), "2 of 20 devices");
    QTest::mouseClick(button("agentChatStop"), Qt::LeftButton);
    QVERIFY(isIdle());
    QCOMPARE(traceText(1), "canceled");
    QCOMPARE(m_progress->text(), "");
    // The mock model calls a tool once in a conversation.
    send("Which device is abnormal?");
    QTRY_VERIFY(isIdle());
    QVERIFY(transcript().endsWith("find_abnormal_devices: 已取消。 "));
}

void TestSlowTool::closingTheWindowEndsTheProgram()
{
    send("Which device is abnormal?");
    QTRY_COMPARE(m_progress->text(), "1 of 20 devices");
    QVERIFY(m_panel->window()->close());
}

int main(int argc, char *argv[])
{
    return ExampleRun<TestSlowTool>::execute(argc, argv);
}

#include "tst_example_slow_tool.moc"
