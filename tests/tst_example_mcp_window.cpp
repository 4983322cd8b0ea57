#include "support/approvaldialogs.h"
#include "support/completions.h"
#include "support/exampletest.h"
#include "support/loopbackserver.h"
#include "support/mcpscript.h"
#include "support/offlineconfiguration.h"

#include <QMessageBox>
#include <QTableWidget>

#include <algorithm>
#include <memory>

using namespace MireloQtLib::QtAgent;

class TestMcpWindow : public PanelExampleTest
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void userIsAskedAboutTheTools();
    void userIsAskedAgainWhenTheyChange();
    void toolsAreRegisteredThen();
    void userIsAskedBeforeTheModelCallsOne();
    void callRunsOnceTheUserAgrees();
    void closingTheWindowEndsTheProgram();

private:
    static QMessageBox *question() { return qobject_cast<QMessageBox *>(QApplication::activeModalWidget()); }
    // The model asks for the tool "a".
    void askTheModel() const
    {
        service->enqueue(LoopbackAnswer::json(completion("", {toolCall()})));
        send("What does the pump say?");
    }
    static QJsonObject toolCall()
    {
        const QJsonObject function{{"name", "mcp__a"}, {"arguments", R"({"device":"Pump-001"})"}};
        return {{"id", "c"}, {"type", "function"}, {"function", function}};
    }
    QString cell(int column) const
    {
        const auto *traces = m_panel->window()->findChild<QTableWidget *>();
        return traces->item(traces->rowCount() - 1, column)->text();
    }
    static int openQuestions()
    {
        const QWidgetList windows = QApplication::topLevelWidgets();
        return int(std::count_if(windows.cbegin(), windows.cend(), [](const QWidget *window) {
            return window->isVisible() && qobject_cast<const QMessageBox *>(window);
        }));
    }

public:
    // What the model is asked through, and what the server does.
    inline static LoopbackServer *service = nullptr;
    inline static McpScript *script = nullptr;
};

namespace {

const QString longName(64, 'n');

// Its list changes once it has been asked for.
McpScript changingServer()
{
    const QJsonArray changed =
        McpScript::line(R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})");
    McpScript script = McpScript::legacy("2025-11-25", {});
    script.clear("tools/list")
        .on("tools/list",
            {McpScript::result(McpScript::page({McpScript::tool("read", "Reads a valve.")})), changed})
        .on("tools/list",
            {McpScript::result(McpScript::page({McpScript::tool("a"), McpScript::tool(longName)}))})
        .on("tools/call a", {McpScript::textResult("12.5 bar")});
    return script;
}

} // namespace

void TestMcpWindow::init()
{
    m_panel = shownWidget<AgentChatPanel>();
    QVERIFY(m_panel);
}

void TestMcpWindow::userIsAskedAboutTheTools()
{
    QTRY_VERIFY(question());
    QCOMPARE(question()->text(), "May the model use these tools?\nread");
    QCOMPARE(question()->detailedText(), "read: Reads a valve.");
}

// Nobody can answer the older question any more.
void TestMcpWindow::userIsAskedAgainWhenTheyChange()
{
    QTRY_VERIFY(question() && question()->text() == "May the model use these tools?\na, " + longName);
    QTRY_COMPARE(openQuestions(), 1);
}

void TestMcpWindow::toolsAreRegisteredThen()
{
    QCOMPARE(transcript(), "");
    QTest::mouseClick(question()->button(QMessageBox::Yes), Qt::LeftButton);
    QVERIFY(!question());
    QVERIFY(transcript().contains("mcp__" + longName + ": Tool name has more than 64 characters."));
}

void TestMcpWindow::userIsAskedBeforeTheModelCallsOne()
{
    ApprovalDialogs dialogs;
    dialogs.onShown = [](QDialog *dialog) { dialog->reject(); };
    askTheModel();
    QTRY_VERIFY(isIdle());
    QCOMPARE(dialogs.count(), 1);
    QCOMPARE(cell(0), "mcp__a");
    QCOMPARE(script->messages("tools/call").size(), 0);
    QCOMPARE(service->requests().size(), 1);
    QTest::mouseClick(button("agentChatClear"), Qt::LeftButton);
}

void TestMcpWindow::callRunsOnceTheUserAgrees()
{
    ApprovalDialogs dialogs;
    dialogs.onShown = [](QDialog *dialog) { dialog->accept(); };
    askTheModel();
    service->enqueue(LoopbackAnswer::json(completion("The pump has 12.5 bar.")));
    QTRY_VERIFY(transcript().endsWith("The pump has 12.5 bar."));
    QTRY_VERIFY(isIdle());
    const QJsonObject call = script->messages("tools/call").value(0)["params"].toObject();
    QCOMPARE(call["arguments"], QJsonValue(QJsonObject{{"device", "Pump-001"}}));
    const QJsonArray messages = service->requests().last().json["messages"].toArray();
    QCOMPARE(messages.last()["content"], QJsonValue("12.5 bar"));
    QCOMPARE(cell(0), "mcp__a");
    const QByteArray picture = qgetenv("QTAGENT_TEST_PICTURE");
    if (!picture.isEmpty())
        QVERIFY(m_panel->window()->grab().save(QFile::decodeName(picture)));
}

void TestMcpWindow::closingTheWindowEndsTheProgram()
{
    QVERIFY(m_panel->window()->close());
}

int main(int argc, char *argv[])
{
    const OfflineConfiguration configuration;
    const auto service = std::make_unique<LoopbackServer>();
    configuration.write({{"baseUrl", service->baseUrl()}, {"model", "m"}});
    const auto script = std::make_unique<McpScript>(changingServer());
    TestMcpWindow::service = service.get();
    TestMcpWindow::script = script.get();
    return ExampleRun<TestMcpWindow>::execute(argc, argv, script->command());
}

#include "tst_example_mcp_window.moc"
