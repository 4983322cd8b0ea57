#include <qtagent/widgets/toolcalltraceview.h>

#include <QHeaderView>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

enum Column { Name, Status, Permission, Duration, Input, Output, Time };

ToolCallTrace exportTrace()
{
    ToolCallTrace trace;
    trace.callId = "c1";
    trace.toolName = "export_report";
    trace.status = "success";
    trace.permission = ToolPermission::FileSystem;
    trace.arguments = QJsonObject{{"fileName", "r.txt"}, {"copies", 2}};
    trace.output = "报告已导出到 /r.txt";
    trace.durationMs = 12;
    trace.timestamp = QDateTime(QDate(2024, 3, 1), QTime(14, 5, 9));
    return trace;
}

ToolCallTrace traceWithOutput(const QString &output)
{
    ToolCallTrace trace = exportTrace();
    trace.output = output;
    return trace;
}

QStringList rowTexts(const QTableWidget &view, int row)
{
    QStringList texts;
    for (int column = 0; column < view.columnCount(); ++column)
        texts.append(view.item(row, column)->text());
    return texts;
}

QImage cellImage(ToolCallTraceView &view, int row, int column)
{
    return view.viewport()->grab(view.visualItemRect(view.item(row, column))).toImage();
}

QString cellText(const ToolCallTraceView &view, int row, int column)
{
    const QVariant value = view.item(row, column)->text();
    return static_cast<QStyledItemDelegate *>(view.itemDelegate())->displayText(value, QLocale::c());
}

} // namespace

class TestToolCallTraceView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnsHaveTheirLabels();
    void tableIsReadOnlyAndSelectsWholeRows();
    void columnsFollowTheirContentsAndTheLastStretches();
    void traceBecomesARow();
    void sixthColumnPrefersTheError_data();
    void sixthColumnPrefersTheError();
    void durationOfZeroIsShown();
    void rowsKeepTheOrderOfTheTracesAndTheLastIsVisible();
    void clearTracesLeavesAnEmptyTable();
    void runningCallBecomesItsTrace();
    void newestRunningCallOfAnIdIsMeant();
    void rowsThatStillRunAreMarkedAsCanceled();
    void runningRowsMayBeRemoved();
    void itemsKeepTheWholeTextWhileCellsShowItsBeginning();
    void cellsShowOneLine_data();
    void cellsShowOneLine();
    void cutKeepsCharactersWhole();
    void hugeTextIsMeasuredLikeALongOne();
    void markupIsShownAsItStands();
    void toolTipIsPlainTextAndCut();
    void toolTipsAreOnNameInputAndOutput();
    void toolTipCanBeReplaced();
    void toolTipOfARunningRowStays();
};

void TestToolCallTraceView::columnsHaveTheirLabels()
{
    const ToolCallTraceView view;
    QStringList labels;
    for (int column = 0; column < view.columnCount(); ++column)
        labels.append(view.horizontalHeaderItem(column)->text());
    QCOMPARE(labels, QStringList({"工具", "状态", "权限", "耗时", "输入", "输出", "时间"}));
    QCOMPARE(view.rowCount(), 0);
}

void TestToolCallTraceView::tableIsReadOnlyAndSelectsWholeRows()
{
    const ToolCallTraceView view;
    QCOMPARE(view.editTriggers(), QAbstractItemView::EditTriggers(QAbstractItemView::NoEditTriggers));
    QCOMPARE(view.selectionBehavior(), QAbstractItemView::SelectRows);
    QVERIFY(view.alternatingRowColors());
}

void TestToolCallTraceView::columnsFollowTheirContentsAndTheLastStretches()
{
    ToolCallTraceView view;
    QVERIFY(view.horizontalHeader()->stretchLastSection());
    for (int column = 0; column < view.columnCount(); ++column)
        QCOMPARE(view.horizontalHeader()->sectionResizeMode(column), QHeaderView::ResizeToContents);

    view.resize(1200, 200);
    view.show();
    view.addTrace(traceWithOutput("短"));
    QCoreApplication::processEvents();
    const int before = view.columnWidth(Output);
    view.addTrace(traceWithOutput("这是一个比较长的输出文本，列宽会随之增加"));
    QTRY_VERIFY(view.columnWidth(Output) > before);
}

void TestToolCallTraceView::traceBecomesARow()
{
    ToolCallTraceView view;
    view.addTrace(exportTrace());
    QCOMPARE(rowTexts(view, 0),
             QStringList({"export_report", "success", "FileSystem", "12 ms",
                          R"({"copies":2,"fileName":"r.txt"})", "报告已导出到 /r.txt", "14:05:09"}));
}

void TestToolCallTraceView::sixthColumnPrefersTheError_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("text");
    QTest::newRow("output alone") << "done"
                                  << ""
                                  << "done";
    QTest::newRow("error alone") << ""
                                 << "用户拒绝了审批。"
                                 << "用户拒绝了审批。";
    QTest::newRow("both") << "done"
                          << "broken"
                          << "broken";
    QTest::newRow("neither") << ""
                             << ""
                             << "";
}

void TestToolCallTraceView::sixthColumnPrefersTheError()
{
    QFETCH(QString, output);
    QFETCH(QString, error);
    QFETCH(QString, text);
    ToolCallTrace trace = exportTrace();
    trace.output = output;
    trace.error = error;
    ToolCallTraceView view;
    view.addTrace(trace);
    QCOMPARE(view.item(0, Output)->text(), text);
}

void TestToolCallTraceView::durationOfZeroIsShown()
{
    ToolCallTraceView view;
    view.addTrace(ToolCallTrace());
    QCOMPARE(view.item(0, Duration)->text(), "0 ms");
    QCOMPARE(view.item(0, Input)->text(), "{}");
}

void TestToolCallTraceView::rowsKeepTheOrderOfTheTracesAndTheLastIsVisible()
{
    ToolCallTraceView view;
    view.resize(600, 150);
    view.show();
    for (int number = 0; number < 50; ++number)
        view.addTrace(traceWithOutput(QString::number(number)));

    QCOMPARE(view.rowCount(), 50);
    QCOMPARE(view.item(0, Output)->text(), "0");
    QCOMPARE(view.item(49, Output)->text(), "49");
    QVERIFY(view.verticalScrollBar()->maximum() > 0);
    QCOMPARE(view.verticalScrollBar()->value(), view.verticalScrollBar()->maximum());
}

void TestToolCallTraceView::clearTracesLeavesAnEmptyTable()
{
    ToolCallTraceView view;
    view.clearTraces();
    QCOMPARE(view.rowCount(), 0);

    view.addTrace(exportTrace());
    view.clearTraces();
    QCOMPARE(view.rowCount(), 0);
    QCOMPARE(view.columnCount(), 7);
}

void TestToolCallTraceView::runningCallBecomesItsTrace()
{
    ToolCallTraceView view;
    ToolCallTrace other = exportTrace();
    other.callId = "c2";
    ToolCallTrace started = exportTrace();
    started.status = "running";
    started.output.clear();
    started.durationMs = 0;
    view.showRunning(started);
    QCOMPARE(rowTexts(view, 0), (QStringList{"export_report", "running", "FileSystem", "",
                                             R"({"copies":2,"fileName":"r.txt"})", "", "14:05:09"}));
    view.addTrace(other);
    view.addTrace(exportTrace());
    QCOMPARE(view.rowCount(), 2);
    QCOMPARE(rowTexts(view, 0), rowTexts(view, 1));
    view.addTrace(exportTrace());
    QCOMPARE(view.rowCount(), 3);
}

void TestToolCallTraceView::newestRunningCallOfAnIdIsMeant()
{
    ToolCallTraceView view;
    view.showRunning(exportTrace());
    view.showRunning(exportTrace());
    view.addTrace(exportTrace());
    QCOMPARE(view.item(0, Status)->text(), "running");
    QCOMPARE(view.item(1, Status)->text(), "success");
}

void TestToolCallTraceView::rowsThatStillRunAreMarkedAsCanceled()
{
    ToolCallTraceView view;
    view.showRunning(exportTrace());
    view.addTrace(exportTrace());
    view.showRunning(exportTrace());
    view.clearRunning();
    QCOMPARE(view.item(0, Status)->text(), "success");
    QCOMPARE(view.item(1, Status)->text(), "canceled");
    view.addTrace(exportTrace());
    QCOMPARE(view.rowCount(), 3);
    QCOMPARE(view.item(1, Status)->text(), "canceled");
}

void TestToolCallTraceView::runningRowsMayBeRemoved()
{
    ToolCallTraceView view;
    view.showRunning(exportTrace());
    view.showRunning(exportTrace());
    view.removeRow(1);
    view.addTrace(exportTrace());
    QCOMPARE(view.rowCount(), 1);
    QCOMPARE(view.item(0, Status)->text(), "success");
    view.showRunning(exportTrace());
    view.clearTraces();
    view.clearRunning();
    view.addTrace(exportTrace());
    QCOMPARE(view.rowCount(), 1);
}

void TestToolCallTraceView::itemsKeepTheWholeTextWhileCellsShowItsBeginning()
{
    const QString output(300, 'x');
    ToolCallTraceView view;
    view.addTrace(traceWithOutput(output));
    QCOMPARE(view.item(0, Output)->text(), output);
    QCOMPARE(cellText(view, 0, Output), QString(200, 'x') + "…");
}

void TestToolCallTraceView::cellsShowOneLine_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("cell");
    QTest::newRow("line feed") << "a\nb"
                               << "a b";
    QTest::newRow("carriage return and tab") << "a\r\tb"
                                             << "a  b";
    QTest::newRow("Unicode separators") << QString("a") + QChar(0x2028) + QChar(0x2029) + "b"
                                        << "a  b";
    QTest::newRow("NUL") << QString("a") + QChar(0) + "b"
                         << "a b";
    QTest::newRow("exactly the limit") << QString(200, 'x') << QString(200, 'x');
    QTest::newRow("markers of a format string") << "%1 %2 %L1 %n %%"
                                                << "%1 %2 %L1 %n %%";
}

void TestToolCallTraceView::cellsShowOneLine()
{
    QFETCH(QString, output);
    QFETCH(QString, cell);
    ToolCallTraceView view;
    view.addTrace(traceWithOutput(output));
    QCOMPARE(view.item(0, Output)->text(), output);
    QCOMPARE(cellText(view, 0, Output), cell);

    view.addTrace(traceWithOutput("one line"));
    view.resizeRowsToContents();
    QCOMPARE(view.rowHeight(0), view.rowHeight(1));
}

void TestToolCallTraceView::cutKeepsCharactersWhole()
{
    const QString face = QString::fromUtf8("😀");
    ToolCallTraceView view;
    view.addTrace(traceWithOutput(QString(199, 'x') + face));
    view.addTrace(traceWithOutput(QString(198, 'x') + face + "y"));
    QCOMPARE(cellText(view, 0, Output), QString(199, 'x') + "…");
    QCOMPARE(cellText(view, 1, Output), QString(198, 'x') + face + "…");

    const QString accented = QString("e") + QChar(0x301);
    view.addTrace(traceWithOutput(QString(199, 'x') + accented));
    view.addTrace(traceWithOutput(QString(198, 'x') + accented + "y"));
    view.addTrace(traceWithOutput("e" + QString(300, QChar(0x301))));
    const QString selector = QString(QChar(0xdb40)) + QChar(0xdd00);
    view.addTrace(traceWithOutput("e" + selector.repeated(300)));
    QCOMPARE(cellText(view, 2, Output), QString(199, 'x') + "…");
    QCOMPARE(cellText(view, 3, Output), QString(198, 'x') + accented + "…");
    QCOMPARE(cellText(view, 4, Output), "e" + QString(199, QChar(0x301)) + "…");
    QCOMPARE(cellText(view, 5, Output), "e" + selector.repeated(99) + "…");
}

void TestToolCallTraceView::hugeTextIsMeasuredLikeALongOne()
{
    const QString huge(5 * 1000 * 1000, 'x');
    ToolCallTraceView view;
    view.addTrace(traceWithOutput(QString(200, 'x') + "…"));
    view.resizeColumnsToContents();
    const int expected = view.columnWidth(Output);

    view.clearTraces();
    view.addTrace(traceWithOutput(huge));
    view.resizeColumnsToContents();
    QCOMPARE(view.item(0, Output)->text(), huge);
    QCOMPARE(view.columnWidth(Output), expected);
}

void TestToolCallTraceView::markupIsShownAsItStands()
{
    ToolCallTraceView view;
    view.resize(1500, 200);
    view.show();
    ToolCallTrace trace = exportTrace();
    trace.toolName = "<b>x</b>";
    view.addTrace(trace);
    trace.toolName = "x";
    view.addTrace(trace);
    QCoreApplication::processEvents();
    QCOMPARE(view.item(0, Name)->text(), "<b>x</b>");
    QCOMPARE(cellText(view, 0, Name), "<b>x</b>");
    QVERIFY(cellImage(view, 0, Name) != cellImage(view, 1, Name));
}

void TestToolCallTraceView::toolTipIsPlainTextAndCut()
{
    ToolCallTraceView view;
    ToolCallTrace trace = traceWithOutput("<b>x</b> <img src='file:///none.png'>\n&amp;");
    trace.toolName = QString(5000, 'n');
    view.addTrace(trace);

    const QString tip = view.item(0, Output)->toolTip();
    QVERIFY(Qt::mightBeRichText(tip));
    QVERIFY(!tip.contains("<b>"));
    QVERIFY(!tip.contains("<img"));
    QCOMPARE(QTextDocumentFragment::fromHtml(tip).toPlainText(),
             "<b>x</b> <img src='file:///none.png'>\n&amp;");
    QCOMPARE(QTextDocumentFragment::fromHtml(view.item(0, Name)->toolTip()).toPlainText(),
             QString(1000, 'n') + "…");
}

void TestToolCallTraceView::toolTipsAreOnNameInputAndOutput()
{
    ToolCallTraceView view;
    view.addTrace(traceWithOutput(QString()));
    QVector<bool> hasTip;
    for (int column = 0; column < view.columnCount(); ++column)
        hasTip.append(!view.item(0, column)->toolTip().isEmpty());
    QCOMPARE(hasTip, QVector<bool>({true, false, false, false, true, false, false}));
}

void TestToolCallTraceView::toolTipOfARunningRowStays()
{
    ToolCallTraceView view;
    ToolCallTrace trace = exportTrace();
    view.showRunning(trace);
    view.item(0, Output)->setToolTip("another");
    view.item(0, Status)->setToolTip("since 14:05");
    trace.toolName = "renamed";
    view.addTrace(trace);
    QCOMPARE(view.item(0, Output)->toolTip(), "another");
    QCOMPARE(view.item(0, Status)->toolTip(), "since 14:05");
    QCOMPARE(QTextDocumentFragment::fromHtml(view.item(0, Name)->toolTip()).toPlainText(), "renamed");
}

void TestToolCallTraceView::toolTipCanBeReplaced()
{
    ToolCallTraceView view;
    view.addTrace(exportTrace());
    for (int column = 0; column < view.columnCount(); ++column) {
        QTableWidgetItem *item = view.item(0, column);
        item->setToolTip("another");
        QCOMPARE(item->toolTip(), "another");
        item->setToolTip("");
        QCOMPARE(item->toolTip(), "");
    }
    view.item(0, Output)->setData(Qt::ToolTipRole, QVariant());
    QCOMPARE(QTextDocumentFragment::fromHtml(view.item(0, Output)->toolTip()).toPlainText(),
             view.item(0, Output)->text());
}

QTEST_MAIN(TestToolCallTraceView)
#include "tst_toolcalltraceview.moc"
