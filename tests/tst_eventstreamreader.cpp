#include "support/completions.h"
#include "support/heapusage.h"
#include "support/streamtexts.h"

#include <qtagent/eventstreamreader_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestEventStreamReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesBecomeDeltas_data();
    void linesBecomeDeltas();
    void theBodyTellsWhatAReportShows_data();
    void theBodyTellsWhatAReportShows();
    void aStreamMayBeCutAnywhere();
    void bytesMayArriveOneByOne();
    void bytesMayArriveBetweenTwoDeltas();
    void whatWasReadIsNotKept();
};

namespace {

const QByteArray mixedStream = ": comment\r\n\r\n" + deltaEvent("Grüße, 泵")
                             + "event: ping\ndata:" + deltaEvent("\U0001F600 ok").mid(5).trimmed()
                             + "\r\n\ndata: {broken\n" + deltaEvent("。") + doneEvent();
const QStringList mixedDeltas{"Grüße, 泵", "\U0001F600 ok", "。"};

QStringList takeAll(EventStreamReader *reader)
{
    QStringList deltas;
    QString delta;
    while (takeDelta(reader, &delta))
        deltas.append(delta);
    return deltas;
}

} // namespace

void TestEventStreamReader::linesBecomeDeltas_data()
{
    const QByteArray json = R"({"choices":[{"delta":{"content":"hi"}}]})";
    const QStringList hi{"hi"};
    const QStringList none;

    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("deltas");
    QTest::newRow("an event") << "data: " + json + "\n" << hi;
    QTest::newRow("without a blank") << "data:" + json + "\n" << hi;
    QTest::newRow("a carriage return is dropped") << "data: " + json + "\r\n" << hi;
    QTest::newRow("white space around the line and the data") << " \t\v\fdata: \t " + json + " \v\r\n" << hi;
    QTest::newRow("the last line without a line feed is lost") << "data: " + json << none;
    QTest::newRow("[DONE] does not end the stream") << "data: [DONE]\ndata: " + json + "\n" << hi;
    QTest::newRow("a comment") << ": " + json + "\n" << none;
    QTest::newRow("another field") << "id: " + json + "\n" << none;
    QTest::newRow("the field's name in capitals") << "DATA: " + json + "\n" << none;
    QTest::newRow("a blank before the colon") << "data : " + json + "\n" << none;
    QTest::newRow("lines without data") << QByteArray("\n\r\ndata:\ndata\nd\n") << none;
    QTest::newRow("a bad event is skipped") << "data: {\"choices\":[\ndata: " + json + "\n" << hi;
    QTest::newRow("an array is skipped") << "data: [" + json + "]\n" << none;
    QTest::newRow("a scalar is skipped") << QByteArray("data: 1\n") << none;
    QTest::newRow("a carriage return alone ends no line") << "data: " + json + "\rdata: " + json + "\n"
                                                          << none;
    QTest::newRow("no choices") << QByteArray("data: {}\n") << none;
    QTest::newRow("empty choices") << QByteArray("data: {\"choices\":[]}\n") << none;
    QTest::newRow("choices that are no array") << QByteArray("data: {\"choices\":{\"0\":1}}\n") << none;
    QTest::newRow("no delta") << QByteArray("data: {\"choices\":[{\"finish_reason\":\"stop\"}]}\n") << none;
    QTest::newRow("a message instead of a delta")
        << QByteArray("data: {\"choices\":[{\"message\":{\"content\":\"hi\"}}]}\n") << none;
    QTest::newRow("null content") << QByteArray("data: {\"choices\":[{\"delta\":{\"content\":null}}]}\n")
                                  << none;
    QTest::newRow("content that is a number")
        << QByteArray("data: {\"choices\":[{\"delta\":{\"content\":7}}]}\n") << none;
    QTest::newRow("empty content is no delta")
        << QByteArray("data: {\"choices\":[{\"delta\":{\"content\":\"\"}}]}\n") << none;
    QTest::newRow("white space is a delta")
        << QByteArray("data: {\"choices\":[{\"delta\":{\"content\":\" \\n\"}}]}\n") << QStringList{" \n"};
    QTest::newRow("only the first choice counts")
        << QByteArray("data: {\"choices\":[{\"delta\":{\"content\":\"a\"}},"
                      "{\"delta\":{\"content\":\"b\"}}]}\n")
        << QStringList{"a"};
    QTest::newRow("an error object is skipped")
        << QByteArray("data: {\"error\":{\"message\":\"M\"}}\n") << none;
    QTest::newRow("a zero byte") << QByteArray("data: {\"choices\0\":1}\ndata: ", 27) + json + "\n" << hi;
    QTest::newRow("nested deeper than the parser goes")
        << "data: " + QByteArray(200000, '[') + "\ndata: " + json + "\n"
        << hi;
}

void TestEventStreamReader::linesBecomeDeltas()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, deltas);
    EventStreamReader reader;
    reader.append(bytes);
    QCOMPARE(takeAll(&reader), deltas);
}

void TestEventStreamReader::theBodyTellsWhatAReportShows_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("events") << mixedStream;
    QTest::newRow("many events") << deltaEvent("hello").repeated(100);
    QTest::newRow("an error over several lines")
        << QByteArray("\r\n{\n\"error\":\n{\"message\": \"M\"}\n}\n");
    QTest::newRow("text") << QByteArray("Bad Gateway\n").repeated(300);
    QTest::newRow("nothing") << QByteArray();
}

void TestEventStreamReader::theBodyTellsWhatAReportShows()
{
    QFETCH(QByteArray, bytes);
    EventStreamReader reader;
    for (int position = 0; position < bytes.size(); position += 10) {
        reader.append(bytes.mid(position, 10));
        takeAll(&reader);
    }
    QCOMPARE(reader.size(), bytes.size());
    QCOMPARE(bodySummary(reader.body()), bodySummary(bytes));
}

void TestEventStreamReader::aStreamMayBeCutAnywhere()
{
    for (int cut = 0; cut <= mixedStream.size(); ++cut) {
        EventStreamReader reader;
        reader.append(mixedStream.left(cut));
        QStringList deltas = takeAll(&reader);
        reader.append(mixedStream.mid(cut));
        deltas += takeAll(&reader);
        QVERIFY2(deltas == mixedDeltas, qPrintable(QStringLiteral("cut at %1").arg(cut)));
    }
}

void TestEventStreamReader::bytesMayArriveOneByOne()
{
    EventStreamReader reader;
    QStringList deltas;
    for (const char byte : mixedStream) {
        reader.append(QByteArray(1, byte));
        deltas += takeAll(&reader);
    }
    QCOMPARE(deltas, mixedDeltas);
}

void TestEventStreamReader::bytesMayArriveBetweenTwoDeltas()
{
    EventStreamReader reader;
    QString delta;
    reader.append(deltaEvent("a") + deltaEvent("b"));
    QVERIFY(takeDelta(&reader, &delta));
    reader.append(deltaEvent("c"));
    QCOMPARE(delta, "a");
    QCOMPARE(takeAll(&reader), QStringList({"b", "c"}));
}

void TestEventStreamReader::whatWasReadIsNotKept()
{
    if (!heapUsage())
        QSKIP("nobody tells the heap's size here");
    constexpr int megabyte = 1024 * 1024;
    const QByteArray event = deltaEvent(QString(10000, 'x'));
    EventStreamReader reader;
    QString delta;
    const qint64 before = *heapUsage();
    for (qint64 read = 0; read < 20 * megabyte; read += event.size()) {
        reader.append(event.left(500));
        reader.append(event.mid(500) + event.left(100));
        QVERIFY(takeDelta(&reader, &delta));
        reader.append(event.mid(100));
        QVERIFY(takeDelta(&reader, &delta));
    }
    QVERIFY(reader.size() > 20 * megabyte);
    QVERIFY(*heapUsage() - before < megabyte);
}

QTEST_APPLESS_MAIN(TestEventStreamReader)
#include "tst_eventstreamreader.moc"
