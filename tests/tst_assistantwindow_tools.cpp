#include "support/approvaldialogs.h"
#include "support/assistantuser.h"
#include "support/mcpscript.h"

#include <assistant/noticebar.h>
#include <assistant/toolset.h>

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QTableWidget>

using namespace MireloQtLib::QtAgent;

class TestAssistantWindowTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolsAreOfferedAndTheirCallsShown();
    void fileIsWrittenWithApprovalOnly_data();
    void fileIsWrittenWithApprovalOnly();
    void callIsOpenedByTheKeyboard();
    void toolsAreChosen();
    void changedToolIsOfferedToTheUserFirst();
    void callHasNoResultBeforeItWasExecuted();
    void placeInTheTranscriptStaysOverAResult();
    void approvalIsWithdrawnWithItsConversation_data();
    void approvalIsWithdrawnWithItsConversation();
};

namespace {

class ToolUser : public AssistantUser
{
public:
    explicit ToolUser(const ToolSettings &settings)
        : tools(settings)
    {
        start();
        window->setToolSet(&tools, folder.filePath("tools.json"));
    }

    QString cell(int row, int column) const
    {
        return find<QTableWidget>("toolCalls")->item(row, column)->text();
    }

    ToolSet tools;
};

} // namespace

void TestAssistantWindowTools::toolsAreOfferedAndTheirCallsShown()
{
    ToolUser user(ToolSettings{});
    QVERIFY(!user.find<QTableWidget>("toolCalls")->isVisible());
    user.model.addToolCalls({makeToolCall("1", "clock", {})});
    user.model.addText({"It is late."});
    user.ask("What time is it?");
    QTRY_VERIFY(user.transcript().endsWith("助手 It is late."));
    QCOMPARE(user.model.calls().first().tools.first().name, "clock");
    QVERIFY(user.find<QTableWidget>("toolCalls")->isVisible());
    QCOMPARE(user.cell(0, 0), "clock");
    QVERIFY(user.transcript().contains("工具 clock"));
    user.click("newConversation");
    QVERIFY(!user.find<QTableWidget>("toolCalls")->isVisible());
}

void TestAssistantWindowTools::fileIsWrittenWithApprovalOnly_data()
{
    QTest::addColumn<bool>("allowed");
    QTest::newRow("allowed") << true;
    QTest::newRow("denied") << false;
}

void TestAssistantWindowTools::fileIsWrittenWithApprovalOnly()
{
    QFETCH(bool, allowed);
    QTemporaryDir plans;
    ToolUser user({false, plans.path(), {}});
    ApprovalDialogs dialogs;
    dialogs.onShown = [allowed](QDialog *dialog) { allowed ? dialog->accept() : dialog->reject(); };
    user.model.addToolCalls({makeToolCall("1", "write_file", {{"path", "a.txt"}, {"content", "A"}})});
    user.model.addText({"Done."});
    user.ask("Write it down.");
    QTRY_VERIFY(user.transcript().endsWith("助手 Done."));
    QCOMPARE(dialogs.count(), 1);
    QCOMPARE(QFile::exists(plans.filePath("a.txt")), allowed);
}

void TestAssistantWindowTools::callIsOpenedByTheKeyboard()
{
    ToolUser user(ToolSettings{});
    user.model.addToolCalls({makeToolCall("1", "clock", {})});
    user.model.addText({"It is late."});
    user.ask("What time is it?");
    QTRY_VERIFY(user.isIdle());
    auto *calls = user.find<QTableWidget>("toolCalls");
    calls->setCurrentCell(0, 0);
    QTest::keyClick(calls, Qt::Key_Return);
    auto *text = user.find<QPlainTextEdit>("toolCallText");
    QVERIFY(text->isVisible());
    QVERIFY(text->toPlainText().startsWith("工具：clock\n\n"));
    user.find<QDialog>("toolCallDialog")->close();
}

void TestAssistantWindowTools::toolsAreChosen()
{
    ToolUser user(ToolSettings{});
    user.choose("toolsRequested");
    auto *dialog = user.find<QDialog>("toolsDialog");
    dialog->findChild<QCheckBox *>("clockCheck")->setChecked(false);
    dialog->findChild<QLineEdit *>("folderEdit")->setText(user.folder.path());
    dialog->accept();
    user.ask("What is there?");
    QCOMPARE(user.model.lastCall().tools.size(), 3);
    QCOMPARE(loadToolSettings(user.folder.filePath("tools.json")).folder, user.folder.path());
}

void TestAssistantWindowTools::changedToolIsOfferedToTheUserFirst()
{
    McpScript script = McpScript::legacy("2025-11-25", {McpScript::tool("wipe"), McpScript::tool("read")});
    McpServerSettings server;
    server.name = "plant";
    server.program = script.command().first();
    server.arguments = script.command().mid(1);
    server.agreedTools.insert("read", "Does things.\n{\n    \"type\": \"object\"\n}\n");
    server.agreedTools.insert("wipe", "Does little.");
    ToolUser user({false, {}, {server}});
    auto *notice = user.find<NoticeBar>("notice");
    QTRY_COMPARE(notice->text(),
                 "服务器 plant 的这些工具是新的，或与您同意时不同，您同意之后才会提供给模型：wipe");
    user.model.addText({"Little."});
    user.model.addText({"More."});
    user.ask("What is there?");
    QTRY_VERIFY(user.transcript().endsWith("助手 Little."));
    QCOMPARE(user.model.lastCall().tools.size(), 1);
    QTest::keyClick(notice->findChild<QPushButton *>("noticeAction"), Qt::Key_Space);
    auto *dialog = user.find<QDialog>("toolsDialog");
    auto *offered = dialog->findChild<QListWidget *>("serverTools");
    QVERIFY(offered->isVisible());
    QCOMPARE(offered->currentRow(), 0);
    QTest::keyClick(offered, Qt::Key_Space);
    QCOMPARE(offered->item(0)->checkState(), Qt::Checked);
    dialog->accept();
    user.ask("What is there now?");
    QTRY_VERIFY(user.transcript().endsWith("助手 More."));
    QCOMPARE(user.model.lastCall().tools.size(), 2);
    const ToolSettings kept = loadToolSettings(user.folder.filePath("tools.json"));
    QVERIFY(kept.servers.first().agreedTools.value("wipe").startsWith("Does things."));
}

void TestAssistantWindowTools::callHasNoResultBeforeItWasExecuted()
{
    QTemporaryDir plans;
    ToolUser user({false, plans.path(), {}});
    ApprovalDialogs dialogs;
    QString whileAsked;
    dialogs.onShown = [&](QDialog *dialog) {
        whileAsked = user.transcript();
        dialog->accept();
    };
    user.model.addToolCalls({makeToolCall("1", "list_folder", {}),
                             makeToolCall("2", "write_file", {{"path", "a.txt"}, {"content", "A"}})},
                            "I look.");
    user.model.addToolCalls({makeToolCall("1", "write_file", {{"path", "b.txt"}, {"content", "B"}})});
    user.model.addText({"Done."});
    user.ask("Write it down.");
    QTRY_VERIFY(user.transcript().endsWith("助手 Done."));
    QCOMPARE(dialogs.count(), 2);
    QVERIFY(whileAsked.contains("助手 I look."));
    QVERIFY2(!whileAsked.contains("未执行。"), qPrintable(whileAsked));
    QVERIFY(!user.transcript().contains("未执行。"));
}

void TestAssistantWindowTools::placeInTheTranscriptStaysOverAResult()
{
    ToolUser user(ToolSettings{});
    user.model.addToolCalls({makeToolCall("1", "clock", {})});
    user.model.addText({"It is late."});
    user.settings.setConversationId(
        user.keep("Pumps", {QString("What is a pump?\n").repeated(200), "It moves water."}));
    user.start();
    user.window->setToolSet(&user.tools, user.folder.filePath("tools.json"));
    auto *transcript = user.find<QTextBrowser>("transcript");
    QSignalSpy changed(transcript->document(), &QTextDocument::contentsChange);
    user.ask("What time is it?");
    transcript->verticalScrollBar()->setValue(0);
    QTRY_VERIFY(user.transcript().endsWith("助手 It is late."));
    for (const QVariantList &change : changed)
        QVERIFY2(change.at(0).toInt() > 0, "The transcript was written anew.");
    QCOMPARE(transcript->verticalScrollBar()->value(), 0);
}

void TestAssistantWindowTools::approvalIsWithdrawnWithItsConversation_data()
{
    QTest::addColumn<QString>("action");
    QTest::newRow("another is begun") << "newRequested";
    QTest::newRow("another is opened") << "";
    QTest::newRow("it is removed") << "removeRequested";
    QTest::newRow("the window is closed") << "quitRequested";
}

void TestAssistantWindowTools::approvalIsWithdrawnWithItsConversation()
{
    QFETCH(QString, action);
    QTemporaryDir plans;
    ToolUser user({false, plans.path(), {}});
    ApprovalDialogs dialogs;
    const QString other = user.folder.filePath("other.json");
    user.settings.setConversationId(user.keep("Pumps", {"What is a pump?", "It moves water."}));
    user.start();
    user.window->setToolSet(&user.tools, user.folder.filePath("tools.json"));
    user.window->exportTo(other);
    user.click("newConversation");
    user.model.addToolCalls({makeToolCall("1", "write_file", {{"path", "a.txt"}, {"content", "A"}})});
    user.ask("Write it down.");
    QTRY_COMPARE(dialogs.visibleCount(), 1);
    QCOMPARE(dialogs.last()->findChild<QLabel *>("approvalReason")->text().section('\n', 1),
             "将新建文件：" + QFileInfo(plans.path()).canonicalFilePath() + "/a.txt");
    if (action.isEmpty())
        user.window->importFrom(other);
    else
        user.choose(action);
    QTRY_COMPARE(dialogs.visibleCount(), 0);
    QVERIFY(user.isIdle());
    QCOMPARE(user.transcript().contains("It moves water."), action.isEmpty());
    QVERIFY(!QFile::exists(plans.filePath("a.txt")));
}

QTEST_MAIN(TestAssistantWindowTools)
#include "tst_assistantwindow_tools.moc"
