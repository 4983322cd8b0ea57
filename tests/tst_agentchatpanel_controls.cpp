#include "support/chatpaneltest.h"

#include <QBoxLayout>
#include <QLineEdit>

using namespace MireloQtLib::QtAgent;

namespace {

void press(QWidget *widget, Qt::Key key, Qt::KeyboardModifiers modifiers)
{
    QKeyEvent event(QEvent::KeyPress, key, modifiers, "\r");
    QCoreApplication::sendEvent(widget, &event);
}

} // namespace

class TestAgentChatPanelControls : public ChatPanelTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { createPanel(); }
    void cleanup() { m_panel.reset(); }

    void busySwapsSendAndStop();
    void sendEmitsTheTrimmedTextAndEmptiesTheInput();
    void blankInputIsNotSent();
    void controlReturnSends_data();
    void controlReturnSends();
    void controlReturnDoesNothingWhileBusy();
    void returnAloneMakesALine();
    void tabLeavesTheInput();
    void disabledButtonGivesTheFocusToTheInput_data();
    void disabledButtonGivesTheFocusToTheInput();
    void disabledButtonOfAnInactiveWindowGivesTheFocusToTheInput();
    void buttonHiddenByTheHostGivesTheFocusToTheInput();
    void hiddenPanelGivesTheFocusAway();
    void transcriptTakesTheFocusThatTheInputCannotTake();
    void clearTakesTheFocusByTheTabKeyAlone();
    void stopOnlyEmits();
    void clearEmptiesTheTranscriptBeforeItEmits();
    void clearKeepsAnAgentMessageOpen();
    void panelMayDieInItsSlots_data();
    void panelMayDieInItsSlots();

private:
    void activatePanel()
    {
        showPanel();
        m_panel->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
    }
};

void TestAgentChatPanelControls::busySwapsSendAndStop()
{
    m_input->setPlainText("draft");
    m_panel->setBusy(true);
    QVERIFY(!m_send->isEnabled());
    QVERIFY(m_stop->isEnabled());
    QVERIFY(m_clear->isEnabled());
    QVERIFY(m_input->isEnabled());
    QCOMPARE(m_input->toPlainText(), "draft");
    m_panel->setBusy(false);
    QVERIFY(m_send->isEnabled());
    QVERIFY(!m_stop->isEnabled());
}

void TestAgentChatPanelControls::sendEmitsTheTrimmedTextAndEmptiesTheInput()
{
    QStringList sent;
    QString inputMeanwhile = "not sent";
    connect(m_panel.get(), &AgentChatPanel::sendRequested, this, [&](const QString &text) {
        sent << text;
        inputMeanwhile = m_input->toPlainText();
    });
    m_input->setPlainText(" \n Hi\nthere \t");
    m_send->click();
    QCOMPARE(sent, QStringList{"Hi\nthere"});
    QCOMPARE(inputMeanwhile, "");
    QCOMPARE(plainText(), "");
}

void TestAgentChatPanelControls::blankInputIsNotSent()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("   ");
    m_send->click();
    QCOMPARE(sent.count(), 0);
    QCOMPARE(m_input->toPlainText(), "   ");
}

void TestAgentChatPanelControls::controlReturnSends_data()
{
    QTest::addColumn<Qt::Key>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::newRow("Return") << Qt::Key_Return << Qt::KeyboardModifiers(Qt::ControlModifier);
    QTest::newRow("Enter of the keypad")
        << Qt::Key_Enter << Qt::KeyboardModifiers(Qt::ControlModifier | Qt::KeypadModifier);
}

void TestAgentChatPanelControls::controlReturnSends()
{
    QFETCH(Qt::Key, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("Hi");
    press(m_input, key, modifiers);
    QCOMPARE(sent.count(), 1);
    QCOMPARE(sent.first().first().toString(), "Hi");
    QCOMPARE(m_input->toPlainText(), "");
}

void TestAgentChatPanelControls::controlReturnDoesNothingWhileBusy()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("Hi");
    m_panel->setBusy(true);
    press(m_input, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(sent.count(), 0);
    QCOMPARE(m_input->toPlainText(), "Hi");
}

void TestAgentChatPanelControls::returnAloneMakesALine()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    QTest::keyClicks(m_input, "a");
    press(m_input, Qt::Key_Return, Qt::NoModifier);
    QTest::keyClicks(m_input, "b");
    QCOMPARE(m_input->toPlainText(), "a\nb");
    QCOMPARE(sent.count(), 0);
}

void TestAgentChatPanelControls::tabLeavesTheInput()
{
    activatePanel();
    m_input->setFocus();
    QTest::keyClick(m_input, Qt::Key_Tab);
    QCOMPARE(m_input->toPlainText(), "");
    QVERIFY(m_clear->hasFocus());
    QTest::keyClick(m_clear, Qt::Key_Tab);
    QVERIFY(m_send->hasFocus());
}

void TestAgentChatPanelControls::disabledButtonGivesTheFocusToTheInput_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<bool>("byMouse");
    QTest::newRow("send clicked") << "agentChatSend" << true;
    QTest::newRow("send pressed by keyboard") << "agentChatSend" << false;
    QTest::newRow("stop clicked") << "agentChatStop" << true;
    QTest::newRow("stop pressed by keyboard") << "agentChatStop" << false;
}

void TestAgentChatPanelControls::disabledButtonGivesTheFocusToTheInput()
{
    QFETCH(QString, button);
    QFETCH(bool, byMouse);
    QSignalSpy cleared(m_panel.get(), &AgentChatPanel::clearRequested);
    connect(m_panel.get(), &AgentChatPanel::sendRequested, this, [this] { m_panel->setBusy(true); });
    connect(m_panel.get(), &AgentChatPanel::stopRequested, this, [this] { m_panel->setBusy(false); });
    activatePanel();
    m_input->setPlainText("Hi");
    m_panel->setBusy(button == "agentChatStop");

    auto *pressed = m_panel->findChild<QPushButton *>(button);
    if (byMouse) {
        QTest::mouseClick(pressed, Qt::LeftButton);
    } else {
        pressed->setFocus();
        QTest::keyClick(pressed, Qt::Key_Space);
    }
    QVERIFY(!pressed->isEnabled());
    QVERIFY(m_input->hasFocus());
    m_input->clear();
    QTest::keyClicks(QApplication::focusWidget(), " next");
    QCOMPARE(m_input->toPlainText(), " next");
    QCOMPARE(cleared.count(), 0);
}

void TestAgentChatPanelControls::disabledButtonOfAnInactiveWindowGivesTheFocusToTheInput()
{
    activatePanel();
    m_panel->setBusy(true);
    m_stop->setFocus();
    QWidget other;
    other.show();
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    m_panel->setBusy(false);
    QCOMPARE(m_panel->focusWidget(), m_input);
    QVERIFY(other.isActiveWindow());
}

void TestAgentChatPanelControls::buttonHiddenByTheHostGivesTheFocusToTheInput()
{
    activatePanel();
    m_send->setFocus();
    m_send->hide();
    QVERIFY(m_input->hasFocus());
}

void TestAgentChatPanelControls::hiddenPanelGivesTheFocusAway()
{
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    AgentChatPanel *panel = m_panel.release(); // the window's from now on
    layout->addWidget(panel);
    auto *other = new QLineEdit;
    layout->addWidget(other);
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    m_send->setFocus();
    panel->hide();
    QVERIFY(other->hasFocus());
}

void TestAgentChatPanelControls::transcriptTakesTheFocusThatTheInputCannotTake()
{
    activatePanel();
    m_input->setEnabled(false);
    m_send->setFocus();
    m_panel->setBusy(true);
    QVERIFY(m_history->hasFocus());

    m_stop->setFocus();
    m_history->hide();
    m_panel->setBusy(false);
    QVERIFY(!m_panel->focusWidget());
}

void TestAgentChatPanelControls::clearTakesTheFocusByTheTabKeyAlone()
{
    activatePanel();
    m_input->setFocus();
    m_history->setPlainText("text");
    QTest::mouseClick(m_clear, Qt::LeftButton);
    QCOMPARE(plainText(), "");
    QVERIFY(m_input->hasFocus());
    QTest::keyClick(m_input, Qt::Key_Tab);
    QVERIFY(m_clear->hasFocus());
}

void TestAgentChatPanelControls::stopOnlyEmits()
{
    QSignalSpy stopped(m_panel.get(), &AgentChatPanel::stopRequested);
    m_panel->appendAgentDelta("a");
    m_panel->setBusy(true);
    m_stop->click();
    QCOMPARE(stopped.count(), 1);
    QVERIFY(m_stop->isEnabled());
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\nab");
}

void TestAgentChatPanelControls::clearEmptiesTheTranscriptBeforeItEmits()
{
    QStringList transcripts;
    connect(m_panel.get(), &AgentChatPanel::clearRequested, this, [&] { transcripts << plainText(); });
    m_panel->appendUserMessage("q");
    m_panel->appendAgentDelta("a");
    m_clear->click();
    QCOMPARE(transcripts, QStringList{""});
    QCoreApplication::processEvents();
    QCOMPARE(plainText(), "");
}

void TestAgentChatPanelControls::clearKeepsAnAgentMessageOpen()
{
    m_panel->appendAgentDelta("a");
    m_clear->click();
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "b");
    QCOMPARE(formatOf(block(0)).foreground().style(), Qt::NoBrush);
    QCOMPARE(formatOf(block(0)).fontWeight(), int(QFont::Normal));
    m_panel->finishAgentMessage();
    m_clear->click();
    m_panel->appendAgentDelta("c");
    QCOMPARE(plainText(), "智能体\nc");
}

void TestAgentChatPanelControls::panelMayDieInItsSlots_data()
{
    QTest::addColumn<QString>("button");
    QTest::newRow("sendRequested") << "agentChatSend";
    QTest::newRow("stopRequested") << "agentChatStop";
    QTest::newRow("clearRequested") << "agentChatClear";
    QTest::newRow("sendRequested by keyboard") << "";
}

void TestAgentChatPanelControls::panelMayDieInItsSlots()
{
    QFETCH(QString, button);
    m_input->setPlainText("Hi");
    m_panel->appendAgentDelta("a");
    m_stop->setEnabled(true);
    const auto die = [this] { m_panel.reset(); };
    connect(m_panel.get(), &AgentChatPanel::sendRequested, this, die);
    connect(m_panel.get(), &AgentChatPanel::stopRequested, this, die);
    connect(m_panel.get(), &AgentChatPanel::clearRequested, this, die);
    if (button.isEmpty())
        press(m_input, Qt::Key_Return, Qt::ControlModifier);
    else
        m_panel->findChild<QPushButton *>(button)->click();
    QVERIFY(!m_panel);
    QCoreApplication::processEvents();
}

QTEST_MAIN(TestAgentChatPanelControls)
#include "tst_agentchatpanel_controls.moc"
