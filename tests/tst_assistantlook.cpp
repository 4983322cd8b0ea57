#include "support/assistantuser.h"
#include "support/contrast.h"

#include <assistant/assistantstartup.h>
#include <assistant/modelchoice.h>
#include <assistant/toolset.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyleOptionButton>
#include <QStyleOptionFrame>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextBlock>
#include <QTextBrowser>
#include <QToolButton>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr double readableContrast = 4.5;
constexpr double visibleContrast = 3;

/// The window with all of its bars and panels, at the least size that it is made for.
class LookUser : public AssistantUser
{
public:
    LookUser()
        : choice(loadProfiles({folder.filePath("profiles.json")}, {}))
        , tools(ToolSettings{})
    {
        keep("Pumps", {"What is a pump?", "It moves water."});
        start();
        window->setModelChoice(&choice);
        window->setToolSet(&tools, folder.filePath("tools.json"));
        window->setModel(&model, "test-model");
        window->resize(800, 600);
        window->tell("The file is not readable: /home/somebody/with a long name/and a file.json");
        QCoreApplication::processEvents();
    }

    // A call, an answer in Markdown, what the model thought, and a failure.
    void fill()
    {
        model.addToolCalls({makeToolCall("1", "clock", {})});
        model.addText({"## Valves\n\nThey *close*, [see](https://example.com):\n\n```cpp\nclose(7);\n```\n"});
        ask("What time is it?");
        QTRY_VERIFY(isIdle());
        model.addFailure("no network");
        ask("And now?");
        QTRY_VERIFY(find<NoticeBar>("failure")->isVisible());
        QCoreApplication::processEvents();
    }

    QDialog *open(const QString &action, const QString &name) const
    {
        choose(action);
        QCoreApplication::processEvents();
        return find<QDialog>(name);
    }

    ModelChoice choice;
    ToolSet tools;
};

QString describe(const QWidget *widget, const QString &text)
{
    return QString("%1 %2 \"%3\"")
        .arg(widget->metaObject()->className(), widget->objectName(), text.left(30));
}

bool isShown(const QWidget *widget, const QRect &part)
{
    return widget->isVisible() && widget->visibleRegion().contains(part);
}

// The part of the widget that has its text and nothing else, or none.
QRect textPart(const QWidget *widget)
{
    if (qobject_cast<const QLabel *>(widget))
        return widget->contentsRect();
    if (qobject_cast<const QPushButton *>(widget) || qobject_cast<const QToolButton *>(widget))
        return widget->rect().adjusted(5, 5, -5, -5);
    if (const auto *box = qobject_cast<const QCheckBox *>(widget)) {
        QStyleOptionButton option;
        option.initFrom(box);
        return box->style()->subElementRect(QStyle::SE_CheckBoxContents, &option, box);
    }
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return combo->rect().adjusted(5, 5, -25, -5);
    if (qobject_cast<const QLineEdit *>(widget))
        return widget->rect().adjusted(4, 4, -4, -4);
    return {};
}

QString textOf(const QWidget *widget)
{
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return combo->currentText();
    for (const char *property : {"text", "placeholderText"}) {
        const QString text = widget->property(property).toString();
        if (!text.isEmpty())
            return text;
    }
    return {};
}

void addFault(QStringList *faults, const QString &what, double reached, double wanted)
{
    if (reached < wanted)
        faults->append(QString("%1: %2").arg(what, QString::number(reached, 'f', 2)));
}

// Each line of a text may have a colour of its own.
void measureLines(QTextEdit *editor, QStringList *faults)
{
    for (QTextBlock block = editor->document()->begin(); block.isValid(); block = block.next()) {
        QRect line = editor->cursorRect(QTextCursor(block));
        line.setWidth(editor->fontMetrics().horizontalAdvance(block.text().left(10)));
        if (block.text().trimmed().isEmpty() || !editor->viewport()->rect().contains(line))
            continue;
        addFault(faults, describe(editor, block.text()), paintedContrast(picture(editor->viewport(), line)),
                 readableContrast);
    }
}

void measureCells(QAbstractItemView *view, QStringList *faults)
{
    for (int row = 0; row < view->model()->rowCount(); ++row) {
        const QModelIndex index = view->model()->index(row, 0);
        const QRect cell = view->visualRect(index).adjusted(3, 3, -3, -3);
        if (view->viewport()->rect().contains(cell))
            addFault(faults, describe(view, index.data().toString()),
                     paintedContrast(picture(view->viewport(), cell)), readableContrast);
    }
}

QStringList unreadableTexts(QWidget *window, int *measured)
{
    QStringList faults;
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        const QRect part = textPart(widget);
        if (!widget->isEnabled() || widget->window() != window || !widget->isVisible())
            continue;
        if (auto *editor = qobject_cast<QTextEdit *>(widget))
            measureLines(editor, &faults);
        else if (auto *view = qobject_cast<QAbstractItemView *>(widget))
            measureCells(view, &faults);
        else if (!textOf(widget).isEmpty() && part.isValid() && isShown(widget, part))
            addFault(&faults, describe(widget, textOf(widget)), paintedContrast(picture(widget, part)),
                     readableContrast);
        else
            continue;
        ++*measured;
    }
    return faults;
}

// The best contrast that a line of changed pixels has to what was there before, and to what lies around it.
double contrastOfChange(const QImage &before, const QImage &after)
{
    const QColor ground = groundOf(before);
    QHash<QPair<QRgb, QRgb>, int> counts;
    for (int y = 0; y < after.height(); ++y) {
        for (int x = 0; x < after.width(); ++x) {
            if (before.pixel(x, y) != after.pixel(x, y))
                ++counts[{before.pixel(x, y), after.pixel(x, y)}];
        }
    }
    double best = 1;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        const QColor shown(it.key().second);
        if (it.value() >= qMin(after.width(), 4 * after.height()) / 2)
            best = qMax(best, qMin(contrast(shown, QColor(it.key().first)), contrast(shown, ground)));
    }
    return best;
}

// Of everything that the Tab key reaches, which is at least @p count widgets.
QStringList hardlySeenFocus(QWidget *window, int count)
{
    QStringList faults;
    QSet<QWidget *> reached;
    QWidget *const first = window->focusWidget();
    for (QWidget *last = first; reached.isEmpty() || last != first;) {
        const QImage before = picture(window);
        QTest::keyClick(last, Qt::Key_Tab);
        last = window->focusWidget();
        const QRect place = QRect(last->mapTo(window, QPoint()), last->size()).adjusted(-4, -4, 4, 4);
        const double best = contrastOfChange(before.copy(place), picture(window).copy(place));
        if (!reached.contains(last)) // else a link in it has the focus
            addFault(&faults, describe(last, textOf(last)), best, visibleContrast);
        reached.insert(last);
    }
    if (reached.size() < count)
        faults.append(QString("only %1 are reached").arg(reached.size()));
    return faults;
}

// What a text needs of the widget that has it, or nothing where it has a way to show the rest.
QSize neededSize(const QWidget *widget)
{
    const auto *label = qobject_cast<const QLabel *>(widget);
    if (label && label->wordWrap())
        return {0, label->heightForWidth(label->width())};
    if (label || qobject_cast<const QAbstractButton *>(widget) || qobject_cast<const QComboBox *>(widget))
        return widget->sizeHint();
    const auto *line = qobject_cast<const QLineEdit *>(widget);
    if (line && line->text().isEmpty())
        return {line->fontMetrics().horizontalAdvance(line->placeholderText()) + 8, 0};
    return {};
}

QStringList cutTexts(const QWidget *window)
{
    QStringList faults;
    for (const QWidget *widget : window->findChildren<QWidget *>()) {
        const QSize needed = neededSize(widget);
        if (!widget->isVisible() || widget->window() != window || textOf(widget).isEmpty())
            continue;
        if (needed.width() > widget->width() || needed.height() > widget->height())
            faults += "cut: " + describe(widget, textOf(widget));
        const QRect inWindow(widget->mapTo(window, QPoint()), widget->size());
        if (inWindow.left() < 0 || inWindow.right() >= window->width())
            faults += "outside: " + describe(widget, textOf(widget));
    }
    for (const QScrollArea *area : window->findChildren<QScrollArea *>()) {
        if (area->isVisible() && area->horizontalScrollBar()->maximum() > 0)
            faults += "wider than its area: " + describe(area, {});
    }
    return faults;
}

} // namespace

/// The looks of the assistant, in both colours and both languages. The translation lies beside the test.
class TestAssistantLook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void textsAreReadable_data();
    void textsAreReadable();
    void focusIsSeen_data();
    void focusIsSeen();
    void noTextIsCut_data();
    void noTextIsCut();
};

void TestAssistantLook::cleanup()
{
    applyAssistantColors(false);
    applyAssistantLanguage("zh");
}

void TestAssistantLook::textsAreReadable_data()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("light") << false;
    QTest::newRow("dark") << true;
}

void TestAssistantLook::textsAreReadable()
{
    QFETCH(bool, dark);
    applyAssistantColors(dark);
    LookUser user;
    user.fill();
    int measured = 0;
    QCOMPARE(unreadableTexts(user.window.data(), &measured).join("; "), QString());
    QVERIFY2(measured > 15, qPrintable(QString::number(measured)));
    user.choose("editRequested");
    QCOMPARE(unreadableTexts(user.window.data(), &measured).join("; "), QString());
    QCOMPARE(unreadableTexts(user.open("modelsRequested", "profilesDialog"), &measured).join("; "),
             QString());
    QDialog *tools = user.open("toolsRequested", "toolsDialog");
    for (int tab = 0; tab < 2; ++tab) {
        tools->findChild<QTabWidget *>()->setCurrentIndex(tab);
        QCOMPARE(unreadableTexts(tools, &measured).join("; "), QString());
    }
}

void TestAssistantLook::focusIsSeen_data()
{
    textsAreReadable_data();
}

void TestAssistantLook::focusIsSeen()
{
    QFETCH(bool, dark);
    applyAssistantColors(dark);
    LookUser user;
    user.fill();
    user.window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(user.window.data()));
    QStringList faults = hardlySeenFocus(user.window.data(), 10);
    QDialog *models = user.open("modelsRequested", "profilesDialog");
    QVERIFY(QTest::qWaitForWindowActive(models));
    faults += hardlySeenFocus(models, 10);
    QVERIFY2(faults.isEmpty(), qPrintable(faults.join("\n")));
}

void TestAssistantLook::noTextIsCut_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("Chinese") << "zh";
    QTest::newRow("English") << "en";
}

void TestAssistantLook::noTextIsCut()
{
    QFETCH(QString, language);
    applyAssistantLanguage(language);
    applyAssistantColors(false);
    LookUser user;
    user.fill();
    QCOMPARE(user.window->size(), QSize(800, 600));
    QCOMPARE(cutTexts(user.window.data()).join("; "), QString());
    user.choose("editRequested");
    QCoreApplication::processEvents();
    QCOMPARE(user.window->size(), QSize(800, 600));
    QCOMPARE(cutTexts(user.window.data()).join("; "), QString());
    QDialog *models = user.open("modelsRequested", "profilesDialog");
    QVERIFY(models->width() <= 800 && models->height() <= 600);
    QCOMPARE(cutTexts(models).join("; "), QString());
    QDialog *tools = user.open("toolsRequested", "toolsDialog");
    QVERIFY(tools->width() <= 800 && tools->height() <= 600);
    for (int tab = 0; tab < 2; ++tab) {
        tools->findChild<QTabWidget *>()->setCurrentIndex(tab);
        QCoreApplication::processEvents();
        QVERIFY2(cutTexts(tools).isEmpty(), qPrintable(cutTexts(tools).join("\n")));
    }
}

QTEST_MAIN(TestAssistantLook)
#include "tst_assistantlook.moc"
