#include <qtagent/asynctool.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What reaches the program, and what is made of its end.
class TestProcessTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolReturnsWhatItWasMadeOf();
    void valuesFillTheTemplate_data();
    void valuesFillTheTemplate();
    void numbersKeepAllTheirDigits();
    void nullCharacterFails_data();
    void nullCharacterFails();
    void onlyChosenVariablesReachTheProgram();
    void emptyEnvironmentStaysEmpty();
    void standardInputIsEmpty();
    void programRunsInTheWorkingDirectory();
    void settingsOfTheStartHold();
    void successIsWhatTheProgramPrints();
    void failureTellsWhatTheProgramPrints_data();
    void failureTellsWhatTheProgramPrints();
    void reportIsCutAtAWholeCharacter();
    void timeLimitEndsTheProgram();
    void outputLimitEndsTheProgram_data();
    void outputLimitEndsTheProgram();
    void outputWithoutAnEndIsEnded();
    void limitsOfZeroAreNone();
    void programThatCannotBeStartedFails_data();
    void programThatCannotBeStartedFails();
    void programIsFoundInThePathOrFromTheWorkingDirectory();
};

namespace {

const QJsonObject schema{
    {"type", "object"},
    {"properties",
     QJsonObject{{"key", QJsonObject()}, {"other", QJsonObject()}, {"odd}key", QJsonObject()}}}};

// Runs the shell, with these further arguments.
std::unique_ptr<ProcessTool> shell(const QString &script, const QStringList &arguments = {})
{
    return std::make_unique<ProcessTool>("shell", "Runs a script.", schema, "/bin/sh",
                                         QStringList{"-c", script, "sh"} + arguments);
}

// Every result arrives from the event loop.
ToolResult resultOf(AsyncTool &tool, const QJsonObject &arguments = {})
{
    const std::unique_ptr<ToolReply> reply(tool.start(arguments, nullptr));
    if (!reply->isRunning())
        return {false, {}, {}, "The reply had ended when start() returned.", {}};
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    if (!finished.wait(30000))
        return {false, {}, {}, "The reply did not finish.", {}};
    return reply->result();
}

QStringList linesOf(const QString &text)
{
    QStringList lines = text.split('\n', Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

// Sets variables for the time of a test.
class Variables
{
public:
    explicit Variables(const QMap<QByteArray, QByteArray> &values)
    {
        for (auto value = values.begin(); value != values.end(); ++value) {
            m_before.insert(value.key(), qgetenv(value.key().constData()));
            set(value.key(), value.value());
        }
    }
    ~Variables()
    {
        for (auto value = m_before.cbegin(); value != m_before.cend(); ++value)
            set(value.key(), value.value());
    }
    Q_DISABLE_COPY(Variables)

private:
    static void set(const QByteArray &name, const QByteArray &value)
    {
        if (value.isNull())
            qunsetenv(name.constData());
        else
            qputenv(name.constData(), value);
    }

    QMap<QByteArray, QByteArray> m_before;
};

} // namespace

void TestProcessTool::toolReturnsWhatItWasMadeOf()
{
    QObject owner;
    auto *tool = new ProcessTool("n", "d", schema, "/bin/true", {}, &owner);
    QCOMPARE(tool->name(), "n");
    QCOMPARE(tool->description(), "d");
    QCOMPARE(tool->parameters(), schema);
    QCOMPARE(tool->permission(), ToolPermission::SystemCommand);
    QCOMPARE(tool->parent(), &owner);
    QCOMPARE(tool->invoke({}).error, "Tool is asynchronous.");

    const ToolReply *reply = tool->start({}, &owner);
    QCOMPARE(reply->parent(), &owner);
}

void TestProcessTool::valuesFillTheTemplate_data()
{
    using List = QStringList;
    QTest::addColumn<QStringList>("elements");
    QTest::addColumn<QJsonValue>("value"); // of "key"
    QTest::addColumn<QStringList>("arguments");
    const auto add = [](const char *name, const List &elements, const QJsonValue &value,
                        const List &arguments) { QTest::newRow(name) << elements << value << arguments; };
    add("text", {"{key}"}, "a", {"a"});
    add("empty text", {"{key}"}, "", {""});
    add("text with blanks and quotes", {"{key}"}, "a 'b' \"c\" \\", {"a 'b' \"c\" \\"});
    add("text of a shell", {"{key}"}, "$(id); `id` | id > x & *", {"$(id); `id` | id > x & *"});
    add("text with a line break", {"{key}"}, "a\nb", {"a\nb"});
    add("text that looks like an option", {"--", "{key}"}, "--delete", {"--", "--delete"});
    add("text that looks like a key", {"{key}"}, "{other}{key}", {"{other}{key}"});
    add("text that looks like a mark", {"{key}"}, "%1 %2", {"%1 %2"});
    add("inside an element", {"--file={key}.log"}, "a b", {"--file=a b.log"});
    add("twice", {"{key}-{key}"}, "a", {"a-a"});
    add("two keys", {"{key}{other}"}, "a", {"aother"});
    add("key with a brace", {"{odd}key}"}, "a", {"odd"});
    add("whole number", {"{key}"}, 7, {"7"});
    add("negative number", {"{key}"}, -7, {"-7"});
    add("whole number written with an exponent", {"{key}"}, QJsonDocument::fromJson("[1e3]").array().at(0),
        {"1000"});
    add("very large number", {"{key}"}, 1e20, {"100000000000000000000"});
    add("fraction", {"{key}"}, 0.25, {"0.25"});
    add("truth value", {"{key}"}, true, {"true"});
    add("array", {"{key}"}, QJsonArray{1, "a b"}, {R"([1,"a b"])"});
    add("object", {"{key}"}, QJsonObject{{"名", 1.5}}, {R"({"名":1.5})"});
    add("null leaves the element out", {"a", "-k{key}", "b"}, QJsonValue::Null, {"a", "b"});
    add("an absent value does", {"a", "{key}{other}", "b"}, QJsonValue::Undefined, {"a", "b"});
    add("unknown key", {"{none}"}, "a", {"{none}"});
    add("key with a blank", {"{ key}"}, "a", {"{ key}"});
    add("braces around a key", {"{{key}}"}, "a", {"{a}"});
    add("open brace", {"{key", "{", "{x {key}"}, "a", {"{key", "{", "{x a"});
    add("closing brace", {"}{key}}"}, "a", {"}a}"});
    add("JSON", {R"({"q": "{key}"})"}, "a", {R"({"q": "a"})"});
}

void TestProcessTool::valuesFillTheTemplate()
{
    QFETCH(QStringList, elements);
    QFETCH(QJsonValue, value);
    QFETCH(QStringList, arguments);
    const auto tool = shell(R"(for a in "$@"; do printf '[%s]' "$a"; done)", elements);
    QJsonObject values{{"other", "other"}, {"odd}key", "odd"}, {"none", "none"}};
    if (!value.isUndefined())
        values.insert("key", value);
    const ToolResult result = resultOf(*tool, values);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.content, "[" + arguments.join("][") + "]");
}

void TestProcessTool::numbersKeepAllTheirDigits()
{
    const QJsonObject values = QJsonDocument::fromJson(R"({"key": 9007199254740993})").object();
    QCOMPARE(resultOf(*shell("echo $1", {"{key}"}), values).content, "9007199254740993\n");
}

void TestProcessTool::nullCharacterFails_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("error");
    const QString error = "Argument contains a null character: key";
    QTest::newRow("alone") << QJsonValue(QString(QChar(0))) << error;
    QTest::newRow("inside") << QJsonValue(QString("a") + QChar(0) + "b") << error;
    // JSON writes it as \u0000.
    QTest::newRow("in an array") << QJsonValue(QJsonArray{QString(QChar(0))}) << QString();
}

void TestProcessTool::nullCharacterFails()
{
    QFETCH(QJsonValue, value);
    QFETCH(QString, error);
    const auto tool = shell("echo ran", {"{key}"});
    const ToolResult result = resultOf(*tool, {{"key", value}});
    QCOMPARE(result.error, error);
    QCOMPARE(result.content, error.isEmpty() ? "ran\n" : "");
}

void TestProcessTool::onlyChosenVariablesReachTheProgram()
{
    const Variables variables({{"HOME", "/home/p"},
                               {"LOGNAME", "p"},
                               {"PATH", "/usr/bin:/bin"},
                               {"SHELL", "/bin/sh"},
                               {"TERM", QByteArray()},
                               {"USER", "p"},
                               {"LD_LIBRARY_PATH", "/lib"},
                               {"OPENAI_API_KEY", "secret"}});
    ProcessTool tool("env", "", {}, "/usr/bin/env", {});
    const QStringList ours{"HOME=/home/p", "LOGNAME=p", "PATH=/usr/bin:/bin", "SHELL=/bin/sh", "USER=p"};
    QCOMPARE(linesOf(resultOf(tool).content), ours);

    QProcessEnvironment environment;
    environment.insert("USER", "q");
    environment.insert("ZONE", "泵 1");
    tool.setEnvironment(environment);
    QCOMPARE(linesOf(resultOf(tool).content), ours.mid(0, 4) + QStringList({"USER=q", "ZONE=泵 1"}));
}

void TestProcessTool::emptyEnvironmentStaysEmpty()
{
    const QByteArray none;
    const Variables variables({{"HOME", none},
                               {"LOGNAME", none},
                               {"PATH", none},
                               {"SHELL", none},
                               {"TERM", none},
                               {"USER", none},
                               {"OPENAI_API_KEY", "secret"}});
    ProcessTool tool("env", "", {}, "/usr/bin/env", {});
    const ToolResult result = resultOf(tool);
    QVERIFY2(result.success, qPrintable(result.error));
    QCOMPARE(result.content, "");
}

void TestProcessTool::standardInputIsEmpty()
{
    const ToolResult result = resultOf(*shell("cat; readlink /proc/self/fd/0"));
    QCOMPARE(result.content, "/dev/null\n");
}

void TestProcessTool::programRunsInTheWorkingDirectory()
{
    const QTemporaryDir folder;
    const auto tool = shell("pwd -P");
    QCOMPARE(resultOf(*tool).content, QDir::current().canonicalPath() + "\n");
    tool->setWorkingDirectory(folder.path());
    QCOMPARE(resultOf(*tool).content, QDir(folder.path()).canonicalPath() + "\n");
}

void TestProcessTool::settingsOfTheStartHold()
{
    const QTemporaryDir folder;
    const auto tool = shell("pwd -P");
    tool->setWorkingDirectory(folder.path());
    const std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    tool->setWorkingDirectory("/");
    tool->setOutputLimit(1);
    tool->setTimeLimit(1);
    QVERIFY(finished.wait());
    QCOMPARE(reply->result().content, QDir(folder.path()).canonicalPath() + "\n");
}

void TestProcessTool::successIsWhatTheProgramPrints()
{
    ToolResult result = resultOf(*shell("echo 水泵; echo unseen >&2"));
    QVERIFY(result.success);
    QCOMPARE(result.content, "水泵\n");
    QCOMPARE(result.error, QString());
    QVERIFY(result.data.isEmpty());
    QCOMPARE(result.metadata, (QJsonObject{{"exitCode", 0}}));

    result = resultOf(*shell("true"));
    QVERIFY(result.success);
    QCOMPARE(toolResultText(result), "工具执行完成。");
}

void TestProcessTool::failureTellsWhatTheProgramPrints_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QJsonObject>("metadata");
    const QJsonObject code{{"exitCode", 3}};
    QTest::newRow("code") << "exit 3"
                          << "Program ended with code 3." << code;
    QTest::newRow("error output") << "echo out; echo err >&2; exit 3"
                                  << "Program ended with code 3.\nerr\n"
                                  << code;
    QTest::newRow("output") << "echo out; exit 3"
                            << "Program ended with code 3.\nout\n"
                            << code;
    QTest::newRow("place markers") << "echo %1 %2; exit 3"
                                   << "Program ended with code 3.\n%1 %2\n"
                                   << code;
    QTest::newRow("crash") << "echo err >&2; kill -SEGV $$"
                           << "Program crashed.\nerr\n"
                           << QJsonObject();
    QTest::newRow("signal") << "kill -TERM $$"
                            << "Program crashed." << QJsonObject();
    QTest::newRow("long error output") << "head -c 5000 /dev/zero | tr '\\0' x >&2; exit 3"
                                       << "Program ended with code 3.\n" + QString(2000, 'x') << code;
}

void TestProcessTool::failureTellsWhatTheProgramPrints()
{
    QFETCH(QString, script);
    QFETCH(QString, error);
    QFETCH(QJsonObject, metadata);
    const ToolResult result = resultOf(*shell(script));
    QVERIFY(!result.success);
    QCOMPARE(result.error, error);
    QVERIFY(result.content.isEmpty());
    QCOMPARE(result.metadata, metadata);
}

void TestProcessTool::reportIsCutAtAWholeCharacter()
{
    // The 2,000th unit is the first half of the pump.
    const ToolResult result = resultOf(*shell("printf '%01999d' 0 >&2; printf 🛠 >&2; exit 3"));
    QCOMPARE(result.error, "Program ended with code 3.\n" + QString(1999, '0'));
}

void TestProcessTool::timeLimitEndsTheProgram()
{
    const auto tool = shell("echo begun; echo err >&2; sleep 1000");
    tool->setTimeLimit(300);
    const ToolResult result = resultOf(*tool);
    QCOMPARE(result.error, "Program exceeded its time limit of 300 ms.\nerr\n");
    QVERIFY(result.content.isEmpty());
    QVERIFY(result.metadata.isEmpty());
}

void TestProcessTool::outputLimitEndsTheProgram_data()
{
    const QString error = "Program wrote more than 10 bytes.\n";
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("error");
    QTest::newRow("as much as allowed") << "printf 1234567890" << QString();
    QTest::newRow("one byte more") << "printf 12345678901" << error + "12345678901";
    QTest::newRow("both together") << "printf 12345; printf 123456 >&2" << error + "123456";
    QTest::newRow("a failing program") << "printf 12345678901; exit 3" << error + "12345678901";
}

void TestProcessTool::outputLimitEndsTheProgram()
{
    QFETCH(QString, script);
    QFETCH(QString, error);
    const auto tool = shell(script);
    tool->setOutputLimit(10);
    const ToolResult result = resultOf(*tool);
    QCOMPARE(result.error, error);
    QCOMPARE(result.success, error.isEmpty());
    QCOMPARE(result.content, error.isEmpty() ? "1234567890" : "");
}

void TestProcessTool::outputWithoutAnEndIsEnded()
{
    const auto tool = shell("yes");
    tool->setTimeLimit(0);
    QVERIFY(resultOf(*tool).error.startsWith("Program wrote more than 1048576 bytes.\ny\ny\n"));
}

void TestProcessTool::limitsOfZeroAreNone()
{
    const auto tool = shell("head -c 3000000 /dev/zero | tr '\\0' x");
    QCOMPARE(resultOf(*tool).error, "Program wrote more than 1048576 bytes.\n" + QString(2000, 'x'));
    tool->setOutputLimit(0);
    tool->setTimeLimit(0);
    QCOMPARE(resultOf(*tool).content.size(), 3000000);
    tool->setOutputLimit(-1);
    tool->setTimeLimit(-1);
    QCOMPARE(resultOf(*tool).content.size(), 3000000);
}

void TestProcessTool::programThatCannotBeStartedFails_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("reason");
    const QString missing = "No such file or directory";
    const QString forbidden = "Permission denied";
    QTest::newRow("missing") << "/no/such/program" << QString() << missing;
    QTest::newRow("not in the path") << "no-such-program" << QString() << missing;
    QTest::newRow("not executable") << "/etc/passwd" << QString() << forbidden;
    QTest::newRow("folder") << "/etc" << QString() << forbidden;
    QTest::newRow("no name") << "" << QString() << missing;
    QTest::newRow("missing folder") << "/bin/true"
                                    << "/no/such/folder" << missing;
}

void TestProcessTool::programThatCannotBeStartedFails()
{
    QFETCH(QString, program);
    QFETCH(QString, folder);
    QFETCH(QString, reason);
    ProcessTool tool("t", "d", {}, program, {});
    tool.setWorkingDirectory(folder);
    const ToolResult result = resultOf(tool);
    QVERIFY(!result.success);
    QCOMPARE(result.error, "Program could not be started: " + reason);
    QVERIFY(result.metadata.isEmpty());
}

void TestProcessTool::programIsFoundInThePathOrFromTheWorkingDirectory()
{
    const QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkdir("bin"));
    QVERIFY(QFile::link("/bin/pwd", folder.filePath("bin/here")));
    ProcessTool inPath("t", "d", {}, "pwd", {"-P"});
    QCOMPARE(resultOf(inPath).content, QDir::current().canonicalPath() + "\n");
    ProcessTool inFolder("t", "d", {}, "bin/here", {"-P"});
    inFolder.setWorkingDirectory(folder.path());
    QCOMPARE(resultOf(inFolder).content, QDir(folder.path()).canonicalPath() + "\n");
    // A name alone means no program that happens to lie in the folder.
    ProcessTool byName("t", "d", {}, "here", {"-P"});
    byName.setWorkingDirectory(folder.filePath("bin"));
    QVERIFY(resultOf(byName).error.startsWith("Program could not be started: "));
}

QTEST_GUILESS_MAIN(TestProcessTool)
#include "tst_processtool.moc"
