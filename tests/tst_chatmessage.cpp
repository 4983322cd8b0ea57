#include <qtagent/chatmessage.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(ChatMessage)

class TestChatMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void factoriesSetTheirFieldsAndLeaveTheOthersEmpty();
    void permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly_data();
    void permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly();
    void messageBecomesJson_data();
    void messageBecomesJson();
    void toolDefinitionBecomesAFunction();
    void emptyToolDefinitionKeepsAllKeys();
    void toolCallCarriesItsArgumentsAsCompactText();
    void toolCallWithoutArgumentsCarriesAnEmptyObject();
};

void TestChatMessage::factoriesSetTheirFieldsAndLeaveTheOthersEmpty()
{
    const QJsonArray calls{QJsonObject{{"id", "c1"}}};
    const ChatMessage system = ChatMessage::system("s");
    const ChatMessage user = ChatMessage::user("u");
    const ChatMessage assistant = ChatMessage::assistant("a", calls);
    const ChatMessage tool = ChatMessage::tool("c1", "lookup", "t");

    QCOMPARE(system.role, "system");
    QCOMPARE(system.content, "s");
    QCOMPARE(user.role, "user");
    QCOMPARE(user.content, "u");
    QCOMPARE(assistant.role, "assistant");
    QCOMPARE(assistant.content, "a");
    QCOMPARE(assistant.toolCalls, calls);
    QVERIFY(ChatMessage::assistant("a").toolCalls.isEmpty());
    QCOMPARE(tool.role, "tool");
    QCOMPARE(tool.toolCallId, "c1");
    QCOMPARE(tool.name, "lookup");
    QCOMPARE(tool.content, "t");
    for (const ChatMessage &message : {system, user, assistant}) {
        QVERIFY(message.name.isEmpty());
        QVERIFY(message.toolCallId.isEmpty());
        QVERIFY(message.metadata.isEmpty());
    }
}

void TestChatMessage::permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("approval");
    QTest::newRow("ReadOnly is free") << 0 << "ReadOnly" << false;
    QTest::newRow("Write") << 1 << "Write" << true;
    QTest::newRow("Destructive") << 2 << "Destructive" << true;
    QTest::newRow("ExternalNetwork") << 3 << "ExternalNetwork" << true;
    QTest::newRow("FileSystem") << 4 << "FileSystem" << true;
    QTest::newRow("SystemCommand") << 5 << "SystemCommand" << true;
    QTest::newRow("a value above the table") << 6 << "Unknown" << true;
    QTest::newRow("a negative value") << -1 << "Unknown" << true;
}

void TestChatMessage::permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly()
{
    QFETCH(int, value);
    QFETCH(QString, name);
    QFETCH(bool, approval);
    QCOMPARE(permissionToString(static_cast<ToolPermission>(value)), name);
    QCOMPARE(requiresApproval(static_cast<ToolPermission>(value)), approval);
}

void TestChatMessage::messageBecomesJson_data()
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

void TestChatMessage::messageBecomesJson()
{
    QFETCH(ChatMessage, message);
    QFETCH(QJsonObject, json);
    QCOMPARE(messageToJson(message), json);
}

void TestChatMessage::toolDefinitionBecomesAFunction()
{
    const QJsonObject parameters{{"type", "object"}};
    const ToolDefinition definition{"lookup", "Looks up.", parameters, ToolPermission::Write};
    const QJsonObject function{{"name", "lookup"}, {"description", "Looks up."}, {"parameters", parameters}};
    QCOMPARE(toolDefinitionToJson(definition), (QJsonObject{{"type", "function"}, {"function", function}}));
}

void TestChatMessage::emptyToolDefinitionKeepsAllKeys()
{
    const QJsonObject function{{"name", ""}, {"description", ""}, {"parameters", QJsonObject()}};
    QCOMPARE(toolDefinitionToJson(ToolDefinition()),
             (QJsonObject{{"type", "function"}, {"function", function}}));
    QCOMPARE(ToolDefinition().permission, ToolPermission::ReadOnly);
}

void TestChatMessage::toolCallCarriesItsArgumentsAsCompactText()
{
    const QJsonObject arguments{{"deviceId", "Pump-001"}, {"limit", 3}};
    const QJsonObject function{{"name", "query"}, {"arguments", R"({"deviceId":"Pump-001","limit":3})"}};
    QCOMPARE(makeToolCall("c1", "query", arguments),
             (QJsonObject{{"id", "c1"}, {"type", "function"}, {"function", function}}));
}

void TestChatMessage::toolCallWithoutArgumentsCarriesAnEmptyObject()
{
    const QJsonObject call = makeToolCall("c1", "query", {});
    QCOMPARE(call["function"].toObject()["arguments"].toString(), "{}");
}

QTEST_APPLESS_MAIN(TestChatMessage)
#include "tst_chatmessage.moc"
