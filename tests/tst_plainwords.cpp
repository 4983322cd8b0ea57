#include <qtagent/widgets/plainwords_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestPlainWords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wordsAreAddedAsTheyAre_data();
    void wordsAreAddedAsTheyAre();
    void whatMayBeMarkupIsRead_data();
    void whatMayBeMarkupIsRead();
};

void TestPlainWords::wordsAreAddedAsTheyAre_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("added");
    QTest::addColumn<QString>("words");

    QTest::newRow("end of a word") << "a wo"
                                   << "rd"
                                   << "rd";
    QTest::newRow("next word") << "a"
                               << " word"
                               << " word";
    QTest::newRow("words") << "a"
                           << "b, and more."
                           << "b, and more.";
    QTest::newRow("blank at the end is not shown") << "a"
                                                   << "b "
                                                   << "b";
    QTest::newRow("nothing but a blank") << "a"
                                         << " "
                                         << "";
    QTest::newRow("behind a blank") << "a "
                                    << "word"
                                    << " word";
    QTest::newRow("Chinese") << "先检查"
                             << "冷却水，然后"
                             << "冷却水，然后";
    QTest::newRow("second line") << "# a\nb"
                                 << "c"
                                 << "c";
    QTest::newRow("in an item") << "- one"
                                << " more"
                                << " more";
    QTest::newRow("behind markup") << "**a** b"
                                   << "c"
                                   << "c";
    QTest::newRow("within open markup") << "**a `b [c"
                                        << "d"
                                        << "d";
    QTest::newRow("behind an address") << "http://a.b and"
                                       << " more"
                                       << " more";
}

void TestPlainWords::wordsAreAddedAsTheyAre()
{
    QFETCH(QString, shown);
    QFETCH(QString, added);
    QFETCH(QString, words);
    QCOMPARE(plainWords(shown + added, int(shown.size())), std::optional<QString>(words));
}

void TestPlainWords::whatMayBeMarkupIsRead_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("added");

    QTest::newRow("nothing shown") << ""
                                   << "a";
    QTest::newRow("emphasis") << "a"
                              << "*";
    QTest::newRow("behind emphasis") << "*a*"
                                     << "b";
    QTest::newRow("line end") << "a"
                              << "\n";
    QTest::newRow("first word of a line") << "a\n"
                                          << "b";
    QTest::newRow("list item") << "1"
                               << ".";
    QTest::newRow("first word of an item") << "- "
                                           << "a";
    QTest::newRow("two blanks") << "a "
                                << " b";
    QTest::newRow("two blanks in the middle") << "a"
                                              << " b  c";
    QTest::newRow("address") << "http://a"
                             << "b";
    QTest::newRow("address without a scheme") << "www.a"
                                              << "b";
    QTest::newRow("address that begins") << "www"
                                         << ".a";
    QTest::newRow("mail") << "me@a"
                          << "b";
    QTest::newRow("definition") << "[a]: b"
                                << "c";
    QTest::newRow("definition in an item") << "- a\n\n  [x]: a"
                                           << "b";
    QTest::newRow("fence") << "- a\n  ```a"
                           << "b";
    QTest::newRow("entity") << "&amp"
                            << ";";
    QTest::newRow("surrogate") << "a" << QString(QChar(0xd83d));
    QTest::newRow("NUL") << "a" << QString(QChar(0));
    QTest::newRow("cell") << "a |"
                          << " b";
}

void TestPlainWords::whatMayBeMarkupIsRead()
{
    QFETCH(QString, shown);
    QFETCH(QString, added);
    QVERIFY(!plainWords(shown + added, int(shown.size())));
}

QTEST_APPLESS_MAIN(TestPlainWords)

#include "tst_plainwords.moc"
