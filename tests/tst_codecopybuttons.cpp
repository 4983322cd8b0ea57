#include "support/transcriptview.h"

#include <QAccessible>
#include <QClipboard>

#include <memory>

using namespace MireloQtLib::QtAgent;

class TestCodeCopyButtons : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void codeIsCopiedAsItStands_data();
    void codeIsCopiedAsItStands();
    void codeOfAnOpenFenceIsCopied();
    void eachBlockHasItsOwn();
    void codesThatTouchHaveTheirOwn_data();
    void codesThatTouchHaveTheirOwn();
    void codeOfEachMessageIsItsOwn();
    void plainTextHasNone();
    void onlyBlocksInSightHaveOne();
    void standsInTheUpperRightCorner();
    void staysInSightBesideALongBlock();
    void movesWithTheText();
    void movesWithTheTextBehindReferences();
    void fitsTheFont_data();
    void fitsTheFont();
    void copiesNothingOnceTheCodeIsGone();
    void isNoPartOfTheDocument();
    void isReachedByTab();
    void keepsTheFocusWhileTextArrives();
    void givesTheFocusBackOutOfSight();
    void readersFindIt();

private:
    void press(int index) { QTest::mouseClick(m_view->copyButtons().at(index), Qt::LeftButton); }
    QString copied(int index)
    {
        press(index);
        return QGuiApplication::clipboard()->text();
    }

    std::unique_ptr<TranscriptView> m_view;
    QFont m_font;
};

void TestCodeCopyButtons::init()
{
    m_view = std::make_unique<TranscriptView>();
    m_view->showSmall();
    QGuiApplication::clipboard()->clear();
    m_font = QApplication::font();
}

void TestCodeCopyButtons::cleanup()
{
    m_view.reset();
    QApplication::setFont(m_font);
}

void TestCodeCopyButtons::codeIsCopiedAsItStands_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("code");

    QTest::newRow("fence") << "```cpp\nint a;\n  int b;\n```\n"
                           << "int a;\n  int b;";
    QTest::newRow("blank lines at both ends") << "```\n\n\na\n\n```\n"
                                              << "\n\na\n";
    QTest::newRow("tabs") << "```\n\ta\tb\n```\n"
                          << "\ta\tb";
    QTest::newRow("carriage returns") << "```\r\na\r\nb\r\n```\r\n"
                                      << "a\r\nb";
    QTest::newRow("odd characters") << QString("```\na") + QChar(0) + QChar(0xd83d) + QChar(0xfdd0) + "\n```"
                                    << QString("a") + QChar(0) + QChar(0xd83d) + QChar(0xfdd0);
    QTest::newRow("markup") << "~~~\n**a** <b> &amp; [c](d)\n```\n~~~\n"
                            << "**a** <b> &amp; [c](d)\n```";
    QTest::newRow("indented fence") << "  ```\n  a\n    b\n  ```\n"
                                    << "a\n  b";
    QTest::newRow("in a list") << "1. a\n\n   ```sh\n   make\n\n   make install\n   ```\n"
                               << "make\n\nmake install";
    QTest::newRow("in a quote") << "> ```\n> a\n>   b\n> ```\n"
                                << "a\n  b";
    QTest::newRow("indented code") << "    a\n\n      b\n"
                                   << "a\n\n  b";
    QTest::newRow("other planes") << "```\n中文 😀\n```\n"
                                  << "中文 😀";
}

void TestCodeCopyButtons::codeIsCopiedAsItStands()
{
    QFETCH(QString, markdown);
    QFETCH(QString, code);
    for (const QChar character : QString("Text\n\n" + markdown + "\nend"))
        m_view->add(character);
    QCOMPARE(m_view->copyButtons().size(), 1);
    QCOMPARE(copied(0), code);
    m_view->finishMessage();
    QCOMPARE(m_view->copyButtons().size(), 1);
    QCOMPARE(copied(0), code);
}

void TestCodeCopyButtons::codeOfAnOpenFenceIsCopied()
{
    m_view->add("```\na\nb");
    QCOMPARE(copied(0), QString("a\nb"));
    m_view->appendDelta("c\nd"); // not shown yet
    m_view->add("e");
    QCOMPARE(copied(0), QString("a\nbc\nde"));
}

void TestCodeCopyButtons::eachBlockHasItsOwn()
{
    m_view->resize(400, 600);
    m_view->add("```\na\n```\n```\nb\n```\n- c\n  ```\n  d\n  ```\n  text\n  ~~~\n  e\n  ~~~\n");
    QCOMPARE(m_view->copyButtons().size(), 4);
    const QStringList codes{"a", "b", "d", "e"};
    for (int index = 0; index < codes.size(); ++index)
        QCOMPARE(copied(index), codes.at(index));
}

void TestCodeCopyButtons::codesThatTouchHaveTheirOwn_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QStringList>("codes");

    const QStringList codes{"b\nb", "c"};
    QTest::newRow("in an item") << "- a\n  ```\n  b\n  b\n  ```\n  ```\n  c\n  ```\n" << codes;
    QTest::newRow("in a loose item") << "- a\n\n  ```\n  b\n  b\n  ```\n\n  ```\n  c\n  ```\n" << codes;
    QTest::newRow("in nested items") << "- a\n  - ```\n    b\n    b\n    ```\n  - ```\n    c\n    ```\n"
                                     << codes;
    QTest::newRow("in a quote") << "> ```\n> b\n> b\n> ```\n>\n> ```\n> c\n> ```\n" << codes;
    QTest::newRow("in an item's quote") << "- > ```\n  > b\n  > b\n  > ```\n  > ```\n  > c\n  > ```\n"
                                        << codes;
    QTest::newRow("carriage returns") << "- a\r\n  ```\r\n  b\r\n  b\r\n  ```\r\n  ```\r\n  c\r\n  ```\r\n"
                                      << codes;
    QTest::newRow("not closed") << "1. a\n   ```\n   b\n   b\n   ```\n   ~~~\n   c" << codes;
    QTest::newRow("the same code") << "- a\n  ```\n  b\n  ```\n  ```\n  b\n  ```\n" << QStringList{"b", "b"};
    QTest::newRow("nothing in one") << "- a\n  ```\n  b\n  ```\n  ```\n  ```\n  ```\n  c\n  ```\n"
                                    << QStringList{"b", "c"};
    QTest::newRow("fences as code") << "- a\n  ````\n  ```\n  b\n  ```\n  ````\n  ```\n  - c\n  ```\n"
                                    << QStringList{"```\nb\n```", "- c"};
}

void TestCodeCopyButtons::codesThatTouchHaveTheirOwn()
{
    QFETCH(QString, markdown);
    QFETCH(QStringList, codes);
    m_view->resize(400, 600);
    for (const QChar character : markdown)
        m_view->add(character);
    m_view->finishMessage();
    QCOMPARE(m_view->copyButtons().size(), codes.size());
    for (int index = 0; index < codes.size(); ++index) {
        const QRect button = m_view->copyButtons().at(index)->geometry();
        QCOMPARE(copied(index), codes.at(index));
        QVERIFY(index == 0 || button.top() > m_view->copyButtons().at(index - 1)->geometry().top());
    }
}

void TestCodeCopyButtons::codeOfEachMessageIsItsOwn()
{
    m_view->beginMessage("one", {});
    m_view->add("```\na\n");
    m_view->beginMessage({}, {});
    m_view->add("```\nb\n");
    QCOMPARE(m_view->copyButtons().size(), 2);
    QCOMPARE(copied(0), QString("a"));
    QCOMPARE(copied(1), QString("b"));
}

void TestCodeCopyButtons::plainTextHasNone()
{
    m_view->beginMessage({}, {}, MarkdownTranscript::Format::PlainText);
    m_view->add("```\na\n```\n");
    m_view->beginMessage({}, {});
    m_view->add("`a`");
    QVERIFY(m_view->copyButtons().isEmpty());
}

void TestCodeCopyButtons::onlyBlocksInSightHaveOne()
{
    m_view->add("```\nfirst\n```\n");
    m_view->addPage();
    QVERIFY(m_view->copyButtons().isEmpty());
    m_view->add("```\nlast\n```\n");
    QCOMPARE(copied(0), QString("last"));
    m_view->verticalScrollBar()->setValue(0);
    QCOMPARE(m_view->copyButtons().size(), 1);
    QCOMPARE(copied(0), QString("first"));
}

void TestCodeCopyButtons::standsInTheUpperRightCorner()
{
    m_view->add("Text\n\n```\na\nb\nc\nd\n```\n\nText");
    const QToolButton *button = m_view->copyButtons().first();
    QVERIFY(button->isVisible());
    QCOMPARE(button->text(), QString("复制"));
    const int top = m_view->pointAt(m_view->find("a")).y();
    QVERIFY(button->y() < top && button->geometry().bottom() > top);
    QVERIFY(button->x() > m_view->viewport()->width() / 2);
    QVERIFY(m_view->viewport()->rect().contains(button->geometry()));
}

void TestCodeCopyButtons::staysInSightBesideALongBlock()
{
    m_view->add("```\n" + QString("line\n").repeated(100));
    for (const int place : {0, 100, 500, m_view->end()}) {
        m_view->verticalScrollBar()->setValue(place);
        QCOMPARE(m_view->copyButtons().size(), 1);
        QVERIFY(m_view->viewport()->rect().contains(m_view->copyButtons().first()->geometry()));
    }
}

void TestCodeCopyButtons::movesWithTheText()
{
    m_view->add("Text\n\n```\na\n```\n\n");
    m_view->addPage();
    m_view->verticalScrollBar()->setValue(0);
    const int y = m_view->copyButtons().first()->y();
    m_view->verticalScrollBar()->setValue(10);
    QCOMPARE(m_view->copyButtons().first()->y(), y - 10);
    const int right = m_view->copyButtons().first()->geometry().right();
    m_view->resize(m_view->width() + 50, m_view->height());
    QCOMPARE(m_view->copyButtons().first()->geometry().right(), right + 50);
}

void TestCodeCopyButtons::movesWithTheTextBehindReferences()
{
    m_view->resize(400, 600);
    m_view->add(
        QString("[a] ").repeated(20)
        + "\n\n```\nx\nx\n```\n\n- [a]\n  ```\n  y\n  y\n  ```\n\n```\nz\nz\n```\n\n[a]: http://b.c\n");
    m_view->finishMessage();
    QVERIFY(m_view->toPlainText().startsWith("a a"));
    const QStringList codes{"x\nx", "y\ny", "z\nz"};
    QCOMPARE(m_view->copyButtons().size(), codes.size());
    for (int index = 0; index < codes.size(); ++index) {
        const QRect button = m_view->copyButtons().at(index)->geometry();
        const int line = m_view->pointAt(m_view->find(codes.at(index))).y();
        QVERIFY(button.top() < line && button.bottom() > line);
        QCOMPARE(copied(index), codes.at(index));
    }
}

void TestCodeCopyButtons::fitsTheFont_data()
{
    QTest::addColumn<TranscriptStep>("step");
    const auto row = [](const char *name, const TranscriptStep &step) { QTest::newRow(name) << step; };
    row("of the view", [](TranscriptView *view) {
        QFont font = view->font();
        font.setPointSize(3 * font.pointSize());
        view->setFont(font);
    });
    row("zoom", [](TranscriptView *view) { view->zoomIn(20); });
    row("style sheet", [](TranscriptView *view) { view->setStyleSheet("* { font-size: 40px; }"); });
    row("style sheet of the buttons",
        [](TranscriptView *view) { view->setStyleSheet("QToolButton { padding: 20px; }"); });
    row("of the program", [](TranscriptView *) {
        QFont font = QApplication::font();
        font.setPointSize(3 * font.pointSize());
        QApplication::setFont(font);
    });
}

void TestCodeCopyButtons::fitsTheFont()
{
    QFETCH(TranscriptStep, step);
    m_view->resize(600, 400);
    m_view->add("Text\n\nText\n\n```\na\nb\nc\nd\n```\n");
    const QToolButton *button = m_view->copyButtons().first();
    const QRect before = button->geometry();
    step(m_view.get());
    runUntilQuiet();
    QCOMPARE(button->size(), button->sizeHint());
    QVERIFY(button->width() > before.width());
    QCOMPARE(button->geometry().right(), before.right());
    const int line = m_view->pointAt(m_view->find("a")).y();
    QVERIFY(button->y() < line && button->geometry().bottom() > line);
}

// A removed button lives until the slot that removed it has returned, which a nested event loop delays.
void TestCodeCopyButtons::copiesNothingOnceTheCodeIsGone()
{
    m_view->add("```\na\n```\n");
    QToolButton *button = m_view->copyButtons().first();
    QSignalSpy clicked(button, &QToolButton::clicked);
    button->animateClick();
    bool isClicked = false;
    QTimer::singleShot(0, this, [&] {
        m_view->clear();
        isClicked = clicked.wait();
    });
    QTRY_VERIFY(isClicked);
    QCOMPARE(QGuiApplication::clipboard()->text(), QString());
}

void TestCodeCopyButtons::isNoPartOfTheDocument()
{
    m_view->add("```\na\n```\n");
    QCOMPARE(m_view->toPlainText(), QString("a"));
    QCOMPARE(m_view->copyButtons().first()->parentWidget(), m_view->viewport());
}

void TestCodeCopyButtons::isReachedByTab()
{
    m_view->add("[link](https://a.example)\n\n```\na\n```\n\n```\nb\n```\n");
    m_view->activateWindow();
    m_view->setFocus();
    QTRY_VERIFY(m_view->hasFocus());
    const auto pressTab = [] { QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab); };
    pressTab();
    QCOMPARE(m_view->textCursor().selectedText(), QString("link"));
    QVERIFY(m_view->hasFocus());
    for (const char *code : {"a", "b"}) {
        pressTab();
        auto *button = qobject_cast<QToolButton *>(QApplication::focusWidget());
        QVERIFY(button);
        QTest::keyClick(button, Qt::Key_Space);
        QCOMPARE(QGuiApplication::clipboard()->text(), QString(code));
    }
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab, Qt::ShiftModifier);
    QCOMPARE(QApplication::focusWidget(), m_view->copyButtons().first());
}

void TestCodeCopyButtons::keepsTheFocusWhileTextArrives()
{
    m_view->activateWindow();
    m_view->add("```\na");
    QToolButton *button = m_view->copyButtons().first();
    button->setFocus();
    QTRY_VERIFY(button->hasFocus());
    for (const QChar character : QString("b\nc\n```\n- d\n  ```\n  e\n"))
        m_view->add(character);
    QVERIFY(button->hasFocus());
    QCOMPARE(m_view->copyButtons().size(), 2);
}

void TestCodeCopyButtons::givesTheFocusBackOutOfSight()
{
    m_view->activateWindow();
    m_view->add("```\na\n```\n");
    m_view->copyButtons().first()->setFocus();
    QTRY_VERIFY(m_view->copyButtons().first()->hasFocus());
    m_view->addPage();
    QVERIFY(m_view->hasFocus());
}

void TestCodeCopyButtons::readersFindIt()
{
    m_view->add("```\na\n```\n");
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(m_view->copyButtons().first());
    QVERIFY(interface && interface->actionInterface());
    QCOMPARE(interface->text(QAccessible::Name), QString("复制代码"));
    QCOMPARE(interface->role(), QAccessible::Button);
    interface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QTRY_COMPARE(QGuiApplication::clipboard()->text(), QString("a"));
}

QTEST_MAIN(TestCodeCopyButtons)

#include "tst_codecopybuttons.moc"
