#include <qtagent/messagejson.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestMessageJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messageBecomesJson_data();
    void messageBecomesJson();
    void toolDefinitionBecomesAFunction();
    void emptyToolDefinitionKeepsAllKeys();
    void toolCallCarriesItsArgumentsAsCompactText();
    void toolCallWithoutArgumentsCarriesAnEmptyObject();
};

void TestMessageJson::messageBecomesJson_data()
{
    const QJsonObject call = makeToolCall("c1", "lookup", {});
    ChatMessage withMetadata = ChatMessage::user("Hi");
    withMetadata.metadata.insert("secret", 1);
    ChatMessage withoutCalls = ChatMessage::assistant("Hi", QJsonArray());

    QTest::addColumn<ChatMessage>("message");
    QTest::addColumn<QJsonObject>("json");
    QTest::newRow("a user message has two keys")
        << ChatMessage::user("Hi") << QJsonObject{{"role", "user"}, {"content", "Hi"}};
    QTest::newRow("null content is left out")
        << ChatMessage::user(QString()) << QJsonObject{{"role", "user"}};
    QTest::newRow("empty content is kept")
        << ChatMessage::user("") << QJsonObject{{"role", "user"}, {"content", ""}};
    QTest::newRow("a tool result carries name and id")
        << ChatMessage::tool("c1", "lookup", "42")
        << QJsonObject{{"role", "tool"}, {"content", "42"}, {"name", "lookup"}, {"tool_call_id", "c1"}};
    QTest::newRow("an assistant turn carries its tool calls")
        << ChatMessage::assistant("", {call})
        << QJsonObject{{"role", "assistant"}, {"content", ""}, {"tool_calls", QJsonArray{call}}};
    QTest::newRow("an empty list of calls is left out")
        << withoutCalls << QJsonObject{{"role", "assistant"}, {"content", "Hi"}};
    QTest::newRow("metadata is never sent")
        << withMetadata << QJsonObject{{"role", "user"}, {"content", "Hi"}};
}

void TestMessageJson::messageBecomesJson()
{
    QFETCH(ChatMessage, message);
    QFETCH(QJsonObject, json);
    QCOMPARE(messageToJson(message), json);
}

void TestMessageJson::toolDefinitionBecomesAFunction()
{
    const QJsonObject parameters{{"type", "object"}};
    const ToolDefinition definition{"lookup", "Looks up.", parameters, ToolPermission::Write};
    const QJsonObject function{{"name", "lookup"}, {"description", "Looks up."}, {"parameters", parameters}};
    QCOMPARE(toolDefinitionToJson(definition), (QJsonObject{{"type", "function"}, {"function", function}}));
}

void TestMessageJson::emptyToolDefinitionKeepsAllKeys()
{
    const QJsonObject function{{"name", ""}, {"description", ""}, {"parameters", QJsonObject()}};
    QCOMPARE(toolDefinitionToJson(ToolDefinition()),
             (QJsonObject{{"type", "function"}, {"function", function}}));
    QCOMPARE(ToolDefinition().permission, ToolPermission::ReadOnly);
}

void TestMessageJson::toolCallCarriesItsArgumentsAsCompactText()
{
    const QJsonObject arguments{{"deviceId", "Pump-001"}, {"limit", 3}};
    const QJsonObject function{{"name", "query"}, {"arguments", R"({"deviceId":"Pump-001","limit":3})"}};
    QCOMPARE(makeToolCall("c1", "query", arguments),
             (QJsonObject{{"id", "c1"}, {"type", "function"}, {"function", function}}));
}

void TestMessageJson::toolCallWithoutArgumentsCarriesAnEmptyObject()
{
    const QJsonObject call = makeToolCall("c1", "query", {});
    QCOMPARE(call["function"].toObject()["arguments"].toString(), "{}");
}

QTEST_APPLESS_MAIN(TestMessageJson)
#include "tst_messagejson.moc"
