#include "support/assistantuser.h"

#include <QLineEdit>
#include <QMessageBox>

using namespace MireloQtLib::QtAgent;

/// That nothing is lost which a user has written or read, or was about to.
class TestAssistantWindowUnsent : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void draftSurvivesTheEditingOfAQuestion();
    void editedQuestionComesBackAfterEscape();
    void editedQuestionThatFailsIsThereToBeSentAgain();
    void draftSurvivesClosing();
    void draftIsKeptWhileItIsWritten();
    void newConversationIsRememberedAsNew();
    void openConversationIsRememberedAtOnce();
    void chosenLanguageIsNotSwitchedTo();
    void languageWaitsForTheAnswer();
    void replacedMessagesAreBroughtBack();
    void selectionStaysWhileAnAnswerIsSaved();
    void editedTitleStaysWhileConversationsChangePlaces();
    void unsavedConversationIsToldOf();
    void unsavedConversationIsNotDroppedUnasked_data();
    void unsavedConversationIsNotDroppedUnasked();
    void unsavedConversationIsExported();
    void titleIsShownAsItStands();

private:
    static const QString pump;
};

const QString TestAssistantWindowUnsent::pump = QStringLiteral("我 What is a pump? 助手 It moves water.");

namespace {

QPlainTextEdit *inputOf(const AssistantUser &user)
{
    return user.find<QPlainTextEdit>("chatInput");
}

// A conversation whose end the store has not taken.
void answerWithoutStore(AssistantUser *user)
{
    user->ask("What is a valve?");
    user->store.close();
    user->model.lastCall().reply->finish("It closes.");
}

} // namespace

void TestAssistantWindowUnsent::draftSurvivesTheEditingOfAQuestion()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    QTest::keyClicks(inputOf(user), "And a valve?");
    user.choose("editRequested");
    QCOMPARE(inputOf(user)->toPlainText(), "What is a pump?");
    user.choose("editRequested");
    user.choose("stopRequested");
    QCOMPARE(inputOf(user)->toPlainText(), "And a valve?");
    user.choose("editRequested");
    user.ask("What is a tank?");
    QCOMPARE(user.model.lastCall().messages.last().content, "What is a tank?");
    QCOMPARE(inputOf(user)->toPlainText(), "And a valve?");
}

void TestAssistantWindowUnsent::editedQuestionComesBackAfterEscape()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.choose("editRequested");
    QTest::keyClicks(inputOf(user), " And a valve?");
    user.choose("stopRequested");
    QCOMPARE(inputOf(user)->toPlainText(), QString());
    inputOf(user)->undo();
    QCOMPARE(inputOf(user)->toPlainText(), "What is a pump? And a valve?");
}

void TestAssistantWindowUnsent::editedQuestionThatFailsIsThereToBeSentAgain()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.choose("editRequested");
    user.model.addFailure("no network");
    user.ask("What is a valve?");
    QTRY_VERIFY(user.find<NoticeBar>("failure")->isVisible());
    QCOMPARE(user.transcript(), pump);
    QVERIFY(user.find<NoticeBar>("editing")->isVisible());
    QCOMPARE(inputOf(user)->toPlainText(), "What is a valve?");
    user.model.addText({"It closes."});
    QTest::mouseClick(user.find<NoticeBar>("failure")->findChild<QPushButton *>("noticeAction"),
                      Qt::LeftButton);
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    QCOMPARE(inputOf(user)->toPlainText(), QString());
}

void TestAssistantWindowUnsent::draftSurvivesClosing()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    QTest::keyClicks(inputOf(user), "And a valve?");
    user.choose("editRequested");
    QTest::keyClicks(inputOf(user), " Tell me.");
    user.window->close();
    user.start();
    QCOMPARE(inputOf(user)->toPlainText(), "And a valve?\n\nWhat is a pump? Tell me.");
    user.choose("editRequested");
    user.ask("What is a tank?");
    user.window->close();
    user.start();
    QCOMPARE(inputOf(user)->toPlainText(), "And a valve?\n\nWhat is a pump? Tell me.\n\nWhat is a tank?");
    QCOMPARE(user.transcript(), pump);
}

void TestAssistantWindowUnsent::draftIsKeptWhileItIsWritten()
{
    AssistantUser user;
    user.start();
    QTest::keyClicks(inputOf(user), "What is a valve?");
    QTRY_COMPARE(user.settings.draft(), "What is a valve?");
    user.click("sendButton");
    QTRY_COMPARE(user.settings.draft(), QString());
}

void TestAssistantWindowUnsent::newConversationIsRememberedAsNew()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.click("newConversation");
    user.start();
    QCOMPARE(user.transcript(), QString());
}

void TestAssistantWindowUnsent::openConversationIsRememberedAtOnce()
{
    AssistantUser user;
    user.start();
    user.ask("What is a valve?");
    const AssistantSettings killed(user.folder.filePath("assistant.ini"));
    QCOMPARE(killed.conversationId().value_or("none"), user.store.list().first().id);
}

void TestAssistantWindowUnsent::chosenLanguageIsNotSwitchedTo()
{
    AssistantUser user;
    user.settings.setLanguage("zh");
    user.start();
    QSignalSpy changed(user.window.data(), &AssistantWindow::languageChanged);
    user.choose("languageChinese");
    QCOMPARE(changed.count(), 0);
}

void TestAssistantWindowUnsent::languageWaitsForTheAnswer()
{
    AssistantUser user;
    user.start();
    user.ask("What is a valve?");
    QSignalSpy changed(user.window.data(), &AssistantWindow::languageChanged);
    user.choose("languageEnglish");
    QCOMPARE(changed.count(), 0);
    QCOMPARE(user.notice(), "回答结束后切换语言。");
    user.model.lastCall().reply->finish("It closes.");
    QTRY_COMPARE(changed.count(), 1);
    QCOMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
}

void TestAssistantWindowUnsent::replacedMessagesAreBroughtBack()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.model.addText({"No idea."});
    user.choose("regenerateRequested");
    QTRY_COMPARE(user.notice(), "原来的消息已被替换。");
    QCOMPARE(user.transcript(), "我 What is a pump? 助手 No idea.");
    QTest::mouseClick(user.find<NoticeBar>("notice")->findChild<QPushButton *>("noticeAction"),
                      Qt::LeftButton);
    QCOMPARE(user.transcript(), pump);
    QCOMPARE(user.notice(), QString());
    user.model.addText({"No idea."});
    user.choose("regenerateRequested");
    QTRY_VERIFY(!user.notice().isEmpty());
    user.ask("Why?");
    QCOMPARE(user.notice(), QString());
}

void TestAssistantWindowUnsent::selectionStaysWhileAnAnswerIsSaved()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.click("newConversation");
    user.ask("What is a valve?");
    auto *list = user.find<QListView>("conversationList");
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Down);
    QCOMPARE(list->currentIndex().data().toString(), "Pumps");
    user.model.lastCall().reply->appendDelta("It clo");
    const QString running = user.store.list().first().id;
    QTRY_COMPARE(user.textsOf(running).size(), 2);
    QCOMPARE(list->currentIndex().data().toString(), "Pumps");
    QTest::keyClick(list, Qt::Key_Delete);
    QCOMPARE(user.titles(), QStringList("What is a valve?"));
    user.choose("undoRequested");
    QCOMPARE(user.titles().size(), 2);
    QVERIFY(!user.isIdle());
}

void TestAssistantWindowUnsent::editedTitleStaysWhileConversationsChangePlaces()
{
    AssistantUser user;
    const QString pumps = user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.settings.setConversationId(pumps);
    user.keep("Valves", {"What is a valve?", "It closes."});
    user.start();
    user.ask("Why?"); // the list begins with the pumps now
    auto *list = user.find<QListView>("conversationList");
    list->setFocus();
    list->setCurrentIndex(list->model()->index(user.titles().indexOf("Valves"), 0));
    user.choose("renameRequested");
    auto *editor = list->findChild<QLineEdit *>();
    QVERIFY(editor);
    QTest::keyClicks(editor, "Slide ");
    user.keep("Tanks", {"What is a tank?"}); // as another program does
    user.model.lastCall().reply->finish("Because.");
    QTest::keyClicks(editor, "valves");
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_VERIFY(user.titles().contains("Slide valves"));
    QCOMPARE(user.titles().size(), 3);
}

void TestAssistantWindowUnsent::unsavedConversationIsToldOf()
{
    AssistantUser user;
    user.start();
    answerWithoutStore(&user);
    auto *bar = user.find<NoticeBar>("unsaved");
    QCOMPARE(bar->text(), "对话没有保存：The store is not open.\n程序会继续尝试。");
    QVERIFY(user.store.open(user.path()));
    QTRY_COMPARE(bar->text(), QString());
    QCOMPARE(user.textsOf(user.store.list().first().id), QStringList({"What is a valve?", "It closes."}));
}

void TestAssistantWindowUnsent::unsavedConversationIsNotDroppedUnasked_data()
{
    QTest::addColumn<bool>("closes");
    QTest::newRow("by closing the window") << true;
    QTest::newRow("by beginning another") << false;
}

void TestAssistantWindowUnsent::unsavedConversationIsNotDroppedUnasked()
{
    QFETCH(bool, closes);
    AssistantUser user;
    user.start();
    answerWithoutStore(&user);
    const auto leave = [&] { closes ? void(user.window->close()) : user.click("newConversation"); };
    leave();
    QVERIFY(user.window->isVisible());
    QCOMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    user.find<QMessageBox>("unsavedQuestion")->reject();
    QTRY_VERIFY(!user.window->findChild<QMessageBox *>("unsavedQuestion"));
    QCOMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    leave();
    user.click("discardButton");
    QCOMPARE(user.window->isVisible(), !closes);
    if (!closes)
        QCOMPARE(user.transcript(), QString());
}

void TestAssistantWindowUnsent::unsavedConversationIsExported()
{
    AssistantUser user;
    user.start();
    answerWithoutStore(&user);
    const QString path = user.folder.filePath("valves.md");
    user.window->exportTo(path);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains("It closes."));
}

void TestAssistantWindowUnsent::titleIsShownAsItStands()
{
    AssistantUser user;
    user.keep("A [*] B", {"What is a pump?", "It moves water."});
    user.start();
    QCOMPARE(user.window->windowTitle(), "A [*][*] B — Orvane 助手"); // which stands for one
}

QTEST_MAIN(TestAssistantWindowUnsent)
#include "tst_assistantwindow_unsent.moc"
