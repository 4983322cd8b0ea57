// The pages keep up with the code: every error text is explained, every widget and page has a picture.

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

// The files of a folder of the project and of the folders below it.
QStringList filesBelow(const QString &folder, const QString &pattern)
{
    QStringList paths;
    QDirIterator files(projectDir.filePath(folder), {pattern}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        paths.append(projectDir.relativeFilePath(files.next()));
    paths.sort();
    return paths;
}

// What is left to compare of a text: what is filled in may be called anything, and at the end be left out.
QString comparable(const QString &text)
{
    QString result = text.trimmed();
    result.replace(QRegularExpression(R"(%\d|<[^<>]+>)"), "<>").replace("\\\"", "\"");
    return result.remove(QRegularExpression(R"(\s*(?:<>)+$)"));
}

// The lines of the texts in a source file. Only what has words is one; keys, which have no blank, are none.
// Quotation marks stand as \x22, for moc stumbles over them.
QStringList textsIn(const QString &source)
{
    static const QRegularExpression literal(R"(QStringLiteral\(\s*((?:\x22(?:[^\x22\\\n]|\\.)*\x22\s*)+)\))");
    static const QRegularExpression words(R"(\p{L}{2} |\p{Han})");
    QStringList texts;
    auto matches = literal.globalMatch(source);
    while (matches.hasNext()) {
        QString text = matches.next().captured(1).trimmed();
        text.remove(QRegularExpression(R"((?<!\\)\x22\s*\x22|^\x22|\x22$)"));
        for (const QString &line : text.split("\\n")) {
            if (comparable(line).contains(words))
                texts.append(line);
        }
    }
    return texts;
}

// The texts of the library that are not translated are all errors but these, markup and the commands in SQL.
const QStringList noErrors{
    "未执行。",
    "已取消。",
    "工具执行完成。",
    "设备",
    "异常",
    "报告",
    "导出",
    "DeepSeek 环境变量",
    "OpenAI 环境变量",
    "模拟模型",
    "Base URL",
    "API Key",
    "Bearer %1",
    "Time limit",
    "ddd, dd MMM yyyy",
    "digraph {",
    "    node [shape=box];",
    "flowchart TD",
    "    style %1 stroke-dasharray: 4",
    "Answer only from the supplied context. If the context is insufficient, say so briefly.",
};

QStringList errorTextsIn(const QString &path)
{
    static const QRegularExpression code("^([A-Z]{5,} |CAST\\(|<)");
    QStringList texts = textsIn(contentOf(path));
    const auto isNoError = [](const QString &text) { return noErrors.contains(text) || text.contains(code); };
    texts.erase(std::remove_if(texts.begin(), texts.end(), isNoError), texts.end());
    return texts;
}

QStringList librarySources()
{
    return filesBelow("qtagent", "*.cpp") + filesBelow("qtagent", "*_p.h")
         + filesBelow("qtagent", "awaitable.h"); // whose functions are inline
}

// The `code` and the lines of code blocks on the page of errors.
QStringList explainedTexts()
{
    QStringList texts;
    static const QRegularExpression code(R"((`+)((?:.|\n)+?)\1)");
    auto matches = code.globalMatch(contentOf("docs/errors.md"));
    while (matches.hasNext()) {
        for (const QString &line : matches.next().captured(2).split('\n'))
            texts.append(comparable(line));
    }
    return texts;
}

} // namespace

class TestManual : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pagesAskForThisVersion();
    void everyErrorTextIsExplained_data();
    void everyErrorTextIsExplained();
    void everyExplainedTextIsInTheCode_data();
    void everyExplainedTextIsInTheCode();
    void everyWidgetAndPageHasAPicture();
};

void TestManual::pagesAskForThisVersion()
{
    static const QRegularExpression request(R"(find_package\(MireloQtAgent ([^ )]+))");
    int requests = 0;
    for (const QString &page : filesBelow("docs", "*.md") + QStringList{"README.md", "README.zh-CN.md"}) {
        auto matches = request.globalMatch(contentOf(page));
        for (; matches.hasNext(); ++requests)
            QCOMPARE(matches.next().captured(1), QTAGENT_MINOR_VERSION);
    }
    QVERIFY(requests > 0);
}

void TestManual::everyErrorTextIsExplained_data()
{
    QTest::addColumn<QString>("text");
    for (const QString &path : librarySources()) {
        for (const QString &text : errorTextsIn(path))
            QTest::addRow("%s: %s", qPrintable(path), qPrintable(text)) << text;
    }
}

void TestManual::everyErrorTextIsExplained()
{
    QFETCH(QString, text);
    static const QStringList explained = explainedTexts();
    QVERIFY(explained.contains(comparable(text)));
}

void TestManual::everyExplainedTextIsInTheCode_data()
{
    QTest::addColumn<QString>("text");
    static const QRegularExpression entry(R"((?:^|\n)- `([^`]+)`: )");
    auto matches = entry.globalMatch(contentOf("docs/errors.md"));
    while (matches.hasNext()) {
        const QString text = matches.next().captured(1);
        QTest::addRow("%s", qPrintable(text)) << text;
    }
}

void TestManual::everyExplainedTextIsInTheCode()
{
    QFETCH(QString, text);
    static const QString code = [] {
        QString all;
        for (const QString &path : librarySources() + filesBelow("demo", "*.cpp"))
            all += contentOf(path).remove(QRegularExpression(R"((?<!\\)\x22\s*\n\s*\x22)"));
        return all.replace(QRegularExpression(R"(%\d)"), "<>").replace("\\\"", "\"");
    }();
    QVERIFY(code.contains(comparable(text)));
}

// By name: fonts, and with them pixels, differ between machines. The program refuses to list the pictures
// where one of a page of the demo is forgotten.
void TestManual::everyWidgetAndPageHasAPicture()
{
    if (!qEnvironmentVariableIsSet("ORVANE_PICTURES"))
        QSKIP("The demo is not built.");
    QProcess program;
    program.start(qEnvironmentVariable("ORVANE_PICTURES"), {"--list"});
    QVERIFY2(program.waitForFinished(), qPrintable(program.errorString()));
    QCOMPARE(program.readAllStandardError(), QByteArray());
    QStringList names = QString::fromUtf8(program.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    names.sort();
    QCOMPARE(QDir(projectDir.filePath("docs/images")).entryList(QDir::Files, QDir::Name), names);
    for (const QString &header : filesBelow("qtagent/widgets", "*.h")) {
        const QString name = QFileInfo(header).baseName();
        const bool isWidget = !name.endsWith("_p") && !contentOf(header).contains(" : public QObject\n");
        QVERIFY2(!isWidget || names.contains(name + ".png"), qPrintable(header));
    }
}

QTEST_GUILESS_MAIN(TestManual)
#include "tst_manual.moc"
