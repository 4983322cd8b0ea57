// What an error report shows of the body that came with it, and how odd addresses end.

#include "support/completions.h"
#include "support/faultrun.h"
#include "support/loopbackserver.h"
#include "support/rawhttpserver.h"

#include <qtagent/testing/streamserver.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTranslator>
#include <QtTest>

namespace {

const QByteArray byteOrderMark("\xef\xbb\xbf");

// Translates every text into itself and its context.
class ContextTranslator : public QTranslator
{
public:
    bool isEmpty() const override { return false; }

    QString translate(const char *context, const char *sourceText, const char * /*disambiguation*/,
                      int /*n*/) const override
    {
        return QStringLiteral("%1::%2").arg(QLatin1String(context), QLatin1String(sourceText));
    }
};

} // namespace

class TestErrorReports : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bodyIsSummarised_data();
    void bodyIsSummarised();
    void addressIsTakenTolerantly_data();
    void addressIsTakenTolerantly();
    void addressThatLeadsNowhereFails_data();
    void addressThatLeadsNowhereFails();
    void errorsThatQtDoesNotTellReadLikeItsOwn();
};

void TestErrorReports::bodyIsSummarised_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("summary");
    const auto error = [](const QByteArray &json) { return R"({"message":"outer","error":)" + json + "}"; };
    QTest::newRow("empty") << QByteArray() << "(empty response body)";
    QTest::newRow("blanks only") << QByteArray(" \r\n\t ") << "(empty response body)";
    QTest::newRow("message, type and code")
        << error(R"({"code":"C","type":"T","message":"M","param":"p"})") << "M; type=T; code=C";
    QTest::newRow("message only") << error(R"({"message":"M"})") << "M";
    QTest::newRow("type only") << error(R"({"type":"T"})") << "type=T";
    QTest::newRow("code only") << error(R"({"code":"C"})") << "code=C";
    QTest::newRow("a numeric code is left out") << error(R"({"message":"M","code":429})") << "M";
    QTest::newRow("only a numeric code")
        << error(R"({"code":429})") << R"({"error":{"code":429},"message":"outer"})";
    QTest::newRow("empty texts") << error(R"({"message":"","type":""})")
                                 << R"({"error":{"message":"","type":""},"message":"outer"})";
    QTest::newRow("an empty error object") << error("{}") << R"({"error":{},"message":"outer"})";
    QTest::newRow("place markers are not filled")
        << error(R"({"message":"%1 %2","type":"%1"})") << "%1 %2; type=%1";
    QTest::newRow("an error text") << error(R"("broken")") << "broken";
    QTest::newRow("an empty error text") << error(R"("")") << "";
    QTest::newRow("a long error text is shown whole")
        << error('"' + QByteArray(3000, 'x') + '"') << QString(3000, 'x');
    QTest::newRow("an error of another type") << error("5") << "outer";
    QTest::newRow("an error that is null") << error("null") << "outer";
    QTest::newRow("an error that is a list") << error(R"([{"message":"M"}])") << "outer";
    QTest::newRow("a message without an error") << QByteArray(R"({"message":"M"})") << "M";
    QTest::newRow("an empty message") << QByteArray(R"({"message":""})") << R"({"message":""})";
    QTest::newRow("a message of another type")
        << QByteArray(R"({"message":{"a":1}})") << R"({"message":{"a":1}})";
    QTest::newRow("another object") << QByteArray("{ \"b\": [1, 2],\n \"a\": null }")
                                    << R"({"a":null,"b":[1,2]})";
    QTest::newRow("an empty object") << QByteArray("{}") << "{}";
    QTest::newRow("an array") << QByteArray("[ 1, {\"message\": \"M\"} ]") << R"([1,{"message":"M"}])";
    QTest::newRow("a text") << QByteArray(R"("broken")") << R"("broken")";
    QTest::newRow("a number") << QByteArray("42") << "42";
    QTest::newRow("HTML") << QByteArray("\n<html><h1>502</h1></html>\n") << "<html><h1>502</h1></html>";
    QTest::newRow("JSON cut off") << QByteArray(R"({"error":{"message":"M")") << R"({"error":{"message":"M")";
    QTest::newRow("exactly 2,000 bytes") << QByteArray(2000, 'x') << QString(2000, 'x');
    QTest::newRow("2,001 bytes") << QByteArray(2001, 'x') << QString(2000, 'x');
    QTest::newRow("2,000 bytes that end inside a character")
        << QByteArray(1999, 'x') + "设备" << QString(1999, 'x') + QChar(QChar::ReplacementCharacter);
    QTest::newRow("leading blanks do not count")
        << QByteArray(50, ' ') + QByteArray(2001, 'x') << QString(2000, 'x');
    QTest::newRow("long JSON is cut at 2,000 characters") << "[\"" + QByteArray("设").repeated(3000) + "\"]"
                                                          << "[\"" + QString("设").repeated(1998);
    QTest::newRow("NUL") << QByteArray("a\0b", 3) << QString("a%1b").arg(QChar(0));
    QTest::newRow("bad UTF-8") << QByteArray("a\xff") << QString("a") + QChar(QChar::ReplacementCharacter);
    QTest::newRow("JSON after a byte-order mark") << byteOrderMark + R"({"message":"M"})"
                                                  << "M";
    QTest::newRow("1,024 levels") << QByteArray(1024, '[') + QByteArray(1024, ']')
                                  << QString(1024, '[') + QString(976, ']');
    QTest::newRow("1,025 levels are no JSON")
        << QByteArray(1025, '[') + QByteArray(1025, ']') << QString(1025, '[') + QString(975, ']');
}

void TestErrorReports::bodyIsSummarised()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, summary);
    MireloQtLib::QtAgent::StreamServer server;
    server.addRaw({RawHttpServer::answer("500 Broken", body)});
    server.addRaw({RawHttpServer::answer("500 Broken", body)});
    const QStringList report{
        failure("500 Broken", "401 (Error transferring {url} - server replied: Broken)", summary)};
    QCOMPARE(signalsOf(server.baseUrl(), AnswerMode::Whole), report);
    QCOMPARE(signalsOf(server.baseUrl(), AnswerMode::Stream), report);
}

void TestErrorReports::addressIsTakenTolerantly_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("as it is") << ""
                              << "" << QByteArray("/v1/chat/completions");
    QTest::newRow("slashes at the end") << ""
                                        << "///" << QByteArray("/v1/chat/completions");
    QTest::newRow("blanks around") << "  "
                                   << "/ \n"
                                   << QByteArray("/v1/chat/completions");
    QTest::newRow("a blank inside") << ""
                                    << "/a b" << QByteArray("/v1/a%20b/chat/completions");
    QTest::newRow("Chinese") << ""
                             << "/设" << QByteArray("/v1/%E8%AE%BE/chat/completions");
    QTest::newRow("a lonely percent sign") << ""
                                           << "/100%" << QByteArray("/v1/100%25/chat/completions");
    QTest::newRow("a query swallows the path") << ""
                                               << "?a=b" << QByteArray("/v1?a=b/chat/completions");
    QTest::newRow("a fragment swallows the path") << ""
                                                  << "#f" << QByteArray("/v1");
}

void TestErrorReports::addressIsTakenTolerantly()
{
    QFETCH(QString, before);
    QFETCH(QString, after);
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json(completion("ab")));
    const QStringList log = signalsOf(before + server.baseUrl() + after, AnswerMode::Whole);
    QCOMPARE(server.requests().size(), 1);
    QTEST(server.requests().first().path, "path");
    QCOMPARE(log, (QStringList{"response", "delta: ab", "finished: ab"}));
}

void TestErrorReports::addressThatLeadsNowhereFails_data()
{
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("networkError");
    const auto unknown = [](const char *scheme) {
        return QString("301 (Protocol \"%1\" is unknown)").arg(scheme);
    };
    QTest::newRow("no scheme") << "127.0.0.1/v1" << unknown("");
    QTest::newRow("no scheme and a port") << "127.0.0.1:9/v1" << unknown("");
    QTest::newRow("a name and a port") << "localhost:9/v1" << unknown("localhost");
    QTest::newRow("just a word") << "nonsense" << unknown("");
    QTest::newRow("no host") << "http:///v1"
                             << "3 (Host  not found)";
    QTest::newRow("only a scheme") << "http://"
                                   << "3 (Host  not found)";
    QTest::newRow("a port that is no number") << "http://127.0.0.1:x/v1" << unknown("");
    QTest::newRow("a port above 65535") << "http://127.0.0.1:70000/v1" << unknown("");
    QTest::newRow("brackets that do not close") << "http://[::1/v1" << unknown("");
    QTest::newRow("file") << "file:///tmp" << unknown("file");
    QTest::newRow("data") << "data:text/plain,x" << unknown("data");
    QTest::newRow("ftp") << "ftp://127.0.0.1:9/v1" << unknown("ftp");
    QTest::newRow("qrc") << "qrc:/v1" << unknown("qrc");
    QTest::newRow("preconnect-http") << "preconnect-http://127.0.0.1:9/v1" << unknown("preconnect-http");
    QTest::newRow("preconnect-https") << "preconnect-https://127.0.0.1:9/v1" << unknown("preconnect-https");
    QTest::newRow("ws") << "ws://127.0.0.1:9/v1" << unknown("ws");
    QTest::newRow("capitals") << "FTP://127.0.0.1:9/v1" << unknown("ftp");
    QTest::newRow("a scheme that nobody knows") << "gopher://127.0.0.1/v1" << unknown("gopher");
}

void TestErrorReports::addressThatLeadsNowhereFails()
{
    QFETCH(QString, baseUrl);
    QFETCH(QString, networkError);
    for (AnswerMode mode : {AnswerMode::Whole, AnswerMode::Stream}) {
        const QStringList log = signalsOf(baseUrl, mode);
        QCOMPARE(log.size(), 1);
        QStringList lines = log.first().split('\n');
        QVERIFY(lines.takeAt(1).startsWith("URL: ")); // what Qt could not parse is shown as an empty text
        QCOMPARE(lines, (QStringList{"failed: OpenAI-compatible request failed.",
                                     "Network error: " + networkError, "Response: (empty response body)"}));
    }
}

void TestErrorReports::errorsThatQtDoesNotTellReadLikeItsOwn()
{
    ContextTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));

    const QString closed = "2 (QHttp::Connection closed)";
    RawHttpServer silent({RawStep::close()});
    QCOMPARE(signalsOf(silent.baseUrl(), AnswerMode::Whole),
             QStringList{failure(QString(), closed, "(empty response body)")});
    MireloQtLib::QtAgent::StreamServer breaking;
    for (int round = 0; round < 20; ++round) {
        breaking.addRaw({"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}"});
        QCOMPARE(signalsOf(breaking.baseUrl(), AnswerMode::Whole),
                 QStringList{failure("200 OK", closed, "{}")});
    }

    QNetworkAccessManager network;
    QNetworkRequest request(QUrl("gopher://127.0.0.1/"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    QNetworkReply *reply = network.post(request, QByteArray("{}"));
    QTRY_VERIFY(reply->isFinished());
    const QString unknown = QStringLiteral("%1 (%2)").arg(int(reply->error())).arg(reply->errorString());
    QCOMPARE(signalsOf("gopher://127.0.0.1", AnswerMode::Whole).first().split('\n').at(2),
             "Network error: " + unknown);
}

QTEST_GUILESS_MAIN(TestErrorReports)
#include "tst_errorreports.moc"
