// Requests with a limit to the silence, and requests in a row.

#include "support/completionrecorder.h"
#include "support/httpendpoint.h"
#include "support/rawhttpserver.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

class TestTimeLimit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silenceEndsTheRequest_data();
    void silenceEndsTheRequest();
    void withoutTheOptionNothingIsLimited_data();
    void withoutTheOptionNothingIsLimited();
    void everyByteIsLife();
    void slotThatTakesLongIsNoSilence();
    void slotMayDeleteEverything();
    void deletedModelEndsItsRequestThroughAnotherManager();
    void requestsInARowAndBesideEachOtherAllEnd();
};

namespace {

class LimitedModel : public OpenAICompatibleModel
{
public:
    LimitedModel(const QString &baseUrl, int timeoutMs, bool isStream = true)
    {
        ModelConfig config;
        config.baseUrl = baseUrl;
        config.model = "m";
        config.timeoutMs = timeoutMs;
        config.stream = isStream;
        setConfig(config);
        RequestOptions options;
        options.applyTimeLimit = true;
        setRequestOptions(options);
    }

    ChatReply *ask(QObject *parent = nullptr) { return chat({ChatMessage::user("Hi")}, {}, parent); }
};

const QByteArray head = eventStreamHead();

} // namespace

void TestTimeLimit::silenceEndsTheRequest_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<bool>("isStream");
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("response");
    const QString empty = "(empty response body)";
    QTest::newRow("before the head") << QByteArray() << true << QStringList() << "" << empty;
    QTest::newRow("behind the head") << head << true << QStringList() << "HTTP status: 200 OK\n" << empty;
    QTest::newRow("in a stream") << head + deltaEvent("a") << true << QStringList{"delta: a"}
                                 << "HTTP status: 200 OK\n"
                                 << QString(deltaEvent("a").trimmed());
    QTest::newRow("in a whole answer") << head + "{\"a\"" << false << QStringList() << "HTTP status: 200 OK\n"
                                       << "{\"a\"";
}

void TestTimeLimit::silenceEndsTheRequest()
{
    QFETCH(QByteArray, sent);
    QFETCH(bool, isStream);
    QFETCH(QStringList, before);
    QFETCH(QString, status);
    QFETCH(QString, response);
    RawHttpServer server({RawStep::send(sent), RawStep::wait()});
    LimitedModel model(server.baseUrl(), 1000, isStream);
    QElapsedTimer clock;
    clock.start();
    CompletionRecorder recorder(model.ask());
    QVERIFY(recorder.waitForEnd());
    QVERIFY2(clock.elapsed() >= 1000, qPrintable(QString::number(clock.elapsed())));
    before.append(QStringLiteral("failed: OpenAI-compatible request failed.\n"
                                 "URL: %1/chat/completions\n"
                                 "%2Network error: 4 (No data for 1000 ms)\n"
                                 "Response: %3")
                      .arg(server.baseUrl(), status, response));
    QCOMPARE(recorder.entries(), before);
    QCOMPARE(recorder.reply->failure().networkError, 4);
    QVERIFY(recorder.reply->failure().isTemporary());
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(recorder.entries(), before);
}

void TestTimeLimit::withoutTheOptionNothingIsLimited_data()
{
    QTest::addColumn<bool>("isOn");
    QTest::addColumn<int>("timeoutMs");
    QTest::newRow("off") << false << 1;
    QTest::newRow("no limit") << true << 0;
    QTest::newRow("a negative limit") << true << -1;
}

void TestTimeLimit::withoutTheOptionNothingIsLimited()
{
    QFETCH(bool, isOn);
    QFETCH(int, timeoutMs);
    RawHttpServer server({RawStep::send(head), RawStep::wait(), RawStep::close()});
    LimitedModel model(server.baseUrl(), timeoutMs);
    if (!isOn)
        model.setRequestOptions({});
    QSignalSpy waiting(&server, &RawHttpServer::waiting);
    CompletionRecorder recorder(model.ask());
    QVERIFY(waiting.wait());
    // A limit of another request is over before the server goes on.
    LimitedModel other(server.baseUrl(), 50);
    CompletionRecorder otherRecorder(other.ask());
    QVERIFY(otherRecorder.waitForEnd());
    server.release();
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"finished: "});
}

void TestTimeLimit::everyByteIsLife()
{
    QVector<RawStep> script{RawStep::send(head)};
    for (int i = 0; i < 12; ++i)
        script += {RawStep::wait(), RawStep::send(": ping\n\n")};
    script += {RawStep::send(deltaEvent("a") + doneEvent()), RawStep::close()};
    RawHttpServer server(script);
    LimitedModel model(server.baseUrl(), 400);
    QTimer life;
    connect(&life, &QTimer::timeout, &server, &RawHttpServer::release);
    QElapsedTimer clock;
    clock.start();
    CompletionRecorder recorder(model.ask());
    life.start(60);
    QVERIFY(recorder.waitForEnd());
    QVERIFY(clock.elapsed() > 400);
    QCOMPARE(recorder.entries(), (QStringList{"delta: a", "finished: a"}));
}

void TestTimeLimit::slotThatTakesLongIsNoSilence()
{
    RawHttpServer server({RawStep::send(head + deltaEvent("a")), RawStep::wait(),
                          RawStep::send(deltaEvent("b") + doneEvent()), RawStep::close()});
    LimitedModel model(server.baseUrl(), 100);
    CompletionRecorder recorder(model.ask());
    recorder.onSignal([&](const QString &entry) {
        if (entry != "delta: a")
            return;
        server.release();
        QTRY_COMPARE(server.openConnections(), 0);
        // The program is busy for longer than the limit.
        QElapsedTimer busy;
        busy.start();
        while (busy.elapsed() < 150) {
        }
    });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), (QStringList{"delta: a", "delta: b", "finished: ab"}));
}

void TestTimeLimit::slotMayDeleteEverything()
{
    RawHttpServer server({RawStep::send(head), RawStep::wait()});
    auto model = std::make_unique<LimitedModel>(server.baseUrl(), 50);
    CompletionRecorder recorder(model->ask());
    recorder.onSignal([&](const QString &) { model.reset(); });
    QTRY_VERIFY(!model);
    QVERIFY(recorder.hasEnded());
    QTRY_COMPARE(server.openConnections(), 0);
}

void TestTimeLimit::deletedModelEndsItsRequestThroughAnotherManager()
{
    RawHttpServer server({RawStep::send(head + deltaEvent("a")), RawStep::wait()});
    QNetworkAccessManager manager;
    auto model = std::make_unique<LimitedModel>(server.baseUrl(), 0);
    model->setNetworkAccessManager(&manager);
    QObject owner;
    CompletionRecorder recorder(model->ask(&owner));
    QTRY_COMPARE(recorder.entries(), QStringList{"delta: a"});
    model.reset();
    QTRY_COMPARE(server.openConnections(), 0);
    QTRY_VERIFY(!manager.findChild<QNetworkReply *>());
    QCOMPARE(recorder.entries(), QStringList{"delta: a"});
}

void TestTimeLimit::requestsInARowAndBesideEachOtherAllEnd()
{
    HttpEndpoint endpoint;
    endpoint.addStream({"held"}, 1);
    CompletionRecorder held(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QTRY_COMPARE(held.entries(), QStringList{"delta: held"});
    for (int i = 0; i < 5; ++i) {
        endpoint.addStream({"a"});
        CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.entries().last(), "finished: a");
    }
    endpoint.server.release();
    QVERIFY(held.waitForEnd());
    QCOMPARE(held.entries().last(), "finished: held");
}

QTEST_GUILESS_MAIN(TestTimeLimit)
#include "tst_timelimit.moc"
