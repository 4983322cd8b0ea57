#include "support/offlineconfiguration.h"

#include <demo/orvanedemowindow.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QtTest>

namespace {

// The active window with one of its pages in front. The mock model answers.
class ShownPage
{
public:
    explicit ShownPage(const QString &title)
    {
        m_window.show();
        if (!QTest::qWaitForWindowActive(&m_window))
            qFatal("The window does not become active.");
        auto *navigation = m_window.findChild<QTreeWidget *>("navigationTree");
        navigation->setCurrentItem(navigation->findItems(title, Qt::MatchExactly | Qt::MatchRecursive).at(0));
        m_page = m_window.findChild<QStackedWidget *>("pageStack")->currentWidget();
    }

    QWidget *page() const { return m_page; }
    QPushButton *button(const char *name) const { return m_page->findChild<QPushButton *>(name); }
    QPlainTextEdit *editor(const char *name) const { return m_page->findChild<QPlainTextEdit *>(name); }
    bool isRunning() const { return button("stopButton")->isEnabled(); }

private:
    const OfflineConfiguration m_configuration;
    OrvaneDemoWindow m_window;
    QWidget *m_page = nullptr;
};

enum class Press { Mouse, Blank };

void press(QPushButton *button, Press how)
{
    if (how == Press::Mouse) {
        QTest::mouseClick(button, Qt::LeftButton);
    } else {
        button->setFocus();
        QTest::keyClick(button, Qt::Key_Space);
    }
}

} // namespace

Q_DECLARE_METATYPE(Press)

// The demo's window as people use it who type.
class TestKeyboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void disabledButtonHandsTheFocusToTheInput_data();
    void disabledButtonHandsTheFocusToTheInput();
    void endOfARunHandsTheFocusToTheInput_data();
    void endOfARunHandsTheFocusToTheInput();
    void focusElsewhereStaysDuringARun();
};

void TestKeyboard::disabledButtonHandsTheFocusToTheInput_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<Press>("how");
    QTest::newRow("an agent, mouse") << "工具调用" << Press::Mouse;
    QTest::newRow("an agent, blank") << "工具调用" << Press::Blank;
    QTest::newRow("branches, mouse") << "并行分支" << Press::Mouse;
    QTest::newRow("branches, blank") << "并行分支" << Press::Blank;
}

void TestKeyboard::disabledButtonHandsTheFocusToTheInput()
{
    QFETCH(QString, title);
    QFETCH(Press, how);
    const ShownPage shown(title);
    QPlainTextEdit *input = shown.editor("pageInput");
    input->setPlainText("question");

    press(shown.button("runButton"), how);
    QVERIFY(shown.isRunning());
    QVERIFY(input->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QVERIFY(shown.isRunning());

    press(shown.button("stopButton"), how);
    QVERIFY(!shown.isRunning());
    QVERIFY(input->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QVERIFY(!shown.isRunning());
    QCOMPARE(input->toPlainText(), "  question");
}

void TestKeyboard::endOfARunHandsTheFocusToTheInput_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("an agent") << "工具调用";
    QTest::newRow("branches") << "并行分支";
}

void TestKeyboard::endOfARunHandsTheFocusToTheInput()
{
    QFETCH(QString, title);
    const ShownPage shown(title);
    shown.button("runButton")->click();
    shown.button("stopButton")->setFocus();

    QTRY_VERIFY(!shown.isRunning());

    QVERIFY(shown.editor("pageInput")->hasFocus());
}

void TestKeyboard::focusElsewhereStaysDuringARun()
{
    const ShownPage shown("工具调用");
    shown.editor("traceOutput")->setFocus();

    shown.button("runButton")->click();
    QVERIFY(shown.isRunning());
    QVERIFY(shown.editor("traceOutput")->hasFocus());
    QTRY_VERIFY(!shown.isRunning());

    QVERIFY(shown.editor("traceOutput")->hasFocus());
}

QTEST_MAIN(TestKeyboard)
#include "tst_keyboard.moc"
