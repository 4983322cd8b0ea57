#include <qtagent/outputparsers.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

/// Returns what the JSON library says about @p json.
QString libraryError(const QByteArray &json)
{
    QJsonParseError error;
    QJsonDocument::fromJson(json, &error);
    return error.errorString();
}

} // namespace

class TestOutputParsers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stringParserTrims_data();
    void stringParserTrims();
    void objectIsRead_data();
    void objectIsRead();
    void failureIsReportedByTheJsonLibrary_data();
    void failureIsReportedByTheJsonLibrary();
    void rootThatIsNoObjectFails_data();
    void rootThatIsNoObjectFails();
    void emptyObjectIsNoFailure();
    void requiredFieldsAreDemanded_data();
    void requiredFieldsAreDemanded();
    void parseErrorComesBeforeMissingFields();
    void parseObjectIgnoresRequiredFields();
    void errorOutIsOptional();
    void errorOutIsCleared();
    void errorOutMayBeTheParsedText();
    void requiredFieldsAreKept();
};

void TestOutputParsers::stringParserTrims_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("trimmed");
    QTest::newRow("both ends") << " \n\t answer \r\n"
                               << "answer";
    QTest::newRow("inner white space stays") << "a  b\n c"
                                             << "a  b\n c";
    QTest::newRow("ideographic blanks") << QString::fromUtf8("　答案　") << "答案";
    QTest::newRow("white space alone") << " \n "
                                       << "";
    QTest::newRow("a fence stays") << "```\na\n```\n"
                                   << "```\na\n```";
}

void TestOutputParsers::stringParserTrims()
{
    QFETCH(QString, text);
    QFETCH(QString, trimmed);
    QCOMPARE(StringOutputParser().parse(text), trimmed);
}

void TestOutputParsers::objectIsRead_data()
{
    const QJsonObject one{{"a", 1}};
    QTest::addColumn<QString>("text");
    QTest::addColumn<QJsonObject>("object");
    QTest::newRow("plain") << R"({"a": 1})" << one;
    QTest::newRow("with white space around") << " \n{\"a\": 1}\n " << one;
    QTest::newRow("in a fence with a tag") << "```json\n{\"a\": 1}\n```" << one;
    QTest::newRow("in a fence without a tag") << "```\n{\"a\": 1}\n```" << one;
    QTest::newRow("in a fence with white space around") << "\n ```json\n\n {\"a\": 1} \n\n``` \n" << one;
    QTest::newRow("in a fence with carriage returns") << "```json\r\n{\"a\": 1}\r\n```\r\n" << one;
    QTest::newRow("in a fence that closes on the object's line") << "```json\n{\"a\": 1}```" << one;
    QTest::newRow("what follows the fence is dropped") << "```json\n{\"a\": 1}\n```\nThat is all." << one;
    QTest::newRow("the first line of a fence is dropped") << "```json {\"a\": 2}\n{\"a\": 1}\n```" << one;
    QTest::newRow("a fence within a text value, the last one counts")
        << "```json\n{\"a\": \"```\"}\n```" << QJsonObject{{"a", "```"}};
    QTest::newRow("a fence within a text value of a plain object")
        << R"({"a": "```\n1\n```"})" << QJsonObject{{"a", "```\n1\n```"}};
    QTest::newRow("Chinese text") << R"({"标题": "路由"})" << QJsonObject{{"标题", "路由"}};
    QTest::newRow("a character beyond the basic plane")
        << QString::fromUtf8("{\"a\": \"\xf0\x9f\x9a\x80\"}")
        << QJsonObject{{"a", QString::fromUtf8("\xf0\x9f\x9a\x80")}};
    QTest::newRow("an escaped NUL") << R"({"a": "\u0000"})" << QJsonObject{{"a", QString(QChar(0))}};
    QTest::newRow("a lone surrogate becomes a replacement")
        << QStringLiteral("{\"a\": \"%1\"}").arg(QChar(0xd800))
        << QJsonObject{{"a", QString::fromUtf8(QString(QChar(0xd800)).toUtf8())}};
    QTest::newRow("an empty object") << "{}" << QJsonObject();
}

void TestOutputParsers::objectIsRead()
{
    QFETCH(QString, text);
    QFETCH(QJsonObject, object);
    QString error;
    QCOMPARE(JsonOutputParser::parseObject(text, &error), object);
    QCOMPARE(error, "");
    QCOMPARE(JsonOutputParser().parse(text, &error), object);
    QCOMPARE(error, "");
}

void TestOutputParsers::failureIsReportedByTheJsonLibrary_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("parsed");
    QTest::newRow("prose") << " I cannot. " << QByteArray("I cannot.");
    QTest::newRow("nothing") << "" << QByteArray();
    QTest::newRow("white space") << " \n " << QByteArray();
    QTest::newRow("an unterminated object") << R"({"a": 1)" << QByteArray(R"({"a": 1)");
    QTest::newRow("text after the object") << R"({"a": 1} ok)" << QByteArray(R"({"a": 1} ok)");
    QTest::newRow("text before a fence")
        << "Here:\n```json\n{}\n```" << QByteArray("Here:\n```json\n{}\n```");
    QTest::newRow("a fence without a line feed")
        << "```json {\"a\": 1} ```" << QByteArray("```json {\"a\": 1} ```");
    QTest::newRow("a fence that is never closed")
        << "```json\n{\"a\": 1}" << QByteArray("```json\n{\"a\": 1}");
    QTest::newRow("a fence that closes on the first line")
        << "```json ```\n{\"a\": 1}" << QByteArray("```json ```\n{\"a\": 1}");
    QTest::newRow("a fence around nothing") << "```json\n\n```" << QByteArray();
    QTest::newRow("two backticks are no fence") << "``\n{}\n``" << QByteArray("``\n{}\n``");
    QTest::newRow("a NUL after the object") << QStringLiteral("{}") + QChar(0) << QByteArray("{}\0", 3);
    QTest::newRow("levels without end") << QString(2000, '[') << QByteArray(2000, '[');
}

void TestOutputParsers::failureIsReportedByTheJsonLibrary()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, parsed);
    QVERIFY(libraryError(parsed) != libraryError("{}"));
    QString error;
    QVERIFY(JsonOutputParser::parseObject(text, &error).isEmpty());
    QCOMPARE(error, libraryError(parsed));
    QVERIFY(JsonOutputParser({"a"}).parse(text, &error).isEmpty());
    QCOMPARE(error, libraryError(parsed));
}

void TestOutputParsers::rootThatIsNoObjectFails_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("an array") << "[1, 2]";
    QTest::newRow("an empty array") << "[]";
    QTest::newRow("an array of objects") << R"([{"a": 1}])";
    QTest::newRow("an array in a fence") << "```json\n[1, 2]\n```";
}

void TestOutputParsers::rootThatIsNoObjectFails()
{
    QFETCH(QString, text);
    QString error;
    QVERIFY(JsonOutputParser::parseObject(text, &error).isEmpty());
    QCOMPARE(error, "JSON root is not an object.");
    QVERIFY(JsonOutputParser({"a"}).parse(text, &error).isEmpty());
    QCOMPARE(error, "JSON root is not an object.");
}

void TestOutputParsers::emptyObjectIsNoFailure()
{
    QString error;
    QVERIFY(JsonOutputParser().parse("{}", &error).isEmpty());
    QCOMPARE(error, "");
    QVERIFY(JsonOutputParser({"summary"}).parse("{}", &error).isEmpty());
    QCOMPARE(error, "Missing required field: summary");
}

void TestOutputParsers::requiredFieldsAreDemanded_data()
{
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("error");
    const QStringList ab{"a", "b"};
    QTest::newRow("all are there") << ab << R"({"a": 1, "b": 2, "c": 3})"
                                   << "";
    QTest::newRow("the second is missing") << ab << R"({"a": 1})"
                                           << "Missing required field: b";
    QTest::newRow("the first missing one is named") << ab << R"({"c": 1})"
                                                    << "Missing required field: a";
    QTest::newRow("the list's order counts, not the alphabet") << QStringList{"b", "a"} << R"({"c": 1})"
                                                               << "Missing required field: b";
    QTest::newRow("null, empty and unexpected values pass")
        << QStringList{"a", "b", "c", "d"} << R"({"a": null, "b": "", "c": [], "d": {}})"
        << "";
    QTest::newRow("keys are case-sensitive") << ab << R"({"A": 1, "b": 2})"
                                             << "Missing required field: a";
    QTest::newRow("nested keys do not count") << QStringList{"b"} << R"({"a": {"b": 1}})"
                                              << "Missing required field: b";
    QTest::newRow("fill marks in a name") << QStringList{"%1"} << "{}"
                                          << "Missing required field: %1";
    QTest::newRow("the empty name") << QStringList{""} << R"({"a": 1})"
                                    << "Missing required field: ";
}

void TestOutputParsers::requiredFieldsAreDemanded()
{
    QFETCH(QStringList, fields);
    QFETCH(QString, text);
    QFETCH(QString, error);
    QString reported;
    const QJsonObject object = JsonOutputParser(fields).parse(text, &reported);
    QCOMPARE(reported, error);
    QCOMPARE(object, error.isEmpty() ? JsonOutputParser::parseObject(text) : QJsonObject());
}

void TestOutputParsers::parseErrorComesBeforeMissingFields()
{
    QString error;
    JsonOutputParser({"a"}).parse("{", &error);
    QCOMPARE(error, libraryError("{"));
}

void TestOutputParsers::parseObjectIgnoresRequiredFields()
{
    const JsonOutputParser parser({"b"});
    QString error;
    QCOMPARE(parser.parseObject(R"({"a": 1})", &error), (QJsonObject{{"a", 1}}));
    QCOMPARE(error, "");
}

void TestOutputParsers::errorOutIsOptional()
{
    const JsonOutputParser parser({"a"});
    QVERIFY(parser.parse("no JSON").isEmpty());
    QVERIFY(parser.parse("[]").isEmpty());
    QVERIFY(parser.parse(R"({"b": 1})").isEmpty());
    QCOMPARE(parser.parse(R"({"a": 1})"), (QJsonObject{{"a", 1}}));
    QVERIFY(JsonOutputParser::parseObject("[]").isEmpty());
}

void TestOutputParsers::errorOutIsCleared()
{
    QString error = "old";
    JsonOutputParser::parseObject("{}", &error);
    QCOMPARE(error, "");
    error = "old";
    JsonOutputParser().parse("{}", &error);
    QCOMPARE(error, "");
}

void TestOutputParsers::errorOutMayBeTheParsedText()
{
    QString text = R"({"a": 1})";
    QCOMPARE(JsonOutputParser({"a"}).parse(text, &text), (QJsonObject{{"a", 1}}));
    QCOMPARE(text, "");
}

void TestOutputParsers::requiredFieldsAreKept()
{
    JsonOutputParser parser;
    QCOMPARE(parser.requiredFields(), QStringList());
    parser.setRequiredFields({"b", "a"});
    QCOMPARE(parser.requiredFields(), (QStringList{"b", "a"}));
    QString error;
    parser.parse("{}", &error);
    QCOMPARE(error, "Missing required field: b");
}

QTEST_APPLESS_MAIN(TestOutputParsers)
#include "tst_outputparsers.moc"
