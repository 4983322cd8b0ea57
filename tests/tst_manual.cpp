// The pages keep up with the code: what they quote is there, and every error text is explained.

#include <QDirIterator>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QDir projectDir(QStringLiteral(QTAGENT_PROJECT_DIR));

QString contentOf(const QString &path)
{
    QFile file(projectDir.filePath(path));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList linesOf(const QString &path)
{
    return contentOf(path).split('\n');
}

// The files of a folder of the project and of the folders below it.
QStringList filesBelow(const QString &folder, const QStringList &patterns)
{
    QStringList paths;
    QDirIterator files(projectDir.filePath(folder), patterns, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        paths.append(projectDir.relativeFilePath(files.next()));
    paths.sort();
    return paths;
}

QStringList pages()
{
    QStringList paths = projectDir.entryList({"README*.md"}, QDir::Files, QDir::Name);
    return paths + filesBelow("docs", {"*.md"});
}

QString matched(const QString &text, const QString &pattern)
{
    return QRegularExpression(pattern).match(text).captured(1);
}

// Code blocks

struct CodeBlock
{
    QString page;
    int line = 0;
    QString textBefore;
    QStringList lines;
};

QVector<CodeBlock> cppBlocksOf(const QString &page)
{
    QVector<CodeBlock> blocks;
    QString textBefore;
    bool isCpp = false;
    bool isInside = false;
    int number = 0;
    for (const QString &line : linesOf(page)) {
        ++number;
        const bool isFence = line.trimmed().startsWith("```");
        if (isFence && !isInside) {
            isCpp = QStringList{"cpp", "c++", "cc", "cxx"}.contains(line.trimmed().mid(3).toLower());
            if (isCpp)
                blocks.append({page, number, textBefore, {}});
        } else if (!isFence && isInside && isCpp) {
            blocks.last().lines.append(line);
        }
        if (isFence)
            isInside = !isInside;
        else if (!isInside && !line.trimmed().isEmpty())
            textBefore = line;
    }
    return blocks;
}

// The last file that a line names as `code` or links to, from the top of the project.
QString fileNamedIn(const QString &line)
{
    return matched(line,
                   R"(.*(?:`|\]\()(?:\.\./)*((?:examples|qtagent|demo|tests)/[\w/.-]+\.(?:cpp|h))[`)])");
}

bool isOmissionMark(const QString &line)
{
    return QRegularExpression(R"(^\s*//\s*(…|\.\.\.)\s*$)").match(line).hasMatch();
}

// Whether the lines from first on are those of the block behind a common indentation.
bool beginsWithBlock(const QStringList &lines, int first, const QStringList &block)
{
    const QString indentation(lines.at(first).size() - block.first().size(), ' ');
    for (int i = 0; i < block.size(); ++i) {
        const QString expected = block.at(i).isEmpty() ? QString() : indentation + block.at(i);
        if (lines.at(first + i) != expected)
            return false;
    }
    return true;
}

bool standsIn(const QStringList &block, const QString &path)
{
    const QStringList lines = linesOf(path);
    for (int first = 0; first + block.size() <= lines.size(); ++first) {
        if (lines.at(first).size() >= block.first().size() && beginsWithBlock(lines, first, block))
            return true;
    }
    return false;
}

// Error texts

// A piece of a source file between semicolons, commas and braces that stand in no argument list.
struct Statement
{
    QString function;
    QString code;
    QStringList texts;
};

// The tokens of a source file: comments, texts that become a QString (keys that are looked up are
// QLatin1String), other literals, and what lies between them.
const QRegularExpression &tokens()
{
    // Quotation marks stand as \x22 and \x27, for moc stumbles over them.
    static const QRegularExpression expression(
        R"((?<comment>//[^\n]*))"
        R"(|QStringLiteral\(\s*(?<text>(?:\x22(?:[^\x22\\\n]|\\.)*\x22\s*)+)\))"
        R"(|(?<literal>R\x22\((?:.|\n)*?\)\x22|\x22(?:[^\x22\\\n]|\\.)*\x22|\x27(?:[^\x27\\\n]|\\[^\x27\n]*)\x27))"
        R"(|(?<code>[^/QR\x22\x27(){};,]+|(?:.|\n)))");
    return expression;
}

// What is returned in braces belongs together.
bool endsStatement(const QString &token, const QString &statement)
{
    const bool isReturned = statement.contains(QRegularExpression(R"(\breturn\b)"));
    return token == ";" || (!isReturned && QStringList{",", "{", "}"}.contains(token));
}

// Reads a source file as it is laid out by clang-format: functions and classes begin and end in the first
// column.
QVector<Statement> statementsIn(const QString &source)
{
    QVector<Statement> statements;
    Statement statement;
    int depth = 0;
    auto matches = tokens().globalMatch(source);
    while (matches.hasNext()) {
        const auto match = matches.next();
        const QString code = match.captured("code");
        depth += code == "(" ? 1 : code == ")" ? -1 : 0;
        if (match.capturedLength("text") > 0) {
            QString text = match.captured("text").trimmed();
            text.remove(QRegularExpression(R"((?<!\\)\x22\s*\x22|^\x22|\x22$)"));
            statement.texts += text.split("\\n", Qt::SkipEmptyParts);
        } else if (depth > 0 || !endsStatement(code, statement.code)) {
            statement.code += code;
        } else {
            const QString name = matched(statement.code, R"(([\w:~]+)\([^{}]*\n$)");
            if (code == "{" && !name.isEmpty())
                statement.function = name;
            statements.append(statement);
            statement = {statement.function, {}, {}};
        }
    }
    return statements;
}

bool speaksOfErrors(const QString &name)
{
    return name.contains(QRegularExpression("error|fail|refuse", QRegularExpression::CaseInsensitiveOption));
}

// An empty result is returned beside the text that explains it.
bool returnsError(const QString &code)
{
    return code.contains(QLatin1String("return {{},"));
}

bool soundsLikeFailure(const QString &text)
{
    static const QRegularExpression words(
        R"(\b(?:fail|error|invalid|missing|cannot|empty|exceed|already|unknown|deni|refus)|\b(?:no|not)\b)"
        "|错误|失败|无效|无法|尚未|未找到|找不到|不能|没有|缺少|为空|超过|拒绝",
        QRegularExpression::CaseInsensitiveOption);
    return text.contains(words);
}

// What is left to compare of a text: what is filled in may be called anything, and at the end be left out.
QString comparable(const QString &text)
{
    QString result = text.trimmed();
    result.replace(QRegularExpression(R"(%\d|<[^<>]+>)"), "<>").replace("\\\"", "\"");
    return result.remove(QRegularExpression(R"(\s*(?:<>)+$)"));
}

QStringList sourceFiles()
{
    return filesBelow("qtagent", {"*.cpp", "*.h"}) + filesBelow("demo", {"*.cpp", "*.h"});
}

bool hasWords(const QString &text)
{
    return comparable(text).contains(QRegularExpression(R"(\p{L})"));
}

// The texts of a source file that somebody may be shown as an error.
QStringList errorTextsIn(const QString &path)
{
    QStringList errors;
    for (const Statement &statement : statementsIn(contentOf(path))) {
        const bool isError = speaksOfErrors(statement.code) || speaksOfErrors(statement.function)
                          || returnsError(statement.code);
        for (const QString &text : statement.texts) {
            if (hasWords(text) && (isError || soundsLikeFailure(text)))
                errors.append(text);
        }
    }
    errors.removeDuplicates();
    return errors;
}

// The `code` and the lines of code blocks on the page.
QStringList textsOnPage(const QString &content)
{
    QStringList texts;
    auto matches = QRegularExpression(R"((`+)((?:.|\n)+?)\1)").globalMatch(content);
    while (matches.hasNext()) {
        for (const QString &line : matches.next().captured(2).split('\n'))
            texts.append(comparable(line));
    }
    return texts;
}

const QString errorPage = QStringLiteral("docs/errors.md");

} // namespace

class TestManual : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void codeOnPagesIsQuotedFromFilesThatCompile_data();
    void codeOnPagesIsQuotedFromFilesThatCompile();
    void pagesAskForThisVersion();
    void everyErrorTextIsExplained_data();
    void everyErrorTextIsExplained();
    void everyExplainedTextIsInTheCode_data();
    void everyExplainedTextIsInTheCode();
};

void TestManual::initTestCase()
{
    QVERIFY(pages().contains("README.md"));
    QVERIFY(pages().contains(errorPage));
    QVERIFY(sourceFiles().contains("qtagent/chatmodel.cpp"));
    QVERIFY(sourceFiles().contains("demo/main.cpp"));
}

void TestManual::codeOnPagesIsQuotedFromFilesThatCompile_data()
{
    QTest::addColumn<QString>("textBefore");
    QTest::addColumn<QStringList>("lines");
    for (const QString &page : pages()) {
        for (const CodeBlock &block : cppBlocksOf(page))
            QTest::addRow("%s, line %d", qPrintable(page), block.line) << block.textBefore << block.lines;
    }
}

void TestManual::codeOnPagesIsQuotedFromFilesThatCompile()
{
    QFETCH(QString, textBefore);
    QFETCH(QStringList, lines);
    QVERIFY(!lines.isEmpty());
    QVERIFY(!lines.first().isEmpty());
    for (const QString &line : lines)
        QVERIFY2(!isOmissionMark(line), "an omission mark is no code");

    const QString named = fileNamedIn(textBefore);
    const QStringList files = named.isEmpty() ? filesBelow("examples", {"*.cpp", "*.h"}) : QStringList(named);
    const bool isQuoted =
        std::any_of(files.cbegin(), files.cend(), [&](const QString &path) { return standsIn(lines, path); });
    QVERIFY2(isQuoted, qPrintable("these lines do not stand in " + files.join(", ")));
}

void TestManual::pagesAskForThisVersion()
{
    static const QRegularExpression request(R"(find_package\(MireloQtAgent ([^ )]+))");
    int requests = 0;
    for (const QString &page : pages()) {
        auto matches = request.globalMatch(contentOf(page));
        for (; matches.hasNext(); ++requests)
            QCOMPARE(matches.next().captured(1), QTAGENT_MINOR_VERSION);
    }
    QVERIFY(requests > 0);
}

void TestManual::everyErrorTextIsExplained_data()
{
    QTest::addColumn<QString>("text");
    for (const QString &path : sourceFiles()) {
        for (const QString &text : errorTextsIn(path))
            QTest::addRow("%s: %s", qPrintable(path), qPrintable(text)) << text;
    }
}

void TestManual::everyErrorTextIsExplained()
{
    QFETCH(QString, text);
    static const QStringList explained = textsOnPage(contentOf(errorPage));
    QVERIFY2(explained.contains(comparable(text)), qPrintable(errorPage + " does not have it"));
}

void TestManual::everyExplainedTextIsInTheCode_data()
{
    QTest::addColumn<QString>("text");
    for (const QString &line : linesOf(errorPage)) {
        const QString text = matched(line, R"(^- `([^`]+)`: )");
        if (!text.isEmpty())
            QTest::addRow("%s", qPrintable(text)) << text;
    }
}

void TestManual::everyExplainedTextIsInTheCode()
{
    QFETCH(QString, text);
    static const QStringList inCode = [] {
        QStringList texts;
        for (const QString &path : sourceFiles()) {
            for (const Statement &statement : statementsIn(contentOf(path))) {
                for (const QString &written : statement.texts)
                    texts.append(comparable(written));
            }
        }
        return texts;
    }();
    QVERIFY(inCode.contains(comparable(text)));
}

QTEST_APPLESS_MAIN(TestManual)
#include "tst_manual.moc"
