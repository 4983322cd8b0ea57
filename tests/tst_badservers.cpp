#include "support/completionrecorder.h"
#include "support/completions.h"
#include "support/heapusage.h"
#include "support/loopbackserver.h"
#include "support/rawhttpserver.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(QVector<RawStep>)

// What comes of servers that break off, lie or send what nobody asked for.
class TestBadServers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aBrokenAnswerEndsOnce_data();
    void aBrokenAnswerEndsOnce();
    void aBrokenStreamKeepsItsEarlierDeltas_data();
    void aBrokenStreamKeepsItsEarlierDeltas();
    void aRefusedConnectionFails();
    void aLongLineArrives();
    void aLongLineWithoutAnEndIsLost();
    void deeplyNestedAnswersFail();
    void anAnswerLongerThanItsLengthIsCut();
    void everyMissingByteIsNoticed();
    void aCutStreamIsReadToItsEnd();
    void anEncodedAnswerIsNotUnpacked();
    void aFastServerWaitsForTheReader();
    void aFastServerIsStoppedByCancel();
};

namespace {

ModelConfig profile(const QString &baseUrl, bool stream)
{
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.model = "m";
    config.stream = stream;
    return config;
}

QStringList ask(const QString &baseUrl, bool stream)
{
    OpenAICompatibleModel model;
    model.setConfig(profile(baseUrl, stream));
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    recorder.waitForEnd();
    return recorder.entries();
}

const QByteArray chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n";
const QString connectionClosed = "\nNetwork error: 2 (Connection closed)\nResponse: (empty response body)";

} // namespace

void TestBadServers::aBrokenAnswerEndsOnce_data()
{
    QTest::addColumn<QVector<RawStep>>("script");
    QTest::addColumn<QString>("rest");
    QTest::newRow("closes without a byte") << QVector<RawStep>{RawStep::close()} << connectionClosed;
    QTest::newRow("resets without a byte") << QVector<RawStep>{RawStep::reset()} << connectionClosed;
    QTest::newRow("half a head") << QVector<RawStep>{RawStep::send("HTTP/1.1 200 OK\r\nContent-Ty"),
                                                     RawStep::close()}
                                 << connectionClosed;
    QTest::newRow("garbage") << QVector<RawStep>{RawStep::send("\x01\x02 garbage\r\n\r\n"), RawStep::close()}
                             << connectionClosed;
    QTest::newRow("fewer bytes than announced")
        << QVector<RawStep>{RawStep::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"a\""),
                            RawStep::close()}
        << "\nHTTP status: 200 OK\nNetwork error: 2 (Connection closed)\nResponse: {\"a\"";
}

void TestBadServers::aBrokenAnswerEndsOnce()
{
    QFETCH(QVector<RawStep>, script);
    QFETCH(QString, rest);
    for (const bool stream : {false, true}) {
        RawHttpServer server(script);
        const QString report = "failed: OpenAI-compatible request failed.\nURL: " + server.baseUrl()
                             + "/chat/completions" + rest;
        QCOMPARE(ask(server.baseUrl(), stream), QStringList{report});
    }
}

void TestBadServers::aBrokenStreamKeepsItsEarlierDeltas_data()
{
    QTest::addColumn<QVector<RawStep>>("script");
    QTest::addColumn<QStringList>("ends");
    const QByteArray event = deltaEvent("a");
    const QByteArray chunk = QByteArray::number(event.size(), 16) + "\r\n" + event + "\r\n";
    const QByteArray longHead = "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n";
    const QString finished = "finished: a";
    const QString failed = "failed: OpenAI-compatible request failed.\nURL: {url}\nHTTP status: 200 OK\n"
                           "Network error: 2 (Connection closed)\nResponse: "
                         + event.trimmed();
    QTest::newRow("cut inside an event")
        << QVector<RawStep>{RawStep::send(eventStreamHead() + event + "data: {\"cho"), RawStep::close()}
        << QStringList{finished};
    QTest::newRow("a length that is not reached")
        << QVector<RawStep>{RawStep::send(longHead + event), RawStep::close()} << QStringList{failed};
    // Qt calls the loss of a chunked answer's end an error or not, as it happens.
    QTest::newRow("chunks without an end")
        << QVector<RawStep>{RawStep::send(chunkedHead + chunk), RawStep::close()}
        << QStringList{failed, finished};
    QTest::newRow("a reset") << QVector<RawStep>{RawStep::send(chunkedHead + chunk), RawStep::wait(),
                                                 RawStep::reset()}
                             << QStringList{failed, finished};
    QTest::newRow("HTML after an event")
        << QVector<RawStep>{RawStep::send(eventStreamHead() + event + "<html>\n</html>\n"), RawStep::close()}
        << QStringList{finished};
}

void TestBadServers::aBrokenStreamKeepsItsEarlierDeltas()
{
    QFETCH(QVector<RawStep>, script);
    QFETCH(QStringList, ends);
    RawHttpServer server(script);
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl(), true));
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    recorder.onSignal([&](const QString &) { server.release(); });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries().size(), 2);
    QCOMPARE(recorder.entries().first(), "delta: a");
    ends.replaceInStrings("{url}", server.baseUrl() + "/chat/completions");
    QVERIFY2(ends.contains(recorder.entries().last()), qPrintable(recorder.entries().last()));
}

void TestBadServers::aRefusedConnectionFails()
{
    const QString baseUrl = RawHttpServer({}).baseUrl();
    for (const bool stream : {false, true}) {
        QCOMPARE(ask(baseUrl, stream),
                 QStringList{"failed: OpenAI-compatible request failed.\nURL: " + baseUrl
                             + "/chat/completions\nNetwork error: 1 (Connection refused)\n"
                               "Response: (empty response body)"});
    }
}

void TestBadServers::aLongLineArrives()
{
    const QString text(30 * 1000 * 1000, 'x');
    StreamServer server;
    server.addEvents({deltaEvent(text)});
    const QStringList entries = ask(server.baseUrl(), true);
    QCOMPARE(entries.size(), 2);
    QVERIFY(entries.first() == "delta: " + text);
    QVERIFY(entries.last() == "finished: " + text);
}

void TestBadServers::aLongLineWithoutAnEndIsLost()
{
    const QByteArray line(30 * 1000 * 1000, 'x');
    StreamServer server;
    server.addRaw({eventStreamHead() + line});
    QCOMPARE(ask(server.baseUrl(), true), QStringList{"finished: "});
}

void TestBadServers::deeplyNestedAnswersFail()
{
    const QByteArray nested = QByteArray(100000, '[') + QByteArray(100000, ']');
    StreamServer server;
    server.addAnswer(200, nested);
    server.addAnswer(200, nested);
    QCOMPARE(ask(server.baseUrl(), false),
             QStringList{"failed: Invalid JSON response: too deeply nested document\nResponse: "
                         + QString(2000, '[')});
    QCOMPARE(ask(server.baseUrl(), true), QStringList{"finished: "});
}

void TestBadServers::anAnswerLongerThanItsLengthIsCut()
{
    StreamServer server;
    server.addRaw({"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}trailing"});
    QCOMPARE(ask(server.baseUrl(), false), QStringList({"response: {}", "delta: ", "finished: "}));
}

// Left to itself, Qt misses up to half of them.
void TestBadServers::everyMissingByteIsNoticed()
{
    StreamServer server;
    const QString report = "failed: OpenAI-compatible request failed.\nURL: " + server.baseUrl()
                         + "/chat/completions\nHTTP status: 200 OK\n"
                           "Network error: 2 (Connection closed)\nResponse: {}";
    for (int round = 0; round < 50; ++round) {
        server.addRaw({"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n{}"});
        QCOMPARE(ask(server.baseUrl(), round % 2 == 0), QStringList{report});
    }
}

void TestBadServers::aCutStreamIsReadToItsEnd()
{
    const QByteArray head = "HTTP/1.1 200 OK\r\nContent-Length: 99999999\r\n\r\n";
    StreamServer server;
    for (int round = 0; round < 10; ++round) {
        server.addRaw({head + deltaEvent(QString(9000, 'x')).repeated(100)});
        const QStringList entries = ask(server.baseUrl(), true);
        QCOMPARE(entries.size(), 101);
        QVERIFY(entries.last().startsWith("failed: "));
    }
}

// Unpacked it would be held as a whole line or as a whole answer, and a thousand times as large.
void TestBadServers::anEncodedAnswerIsNotUnpacked()
{
    constexpr int megabyte = 1024 * 1024;
    const QByteArray packed = qCompress(QByteArray(64 * megabyte, '\0'), 9).mid(4);
    QVERIFY(packed.size() < megabyte);
    StreamServer server;
    for (const bool stream : {false, true}) {
        server.addAnswer(200, packed, {{"Content-Encoding", "deflate"}});
        OpenAICompatibleModel model;
        model.setConfig(profile(server.baseUrl(), stream));
        CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        const qint64 heapBefore = heapUsage().value_or(0);
        qint64 heapAtTheEnd = 0;
        recorder.onSignal([&](const QString &) { heapAtTheEnd = heapUsage().value_or(0); });
        QVERIFY(recorder.waitForEnd());
        QVERIFY(recorder.entries().first().contains("Network error: 299 (Unrequested encoding: deflate)"));
        QVERIFY(heapAtTheEnd - heapBefore < 4 * megabyte);
    }
}

void TestBadServers::aFastServerWaitsForTheReader()
{
    constexpr int megabyte = 1024 * 1024;
    const QByteArray padding = R"(data: {"padding":")" + QByteArray(1000, 'x');
    const QByteArray event = padding + R"(","choices":[{"delta":{"content":"x"}}]})" + "\n\n";
    const QByteArray portion = event.repeated(100);
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream(QVector<QByteArray>(1000, portion)));
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl(), true));

    ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, nullptr);
    const qint64 heapBefore = heapUsage().value_or(0);
    qint64 read = 0;
    qint64 longestLead = 0;
    qint64 largestHeap = 0;
    connect(reply, &ChatReply::deltaReceived, this, [&] {
        read += event.size();
        longestLead = qMax(longestLead, server.bytesSent() - read);
        largestHeap = qMax(largestHeap, heapUsage().value_or(0) - heapBefore);
    });
    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(finished.wait(60000));
    QCOMPARE(read, 1000 * portion.size());
    // Between the two lie the system's buffers of the sockets as well.
    QVERIFY2(longestLead < 48 * megabyte, qPrintable(QString::number(longestLead)));
    QVERIFY2(largestHeap < 16 * megabyte, qPrintable(QString::number(largestHeap)));
}

void TestBadServers::aFastServerIsStoppedByCancel()
{
    const QByteArray events = deltaEvent(QString(1000, 'x')).repeated(50000);
    RawHttpServer server({RawStep::send(eventStreamHead() + events), RawStep::wait()});
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl(), true));
    ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, nullptr);
    connect(reply, &ChatReply::deltaReceived, reply, [reply] {
        if (reply->text().size() > 10000)
            reply->cancel();
    });
    QSignalSpy canceled(reply, &ChatReply::canceled);
    QVERIFY(canceled.wait());
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(reply->text().size(), 11000);
}

QTEST_GUILESS_MAIN(TestBadServers)
#include "tst_badservers.moc"
