#include <qtagent/mcp/linereader_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestLineReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesAreTheSameHoweverTheyArrive_data();
    void linesAreTheSameHoweverTheyArrive();
    void unfinishedLineIsKept();
    void longLinesStopTheReader_data();
    void longLinesStopTheReader();
};

namespace {

QList<QByteArray> linesOf(LineReader &reader)
{
    QList<QByteArray> lines;
    QByteArray line;
    while (reader.takeLine(&line))
        lines.append(line);
    return lines;
}

} // namespace

void TestLineReader::linesAreTheSameHoweverTheyArrive_data()
{
    QTest::addColumn<int>("portion");
    QTest::newRow("whole") << 1000;
    QTest::newRow("byte by byte") << 1;
    QTest::newRow("three by three") << 3;
}

void TestLineReader::linesAreTheSameHoweverTheyArrive()
{
    QFETCH(int, portion);
    const QByteArray bytes = QByteArray("first\n\nthird line\r\n水\n") + '\0' + "\nlast";
    LineReader reader(100);
    QList<QByteArray> lines;
    for (int i = 0; i < bytes.size(); i += portion) {
        reader.append(bytes.mid(i, portion));
        lines += linesOf(reader);
    }
    const QList<QByteArray> expected{"first", "", "third line\r", "水", QByteArray(1, '\0')};
    QCOMPARE(lines, expected);
    QVERIFY(!reader.isLineTooLong());
}

void TestLineReader::unfinishedLineIsKept()
{
    LineReader reader(100);
    reader.append("a\nb");
    QCOMPARE(linesOf(reader), QList<QByteArray>{"a"});
    QVERIFY(linesOf(reader).isEmpty());
    reader.append("c\nd");
    QCOMPARE(linesOf(reader), QList<QByteArray>{"bc"});
}

void TestLineReader::longLinesStopTheReader_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QList<QByteArray>>("lines");
    QTest::addColumn<bool>("isTooLong");
    using List = QList<QByteArray>;
    QTest::newRow("as long as allowed") << QByteArray("12345\n") << List{"12345"} << false;
    QTest::newRow("one byte more") << QByteArray("123456\n1\n") << List() << true;
    QTest::newRow("without an end") << QByteArray("1\n123456") << List{"1"} << true;
    QTest::newRow("not yet") << QByteArray("1\n12345") << List{"1"} << false;
}

void TestLineReader::longLinesStopTheReader()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QList<QByteArray>, lines);
    QFETCH(bool, isTooLong);
    LineReader reader(5);
    reader.append(bytes);
    QCOMPARE(linesOf(reader), lines);
    QCOMPARE(reader.isLineTooLong(), isTooLong);
    if (isTooLong) {
        reader.append("\n1\n");
        QVERIFY(linesOf(reader).isEmpty());
    }
}

QTEST_APPLESS_MAIN(TestLineReader)
#include "tst_linereader.moc"
