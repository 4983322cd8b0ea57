#include "support/shownpage.h"

#include <qtagent/widgets/toolcalltraceview.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QtTest>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

QRect onScreen(const QWidget *widget)
{
    return {widget->mapToGlobal(QPoint()), widget->size()};
}

QList<const QWidget *> withAncestors(const QWidget *widget)
{
    QList<const QWidget *> chain;
    for (; widget; widget = widget->parentWidget())
        chain.prepend(widget);
    return chain;
}

// Whether one is read before the other: the parts of the window that hold them stand above or left of each
// other.
bool isReadBefore(const QWidget *one, const QWidget *other)
{
    const QList<const QWidget *> ones = withAncestors(one);
    const QList<const QWidget *> others = withAncestors(other);
    int level = 0;
    while (ones.at(level) == others.at(level))
        ++level;
    const QRect part = onScreen(ones.at(level));
    const QRect otherPart = onScreen(others.at(level));
    if (part.bottom() < otherPart.top() || otherPart.bottom() < part.top())
        return part.top() < otherPart.top();
    return part.left() < otherPart.left();
}

// What Tab has to reach, in the order of reading.
QStringList namesInOrderOfReading(const QWidget *window)
{
    QList<QWidget *> fields = window->findChildren<QWidget *>();
    const auto isNoField = [](const QWidget *widget) {
        return !widget->isVisible() || !widget->isEnabled() || widget->focusProxy()
            || (widget->focusPolicy() & Qt::TabFocus) == 0;
    };
    fields.erase(std::remove_if(fields.begin(), fields.end(), isNoField), fields.end());
    std::sort(fields.begin(), fields.end(), isReadBefore);
    QStringList names;
    for (const QWidget *field : fields)
        names.append(field->objectName());
    return names;
}

// The names of what has the focus, from where the key leads out of the navigation until it is there again.
QStringList namesInOrderOfFocus(const QWidget *window, Qt::Key key)
{
    constexpr int mostSteps = 50;
    auto *navigation = window->findChild<QWidget *>("navigationTree");
    navigation->setFocus();
    QStringList names;
    for (int step = 0; step < mostSteps; ++step) {
        names.append(QApplication::focusWidget()->objectName());
        QTest::keyClick(QApplication::focusWidget(), key);
        if (navigation->hasFocus())
            return names;
    }
    return names << "and so on";
}

enum class Press { Mouse, Blank };

void press(QPushButton *button, Press how)
{
    if (how == Press::Mouse) {
        QTest::mouseClick(button, Qt::LeftButton);
    } else {
        button->setFocus();
        QTest::keyClick(button, Qt::Key_Space);
    }
}

} // namespace

Q_DECLARE_METATYPE(Press)

// The demo's window as people use it who type.
class TestKeyboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void disabledButtonHandsTheFocusToTheInput_data();
    void disabledButtonHandsTheFocusToTheInput();
    void blankAfterSendingAndStoppingIsTyped_data();
    void blankAfterSendingAndStoppingIsTyped();
    void endOfARunHandsTheFocusToTheInput_data();
    void endOfARunHandsTheFocusToTheInput();
    void focusElsewhereStaysDuringARun();
    void ctrlReturnRuns_data();
    void ctrlReturnRuns();
    void returnPressesTheFocusedButton_data();
    void returnPressesTheFocusedButton();
    void keyThatIsHeldDownRunsOnce();
    void toolTipsTellWhatCannotBeSeen();
    void tabFollowsTheOrderOfReading_data();
    void tabFollowsTheOrderOfReading();
    void tabAlsoReachesTheButtonThatStops();
    void tabLeavesTablesWithRows_data();
    void tabLeavesTablesWithRows();
};

void TestKeyboard::disabledButtonHandsTheFocusToTheInput_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<Press>("how");
    QTest::newRow("an agent, mouse") << "工具调用" << Press::Mouse;
    QTest::newRow("an agent, blank") << "工具调用" << Press::Blank;
    QTest::newRow("branches, mouse") << "并行分支" << Press::Mouse;
    QTest::newRow("branches, blank") << "并行分支" << Press::Blank;
}

void TestKeyboard::disabledButtonHandsTheFocusToTheInput()
{
    QFETCH(QString, title);
    QFETCH(Press, how);
    const ShownPage shown(title);
    QPlainTextEdit *input = shown.editor("pageInput");
    input->setPlainText("question");

    press(shown.button("runButton"), how);
    QVERIFY(shown.isRunning());
    QVERIFY(input->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QVERIFY(shown.isRunning());

    press(shown.button("stopButton"), how);
    QVERIFY(!shown.isRunning());
    QVERIFY(input->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QVERIFY(!shown.isRunning());
    QCOMPARE(input->toPlainText(), "  question");
}

void TestKeyboard::blankAfterSendingAndStoppingIsTyped_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<Press>("how");
    for (const char *title : {"基础对话", "数据分析"}) {
        QTest::addRow("%s, mouse", title) << title << Press::Mouse;
        QTest::addRow("%s, blank", title) << title << Press::Blank;
    }
}

// 清空 stands beside the two buttons.
void TestKeyboard::blankAfterSendingAndStoppingIsTyped()
{
    QFETCH(QString, title);
    QFETCH(Press, how);
    const ShownPage shown(title);
    QPlainTextEdit *input = shown.editor("agentChatInput");
    const auto *history = shown.child<QTextBrowser>("agentChatHistory");
    QPushButton *send = shown.button("agentChatSend");
    QPushButton *stop = shown.button("agentChatStop");
    const auto typeBlank = [] { QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space); };

    input->setPlainText("first");
    press(send, how);
    QVERIFY(stop->isEnabled());
    typeBlank();
    QCOMPARE(input->toPlainText(), " ");
    press(stop, how);
    QVERIFY(send->isEnabled());
    typeBlank();
    QCOMPARE(input->toPlainText(), "  ");

    input->setPlainText("second");
    press(send, how);
    stop->setFocus();
    QTRY_VERIFY(send->isEnabled());
    typeBlank();
    QCOMPARE(input->toPlainText(), " ");
    for (const char *question : {"first", "second"})
        QVERIFY(history->toPlainText().contains(question));
}

void TestKeyboard::endOfARunHandsTheFocusToTheInput_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("an agent") << "工具调用";
    QTest::newRow("branches") << "并行分支";
}

void TestKeyboard::endOfARunHandsTheFocusToTheInput()
{
    QFETCH(QString, title);
    const ShownPage shown(title);
    shown.button("runButton")->click();
    shown.button("stopButton")->setFocus();

    QTRY_VERIFY(!shown.isRunning());

    QVERIFY(shown.editor("pageInput")->hasFocus());
}

void TestKeyboard::focusElsewhereStaysDuringARun()
{
    const ShownPage shown("工具调用");
    shown.editor("traceOutput")->setFocus();

    shown.button("runButton")->click();
    QVERIFY(shown.isRunning());
    QVERIFY(shown.editor("traceOutput")->hasFocus());
    QTRY_VERIFY(!shown.isRunning());

    QVERIFY(shown.editor("traceOutput")->hasFocus());
}

void TestKeyboard::ctrlReturnRuns_data()
{
    QTest::addColumn<QString>("input");
    for (const char *title :
         {"基础聊天模型", "提示词模板", "可运行链", "输出解析器", "流式输出", "对话历史", "工具调用",
          "结构化输出", "并行运行", "简单 RAG", "模型节点", "工具节点", "并行分支", "智能体流程"})
        QTest::newRow(title) << "pageInput";
    for (const char *title : {"状态流程", "多步骤流程", "条件路由", "循环直到完成", "人工审核"})
        QTest::newRow(title) << "graphState";
}

void TestKeyboard::ctrlReturnRuns()
{
    QFETCH(QString, input);
    const ShownPage shown(QString::fromUtf8(QTest::currentDataTag()));
    QPlainTextEdit *editor = shown.editor(qPrintable(input));
    const QString text = editor->toPlainText();
    QSignalSpy runs(shown.button("runButton"), &QPushButton::clicked);

    editor->setFocus();
    QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(runs.size(), 1);
    QCOMPARE(editor->toPlainText(), text);

    if (QPushButton *stop = shown.button("stopButton")) {
        QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(runs.size(), 1);
        stop->click();
    }
    QTest::keyClick(editor, Qt::Key_Enter, Qt::ControlModifier | Qt::KeypadModifier);
    QCOMPARE(runs.size(), 2);
}

void TestKeyboard::returnPressesTheFocusedButton_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("runButton") << "流式输出";
    QTest::newRow("runButton of a graph") << "状态流程";
    QTest::newRow("runButton of an agent") << "工具调用";
    QTest::newRow("firstTurnButton") << "记忆检查点";
    QTest::newRow("secondTurnButton") << "记忆检查点";
}

void TestKeyboard::returnPressesTheFocusedButton()
{
    QFETCH(QString, title);
    const ShownPage shown(title);
    const QByteArray name = QByteArray(QTest::currentDataTag()).split(' ').first();
    QPushButton *button = shown.button(name.constData());
    QSignalSpy runs(button, &QPushButton::clicked);
    button->setFocus();

    QTest::keyClick(button, Qt::Key_Return);

    QCOMPARE(runs.size(), 1);
}

void TestKeyboard::keyThatIsHeldDownRunsOnce()
{
    const ShownPage shown("流式输出");
    QPushButton *button = shown.button("runButton");
    QSignalSpy runs(button, &QPushButton::clicked);
    button->setFocus();

    for (const bool isRepeated : {false, true, true})
        QTest::simulateEvent(button, true, Qt::Key_Return, Qt::NoModifier, "\r", isRepeated);

    QCOMPARE(runs.size(), 1);
}

void TestKeyboard::toolTipsTellWhatCannotBeSeen()
{
    const ShownPage shown("基础对话");
    const ShownPage simple("流式输出");

    QVERIFY(shown.button("agentChatSend")->toolTip().contains("Ctrl+Return"));
    QVERIFY(simple.button("runButton")->toolTip().contains("Ctrl+Return"));
    QCOMPARE(shown.page()->findChild<QWidget *>("timeoutSpin")->toolTip(), "随配置保存，但不应用于请求。");
}

void TestKeyboard::tabFollowsTheOrderOfReading_data()
{
    QTest::addColumn<QStringList>("fields");
    const QStringList chat{"agentChatHistory", "agentChatInput", "agentChatClear", "agentChatSend"};
    const QStringList simple{"pageInput", "runButton", "pageOutput"};
    const QStringList graph{"graphState", "runButton", "pageOutput", "graphSteps"};
    const QStringList question{"pageInput", "runButton", "pageOutput", "graphSteps"};
    QTest::newRow("基础对话") << QStringList{"profileCombo", "providerCombo", "baseUrlEdit", "apiKeyEdit",
                                             "modelEdit",    "maxTokensSpin", "timeoutSpin"}
                                     + chat;
    QTest::newRow("数据分析") << QStringList{"deviceTable"} + chat + QStringList{"toolCallTraces"};
    for (const char *title : {"基础聊天模型", "提示词模板", "可运行链", "输出解析器", "流式输出", "对话历史"})
        QTest::newRow(title) << simple;
    QTest::newRow("工具调用") << QStringList{"pageInput", "runButton", "pageOutput", "traceOutput"};
    for (const char *title : {"结构化输出", "并行运行", "简单 RAG", "模型节点"})
        QTest::newRow(title) << simple;
    for (const char *title : {"状态流程", "多步骤流程", "条件路由", "循环直到完成"})
        QTest::newRow(title) << graph;
    QTest::newRow("工具节点") << question;
    QTest::newRow("记忆检查点") << QStringList{"threadIdEdit",     "messageEdit", "firstTurnButton",
                                               "secondTurnButton", "pageOutput",  "graphSteps"};
    QTest::newRow("人工审核") << QStringList{"graphState", "approvedCheck", "runButton", "pageOutput",
                                             "graphSteps"};
    QTest::newRow("并行分支") << QStringList{"pageInput", "runButton", "branchOutput", "mergeOutput"};
    QTest::newRow("智能体流程") << question;
}

void TestKeyboard::tabFollowsTheOrderOfReading()
{
    QFETCH(QStringList, fields);
    const ShownPage shown(QString::fromUtf8(QTest::currentDataTag()));
    const QWidget *window = shown.page()->window();
    fields.prepend("navigationTree");
    QCOMPARE(namesInOrderOfReading(window), fields);

    QCOMPARE(namesInOrderOfFocus(window, Qt::Key_Tab), fields);
    std::reverse(fields.begin() + 1, fields.end());
    QCOMPARE(namesInOrderOfFocus(window, Qt::Key_Backtab), fields);
}

void TestKeyboard::tabAlsoReachesTheButtonThatStops()
{
    const ShownPage shown("基础对话");
    shown.editor("agentChatInput")->setPlainText("question");
    shown.button("agentChatSend")->click();
    QVERIFY(shown.button("agentChatStop")->isEnabled());
    const QWidget *window = shown.page()->window();

    const QStringList fields = namesInOrderOfFocus(window, Qt::Key_Tab);

    QCOMPARE(fields, namesInOrderOfReading(window));
    QVERIFY(fields.contains("agentChatStop") && !fields.contains("agentChatSend"));
}

void TestKeyboard::tabLeavesTablesWithRows_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("deviceTable") << "数据分析";
    QTest::newRow("toolCallTraces") << "数据分析";
    QTest::newRow("graphSteps") << "循环直到完成";
}

void TestKeyboard::tabLeavesTablesWithRows()
{
    QFETCH(QString, title);
    const ShownPage shown(title);
    auto *table = shown.page()->findChild<QTableWidget *>(QTest::currentDataTag());
    if (auto *traces = qobject_cast<ToolCallTraceView *>(table)) {
        traces->addTrace({});
        traces->addTrace({});
    } else if (QPushButton *run = shown.button("runButton")) {
        run->click();
    }
    QVERIFY(table->rowCount() > 1);

    for (const Qt::Key key : {Qt::Key_Tab, Qt::Key_Backtab}) {
        table->setFocus();
        table->setCurrentCell(0, 0);
        QTest::keyClick(table, key);
        QVERIFY(!table->hasFocus());
        QCOMPARE(table->currentColumn(), 0);
    }
}

QTEST_MAIN(TestKeyboard)
#include "tst_keyboard.moc"
