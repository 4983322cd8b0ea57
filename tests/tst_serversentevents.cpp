#include <qtagent/mcp/serversentevents_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestServerSentEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eventsAreTheSameHoweverTheyArrive_data();
    void eventsAreTheSameHoweverTheyArrive();
    void idAndRetryAreKept();
    void streamCanBeginAnew();
    void longEventsStopTheReader_data();
    void longEventsStopTheReader();
};

namespace {

constexpr int maximumLength = 100;

QList<QByteArray> eventsOf(ServerSentEvents &events)
{
    QList<QByteArray> list;
    QByteArray data;
    while (events.takeEvent(&data))
        list.append(data);
    return list;
}

} // namespace

void TestServerSentEvents::eventsAreTheSameHoweverTheyArrive_data()
{
    using List = QList<QByteArray>;
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QList<QByteArray>>("expected");
    const auto add = [](const char *name, const QByteArray &bytes, const List &expected) {
        QTest::newRow(name) << bytes << expected;
    };
    add("one", "data: {\"a\":1}\n\n", {"{\"a\":1}"});
    add("two", "data: a\n\ndata: b\n\n", {"a", "b"});
    add("carriage returns", "data: a\r\rdata: b\r\r", {"a", "b"});
    add("both", "data: a\r\n\r\ndata: b\r\n\r\n", {"a", "b"});
    add("mixed", "data: a\r\ndata: b\n\rdata: c\r\n\n", {"a\nb", "c"});
    add("several lines", "data: a\ndata:b\ndata:  c\ndata\n\n", {"a\nb\n c\n"});
    add("no blank", "data:a\n\n", {"a"});
    add("named", "event: message\nid: 1\ndata: a\n\n", {"a"});
    add("comments and unknown fields", ": keep\nfoo: x\n:data: y\ndata: a\ndatax: z\n\n", {"a"});
    add("without data", "id: 1\n\nevent: ping\n\ndata: \n\ndata\n\ndata: a\n\n", {"a"});
    add("no end", "data: a\n\ndata: b\n", {"a"});
    add("byte order mark",
        "\xEF\xBB\xBF"
        "data: a\n\ndata: b\n\n",
        {"a", "b"});
    add("characters", "data: 水泵\n\n", {"水泵"});
}

void TestServerSentEvents::eventsAreTheSameHoweverTheyArrive()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QList<QByteArray>, expected);
    for (const int portion : {1000, 1, 2, 5}) {
        ServerSentEvents events(maximumLength);
        QList<QByteArray> taken;
        for (int i = 0; i < bytes.size(); i += portion) {
            events.append(bytes.mid(i, portion));
            taken += eventsOf(events);
        }
        QCOMPARE(taken, expected);
        QVERIFY(!events.isEventTooLong());
    }
}

void TestServerSentEvents::idAndRetryAreKept()
{
    ServerSentEvents events(maximumLength);
    QCOMPARE(events.lastEventId(), QByteArray());
    QCOMPARE(events.retryMs(), -1);
    events.append("id: a-1\nretry: 250\ndata: x\n\nretry: soon\nretry: -5\n\n");
    QCOMPARE(eventsOf(events), QList<QByteArray>{"x"});
    QCOMPARE(events.lastEventId(), QByteArray("a-1"));
    QCOMPARE(events.retryMs(), 250);
    events.append("id: " + QByteArray("a\0b", 3) + "\nretry: 99999999999\n\n");
    eventsOf(events);
    QCOMPARE(events.lastEventId(), QByteArray("a-1"));
    QCOMPARE(events.retryMs(), std::numeric_limits<int>::max());
    events.append("id\n\n");
    eventsOf(events);
    QCOMPARE(events.lastEventId(), QByteArray());
}

void TestServerSentEvents::streamCanBeginAnew()
{
    ServerSentEvents events(maximumLength);
    events.append("id: 7\n\nid: 8\ndata: half an event\ndata: half a li");
    QVERIFY(eventsOf(events).isEmpty());
    QCOMPARE(events.lastEventId(), QByteArray("7"));
    events.restart();
    events.append("\xEF\xBB\xBF"
                  "data: whole\n\n");
    QCOMPARE(eventsOf(events), QList<QByteArray>{"whole"});
    QCOMPARE(events.lastEventId(), QByteArray("7"));
}

void TestServerSentEvents::longEventsStopTheReader_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("line") << QByteArray("data: ") + QByteArray(200, 'x') + "\n\n";
    QTest::newRow("line without an end") << QByteArray(200, 'x');
    QTest::newRow("lines") << QByteArray("data: 123456789\n").repeated(20);
}

void TestServerSentEvents::longEventsStopTheReader()
{
    QFETCH(QByteArray, bytes);
    ServerSentEvents events(maximumLength);
    events.append("data: a\n\n" + bytes);
    QCOMPARE(eventsOf(events), QList<QByteArray>{"a"});
    QVERIFY(events.isEventTooLong());
    events.append("\n\ndata: b\n\n");
    QVERIFY(eventsOf(events).isEmpty());
}

QTEST_APPLESS_MAIN(TestServerSentEvents)
#include "tst_serversentevents.moc"
