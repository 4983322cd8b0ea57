#include "support/contrast.h"
#include "support/shownpage.h"
#include "support/stylesheet.h"

#include <demo/demostartup.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QScrollArea>
#include <QSpinBox>
#include <QStyleOptionButton>
#include <QStyleOptionFrame>
#include <QTextBrowser>
#include <QtTest>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr double visibleContrast = 3;

void addLooks()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark") << true;
    QTest::newRow("plain") << false;
}

QImage pictureOfWindow(QWidget *window, const QRect &rect)
{
    constexpr int surroundings = 4;
    return picture(window, rect.adjusted(-surroundings, -surroundings, surroundings, surroundings));
}

// A frame that is two pixels wide and as far inside of the picture as pictureOfWindow() has it.
bool isOnFrame(const QImage &image, int x, int y)
{
    const QRect frame = image.rect().adjusted(4, 4, -4, -4);
    return frame.contains(x, y) && !frame.adjusted(2, 2, -2, -2).contains(x, y);
}

struct Change
{
    QColor before;
    QColor after;
};

// What becomes of the frame's pixels. Changes of a few pixels only, as at the corners, are left out.
QList<Change> changesOfFrame(const QImage &before, const QImage &after)
{
    QHash<QPair<QRgb, QRgb>, int> counts;
    for (int y = 0; y < after.height(); ++y) {
        for (int x = 0; x < after.width(); ++x) {
            if (isOnFrame(after, x, y) && before.pixel(x, y) != after.pixel(x, y))
                ++counts[{before.pixel(x, y), after.pixel(x, y)}];
        }
    }
    QList<Change> changes;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > after.width() + after.height())
            changes.append({QColor(it.key().first), QColor(it.key().second)});
    }
    return changes;
}

// The contrast of the line that the focus puts around the field, to what lies on both of its sides and to
// what is there without the focus. It may lie outside of the field.
double contrastOfFocus(QWidget *window, QWidget *field, int outside = 0)
{
    const QRect rect =
        QRect(field->mapTo(window, QPoint()), field->size()).adjusted(-outside, -outside, outside, outside);
    field->setFocus();
    field->clearFocus();
    const QImage before = pictureOfWindow(window, rect);
    field->setFocus();
    if (!field->hasFocus())
        return 0;
    const QImage after = pictureOfWindow(window, rect);
    const QColor inner = groundOf(after.copy(after.rect().adjusted(8, 8, -8, -8)));
    const QColor outer = after.pixelColor(after.width() / 2, 0);
    double best = 0;
    for (const Change &change : changesOfFrame(before, after)) {
        const auto reached = {contrast(change.after, inner), contrast(change.after, outer),
                              contrast(change.after, change.before)};
        best = qMax(best, std::min(reached));
    }
    return best;
}

double advance(const QFont &font, const QString &text)
{
    return QFontMetricsF(font).horizontalAdvance(text);
}

bool isFixedWidth(const QFont &font)
{
    return qFuzzyCompare(advance(font, "iiii"), advance(font, "WWWW"));
}

} // namespace

// What the window looks like, with the style sheet and without it.
class TestLook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void focusIsSeen_data();
    void focusIsSeen();
    void focusOfAReasonThatScrollsIsSeen_data();
    void focusOfAReasonThatScrollsIsSeen();
    void focusDoesNotMoveTheText_data();
    void focusDoesNotMoveTheText();
    void checkedBoxHasATick_data();
    void checkedBoxHasATick();
    void spinBoxLooksLikeTheLineEditAboveIt();
    void placeholderIsPalerThanText_data();
    void placeholderIsPalerThanText();
    void memoryPageIsAsWideAsTheOthersAndCutsNoMessage_data();
    void memoryPageIsAsWideAsTheOthersAndCutsNoMessage();
    void longTextsShowTheirBeginning();
    void jsonAndToolOutputStandInAFixedWidthFont_data();
    void jsonAndToolOutputStandInAFixedWidthFont();
};

void TestLook::initTestCase()
{
    applyDemoStyle();
}

void TestLook::cleanup()
{
    qApp->setStyleSheet(QString());
}

void TestLook::focusIsSeen_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("navigationTree") << "基础聊天模型";
    for (const char *field : {"profileCombo", "baseUrlEdit", "maxTokensSpin", "agentChatHistory",
                              "agentChatInput", "agentChatSend", "agentChatClear"})
        QTest::newRow(field) << "基础对话";
    for (const char *field : {"deviceTable", "toolCallTraces"})
        QTest::newRow(field) << "数据分析";
    for (const char *field : {"graphState", "approvedCheck", "runButton", "pageOutput", "graphSteps"})
        QTest::newRow(field) << "人工审核";
    for (const char *field : {"messageEdit", "firstTurnButton"})
        QTest::newRow(field) << "记忆检查点";
}

void TestLook::focusIsSeen()
{
    QFETCH(QString, title);
    useStyleSheet(true);
    ShownPage shown(title);
    auto *field = shown.page()->findChild<QWidget *>(QTest::currentDataTag());
    if (!field)
        field = shown.window()->findChild<QWidget *>(QTest::currentDataTag());
    const double reached = contrastOfFocus(shown.window(), field);
    QVERIFY2(reached >= visibleContrast, qPrintable(QString::number(reached)));
}

void TestLook::focusOfAReasonThatScrollsIsSeen_data()
{
    addLooks();
}

void TestLook::focusOfAReasonThatScrollsIsSeen()
{
    QFETCH(bool, dark);
    useStyleSheet(dark);
    ApprovalRequest request;
    request.reason = QString("line\n").repeated(20);
    ApprovalDialog dialog(request);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    QWidget *area = dialog.findChild<QScrollArea *>();
    QVERIFY(area->focusPolicy() & Qt::TabFocus);
    const double reached = contrastOfFocus(&dialog, area, 2);
    QVERIFY2(reached >= visibleContrast, qPrintable(QString::number(reached)));
}

void TestLook::focusDoesNotMoveTheText_data()
{
    QTest::addColumn<QString>("title");
    QTest::newRow("agentChatHistory") << "基础对话";
    QTest::newRow("agentChatInput") << "基础对话";
    QTest::newRow("pageOutput") << "状态流程";
}

void TestLook::focusDoesNotMoveTheText()
{
    QFETCH(QString, title);
    useStyleSheet(true);
    ShownPage shown(title);
    auto *editor = shown.child<QAbstractScrollArea>(QTest::currentDataTag());
    editor->clearFocus();
    const QRect text = editor->viewport()->geometry();

    editor->setFocus();
    shown.window()->grab();

    QCOMPARE(editor->viewport()->geometry(), text);
}

void TestLook::checkedBoxHasATick_data()
{
    addLooks();
}

void TestLook::checkedBoxHasATick()
{
    QFETCH(bool, dark);
    useStyleSheet(dark);
    ShownPage shown("人工审核");
    auto *check = shown.child<QCheckBox>("approvedCheck");
    QStyleOptionButton option;
    option.initFrom(check);
    const QRect box = check->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, check);
    const QRect inside = box.adjusted(3, 3, -3, -3);
    QVERIFY(paintedContrast(picture(check, inside)) < 1.5);

    check->setChecked(true);

    QVERIFY(paintedContrast(picture(check, inside)) >= visibleContrast);
}

void TestLook::spinBoxLooksLikeTheLineEditAboveIt()
{
    useStyleSheet(true);
    ShownPage shown("基础对话");
    auto *edit = shown.child<QLineEdit>("modelEdit");
    auto *spin = shown.child<QSpinBox>("maxTokensSpin");
    QVERIFY(qAbs(edit->height() - spin->height()) <= 2);

    const QImage ofEdit = picture(edit);
    const QImage ofSpin = picture(spin);
    for (int x = 0; x < 5; ++x)
        QCOMPARE(ofSpin.pixelColor(x, spin->height() / 2), ofEdit.pixelColor(x, edit->height() / 2));
    for (int y = 0; y < 3; ++y)
        QCOMPARE(ofSpin.pixelColor(40, y), ofEdit.pixelColor(40, y));
}

void TestLook::placeholderIsPalerThanText_data()
{
    addLooks();
}

void TestLook::placeholderIsPalerThanText()
{
    QFETCH(bool, dark);
    useStyleSheet(dark);
    ShownPage shown("基础对话");
    QPlainTextEdit *input = shown.editor("agentChatInput");
    input->clearFocus(); // and with it the cursor
    const double placeholder = paintedContrast(picture(input->viewport()));
    input->setPlainText(input->placeholderText());
    const double text = paintedContrast(picture(input->viewport()));

    QVERIFY2(placeholder >= visibleContrast, qPrintable(QString::number(placeholder)));
    QVERIFY2(placeholder <= text / 2, qPrintable(QString("%1 and %2").arg(placeholder).arg(text)));
}

void TestLook::memoryPageIsAsWideAsTheOthersAndCutsNoMessage_data()
{
    addLooks();
}

void TestLook::memoryPageIsAsWideAsTheOthersAndCutsNoMessage()
{
    QFETCH(bool, dark);
    useStyleSheet(dark);
    ShownPage shown("状态流程");
    const int width = shown.page()->findChild<QGroupBox *>()->width();
    shown.turnTo("记忆检查点");
    QCOMPARE(shown.page()->findChild<QGroupBox *>()->width(), width);

    shown.button("firstTurnButton")->click();

    const auto *message = shown.child<QLineEdit>("messageEdit");
    QStyleOptionFrame option;
    option.initFrom(message);
    option.lineWidth = message->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &option, message);
    const QRect content = message->style()->subElementRect(QStyle::SE_LineEditContents, &option, message);
    QVERIFY(advance(message->font(), message->text()) <= content.width() - 4);
}

void TestLook::longTextsShowTheirBeginning()
{
    ShownPage shown("基础对话");
    ModelConfig config;
    config.provider = "openai";
    config.baseUrl = "https://models.example.com/" + QString("path/").repeated(40);
    config.apiKey = QString("key").repeated(40);
    config.model = QString("model-").repeated(40);
    shown.window()->findChild<ModelConfigWidget *>()->setProfiles({config}, 0);
    for (const char *name : {"baseUrlEdit", "apiKeyEdit", "modelEdit"})
        QCOMPARE(shown.child<QLineEdit>(name)->cursorPosition(), 0);

    shown.child<QLineEdit>("baseUrlEdit")->clear();
    shown.child<QLineEdit>("modelEdit")->clear();
    shown.child<QComboBox>("providerCombo")->setCurrentIndex(2);
    for (const char *name : {"baseUrlEdit", "modelEdit"}) {
        QVERIFY(!shown.child<QLineEdit>(name)->text().isEmpty());
        QCOMPARE(shown.child<QLineEdit>(name)->cursorPosition(), 0);
    }

    shown.turnTo("记忆检查点");
    shown.button("secondTurnButton")->click();
    QCOMPARE(shown.child<QLineEdit>("messageEdit")->cursorPosition(), 0);
}

void TestLook::jsonAndToolOutputStandInAFixedWidthFont_data()
{
    addLooks();
}

void TestLook::jsonAndToolOutputStandInAFixedWidthFont()
{
    QFETCH(bool, dark);
    useStyleSheet(dark);
    const QList<QPair<const char *, QStringList>> codes{
        {"输出解析器", {"pageInput", "pageOutput"}},
        {"工具调用", {"traceOutput"}},
        {"结构化输出", {"pageInput", "pageOutput"}},
        {"并行运行", {"pageOutput"}},
        {"状态流程", {"graphState", "pageOutput"}},
        {"记忆检查点", {"pageOutput"}},
        {"并行分支", {"pageInput"}},
        {"智能体流程", {"pageOutput"}},
    };
    ShownPage shown("数据分析");
    QVERIFY(!isFixedWidth(shown.editor("agentChatInput")->font()));
    auto *traces = shown.child<ToolCallTraceView>("toolCallTraces");
    traces->addTrace({});
    for (const int column : {4, 5})
        QVERIFY(isFixedWidth(traces->item(0, column)->font()));

    for (const auto &code : codes) {
        shown.turnTo(QString::fromUtf8(code.first));
        for (const QString &name : code.second)
            QVERIFY2(isFixedWidth(shown.editor(qPrintable(name))->font()), code.first);
    }
    ApprovalDialog dialog{ApprovalRequest()};
    dialog.ensurePolished();
    QVERIFY(isFixedWidth(dialog.findChild<QPlainTextEdit *>("approvalArguments")->font()));
}

QTEST_MAIN(TestLook)
#include "tst_look.moc"
