#include <qtagent/messagehistory.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestMessageHistory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void historyKeepsMessagesInOrder();
};

void TestMessageHistory::historyKeepsMessagesInOrder()
{
    MessageHistory history;
    QVERIFY(history.messages().isEmpty());
    history.addSystem("s");
    history.addUser("u");
    history.addAssistant("a");
    history.addUser("u");

    QJsonArray messages;
    for (const ChatMessage &message : history.messages())
        messages.append(messageToJson(message));
    QCOMPARE(messages, (QJsonArray{
                           QJsonObject{{"role", "system"}, {"content", "s"}},
                           QJsonObject{{"role", "user"}, {"content", "u"}},
                           QJsonObject{{"role", "assistant"}, {"content", "a"}},
                           QJsonObject{{"role", "user"}, {"content", "u"}},
                       }));
}

QTEST_APPLESS_MAIN(TestMessageHistory)
#include "tst_messagehistory.moc"
