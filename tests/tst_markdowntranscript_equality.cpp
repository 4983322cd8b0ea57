#include <qtagent/widgets/markdowntranscript.h>

#include "support/documentdump.h"

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// Short ones, since their pairs are cut at every character.
QStringList shortBlocks()
{
    return {
        "One **bold** word,\n*two* `three`.",
        "# Head `a` b",
        "Head\n---",
        "- a\n  - b\n- c",
        "1. a\n\n   b\n2. c",
        "- [x] a\n* b",
        "|a|b|\n|---|---|\n|1|**2**|",
        "```c\na\n\n\tb\n```",
        "- a\n  ```\n  b\n  ```",
        "> a\n> - b\n\n> c",
        "    a\n\n    b",
        "![](a.png) [b](http://c) ~~d~~",
        "[a]: http://b\n[a] www.c.de",
        "中**文**😀 a\\*b &amp; <i>",
    };
}

QStringList oddTexts()
{
    return {
        "***\n___\n- - -\n* a\n*\n- b\n-\n",
        "a\r\n- b\rc\r\n\r\nd\r",
        "**a *b `c [d](e ~~f\n\n> **g\nh** ***",
        "```a\n``\n````\nb\n```c\n~~~\n",
        "|a|b|\n|---|-|\n|---|---|\n|c\n|d|e|f|\n||\n# g\n- h",
        "a\n===\nb\n==\n-\n1\n1.\n1. c\n2) d\n",
        "- a\n\n\n  b\n\n    c\n\nd\n      e\n- f\n   - g\n\nh",
        "[b] and [c][b]\n\n- [b]\n\n[b]: <https://d>\n'e'\n\n# [b]",
        QString::fromLatin1("a\0b\n\n```\n\0\n", 11) + QChar(0xd83d) + "\n" + QChar(0xdc00) + QChar(0xfdd0),
        "&copy; &#x2029; &lt &nope; &#0;\nhttp://a.b/c_d_e. f@g.h\n<http://i>",
        ">a\n>>b\nc\n>```\n>d\ne\n>```\n> |f|\n> |---|\n",
        "a  \nb\\\nc\n\td\n \te\n\n\tf\n",
    };
}

QStringList documents()
{
    QStringList result = oddTexts();
    for (const QString &first : shortBlocks()) {
        for (const QString &second : shortBlocks())
            result.append(first + (result.size() % 2 ? "\n\n" : "\n") + second);
    }
    return result;
}

class Transcript
{
public:
    void begin(MarkdownTranscript::Format format = MarkdownTranscript::Format::Markdown)
    {
        m_view.clear();
        m_view.beginMessage("label", {}, format);
    }

    void add(const QString &delta)
    {
        m_view.appendDelta(delta);
        QCoreApplication::sendPostedEvents(&m_view, QEvent::MetaCall);
    }

    void finish() { m_view.finishMessage(); }
    QStringList dump() const { return DocumentDump::all(*m_view.document()); }

private:
    MarkdownTranscript m_view;
};

struct Example
{
    QString text;
    bool endsInCodeOrQuote = false; // which Qt's reader remembers in the first cell of a table
    bool beginsWithTable = false;
};

QVector<Example> ordinaryBlocks()
{
    return {
        {"A paragraph with **bold**, *italic*, ~~struck~~ and `code`."},
        {"Two lines\nof a paragraph with a [link](https://example.com/a) in it."},
        {"# Heading"},
        {"### Heading with `code` in it"},
        {"Underlined\n=========="},
        {"- one\n- two\n- three"},
        {"* one\n* two\n  * nested\n    * deeper\n* three"},
        {"1. first\n2. second\n3. third"},
        {"1) first\n2) second"},
        {"- loose one\n\n- loose two\n\n  with a second paragraph"},
        {"1. step\n\n   ```sh\n   make\n   ```\n\n2. next step"},
        {"1. step\n   ```\n   make\n   ```\n2. next\n\n   text of it\n3. last"},
        {"- [ ] open\n- [x] done"},
        {"1. one\n   - nested\n   - nested two\n2. two"},
        {"| a | b |\n|---|---|\n| 1 | 2 |\n| 3 | **4** |", false, true},
        {"| left | right |\n|:-----|------:|\n| 1 | 2 |", false, true},
        {"```cpp\nint main()\n{\n    return 0;\n}\n```", true},
        {"```\nplain\n\nmore\n```", true},
        {"Text:\n~~~python\nprint('x')\n~~~", true},
        {"    indented code\n    more", true},
        {"> a quote\n> of two lines", true},
        {"> ```\n> code in a quote\n> ```", true},
        {"> - list in a quote\n> - two\n>\n> and text", true},
        {"---"},
        {"这是一个**重点**段落，有中文。"},
        {"Emoji 😀 and 👩‍💻 here."},
        {"See https://example.com/x?y=1 and www.example.org or me@example.com."},
        {"<b>html</b> as text"},
        {"A line with two blanks  \nand a hard break"},
        {"Escaped \\*stars\\* and &amp; entity &lt;x&gt;"},
        {"Text:\n- item right behind it\n- two"},
        {"Text\n# Heading right behind it\ntext right behind that"},
        {"- item\nlazy line"},
        {"- a\n* b\n+ c"},
        {"- a\n# Heading behind a list\ntext"},
        {"1. a\n```\ncode behind a list\n```\n2. b"},
        {"__bold__ _underlined or italic_ ***both***"},
        {"a | b\n--- | ---\nx | y", false, true},
    };
}

QStringList shown(const QString &text)
{
    MarkdownTranscript transcript;
    transcript.appendDelta(text);
    transcript.finishMessage();
    return DocumentDump::markdown(*transcript.document());
}

QStringList shownByQt(const QString &text)
{
    QTextDocument document;
    const auto features = QTextDocument::MarkdownFeatures(QTextDocument::MarkdownDialectGitHub);
    document.setMarkdown(text, features | QTextDocument::MarkdownNoHTML);
    return DocumentDump::markdown(document);
}

} // namespace

class TestMarkdownTranscriptEquality : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void thereAreManyDocuments();
    void cutAtEveryCharacter_data() { addDocuments(); }
    void cutAtEveryCharacter();
    void characterByCharacter_data() { addDocuments(); }
    void characterByCharacter();
    void plainTextCutAtEveryCharacter();
    void ordinaryDocumentsLookAsInQt_data();
    void ordinaryDocumentsLookAsInQt();

private:
    static void addDocuments();

    Transcript m_inPieces;
    Transcript m_atOnce;
};

void TestMarkdownTranscriptEquality::addDocuments()
{
    QTest::addColumn<QString>("text");
    int number = 0;
    for (const QString &text : documents())
        QTest::addRow("document %d", ++number) << text;
}

void TestMarkdownTranscriptEquality::thereAreManyDocuments()
{
    QVERIFY(documents().size() >= 200);
}

void TestMarkdownTranscriptEquality::cutAtEveryCharacter()
{
    QFETCH(QString, text);
    m_atOnce.begin();
    m_atOnce.add(text);
    const QStringList open = m_atOnce.dump();
    m_atOnce.finish();
    const QStringList finished = m_atOnce.dump();
    for (int cut = 1; cut < text.size(); ++cut) {
        m_inPieces.begin();
        m_inPieces.add(text.left(cut));
        m_inPieces.add(text.mid(cut));
        QCOMPARE(DocumentDump::difference(m_inPieces.dump(), open), QString());
        m_inPieces.finish();
        QCOMPARE(DocumentDump::difference(m_inPieces.dump(), finished), QString());
    }
}

void TestMarkdownTranscriptEquality::characterByCharacter()
{
    QFETCH(QString, text);
    m_inPieces.begin();
    for (int length = 1; length <= text.size(); ++length) {
        m_inPieces.add(text.mid(length - 1, 1));
        m_atOnce.begin();
        m_atOnce.add(text.left(length));
        QCOMPARE(DocumentDump::difference(m_inPieces.dump(), m_atOnce.dump()), QString());
    }
    m_inPieces.finish();
    m_atOnce.finish();
    QCOMPARE(DocumentDump::difference(m_inPieces.dump(), m_atOnce.dump()), QString());
}

void TestMarkdownTranscriptEquality::plainTextCutAtEveryCharacter()
{
    const QString text = "# a\r\n\r\n- **b**\n\n  c\t\n";
    m_atOnce.begin(MarkdownTranscript::Format::PlainText);
    m_atOnce.add(text);
    for (int cut = 1; cut < text.size(); ++cut) {
        m_inPieces.begin(MarkdownTranscript::Format::PlainText);
        m_inPieces.add(text.left(cut));
        m_inPieces.add(text.mid(cut));
        QCOMPARE(DocumentDump::difference(m_inPieces.dump(), m_atOnce.dump()), QString());
    }
}

void TestMarkdownTranscriptEquality::ordinaryDocumentsLookAsInQt_data()
{
    QTest::addColumn<int>("first");
    for (int first = 0; first < ordinaryBlocks().size(); ++first)
        QTest::addRow("block %d", first + 1) << first;
}

void TestMarkdownTranscriptEquality::ordinaryDocumentsLookAsInQt()
{
    QFETCH(int, first);
    const Example before = ordinaryBlocks().at(first);
    QCOMPARE(DocumentDump::difference(shown(before.text), shownByQt(before.text)), QString());
    for (const Example &after : ordinaryBlocks()) {
        if (before.endsInCodeOrQuote && after.beginsWithTable)
            continue;
        const QString text = before.text + "\n\n" + after.text + "\n\nThe end.\n";
        const QString difference = DocumentDump::difference(shown(text), shownByQt(text));
        QVERIFY2(difference.isEmpty(), qPrintable(text + "\n" + difference));
    }
}

QTEST_MAIN(TestMarkdownTranscriptEquality)

#include "tst_markdowntranscript_equality.moc"
