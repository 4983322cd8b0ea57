#include <qtagent/reasoningmemory_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// How long reasoning is remembered.
class TestReasoningMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lastThousandRoundsAreKept();
    void newestRoundWins();
};

namespace {

const QUrl url("http://127.0.0.1/v1/chat/completions");

QJsonArray callsOf(int round)
{
    return {makeToolCall(QString::number(round), "read", {})};
}

// The reasoning that goes back with the calls of @p round.
QJsonValue reasoningOf(const ReasoningMemory &memory, int round)
{
    const QJsonArray messages = memory.toJson(url, {ChatMessage::assistant("", callsOf(round))});
    return messages.at(0).toObject().value("reasoning");
}

} // namespace

void TestReasoningMemory::lastThousandRoundsAreKept()
{
    ReasoningMemory memory;
    for (int round = 0; round <= 1000; ++round)
        memory.remember(url, callsOf(round), {{"reasoning", QString::number(round)}});
    QCOMPARE(reasoningOf(memory, 0), QJsonValue(QJsonValue::Undefined));
    QCOMPARE(reasoningOf(memory, 1), QJsonValue("1"));
    QCOMPARE(reasoningOf(memory, 1000), QJsonValue("1000"));
}

void TestReasoningMemory::newestRoundWins()
{
    ReasoningMemory memory;
    memory.remember(url, callsOf(1), {{"reasoning", "old"}});
    memory.remember(url, callsOf(1), {{"reasoning", "new"}});
    QCOMPARE(reasoningOf(memory, 1), QJsonValue("new"));
}

QTEST_APPLESS_MAIN(TestReasoningMemory)
#include "tst_reasoningmemory.moc"
