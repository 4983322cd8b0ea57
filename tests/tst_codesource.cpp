#include <qtagent/widgets/codesource_p.h>
#include <qtagent/widgets/markdownreader_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestCodeSource : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void codeInAFenceIsExact_data();
    void codeInAFenceIsExact();
    void codeInAListOrQuoteIsExact_data();
    void codeInAListOrQuoteIsExact();
    void codeWithTheSameLinesIsToldApart();
};

void TestCodeSource::codeInAFenceIsExact_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("code");

    QTest::newRow("one line") << "```\na\n```\nb"
                              << "a";
    QTest::newRow("language") << "```cpp\nint a;\n\nint b;\n```"
                              << "int a;\n\nint b;";
    QTest::newRow("blank lines at both ends") << "```\n\na\n\n```"
                                              << "\na\n";
    QTest::newRow("open") << "~~~\na\nb"
                          << "a\nb";
    QTest::newRow("open behind a line end") << "~~~\na\n"
                                            << "a";
    QTest::newRow("carriage returns") << "```\r\na\r\nb\r\n```\r\n"
                                      << "a\r\nb";
    QTest::newRow("tabs") << "```\n\ta\n\t\tb \n```"
                          << "\ta\n\t\tb ";
    QTest::newRow("indented fence") << "  ```\n  a\n    b\n c\n  ```"
                                    << "a\n  b\nc";
    QTest::newRow("longer fence") << "````\n```\na\n```\n````"
                                  << "```\na\n```";
    QTest::newRow("long line") << "```\n" + QString(25000, 'x') + "\ny\n```" << QString(25000, 'x') + "\ny";
    QTest::newRow("odd characters") << "```\n" + QString::fromLatin1("a\0b", 3) + QChar(0xd800) + "\n```"
                                    << QString::fromLatin1("a\0b", 3) + QChar(0xd800);
    QTest::newRow("nothing") << "```\n```"
                             << "";
    QTest::newRow("another fence follows") << "```\na\n```\n```\nb\n```"
                                           << "a";
}

void TestCodeSource::codeInAFenceIsExact()
{
    QFETCH(QString, source);
    QFETCH(QString, code);
    QCOMPARE(codeInFence(source, 0), code);
    QCOMPARE(codeInFence("text\n\n" + source, 6), code);
}

void TestCodeSource::codeInAListOrQuoteIsExact_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("code");

    QTest::newRow("item") << "1. a\n\n   ```sh\n   make\n     test\n   ```\n"
                          << "make\n  test";
    QTest::newRow("first blank line") << "- a\n  ```\n\n  b\n  ```"
                                      << "\nb";
    QTest::newRow("blank lines") << "- a\n  ```\n\n  b\n\n  c\n\n  ```"
                                 << "\nb\n\nc\n";
    QTest::newRow("quote") << "> ```\n>\n> a\n> b\n> ```"
                           << "\na\nb";
    QTest::newRow("first line of an item") << "- ```\n  a\n  ```"
                                           << "a";
    QTest::newRow("by indentation") << "    a\n\n      b"
                                    << "a\n\n  b";
    QTest::newRow("tab") << "> ```\n> a\tb\n> ```"
                         << "a\tb";
    QTest::newRow("odd characters") << "- ```\n  " + QString::fromLatin1("a\0b", 3) + QChar(0xdc00)
                                           + "\n  ```"
                                    << QString::fromLatin1("a\0b", 3) + QChar(0xdc00);
    QTest::newRow("carriage returns") << "- ```\r\n  a\r\n  b\r\n  ```"
                                      << "a\nb";
    QTest::newRow("line that looks like the text") << "- code\n\n  ```\n  code\n  ```"
                                                   << "code";
}

void TestCodeSource::codeInAListOrQuoteIsExact()
{
    QFETCH(QString, source);
    QFETCH(QString, code);
    MarkdownReader reader;
    QCOMPARE(codeInText(reader.read(source), source, 0), code);
}

void TestCodeSource::codeWithTheSameLinesIsToldApart()
{
    const QString source = "> ```\n> a\n> ```\n> text\n> ```\n>\n> a\n> b\n> ```";
    MarkdownReader reader;
    const RichText text = reader.read(source);
    QCOMPARE(codeInText(text, source, 0), QString("a"));
    QCOMPARE(codeInText(text, source, 1), QString("\na\nb"));
    QCOMPARE(codeInText(text, source, 2), QString());
}

QTEST_MAIN(TestCodeSource)

#include "tst_codesource.moc"
