#include "support/assistantuser.h"

#include <assistant/modelchoice.h>

#include <QComboBox>
#include <QDialog>
#include <QLineEdit>

class TestAssistantWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void questionIsAnsweredAndListed();
    void questionIsSentByTheKeyboard();
    void windowGoesOnWhereItWasClosed();
    void stoppedAnswerStays();
    void searchFindsAndOpensAMessage();
    void newConversationIsEmpty();
    void mockModelSaysHowToSetUpAnother();
    void chosenModelIsKept();
    void longModelNameFitsTheWindow();
    void languageIsChosen();
};

void TestAssistantWindow::questionIsAnsweredAndListed()
{
    AssistantUser user;
    user.start();
    user.model.addText({"It ", "closes."});
    user.ask("What is a valve?");
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    QTRY_VERIFY(user.isIdle());
    QCOMPARE(user.titles(), QStringList("What is a valve?"));
    QCOMPARE(user.window->windowTitle(), "What is a valve? — Orvane 助手");
    QCOMPARE(user.find<QPlainTextEdit>("chatInput")->toPlainText(), QString());
}

void TestAssistantWindow::questionIsSentByTheKeyboard()
{
    AssistantUser user;
    user.start();
    auto *input = user.find<QPlainTextEdit>("chatInput");
    QCOMPARE(user.window->focusWidget(), input);
    QTest::keyClick(input, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(user.model.calls().size(), 0);
    QTest::keyClicks(input, " What?");
    QTest::keyClick(input, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(user.model.calls().size(), 1);
    QCOMPARE(user.model.lastCall().messages.last().content, "What?");
    QTest::keyClicks(input, "Next");
    QTest::keyClick(input, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(user.model.calls().size(), 1);
    QCOMPARE(input->toPlainText(), "Next");
}

void TestAssistantWindow::windowGoesOnWhereItWasClosed()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    QCOMPARE(user.transcript(), "我 What is a pump? 助手 It moves water.");
    user.ask("And a valve?");
    user.model.lastCall().reply->appendDelta("It clo");
    user.start();
    QCOMPARE(user.transcript(),
             "我 What is a pump? 助手 It moves water. 我 And a valve? 助手 It clo 已停止，回答不完整。");
    user.ask("Again?");
    QCOMPARE(user.model.lastCall().messages.size(), 5);
}

void TestAssistantWindow::stoppedAnswerStays()
{
    AssistantUser user;
    user.start();
    user.ask("What is a valve?");
    user.model.lastCall().reply->appendDelta("It clo");
    user.click("stopButton");
    QVERIFY(user.isIdle());
    QCOMPARE(user.transcript(), "我 What is a valve? 助手 It clo 已停止，回答不完整。");
}

void TestAssistantWindow::searchFindsAndOpensAMessage()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.keep("Valves", {"What is a valve?", "It closes."});
    user.start();
    QTest::keyClicks(user.find<QLineEdit>("conversationSearch"), "moves");
    QCOMPARE(user.titles(), QStringList("Pumps"));
    QTest::keyClick(user.find<QLineEdit>("conversationSearch"), Qt::Key_Return);
    QCOMPARE(user.transcript(), "我 What is a pump? 助手 It moves water.");
    user.find<QLineEdit>("conversationSearch")->clear();
    QCOMPARE(user.titles().size(), 2);
    QCOMPARE(user.find<QListView>("conversationList")->currentIndex().data().toString(), "Pumps");
}

void TestAssistantWindow::newConversationIsEmpty()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.click("newConversation");
    QCOMPARE(user.transcript(), QString());
    QCOMPARE(user.window->focusWidget(), user.find<QPlainTextEdit>("chatInput"));
    user.ask("What is a valve?");
    QCOMPARE(user.model.lastCall().messages.size(), 1);
    QCOMPARE(user.titles().size(), 2);
}

void TestAssistantWindow::mockModelSaysHowToSetUpAnother()
{
    AssistantUser user;
    ModelChoice choice(loadProfiles({user.folder.filePath("orvane.local.json")}, {}));
    user.start();
    user.window->setModelChoice(&choice);
    QCOMPARE(user.find<NoticeBar>("hint")->text(), "还没有配置模型，现在由离线的模拟模型回答。");
    QCOMPARE(user.find<QComboBox>("modelCombo")->currentText(), "模拟模型");
    QTest::mouseClick(user.find<NoticeBar>("hint")->findChild<QPushButton *>("noticeAction"), Qt::LeftButton);
    auto *dialog = user.find<QDialog>("profilesDialog");
    dialog->findChild<QLineEdit *>("nameEdit")->setFocus();
    QTest::keyClicks(dialog->findChild<QLineEdit *>("nameEdit"), "Works");
    dialog->accept();
    QCOMPARE(user.find<NoticeBar>("hint")->text(), QString());
    QCOMPARE(user.find<QComboBox>("modelCombo")->currentText(), "Works");
}

namespace {

AssistantProfiles profilesNamed(const QStringList &names)
{
    AssistantProfiles result;
    for (const QString &name : names) {
        AssistantProfile profile;
        profile.config.name = name;
        profile.config.provider = "openai";
        profile.config.model = "model of " + name;
        result.profiles.append(profile);
    }
    result.isFromFile = true;
    return result;
}

} // namespace

void TestAssistantWindow::chosenModelIsKept()
{
    AssistantUser user;
    ModelChoice choice(profilesNamed({"Home", "Works", "Lab"}));
    user.start();
    user.window->setModelChoice(&choice);
    QCOMPARE(user.find<QComboBox>("modelCombo")->currentText(), "Home");
    user.find<QComboBox>("modelCombo")->setFocus();
    QTest::keyClick(user.find<QComboBox>("modelCombo"), Qt::Key_Down);
    QCOMPARE(choice.modelName(), "model of Works");

    ModelChoice atNextStart(profilesNamed({"Home", "Lab", "Works"}));
    user.start();
    user.window->setModelChoice(&atNextStart);
    QCOMPARE(user.find<QComboBox>("modelCombo")->currentText(), "Works");
    QCOMPARE(atNextStart.modelName(), "model of Works");
}

void TestAssistantWindow::longModelNameFitsTheWindow()
{
    AssistantUser user;
    const QString name = QString("<b>a model</b> with a name that ends ").repeated(12) + "soon";
    ModelChoice choice(profilesNamed({name, "short"}));
    user.start();
    user.window->setModelChoice(&choice);
    auto *combo = user.find<QComboBox>("modelCombo");
    user.window->resize(800, 600);
    QCoreApplication::processEvents();
    QCOMPARE(user.window->size(), QSize(800, 600));
    QVERIFY(combo->width() <= 300);
    QVERIFY(combo->currentText().startsWith("<b>a model") && combo->currentText().endsWith("ends soon"));
    QVERIFY(combo->toolTip().contains(name.toHtmlEscaped()));
    QTest::keyClick(combo, Qt::Key_Down);
    QCOMPARE(combo->toolTip(), QString());
}

void TestAssistantWindow::languageIsChosen()
{
    AssistantUser user;
    user.start();
    QVERIFY(user.window->findChild<QAction *>("languageOfSystem")->isChecked());
    QSignalSpy changed(user.window.data(), &AssistantWindow::languageChanged);
    user.choose("languageEnglish");
    QCOMPARE(changed.count(), 1);
    QCOMPARE(user.settings.language(), "en");
}

QTEST_MAIN(TestAssistantWindow)
#include "tst_assistantwindow.moc"
