#include "support/heldmodel.h"

#include <demo/basicchatpage.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/modelconfigwidget.h>

#include <QGroupBox>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const char *const welcome =
    "系统\nOrvane 可以使用模拟模型离线运行。将 orvane.local.json 放到 MireloOrvane 目录，"
    "或设置 OPENAI_* / DEEPSEEK_* 环境变量后，可测试真实模型接口。";

// The page with a model that answers from a script.
struct Chat
{
    void ask(const QString &question)
    {
        input->setPlainText(question);
        send->click();
    }

    // What is shown below the welcome note.
    QString transcript() const { return history->toPlainText().mid(QString(welcome).size() + 1); }

    bool isIdle() const { return send->isEnabled() && !stop->isEnabled(); }
    bool isBusy() const { return !send->isEnabled() && stop->isEnabled(); }

    HeldModel model;
    QObject replyParent;
    int modelRequests = 0;
    BasicChatPage page{[this] {
                           ++modelRequests;
                           return &model;
                       },
                       &replyParent};
    AgentChatPanel *panel = page.findChild<AgentChatPanel *>();
    QTextBrowser *history = page.findChild<QTextBrowser *>("agentChatHistory");
    QPlainTextEdit *input = page.findChild<QPlainTextEdit *>("agentChatInput");
    QPushButton *send = page.findChild<QPushButton *>("agentChatSend");
    QPushButton *stop = page.findChild<QPushButton *>("agentChatStop");
};

} // namespace

class TestBasicChatPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void formStandsLeftOfTheChat();
    void welcomeNoteIsShownBeforeAnyModelIsAsked();
    void questionIsSentWithTheSystemMessageAlone();
    void answerStreamsAndEndsIdleWithTheReplyDeleted();
    void failureIsShownAsANoteAndEndsIdle();
    void percentSignsAndTagsAreShownAsTheyAre();
    void stopCancelsTheReplyAndIsIdleAtOnce();
    void stoppedReplyChangesNothingAnyMore();
    void stopCancelsTheRunningReplyAfterEarlierOnesEnded();
    void newQuestionStartsANewBlockAfterAStop();
    void newQuestionStartsANewBlockAfterAFailure();
    void modelIsAskedForAtEveryQuestion();
};

void TestBasicChatPage::formStandsLeftOfTheChat()
{
    const Chat chat;
    auto *layout = qobject_cast<QHBoxLayout *>(chat.page.layout());

    QVERIFY(layout);
    QCOMPARE(layout->contentsMargins(), QMargins(14, 14, 14, 14));
    QCOMPARE(layout->spacing(), 14);
    QCOMPARE(layout->count(), 2);
    auto *group = qobject_cast<QGroupBox *>(layout->itemAt(0)->widget());
    QVERIFY(group);
    QCOMPARE(group->title(), "模型配置");
    QCOMPARE(group->minimumWidth(), 320);
    QCOMPARE(layout->stretch(0), 0);
    QCOMPARE(group->layout()->itemAt(0)->widget(), chat.page.modelConfig());
    QVERIFY(group->layout()->itemAt(1)->spacerItem());
    QCOMPARE(layout->itemAt(1)->widget(), chat.panel);
    QCOMPARE(layout->stretch(1), 1);
}

void TestBasicChatPage::welcomeNoteIsShownBeforeAnyModelIsAsked()
{
    const Chat chat;

    QCOMPARE(chat.history->toPlainText(), welcome);
    QVERIFY(chat.isIdle());
    QCOMPARE(chat.modelRequests, 0);
}

void TestBasicChatPage::questionIsSentWithTheSystemMessageAlone()
{
    Chat chat;
    chat.model.addText({"one"});
    chat.ask("first");
    QTRY_VERIFY(chat.isIdle());

    chat.ask(" second ");

    QCOMPARE(chat.model.calls().size(), 2);
    const HeldModel::Call &call = chat.model.lastCall();
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(call.messages.at(0).role, "system");
    QCOMPARE(call.messages.at(0).content, "你是 Qt Orvane，一个嵌入 Qt Widgets 演示程序的简洁助手。");
    QCOMPARE(call.messages.at(1).role, "user");
    QCOMPARE(call.messages.at(1).content, "second");
    QVERIFY(call.tools.isEmpty());
    QCOMPARE(call.parent.data(), &chat.replyParent);
}

void TestBasicChatPage::answerStreamsAndEndsIdleWithTheReplyDeleted()
{
    Chat chat;
    chat.ask("question");
    const QPointer<ChatReply> reply = chat.model.lastCall().reply;

    QVERIFY(chat.isBusy());
    QCOMPARE(chat.transcript(), "用户\nquestion\n智能体\n");
    reply->appendDelta("one ");
    QCOMPARE(chat.transcript(), "用户\nquestion\n智能体\none ");
    reply->appendDelta("two");
    QVERIFY(chat.isBusy());
    reply->finish("one two");

    QCOMPARE(chat.transcript(), "用户\nquestion\n智能体\none two");
    QVERIFY(chat.isIdle());
    QTRY_VERIFY(reply.isNull());
}

void TestBasicChatPage::failureIsShownAsANoteAndEndsIdle()
{
    Chat chat;
    chat.ask("question");
    const QPointer<ChatReply> reply = chat.model.lastCall().reply;
    reply->appendDelta("half");
    reply->fail("No answer.\nURL: http://a");

    QCOMPARE(chat.transcript(), "用户\nquestion\n智能体\nhalf\n系统\nNo answer.\nURL: http://a");
    QVERIFY(chat.isIdle());
    QTRY_VERIFY(reply.isNull());
}

void TestBasicChatPage::percentSignsAndTagsAreShownAsTheyAre()
{
    Chat chat;
    chat.ask("%1 <b>%2</b>");
    chat.model.lastCall().reply->appendDelta("<i>%3</i>");
    chat.model.lastCall().reply->fail("<u>%1</u>");

    QCOMPARE(chat.transcript(), "用户\n%1 <b>%2</b>\n智能体\n<i>%3</i>\n系统\n<u>%1</u>");
}

void TestBasicChatPage::stopCancelsTheReplyAndIsIdleAtOnce()
{
    Chat chat;
    chat.ask("question");
    const QPointer<ChatReply> reply = chat.model.lastCall().reply;
    reply->appendDelta("half");

    chat.stop->click();

    QVERIFY(reply->isCanceled());
    QVERIFY(chat.isIdle());
    QCOMPARE(chat.transcript(), "用户\nquestion\n智能体\nhalf");
}

void TestBasicChatPage::stoppedReplyChangesNothingAnyMore()
{
    Chat chat;
    chat.ask("first");
    const QPointer<ChatReply> stopped = chat.model.lastCall().reply;
    chat.stop->click();
    chat.ask("second");
    const QString transcript = chat.transcript();

    stopped->appendDelta("late");
    stopped->finish("late");
    stopped->fail("late");

    QCOMPARE(chat.transcript(), transcript);
    QVERIFY(chat.isBusy());
}

void TestBasicChatPage::stopCancelsTheRunningReplyAfterEarlierOnesEnded()
{
    Chat chat;
    chat.model.addText({"one"});
    chat.ask("first");
    QTRY_VERIFY(chat.isIdle());
    chat.ask("second");
    const QPointer<ChatReply> second = chat.model.lastCall().reply;
    chat.stop->click();
    chat.ask("third");
    const QPointer<ChatReply> third = chat.model.lastCall().reply;
    QSignalSpy secondCanceled(second, &ChatReply::canceled);

    chat.stop->click();

    QVERIFY(third->isCanceled());
    QCOMPARE(secondCanceled.count(), 0);
    QVERIFY(chat.isIdle());
}

void TestBasicChatPage::newQuestionStartsANewBlockAfterAStop()
{
    Chat chat;
    chat.ask("first");
    chat.model.lastCall().reply->appendDelta("half");
    chat.stop->click();
    chat.ask("second");
    chat.model.lastCall().reply->appendDelta("whole");

    QCOMPARE(chat.transcript(), "用户\nfirst\n智能体\nhalf\n用户\nsecond\n智能体\nwhole");
}

void TestBasicChatPage::newQuestionStartsANewBlockAfterAFailure()
{
    Chat chat;
    chat.ask("first");
    chat.model.lastCall().reply->fail("no");
    chat.ask("second");
    chat.model.lastCall().reply->appendDelta("whole");

    QCOMPARE(chat.transcript(), "用户\nfirst\n智能体\n\n系统\nno\n用户\nsecond\n智能体\nwhole");
}

void TestBasicChatPage::modelIsAskedForAtEveryQuestion()
{
    Chat chat;
    chat.ask("first");
    QCOMPARE(chat.modelRequests, 1);
    chat.stop->click();
    QCOMPARE(chat.modelRequests, 1);
    chat.ask("second");
    QCOMPARE(chat.modelRequests, 2);
    chat.stop->click();
    chat.ask(" ");
    QCOMPARE(chat.modelRequests, 2);
}

QTEST_MAIN(TestBasicChatPage)
#include "tst_basicchatpage.moc"
