#include "support/assistantuser.h"

#include <QClipboard>
#include <QLineEdit>
#include <QMenu>

class TestAssistantWindowEditing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsRegenerated();
    void questionIsEditedAndAskedAgain();
    void editingIsGivenUp();
    void messageIsCopied();
    void menuOfAMessageOffersWhatCanBeDone();
    void conversationIsRenamedInTheList();
    void removalIsUndone();
    void conversationIsExportedAndImported();
    void sendKeyIsRemembered();
    void placeIsRemembered();

private:
    static const QString pump;
};

const QString TestAssistantWindowEditing::pump = QStringLiteral("我 What is a pump? 助手 It moves water.");

void TestAssistantWindowEditing::answerIsRegenerated()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It stands still."});
    user.start();
    user.model.addText({"It moves water."});
    QTest::keyClick(user.window.data(), Qt::Key_R, Qt::ControlModifier);
    QTRY_VERIFY(user.isIdle());
    QCOMPARE(user.transcript(), pump);
    QCOMPARE(user.model.lastCall().messages.size(), 1);
}

void TestAssistantWindowEditing::questionIsEditedAndAskedAgain()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a tank?", "It holds water.", "Why?", "Because."});
    user.start();
    auto *transcript = user.find<QTextBrowser>("transcript");
    QVERIFY(transcript->find("tank", QTextDocument::FindBackward) || transcript->find("tank"));
    transcript->setFocus();
    QTest::keyClick(user.window.data(), Qt::Key_E, Qt::ControlModifier);
    auto *input = user.find<QPlainTextEdit>("chatInput");
    QCOMPARE(input->toPlainText(), "What is a tank?");
    QVERIFY(user.find<NoticeBar>("editing")->isVisible());
    user.model.addText({"It moves water."});
    user.ask("What is a pump?");
    QTRY_VERIFY(user.isIdle());
    QCOMPARE(user.transcript(), pump);
    QVERIFY(!user.find<NoticeBar>("editing")->isVisible());
    QCOMPARE(user.textsOf(user.store.list().first().id), QStringList({"What is a pump?", "It moves water."}));
}

void TestAssistantWindowEditing::editingIsGivenUp()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.choose("editRequested");
    QTest::keyClick(user.window.data(), Qt::Key_Escape);
    QVERIFY(!user.find<NoticeBar>("editing")->isVisible());
    QCOMPARE(user.find<QPlainTextEdit>("chatInput")->toPlainText(), QString());
    user.ask("And a valve?");
    QCOMPARE(user.model.lastCall().messages.size(), 3);
}

void TestAssistantWindowEditing::messageIsCopied()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves **water**."});
    user.start();
    user.choose("copyRequested");
    QCOMPARE(QGuiApplication::clipboard()->text(), "It moves **water**.");
}

void TestAssistantWindowEditing::menuOfAMessageOffersWhatCanBeDone()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    auto *transcript = user.find<QTextBrowser>("transcript");
    const QPoint place(transcript->fontMetrics().height(), transcript->fontMetrics().height());
    QContextMenuEvent event(QContextMenuEvent::Mouse, place, transcript->viewport()->mapToGlobal(place));
    QCoreApplication::sendEvent(transcript->viewport(), &event);
    auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
    QVERIFY(menu);
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts.append(action->text());
    QCOMPARE(texts, QStringList({"复制消息(&M)", "", "重新回答(&R)", "修改问题(&E)"}));
    menu->actions().first()->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), "What is a pump?");
    menu->close();
}

void TestAssistantWindowEditing::conversationIsRenamedInTheList()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    auto *list = user.find<QListView>("conversationList");
    list->setFocus();
    user.choose("renameRequested");
    auto *editor = list->findChild<QLineEdit *>();
    QVERIFY(editor);
    QTest::keyClicks(editor, "Water ");
    user.choose("regenerateRequested"); // which saves the conversation meanwhile
    QTest::keyClicks(editor, "pumps");
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(user.titles(), QStringList("Water pumps"));
    QCOMPARE(user.window->windowTitle(), "Water pumps — Orvane 助手");
}

void TestAssistantWindowEditing::removalIsUndone()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    QTest::keyClick(user.find<QListView>("conversationList"), Qt::Key_Delete);
    QCOMPARE(user.titles(), QStringList());
    QCOMPARE(user.transcript(), QString());
    QCOMPARE(user.notice(), "已删除“Pumps”。");
    QTest::mouseClick(user.find<NoticeBar>("notice")->findChild<QPushButton *>("noticeAction"),
                      Qt::LeftButton);
    QCOMPARE(user.titles(), QStringList("Pumps"));
    QCOMPARE(user.transcript(), pump);
    QCOMPARE(user.notice(), QString());
    QVERIFY(!user.window->findChild<QAction *>("undoRequested")->isEnabled());
}

void TestAssistantWindowEditing::conversationIsExportedAndImported()
{
    AssistantUser user;
    const QString path = user.folder.filePath("pumps.json");
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    user.window->exportTo(path);
    QVERIFY(user.notice().startsWith("对话已导出到 "));
    user.click("newConversation");
    user.window->importFrom(path);
    QCOMPARE(user.transcript(), pump);
    QCOMPARE(user.titles(), QStringList({"Pumps", "Pumps"}));
    user.window->importFrom(user.folder.filePath("unknown.json"));
    QVERIFY(user.notice().startsWith("无法导入："));
}

void TestAssistantWindowEditing::sendKeyIsRemembered()
{
    AssistantUser user;
    user.start();
    user.choose("sendWithReturn");
    user.start();
    auto *input = user.find<QPlainTextEdit>("chatInput");
    QVERIFY(user.window->findChild<QAction *>("sendWithReturn")->isChecked());
    QTest::keyClicks(input, "What?");
    QTest::keyClick(input, Qt::Key_Return);
    QCOMPARE(user.model.calls().size(), 1);
}

void TestAssistantWindowEditing::placeIsRemembered()
{
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.keep("Valves", {"What is a valve?", "It closes."});
    user.start();
    auto *list = user.find<QListView>("conversationList");
    const QModelIndex pumps = list->model()->index(user.titles().indexOf("Pumps"), 0);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(pumps).center());
    QCOMPARE(user.transcript(), pump);
    user.choose("enlargeRequested");
    user.window->resize(850, 640);
    const QFont font = user.find<QTextBrowser>("transcript")->font();
    user.window->close();
    user.start();
    QCOMPARE(user.transcript(), pump);
    QCOMPARE(user.window->size(), QSize(850, 640));
    QCOMPARE(user.find<QTextBrowser>("transcript")->font().pointSizeF(), font.pointSizeF());
}

QTEST_MAIN(TestAssistantWindowEditing)
#include "tst_assistantwindow_editing.moc"
