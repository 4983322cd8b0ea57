#include "support/mcpendpoint.h"
#include "support/mcpscript.h"

#include <assistant/mcpconnection.h>
#include <assistant/toolsdialog.h>
#include <assistant/toolset.h>

#include <qtagent/asynctool.h>
#include <qtagent/toolregistry.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

class TestToolsDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void folderHasToBeThere_data();
    void folderHasToBeThere();
    void serverIsAddedByTheUser();
    void serviceIsAddedByTheUser();
    void whatCannotBeUsedIsNotSaved_data();
    void whatCannotBeUsedIsNotSaved();
    void toolsAreTicked();
    void changedToolIsAgreedToByTickingIt();
    void tickCountsForWhatWasShown();
    void anotherProgramIsAgreedToAnew();
    void wordsAreShownAsTheyCome();
    void serverIsStartedAgain();
    void removedServerIsGone();

private:
    template<typename Widget>
    static Widget *find(const ToolsDialog &dialog, const QString &name)
    {
        return dialog.findChild<Widget *>(name);
    }
    static void enter(const ToolsDialog &dialog, const QString &name, const QString &text)
    {
        auto *edit = find<QLineEdit>(dialog, name);
        edit->selectAll();
        QTest::keyClicks(edit, text);
    }
    static QString state(const ToolsDialog &dialog) { return find<QLabel>(dialog, "serverState")->text(); }
    static McpServerSettings serverOf(McpScript &script)
    {
        const QStringList command = script.command();
        McpServerSettings settings;
        settings.name = "plant";
        settings.program = command.first();
        settings.arguments = command.mid(1);
        return settings;
    }
    static ToolSettings with(const QVector<McpServerSettings> &servers)
    {
        return {false, QString(), servers};
    }

    QTemporaryDir m_folder;
    McpScript m_script;
};

void TestToolsDialog::init()
{
    m_script = McpScript::legacy("2025-11-25", {McpScript::tool("echo"), McpScript::tool("wipe")});
}

void TestToolsDialog::folderHasToBeThere_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<bool>("isTaken");

    QTest::newRow("none") << QString() << true;
    QTest::newRow("there") << m_folder.path() << true;
    QTest::newRow("missing") << m_folder.filePath("missing") << false;
    QTest::newRow("relative") << "." << false;
}

void TestToolsDialog::folderHasToBeThere()
{
    QFETCH(QString, folder);
    QFETCH(bool, isTaken);
    const ToolSet tools({});
    ToolsDialog dialog(&tools);
    find<QLineEdit>(dialog, "folderEdit")->setText(folder);
    dialog.accept();
    QCOMPARE(dialog.result() == QDialog::Accepted, isTaken);
    QCOMPARE(find<QLabel>(dialog, "folderProblem")->isHidden(), isTaken);
}

void TestToolsDialog::serverIsAddedByTheUser()
{
    ToolSet tools(with({}));
    ToolsDialog dialog(&tools);
    find<QPushButton>(dialog, "addServer")->click();
    enter(dialog, "serverNameEdit", "plant");
    enter(dialog, "serverTargetEdit", "/bin/server");
    find<QPlainTextEdit>(dialog, "serverArgumentsEdit")->setPlainText("--all\n/a folder");
    find<QPlainTextEdit>(dialog, "serverVariablesEdit")->setPlainText("TOKEN=a=b");
    QCOMPARE(state(dialog), "保存后启动。");
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(dialog.settings().servers.size(), 1);
    const McpServerSettings server = dialog.settings().servers.first();
    QCOMPARE(server.name, "plant");
    QCOMPARE(server.program, "/bin/server");
    QCOMPARE(server.url, QString());
    QCOMPARE(server.arguments, QStringList({"--all", "/a folder"}));
    QCOMPARE(server.variables, (QMap<QString, QString>{{"TOKEN", "a=b"}}));
}

void TestToolsDialog::serviceIsAddedByTheUser()
{
    McpEndpoint endpoint;
    endpoint.speakLegacy("2025-11-25", {McpScript::tool("echo")});
    ToolSet tools(with({}));
    ToolsDialog dialog(&tools);
    find<QPushButton>(dialog, "addServer")->click();
    enter(dialog, "serverNameEdit", "plant");
    find<QComboBox>(dialog, "serverKindCombo")->setCurrentIndex(1);
    enter(dialog, "serverTargetEdit", endpoint.url().toString());
    find<QPlainTextEdit>(dialog, "serverVariablesEdit")->setPlainText("Authorization=Bearer secret");
    tools.setSettings(dialog.settings());
    QTRY_COMPARE(tools.connections().first()->stateText().section("，", 0, 0), "可以使用");
    QCOMPARE(endpoint.requests("tools/list").first().headers.value("authorization"),
             QByteArray("Bearer secret"));
}

void TestToolsDialog::whatCannotBeUsedIsNotSaved_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("problem");

    const QString name = "名称要有 1 到 24 个字符，只能是字母、数字、下划线和连字符。";
    QTest::newRow("no name") << ""
                             << "server" << name;
    QTest::newRow("blank in the name") << "my plant"
                                       << "server" << name;
    QTest::newRow("no target") << "other"
                               << ""
                               << "还没有程序或地址。";
    QTest::newRow("name of another") << "plant"
                                     << "server"
                                     << "另一个服务器已有这个名称。";
}

void TestToolsDialog::whatCannotBeUsedIsNotSaved()
{
    QFETCH(QString, name);
    QFETCH(QString, target);
    QFETCH(QString, problem);
    const ToolSet tools(with({serverOf(m_script)}));
    ToolsDialog dialog(&tools);
    find<QPushButton>(dialog, "addServer")->click();
    enter(dialog, "serverNameEdit", name);
    enter(dialog, "serverTargetEdit", target);
    find<QListWidget>(dialog, "serverList")->setCurrentRow(0);
    dialog.accept();
    QCOMPARE(dialog.result(), 0);
    QCOMPARE(find<QListWidget>(dialog, "serverList")->currentRow(), 1);
    QCOMPARE(find<QTabWidget>(dialog, "toolTabs")->currentIndex(), 1);
    QCOMPARE(state(dialog), problem);
}

void TestToolsDialog::toolsAreTicked()
{
    McpServerSettings server = serverOf(m_script);
    server.hiddenTools = QStringList{"of another day", "wipe"};
    ToolSet tools(with({server}));
    ToolsDialog dialog(&tools);
    auto *offered = find<QListWidget>(dialog, "serverTools");
    QTRY_COMPARE(offered->count(), 2);
    QCOMPARE(offered->item(1)->checkState(), Qt::Unchecked);
    offered->item(0)->setCheckState(Qt::Unchecked);
    offered->item(1)->setCheckState(Qt::Checked);
    QCOMPARE(dialog.settings().servers.first().hiddenTools, QStringList({"of another day", "echo"}));
}

void TestToolsDialog::changedToolIsAgreedToByTickingIt()
{
    McpServerSettings server = serverOf(m_script);
    server.agreedTools.insert("wipe", "Wiped.\n{}\n");
    ToolSet tools(with({server}));
    ToolsDialog dialog(&tools);
    auto *offered = find<QListWidget>(dialog, "serverTools");
    QTRY_COMPARE(offered->count(), 2);
    QCOMPARE(offered->item(0)->text(), "echo（等待同意）");
    QCOMPARE(offered->item(1)->checkState(), Qt::Unchecked);
    offered->setCurrentRow(1);
    QCOMPARE(find<QPlainTextEdit>(dialog, "serverToolText")->toPlainText(),
             "现在：\n"
             "Does things.\n{\n    \"type\": \"object\"\n}\n\n您同意时：\nWiped.\n{}\n");
    enter(dialog, "serverNameEdit", "plant");
    QCOMPARE(dialog.settings().servers.first().hiddenTools, QStringList());
    offered->item(1)->setCheckState(Qt::Checked);
    tools.setSettings(dialog.settings());
    QCOMPARE(tools.connections().first()->waitingTools(), QStringList("echo"));
    QVERIFY(tools.registry()->tool("plant__wipe"));
    QCOMPARE(offered->item(1)->text(), "wipe");
}

// The server says something else while the user reads.
void TestToolsDialog::tickCountsForWhatWasShown()
{
    m_script.on("tools/list", {McpScript::result(McpScript::page(
                                  {McpScript::tool("echo"), McpScript::tool("wipe", "Sends all.")}))});
    m_script.on("tools/call", {McpScript::textResult("done"), McpScript::listChanged()});
    McpServerSettings server = serverOf(m_script);
    server.agreedTools.insert("echo", "Does things.\n{\n    \"type\": \"object\"\n}\n");
    ToolSet tools(with({server}));
    ToolsDialog dialog(&tools);
    auto *offered = find<QListWidget>(dialog, "serverTools");
    QTRY_COMPARE(offered->count(), 2);
    offered->item(1)->setCheckState(Qt::Checked);
    const McpConnection *connection = tools.connections().first();
    const QString before = connection->toolText("wipe");
    qobject_cast<MireloQtLib::QtAgent::AsyncTool *>(tools.registry()->tool("plant__echo"))->start({}, &tools);
    QTRY_VERIFY(connection->toolText("wipe") != before);
    QCOMPARE(offered->item(1)->checkState(), Qt::Unchecked);
    tools.setSettings(dialog.settings());
    QCOMPARE(connection->waitingTools(), QStringList("wipe"));
    QVERIFY(!tools.registry()->tool("plant__wipe"));
}

void TestToolsDialog::anotherProgramIsAgreedToAnew()
{
    ToolSet tools(with({serverOf(m_script)}));
    ToolsDialog dialog(&tools);
    QTRY_COMPARE(find<QListWidget>(dialog, "serverTools")->count(), 2);
    enter(dialog, "serverNameEdit", "renamed");
    QCOMPARE(dialog.settings().servers.first().agreedTools.keys(), QStringList({"echo", "wipe"}));
    enter(dialog, "serverTargetEdit", "/bin/other");
    QCOMPARE(dialog.settings().servers.first().agreedTools.keys(), QStringList());
}

void TestToolsDialog::wordsAreShownAsTheyCome()
{
    m_script.on("tools/call", {McpScript::error("pump 7 is hot\n"), McpScript::textResult("done")});
    ToolSet tools(with({serverOf(m_script)}));
    const ToolsDialog dialog(&tools);
    QTRY_COMPARE(find<QListWidget>(dialog, "serverTools")->count(), 2);
    auto *words = find<QPlainTextEdit>(dialog, "serverWords");
    QCOMPARE(words->toPlainText(), QString());
    auto *echo = qobject_cast<MireloQtLib::QtAgent::AsyncTool *>(tools.registry()->tool("plant__echo"));
    echo->start({}, &tools);
    QTRY_COMPARE(words->toPlainText(), "pump 7 is hot\n");
}

void TestToolsDialog::serverIsStartedAgain()
{
    m_script.on("tools/call", {McpScript::exit(3)});
    ToolSet tools(with({serverOf(m_script)}));
    const ToolsDialog dialog(&tools);
    auto *restart = find<QPushButton>(dialog, "serverRestart");
    QTRY_COMPARE(find<QListWidget>(dialog, "serverTools")->count(), 2);
    QVERIFY(!restart->isEnabled());
    auto *echo = qobject_cast<MireloQtLib::QtAgent::AsyncTool *>(tools.registry()->tool("plant__echo"));
    echo->start({}, &tools);
    QTRY_COMPARE(state(dialog), "已停止：Program ended with code 3.");
    QVERIFY(!tools.registry()->tool("plant__echo"));
    restart->click();
    QCOMPARE(state(dialog), "正在启动…");
    QTRY_VERIFY(tools.registry()->tool("plant__echo"));
}

void TestToolsDialog::removedServerIsGone()
{
    McpServerSettings other = serverOf(m_script);
    other.name = "other";
    ToolSet tools(with({serverOf(m_script), other}));
    ToolsDialog dialog(&tools);
    QTRY_COMPARE(tools.registry()->definitions().size(), 4);
    find<QPushButton>(dialog, "removeServer")->click();
    QCOMPARE(find<QListWidget>(dialog, "serverList")->count(), 1);
    QCOMPARE(find<QLineEdit>(dialog, "serverNameEdit")->text(), "other");
    QCOMPARE(find<QListWidget>(dialog, "serverTools")->count(), 2);
    const QPointer<McpConnection> removed = tools.connections().first();
    tools.setSettings(dialog.settings());
    QCOMPARE(tools.registry()->definitions().size(), 2);
    QTRY_VERIFY(!removed);
}

QTEST_MAIN(TestToolsDialog)
#include "tst_toolsdialog.moc"
