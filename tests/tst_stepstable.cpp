#include <demo/stepstable.h>

#include <QApplication>
#include <QDialog>
#include <QFontInfo>
#include <QHeaderView>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

enum Column { NodeColumn, RouteColumn, UpdateColumn, StateColumn };

GraphStep step(const QString &node, const QJsonObject &update)
{
    GraphStep step;
    step.node = node;
    step.route = "next";
    step.update = update;
    step.after = update;
    step.after.insert("topic", "Orvane");
    return step;
}

QVector<GraphStep> twoSteps()
{
    return {step("draft", {{"draft", "Orvane 的草稿说明"}}),
            step("polish", {{"answer", "Orvane 的草稿说明 -> 已整理为最终回答。"}})};
}

// A shown table with the steps of a run.
class Table : public StepsTable
{
public:
    explicit Table(int width, const QVector<GraphStep> &steps = twoSteps())
    {
        resize(width, 300);
        show();
        if (!QTest::qWaitForWindowActive(this))
            qFatal("The table does not become active.");
        setSteps(steps);
    }

    QDialog *openDialog() const { return findChild<QDialog *>(); }
    QString details() const { return findChild<QPlainTextEdit *>("stepDetails")->toPlainText(); }

    void drag(Column column, int distance)
    {
        QHeaderView *header = horizontalHeader();
        const int right = header->sectionViewportPosition(column) + header->sectionSize(column) - 1;
        const QPoint handle(right, header->height() / 2);
        const QPoint target = handle + QPoint(distance, 0);
        QTest::mousePress(header->viewport(), Qt::LeftButton, {}, handle);
        // QTest moves the mouse without a pressed button.
        QMouseEvent move(QEvent::MouseMove, target, header->viewport()->mapToGlobal(target), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(header->viewport(), &move);
        QTest::mouseRelease(header->viewport(), Qt::LeftButton, {}, target);
    }
};

// The text that a tool tip in rich text shows.
QString shown(const QString &toolTip)
{
    QTextDocument document;
    document.setHtml(toolTip);
    return document.toPlainText();
}

} // namespace

Q_DECLARE_METATYPE(Column)

class TestStepsTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnsCanBeDragged_data();
    void columnsCanBeDragged();
    void draggedColumnKeepsItsWidthInTheNextRun();
    void otherColumnsFitTheNextRun();
    void lastColumnTakesWhatIsLeft();
    void columnsScrollWhereTheyDoNotFit();
    void emptyTableDoesNotScroll();
    void jsonStandsInAFixedWidthFont();
    void toolTipShowsTheJsonIndented();
    void toolTipOfAnyTextIsBoundedAndPlain_data();
    void toolTipOfAnyTextIsBoundedAndPlain();
    void stepOpensByKeyAndMouse_data();
    void stepOpensByKeyAndMouse();
    void closedDialogGivesTheFocusBack();
    void tableMayDieWhileAStepIsOpen();
};

void TestStepsTable::columnsCanBeDragged_data()
{
    QTest::addColumn<Column>("column");
    QTest::newRow("node") << NodeColumn;
    QTest::newRow("route") << RouteColumn;
    QTest::newRow("update") << UpdateColumn;
}

void TestStepsTable::columnsCanBeDragged()
{
    QFETCH(Column, column);
    Table table(900);
    const int width = table.columnWidth(column);

    table.drag(column, 60);

    QCOMPARE(table.columnWidth(column), width + 60);
}

void TestStepsTable::draggedColumnKeepsItsWidthInTheNextRun()
{
    Table table(900);
    table.drag(UpdateColumn, 60);
    const int width = table.columnWidth(UpdateColumn);

    table.setSteps({step("n", {})});

    QCOMPARE(table.columnWidth(UpdateColumn), width);
}

void TestStepsTable::otherColumnsFitTheNextRun()
{
    Table table(900);
    const int width = table.columnWidth(NodeColumn);

    table.setSteps({step("a node with a longer name", {})});

    QVERIFY(table.columnWidth(NodeColumn) > width);
}

void TestStepsTable::lastColumnTakesWhatIsLeft()
{
    Table table(1200);
    const QHeaderView *header = table.horizontalHeader();

    QVERIFY(header->stretchLastSection());
    QTRY_COMPARE(header->length(), header->viewport()->width());
    QCOMPARE(table.horizontalScrollBar()->maximum(), 0);
}

void TestStepsTable::columnsScrollWhereTheyDoNotFit()
{
    Table table(300);
    const int needed = table.columnWidth(UpdateColumn);
    QVERIFY(needed > 150);

    QTRY_VERIFY(table.columnWidth(StateColumn) >= needed);
    QTRY_VERIFY(table.horizontalScrollBar()->maximum() > 0);

    table.resize(280, 300); // lays the columns out anew
    QTRY_VERIFY(table.columnWidth(StateColumn) >= needed);
    table.horizontalScrollBar()->setValue(table.horizontalScrollBar()->maximum());
    const QRect last = table.visualItemRect(table.item(0, StateColumn));
    QVERIFY(last.right() <= table.viewport()->width());
}

void TestStepsTable::emptyTableDoesNotScroll()
{
    Table table(300, {});

    QCOMPARE(table.horizontalScrollBar()->maximum(), 0);
    QVERIFY(table.horizontalHeader()->stretchLastSection());
}

void TestStepsTable::jsonStandsInAFixedWidthFont()
{
    const Table table(900);

    for (const Column column : {UpdateColumn, StateColumn}) {
        const QFontMetrics metrics(table.item(0, column)->font());
        QCOMPARE(metrics.horizontalAdvance("iiii"), metrics.horizontalAdvance("WWWW"));
    }
}

void TestStepsTable::toolTipShowsTheJsonIndented()
{
    const Table table(900);

    QCOMPARE(shown(table.item(0, UpdateColumn)->toolTip()), "{\n    \"draft\": \"Orvane 的草稿说明\"\n}");
    QCOMPARE(shown(table.item(0, StateColumn)->toolTip()),
             "{\n    \"draft\": \"Orvane 的草稿说明\",\n    \"topic\": \"Orvane\"\n}");
}

void TestStepsTable::toolTipOfAnyTextIsBoundedAndPlain_data()
{
    QTest::addColumn<QJsonValue>("value");
    QJsonArray numbers;
    for (int i = 0; i < 1000; ++i)
        numbers.append(i);
    QTest::newRow("a megabyte without a blank") << QJsonValue(QString(1000000, 'x'));
    QTest::newRow("many lines") << QJsonValue(numbers);
    QTest::newRow("markup") << QJsonValue("<b>bold</b><img src='file:///etc/passwd'>" + QString(2000, '<'));
    QTest::newRow("characters of two halves") << QJsonValue(QString::fromUtf8("😀").repeated(2000));
    QTest::newRow("the same, moved by one") << QJsonValue('x' + QString::fromUtf8("😀").repeated(2000));
}

void TestStepsTable::toolTipOfAnyTextIsBoundedAndPlain()
{
    QFETCH(QJsonValue, value);
    const Table table(900, {step("n", {{"key", value}})});

    const QString text = shown(table.item(0, UpdateColumn)->toolTip());
    const QString json = QString::fromUtf8(QJsonDocument(QJsonObject{{"key", value}}).toJson());

    QVERIFY(text.endsWith(QString::fromUtf8("…")));
    QVERIFY2(json.startsWith(text.chopped(1)), qPrintable(text));
    QVERIFY(text.size() > 100 && text.size() <= 1001 && text.count('\n') <= 30);
    QVERIFY(!text.at(text.size() - 2).isHighSurrogate());
    QVERIFY(table.columnWidth(UpdateColumn) <= 240);
}

void TestStepsTable::stepOpensByKeyAndMouse_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("Return") << int(Qt::Key_Return);
    QTest::newRow("Enter") << int(Qt::Key_Enter);
    QTest::newRow("double click") << 0;
}

void TestStepsTable::stepOpensByKeyAndMouse()
{
    QFETCH(int, key);
    Table table(900);
    const QPoint cell = table.visualItemRect(table.item(1, NodeColumn)).center();
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, cell);
    QVERIFY(!table.openDialog());

    if (key)
        QTest::keyClick(&table, Qt::Key(key));
    else
        QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, cell);

    QVERIFY(table.openDialog());
    QCOMPARE(table.openDialog()->windowTitle(), "步骤 2");
    QCOMPARE(table.details(), "节点：polish\n路由：next\n\n"
                              "输出：\n{\n    \"answer\": \"Orvane 的草稿说明 -> 已整理为最终回答。\"\n}\n\n"
                              "状态：\n{\n    \"answer\": \"Orvane 的草稿说明 -> 已整理为最终回答。\",\n"
                              "    \"topic\": \"Orvane\"\n}\n");
}

void TestStepsTable::closedDialogGivesTheFocusBack()
{
    Table table(900);
    table.setFocus();
    table.setCurrentCell(0, 0);
    for (const Qt::Key key : {Qt::Key_Escape, Qt::Key_Return}) {
        QTest::keyClick(&table, Qt::Key_Return);
        QTRY_COMPARE(QApplication::activeWindow(), table.openDialog());

        QTest::keyClick(QApplication::focusWidget(), key);

        QTRY_VERIFY(!table.openDialog());
        table.activateWindow(); // no window manager does it here
        QTRY_VERIFY(table.hasFocus());
    }
}

void TestStepsTable::tableMayDieWhileAStepIsOpen()
{
    auto *table = new Table(900);
    table->setCurrentCell(0, 0);
    QTest::keyClick(table, Qt::Key_Return);
    const QPointer<QDialog> dialog = table->openDialog();
    QVERIFY(dialog);

    delete table;

    QVERIFY(!dialog);
    QCoreApplication::processEvents();
}

QTEST_MAIN(TestStepsTable)
#include "tst_stepstable.moc"
