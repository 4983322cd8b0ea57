#include <assistant/conversationkeeper.h>
#include <assistant/transcriptpresenter.h>

#include <qtagent/widgets/markdowntranscript.h>

#include <QScrollBar>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestTranscriptPresenter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messagesAreShownByTheirRole();
    void streamedAnswerIsShownOnce();
    void whatIsShownStaysInPlace();
    void longResultsAreCutBetweenCharacters();
    void otherConversationReplacesWhatIsShown();
    void unfinishedAnswerSaysWhy_data();
    void unfinishedAnswerSaysWhy();
    void arrivingAnswerSurvivesARepaint();
    void longConversationIsShownFromItsEnd();
    void earlierMessagesFollowWhereTheReaderScrollsUp();
};

static QString shown(const MarkdownTranscript &transcript)
{
    return transcript.toPlainText().simplified();
}

static ChatMessage withEnd(ChatMessage message, const QString &end)
{
    message.metadata.insert(MessageKey::end(), end);
    return message;
}

void TestTranscriptPresenter::messagesAreShownByTheirRole()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    const QJsonArray calls{makeToolCall("1", "clock", {})};
    presenter.setMessages({ChatMessage::system("Be short."), ChatMessage::user("*When?*"),
                           ChatMessage::assistant("", calls), ChatMessage::tool("1", "clock", "12:00"),
                           ChatMessage::assistant("It is **noon**.")});
    QCOMPARE(shown(transcript), "我 *When?* 工具 clock 12:00 助手 It is noon.");
    QCOMPARE(presenter.messageAt(0), 1);
    QCOMPARE(presenter.messageAt(2), 4);
    QCOMPARE(presenter.messageAt(3), -1);
    QCOMPARE(presenter.shownAt(3), 1);
    QCOMPARE(presenter.shownAt(2), -1);
}

void TestTranscriptPresenter::streamedAnswerIsShownOnce()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages({ChatMessage::user("What is it?")});
    presenter.appendDelta("A ");
    presenter.appendDelta("valve.");
    presenter.setMessages({ChatMessage::user("What is it?"), ChatMessage::assistant("A valve.")});
    QCOMPARE(shown(transcript), "我 What is it? 助手 A valve.");
    QCOMPARE(presenter.messageAt(1), 1);
}

void TestTranscriptPresenter::whatIsShownStaysInPlace()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages({ChatMessage::user("What is it?")});
    QSignalSpy removed(transcript.document(), &QTextDocument::contentsChange);
    presenter.setMessages({ChatMessage::user("What is it?"), ChatMessage::assistant("A valve.")});
    presenter.setMessages(
        {ChatMessage::user("What is it?"), withEnd(ChatMessage::assistant("A valve."), "stopped")});
    QCOMPARE(transcript.messageCount(), 3);
    QVERIFY(removed.count() > 0);
    for (const QVariantList &change : removed)
        QVERIFY2(change.at(0).toInt() > 0, "The question was written again.");
}

void TestTranscriptPresenter::longResultsAreCutBetweenCharacters()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages({ChatMessage::tool("c1", "read_file", QString(1998, 'x') + "😀😀")});
    QVERIFY(shown(transcript).endsWith(QString("x").repeated(10) + "…"));
}

void TestTranscriptPresenter::otherConversationReplacesWhatIsShown()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages({ChatMessage::user("What is it?")});
    presenter.appendDelta("A val");
    presenter.setMessages({ChatMessage::user("What is a pump?")});
    QCOMPARE(shown(transcript), "我 What is a pump?");
    presenter.setMessages({});
    QCOMPARE(shown(transcript), "");
}

void TestTranscriptPresenter::unfinishedAnswerSaysWhy_data()
{
    QTest::addColumn<QString>("end");
    QTest::addColumn<QString>("note");
    QTest::newRow("stopped") << "stopped"
                             << "已停止，回答不完整。";
    QTest::newRow("failed") << "failed"
                            << "回答中断，不完整。";
    QTest::newRow("cut") << "length"
                         << "回答达到长度上限，被截断。可以在模型设置里提高上限。";
    QTest::newRow("filtered") << "filtered"
                              << "回答被服务的内容过滤截断。";
    QTest::newRow("refused") << "refused"
                             << "模型拒绝回答。";
    QTest::newRow("the program died") << "incomplete"
                                      << "程序在回答完成之前关闭，回答不完整。";
}

void TestTranscriptPresenter::unfinishedAnswerSaysWhy()
{
    QFETCH(QString, end);
    QFETCH(QString, note);
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    const QVector<ChatMessage> messages{ChatMessage::user("What is it?"), ChatMessage::assistant("A val")};
    presenter.setMessages(messages);
    presenter.setMessages({messages.at(0), withEnd(messages.at(1), end)});
    QCOMPARE(shown(transcript), "我 What is it? 助手 A val " + note);
    QCOMPARE(presenter.messageAt(2), 1);
    presenter.setMessages({messages.at(0)});
    QCOMPARE(shown(transcript), "我 What is it?");
}

void TestTranscriptPresenter::arrivingAnswerSurvivesARepaint()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages({ChatMessage::user("What is it?")});
    presenter.appendDelta("A val");
    presenter.repaint();
    presenter.appendDelta("ve.");
    QTRY_COMPARE(shown(transcript), "我 What is it? 助手 A valve.");
}

static QVector<ChatMessage> questions(int count)
{
    QVector<ChatMessage> messages;
    for (int i = 0; i < count; ++i)
        messages.append(ChatMessage::user(QString::number(i)));
    return messages;
}

void TestTranscriptPresenter::longConversationIsShownFromItsEnd()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    presenter.setMessages(questions(1000));
    QCOMPARE(transcript.messageCount(), 201);
    QVERIFY(shown(transcript).startsWith("还有 800 条更早的消息，向上滚动就会显示。 我 800 我 801"));
    QCOMPARE(presenter.messageAt(0), -1);
    QCOMPARE(presenter.messageAt(1), 800);
    QCOMPARE(presenter.shownAt(999), 200);
    QCOMPARE(presenter.shownAt(3), -1);
    presenter.setMessages(questions(1001));
    QCOMPARE(transcript.messageCount(), 202);
    presenter.showFrom(3);
    QCOMPARE(presenter.messageAt(1), 3);
    presenter.showFrom(0);
    QCOMPARE(transcript.messageCount(), 1001);
    presenter.setMessages(questions(2));
    QCOMPARE(shown(transcript), "我 0 我 1");
}

void TestTranscriptPresenter::earlierMessagesFollowWhereTheReaderScrollsUp()
{
    MarkdownTranscript transcript;
    TranscriptPresenter presenter(&transcript);
    transcript.resize(400, 300);
    transcript.show();
    presenter.setMessages(questions(1000));
    presenter.appendDelta("A val");
    for (const int first : {600, 200, 0}) {
        const int before = presenter.messageAt(1);
        transcript.verticalScrollBar()->setValue(0);
        QTRY_COMPARE(presenter.messageAt(first == 0 ? 0 : 1), first);
        const int top = transcript.messageAt(transcript.cursorForPosition(QPoint(4, 8)).position());
        QCOMPARE(presenter.messageAt(top), before);
        QVERIFY(!transcript.isFollowing());
    }
    QVERIFY(shown(transcript).endsWith("我 999 助手 A val"));
    transcript.verticalScrollBar()->setValue(0);
    QCoreApplication::processEvents();
    QCOMPARE(transcript.messageCount(), 1001);
}

QTEST_MAIN(TestTranscriptPresenter)
#include "tst_transcriptpresenter.moc"
