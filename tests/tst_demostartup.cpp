#include "support/offlineconfiguration.h"

#include <demo/demostartup.h>
#include <demo/orvanedemowindow.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHash>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QLibraryInfo>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QStyle>
#include <QTableWidget>
#include <QTextBrowser>
#include <QToolTip>
#include <QTranslator>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QtTest>

#include <cmath>
#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr double readableContrast = 4.5;

double linear(double channel)
{
    return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &color)
{
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

// The contrast ratio of the Web Content Accessibility Guidelines, from 1 to 21.
double contrast(const QColor &one, const QColor &other)
{
    const double brighter = qMax(luminance(one), luminance(other));
    const double darker = qMin(luminance(one), luminance(other));
    return (brighter + 0.05) / (darker + 0.05);
}

// The ground of a painted text is its most frequent colour.
QColor groundOf(const QImage &image)
{
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            ++counts[image.pixel(x, y)];
    }
    QRgb ground = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > counts.value(ground))
            ground = it.key();
    }
    return QColor(ground);
}

// The contrast that the core of the letters in a picture of a text reaches.
double paintedContrast(const QImage &image)
{
    const QColor ground = groundOf(image);
    double best = 1;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            best = qMax(best, contrast(ground, image.pixelColor(x, y)));
    }
    return best;
}

QImage picture(QWidget *widget, QRect part = {})
{
    if (part.isNull())
        part = widget->rect();
    return widget->grab(part).toImage().convertToFormat(QImage::Format_RGB32);
}

// Everything of the pages that shows text, in one window.
class Gallery : public QWidget
{
public:
    Gallery()
        : group(new QGroupBox("Group", this))
        , label(new QLabel("Label"))
        , button(new QPushButton("Button"))
        , disabledButton(new QPushButton("Button"))
        , check(new QCheckBox("Check"))
        , edit(new QLineEdit("Edit"))
        , placeholder(new QLineEdit)
        , output(new QPlainTextEdit("Output"))
        , spin(new QSpinBox)
        , combo(new QComboBox)
        , tree(new QTreeWidget)
        , table(new QTableWidget(2, 1))
    {
        disabledButton->setEnabled(false);
        placeholder->setPlaceholderText("Placeholder");
        combo->addItems({"One", "Two"});
        tree->addTopLevelItem(new QTreeWidgetItem({"Entry"}));
        tree->addTopLevelItem(new QTreeWidgetItem({"Selected"}));
        tree->setHeaderLabel("Header");
        table->setAlternatingRowColors(true);
        table->setHorizontalHeaderLabels({"Column"});
        table->setItem(0, 0, new QTableWidgetItem("Row"));
        table->setItem(1, 0, new QTableWidgetItem("Alternate"));
        auto *inner = new QVBoxLayout(group);
        const QList<QWidget *> widgets{label,  button, disabledButton, check, edit, placeholder,
                                       output, spin,   combo,          tree,  table};
        for (QWidget *widget : widgets)
            inner->addWidget(widget);
        (new QVBoxLayout(this))->addWidget(group);
        resize(400, 900);
    }

    QRect titleOfGroup() const
    {
        QStyleOptionGroupBox option;
        option.initFrom(group);
        option.text = group->title();
        option.subControls = QStyle::SC_GroupBoxLabel | QStyle::SC_GroupBoxFrame;
        return group->style()->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxLabel, group);
    }

    QGroupBox *group;
    QLabel *label;
    QPushButton *button;
    QPushButton *disabledButton;
    QCheckBox *check;
    QLineEdit *edit;
    QLineEdit *placeholder;
    QPlainTextEdit *output;
    QSpinBox *spin;
    QComboBox *combo;
    QTreeWidget *tree;
    QTableWidget *table;
};

QImage pictureOfItem(QAbstractItemView *view, int row)
{
    return picture(view->viewport(), view->visualRect(view->model()->index(row, 0)));
}

QImage pictureOfToolTip(QWidget *owner)
{
    QToolTip::showText(owner->mapToGlobal(QPoint()), "Tool tip", owner);
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->inherits("QTipLabel"))
            return picture(widget, widget->rect().adjusted(3, 3, -3, -3));
    }
    return {};
}

// Pictures of the texts alone, without the frames and arrows around them.
QMap<QString, QImage> picturedTexts(const Gallery &gallery)
{
    const auto inner = [](QWidget *widget, int left, int right) {
        return picture(widget, widget->rect().adjusted(left, 4, -right, -4));
    };
    return {
        {"label", picture(gallery.label)},
        {"button", inner(gallery.button, 8, 8)},
        {"check box", inner(gallery.check, 24, 0)},
        {"line edit", inner(gallery.edit, 4, 4)},
        {"placeholder", inner(gallery.placeholder, 4, 4)},
        {"output", picture(gallery.output->viewport(), QRect(0, 0, 80, 24))},
        {"spin box", inner(gallery.spin, 4, 40)},
        {"combo box", inner(gallery.combo, 4, 40)},
        {"group title", picture(gallery.group, gallery.titleOfGroup())},
        {"tree entry", pictureOfItem(gallery.tree, 0)},
        {"selected entry", pictureOfItem(gallery.tree, 1)},
        {"table row", pictureOfItem(gallery.table, 0)},
        {"alternate row", pictureOfItem(gallery.table, 1)},
        {"table header", picture(gallery.table->horizontalHeader()->viewport())},
        {"tree header", picture(gallery.tree->header()->viewport())},
    };
}

QString translationsFolder()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
#else
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
#endif
}

QMenu *createContextMenu(QWidget *editor)
{
    if (auto *lineEdit = qobject_cast<QLineEdit *>(editor))
        return lineEdit->createStandardContextMenu();
    if (auto *textEdit = qobject_cast<QTextEdit *>(editor))
        return textEdit->createStandardContextMenu();
    return qobject_cast<QPlainTextEdit *>(editor)->createStandardContextMenu();
}

QStringList textsOfContextMenu(QWidget *editor)
{
    const std::unique_ptr<QMenu> menu(createContextMenu(editor));
    QStringList texts;
    for (const QAction *action : menu->actions()) {
        if (!action->isSeparator())
            texts.append(action->text());
    }
    return texts;
}

void writeStyleSheet(const QByteArray &content)
{
    QFile file(QCoreApplication::applicationDirPath() + "/styles/dark.qss");
    QVERIFY(QDir().mkpath(QFileInfo(file).path()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

QByteArray shippedStyleSheet()
{
    QFile file(ORVANE_STYLE_SHEET);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// The program of this test lies in a folder of its own, so its style sheet is nobody else's.
class TestDemoStartup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void fusionIsTheStyleWithoutASheet();
    void sheetBesideTheProgramIsInstalled_data();
    void sheetBesideTheProgramIsInstalled();
    void sheetInTheCurrentFolderIsNotRead();
    void programsHaveTheirSheetBesideThem();
    void enabledTextsAreReadable();
    void disabledButtonLooksDifferent();
    void transcriptIsReadable_data();
    void transcriptIsReadable();
    void menusOfQtAreChinese_data();
    void menusOfQtAreChinese();
    void windowsShowTheIcon_data();
    void windowsShowTheIcon();
    void windowsBelongToTheMenuEntry();
};

void TestDemoStartup::cleanup()
{
    QDir(QCoreApplication::applicationDirPath() + "/styles").removeRecursively();
    qApp->setStyleSheet(QString());
    qDeleteAll(qApp->findChildren<QTranslator *>());
    QApplication::setWindowIcon(QIcon());
    QGuiApplication::setDesktopFileName(QString());
}

void TestDemoStartup::fusionIsTheStyleWithoutASheet()
{
    applyDemoStyle();

    QCOMPARE(QApplication::style()->objectName(), "fusion");
    QVERIFY(qApp->styleSheet().isEmpty());
}

void TestDemoStartup::sheetBesideTheProgramIsInstalled_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("installed");
    QTest::newRow("rules") << QByteArray("QWidget { color: red }") << "QWidget { color: red }";
    QTest::newRow("UTF-8") << QByteArray("/* 深色 */") << "/* 深色 */";
    QTest::newRow("white space") << QByteArray(" \n") << " \n";
    QTest::newRow("empty") << QByteArray() << "";
}

void TestDemoStartup::sheetBesideTheProgramIsInstalled()
{
    QFETCH(QByteArray, content);
    writeStyleSheet(content);

    applyDemoStyle();

    QTEST(qApp->styleSheet(), "installed");
}

void TestDemoStartup::sheetInTheCurrentFolderIsNotRead()
{
    const OfflineConfiguration elsewhere;
    QVERIFY(QDir().mkdir("styles"));
    QFile file("styles/dark.qss");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("QWidget { color: red }");
    file.close();

    applyDemoStyle();

    QVERIFY(qApp->styleSheet().isEmpty());
}

void TestDemoStartup::programsHaveTheirSheetBesideThem()
{
    QFile copy(QFileInfo(ORVANE_TOUR).path() + "/styles/dark.qss");

    QVERIFY(copy.open(QIODevice::ReadOnly));
    QVERIFY(!shippedStyleSheet().isEmpty());
    QCOMPARE(copy.readAll(), shippedStyleSheet());
}

void TestDemoStartup::enabledTextsAreReadable()
{
    writeStyleSheet(shippedStyleSheet());
    applyDemoStyle();
    Gallery gallery;
    gallery.tree->topLevelItem(1)->setSelected(true);
    gallery.show();
    QVERIFY(QTest::qWaitForWindowExposed(&gallery));

    QMap<QString, QImage> texts = picturedTexts(gallery);
    gallery.table->selectRow(0);
    texts["selected row"] = pictureOfItem(gallery.table, 0);
    gallery.combo->showPopup();
    texts["chosen of a list"] = pictureOfItem(gallery.combo->view(), 0);
    texts["entry of a list"] = pictureOfItem(gallery.combo->view(), 1);
    gallery.combo->hidePopup();
    texts["tool tip"] = pictureOfToolTip(&gallery);

    for (auto it = texts.cbegin(); it != texts.cend(); ++it) {
        const double reached = paintedContrast(it.value());
        qInfo("%s: %.2f", qPrintable(it.key()), reached);
        QVERIFY2(reached >= readableContrast, qPrintable(QString("%1: %2").arg(it.key()).arg(reached)));
    }
}

void TestDemoStartup::disabledButtonLooksDifferent()
{
    writeStyleSheet(shippedStyleSheet());
    applyDemoStyle();
    Gallery gallery;
    gallery.show();
    QVERIFY(QTest::qWaitForWindowExposed(&gallery));

    const QImage enabled = picture(gallery.button, gallery.button->rect().adjusted(8, 4, -8, -4));
    const QImage disabled = picture(gallery.disabledButton, gallery.button->rect().adjusted(8, 4, -8, -4));
    QVERIFY(groundOf(enabled) != groundOf(disabled));
    QVERIFY(paintedContrast(disabled) < paintedContrast(enabled) - 2);
}

void TestDemoStartup::transcriptIsReadable_data()
{
    QTest::addColumn<bool>("withSheet");
    QTest::newRow("with the sheet") << true;
    QTest::newRow("plain") << false;
}

void TestDemoStartup::transcriptIsReadable()
{
    QFETCH(bool, withSheet);
    const OfflineConfiguration configuration;
    if (withSheet)
        writeStyleSheet(shippedStyleSheet());
    applyDemoStyle();
    OrvaneDemoWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *history = window.findChild<QTextBrowser *>("agentChatHistory");
    const QColor ground = groundOf(picture(history->viewport()));
    const QColor text = history->palette().color(QPalette::Text);

    // The labels' colours are fixed. White is the best that any ground can do for them, and the green of the
    // agent does not reach 4.5 even there (3.77): it labels in bold, for which 3 is the usual bound.
    QVERIFY2(luminance(ground) >= 0.95, qPrintable(ground.name()));
    for (const char *label : {"#1d4ed8", "#64748b", "#059669"}) {
        const double best = contrast(QColor(label), Qt::white);
        const double reached = contrast(QColor(label), ground);
        qInfo("%s on %s: %.2f", label, qPrintable(ground.name()), reached);
        QVERIFY2(reached >= best * 0.96 && reached >= 3.0, label);
    }
    QVERIFY(contrast(text, ground) >= 7.0);
    QVERIFY(paintedContrast(picture(history->viewport())) >= 7.0);
}

void TestDemoStartup::menusOfQtAreChinese_data()
{
    QTest::addColumn<QString>("editor");
    for (const char *editor : {"apiKeyEdit", "agentChatInput", "agentChatHistory", "pageOutput"})
        QTest::newRow(editor) << editor;
}

void TestDemoStartup::menusOfQtAreChinese()
{
    QFETCH(QString, editor);
    const OfflineConfiguration configuration;
    if (!QFile::exists(translationsFolder() + "/qtbase_zh_CN.qm"))
        QSKIP("Qt's translations are not installed.");
    applyDemoLanguage();
    OrvaneDemoWindow window;

    const QStringList texts = textsOfContextMenu(window.findChild<QWidget *>(editor));

    QVERIFY(texts.size() >= 2);
    for (const QString &text : texts)
        QVERIFY2(text.contains(QRegularExpression("\\p{Han}")), qPrintable(text));
}

void TestDemoStartup::windowsShowTheIcon_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {16, 32, 48, 128, 256})
        QTest::addRow("%d", size) << size;
}

void TestDemoStartup::windowsShowTheIcon()
{
    QFETCH(int, size);
    const QImage drawn(QString(ORVANE_DESKTOP_DIR "/orvane-%1.png").arg(size));
    QCOMPARE(drawn.size(), QSize(size, size));

    applyDemoIdentity();

    const QImage shown = QWidget().windowIcon().pixmap(size).toImage();
    QCOMPARE(shown.convertToFormat(QImage::Format_ARGB32_Premultiplied),
             drawn.convertToFormat(QImage::Format_ARGB32_Premultiplied));
}

void TestDemoStartup::windowsBelongToTheMenuEntry()
{
    applyDemoIdentity();

    QCOMPARE(QGuiApplication::desktopFileName(), "com.mirelo.OrvaneDemo");
    QVERIFY(QFile::exists(ORVANE_DESKTOP_DIR "/com.mirelo.OrvaneDemo.desktop"));
}

QTEST_MAIN(TestDemoStartup)
#include "tst_demostartup.moc"
