#include <qtagent/widgets/markdownblocks_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

QString describe(const MarkdownBlock &block, const QString &source)
{
    static const QStringList kinds{"text", "code", "line"};
    QString name = kinds.at(block.kind);
    if (block.isFirst)
        name += " first";
    if (block.continues)
        name += " goes on";
    if (block.isLoose)
        name += " loose";
    return name + ": " + source.mid(block.begin, block.end - block.begin);
}

QStringList describe(const QVector<MarkdownBlock> &blocks, const QString &source)
{
    QStringList result;
    for (const MarkdownBlock &block : blocks)
        result.append(describe(block, source));
    return result;
}

QStringList closedBlocks(const QString &source)
{
    MarkdownBlocks finder;
    return describe(finder.takeClosed(source), source);
}

QStringList allBlocks(const QString &source, bool isFinal = true)
{
    MarkdownBlocks finder;
    const QVector<MarkdownBlock> closed = finder.takeClosed(source);
    return describe(closed + finder.openBlocks(source, isFinal), source);
}

} // namespace

class TestMarkdownBlocks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void blocksOfAText_data();
    void blocksOfAText();
    void blockStaysOpenWhileTheNextLineMayBelongToIt_data();
    void blockStaysOpenWhileTheNextLineMayBelongToIt();
    void blockClosesWhereItCertainlyEnds_data();
    void blockClosesWhereItCertainlyEnds();
    void whatHasClosedStays();
    void itemsOfALooseListAreLoose_data();
    void itemsOfALooseListAreLoose();
    void rowOfATableIsALineUntilItIsComplete_data();
    void rowOfATableIsALineUntilItIsComplete();
    void lineEndsMayBeOfAnyKind();
    void carriageReturnWaitsForWhatFollows();
    void longLineIsCutIntoPieces_data();
    void longLineIsCutIntoPieces();
    void pieceOfALongLineClosesBeforeTheLineEnds();
    void pairOfSurrogatesIsNotCut();
    void longBlockCloses_data();
    void longBlockCloses();
    void plainTextIsLines();
    void fenceIsFoundAgain();
};

void TestMarkdownBlocks::blocksOfAText_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("blocks");

    const auto row = [](const char *name, const QString &source, const QStringList &blocks) {
        QTest::newRow(name) << source << blocks;
    };
    row("nothing", "", {});
    row("blank lines", "\n \n\t\n", {});
    row("paragraphs", "one\ntwo\n\n\nthree", {"text: one\ntwo", "text: three"});
    row("heading and text", "# one\ntwo\n# three", {"text: # one", "text: two", "text: # three"});
    row("heading under a line", "one\n===\ntwo\n---\n", {"text: one\n===", "text: two\n---"});
    row("rules", "one\n***\n---\n* * *", {"text: one", "text: ***", "text: ---", "text: * * *"});
    row("no heading", "#one\ntwo", {"text: #one\ntwo"});
    row("code by indentation", "    one\n\n    two\nthree", {"text:     one\n\n    two", "text: three"});
    row("indented text", "one\n    two", {"text: one\n    two"});
    row("quote", "> one\ntwo\n\n> three", {"text: > one\ntwo", "text: > three"});
    row("quote and heading", "> one\n# two", {"text: > one", "text: # two"});
    row("quote and list", "> one\n2. two", {"text: > one", "text: 2. two"});
    row("fence in a quote", "> ```\n> one\n> ```\ntext", {"text: > ```\n> one\n> ```\ntext"});
    row("open fence in a quote", "> ```\n> one\ntext", {"text: > ```\n> one", "text: text"});
    row("list", "- one\n- two\n  - three\n", {"text: - one", "text goes on: - two\n  - three"});
    row("other mark", "- one\n* two", {"text: - one", "text: * two"});
    row("numbers", "1. one\n7. two\n1) three", {"text: 1. one", "text goes on: 7. two", "text: 1) three"});
    row("list behind text", "one\n- two", {"text: one", "text: - two"});
    row("number behind text", "one\n2. two", {"text: one\n2. two"});
    row("empty mark behind text", "one\n*\ntwo", {"text: one\n*\ntwo"});
    row("lazy line", "- one\ntwo", {"text: - one\ntwo"});
    row("text behind a list", "- one\n\ntwo", {"text: - one", "text: two"});
    row("paragraph in an item", "- one\n\n  two\n- three",
        {"text loose: - one\n\n  two", "text goes on loose: - three"});
    row("heading behind an item", "- one\n# two", {"text: - one", "text: # two"});
    row("rule behind an item", "- one\n---\ntwo", {"text: - one", "text: ---", "text: two"});
    row("fence in an item", "1. one\n   ```\n   two\n   - no\n   ```\n2. three",
        {"text: 1. one\n   ```\n   two\n   - no\n   ```", "text goes on: 2. three"});
    row("fence behind an item", "- one\n```\ntwo\n```", {"text: - one", "code first: two"});
    row("fence", "```cpp\none\n\n  two\n```\nthree",
        {"code first: one", "code: ", "code:   two", "text: three"});
    row("fence behind text", "one\n~~~\ntwo", {"text: one", "code first: two"});
    row("fence in a fence", "````\n```\n````", {"code first: ```"});
    row("backtick in the info", "```a`b\n", {"text: ```a`b"});
    row("table", "a | b\n--- | ---\n1 | 2\n# 3\n\nfour",
        {"text: a | b\n--- | ---\n1 | 2\n# 3", "text: four"});
    row("list behind a table", "|a|\n|---|\n2. one", {"text: |a|\n|---|", "text: 2. one"});
    row("no table", "a\n|--|\n# b", {"text: a\n|--|", "text: # b"});
    row("tab behind a mark", "-\tone\n\n\ttwo", {"text loose: -\tone\n\n\ttwo"});
}

void TestMarkdownBlocks::blocksOfAText()
{
    QFETCH(QString, source);
    QFETCH(QStringList, blocks);
    QCOMPARE(allBlocks(source), blocks);
}

void TestMarkdownBlocks::blockStaysOpenWhileTheNextLineMayBelongToIt_data()
{
    QTest::addColumn<QString>("source");

    QTest::newRow("paragraph") << "one\n";
    QTest::newRow("list") << "- one\n\n";
    QTest::newRow("items") << "- one\n- two\n";
    QTest::newRow("quote") << "> one\n";
    QTest::newRow("indented code") << "    one\n\n";
    QTest::newRow("table") << "|a|\n|---|\n|b|\n";
    QTest::newRow("heading without a line end") << "# one";
}

void TestMarkdownBlocks::blockStaysOpenWhileTheNextLineMayBelongToIt()
{
    QFETCH(QString, source);
    QCOMPARE(closedBlocks(source), QStringList());
}

void TestMarkdownBlocks::blockClosesWhereItCertainlyEnds_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("blocks");

    QTest::newRow("paragraph") << "one\n\n" << QStringList{"text: one"};
    QTest::newRow("heading") << "# one\n" << QStringList{"text: # one"};
    QTest::newRow("line of code") << "```\none\ntwo" << QStringList{"code first: one"};
    QTest::newRow("list") << "- one\n- two\n\nthree\n" << QStringList{"text: - one", "text goes on: - two"};
    QTest::newRow("items of a loose list") << "- one\n\n- two\n- three\n"
                                           << QStringList{"text loose: - one", "text goes on loose: - two"};
    QTest::newRow("quote") << "> one\n\n" << QStringList{"text: > one"};
}

void TestMarkdownBlocks::blockClosesWhereItCertainlyEnds()
{
    QFETCH(QString, source);
    QFETCH(QStringList, blocks);
    QCOMPARE(closedBlocks(source), blocks);
}

void TestMarkdownBlocks::whatHasClosedStays()
{
    const QString source =
        "# one\ntext\n- a\n  - b\n\n    c\n- d\n```sh\nx\n\ny\n```\n|a|b|\n|---|---|\n|1|2|\n\n> q\nlazy\n"
        "\n    code\n\nend\n===\n1. a\n   ~~~\n   b\n2. c\n";
    MarkdownBlocks finder;
    QVector<MarkdownBlock> closed;
    for (int length = 0; length <= source.size(); ++length) {
        closed += finder.takeClosed(source.left(length));
        MarkdownBlocks fresh;
        QCOMPARE(describe(closed, source), describe(fresh.takeClosed(source.left(length)), source));
        QCOMPARE(describe(finder.openBlocks(source.left(length)), source),
                 describe(fresh.openBlocks(source.left(length)), source));
    }
    QVERIFY(closed.size() > 10);
}

void TestMarkdownBlocks::itemsOfALooseListAreLoose_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<bool>("isLoose");

    QTest::newRow("no blank line") << "- a\n  b\n- c" << false;
    QTest::newRow("between items") << "- a\n\n- b\n- c" << true;
    QTest::newRow("between the last items") << "- a\n- b\n\n- c" << true;
    QTest::newRow("behind the list") << "- a\n- b\n\ntext" << false;
    QTest::newRow("in an item") << "- a\n\n  b\n- c" << true;
    QTest::newRow("in a fence") << "- ```\n  a\n\n  b\n  ```\n- c" << false;
    QTest::newRow("between nested items") << "- a\n  - b\n\n  - c\n- d" << false;
    QTest::newRow("in a nested item") << "- a\n  - b\n\n    c\n- d" << false;
    QTest::newRow("between nested items of the first line") << "- - b\n\n  - c\n- d" << false;
    QTest::newRow("behind a nested list") << "- a\n  - b\n\n  c\n- d" << true;
    QTest::newRow("in front of another nested list") << "- a\n  - b\n\n  * c\n- d" << true;
}

void TestMarkdownBlocks::itemsOfALooseListAreLoose()
{
    QFETCH(QString, source);
    QFETCH(bool, isLoose);
    MarkdownBlocks finder;
    QVector<MarkdownBlock> blocks = finder.takeClosed(source);
    blocks += finder.openBlocks(source);
    for (const MarkdownBlock &block : blocks) {
        if (source.mid(block.begin).startsWith('-'))
            QCOMPARE(block.isLoose, isLoose);
    }
}

void TestMarkdownBlocks::rowOfATableIsALineUntilItIsComplete_data()
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<bool>("isComplete");

    QTest::newRow("one cell of two") << "| 1 |" << false;
    QTest::newRow("no bar at the end") << "| 1 | 2" << false;
    QTest::newRow("all cells") << "| 1 | 2 |" << true;
    QTest::newRow("escaped bar") << "| 1 | 2\\|" << false;
    QTest::newRow("no bar in front") << "1 | 2 |" << false;
    QTest::newRow("blanks") << " | 1 | 2 | " << true;
    QTest::newRow("line end") << "1 | 2\n" << true;
}

void TestMarkdownBlocks::rowOfATableIsALineUntilItIsComplete()
{
    QFETCH(QString, row);
    QFETCH(bool, isComplete);
    const QString table = "| a | b |\n|---|---|";
    const QString source = table + "\n" + row;
    const QString whole = "text: " + table + "\n" + QString(row).remove('\n');
    QCOMPARE(allBlocks(source, false),
             isComplete ? QStringList{whole} : (QStringList{"text: " + table, "line: " + row}));
    QCOMPARE(allBlocks(source, true), QStringList{whole});
}

void TestMarkdownBlocks::lineEndsMayBeOfAnyKind()
{
    QCOMPARE(allBlocks("one\r\n\r\ntwo\r\rthree\n\nfour"),
             (QStringList{"text: one", "text: two", "text: three", "text: four"}));
    QCOMPARE(allBlocks("```\r\none\r\n```\r\n"), QStringList{"code first: one"});
}

void TestMarkdownBlocks::carriageReturnWaitsForWhatFollows()
{
    MarkdownBlocks finder;
    const QString source = "# one\r\n\ntwo\n";
    QCOMPARE(finder.takeClosed("# one\r").size(), 0);
    QCOMPARE(describe(finder.openBlocks("# one\r"), source), QStringList{"text: # one"});
    QCOMPARE(describe(finder.takeClosed(source), source), QStringList{"text: # one"});
    QCOMPARE(describe(finder.openBlocks(source), source), QStringList{"text: two"});
}

void TestMarkdownBlocks::longLineIsCutIntoPieces_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<int>("kind");

    QTest::newRow("text") << "" << int(MarkdownBlock::Verbatim);
    QTest::newRow("paragraph") << "one\n" << int(MarkdownBlock::Verbatim);
    QTest::newRow("list") << "- one\n" << int(MarkdownBlock::Verbatim);
    QTest::newRow("fence") << "```\n" << int(MarkdownBlock::CodeLine);
}

void TestMarkdownBlocks::longLineIsCutIntoPieces()
{
    QFETCH(QString, before);
    QFETCH(int, kind);
    const QString source = before + QString(25000, 'x') + "\nafter";
    MarkdownBlocks finder;
    QVector<MarkdownBlock> blocks = finder.takeClosed(source);
    if (blocks.first().kind == MarkdownBlock::Text)
        blocks.removeFirst();
    QCOMPARE(blocks.size(), 3);
    int position = int(before.size());
    for (const MarkdownBlock &block : blocks) {
        QCOMPARE(int(block.kind), kind);
        QCOMPARE(block.begin, position);
        QCOMPARE(block.continues, position > before.size());
        position = block.end;
    }
    QCOMPARE(blocks.at(0).end - blocks.at(0).begin, 10000);
    QCOMPARE(blocks.at(2).end - blocks.at(2).begin, 5000);
    QCOMPARE(describe(finder.openBlocks(source), source).size(), 1);
}

void TestMarkdownBlocks::pieceOfALongLineClosesBeforeTheLineEnds()
{
    MarkdownBlocks finder;
    QString source(10000, 'x');
    QCOMPARE(finder.takeClosed(source).size(), 0);
    QCOMPARE(int(finder.openBlocks(source).first().kind), int(MarkdownBlock::Text));
    source += 'x';
    QCOMPARE(finder.takeClosed(source).size(), 1);
    QCOMPARE(finder.openBlocks(source).first().end - finder.openBlocks(source).first().begin, 1);
    QCOMPARE(finder.takeClosed(source).size(), 0);
}

void TestMarkdownBlocks::pairOfSurrogatesIsNotCut()
{
    const QString source = QString(9999, 'x') + "😀" + "x";
    MarkdownBlocks finder;
    QCOMPARE(finder.takeClosed(source).first().end, 9999);
}

void TestMarkdownBlocks::longBlockCloses_data()
{
    QTest::addColumn<QString>("line");

    QTest::newRow("long paragraph") << QString(999, 'x') + "\n";
    QTest::newRow("many lines") << "x\n";
    QTest::newRow("long item") << "  " + QString(999, 'x') + "\n";
    QTest::newRow("many items") << "- x\n";
}

void TestMarkdownBlocks::longBlockCloses()
{
    QFETCH(QString, line);
    const QString source = (line.startsWith(' ') ? "- a\n" : "") + line.repeated(3000);
    MarkdownBlocks finder;
    const QVector<MarkdownBlock> closed = finder.takeClosed(source);
    QVERIFY(!closed.isEmpty());
    for (const MarkdownBlock &block : closed) {
        const QString text = source.mid(block.begin, block.end - block.begin);
        QVERIFY(text.size() <= MarkdownBlocks::longestBlock + line.size());
        QVERIFY(text.count('\n') < MarkdownBlocks::mostLines);
    }
}

void TestMarkdownBlocks::plainTextIsLines()
{
    MarkdownBlocks finder(false);
    const QString source = "# one\n\n- two\r\n";
    QCOMPARE(describe(finder.takeClosed(source), source),
             (QStringList{"line: # one", "line: ", "line: - two"}));
    QCOMPARE(describe(finder.openBlocks(source), source), QStringList{"line: "});
    QCOMPARE(MarkdownBlocks(false).openBlocks("").size(), 0);
}

void TestMarkdownBlocks::fenceIsFoundAgain()
{
    const MarkdownLine::Fence fence = MarkdownBlocks::fenceAt("a\n  ~~~~ cpp extra\nx", 2);
    QCOMPARE(fence.character, QChar('~'));
    QCOMPARE(fence.length, 4);
    QCOMPARE(fence.indent, 2);
    QCOMPARE(fence.language, QString("cpp"));
}

QTEST_APPLESS_MAIN(TestMarkdownBlocks)

#include "tst_markdownblocks.moc"
