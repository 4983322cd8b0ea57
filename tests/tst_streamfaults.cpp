// What the client makes of streams that no service should send.

#include "support/completions.h"
#include "support/faultrun.h"

#include <qtagent/chatcompletion_p.h>
#include <qtagent/testing/streamserver.h>

#include <QJsonDocument>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// The line of an event whose first choice holds the JSON @p content, without its end.
QByteArray line(const QByteArray &content)
{
    return R"(data: {"choices":[{"index":0,"delta":{"content":)" + content + "}}]}";
}

const QByteArray a = line(R"("a")");
const QByteArray b = line(R"("b")");

// An event that is "levels" deep in all and carries the text "a".
QByteArray nested(int levels)
{
    return R"(data: {"choices":[{"delta":{"content":"a"}}],"x":)" + QByteArray(levels - 1, '[')
         + QByteArray(levels - 1, ']') + "}\n\n";
}

// The first object with an error, without blanks.
QByteArray errorEventIn(const QByteArray &stream)
{
    const QList<QByteArray> lines = stream.split('\n');
    for (const QByteArray &text : lines) {
        const QJsonObject event = QJsonDocument::fromJson(text.mid(5)).object();
        if (event.contains("error"))
            return QJsonDocument(event).toJson(QJsonDocument::Compact);
    }
    return {};
}

} // namespace

class TestStreamFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void framing_data();
    void framing();
    void payload_data();
    void payload();

    void whatOptionsRead_data();
    void whatOptionsRead();

private:
    void play();
    void playStrictly(const QString &baseUrl, const QByteArray &stream, const QStringList &expected);
};

void TestStreamFaults::framing_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QStringList>("deltas");
    const QStringList both{"a", "b"};
    QTest::newRow("lines end in LF") << a + "\n\n" + b + "\n\n" << both;
    QTest::newRow("lines end in CRLF") << a + "\r\n\r\n" + b + "\r\n\r\n" << both;
    QTest::newRow("lines end in CR only") << a + "\r\r" + b + "\r\r" << QStringList();
    QTest::newRow("no empty line between events") << a + "\n" + b + "\n" << both;
    QTest::newRow("many empty lines") << "\n\n\n" + a + "\n\n\n\n" + b + "\n" << both;
    QTest::newRow("no blank after the colon") << QByteArray(a).replace("data: ", "data:") + "\n"
                                              << QStringList("a");
    QTest::newRow("many blanks around the value") << QByteArray(a).replace("data: ", "data: \t  ") + "  \t\n"
                                                  << QStringList("a");
    QTest::newRow("blanks before the field name") << " \t" + a + "\n" << QStringList("a");
    QTest::newRow("comments") << ": ping\n" + a + "\n:\n\n: data: x\n" + b + "\n" << both;
    QTest::newRow("other fields") << "event: x\nid: 7\nretry: 10\n" + a + "\n\nevent\n" + b + "\n" << both;
    QTest::newRow("an event named error is read like any other") << "event: error\n" + a + "\n\n"
                                                                 << QStringList("a");
    QTest::newRow("field name in capitals") << QByteArray(a).replace("data:", "DATA:") + "\n" + b + "\n"
                                            << QStringList("b");
    QTest::newRow("field name without a colon") << QByteArray(a).replace("data:", "data") + "\n" + b + "\n"
                                                << QStringList("b");
    QTest::newRow("field name that only begins alike") << "database: x\n" + b + "\n" << QStringList("b");
    QTest::newRow("a byte-order mark costs the first event") << "\xef\xbb\xbf" + a + "\n\n" + b + "\n\n"
                                                             << QStringList("b");
    QTest::newRow("one event in two data lines is lost")
        << QByteArray("data: {\"choices\":[\ndata: {\"delta\":{\"content\":\"x\"}}]}\n\n") + b + "\n\n"
        << QStringList("b");
    QTest::newRow("no line feed at the end costs the last event") << a + "\n\n" + b << QStringList("a");
    QTest::newRow("only a line without an end") << a << QStringList();
    QTest::newRow("text after the end mark is delivered") << "data: [DONE]\n\n" + b + "\n\n"
                                                          << QStringList("b");
    QTest::newRow("the end mark without a blank") << a + "\ndata:[DONE]\n" << QStringList("a");
    QTest::newRow("the end mark twice") << a + "\ndata: [DONE]\n\ndata: [DONE]\n\n" << QStringList("a");
    QTest::newRow("no end mark") << a + "\n\n" << QStringList("a");
    QTest::newRow("more than a report shows")
        << (a + "\n\n").repeated(60) << QStringList(QVector<QString>(60, "a").toList());
    QTest::newRow("more blanks than a report shows")
        << a + "\n\n" + QByteArray(3000, '\n') << QStringList("a");
    QTest::newRow("only an end mark") << QByteArray("data: [DONE]\n\n") << QStringList();
    QTest::newRow("nothing at all") << QByteArray() << QStringList();
    QTest::newRow("only line feeds") << QByteArray(100, '\n') << QStringList();
    QTest::newRow("an empty data line") << "data:\n\n" + b + "\n" << QStringList("b");
}

void TestStreamFaults::framing()
{
    play();
}

void TestStreamFaults::payload_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QStringList>("deltas");
    const auto event = [](const QByteArray &json) { return "data: " + json + "\n\n" + b + "\n\n"; };
    const auto content = [](const QByteArray &json) { return line(json) + "\n\n" + b + "\n\n"; };
    const QStringList onlyB{"b"};
    QTest::newRow("choices are empty") << event(R"({"choices":[],"usage":{"total_tokens":3}})") << onlyB;
    QTest::newRow("choices are null") << event(R"({"choices":null})") << onlyB;
    QTest::newRow("choices are missing") << event("{}") << onlyB;
    QTest::newRow("choices are an object")
        << event(R"({"choices":{"0":{"delta":{"content":"x"}}}})") << onlyB;
    QTest::newRow("a choice is a number") << event(R"({"choices":[5]})") << onlyB;
    QTest::newRow("a choice without a delta") << event(R"({"choices":[{"index":0}]})") << onlyB;
    QTest::newRow("a delta is null") << event(R"({"choices":[{"delta":null}]})") << onlyB;
    QTest::newRow("a message where the delta should be")
        << event(R"({"choices":[{"message":{"content":"x"}}]})") << onlyB;
    QTest::newRow("the second choice is not read")
        << event(R"({"choices":[{"delta":{}},{"delta":{"content":"x"}}]})") << onlyB;
    QTest::newRow("content is null") << content("null") << onlyB;
    QTest::newRow("content is a number") << content("5") << onlyB;
    QTest::newRow("content is true") << content("true") << onlyB;
    QTest::newRow("content is an object") << content(R"({"text":"x"})") << onlyB;
    QTest::newRow("content is empty") << content(R"("")") << onlyB;
    QTest::newRow("content of blanks is delivered") << content(R"(" \n")") << QStringList{" \n", "b"};
    QTest::newRow("reasoning fields are not text")
        << event(R"({"choices":[{"delta":{"content":null,"reasoning_content":"x","reasoning":"y"}}]})")
        << onlyB;
    QTest::newRow("a role without content")
        << event(R"({"choices":[{"delta":{"role":"assistant"}}]})") << onlyB;
    QTest::newRow("content beside a finish reason")
        << event(R"({"choices":[{"delta":{"content":"x"},"finish_reason":"stop"}]})")
        << QStringList{"x", "b"};
    QTest::newRow("an error object is not noticed")
        << event(R"({"error":{"message":"overloaded"}})") << onlyB;
    QTest::newRow("an error object beside content")
        << event(R"({"error":{},"choices":[{"delta":{"content":"x"}}]})") << QStringList{"x", "b"};
    QTest::newRow("not JSON") << event("nonsense") << onlyB;
    QTest::newRow("JSON cut off") << event(R"({"choices":[{"delta":{"content":"x)") << onlyB;
    QTest::newRow("text after the object") << event(R"({"choices":[{"delta":{"content":"x"}}]} x)") << onlyB;
    QTest::newRow("a comma too many") << event(R"({"choices":[{"delta":{"content":"x"}},]})") << onlyB;
    QTest::newRow("an array") << event(R"([{"choices":[{"delta":{"content":"x"}}]}])") << onlyB;
    QTest::newRow("a text") << event(R"("choices")") << onlyB;
    QTest::newRow("a number") << event("1") << onlyB;
    QTest::newRow("escaped characters")
        << content(R"("\n\t\"\\\/\u8bbe")") << QStringList{"\n\t\"\\/设", "b"};
    QTest::newRow("a surrogate pair in escapes") << content(R"("\ud83d\ude00")") << QStringList{"😀", "b"};
    QTest::newRow("an escaped NUL") << content(R"("x\u0000y")")
                                    << QStringList{QString("x%1y").arg(QChar(0)), "b"};
    QTest::newRow("a raw NUL") << event(QByteArray("{\"choices\":\0[]}", 14)) << onlyB;
    QTest::newRow("bad UTF-8") << content("\"x\xff\"") << onlyB;
    QTest::newRow("UTF-8 cut inside a character") << content("\"x\xe8\xae\"") << onlyB;
    QTest::newRow("UTF-8 of a surrogate") << content("\"\xed\xa0\xbd\"") << onlyB;
    QTest::newRow("text that looks like markup and place markers")
        << content(R"("<b>%1</b> %L2 \u202e")") << QStringList{"<b>%1</b> %L2 \u202e", "b"};
    QTest::newRow("a text of many kilobytes")
        << content('"' + QByteArray(20000, 'x') + '"') << QStringList{QString(20000, 'x'), "b"};
    QTest::newRow("1,024 levels are read") << nested(1024) + b + "\n" << QStringList{"a", "b"};
    QTest::newRow("1,025 levels are skipped") << nested(1025) + b + "\n" << onlyB;
    const QStringList halves{QString(QChar(0xd83d)), QString(QChar(0xde00))};
    QTest::newRow("a surrogate pair over two events")
        << line(R"("\ud83d")") + "\n\n" + line(R"("\ude00")") + "\n\n"
        << halves;
}

void TestStreamFaults::payload()
{
    play();
}

// Plays the stream at once and in pieces of several sizes: the caller sees the same each time.
void TestStreamFaults::play()
{
    QFETCH(QByteArray, stream);
    QFETCH(QStringList, deltas);
    QStringList expected;
    for (const QString &delta : deltas)
        expected.append("delta: " + delta);
    expected.append("finished: " + deltas.join(QString()));

    const int size = int(stream.size());
    for (int pieceSize : {qMax(1, size), 1, 2, 3, 7, 64, 1024}) {
        QList<QByteArray> pieces{eventStreamHead()};
        for (int i = 0; i < size; i += pieceSize)
            pieces.append(stream.mid(i, pieceSize));
        StreamServer server;
        server.addRaw(pieces);
        QCOMPARE(signalsOf(server.baseUrl(), AnswerMode::Stream), expected);
        QCOMPARE(server.requestBodies().size(), 1);
        server.addRaw(pieces);
        playStrictly(server.baseUrl(), stream, expected);
    }
}

// The same text arrives, and the end is the same or tells what is wrong, with all that a report needs.
void TestStreamFaults::playStrictly(const QString &baseUrl, const QByteArray &stream,
                                    const QStringList &expected)
{
    QStringList log = signalsOf(baseUrl, AnswerMode::Stream, allOptions());
    QVERIFY2(log.filter("{key}").isEmpty(), qPrintable(log.join('\n')));
    const QString end = log.takeLast();
    // Blanks at the beginning wait for what follows.
    QCOMPARE(log.join(QString()).remove("delta: "),
             QStringList(expected.mid(0, expected.size() - 1)).join(QString()).remove("delta: "));
    if (end == expected.last())
        return;
    const QString fault = end.section('\n', 0, 0);
    const bool tellsEvent = fault == "failed: Error event in the stream.";
    QVERIFY2(tellsEvent || fault == "failed: No answer in the stream."
                 || fault == "failed: The stream ended early.",
             qPrintable(end));
    const QString report = failure("200 OK", {}, bodySummary(tellsEvent ? errorEventIn(stream) : stream));
    QCOMPARE(end, QString(report).replace(0, int(qstrlen("failed: ")), fault + '\n'));
}

void TestStreamFaults::whatOptionsRead_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::addColumn<QStringList>("entries");
    QTest::newRow("content in parts")
        << line(R"([{"type":"text","text":"x"}])") << QStringList{"delta: x", "delta: b", "finished: xb"};
    QTest::newRow("a tool call") << QByteArray(
        R"(data: {"choices":[{"delta":{"tool_calls":[{"index":0,"function":{"name":"f"}}]}}]})")
                                 << QStringList{"delta: b", "response", "finished: b"};
    QTest::newRow("text behind tags")
        << line(R"("<think>x</think>y")") << QStringList{"delta: y", "delta: b", "finished: yb"};
}

void TestStreamFaults::whatOptionsRead()
{
    QFETCH(QByteArray, event);
    QFETCH(QStringList, entries);
    StreamServer server;
    server.addEvents({event, b, doneEvent()});
    QCOMPARE(signalsOf(server.baseUrl(), AnswerMode::Stream, allOptions()), entries);
    QStringList plain{"delta: b", "finished: b"};
    if (event.contains("</think>"))
        plain = QStringList{"delta: <think>x</think>y", "delta: b", "finished: <think>x</think>yb"};
    server.addEvents({event, b, doneEvent()});
    QCOMPARE(signalsOf(server.baseUrl(), AnswerMode::Stream), plain);
}

QTEST_GUILESS_MAIN(TestStreamFaults)
#include "tst_streamfaults.moc"
