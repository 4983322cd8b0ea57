#include <qtagent/widgets/markdownreader_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

QString describe(const TextStyle &style)
{
    QString name;
    if (style.isBold)
        name += 'b';
    if (style.isItalic)
        name += 'i';
    if (style.isStruckOut)
        name += 's';
    if (style.isUnderlined)
        name += 'u';
    if (style.isCode)
        name += 'c';
    return style.link.isEmpty() ? name : name + "->" + style.link;
}

QString describe(const RichLine &line)
{
    QString name;
    if (line.heading)
        name += "h" + QString::number(line.heading) + ' ';
    if (line.quote)
        name += "q" + QString::number(line.quote) + ' ';
    if (line.list >= 0)
        name += "list" + QString::number(line.list) + ' ';
    if (line.isCode)
        name += (line.isFirstOfCode ? "first code" : "code") + QString::number(line.code) + ' ';
    if (line.isRule)
        name += "rule ";
    for (const TextRun &run : line.runs)
        name += "{" + describe(run.style) + "}" + run.text;
    return name.trimmed();
}

QStringList describe(const RichText &text)
{
    QStringList lines;
    for (const RichElement &element : text.elements) {
        if (!element.isTable())
            lines.append(describe(element.line));
        for (const RichRow &row : element.rows) {
            QStringList cells;
            for (const RichCell &cell : row)
                cells.append(describe(cell.lines.first()) + (cell.span > 1 ? "<" : ""));
            lines.append("|" + cells.join('|') + "|");
        }
    }
    return lines;
}

QStringList read(const QString &markdown, const QString &definitions = {}, bool isLoose = false)
{
    return describe(MarkdownReader().read(markdown, definitions, isLoose));
}

QString runs(const QString &markdown)
{
    return read(markdown).join('\n');
}

} // namespace

class TestMarkdownReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rendersABlock_data();
    void rendersABlock();
    void pictureIsItsText_data();
    void pictureIsItsText();
    void onlyAddressesToOpenAreLinks_data();
    void onlyAddressesToOpenAreLinks();
    void htmlIsText();
    void whatCannotBeShownIsReplaced_data();
    void whatCannotBeShownIsReplaced();
    void itemOfALooseListHoldsItsCode();
    void definitionsMayStandElsewhere();
    void definitionsAreNotShown();
    void readerForgetsTheTextBefore();
    void tableWithTooManyCellsIsText_data();
    void tableWithTooManyCellsIsText();
    void deepNestingIsBounded();
};

void TestMarkdownReader::rendersABlock_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("emphasis") << "**a** *b* ~~c~~ `d`" << QStringList{"{b}a{} {i}b{} {s}c{} {c}d"};
    QTest::newRow("heading") << "## a" << QStringList{"h2 {b}a"};
    QTest::newRow("soft line break") << "a\nb" << QStringList{"{}a b"};
    QTest::newRow("hard line break") << "a  \nb" << QStringList{"{}a", "{}b"};
    QTest::newRow("list") << "- a\n  - b" << QStringList{"list0 {}a", "list1 {}b"};
    QTest::newRow("quote") << "> a\n> > b" << QStringList{"q1 {}a", "q2 {}b"};
    QTest::newRow("rule") << "---" << QStringList{"rule"};
    QTest::newRow("table") << "|a|b|c|\n|---|---|---|\n|1|**2**||\n|3|||"
                           << QStringList{"|{b}a|{b}b|{b}c|", "|{}1|{b}2||", "|{}3<|"};
    QTest::newRow("code") << "    a\n\n    b" << QStringList{"first code0 {c}a", "code0", "code0 {c}b"};
    QTest::newRow("two codes in a quote")
        << "> ```\n> a\n> ```\n> b\n> ```\n> c\n> ```"
        << QStringList{"q1 first code0 {c}a", "q1 {}b", "q1 first code1 {c}c"};
    QTest::newRow("codes that touch")
        << "> ```\n> a\n> b\n> ```\n> ```\n> c\n> ```"
        << QStringList{"q1 first code0 {c}a", "q1 code0 {c}b", "q1 first code1 {c}c"};
    QTest::newRow("item behind code")
        << "- ```\n  a\n  ```\n- b" << QStringList{"list0 first code0 {c}a", "list0 {}b"};
    QTest::newRow("entity") << "a &amp; &lt;b&gt;" << QStringList{"{}a & <b>"};
    QTest::newRow("empty item") << "-" << QStringList{"list0"};
    QTest::newRow("nothing") << "" << QStringList();
}

void TestMarkdownReader::rendersABlock()
{
    QFETCH(QString, markdown);
    QFETCH(QStringList, lines);
    QCOMPARE(read(markdown), lines);
}

void TestMarkdownReader::pictureIsItsText_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("text");

    QTest::newRow("local file") << "![a cat](cat.png)"
                                << "{}a cat";
    QTest::newRow("web") << "![a cat](https://example.com/cat.png)"
                         << "{->https://example.com/cat.png}a cat";
    QTest::newRow("no text") << "![](file:///dev/zero)"
                             << "{}file:///dev/zero";
    QTest::newRow("no text, web") << "x ![](http://example.com/c)"
                                  << "{}x {->http://example.com/c}http://example.com/c";
    QTest::newRow("mail") << "![](mailto:a@example.com)"
                          << "{}mailto:a@example.com";
    QTest::newRow("emphasis in the text") << "![a *b* c](d)"
                                          << "{}a b c";
    QTest::newRow("line end in the text") << "![a\nb](d)"
                                          << "{}a b";
    QTest::newRow("in code") << "`![](a)`"
                             << "{c}![](a)";
    QTest::newRow("escaped") << "\\![](a)"
                             << "{}!";
    QTest::newRow("by reference") << "![][a]\n\n[a]: b.png"
                                  << "{}b.png";
    QTest::newRow("in a link") << "[![a](b.png)](https://example.com) c"
                               << "{}a c";
    QTest::newRow("data") << "![](data:image/png;base64,AAAA)"
                          << "{}data:image/png;base64,AAAA";
}

void TestMarkdownReader::pictureIsItsText()
{
    QFETCH(QString, markdown);
    QFETCH(QString, text);
    QCOMPARE(runs(markdown), text);
}

void TestMarkdownReader::onlyAddressesToOpenAreLinks_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("isLink");

    QTest::newRow("http") << "http://example.com" << true;
    QTest::newRow("https") << "https://example.com/a?b=c#d" << true;
    QTest::newRow("capitals") << "HTTPS://EXAMPLE.COM" << true;
    QTest::newRow("mail") << "mailto:a@example.com" << true;
    QTest::newRow("no host") << "http:///a" << false;
    QTest::newRow("no address") << "mailto:" << false;
    QTest::newRow("file") << "file:///etc/passwd" << false;
    QTest::newRow("relative") << "a.html" << false;
    QTest::newRow("anchor") << "#a" << false;
    QTest::newRow("script") << "javascript:alert(1)" << false;
    QTest::newRow("data") << "data:text/html,a" << false;
    QTest::newRow("ftp") << "ftp://example.com" << false;
    QTest::newRow("network path") << "//example.com/a" << false;
    QTest::newRow("resource") << "qrc:/a" << false;
}

void TestMarkdownReader::onlyAddressesToOpenAreLinks()
{
    QFETCH(QString, address);
    QFETCH(bool, isLink);
    QCOMPARE(isOpenable(address), isLink);
    QCOMPARE(runs("[text](" + address + ")"), isLink ? "{->" + address + "}text" : QString("{}text"));
}

void TestMarkdownReader::htmlIsText()
{
    QCOMPARE(runs("<b>a</b> <img src=\"file:///dev/zero\">"),
             QString("{}<b>a</b> <img src=\"file:///dev/zero\">"));
    QCOMPARE(runs("<script>\nalert(1)\n</script>"), QString("{}<script> alert(1) </script>"));
}

void TestMarkdownReader::whatCannotBeShownIsReplaced_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("text");

    const QString replacement(QChar(0xfffd));
    QTest::newRow("NUL") << QString::fromLatin1("a\0b", 3) << "{}a" + replacement + "b";
    QTest::newRow("high surrogate") << QString("a") + QChar(0xd83d) << "{}a" + replacement;
    QTest::newRow("low surrogate") << QChar(0xdc00) + QString("a") << "{}" + replacement + "a";
    QTest::newRow("frame") << QString("a") + QChar(0xfdd0) + QChar(0xfdd1)
                           << "{}a" + replacement + replacement;
    QTest::newRow("object") << QString("a") + QChar(0xfffc) << "{}a" + replacement;
    QTest::newRow("mark of a picture") << QString("a") + QChar(0xfdd2) << "{}a" + replacement;
    QTest::newRow("paragraph separator") << QString("a") + QChar(0x2029) + "b"
                                         << "{}a" + QString(QChar(0x2028)) + "b";
    QTest::newRow("pair") << "😀"
                          << "{}😀";
    QTest::newRow("object as an entity") << "a&#xfffc;b"
                                         << "{}a" + replacement + "b";
    QTest::newRow("NUL as an entity") << "a&#0;b"
                                      << "{}a" + replacement + "b";
}

void TestMarkdownReader::whatCannotBeShownIsReplaced()
{
    QFETCH(QString, markdown);
    QFETCH(QString, text);
    QCOMPARE(runs(markdown), text);
}

// In a tight list Qt's reader makes an item of every line of code.
void TestMarkdownReader::itemOfALooseListHoldsItsCode()
{
    const QString item = "1. a\n   ```\n   b\n   ```";
    QCOMPARE(read(item, {}, true), (QStringList{"list0 {}a", "first code0 {c}b"}));
    QCOMPARE(read("- a", {}, true), QStringList{"list0 {}a"});
    QCOMPARE(read("-", {}, true), QStringList());
}

void TestMarkdownReader::definitionsMayStandElsewhere()
{
    const QString definition = "[a]: https://example.com\n\n";
    QCOMPARE(read("see [a]", definition), QStringList{"{}see {->https://example.com}a"});
    QCOMPARE(read("- see [b][a]", definition), QStringList{"list0 {}see {->https://example.com}b"});
}

void TestMarkdownReader::definitionsAreNotShown()
{
    QCOMPARE(read("[a]: https://example.com"), QStringList());
}

void TestMarkdownReader::readerForgetsTheTextBefore()
{
    MarkdownReader reader;
    reader.read("- [x] a\n\n  ```\n  b\n  ```\n");
    QCOMPARE(describe(reader.read("c")), QStringList{"{}c"});
    QCOMPARE(reader.read("c").lists.size(), 0);
    QCOMPARE(int(reader.read("c").elements.first().line.marker), int(QTextBlockFormat::MarkerType::NoMarker));
}

void TestMarkdownReader::tableWithTooManyCellsIsText_data()
{
    QTest::addColumn<QString>("markdown");

    QTest::newRow("columns") << QString("a|").repeated(5000) + "\n" + QString("---|").repeated(5000) + "\nb";
    QTest::newRow("cells") << QString("a|").repeated(150) + "\n" + QString("---|").repeated(150)
                                  + QString("\nb").repeated(900);
    QTest::newRow("in a quote") << "> " + QString("a|").repeated(1000) + "\n> "
                                       + QString("---|").repeated(1000);
}

void TestMarkdownReader::tableWithTooManyCellsIsText()
{
    QFETCH(QString, markdown);
    QString shown;
    for (const RichElement &element : MarkdownReader().read(markdown).elements) {
        QVERIFY(!element.isTable());
        shown += plainText(element.line.runs) + '\n';
    }
    QCOMPARE(shown, markdown + '\n');
}

void TestMarkdownReader::deepNestingIsBounded()
{
    const RichText quotes = MarkdownReader().read(QString("> ").repeated(4000) + "a");
    QCOMPARE(quotes.elements.size(), 1);
    QVERIFY(quotes.elements.first().line.quote <= 20);
    const RichText lists = MarkdownReader().read(QString("- ").repeated(2000) + "a");
    for (const RichList &list : lists.lists)
        QVERIFY(list.depth <= 20);
    QCOMPARE(plainText(lists.elements.last().line.runs), QString("a"));
}

QTEST_MAIN(TestMarkdownReader)

#include "tst_markdownreader.moc"
