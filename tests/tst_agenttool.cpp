#include <qtagent/agenttool.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestAgentTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resultStartsAsAnEmptyFailure();
    void resultTextIsTheFirstThatIsNotEmpty_data();
    void resultTextIsTheFirstThatIsNotEmpty();
    void functionToolReturnsWhatItWasMadeOf();
    void functionToolPassesArgumentsAndResultUnchanged();
    void emptyHandlerFails();
    void handlerKeepsItsState();
    void handlerMayDeleteItsTool();
};

void TestAgentTool::resultStartsAsAnEmptyFailure()
{
    const ToolResult result;
    QVERIFY(!result.success);
    QVERIFY(result.data.isEmpty() && result.metadata.isEmpty());
    QVERIFY(result.content.isEmpty() && result.error.isEmpty());
}

void TestAgentTool::resultTextIsTheFirstThatIsNotEmpty_data()
{
    const QJsonObject data{{"a", 1}, {"名", "泵"}};
    QTest::addColumn<ToolResult>("result");
    QTest::addColumn<QString>("text");
    QTest::newRow("content") << ToolResult{true, data, "content", "error", {}} << "content";
    QTest::newRow("content of a failure") << ToolResult{false, data, "content", "error", {}} << "content";
    QTest::newRow("blank content counts") << ToolResult{true, data, " ", "error", {}} << " ";
    QTest::newRow("error") << ToolResult{true, data, "", "error", {}} << "error";
    QTest::newRow("data, compact") << ToolResult{true, data, "", "", {}} << R"({"a":1,"名":"泵"})";
    QTest::newRow("data of a failure") << ToolResult{false, {{"a", 1}}, "", "", {}} << R"({"a":1})";
    QTest::newRow("success without a text") << ToolResult{true, {}, "", "", data} << "工具执行完成。";
    QTest::newRow("failure without a text") << ToolResult{false, {}, "", "", data} << "工具执行失败。";
}

void TestAgentTool::resultTextIsTheFirstThatIsNotEmpty()
{
    QFETCH(ToolResult, result);
    QFETCH(QString, text);
    QCOMPARE(toolResultText(result), text);
}

void TestAgentTool::functionToolReturnsWhatItWasMadeOf()
{
    QObject owner;
    const QJsonObject schema{{"type", "object"}};
    const auto *tool = new FunctionTool(" n ", "d", schema, ToolPermission::SystemCommand, {}, &owner);
    QCOMPARE(tool->name(), " n ");
    QCOMPARE(tool->description(), "d");
    QCOMPARE(tool->parameters(), schema);
    QCOMPARE(tool->permission(), ToolPermission::SystemCommand);
    QCOMPARE(tool->parent(), &owner);
}

void TestAgentTool::functionToolPassesArgumentsAndResultUnchanged()
{
    const auto echo = [](const QJsonObject &arguments) {
        return ToolResult{true, arguments, "content", "error", {{"m", 1}}};
    };
    // The schema asks for a text; what the model sends is not checked.
    FunctionTool tool("t", "d", {{"deviceId", "string"}}, ToolPermission::ReadOnly, echo);
    const ToolResult result = tool.invoke({{"deviceId", 7}});
    QVERIFY(result.success);
    QCOMPARE(result.data, (QJsonObject{{"deviceId", 7}}));
    QCOMPARE(result.content, "content");
    QCOMPARE(result.error, "error");
    QCOMPARE(result.metadata, (QJsonObject{{"m", 1}}));
}

void TestAgentTool::emptyHandlerFails()
{
    FunctionTool tool("t", "d", {}, ToolPermission::ReadOnly, {});
    const ToolResult result = tool.invoke({});
    QVERIFY(!result.success);
    QVERIFY(result.data.isEmpty() && result.content.isEmpty() && result.metadata.isEmpty());
    QCOMPARE(result.error, "Tool handler is empty.");
    QCOMPARE(toolResultText(result), "Tool handler is empty.");
}

void TestAgentTool::handlerKeepsItsState()
{
    const auto count = [calls = 0](const QJsonObject &) mutable {
        return ToolResult{true, {}, QString::number(++calls), {}, {}};
    };
    FunctionTool tool("t", "d", {}, ToolPermission::ReadOnly, count);
    FunctionTool other("o", "d", {}, ToolPermission::ReadOnly, count);
    QCOMPARE(tool.invoke({}).content, "1");
    QCOMPARE(tool.invoke({}).content, "2");
    QCOMPARE(tool.invoke({}).content, "3");
    QCOMPARE(other.invoke({}).content, "1");
}

void TestAgentTool::handlerMayDeleteItsTool()
{
    const QString content(100, 'x');
    QPointer<FunctionTool> tool;
    const auto handler = [&tool, content](const QJsonObject &) {
        delete tool;
        return ToolResult{true, {}, content, {}, {}};
    };
    tool = new FunctionTool("t", "d", {}, ToolPermission::ReadOnly, handler);
    QCOMPARE(tool->invoke({}).content, content);
    QVERIFY(!tool);
}

QTEST_APPLESS_MAIN(TestAgentTool)
#include "tst_agenttool.moc"
