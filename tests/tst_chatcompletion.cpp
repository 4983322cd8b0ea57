#include <qtagent/chatcompletion_p.h>

#include <QJsonDocument>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestChatCompletion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aBodyIsSummarized_data();
    void aBodyIsSummarized();
    void noMoreIsKeptThanTheSummaryNeeds_data();
    void noMoreIsKeptThanTheSummaryNeeds();
    void theFirstChoiceHoldsTheMessage_data();
    void theFirstChoiceHoldsTheMessage();
};

void TestChatCompletion::aBodyIsSummarized_data()
{
    const QByteArray html = "<html>" + QByteArray(3000, 'x');
    const QByteArray longJson = "[\"" + QByteArray(3000, 'x') + "\"]";
    // The cut after 2000 bytes lies inside a character of three.
    const QByteArray wideText = QByteArray(1999, 'x') + QStringLiteral("泵站").toUtf8();
    const QString wideCharacters = QString(1990, 'x') + QString(3000, QChar(0x6CF5));
    const QByteArray longMessage = R"({"error":{"message":")" + QByteArray(3000, 'm') + R"("}})";

    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("summary");
    QTest::newRow("nothing") << QByteArray() << "(empty response body)";
    QTest::newRow("white space") << QByteArray(" \r\n\t ") << "(empty response body)";
    QTest::newRow("text, trimmed") << QByteArray("\n Bad Gateway \r\n") << "Bad Gateway";
    QTest::newRow("a scalar is text") << QByteArray("42") << "42";
    QTest::newRow("text is cut after 2000 bytes") << html << QString::fromUtf8(html.left(2000));
    QTest::newRow("a cut inside a character")
        << wideText << QString(1999, 'x') + QChar(QChar::ReplacementCharacter);
    QTest::newRow("2000 bytes are not cut") << QByteArray(2000, 'x') << QString(2000, 'x');
    QTest::newRow("message, type and code")
        << QByteArray(R"({"error":{"code":"C","type":"T","message":"M"},"message":"other"})")
        << "M; type=T; code=C";
    QTest::newRow("message only") << QByteArray(R"({"error":{"message":"M"}})") << "M";
    QTest::newRow("type and code") << QByteArray(R"({"error":{"type":"T","code":"C"}})") << "type=T; code=C";
    QTest::newRow("a numeric code reads as empty")
        << QByteArray(R"({"error":{"message":"M","code":42}})") << "M";
    QTest::newRow("a message is never cut") << longMessage << QString(3000, 'm');
    QTest::newRow("place markers in texts stay")
        << QByteArray(R"({"error":{"message":"%1 %2","type":"%1","code":"%2"}})")
        << "%1 %2; type=%1; code=%2";
    QTest::newRow("an error object without texts")
        << QByteArray(R"({ "message": "M", "error": { "code": 42 } })")
        << R"({"error":{"code":42},"message":"M"})";
    QTest::newRow("an error text") << QByteArray(R"({"error":"E","message":"M"})") << "E";
    QTest::newRow("an empty error text") << QByteArray(R"({"error":"","message":"M"})") << "";
    QTest::newRow("an error of another type") << QByteArray(R"({"error":null,"message":"M"})") << "M";
    QTest::newRow("a message") << QByteArray(R"({"message":"M"})") << "M";
    QTest::newRow("an empty message") << QByteArray(R"({"message": ""})") << R"({"message":""})";
    QTest::newRow("another object") << QByteArray(R"({ "detail" : "D" })") << R"({"detail":"D"})";
    QTest::newRow("an empty object") << QByteArray("{ }") << "{}";
    QTest::newRow("an array") << QByteArray("[ 1, 2 ]") << "[1,2]";
    QTest::newRow("JSON is cut after 2000 characters") << longJson << QString::fromUtf8(longJson.left(2000));
    QTest::newRow("JSON is cut by characters, not bytes")
        << ("[\"" + wideCharacters.toUtf8() + "\"]") << ("[\"" + wideCharacters).left(2000);
    QTest::newRow("JSON is not cut inside a character")
        << ("[\"" + QByteArray(1997, 'x') + "\U0001F600\U0001F600\"]") << ("[\"" + QString(1997, 'x'));
    QTest::newRow("JSON is cut behind a character of two halves")
        << ("[\"" + QByteArray(1996, 'x') + "\U0001F600\U0001F600\"]")
        << ("[\"" + QString(1996, 'x') + "\U0001F600");
}

void TestChatCompletion::aBodyIsSummarized()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, summary);
    QCOMPARE(bodySummary(body), summary);

    for (const int portion : {1, 7, qMax(1, int(body.size()))}) {
        SummarizedBody kept;
        for (int position = 0; position < body.size(); position += portion)
            kept.append(body.mid(position, portion));
        QCOMPARE(bodySummary(kept.bytes()), summary);
    }
}

void TestChatCompletion::noMoreIsKeptThanTheSummaryNeeds_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("kept");
    QTest::newRow("text") << QByteArray(9000, 'x') << 2001;
    QTest::newRow("short text") << QByteArray("Bad Gateway") << 11;
    QTest::newRow("white space before text") << QByteArray(9000, ' ') + QByteArray(9000, 'x') << 2001;
    QTest::newRow("white space behind text") << "x" + QByteArray(9000, ' ') << 2000;
    QTest::newRow("text behind white space behind text")
        << "x" + QByteArray(9000, ' ') + QByteArray(9000, 'y') << 2001;
    QTest::newRow("white space alone") << QByteArray(9000, ' ') << 0;
    QTest::newRow("an object") << "  {" + QByteArray(9000, 'x') << 9001;
    QTest::newRow("an array") << "[" + QByteArray(9000, 'x') << 9001;
    const QByteArray mark = "\xef\xbb\xbf";
    QTest::newRow("an object behind a byte-order mark") << mark + "{" + QByteArray(9000, 'x') << 9004;
    QTest::newRow("an object behind a byte-order mark and blanks")
        << mark + " \n[" + QByteArray(9000, 'x') << 9006;
    QTest::newRow("JSON behind a byte-order mark and many blanks")
        << mark + QByteArray(9000, ' ') + R"({"message":"M"})" << 2015;
    QTest::newRow("text behind a byte-order mark and many blanks")
        << mark + QByteArray(9000, ' ') + QByteArray(9000, 'x') << 2001;
    QTest::newRow("a byte-order mark and blanks alone") << mark + QByteArray(9000, ' ') << 2000;
    QTest::newRow("a stream behind a byte-order mark")
        << mark + QByteArray("data: {}\n\n").repeated(1000) << 2001;
    QTest::newRow("half a byte-order mark") << "\xef\xbb{" + QByteArray(9000, 'x') << 2001;
    QTest::newRow("text that begins like a byte-order mark")
        << QByteArray("\xef\xbc\xa1").repeated(3000) << 2001;
}

void TestChatCompletion::noMoreIsKeptThanTheSummaryNeeds()
{
    QFETCH(QByteArray, body);
    for (const int portion : {1, 7, int(body.size())}) {
        SummarizedBody kept;
        for (int position = 0; position < body.size(); position += portion)
            kept.append(body.mid(position, portion));
        QTEST(int(kept.bytes().size()), "kept");
        QCOMPARE(bodySummary(kept.bytes()), bodySummary(body));
    }
}

void TestChatCompletion::theFirstChoiceHoldsTheMessage_data()
{
    QTest::addColumn<QByteArray>("response");
    QTest::addColumn<QString>("content");
    QTest::newRow("a message") << QByteArray(R"({"choices":[{"message":{"content":"a"}},{}]})") << "a";
    QTest::newRow("no choices") << QByteArray("{}") << "";
    QTest::newRow("empty choices") << QByteArray(R"({"choices":[]})") << "";
    QTest::newRow("choices that are no array") << QByteArray(R"({"choices":"a"})") << "";
    QTest::newRow("a choice that is no object") << QByteArray(R"({"choices":["a"]})") << "";
    QTest::newRow("a message that is no object") << QByteArray(R"({"choices":[{"message":"a"}]})") << "";
}

void TestChatCompletion::theFirstChoiceHoldsTheMessage()
{
    QFETCH(QByteArray, response);
    QFETCH(QString, content);
    const QJsonObject message = responseMessage(QJsonDocument::fromJson(response).object());
    QCOMPARE(message["content"].toString(), content);
}

QTEST_APPLESS_MAIN(TestChatCompletion)
#include "tst_chatcompletion.moc"
