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

// Thinks, and says nothing.
class SilentThinker : public ChatModel
{
public:
    ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        auto *reply = new CompletionReply(parent);
        QObject::connect(reply, &CompletionReply::canceled, reply, [] {});
        reply->appendReasoning("A valve...");
        return reply;
    }
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
    void openingWritesNothing();
    void twoWindowsOnOneConversationMakeNoCopy();
    void failureIsToldAndTriedAgain();
    void failureIsNotTriedWithEachStep();
    void nothingElseIsOpenedWhileSomethingIsNotSaved();
    void thinkingStaysWhereTheRunEndsBeforeItsText();
    void replacedAnswerStaysUntilAnotherArrives();
    void replacedAnswerIsBackWhereNoneArrives_data();
    void replacedAnswerIsBackWhereNoneArrives();
    void replacingIsUndone();
    void replacingIsNotUndoneBehindAnotherQuestion();
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

void TestConversationKeeper::openingWritesNothing()
{
    KeeperFixture fixture;
    Conversation kept = fixture.store.load(fixture.keep("Pumps", {"What is a pump?", "It moves water."}));
    kept.model = "other-model";
    QVERIFY(fixture.store.save(&kept));
    QVERIFY(fixture.keeper.open(kept.id));
    QVERIFY(fixture.keeper.begin());
    QCOMPARE(fixture.store.load(kept.id), kept);
    QVERIFY(fixture.keeper.open(kept.id));
    fixture.session.send("Why?");
    QCOMPARE(fixture.store.load(kept.id).model, "test-model");
}

void TestConversationKeeper::twoWindowsOnOneConversationMakeNoCopy()
{
    KeeperFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?", "It moves water."});
    QVERIFY(fixture.keeper.open(id));
    ConversationStore otherStore;
    QVERIFY(otherStore.open(fixture.path()));
    AgentSession otherSession;
    ConversationKeeper other(&otherStore, &otherSession);
    QVERIFY(other.open(id));
    fixture.session.send("Why?");
    QCOMPARE(fixture.keeper.conversation().id, id);
    QCOMPARE(fixture.store.list().size(), 1);
}

void TestConversationKeeper::failureIsToldAndTriedAgain()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    fixture.store.close();
    QSignalSpy changed(&fixture.keeper, &ConversationKeeper::savedChanged);
    fixture.model.lastCall().reply->finish("It closes.");
    QCOMPARE(changed.count(), 1);
    QVERIFY(!fixture.keeper.isSaved());
    QCOMPARE(fixture.keeper.saveError(), "The store is not open.");
    QVERIFY(fixture.store.open(fixture.path()));
    QTRY_VERIFY(fixture.keeper.isSaved());
    QCOMPARE(changed.count(), 2);
    QCOMPARE(fixture.kept(), QStringList({"What is a valve?", "It closes."}));
}

void TestConversationKeeper::failureIsNotTriedWithEachStep()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    fixture.store.close();
    fixture.model.lastCall().reply->finish("It closes.");
    QVERIFY(fixture.store.open(fixture.path()));
    fixture.session.send("Why?");
    QCOMPARE(fixture.kept(), QStringList("What is a valve?"));
    QVERIFY(fixture.keeper.finish());
    QCOMPARE(fixture.kept(), QStringList({"What is a valve?", "It closes.", "Why?"}));
}

void TestConversationKeeper::nothingElseIsOpenedWhileSomethingIsNotSaved()
{
    KeeperFixture fixture;
    fixture.session.send("What is a valve?");
    fixture.store.close();
    fixture.model.lastCall().reply->finish("It closes.");
    QVERIFY(!fixture.keeper.begin());
    QCOMPARE(fixture.session.conversation().size(), 2);
    fixture.keeper.discard();
    QVERIFY(fixture.keeper.begin());
    QCOMPARE(fixture.session.conversation().size(), 0);
}

void TestConversationKeeper::thinkingStaysWhereTheRunEndsBeforeItsText()
{
    KeeperFixture fixture;
    SilentThinker model;
    AnswerWatch watch;
    watch.setModel(&model);
    fixture.session.setModel(&watch);
    fixture.keeper.setWatch(&watch);
    fixture.session.send("What is a valve?");
    fixture.session.cancel();
    const QVector<StoredMessage> messages = fixture.store.load(fixture.keeper.conversation().id).messages;
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.last().message.metadata.value(MessageKey::thinking()).toString(), "A valve...");
}

void TestConversationKeeper::replacedAnswerStaysUntilAnotherArrives()
{
    KeeperFixture fixture;
    QVERIFY(fixture.keeper.open(fixture.keep("Pumps", {"What is a pump?", "No idea.", "Why?", "Because."})));
    QVERIFY(fixture.keeper.askAgain(1));
    QCOMPARE(fixture.session.conversation().size(), 1);
    QCOMPARE(fixture.kept().size(), 4);
    QSignalSpy replaced(&fixture.keeper, &ConversationKeeper::replaced);
    fixture.model.lastCall().reply->appendDelta("It moves");
    QTRY_COMPARE(fixture.kept(), QStringList({"What is a pump?", "It moves"}));
    fixture.model.lastCall().reply->finish("It moves water.");
    QCOMPARE(fixture.kept(), QStringList({"What is a pump?", "It moves water."}));
    QCOMPARE(replaced.count(), 1);
}

void TestConversationKeeper::replacedAnswerIsBackWhereNoneArrives_data()
{
    QTest::addColumn<QString>("question");
    QTest::newRow("asked again") << "";
    QTest::newRow("asked something else") << "What is a valve?";
}

void TestConversationKeeper::replacedAnswerIsBackWhereNoneArrives()
{
    QFETCH(QString, question);
    KeeperFixture fixture;
    Conversation kept = fixture.store.load(fixture.keep("Pumps", {"What is a pump?", "No idea.", "Why?"}));
    kept.messages[1].completionTokens = 3;
    QVERIFY(fixture.store.save(&kept));
    QVERIFY(fixture.keeper.open(kept.id));
    QSignalSpy restored(&fixture.keeper, &ConversationKeeper::restored);
    QVERIFY(question.isEmpty() ? fixture.keeper.askAgain(0) : fixture.keeper.askInstead(0, question));
    fixture.model.lastCall().reply->fail("no network");
    QCOMPARE(restored.count(), 1);
    QCOMPARE(fixture.session.conversation(), kept.chatMessages());
    QCOMPARE(fixture.store.load(kept.id), kept);
}

void TestConversationKeeper::replacingIsUndone()
{
    KeeperFixture fixture;
    const QStringList texts{"What is a pump?", "No idea.", "Why?", "Because."};
    QVERIFY(fixture.keeper.open(fixture.keep("Pumps", texts)));
    QVERIFY(!fixture.keeper.undoReplacing());
    QVERIFY(fixture.keeper.askInstead(2, "When?"));
    QVERIFY(!fixture.keeper.undoReplacing());
    fixture.model.lastCall().reply->finish("Now.");
    QCOMPARE(fixture.kept(), QStringList({"What is a pump?", "No idea.", "When?", "Now."}));
    QVERIFY(fixture.keeper.undoReplacing());
    QCOMPARE(fixture.kept(), texts);
    QVERIFY(!fixture.keeper.undoReplacing());
}

void TestConversationKeeper::replacingIsNotUndoneBehindAnotherQuestion()
{
    KeeperFixture fixture;
    QVERIFY(fixture.keeper.open(fixture.keep("Pumps", {"What is a pump?", "No idea."})));
    QVERIFY(fixture.keeper.askAgain(0));
    fixture.model.lastCall().reply->finish("It moves water.");
    fixture.session.send("Why?");
    fixture.model.lastCall().reply->finish("Because.");
    QVERIFY(!fixture.keeper.undoReplacing());
    QCOMPARE(fixture.kept().size(), 4);
}

QTEST_GUILESS_MAIN(TestConversationKeeper)
#include "tst_conversationkeeper.moc"
