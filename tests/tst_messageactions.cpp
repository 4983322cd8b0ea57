#include "support/heldmodel.h"

#include <assistant/messageactions.h>

#include <qtagent/agentsession.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestMessageActions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void questionOfAMessage_data();
    void questionOfAMessage();
    void questionIsAskedAgain();
    void questionIsReplaced();
    void nothingHappensWhileARunIsInFlight();

private:
    QStringList asked() const
    {
        QStringList texts;
        for (const ChatMessage &message : m_model->lastCall().messages)
            texts.append(message.content);
        return texts;
    }

    QScopedPointer<HeldModel> m_model;
    QScopedPointer<AgentSession> m_session;
};

void TestMessageActions::init()
{
    m_session.reset();
    m_model.reset(new HeldModel);
    m_session.reset(new AgentSession);
    m_session->setModel(m_model.data());
    m_session->setConversation({ChatMessage::system("Be short."), ChatMessage::user("A pump?"),
                                ChatMessage::assistant("It moves."), ChatMessage::user("A valve?"),
                                ChatMessage::assistant("It closes.")});
}

void TestMessageActions::questionOfAMessage_data()
{
    QTest::addColumn<int>("message");
    QTest::addColumn<int>("question");
    QTest::newRow("an answer") << 4 << 3;
    QTest::newRow("a question") << 1 << 1;
    QTest::newRow("an instruction") << 0 << -1;
    QTest::newRow("none") << -1 << -1;
    QTest::newRow("behind the end") << 9 << 3;
}

void TestMessageActions::questionOfAMessage()
{
    QFETCH(int, message);
    QFETCH(int, question);
    QCOMPARE(questionOf(m_session->conversation(), message), question);
}

void TestMessageActions::questionIsAskedAgain()
{
    QVERIFY(askAgain(m_session.data(), 2));
    QCOMPARE(asked(), QStringList({"Be short.", "A pump?"}));
    m_model->lastCall().reply->finish("It lifts.");
    QCOMPARE(m_session->conversation().size(), 3);
    QVERIFY(!askAgain(m_session.data(), 0));
}

void TestMessageActions::questionIsReplaced()
{
    QVERIFY(askInstead(m_session.data(), 4, "A tank?"));
    QCOMPARE(asked(), QStringList({"Be short.", "A pump?", "It moves.", "A tank?"}));
    m_model->lastCall().reply->finish("It holds.");
    QCOMPARE(m_session->conversation().last().content, "It holds.");
}

void TestMessageActions::nothingHappensWhileARunIsInFlight()
{
    m_session->send("A tank?");
    QVERIFY(!askAgain(m_session.data(), 1));
    QVERIFY(!askInstead(m_session.data(), 1, "A drum?"));
    QCOMPARE(m_model->calls().size(), 1);
    QCOMPARE(m_session->conversation().size(), 6);
}

QTEST_GUILESS_MAIN(TestMessageActions)
#include "tst_messageactions.moc"
