#include <qtagent/prompttemplate.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestPromptTemplate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void renderReplacesPlaceholders_data();
    void renderReplacesPlaceholders();
    void formatGivesOneMessagePerEntryInOrder();
    void formatFillsRoleAndContentOnly();
    void formatKeepsDuplicatesAndOtherRoles();
    void emptyTemplateFormatsToNoMessages();
    void formatLeavesTheTemplateAsItIs();
};

void TestPromptTemplate::renderReplacesPlaceholders_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<PromptVariables>("variables");
    QTest::addColumn<QString>("rendered");
    QTest::newRow("a placeholder once")
        << "请解释{topic}。" << PromptVariables{{"topic", "路由"}} << "请解释路由。";
    QTest::newRow("every occurrence")
        << "{topic}, again {topic}" << PromptVariables{{"topic", "x"}} << "x, again x";
    QTest::newRow("several variables") << "{b} {a}" << PromptVariables{{"a", "1"}, {"b", "2"}} << "2 1";
    QTest::newRow("an unknown placeholder stays") << "{a} {b}" << PromptVariables{{"a", "1"}} << "1 {b}";
    QTest::newRow("names are case-sensitive") << "{Topic}" << PromptVariables{{"topic", "x"}} << "{Topic}";
    QTest::newRow("blanks belong to the name") << "{ a }" << PromptVariables{{"a", "x"}} << "{ a }";
    QTest::newRow("a value expands a variable that sorts later")
        << "{a}" << PromptVariables{{"a", "{b}"}, {"b", "x"}} << "x";
    QTest::newRow("a value keeps the placeholder of a variable that sorts earlier")
        << "{b}" << PromptVariables{{"a", "y"}, {"b", "{a}"}} << "{a}";
    QTest::newRow("a value does not expand itself") << "{a}" << PromptVariables{{"a", "{a}{a}"}} << "{a}{a}";
    QTest::newRow("upper case sorts before lower case")
        << "{Z}" << PromptVariables{{"Z", "{a}"}, {"a", "x"}} << "x";
    QTest::newRow("a value may complete a placeholder")
        << "{{a}}" << PromptVariables{{"a", "b"}, {"b", "x"}} << "x";
    QTest::newRow("other braces stay") << R"({"key": {a}})" << PromptVariables{{"a", "1"}} << R"({"key": 1})";
    QTest::newRow("doubled braces are no escape") << "{{a}}" << PromptVariables{{"a", "1"}} << "{1}";
    QTest::newRow("an empty value removes the placeholder") << "[{a}]" << PromptVariables{{"a", ""}} << "[]";
    QTest::newRow("the empty name is written {}") << "[{}]" << PromptVariables{{"", "x"}} << "[x]";
    QTest::newRow("fill marks in a name") << "{%1} {%2}" << PromptVariables{{"%1", "x"}} << "x {%2}";
    QTest::newRow("fill marks in a value") << "{a}{b}" << PromptVariables{{"a", "%1"}, {"b", "x"}} << "%1x";
    QTest::newRow("pattern characters in a name")
        << "{a.c} {abc}" << PromptVariables{{"a.c", "\\1"}} << "\\1 {abc}";
    QTest::newRow("no variables") << "{a}" << PromptVariables() << "{a}";
    QTest::newRow("an empty text") << "" << PromptVariables{{"a", "1"}} << "";
}

void TestPromptTemplate::renderReplacesPlaceholders()
{
    QFETCH(QString, text);
    QFETCH(PromptVariables, variables);
    QFETCH(QString, rendered);
    QCOMPARE(PromptTemplate::render(text, variables), rendered);
}

void TestPromptTemplate::formatGivesOneMessagePerEntryInOrder()
{
    PromptTemplate prompt;
    prompt.addSystem("You teach {subject}.");
    prompt.addUser("Explain {topic}.");
    const QVector<ChatMessage> messages = prompt.format({{"subject", "networks"}, {"topic", "路由"}});
    QCOMPARE(messages.size(), 2);
    QCOMPARE(messages[0].role, "system");
    QCOMPARE(messages[0].content, "You teach networks.");
    QCOMPARE(messages[1].role, "user");
    QCOMPARE(messages[1].content, "Explain 路由.");
}

void TestPromptTemplate::formatFillsRoleAndContentOnly()
{
    PromptTemplate prompt;
    prompt.addMessage("tool", "{a}");
    const ChatMessage message = prompt.format({{"a", "1"}}).value(0);
    QCOMPARE(messageToJson(message), (QJsonObject{{"role", "tool"}, {"content", "1"}}));
    QVERIFY(message.metadata.isEmpty());
}

void TestPromptTemplate::formatKeepsDuplicatesAndOtherRoles()
{
    PromptTemplate prompt;
    prompt.addMessage("critic", "{a}");
    prompt.addMessage("critic", "{a}");
    prompt.addMessage("{a}", "b");
    const QVector<ChatMessage> messages = prompt.format({{"a", "1"}});
    QCOMPARE(messages.size(), 3);
    QCOMPARE(messages[0].role, "critic");
    QCOMPARE(messages[1].role, "critic");
    QCOMPARE(messages[1].content, "1");
    QCOMPARE(messages[2].role, "{a}");
}

void TestPromptTemplate::emptyTemplateFormatsToNoMessages()
{
    QVERIFY(PromptTemplate().format({{"a", "1"}}).isEmpty());
}

void TestPromptTemplate::formatLeavesTheTemplateAsItIs()
{
    PromptTemplate prompt;
    prompt.addUser("{a}");
    QCOMPARE(prompt.format({{"a", "1"}})[0].content, "1");
    QCOMPARE(prompt.format({{"a", "2"}})[0].content, "2");
    QCOMPARE(prompt.format({})[0].content, "{a}");
}

QTEST_APPLESS_MAIN(TestPromptTemplate)
#include "tst_prompttemplate.moc"
