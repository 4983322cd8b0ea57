#include <qtagent/answercontent_p.h>
#include <qtagent/thinktagreader_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// Reasoning at the beginning of an answer, in tags.
class TestThinkTagReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tagsAreReadHoweverTheyAreCut_data();
    void tagsAreReadHoweverTheyAreCut();
    void whatCanBeNoTagDoesNotWait();
    void partsOfAContentAreRead_data();
    void partsOfAContentAreRead();
};

namespace {

AnswerPiece readIn(const QStringList &portions)
{
    ThinkTagReader reader;
    AnswerPiece all;
    for (const QString &portion : portions) {
        const AnswerPiece piece = reader.read(portion);
        all.reasoning += piece.reasoning;
        all.text += piece.text;
    }
    const AnswerPiece rest = reader.end();
    return {all.reasoning + rest.reasoning, all.text + rest.text};
}

} // namespace

void TestThinkTagReader::tagsAreReadHoweverTheyAreCut_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("reasoning");
    QTest::addColumn<QString>("text");
    QTest::newRow("no tag") << "Hi"
                            << ""
                            << "Hi";
    QTest::newRow("nothing") << ""
                             << ""
                             << "";
    QTest::newRow("<think>") << "<think>a</think>b"
                             << "a"
                             << "b";
    QTest::newRow("<thinking>") << "<thinking>a</thinking>b"
                                << "a"
                                << "b";
    QTest::newRow("[THINK]") << "[THINK]a[/THINK]b"
                             << "a"
                             << "b";
    QTest::newRow("<mm:think>") << "<mm:think>a</mm:think>b"
                                << "a"
                                << "b";
    QTest::newRow("blanks before it") << " \r\n<think>a</think>b"
                                      << "a"
                                      << "b";
    QTest::newRow("blanks before text stay") << " \n b"
                                             << ""
                                             << " \n b";
    QTest::newRow("line breaks inside stay") << "<think>\na\n</think>b"
                                             << "\na\n"
                                             << "b";
    QTest::newRow("line breaks behind it") << "<think>a</think>\r\n\n b\n"
                                           << "a"
                                           << " b\n";
    QTest::newRow("nothing but line breaks behind it") << "<think>a</think>\n\n"
                                                       << "a"
                                                       << "";
    QTest::newRow("empty") << "<think></think>b"
                           << ""
                           << "b";
    QTest::newRow("never closed") << "<think>a</thin"
                                  << "a</thin"
                                  << "";
    QTest::newRow("closed by another tag") << "<think>a</thinking>b"
                                           << "a</thinking>b"
                                           << "";
    QTest::newRow("the closer begins twice") << "<think>a</thi</think>b"
                                             << "a</thi"
                                             << "b";
    QTest::newRow("never opened") << "a</think>b"
                                  << ""
                                  << "a</think>b";
    QTest::newRow("only a closer") << "</think>b"
                                   << ""
                                   << "</think>b";
    QTest::newRow("in the middle") << "a<think>b</think>"
                                   << ""
                                   << "a<think>b</think>";
    QTest::newRow("a second one") << "<think>a</think><think>b</think>"
                                  << "a"
                                  << "<think>b</think>";
    QTest::newRow("a part of a tag") << " <thin"
                                     << ""
                                     << " <thin";
    QTest::newRow("another tag") << "<thinks>a"
                                 << ""
                                 << "<thinks>a";
    QTest::newRow("in capitals") << "<THINK>a</THINK>"
                                 << ""
                                 << "<THINK>a</THINK>";
    QTest::newRow("inside another one") << "<think>a<think>b</think>c"
                                        << "a<think>b"
                                        << "c";
}

void TestThinkTagReader::tagsAreReadHoweverTheyAreCut()
{
    QFETCH(QString, content);
    for (int first = 0; first <= content.size(); ++first) {
        for (int second = first; second <= content.size(); ++second) {
            const AnswerPiece piece =
                readIn({content.left(first), content.mid(first, second - first), content.mid(second)});
            QTEST(piece.reasoning, "reasoning");
            QTEST(piece.text, "text");
        }
    }
    const AnswerPiece oneByOne = readIn(content.split(QString(), Qt::KeepEmptyParts));
    QTEST(oneByOne.reasoning, "reasoning");
    QTEST(oneByOne.text, "text");
}

void TestThinkTagReader::whatCanBeNoTagDoesNotWait()
{
    ThinkTagReader reader;
    QCOMPARE(reader.read("<t").text, "");
    QCOMPARE(reader.read("d>").text, "<td>");
    QCOMPARE(reader.read("<think>").text, "<think>");
    ThinkTagReader thinking;
    QCOMPARE(thinking.read("<think>ab</").reasoning, "ab");
    QCOMPARE(thinking.read("b>c").reasoning, "</b>c");
}

void TestThinkTagReader::partsOfAContentAreRead_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QString>("reasoning");
    QTest::addColumn<QString>("text");
    QTest::newRow("a text") << QByteArray(R"({"content":"a"})") << ""
                            << "a";
    QTest::newRow("text parts") << QByteArray(
        R"({"content":[{"type":"text","text":"a"},{"type":"text","text":"b"}]})")
                                << ""
                                << "ab";
    QTest::newRow("thinking as a list")
        << QByteArray(R"({"content":[{"type":"thinking","thinking":[{"type":"text","text":"a"}]}]})") << "a"
        << "";
    QTest::newRow("thinking as a text")
        << QByteArray(R"({"content":[{"type":"thinking","thinking":"a"}]})") << "a"
        << "";
    QTest::newRow("beside a field") << QByteArray(
        R"({"reasoning":"x","content":[{"type":"thinking","thinking":"a"}]})")
                                    << "xa"
                                    << "";
    QTest::newRow("other parts") << QByteArray(R"({"content":[{"type":"image","text":"a"},7,"b",null]})")
                                 << ""
                                 << "";
    QTest::newRow("tags in parts") << QByteArray(
        R"({"content":[{"type":"text","text":"<think>a</think>b"}]})")
                                   << "a"
                                   << "b";
}

void TestThinkTagReader::partsOfAContentAreRead()
{
    QFETCH(QByteArray, message);
    RequestOptions options;
    options.readThinkTags = true;
    AnswerContent content(options);
    const AnswerPiece piece = content.read(QJsonDocument::fromJson(message).object());
    QTEST(piece.reasoning, "reasoning");
    QTEST(piece.text, "text");
    QVERIFY(content.end().text.isEmpty());
    QVERIFY(!content.reasoningFields().contains("reasoning_content"));
    AnswerContent plain;
    QVERIFY(!plain.read(QJsonDocument::fromJson(message).object()).reasoning.contains("a"));
}

QTEST_APPLESS_MAIN(TestThinkTagReader)
#include "tst_thinktagreader.moc"
