#include "support/offlineconfiguration.h"

#include <demo/demostartup.h>
#include <demo/orvanedemowindow.h>

#include <QApplication>
#include <QImage>
#include <QLibraryInfo>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QStyle>
#include <QTextBrowser>
#include <QTranslator>
#include <QtTest>

#include <memory>

namespace {

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
