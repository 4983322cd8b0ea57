#include "support/assistantfixture.h"

#include <assistant/conversationkeeper.h>

using namespace MireloQtLib::QtAgent;

class KeeperFixture : public AssistantFixture
{
public:
    KeeperFixture()
    {
        session.setModel(&model);
        keeper.setModelName("test-model");
    }

    QStringList kept() const { return textsOf(keeper.conversation().id); }
    QString keptEnd() const
    {
        return store.load(keeper.conversation().id)
            .messages.last()
            .message.metadata.value(MessageKey::end())
            .toString();
    }

    AgentSession session;
    ConversationKeeper keeper{&store, &session};
};

class TestConversationKeeper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conversationIsKeptFromItsFirstQuestionOn();
    void growingAnswerIsKeptEverySecond();
    void stoppedAnswerSaysSo();
    void failedAnswerSaysSo();
    void anotherConversationIsOpened();
    void missingConversationLeavesTheCurrentOne();
    void titlesAreTheBeginningOfTheQuestion_data();
    void titlesAreTheBeginningOfTheQuestion();
    void renamedConversationIsKept();
    void conversationRemovedElsewhereGoesOnAsACopy();
    void conversationChangedElsewhereGoesOnAsACopy();
    void failureIsTold();
};

void TestConversationKeeper::conversationIsKeptFromItsFirstQuestionOn()
{
    KeeperFixture fixture;
    QCOMPARE(fixture.store.list().size(), 0);
    fixture.model.addText({"A ", "valve."});
    fixture.session.send("What is it?");
    QCOMPARE(fixture.kept(), QStringList("What is it?"));
    QTRY_COMPARE(fixture.kept(), QStringList({"What is it?", "A valve."}));
    QCOMPARE(fixture.keeper.conversation().title, "What is it?");
    QCOMPARE(fixture.keeper.conversation().messages.last().model, "test-model");
    QCOMPARE(fixture.keptEnd(), QString());
}

void TestConversationKeeper::growingAnswerIsKeptEverySecond()
{
    KeeperFixture fixture;
    fixture.session.send("What is it?");
    QElapsedTimer clock;
    clock.start();
    fixture.model.lastCall().reply->appendDelta("A val");
    QTRY_COMPARE(fixture.kept(), QStringList({"What is it?", "A val"}));
    QVERIFY2(clock.elapsed() >= 400, "It is not written with each delta.");
    QCOMPARE(fixture.keptEnd(), "incomplete");
    fixture.model.lastCall().reply->appendDelta("ve.");
    QTRY_COMPARE(fixture.kept(), QStringList({"What is it?", "A valve."}));
    fixture.model.lastCall().reply->finish("A valve.");
    QCOMPARE(fixture.keptEnd(), QString());
}

void TestConversationKeeper::stoppedAnswerSaysSo()
{
    KeeperFixture fixture;
    fixture.session.send("What is it?");
    fixture.model.lastCall().reply->appendDelta("A val");
    fixture.session.cancel();
    QCOMPARE(fixture.kept(), QStringList({"What is it?", "A val"}));
    QCOMPARE(fixture.keptEnd(), "stopped");
}

void TestConversationKeeper::failedAnswerSaysSo()
{
    KeeperFixture fixture;
    fixture.session.send("What is it?");
    fixture.model.lastCall().reply->appendDelta("A val");
    fixture.model.lastCall().reply->fail("no network");
    QCOMPARE(fixture.kept(), QStringList({"What is it?", "A val"}));
    QCOMPARE(fixture.keptEnd(), "failed");
}

void TestConversationKeeper::anotherConversationIsOpened()
{
    KeeperFixture fixture;
    const QString pumps = fixture.keep("Pumps", {"What is a pump?", "It moves water."});
    fixture.session.send("What is a valve?");
    const QString valves = fixture.keeper.conversation().id;
    fixture.model.lastCall().reply->appendDelta("It clo");
    QSignalSpy opened(&fixture.keeper, &ConversationKeeper::opened);
    QVERIFY(fixture.keeper.open(pumps));
    QCOMPARE(opened.count(), 1);
    QCOMPARE(fixture.textsOf(valves), QStringList({"What is a valve?", "It clo"}));
    QCOMPARE(fixture.keeper.conversation().id, pumps);
    QCOMPARE(fixture.session.conversation().size(), 2);
    fixture.keeper.begin();
    QCOMPARE(fixture.keeper.conversation().id, QString());
    QCOMPARE(fixture.session.conversation().size(), 0);
    QCOMPARE(fixture.store.list().size(), 2);
}

void TestConversationKeeper::missingConversationLeavesTheCurrentOne()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    QSignalSpy failed(&fixture.keeper, &ConversationKeeper::failed);
    QVERIFY(!fixture.keeper.open("unknown"));
    QCOMPARE(failed, QList<QVariantList>({{"There is no such conversation."}}));
    QVERIFY(fixture.session.isRunning());
}

void TestConversationKeeper::titlesAreTheBeginningOfTheQuestion_data()
{
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("title");
    QTest::newRow("one line") << "What is it?"
                              << "What is it?";
    QTest::newRow("the first of several") << "\n  What \t is it?\nAnd why?"
                                          << "What is it?";
    QTest::newRow("at most 40 characters") << QString(41, 'x') << QString(39, 'x') + QChar(0x2026);
    QTest::newRow("40 characters") << QString(40, 'x') << QString(40, 'x');
    const QString face = QString::fromUtf8("\xf0\x9f\x98\x80");
    QTest::newRow("no half character") << QString(38, 'x') + face + "yyy" << QString(38, 'x') + QChar(0x2026);
}

void TestConversationKeeper::titlesAreTheBeginningOfTheQuestion()
{
    QFETCH(QString, question);
    QFETCH(QString, title);
    QCOMPARE(ConversationKeeper::titleFor(question), title);
}

void TestConversationKeeper::renamedConversationIsKept()
{
    KeeperFixture fixture;
    const QString pumps = fixture.keep("Pumps", {"What is a pump?"});
    fixture.session.send("What is a valve?");
    QVERIFY(fixture.keeper.rename(fixture.keeper.conversation().id, "Valves"));
    QVERIFY(fixture.keeper.rename(pumps, "Water pumps"));
    fixture.model.lastCall().reply->finish("It closes.");
    QCOMPARE(fixture.store.load(fixture.keeper.conversation().id).title, "Valves");
    QCOMPARE(fixture.store.load(pumps).title, "Water pumps");
    QSignalSpy failed(&fixture.keeper, &ConversationKeeper::failed);
    QVERIFY(!fixture.keeper.rename("unknown", "Tanks"));
    QCOMPARE(failed.count(), 1);
}

void TestConversationKeeper::conversationRemovedElsewhereGoesOnAsACopy()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    const QString removed = fixture.keeper.conversation().id;
    QVERIFY(fixture.store.remove(removed));
    QSignalSpy failed(&fixture.keeper, &ConversationKeeper::failed);
    fixture.model.lastCall().reply->finish("It closes.");
    QVERIFY(fixture.keeper.conversation().id != removed);
    QCOMPARE(fixture.kept(), QStringList({"What is a valve?", "It closes."}));
    QCOMPARE(failed.count(), 0);
}

void TestConversationKeeper::conversationChangedElsewhereGoesOnAsACopy()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    Conversation other = fixture.store.load(fixture.keeper.conversation().id);
    other.messages[0].message.content = "What is a pump?";
    QVERIFY(fixture.store.save(&other));
    fixture.model.lastCall().reply->finish("It closes.");
    QCOMPARE(fixture.kept(), QStringList({"What is a valve?", "It closes."}));
    QCOMPARE(fixture.textsOf(other.id), QStringList("What is a pump?"));
}

void TestConversationKeeper::failureIsTold()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    fixture.store.close();
    QSignalSpy failed(&fixture.keeper, &ConversationKeeper::failed);
    fixture.model.lastCall().reply->finish("It closes.");
    QCOMPARE(failed.value(0), QVariantList{"The store is not open."});
    QCOMPARE(failed.count(), 1);
}

QTEST_GUILESS_MAIN(TestConversationKeeper)
#include "tst_conversationkeeper.moc"
