#include "support/exampletest.h"

#include <qtagent/widgets/agentchatpanel.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>

using namespace MireloQtLib::QtAgent;

class TestChatWindow : public PanelExampleTest
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void answerAppearsBelowTheQuestion();
    void stopLeavesTheWindowReadyForTheNextQuestion();
    void closingTheWindowEndsTheProgram();
};

namespace {

const QString answer(
    "Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。 ");

} // namespace

void TestChatWindow::init()
{
    m_panel = shownWidget<AgentChatPanel>();
    QVERIFY(m_panel);
    QTest::mouseClick(button("agentChatClear"), Qt::LeftButton);
}

void TestChatWindow::answerAppearsBelowTheQuestion()
{
    send("What is a valve?");
    QVERIFY(!isIdle());
    QTRY_VERIFY(isIdle());
    QCOMPARE(transcript(), "用户\nWhat is a valve?\n智能体\n" + answer);
}

void TestChatWindow::stopLeavesTheWindowReadyForTheNextQuestion()
{
    send("First");
    QTest::mouseClick(button("agentChatStop"), Qt::LeftButton);
    QVERIFY(isIdle());
    send("Second");
    QTRY_VERIFY(isIdle());
    QCOMPARE(transcript(), "用户\nFirst\n智能体\n\n用户\nSecond\n智能体\n" + answer);
}

void TestChatWindow::closingTheWindowEndsTheProgram()
{
    send("What is a valve?");
    QVERIFY(m_panel->close());
}

int main(int argc, char *argv[])
{
    return ExampleRun<TestChatWindow>::execute(argc, argv);
}

#include "tst_example_chat_window.moc"
