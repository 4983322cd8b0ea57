#include "support/exampletest.h"
#include "support/mcpscript.h"

#include <QMessageBox>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

class TestMcpWindow : public ChatPanelTest
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void userIsAskedAboutTheTools();
    void userIsAskedAgainWhenTheyChange();
    void toolsAreRegisteredThen();
    void closingTheWindowEndsTheProgram();

private:
    static QMessageBox *question() { return qobject_cast<QMessageBox *>(QApplication::activeModalWidget()); }
    static int openQuestions()
    {
        const QWidgetList windows = QApplication::topLevelWidgets();
        return int(std::count_if(windows.cbegin(), windows.cend(), [](const QWidget *window) {
            return window->isVisible() && qobject_cast<const QMessageBox *>(window);
        }));
    }
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
            {McpScript::result(McpScript::page({McpScript::tool("a"), McpScript::tool(longName)}))});
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

void TestMcpWindow::closingTheWindowEndsTheProgram()
{
    QVERIFY(m_panel->window()->close());
}

int main(int argc, char *argv[])
{
    McpScript script = changingServer();
    return ExampleRun<TestMcpWindow>::execute(argc, argv, script.command());
}

#include "tst_example_mcp_window.moc"
