#include "support/approvaldialogs.h"
#include "support/assistantuser.h"
#include "support/heldtool.h"
#include "support/visibletexts.h"

#include <assistant/assistantstartup.h>
#include <assistant/conversationlistmodel.h>
#include <assistant/librarytexts.h>
#include <assistant/modelchoice.h>
#include <assistant/toolset.h>

#include <qtagent/toolregistry.h>

#include <QClipboard>
#include <QDialog>
#include <QDir>
#include <QTableWidget>
#include <QTranslator>

using namespace MireloQtLib::QtAgent;

/// What a user of the English assistant sees. Its translation lies beside the test, as beside the program.
class TestAssistantEnglish : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void languageIsApplied_data();
    void languageIsApplied();
    void firstStartIsEnglish();
    void deniedAndFailedCallsAreEnglish();
    void stoppedCallIsEnglish();
    void failureIsEnglish();
    void dialogsAreEnglish_data();
    void dialogsAreEnglish();
    void whatIsKeptAndSentStays();
    void everyTextOfTheLibraryIsKnown();
};

namespace {

// Chinese characters and punctuation, but for the name of the language in its menu.
QStringList chineseTexts(const QStringList &texts)
{
    static const QRegularExpression chinese(R"([\p{Han}\x{3000}-\x{303f}\x{ff00}-\x{ffef}])");
    QStringList found = texts.filter(chinese);
    found.removeAll("中文");
    return found;
}

class EnglishUser : public AssistantUser
{
public:
    EnglishUser()
        : tools(ToolSettings{true, folder.path(), {}})
    {
        start();
        window->setToolSet(&tools, folder.filePath("tools.json"));
    }

    ToolSet tools;
};

QJsonObject writing(const QString &id, const QString &path)
{
    return makeToolCall(id, "write_file", {{"path", path}, {"content", "A"}});
}

} // namespace

void TestAssistantEnglish::init()
{
    applyAssistantLanguage("en");
}

void TestAssistantEnglish::cleanup()
{
    applyAssistantLanguage("zh");
}

void TestAssistantEnglish::languageIsApplied_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QLocale::Language>("locale");
    QTest::newRow("English") << "en"
                             << "&Send" << QLocale::English;
    QTest::newRow("Chinese") << "zh"
                             << "发送(&S)" << QLocale::Chinese;
    QTest::newRow("that of the system, which is neither") << ""
                                                          << "&Send" << QLocale::English;
}

// Whatever was chosen before, and twice as well.
void TestAssistantEnglish::languageIsApplied()
{
    QFETCH(QString, language);
    QFETCH(QString, expected);
    for (const char *before : {"en", "zh"}) {
        applyAssistantLanguage(before);
        applyAssistantLanguage(language);
        applyAssistantLanguage(language);
        QCOMPARE(QCoreApplication::translate("ChatPage", "发送(&S)"), expected);
        QTEST(QLocale().language(), "locale");
        QVERIFY(qApp->findChildren<QTranslator *>().size() <= 1);
    }
}

void TestAssistantEnglish::firstStartIsEnglish()
{
    EnglishUser user;
    ModelChoice choice(loadProfiles({user.folder.filePath("profiles.json")}, {}));
    user.window->setModelChoice(&choice);
    QCOMPARE(user.find<QComboBox>("modelCombo")->currentText(), "Mock model");
    user.ask("Is anybody there?");
    QTRY_VERIFY(user.isIdle());
    QVERIFY(user.transcript().contains("Assistant This is the Orvane mock model"));
    const QStringList texts = visibleTexts();
    QVERIFY(texts.size() > 50);
    QCOMPARE(chineseTexts(texts), QStringList());
}

void TestAssistantEnglish::deniedAndFailedCallsAreEnglish()
{
    EnglishUser user;
    ApprovalDialogs dialogs;
    QStringList whileAsked;
    dialogs.onShown = [&whileAsked](QDialog *dialog) {
        whileAsked = visibleTexts();
        dialog->reject();
    };
    user.model.addToolCalls({makeToolCall("1", "clock", {}), writing("2", "a.txt"),
                             makeToolCall("3", "read_file", {{"path", "missing"}}),
                             makeToolCall("4", "wipe", {})});
    user.model.addText({"I did not."});
    user.ask("Write it down.");
    QTRY_VERIFY(user.transcript().endsWith("Assistant I did not."));
    QVERIFY(user.transcript().contains("Tool write_file The user denied the call."));
    QVERIFY(user.transcript().contains("Tool wipe There is no such tool: wipe"));
    QVERIFY(whileAsked.contains("Allow Once"));
    QCOMPARE(chineseTexts(whileAsked), QStringList());
    QCOMPARE(chineseTexts(visibleTexts()), QStringList());

    auto *calls = user.find<QTableWidget>("toolCalls");
    calls->setCurrentCell(1, 0);
    QTest::keyClick(calls, Qt::Key_Return);
    QVERIFY(user.find<QPlainTextEdit>("toolCallText")->toPlainText().contains("The user denied the call."));
    QCOMPARE(chineseTexts(visibleTexts()), QStringList());
}

void TestAssistantEnglish::stoppedCallIsEnglish()
{
    EnglishUser user;
    ToolRegistry registry;
    auto *slow = new HeldTool("slow", ToolPermission::ReadOnly);
    registry.registerTool(slow);
    user.window->findChild<AgentSession *>()->setToolRegistry(&registry);
    user.model.addToolCalls({makeToolCall("1", "slow", {}), makeToolCall("2", "missing", {})});
    user.ask("Slowly.");
    QTRY_COMPARE(slow->replies.size(), 1);
    user.click("stopButton");
    QVERIFY(user.transcript().endsWith("Tool slow Canceled. Tool missing Not executed."));
    QCOMPARE(chineseTexts(visibleTexts()), QStringList());
    user.choose("copyRequested");
    QCOMPARE(QGuiApplication::clipboard()->text(), "Not executed.");
}

void TestAssistantEnglish::failureIsEnglish()
{
    EnglishUser user;
    user.model.addAnswer([](const QPointer<ChatReply> &reply) { reply->appendDelta("It clo"); });
    user.ask("What is a valve?");
    QTRY_VERIFY(user.transcript().endsWith("It clo"));
    user.click("stopButton");
    user.model.addFailure("no network");
    user.ask("And a pump?");
    QTRY_VERIFY(user.find<NoticeBar>("failure")->isVisible());
    QCOMPARE(chineseTexts(visibleTexts()), QStringList());
}

void TestAssistantEnglish::dialogsAreEnglish_data()
{
    QTest::addColumn<QString>("dialog");
    QTest::newRow("modelsRequested") << "profilesDialog";
    QTest::newRow("toolsRequested") << "toolsDialog";
    QTest::newRow("exportRequested") << "exportDialog";
}

void TestAssistantEnglish::dialogsAreEnglish()
{
    QFETCH(QString, dialog);
    EnglishUser user;
    user.settings.setConversationId(user.keep("Pumps", {"What is a pump?", "It moves water."}));
    user.start();
    user.window->setToolSet(&user.tools, user.folder.filePath("tools.json"));
    ModelChoice choice(loadProfiles({user.folder.filePath("profiles.json")}, {}));
    user.window->setModelChoice(&choice);
    user.choose(QTest::currentDataTag());
    QVERIFY(user.find<QDialog>(dialog)->isVisible());
    const auto tabs = user.find<QDialog>(dialog)->findChildren<QTabWidget *>();
    QCOMPARE(chineseTexts(visibleTexts()), QStringList());
    for (QTabWidget *tab : tabs) {
        tab->setCurrentIndex(1);
        QCOMPARE(chineseTexts(visibleTexts()), QStringList());
    }
}

// Models and other programs read them.
void TestAssistantEnglish::whatIsKeptAndSentStays()
{
    EnglishUser user;
    ApprovalDialogs dialogs;
    dialogs.onShown = [](QDialog *dialog) { dialog->reject(); };
    user.model.addToolCalls({writing("1", "a.txt")});
    user.ask("Write it down.");
    QTRY_COMPARE(user.model.calls().size(), 2);
    QCOMPARE(user.model.lastCall().messages.last().content, "用户拒绝了审批。");
    const QString id = user.find<QListView>("conversationList")
                           ->currentIndex()
                           .data(ConversationListModel::IdRole)
                           .toString();
    QTRY_VERIFY(user.textsOf(id).contains("用户拒绝了审批。"));
}

// Beside those of widgets and of the mock model, which are translated where they stand, and the words that
// the mock model listens for.
void TestAssistantEnglish::everyTextOfTheLibraryIsKnown()
{
    static const QStringList words{"设备", "异常", "报告", "导出"};
    static const QRegularExpression literal(R"(QStringLiteral\(\x22([^\x22]*\p{Han}[^\x22]*)\x22\))");
    QStringList unknown;
    int known = 0;
    for (const QFileInfo &source : QDir(LIBRARY_DIR).entryInfoList({"*.cpp"})) {
        QFile file(source.filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        auto matches = literal.globalMatch(QString::fromUtf8(file.readAll()));
        while (matches.hasNext()) {
            const QString text = matches.next().captured(1).replace("%1", "clock");
            if (!chineseTexts({shownText(text)}).isEmpty() && !words.contains(text))
                unknown.append(text);
            ++known;
        }
    }
    QVERIFY(known > 10);
    QCOMPARE(unknown, QStringList());
}

QTEST_MAIN(TestAssistantEnglish)
#include "tst_assistantenglish.moc"
