#include "support/exampletest.h"

#include <QLabel>
#include <QToolButton>

using namespace MireloQtLib::QtAgent;

class TestThinkingWindow : public PanelExampleTest
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void reasoningIsFoldedAway();
    void selectionStaysWhereTheUserMadeIt();
    void tokensAreCounted();
    void closingTheWindowEndsTheProgram();

private:
    template<typename Widget>
    Widget *child(const char *name) const
    {
        return m_panel->window()->findChild<Widget *>(name);
    }
};

void TestThinkingWindow::init()
{
    m_panel = shownWidget<AgentChatPanel>();
    QVERIFY(m_panel);
    QTest::mouseClick(button("agentChatClear"), Qt::LeftButton);
}

void TestThinkingWindow::reasoningIsFoldedAway()
{
    auto *fold = child<QToolButton>("thinkingFold");
    auto *thinking = child<QPlainTextEdit>("thinkingText");
    send("压差是 0.8 bar。");
    QTRY_VERIFY(isIdle());
    QVERIFY(!thinking->isVisible());
    QTest::mouseClick(fold, Qt::LeftButton);
    QVERIFY(thinking->isVisible());
    QCOMPARE(thinking->toPlainText(), "压差 0.8 bar 超过 0.5 bar 的上限。\n先确认过滤器，再看泵。");
    QVERIFY(!transcript().contains("上限"));
    const QByteArray picture = qgetenv("QTAGENT_TEST_PICTURE");
    if (!picture.isEmpty())
        QVERIFY(m_panel->window()->grab().save(QFile::decodeName(picture)));
    QTest::mouseClick(fold, Qt::LeftButton);
    QVERIFY(!thinking->isVisible());
}

void TestThinkingWindow::selectionStaysWhereTheUserMadeIt()
{
    auto *thinking = child<QPlainTextEdit>("thinkingText");
    const auto selectAll =
        connect(thinking, &QPlainTextEdit::textChanged, thinking, &QPlainTextEdit::selectAll);
    send("压差是 0.8 bar。");
    QTRY_VERIFY(isIdle());
    disconnect(selectAll);
    QCOMPARE(thinking->toPlainText(), "压差 0.8 bar 超过 0.5 bar 的上限。\n先确认过滤器，再看泵。");
}

void TestThinkingWindow::tokensAreCounted()
{
    send("Hi");
    QTRY_VERIFY(isIdle());
    QCOMPARE(child<QLabel>("tokenLine")->text(), "词元：输入 42，输出 128，其中思考 96");
}

void TestThinkingWindow::closingTheWindowEndsTheProgram()
{
    QVERIFY(m_panel->window()->close());
}

int main(int argc, char *argv[])
{
    return ExampleRun<TestThinkingWindow>::execute(argc, argv);
}

#include "tst_example_thinking_window.moc"
