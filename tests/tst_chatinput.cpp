#include <assistant/chatinput.h>

#include <QLineEdit>
#include <QtTest>

class TestChatInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keysThatSend_data();
    void keysThatSend();
    void heldKeySendsOnce();
    void growsWithItsTextUpToALimit();
    void tabLeaves();
};

void TestChatInput::keysThatSend_data()
{
    QTest::addColumn<ChatInput::SendKey>("sendKey");
    QTest::addColumn<int>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<bool>("sends");
    const auto returns = ChatInput::SendKey::Return;
    const auto ctrlReturns = ChatInput::SendKey::CtrlReturn;
    const auto row = [](const char *name, ChatInput::SendKey sendKey, int key,
                        Qt::KeyboardModifiers modifiers,
                        bool sends) { QTest::newRow(name) << sendKey << key << modifiers << sends; };
    row("Return sends", returns, Qt::Key_Return, Qt::NoModifier, true);
    row("Shift+Return makes a line", returns, Qt::Key_Return, Qt::ShiftModifier, false);
    row("Ctrl+Return sends, too", returns, Qt::Key_Return, Qt::ControlModifier, true);
    row("Return makes a line", ctrlReturns, Qt::Key_Return, Qt::NoModifier, false);
    row("Ctrl+Return sends", ctrlReturns, Qt::Key_Return, Qt::ControlModifier, true);
    row("the keypad sends", ctrlReturns, Qt::Key_Enter, Qt::ControlModifier | Qt::KeypadModifier, true);
    row("the keypad makes a line", ctrlReturns, Qt::Key_Enter, Qt::KeypadModifier, false);
}

void TestChatInput::keysThatSend()
{
    QFETCH(ChatInput::SendKey, sendKey);
    QFETCH(int, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(bool, sends);
    ChatInput input;
    input.setSendKey(sendKey);
    input.setPlainText("valve");
    input.moveCursor(QTextCursor::End);
    QSignalSpy submitted(&input, &ChatInput::submitted);
    QTest::keyClick(&input, static_cast<Qt::Key>(key), modifiers);
    QCOMPARE(submitted.count(), sends ? 1 : 0);
    QCOMPARE(input.toPlainText(), sends ? "valve" : "valve\n");
}

void TestChatInput::heldKeySendsOnce()
{
    ChatInput input;
    QSignalSpy submitted(&input, &ChatInput::submitted);
    QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, Qt::ControlModifier, QString(), true);
    QCoreApplication::sendEvent(&input, &held);
    QCOMPARE(submitted.count(), 0);
}

void TestChatInput::growsWithItsTextUpToALimit()
{
    ChatInput input;
    const auto heightOf = [&input](int lines) {
        input.setPlainText(QString(lines - 1, '\n'));
        return input.sizeHint().height();
    };
    const int line = input.fontMetrics().lineSpacing();
    const int two = heightOf(2);
    QCOMPARE(heightOf(1), two);
    QCOMPARE(input.minimumSizeHint().height(), two);
    QCOMPARE(heightOf(3), two + line);
    QCOMPARE(heightOf(8), two + 6 * line);
    QCOMPARE(heightOf(100), two + 6 * line);
}

void TestChatInput::tabLeaves()
{
    QWidget window;
    ChatInput input(&window);
    QLineEdit next(&window);
    window.show();
    input.setFocus();
    QTest::keyClick(&input, Qt::Key_Tab);
    QCOMPARE(input.toPlainText(), QString());
    QCOMPARE(window.focusWidget(), &next);
}

QTEST_MAIN(TestChatInput)
#include "tst_chatinput.moc"
