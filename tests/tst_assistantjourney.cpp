#include "support/approvaldialogs.h"
#include "support/assistantuser.h"
#include "support/completions.h"
#include "support/loopbackserver.h"

#include <assistant/modelchoice.h>
#include <assistant/toolset.h>

#include <QComboBox>
#include <QDialog>
#include <QLineEdit>

using namespace MireloQtLib::QtAgent;

namespace {

QByteArray choiceEvent(const QJsonObject &choice)
{
    const QJsonObject root{{"choices", QJsonArray{choice}}};
    return "data: " + QJsonDocument(root).toJson(QJsonDocument::Compact) + "\n\n";
}

QByteArray finishEvent(const QString &reason)
{
    return choiceEvent({{"delta", QJsonObject()}, {"finish_reason", reason}});
}

QByteArray callEvent()
{
    QJsonObject call =
        makeToolCall("c1", "write_file", {{"path", "valves.md"}, {"content", "Valve 7 leaks."}});
    call.insert("index", 0);
    return choiceEvent({{"delta", QJsonObject{{"tool_calls", QJsonArray{call}}}}});
}

// Answers by the last message: a wish to have something written with a call, everything else with a text.
LoopbackAnswer answer(const LoopbackRequest &request)
{
    const QJsonObject last = request.json["messages"].toArray().last().toObject();
    if (last["role"] == QLatin1String("tool"))
        return LoopbackAnswer::stream(
            {deltaEvent("It is "), deltaEvent("written."), finishEvent("stop"), doneEvent()});
    if (last["content"].toString().startsWith("Write"))
        return LoopbackAnswer::stream({callEvent(), finishEvent("tool_calls"), doneEvent()});
    return LoopbackAnswer::stream({deltaEvent("You asked: "), deltaEvent(last["content"].toString()),
                                   finishEvent("stop"), doneEvent()});
}

} // namespace

/// One user, from his first start on. The functions depend on those before.
class TestAssistantJourney : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void firstStartOffersToSetUpAModel();
    void serviceAnswers();
    void questionIsEditedAndAskedAgain();
    void fileIsWrittenOnceItIsAllowed();
    void wordsAreFound();
    void conversationIsExported();
    void everythingIsThereAtTheNextStart();

private:
    static void type(const QDialog *dialog, const QString &field, const QString &text)
    {
        auto *line = dialog->findChild<QLineEdit *>(field);
        line->setFocus();
        QTest::keyClicks(line, text);
    }
    void showWindow();

    LoopbackServer m_server;
    AssistantUser m_user;
    QScopedPointer<ModelChoice> m_choice;
    QScopedPointer<ToolSet> m_tools;
};

void TestAssistantJourney::initTestCase()
{
    m_server.setHandler(&answer);
    QVERIFY(QDir(m_user.folder.path()).mkdir("plans"));
    m_choice.reset(new ModelChoice(loadProfiles({m_user.folder.filePath("profiles.json")}, {})));
    m_tools.reset(new ToolSet({true, m_user.folder.filePath("plans"), {}}));
    showWindow();
}

void TestAssistantJourney::showWindow()
{
    m_user.start();
    m_user.window->setModelChoice(m_choice.data());
    m_user.window->setToolSet(m_tools.data(), m_user.folder.filePath("tools.json"));
}

void TestAssistantJourney::firstStartOffersToSetUpAModel()
{
    auto *hint = m_user.find<NoticeBar>("hint");
    QVERIFY(hint->isVisible());
    QTest::mouseClick(hint->findChild<QPushButton *>("noticeAction"), Qt::LeftButton);
    auto *dialog = m_user.find<QDialog>("profilesDialog");
    type(dialog, "nameEdit", "Works");
    type(dialog, "baseUrlEdit", m_server.baseUrl());
    type(dialog, "apiKeyEdit", "secret");
    dialog->findChild<QComboBox *>("modelEdit")->setEditText("test-model");
    dialog->accept();
    QVERIFY(!hint->isVisible());
    QCOMPARE(m_choice->modelName(), "test-model");
}

void TestAssistantJourney::serviceAnswers()
{
    m_user.ask("What is a tank?");
    QTRY_COMPARE(m_user.transcript(), "我 What is a tank? 助手 You asked: What is a tank?");
    QTRY_VERIFY(m_user.isIdle());
}

void TestAssistantJourney::questionIsEditedAndAskedAgain()
{
    m_user.window->activateWindow(); // as a window manager does where a dialog was closed
    QVERIFY(QTest::qWaitForWindowActive(m_user.window.data()));
    QTest::keyClick(m_user.window.data(), Qt::Key_E, Qt::ControlModifier);
    m_user.ask("What is a valve?");
    QTRY_COMPARE(m_user.transcript(), "我 What is a valve? 助手 You asked: What is a valve?");
    QTRY_VERIFY(m_user.isIdle());
}

void TestAssistantJourney::fileIsWrittenOnceItIsAllowed()
{
    const QString path = m_user.folder.filePath("plans/valves.md");
    ApprovalDialogs dialogs;
    bool existedBefore = true;
    dialogs.onShown = [&](QDialog *dialog) {
        existedBefore = QFile::exists(path);
        QTest::mouseClick(dialog->findChild<QPushButton *>("approvalAllow"), Qt::LeftButton);
    };
    m_user.ask("Write down that valve 7 leaks.");
    QTRY_VERIFY(m_user.transcript().endsWith("助手 It is written."));
    QVERIFY(!existedBefore);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("Valve 7 leaks."));
    QTRY_VERIFY(m_user.isIdle());
}

void TestAssistantJourney::wordsAreFound()
{
    m_user.click("newConversation");
    m_user.ask("And a pump?");
    QTRY_VERIFY(m_user.isIdle() && m_user.titles().size() == 2);
    QTest::keyClicks(m_user.find<QLineEdit>("conversationSearch"), "leaks");
    QCOMPARE(m_user.titles(), QStringList("What is a tank?"));
    QTest::keyClick(m_user.find<QLineEdit>("conversationSearch"), Qt::Key_Return);
    QVERIFY(m_user.transcript().startsWith("我 What is a valve?"));
}

void TestAssistantJourney::conversationIsExported()
{
    const QString path = m_user.folder.filePath("valves.md");
    m_user.window->exportTo(path);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    QVERIFY(content.contains("What is a valve?"));
    QVERIFY(!content.contains("secret"));
}

void TestAssistantJourney::everythingIsThereAtTheNextStart()
{
    m_user.window->close();
    m_choice.reset(new ModelChoice(loadProfiles({m_user.folder.filePath("profiles.json")}, {})));
    showWindow();
    QVERIFY(m_user.transcript().startsWith("我 What is a valve?"));
    QVERIFY(!m_user.find<NoticeBar>("hint")->isVisible());
    QCOMPARE(m_choice->modelName(), "test-model");
    QCOMPARE(m_user.titles().size(), 2);
}

QTEST_MAIN(TestAssistantJourney)
#include "tst_assistantjourney.moc"
