// What the client makes of connections and HTTP answers that are cut, lie or make no sense.

#include "support/completions.h"
#include "support/faultrun.h"
#include "support/rawhttpserver.h"

#include <QJsonDocument>
#include <QtTest>

namespace {

constexpr AnswerMode whole = AnswerMode::Whole;
constexpr AnswerMode stream = AnswerMode::Stream;

const QByteArray document = QJsonDocument(completion("ab")).toJson(QJsonDocument::Compact);
const QByteArray events = deltaEvent("a") + deltaEvent("b") + doneEvent();

const QStringList wholeAnswer{"response", "delta: ab", "finished: ab"};
const QStringList streamedAnswer{"delta: a", "delta: b", "finished: ab"};
const QString closed = QStringLiteral("2 (Connection closed)");

// Where the majors of Qt report the same fault differently.
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
const QString missingReason = QStringLiteral("HTTP/1.1 500"); // the line is taken for the reason
#else
const QString missingReason;
#endif

const QByteArray chunked("Transfer-Encoding: chunked\r\n");

QByteArray head(const QByteArray &statusLine, const QByteArray &headers = {})
{
    return "HTTP/1.1 " + statusLine + "\r\n" + headers + "\r\n";
}

QByteArray length(int bytes)
{
    return "Content-Length: " + QByteArray::number(bytes) + "\r\n";
}

QByteArray chunk(const QByteArray &bytes, const QByteArray &extension = {})
{
    return QByteArray::number(int(bytes.size()), 16) + extension + "\r\n" + bytes + "\r\n";
}

QVector<RawStep> send(const QByteArray &bytes)
{
    return {RawStep::send(bytes)};
}

QVector<RawStep> sendAndClose(const QByteArray &bytes)
{
    return {RawStep::send(bytes), RawStep::close()};
}

QVector<RawStep> sendByteByByte(const QByteArray &bytes)
{
    QVector<RawStep> steps;
    for (const char byte : bytes)
        steps.append(RawStep::send(QByteArray(1, byte)));
    return steps;
}

// What a whole answer without a body comes to.
QStringList noJson(const QString &error, const QString &response)
{
    return {"failed: Invalid JSON response: " + error + "\nResponse: " + response};
}

struct Fault
{
    QVector<RawStep> script;
    AnswerMode mode = whole;
    // Usually one. Where chunks end without the last one, Qt notices it or does not, as it happens.
    QVector<QStringList> outcomes;
};

void addRow(const char *name, const Fault &fault)
{
    QTest::newRow(name) << fault;
}

// Adds a row for each mode, with the same outcome.
void addRows(const char *name, const QVector<RawStep> &script, const QString &outcome)
{
    QTest::addRow("%s, whole", name) << Fault{script, whole, {{outcome}}};
    QTest::addRow("%s, stream", name) << Fault{script, stream, {{outcome}}};
}

// Adds a row for each mode: a good answer, packed by the function.
template<typename Pack>
void addGoodAnswers(const char *name, Pack pack)
{
    QTest::addRow("%s, whole", name) << Fault{pack(document), whole, {wholeAnswer}};
    QTest::addRow("%s, stream", name) << Fault{pack(events), stream, {streamedAnswer}};
}

bool isStrictFault(const QString &end)
{
    const QStringList faults{"failed: No answer in the stream.", "failed: The stream ended early."};
    return faults.contains(end.section('\n', 0, 0));
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class TestTransportFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oddButGoodAnswers_data();
    void oddButGoodAnswers() { play(); }
    void cutAnswers_data();
    void cutAnswers() { play(); }
    void answersThatAreNotHttp_data();
    void answersThatAreNotHttp() { play(); }
    void encodedAnswers_data();
    void encodedAnswers() { play(); }
    void statusesWithoutAnAnswer_data();
    void statusesWithoutAnAnswer() { play(); }
    void errorStatuses_data();
    void errorStatuses() { play(); }
    void redirectIsNotFollowed_data();
    void redirectIsNotFollowed();
    void droppedConnectionDoesNotHurtTheNextRequest();
    void refusedConnectionIsReported();

private:
    void play();
    void playWithAllOptions(const QString &baseUrl, const Fault &fault);
};

void TestTransportFaults::oddButGoodAnswers_data()
{
    QTest::addColumn<Fault>("fault");
    addGoodAnswers("exact length",
                   [](const QByteArray &body) { return send(head("200 OK", length(body.size())) + body); });
    addGoodAnswers("one byte per segment", [](const QByteArray &body) {
        return sendByteByByte(head("200 OK", length(body.size())) + body);
    });
    addGoodAnswers("ended by the connection",
                   [](const QByteArray &body) { return sendAndClose(head("200 OK") + body); });
    addGoodAnswers("chunks", [](const QByteArray &body) {
        return send(head("200 OK", chunked) + chunk(body.left(10)) + chunk(body.mid(10)) + "0\r\n\r\n");
    });
    addGoodAnswers("chunk extensions and trailers", [](const QByteArray &body) {
        return send(head("200 OK", chunked) + chunk(body.left(10), ";name=\"v\"")
                    + chunk(body.mid(10), " ; x") + "0;last\r\nX-Checksum: 1\r\n\r\n");
    });
    addGoodAnswers("HTTP 1.0",
                   [](const QByteArray &body) { return sendAndClose("HTTP/1.0 200 OK\r\n\r\n" + body); });
    addGoodAnswers("status 100 first", [](const QByteArray &body) {
        return send("HTTP/1.1 100 Continue\r\n\r\n" + head("200 OK", length(body.size())) + body);
    });
    addGoodAnswers("a status line without a reason", [](const QByteArray &body) {
        return send("HTTP/1.1 200\r\n" + length(body.size()) + "\r\n" + body);
    });
    addGoodAnswers("a head of lines that end in LF", [](const QByteArray &body) {
        return send("HTTP/1.1 200 OK\n" + length(body.size()) + "\n" + body);
    });
    addGoodAnswers("a header without a colon", [](const QByteArray &body) {
        return sendAndClose(head("200 OK", "nonsense\r\n") + body);
    });
    addGoodAnswers("a length below zero", [](const QByteArray &body) {
        return sendAndClose(head("200 OK", "Content-Length: -5\r\n") + body);
    });
    addGoodAnswers("a length that is no number", [](const QByteArray &body) {
        return sendAndClose(head("200 OK", "Content-Length: many\r\n") + body);
    });
    addGoodAnswers("an unknown content type", [](const QByteArray &body) {
        return send(head("200 OK", "Content-Type: x/y; charset=ebcdic\r\n" + length(body.size())) + body);
    });
}

void TestTransportFaults::cutAnswers_data()
{
    QTest::addColumn<Fault>("fault");
    const int half = int(document.size()) / 2;
    const QString documentStart = QString::fromUtf8(document.left(half));
    const QByteArray firstEvent = deltaEvent("a");
    const QString cutEvents = QString::fromUtf8((firstEvent + "data: {").trimmed());

    const auto cut = [](const QByteArray &headers, const QByteArray &bytes) {
        return sendAndClose(head("200 OK", headers) + bytes);
    };
    const QStringList reportedDocument{failure("200 OK", closed, documentStart)};
    const QStringList reportedStream{"delta: a", failure("200 OK", closed, cutEvents)};
    const QByteArray startOfStream = firstEvent + "data: {";
    addRow("length too long, whole", {cut(length(5000), document.left(half)), whole, {reportedDocument}});
    addRow("length too long, stream", {cut(length(5000), startOfStream), stream, {reportedStream}});
    addRow("one byte missing, whole",
           {cut(length(half + 1), document.left(half)), whole, {reportedDocument}});
    addRow("one byte missing, stream",
           {cut(length(int(startOfStream.size()) + 1), startOfStream), stream, {reportedStream}});
    addRow("reset in mid-answer",
           {{RawStep::send(head("200 OK", length(5000)) + document.left(half)), RawStep::reset()},
            whole,
            {reportedDocument}});
    addRow("reset in mid-stream",
           {{RawStep::send(head("200 OK", length(5000)) + startOfStream), RawStep::reset()},
            stream,
            {reportedStream}});
    addRow(
        "an unknown encoding hides no length, whole",
        {cut("Content-Encoding: rot13\r\n" + length(5000), document.left(half)), whole, {reportedDocument}});

    // Nobody but Qt can know, and it does not always.
    const QVector<QStringList> cutDocument{reportedDocument, noJson("unterminated string", documentStart)};
    const QVector<QStringList> cutStream{reportedStream, {"delta: a", "finished: a"}};
    addRow("cut chunk, whole", {cut(chunked, chunk(document).left(half + 4)), whole, cutDocument});
    addRow("cut chunk, stream", {cut(chunked, "ff\r\n" + startOfStream), stream, cutStream});
    addRow("no last chunk, whole", {cut(chunked, chunk(document)),
                                    whole,
                                    {{failure("200 OK", closed, QString::fromUtf8(document))}, wholeAnswer}});
    addRow("no last chunk, stream", {cut(chunked, chunk(startOfStream)), stream, cutStream});
    addRow("chunks beside a length, stream", {cut(chunked + length(5000), chunk(startOfStream) + "0\r\n\r\n"),
                                              stream,
                                              {{"delta: a", "finished: a"}}});
    addRow("illegal chunk size, whole",
           {cut(chunked, "zz\r\n" + document), whole, {noJson("illegal value", "(empty response body)")}});
    addRow("illegal chunk size, stream", {cut(chunked, "zz\r\n" + events), stream, {{"finished: "}}});
    addRow("length too short, whole",
           {cut(length(half), document), whole, {noJson("unterminated string", documentStart)}});
    addRow("length too short, stream",
           {cut(length(int(firstEvent.size())), events), stream, {{"delta: a", "finished: a"}}});
    addRow("length zero, whole",
           {cut(length(0), document), whole, {noJson("illegal value", "(empty response body)")}});
    addRow("length zero, stream", {cut(length(0), events), stream, {{"finished: "}}});
    addRow("closed without length, whole",
           {cut({}, document.left(half)), whole, {noJson("unterminated string", documentStart)}});
    addRow("closed without length, stream", {cut({}, startOfStream), stream, {{"delta: a", "finished: a"}}});
}

void TestTransportFaults::answersThatAreNotHttp_data()
{
    QTest::addColumn<Fault>("fault");
    const QString nothing = failure(QString(), closed, "(empty response body)");
    addRows("closed without a byte", {RawStep::close()}, nothing);
    addRows("reset without a byte", {RawStep::reset()}, nothing);
    addRows("half a status line", sendAndClose("HTTP/1."), nothing);
    addRows("half a head", sendAndClose("HTTP/1.1 200 OK\r\nContent-Ty"), nothing);
    addRows("another protocol", sendAndClose("SSH-2.0-OpenSSH_9.2\r\n"), nothing);
    addRows("kilobytes of noise", sendAndClose(QByteArray(5000, 'x')), nothing);
    addRows("another case of HTTP", sendAndClose("http/1.1 200 OK\r\n\r\nno"), nothing);
    addRows("a status that is a word", sendAndClose("HTTP/1.1 abc OK\r\n\r\nno"), nothing);
}

void TestTransportFaults::encodedAnswers_data()
{
    QTest::addColumn<Fault>("fault");
    const QByteArray zipped = QByteArray::fromBase64(
        "H4sIAAAAAAACA6tWSs7Iz0xOLVayiq5Wyk0tLk5MT1WyqlZKzs8rSc0rUbJSSkxSqq2NrQUA27RtqyoAAAA=");
    // fromUtf8(QByteArray) of Qt 5 ends at a NUL.
    const auto text = [](const QByteArray &bytes) {
        return QString::fromUtf8(bytes.constData(), int(bytes.size()));
    };
    const auto encoded = [](const QByteArray &encoding, const QByteArray &status, const QByteArray &bytes) {
        const QByteArray headers = "Content-Encoding: " + encoding + "\r\n" + length(int(bytes.size()));
        return sendAndClose(head(status, headers) + bytes);
    };
    for (const char *encoding :
         {"gzip", "x-gzip", "deflate", "compress", "br", "zstd", "GZIP", "identity, gzip"}) {
        const QString error = QStringLiteral("299 (Unrequested encoding: %1)").arg(encoding);
        addRows(encoding, encoded(encoding, "200 OK", zipped), failure("200 OK", error, text(zipped)));
    }
    addRows("plain text that claims to be gzip", encoded("gzip", "200 OK", "no gzip at all"),
            failure("200 OK", "299 (Unrequested encoding: gzip)", "no gzip at all"));
    addRows("gzip cut",
            sendAndClose(head("200 OK", "Content-Encoding: gzip\r\n" + length(80)) + zipped.left(20)),
            failure("200 OK", closed, text(zipped.left(20))));
    addRows("an encoded error keeps its number", encoded("gzip", "403 Forbidden", "no"),
            failure("403 Forbidden", "201 (Error transferring {url} - server replied: Forbidden)", "no"));
    addGoodAnswers("identity", [](const QByteArray &body) {
        return send(head("200 OK", "Content-Encoding: identity\r\n" + length(int(body.size()))) + body);
    });
    addGoodAnswers("an encoding that nobody knows", [](const QByteArray &body) {
        return send(head("200 OK", "Content-Encoding: rot13\r\n" + length(int(body.size()))) + body);
    });
}

void TestTransportFaults::statusesWithoutAnAnswer_data()
{
    QTest::addColumn<Fault>("fault");
    const QStringList empty = noJson("illegal value", "(empty response body)");
    const auto add = [&](const char *name, const QByteArray &bytes) {
        QTest::addRow("%s, whole", name) << Fault{send(bytes), whole, {empty}};
        QTest::addRow("%s, stream", name) << Fault{send(bytes), stream, {{"finished: "}}};
    };
    add("204", head("204 No Content"));
    add("201 without a body", head("201 Created", length(0)));
    add("103 counts as the answer", head("103 Early Hints", "Link: </x>\r\n" + length(0)));
    add("304", head("304 Not Modified"));
    add("304 with the length of what was not modified", head("304 Not Modified", length(100)));
    add("204 with a length", head("204 No Content", length(100)));
    add("302 without an address", head("302 Found", length(0)));
}

void TestTransportFaults::errorStatuses_data()
{
    QTest::addColumn<Fault>("fault");
    const auto add = [](const char *status, const char *error) {
        const QString reason = QString(status).section(' ', 1);
        const QString text =
            QString(error).contains('(')
                ? QString(error)
                : QString("%1 (Error transferring {url} - server replied: %2)").arg(QString(error), reason);
        addRows(status, sendAndClose(head(status, length(2)) + "no"), failure(status, text, "no"));
    };
    add("400 Bad Request", "302");
    add("402 Payment Required", "299");
    add("403 Forbidden", "201");
    add("404 Not Found", "203");
    add("405 Method Not Allowed", "202");
    add("407 Proxy Authentication Required", "105 (Proxy requires authentication)");
    add("409 Conflict", "206");
    add("410 Gone", "207");
    add("413 Payload Too Large", "299");
    add("418 I'm a teapot", "302");
    add("422 Unprocessable Entity", "299");
    add("429 Too Many Requests", "299");
    add("500 Internal Server Error", "401");
    add("501 Not Implemented", "402");
    add("502 Bad Gateway", "499");
    add("503 Service Unavailable", "403");
    add("504 Gateway Timeout", "499");
    add("529 Overloaded", "499");
    add("999 Odd", "499");

    const QString authentication = "204 (Host requires authentication)";
    addRows("401 without a challenge", send(head("401 Unauthorized", length(2)) + "no"),
            failure("401 Unauthorized", authentication, "no"));
    addRows("401 with a bearer challenge",
            send(head("401 Unauthorized", "WWW-Authenticate: Bearer realm=\"x\"\r\n" + length(2)) + "no"),
            failure("401 Unauthorized", authentication, "no"));
    addRows("401 with a basic challenge",
            send(head("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n" + length(2)) + "no"),
            failure("401 Unauthorized", authentication, "no"));
    addRows("500 with an empty reason", send("HTTP/1.1 500 \r\n" + length(0) + "\r\n"),
            failure("500", "401 (Error transferring {url} - server replied: )", "(empty response body)"));
    addRows("500 without a reason or a blank", send("HTTP/1.1 500\r\n" + length(2) + "\r\nno"),
            failure(QString("500 %1").arg(missingReason).trimmed(),
                    QString("401 (Error transferring {url} - server replied: %1)").arg(missingReason), "no"));
    addRows("500 with fewer bytes than announced",
            sendAndClose(head("500 Internal Server Error", length(100)) + "no"),
            failure("500 Internal Server Error", closed, "no"));
    // Qt keeps back what asks for credentials, and forgets it where it notices the cut.
    for (AnswerMode mode : {whole, stream}) {
        QTest::addRow("401 with fewer bytes than announced, %s", mode == whole ? "whole" : "stream")
            << Fault{sendAndClose(head("401 Unauthorized", length(100)) + "no"),
                     mode,
                     {{failure("401 Unauthorized", authentication, "no")},
                      {failure(QString(), closed, "(empty response body)")}}};
    }
    addRows("a key that the server sends back is reported as it came",
            sendAndClose(head("401 Unauthorized") + "bad key " + faultKey().toUtf8()),
            failure("401 Unauthorized", authentication, "bad key {key}"));
}

void TestTransportFaults::play()
{
    QFETCH(Fault, fault);
    RawHttpServer server(fault.script);
    const QStringList log = signalsOf(server.baseUrl(), fault.mode);
    QVERIFY2(fault.outcomes.contains(log), qPrintable(log.join("\n")));
    // Qt asks again by itself where an answer is no HTTP, up to four times.
    QVERIFY(server.requests().size() >= 1 && server.requests().size() <= 4);
    for (const QByteArray &request : server.requests())
        QCOMPARE(request.count(faultKey().toUtf8()), 1);
    playWithAllOptions(server.baseUrl(), fault);
}

// What failed fails the same. What came to an answer does so, or tells that it was none.
void TestTransportFaults::playWithAllOptions(const QString &baseUrl, const Fault &fault)
{
    const QStringList log = signalsOf(baseUrl, fault.mode, allOptions());
    QVERIFY2(fault.outcomes.contains(log) || (fault.mode == stream && isStrictFault(log.last())),
             qPrintable(log.join("\n")));
}

void TestTransportFaults::redirectIsNotFollowed_data()
{
    QTest::addColumn<QByteArray>("status");
    for (const char *status : {"300 Multiple Choices", "301 Moved Permanently", "302 Found", "303 See Other",
                               "305 Use Proxy", "307 Temporary Redirect", "308 Permanent Redirect"})
        QTest::newRow(status) << QByteArray(status);
}

void TestTransportFaults::redirectIsNotFollowed()
{
    QFETCH(QByteArray, status);
    RawHttpServer other(send(RawHttpServer::answer("200 OK", document)));
    const QByteArray location = "Location: " + other.baseUrl().toUtf8() + "/chat/completions\r\n";
    RawHttpServer server(send(head(status, location + length(5)) + "moved"));
    QCOMPARE(signalsOf(server.baseUrl(), stream), QStringList{"finished: "});
    QCOMPARE(signalsOf(server.baseUrl(), whole), noJson("illegal value", "moved"));
    QCOMPARE(server.requests().size(), 2);
    QVERIFY(other.requests().isEmpty());
}

void TestTransportFaults::droppedConnectionDoesNotHurtTheNextRequest()
{
    // The head promises to keep the connection, and the server drops it all the same.
    RawHttpServer server(
        sendAndClose(head("200 OK", "Connection: keep-alive\r\n" + length(int(document.size()))) + document));
    for (int i = 0; i < 3; ++i)
        QCOMPARE(signalsOf(server.baseUrl(), whole), wholeAnswer);
    QCOMPARE(server.requests().size(), 3);
}

void TestTransportFaults::refusedConnectionIsReported()
{
    QString baseUrl;
    {
        const RawHttpServer server({});
        baseUrl = server.baseUrl();
    }
    const QStringList refused{failure(QString(), "1 (Connection refused)", "(empty response body)")};
    QCOMPARE(signalsOf(baseUrl, whole), refused);
    QCOMPARE(signalsOf(baseUrl, stream), refused);
}

QTEST_GUILESS_MAIN(TestTransportFaults)
#include "tst_transportfaults.moc"
