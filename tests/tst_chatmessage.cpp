#include <qtagent/chatmessage.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestChatMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void factoriesSetTheirFieldsAndLeaveTheOthersEmpty();
    void headerBringsToolsAndJson();
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

// They were declared in chatmessage.h before they had headers of their own.
void TestChatMessage::headerBringsToolsAndJson()
{
    const ToolDefinition tool{"read", "Reads.", {}, ToolPermission::ReadOnly};
    QVERIFY(!requiresApproval(tool.permission));
    QCOMPARE(permissionToString(tool.permission), "ReadOnly");
    QCOMPARE(toolDefinitionToJson(tool)["type"].toString(), "function");
    const ChatMessage message = ChatMessage::assistant("", {makeToolCall("c1", "read", {})});
    QCOMPARE(messageToJson(message)["tool_calls"].toArray().size(), 1);
}

QTEST_APPLESS_MAIN(TestChatMessage)
#include "tst_chatmessage.moc"
