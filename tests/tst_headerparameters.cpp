#include <qtagent/mcp/headerparameters_p.h>

#include <QJsonDocument>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestHeaderParameters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesAreEncodedWhereTheyAreNotPlain_data();
    void valuesAreEncodedWhereTheyAreNotPlain();
    void namesAreTokens();
    void argumentsBecomeHeaders_data();
    void argumentsBecomeHeaders();
    void brokenRulesAreNoticed_data();
    void brokenRulesAreNoticed();
};

namespace {

QJsonObject json(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

QStringList written(const HeaderValues &headers)
{
    QStringList lines;
    for (const auto &header : headers)
        lines.append(QString::fromLatin1(header.first + ": " + header.second));
    lines.sort();
    return lines;
}

} // namespace

void TestHeaderParameters::valuesAreEncodedWhereTheyAreNotPlain_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("plain") << "us-west1 (a)" << QByteArray("us-west1 (a)");
    QTest::newRow("other characters") << "Hello, 世界" << QByteArray("=?base64?SGVsbG8sIOS4lueVjA==?=");
    QTest::newRow("blank first") << " a" << QByteArray("=?base64?IGE=?=");
    QTest::newRow("blank last") << "a " << QByteArray("=?base64?YSA=?=");
    QTest::newRow("line break") << "a\r\nX-Evil: 1" << QByteArray("=?base64?YQ0KWC1FdmlsOiAx?=");
    QTest::newRow("tab") << "a\tb" << QByteArray("=?base64?YQli?=");
    QTest::newRow("looks encoded") << "=?base64?YQ==?=" << QByteArray("=?base64?PT9iYXNlNjQ/WVE9PT89?=");
    QTest::newRow("half of the mark") << "=?base64?YQ==" << QByteArray("=?base64?YQ==");
    QTest::newRow("empty") << "" << QByteArray("");
}

void TestHeaderParameters::valuesAreEncodedWhereTheyAreNotPlain()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, value);
    QCOMPARE(headerValue(text), value);
}

void TestHeaderParameters::namesAreTokens()
{
    for (const char *name : {"Authorization", "x-a_b.c!#$%&'*+^`|~9"})
        QVERIFY2(isHeaderName(name), name);
    for (const char *name : {"", "a b", "a:b", "a\n", "(a)", "\xC3\xA4", "a,b"})
        QVERIFY2(!isHeaderName(name), name);
    QVERIFY(!isHeaderName(QByteArray("a\0b", 3)));
}

void TestHeaderParameters::argumentsBecomeHeaders_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QStringList>("headers");
    QTest::newRow("all") << R"({"region":"eu","count":7,"flag":true,"place":{"hall":"北"},"rest":"x"})"
                         << QStringList{"Mcp-Param-Count: 7", "Mcp-Param-Flag: true",
                                        "Mcp-Param-Hall: =?base64?5YyX?=", "Mcp-Param-Region: eu"};
    QTest::newRow("none") << "{}" << QStringList();
    QTest::newRow("null") << R"({"region":null,"place":null})" << QStringList();
    QTest::newRow("empty text") << R"({"region":""})" << QStringList{"Mcp-Param-Region: "};
    QTest::newRow("false and large") << R"({"flag":false,"count":-9007199254740993})"
                                     << QStringList{"Mcp-Param-Count: -9007199254740993",
                                                    "Mcp-Param-Flag: false"};
    // The server finds these in the body, and refuses them.
    QTest::newRow("other kinds") << R"({"region":{"a":1},"count":1.5,"place":{"hall":[1]}})" << QStringList();
}

void TestHeaderParameters::argumentsBecomeHeaders()
{
    QFETCH(QString, arguments);
    QFETCH(QStringList, headers);
    const QJsonObject schema = json(R"({"type":"object","properties":{
        "region":{"type":"string","x-mcp-header":"Region"},
        "count":{"type":"integer","x-mcp-header":"Count"},
        "flag":{"type":"boolean","x-mcp-header":"Flag"},
        "place":{"type":"object","properties":{"hall":{"type":"string","x-mcp-header":"Hall"}}},
        "x-mcp-header":{"type":"string","default":{"x-mcp-header":"no schema"}},
        "rest":{"type":"string"}}})");
    QVector<HeaderParameter> parameters;
    QVERIFY(readHeaderParameters(schema, &parameters));
    QCOMPARE(written(headersOf(parameters, json(arguments))), headers);
}

void TestHeaderParameters::brokenRulesAreNoticed_data()
{
    QTest::addColumn<QString>("properties");
    const auto add = [](const char *name, const char *properties) {
        QTest::newRow(name) << QString(properties);
    };
    add("empty name", R"({"a":{"type":"string","x-mcp-header":""}})");
    add("no token", R"({"a":{"type":"string","x-mcp-header":"a b"}})");
    add("no text", R"({"a":{"type":"string","x-mcp-header":7}})");
    add("twice", R"({"a":{"type":"string","x-mcp-header":"N"},"b":{"type":"string","x-mcp-header":"n"}})");
    add("number", R"({"a":{"type":"number","x-mcp-header":"N"}})");
    add("object", R"({"a":{"type":"object","x-mcp-header":"N"}})");
    add("no type", R"({"a":{"x-mcp-header":"N"}})");
    add("in an array", R"({"a":{"type":"array","items":{"type":"string","x-mcp-header":"N"}}})");
    add("in a choice", R"({"a":{"anyOf":[{"type":"string","x-mcp-header":"N"}]}})");
    add("below a choice",
        R"({"a":{"oneOf":[{"type":"object","properties":{"b":{"type":"string","x-mcp-header":"N"}}}]}})");
    add("in a definition", R"({"a":{"$defs":{"d":{"type":"string","x-mcp-header":"N"}}}})");
}

void TestHeaderParameters::brokenRulesAreNoticed()
{
    QFETCH(QString, properties);
    QVector<HeaderParameter> parameters;
    QVERIFY(!json(properties).isEmpty());
    QVERIFY(!readHeaderParameters({{"type", "object"}, {"properties", json(properties)}}, &parameters));
    // On the schema itself.
    QVERIFY(!readHeaderParameters({{"type", "string"}, {"x-mcp-header", "N"}}, &parameters));
}

QTEST_APPLESS_MAIN(TestHeaderParameters)
#include "tst_headerparameters.moc"
