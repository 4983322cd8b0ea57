// Why a request failed, as a program sees it.

#include "support/completionrecorder.h"
#include "support/httpendpoint.h"

#include <qtagent/servicefailure_p.h>

#include <QScopeGuard>
#include <QtTest>

#include <ctime>

using namespace MireloQtLib::QtAgent;

class TestChatFailure : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bodyIsRead_data();
    void bodyIsRead();
    void waitIsRead_data();
    void waitIsRead();
    void waitUntilADateIsRead();
    void dateIsNoneOfTheLocalClock();
    void adviceIsRead_data();
    void adviceIsRead();
    void temporaryFailures_data();
    void temporaryFailures();
    void dailyQuotaIsNotTemporary();
    void failureIsSetBeforeTheSignal();
};

namespace {

// The failure of a request that is answered with @p status.
ChatFailure failureWith(int status, const QByteArray &body, const QMap<QByteArray, QByteArray> &headers = {})
{
    HttpEndpoint endpoint;
    LoopbackAnswer answer = LoopbackAnswer::withStatus(status, body);
    answer.headers = headers;
    endpoint.server.enqueue(answer);
    CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    return recorder.waitForEnd() ? recorder.reply->failure() : ChatFailure();
}

const QByteArray quotaBody = R"([{"error":{"code":429,"message":"M","status":"RESOURCE_EXHAUSTED","details":[
    {"@type":"type.googleapis.com/google.rpc.QuotaFailure","violations":[{"quotaId":"%1"}]},
    {"@type":"type.googleapis.com/google.rpc.RetryInfo","retryDelay":"34.4s"}]}}])";

} // namespace

void TestChatFailure::bodyIsRead_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("an error object") << QByteArray(
        R"({"error":{"message":"M","type":"T","param":null,"code":"C"}})")
                                     << "T"
                                     << "C"
                                     << "M";
    QTest::newRow("a null code") << QByteArray(R"({"error":{"message":"M","type":"T","code":null}})") << "T"
                                 << ""
                                 << "M";
    QTest::newRow("a numeric code") << QByteArray(R"({"error":{"message":"M","code":503}})") << ""
                                    << "503"
                                    << "M";
    QTest::newRow("an array") << QByteArray(R"([{"error":{"code":400,"message":"M","status":"S"}}])") << ""
                              << "400"
                              << "M";
    QTest::newRow("at the top") << QByteArray(
        R"({"object":"error","message":"M","type":"T","param":null,"code":"3280"})")
                                << "T"
                                << "3280"
                                << "M";
    QTest::newRow("a message with a detail")
        << QByteArray(R"({"object":"error","message":{"detail":"D"},"type":"T"})") << "T"
        << ""
        << "D";
    QTest::newRow("a message with a list of details")
        << QByteArray(R"({"object":"error","message":{"detail":[{"msg":"D"}]}})") << ""
        << ""
        << R"([{"msg":"D"}])";
    QTest::newRow("an error text") << QByteArray(R"({"code":"some words","error":"E"})") << ""
                                   << "some words"
                                   << "E";
    QTest::newRow("no error at all") << QByteArray(R"({"code":20015,"message":"M","data":null})") << ""
                                     << "20015"
                                     << "M";
    QTest::newRow("a detail") << QByteArray(R"({"detail":"Not Found"})") << ""
                              << ""
                              << "Not Found";
    QTest::newRow("HTML") << QByteArray("<h1>502</h1>") << ""
                          << ""
                          << "";
    QTest::newRow("nothing") << QByteArray() << ""
                             << ""
                             << "";
    QTest::newRow("wrong types") << QByteArray(R"({"error":{"message":1,"type":[],"code":{}}})") << ""
                                 << ""
                                 << "";
    QTest::newRow("an error that is a list") << QByteArray(R"({"error":["x"]})") << ""
                                             << ""
                                             << "";
}

void TestChatFailure::bodyIsRead()
{
    QFETCH(QByteArray, body);
    const ChatFailure failure = failureWith(400, body);
    QCOMPARE(failure.httpStatus, 400);
    QCOMPARE(failure.networkError, 302);
    QTEST(failure.type, "type");
    QTEST(failure.code, "code");
    QTEST(failure.message, "message");
    QCOMPARE(failure.retryAfterMs, -1);
    QCOMPARE(failure.shouldRetry, -1);
}

void TestChatFailure::waitIsRead_data()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<qint64>("wait");
    const auto seconds = [](const QByteArray &value) { return Headers{{"Retry-After", value}}; };
    const auto milliseconds = [](const QByteArray &value) { return Headers{{"retry-after-ms", value}}; };
    QTest::newRow("none") << Headers() << qint64(-1);
    QTest::newRow("seconds") << seconds("2") << qint64(2000);
    QTest::newRow("a part of a second") << seconds("0.5") << qint64(500);
    QTest::newRow("no wait") << seconds("0") << qint64(0);
    QTest::newRow("milliseconds") << milliseconds("1500") << qint64(1500);
    QTest::newRow("milliseconds win")
        << Headers{{"Retry-After", "9"}, {"retry-after-ms", "15"}} << qint64(15);
    QTest::newRow("milliseconds that say nothing")
        << Headers{{"Retry-After", "9"}, {"retry-after-ms", "nan"}} << qint64(9000);
    QTest::newRow("a date that is past") << seconds("Sun, 06 Nov 1994 08:49:37 GMT") << qint64(0);
    QTest::newRow("nan") << seconds("nan") << qint64(-1);
    QTest::newRow("inf") << seconds("inf") << qint64(-1);
    QTest::newRow("negative") << seconds("-1") << qint64(-1);
    QTest::newRow("the longest") << milliseconds("1000000000000") << qint64(1000000000000);
    QTest::newRow("too long") << milliseconds("1000000000001") << qint64(-1);
    QTest::newRow("too many seconds") << seconds("1e300") << qint64(-1);
    QTest::newRow("words") << seconds("soon") << qint64(-1);
    QTest::newRow("a span is no wait") << Headers{{"x-ratelimit-reset-requests", "6m0s"}} << qint64(-1);
}

void TestChatFailure::waitIsRead()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QFETCH(Headers, headers);
    QTEST(failureWith(429, "{}", headers).retryAfterMs, "wait");
}

void TestChatFailure::waitUntilADateIsRead()
{
    const QDateTime date = QDateTime::currentDateTimeUtc().addSecs(3600);
    const QString text = QLocale::c().toString(date, "ddd, dd MMM yyyy hh:mm:ss 'GMT'");
    const qint64 wait = failureWith(503, "{}", {{"Retry-After", text.toLatin1()}}).retryAfterMs;
    QVERIFY2(wait > 3500 * 1000 && wait <= 3600 * 1000, qPrintable(QString::number(wait)));
}

// An hour that is left out where summer time begins.
void TestChatFailure::dateIsNoneOfTheLocalClock()
{
    const QByteArray zone = qgetenv("TZ");
    const auto restore = qScopeGuard([&zone] {
        zone.isEmpty() ? qunsetenv("TZ") : qputenv("TZ", zone);
        tzset();
    });
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    tzset();
    const QByteArray header = "Sun, 29 Mar 2026 02:30:00 GMT";
    const QDateTime before(QDate(2026, 3, 29), QTime(2, 0), Qt::UTC);
    QCOMPARE(waitInSeconds(header, before), qint64(30 * 60 * 1000));
    QCOMPARE(waitInSeconds(header, before.addSecs(3600)), qint64(0));
    QCOMPARE(waitInSeconds("Sun, 29 Mar 2026 02:30:00", before), qint64(-1));
    QCOMPARE(waitInSeconds("Sun, 29 Mar 2026 02:60:00 GMT", before), qint64(-1));
}

void TestChatFailure::adviceIsRead_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<qint32>("advice");
    QTest::addColumn<bool>("isTemporary");
    QTest::newRow("true wins over the status") << QByteArray("true") << 1 << true;
    QTest::newRow("any case") << QByteArray("True") << 1 << true;
    QTest::newRow("false") << QByteArray("false") << 0 << false;
    QTest::newRow("anything else") << QByteArray("yes") << -1 << false;
}

void TestChatFailure::adviceIsRead()
{
    QFETCH(QByteArray, header);
    const ChatFailure failure = failureWith(400, "{}", {{"x-should-retry", header}});
    QTEST(failure.shouldRetry, "advice");
    QTEST(failure.isTemporary(), "isTemporary");
}

void TestChatFailure::temporaryFailures_data()
{
    QTest::addColumn<ChatFailure>("failure");
    QTest::addColumn<bool>("isTemporary");
    const auto row = [](const QByteArray &name, const ChatFailure &failure, bool isTemporary) {
        QTest::newRow(name.constData()) << failure << isTemporary;
    };
    const auto status = [&row](qint32 code, bool isTemporary) {
        row("status " + QByteArray::number(code), {code, 299, {}, {}, {}, -1, -1}, isTemporary);
    };
    for (const qint32 code : {408, 409, 425, 429, 498, 500, 502, 503, 504, 529, 999})
        status(code, true);
    for (const qint32 code : {400, 401, 402, 403, 404, 413, 418, 422, 499})
        status(code, false);
    for (qint32 error = 1; error < 10; ++error)
        row("network error " + QByteArray::number(error), {0, error, {}, {}, {}, -1, -1},
            error != 6 && error != 9);
    for (const qint32 error : {105, 199, 299, 301, 302, 399})
        row("network error " + QByteArray::number(error), {0, error, {}, {}, {}, -1, -1}, false);
    row("network error 99", {0, 99, {}, {}, {}, -1, -1}, true);
    row("the connection broke inside an answer", {200, 2, {}, {}, {}, -1, -1}, true);
    row("nothing is known", {}, false);
    row("a payment with a wait", {402, 299, {}, {}, {}, 5, -1}, true);
    row("no money, by type", {429, 299, "insufficient_quota", {}, {}, 5, -1}, false);
    row("no money, by code", {429, 299, {}, "insufficient_quota", {}, -1, -1}, false);
    row("the quota of an account", {429, 299, "exceeded_current_quota_error", {}, {}, -1, -1}, false);
    row("no credit", {429, 299, {}, "credit_balance_exhausted", {}, -1, -1}, false);
    row("a limit of spending", {429, 299, {}, "org_spend_limit_exceeded", {}, -1, -1}, false);
    row("a quota for the day", {429, 299, {}, "RequestsPerDayPerModel", {}, 5, -1}, false);
    row("advice against a temporary status", {503, 403, {}, {}, {}, -1, 0}, false);
    row("advice for no money", {429, 299, "insufficient_quota", {}, {}, -1, 1}, true);
    row("a code like a status inside a 200", {200, 0, {}, "503", {}, -1, -1}, true);
    row("a code like a bad request inside a 200", {200, 0, {}, "400", {}, -1, -1}, false);
    row("a code like the highest status inside a 200", {200, 0, {}, "599", {}, -1, -1}, true);
    for (const char *code : {"20015", "3280", "600", "99", "-503", "99999999999"})
        row(QByteArray("a code that is no status inside a 200: ") + code, {200, 0, {}, code, {}, -1, -1},
            false);
    row("a failed server inside a 200, with a number", {200, 0, "server_error", "20015", {}, -1, -1}, true);
    row("no money inside a 200", {200, 0, "insufficient_quota", "429", {}, -1, -1}, false);
    row("a failed server inside a 200", {200, 0, "server_error", {}, {}, -1, -1}, true);
    row("a code of a failed server inside a 200", {200, 0, {}, "server_error", {}, -1, -1}, true);
    row("an overloaded server inside a 200", {200, 0, "overloaded_error", {}, {}, -1, -1}, true);
    for (const char *reason : {"error", "abort", "network_error", "insufficient_system_resource"})
        row(QByteArray("the model stopped: ") + reason, {200, 0, {}, reason, {}, -1, -1}, true);
    row("the stream ended early", {200, 0, {}, "stream_ended_early", {}, -1, -1}, true);
    row("no answer in the stream", {200, 0, {}, "no_answer", {}, -1, -1}, false);
    row("another word", {200, 0, "tool_use_failed", "x", {}, -1, -1}, false);
}

void TestChatFailure::temporaryFailures()
{
    QFETCH(ChatFailure, failure);
    QTEST(failure.isTemporary(), "isTemporary");
}

void TestChatFailure::dailyQuotaIsNotTemporary()
{
    const ChatFailure minute =
        failureWith(429, QByteArray(quotaBody).replace("%1", "GenerateRequestsPerMinutePerProject"));
    QCOMPARE(minute.code, "429");
    QCOMPARE(minute.retryAfterMs, 34400);
    QVERIFY(minute.isTemporary());
    const ChatFailure day =
        failureWith(429, QByteArray(quotaBody).replace("%1", "GenerateRequestsPerDayPerProject-FreeTier"));
    QCOMPARE(day.code, "GenerateRequestsPerDayPerProject-FreeTier");
    QCOMPARE(day.message, "M");
    QVERIFY(!day.isTemporary());
}

void TestChatFailure::failureIsSetBeforeTheSignal()
{
    HttpEndpoint endpoint;
    endpoint.addRefusal();
    CompletionRecorder recorder(endpoint.model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    ChatFailure seen;
    recorder.onSignal([&](const QString &) { seen = recorder.reply->failure(); });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(seen.httpStatus, 401);
    QCOMPARE(seen.message, "bad key");
    QVERIFY(!seen.isTemporary());
}

QTEST_GUILESS_MAIN(TestChatFailure)
#include "tst_chatfailure.moc"
