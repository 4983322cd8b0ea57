#include "support/transcriptview.h"

#include <QAccessible>
#include <QPushButton>

#include <memory>

using namespace MireloQtLib::QtAgent;

class TestMarkdownTranscriptReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_view.reset(); }

    void followsTheEndAtFirst();
    void followsWithinATurn();
    void stopsWhereTheReaderScrolls_data();
    void stopsWhereTheReaderScrolls();
    void followsAgainAtTheEnd_data();
    void followsAgainAtTheEnd();
    void textDoesNotMoveTheView_data();
    void textDoesNotMoveTheView();
    void setFollowingGoesToTheEnd();
    void buttonGoesBackToTheEnd();
    void setFollowingOffStaysAtTheEnd();
    void signalComesOncePerChange();
    void slotsHearChangesInTheirOrder();
    void beginMessageChangesNothing();
    void resizingChangesNothing();
    void finishingChangesNothing();
    void shorterTextMovesTheViewToItsEnd();
    void scrollToMessageShowsItsBeginning();
    void scrollToTheLastMessageFollows();

    void selectionStays_data();
    void selectionStays();
    void selectionInTheOpenBlockIsClamped();
    void selectionOfClosedBlocksIsExact();
    void cursorAtTheEndStays();
    void selectionBesideAReferenceIsExact_data();
    void selectionBesideAReferenceIsExact();
    void selectionMayBeMadeWhileTextArrives();
    void selectionReachesOverMessages();

    void wholeTextIsReadByAccessibility();

private:
    std::unique_ptr<TranscriptView> m_view;
};

void TestMarkdownTranscriptReading::init()
{
    m_view = std::make_unique<TranscriptView>();
    m_view->showSmall();
}

void TestMarkdownTranscriptReading::followsTheEndAtFirst()
{
    QVERIFY(m_view->isFollowing());
    for (int number = 0; number < 60; ++number) {
        m_view->add("- some *text* of an item\n");
        QCOMPARE(m_view->place(), m_view->end());
    }
    QVERIFY(m_view->end() > 0);
    m_view->add("\n```\ncode\n```\n\n| a |\n|---|\n| b |\n");
    QCOMPARE(m_view->place(), m_view->end());
    m_view->finishMessage();
    QCOMPARE(m_view->place(), m_view->end());
}

// Following must not wait for another turn, or the end would be out of sight in a frame.
void TestMarkdownTranscriptReading::followsWithinATurn()
{
    m_view->addPage();
    const int end = m_view->end();
    m_view->appendDelta("a\n\nb");
    m_view->finishMessage();
    QVERIFY(m_view->end() > end);
    QCOMPARE(m_view->place(), m_view->end());
}

void TestMarkdownTranscriptReading::stopsWhereTheReaderScrolls_data()
{
    QTest::addColumn<TranscriptStep>("step");
    const auto row = [](const char *name, const TranscriptStep &step) { QTest::newRow(name) << step; };
    row("wheel", [](TranscriptView *view) { view->turnWheel(120); });
    row("page key", [](TranscriptView *view) { QTest::keyClick(view, Qt::Key_PageUp); });
    row("scroll bar", [](TranscriptView *view) { view->verticalScrollBar()->setValue(10); });
    row("one pixel", [](TranscriptView *view) { view->verticalScrollBar()->setValue(view->end() - 1); });
    row("message key", [](TranscriptView *view) { QTest::keyClick(view, Qt::Key_Up, Qt::AltModifier); });
    row("scrollToMessage", [](TranscriptView *view) { view->scrollToMessage(0); });
    row("search", [](TranscriptView *view) {
        view->select(0, 0);
        QVERIFY(view->QTextEdit::find("Paragraph 3"));
    });
}

void TestMarkdownTranscriptReading::stopsWhereTheReaderScrolls()
{
    QFETCH(TranscriptStep, step);
    m_view->addPage();
    const QSignalSpy changed(m_view.get(), &MarkdownTranscript::followingChanged);
    step(m_view.get());
    QVERIFY(!m_view->isFollowing());
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).toBool(), false);
    const int place = m_view->place();
    m_view->addPage();
    QCOMPARE(m_view->place(), place);
}

void TestMarkdownTranscriptReading::followsAgainAtTheEnd_data()
{
    QTest::addColumn<TranscriptStep>("step");
    const auto row = [](const char *name, const TranscriptStep &step) { QTest::newRow(name) << step; };
    row("wheel", [](TranscriptView *view) {
        for (int notch = 0; notch < 100 && !view->isFollowing(); ++notch)
            view->turnWheel(-120);
    });
    row("End", [](TranscriptView *view) { QTest::keyClick(view, Qt::Key_End); });
    row("scroll bar", [](TranscriptView *view) { view->verticalScrollBar()->setValue(view->end()); });
    row("setFollowing", [](TranscriptView *view) { view->setFollowing(true); });
}

void TestMarkdownTranscriptReading::followsAgainAtTheEnd()
{
    QFETCH(TranscriptStep, step);
    m_view->addPage();
    m_view->verticalScrollBar()->setValue(0);
    QVERIFY(!m_view->isFollowing());
    const QSignalSpy changed(m_view.get(), &MarkdownTranscript::followingChanged);
    step(m_view.get());
    QVERIFY(m_view->isFollowing());
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).toBool(), true);
    m_view->addPage();
    QCOMPARE(m_view->place(), m_view->end());
}

void TestMarkdownTranscriptReading::textDoesNotMoveTheView_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("paragraphs") << "a\n\nb\n\nc";
    QTest::newRow("list that becomes loose") << "- a\n- b\n\n- c";
    QTest::newRow("heading below its text") << "a\n---\nb";
    QTest::newRow("table") << "|a|b|\n|---|---|\n|c|d|\n|e|f|";
    QTest::newRow("fence") << "```\na\nb\n```\n";
    QTest::newRow("reference") << "[a] [b]\n\n[a]: http://b\n\n- [a]";
}

void TestMarkdownTranscriptReading::textDoesNotMoveTheView()
{
    QFETCH(QString, text);
    m_view->addPage();
    for (const int place : {0, 37, m_view->end() - 1}) {
        m_view->verticalScrollBar()->setValue(place);
        for (const QChar character : text) {
            m_view->add(character);
            QCOMPARE(m_view->place(), place);
        }
        m_view->finishMessage();
        QCOMPARE(m_view->place(), place);
    }
}

void TestMarkdownTranscriptReading::setFollowingGoesToTheEnd()
{
    m_view->addPage();
    m_view->setFollowing(false);
    m_view->addPage();
    QVERIFY(m_view->place() < m_view->end());
    m_view->appendDelta("not shown\n\nyet");
    m_view->setFollowing(true);
    QVERIFY(m_view->toPlainText().endsWith("yet"));
    QCOMPARE(m_view->place(), m_view->end());
}

void TestMarkdownTranscriptReading::buttonGoesBackToTheEnd()
{
    QPushButton toEnd;
    toEnd.hide();
    MarkdownTranscript *transcript = m_view.get();
    connect(transcript, &MarkdownTranscript::followingChanged, &toEnd, &QWidget::setHidden);
    connect(&toEnd, &QPushButton::clicked, transcript, [=] { transcript->setFollowing(true); });
    m_view->addPage();
    m_view->verticalScrollBar()->setValue(0);
    QVERIFY(toEnd.isVisible());
    toEnd.click();
    QVERIFY(toEnd.isHidden());
    QCOMPARE(m_view->place(), m_view->end());
}

void TestMarkdownTranscriptReading::setFollowingOffStaysAtTheEnd()
{
    m_view->addPage();
    const int end = m_view->end();
    m_view->setFollowing(false);
    QVERIFY(!m_view->isFollowing());
    m_view->addPage();
    QCOMPARE(m_view->place(), end);
}

void TestMarkdownTranscriptReading::signalComesOncePerChange()
{
    m_view->addPage();
    const QSignalSpy changed(m_view.get(), &MarkdownTranscript::followingChanged);
    m_view->setFollowing(true);
    m_view->verticalScrollBar()->setValue(m_view->end());
    QCOMPARE(changed.count(), 0);
    m_view->verticalScrollBar()->setValue(3);
    m_view->verticalScrollBar()->setValue(2);
    m_view->setFollowing(false);
    QCOMPARE(changed.count(), 1);
    m_view->clear();
    QCOMPARE(changed.count(), 2);
    QCOMPARE(changed.at(1).at(0).toBool(), true);
}

void TestMarkdownTranscriptReading::slotsHearChangesInTheirOrder()
{
    m_view->addPage();
    MarkdownTranscript *transcript = m_view.get();
    connect(transcript, &MarkdownTranscript::followingChanged, this, [=](bool following) {
        if (!following)
            transcript->setFollowing(true);
    });
    const QSignalSpy changed(transcript, &MarkdownTranscript::followingChanged);
    transcript->setFollowing(false);
    QVERIFY(transcript->isFollowing());
    QCOMPARE(changed.count(), 2);
    QCOMPARE(changed.at(0).at(0).toBool(), false);
    QCOMPARE(changed.at(1).at(0).toBool(), true);
}

void TestMarkdownTranscriptReading::beginMessageChangesNothing()
{
    m_view->addPage();
    m_view->verticalScrollBar()->setValue(20);
    m_view->beginMessage("label", Qt::red);
    QVERIFY(!m_view->isFollowing());
    QCOMPARE(m_view->place(), 20);
    m_view->setFollowing(true);
    m_view->beginMessage("label", Qt::red);
    QVERIFY(m_view->isFollowing());
    QCOMPARE(m_view->place(), m_view->end());
}

void TestMarkdownTranscriptReading::resizingChangesNothing()
{
    m_view->addPage();
    const QSignalSpy changed(m_view.get(), &MarkdownTranscript::followingChanged);
    for (const QSize &size : {QSize(100, 80), QSize(900, 700), QSize(60, 3000), QSize(300, 100)}) {
        m_view->resize(size);
        runUntilQuiet();
        QCOMPARE(m_view->place(), m_view->end());
    }
    m_view->verticalScrollBar()->setValue(20);
    for (const QSize &size : {QSize(100, 80), QSize(900, 700), QSize(60, 3000), QSize(300, 100)}) {
        m_view->resize(size);
        runUntilQuiet();
        QVERIFY(!m_view->isFollowing());
    }
    QCOMPARE(changed.count(), 1);
}

void TestMarkdownTranscriptReading::finishingChangesNothing()
{
    m_view->addPage();
    m_view->appendDelta("[a]\n\n[a]: http://b");
    m_view->verticalScrollBar()->setValue(m_view->end() - 30);
    const int place = m_view->place();
    m_view->finishMessage();
    QCOMPARE(m_view->place(), place);
    QVERIFY(!m_view->isFollowing());
}

void TestMarkdownTranscriptReading::shorterTextMovesTheViewToItsEnd()
{
    m_view->addPage(8);
    m_view->appendDelta("a  \n# b\n\n");
    runUntilQuiet();
    m_view->setFollowing(false);
    m_view->resize(2000, 190);
    runUntilQuiet();
    QVERIFY(m_view->place() <= m_view->end());
    QVERIFY(!m_view->isFollowing());
}

void TestMarkdownTranscriptReading::scrollToMessageShowsItsBeginning()
{
    for (int message = 0; message < 3; ++message) {
        m_view->beginMessage("message " + QString::number(message), {});
        m_view->addPage(20);
    }
    for (const int message : {1, 0, 2}) {
        m_view->scrollToMessage(message);
        const int begin = m_view->find("message " + QString::number(message));
        const int top = m_view->pointAt(begin).y();
        QVERIFY2(top > 0 && top < 40, qPrintable(QString::number(top)));
        QVERIFY(!m_view->isFollowing());
    }
    m_view->scrollToMessage(0);
    QCOMPARE(m_view->place(), 0);
}

void TestMarkdownTranscriptReading::scrollToTheLastMessageFollows()
{
    m_view->addPage();
    m_view->beginMessage("last", {});
    m_view->add("short");
    m_view->verticalScrollBar()->setValue(0);
    m_view->scrollToMessage(1);
    QCOMPARE(m_view->place(), m_view->end());
    QVERIFY(m_view->isFollowing());
}

void TestMarkdownTranscriptReading::selectionStays_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("selected");
    QTest::addColumn<QString>("added");

    QTest::newRow("paragraph") << "Some words of"
                               << "words"
                               << " a **paragraph** that goes on\nand *on*.\n\nend";
    QTest::newRow("list") << "- one\n- two"
                          << "ne\ntw"
                          << "\n  - three\n- four\n\n- five";
    QTest::newRow("ordered list") << "1. one"
                                  << "one"
                                  << "\n2. two\n3. three";
    QTest::newRow("fence") << "```cpp\nint main()\n{"
                           << "main()\n"
                           << "\n}\n```\n\nend";
    QTest::newRow("cell") << "| one | two |\n|-----|-----|\n"
                          << "one"
                          << "| three | four |\n| five | six |\n";
    QTest::newRow("heading") << "One heading"
                             << "One"
                             << "\n===\n\nmore";
    QTest::newRow("quote") << "> one"
                           << "ne"
                           << "\n> two\n\nmore";
    QTest::newRow("other planes") << "a😀b"
                                  << "😀b"
                                  << " **中文** c\n\nd";
}

void TestMarkdownTranscriptReading::selectionStays()
{
    QFETCH(QString, shown);
    QFETCH(QString, selected);
    QFETCH(QString, added);
    const auto selection = [this] {
        return m_view->textCursor().selectedText().replace(QChar(0x2029), '\n');
    };
    m_view->add("before\n\n" + shown);
    const int begin = m_view->find(selected);
    m_view->select(begin + int(selected.size()), begin); // backwards
    QCOMPARE(selection(), selected);
    for (const QChar character : added) {
        m_view->add(character);
        QCOMPARE(selection(), selected);
    }
    m_view->finishMessage();
    QCOMPARE(selection(), selected);
    QVERIFY(m_view->textCursor().anchor() > m_view->textCursor().position());
}

// By the distance from the beginning of the block, as far as there is text.
void TestMarkdownTranscriptReading::selectionInTheOpenBlockIsClamped()
{
    m_view->add("a\n\nbc `d");
    m_view->select(3, 7);
    QCOMPARE(m_view->textCursor().selectedText(), QString("c `d"));
    m_view->add("`");
    QCOMPARE(m_view->toPlainText(), QString("a\nbc d"));
    QCOMPARE(m_view->textCursor().anchor(), 3);
    QCOMPARE(m_view->textCursor().position(), 6);
    QCOMPARE(m_view->textCursor().selectedText(), QString("c d"));
}

void TestMarkdownTranscriptReading::selectionOfClosedBlocksIsExact()
{
    m_view->add("first **bold**\n\n- second\n\n  third\n\nfourth [a]\n\n");
    m_view->select(m_view->find("rst"), m_view->find("fourth") + 4);
    const QString selected = m_view->textCursor().selectedText();
    for (const QChar character : QString("more\n\n|a|\n|---|\n|b|\n\n[a]: http://b.c\n"))
        m_view->add(character);
    m_view->finishMessage();
    QCOMPARE(m_view->textCursor().selectedText(), selected);
}

void TestMarkdownTranscriptReading::cursorAtTheEndStays()
{
    m_view->add("a");
    m_view->select(1, 1);
    m_view->add("b");
    m_view->add("\n\nc");
    QCOMPARE(m_view->textCursor().position(), 1);
    QVERIFY(!m_view->textCursor().hasSelection());
}

void TestMarkdownTranscriptReading::selectionBesideAReferenceIsExact_data()
{
    QTest::addColumn<QString>("selected");
    for (const char *selected : {"zero", "one", "two", "three", "four", "five", "six", "two\nthree", "seven"})
        QTest::newRow(selected) << selected;
}

void TestMarkdownTranscriptReading::selectionBesideAReferenceIsExact()
{
    QFETCH(QString, selected);
    m_view->add("zero\n\n[a] one [two][A]\n\nthree [a]\n\n- ![four][a] five\n\n|[a]|\n|---|\n|[a] six|\n\n"
                "seven\n\n[a]: http://b.c\n");
    const QString shown = selected == "two\nthree" ? QString("two][A]\nthree") : selected;
    QVERIFY(m_view->find(shown) >= 0);
    m_view->select(m_view->find(shown), m_view->find(shown) + int(shown.size()));
    m_view->finishMessage();
    QCOMPARE(m_view->textCursor().selectedText().replace(QChar(0x2029), '\n'), selected);
}

void TestMarkdownTranscriptReading::selectionMayBeMadeWhileTextArrives()
{
    m_view->add("One line of words\n\n");
    QWidget *viewport = m_view->viewport();
    QTest::mousePress(viewport, Qt::LeftButton, {}, m_view->pointAt(4) - QPoint(2, 0));
    m_view->add("**more");
    QTest::mouseMove(viewport, m_view->pointAt(6));
    m_view->add(" words**\n\n- a");
    QMouseEvent move(QEvent::MouseMove, m_view->pointAt(8) - QPoint(2, 0), Qt::NoButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(viewport, &move);
    m_view->add("\n- b");
    QTest::mouseRelease(viewport, Qt::LeftButton, {}, m_view->pointAt(8) - QPoint(2, 0));
    QCOMPARE(m_view->textCursor().selectedText(), QString("line"));
}

void TestMarkdownTranscriptReading::selectionReachesOverMessages()
{
    m_view->beginMessage("one", Qt::red);
    m_view->add("a\n\n");
    m_view->beginMessage("two", Qt::blue);
    m_view->add("b **c");
    m_view->select(0, m_view->find("b") + 1);
    const QString selected = m_view->textCursor().selectedText();
    m_view->add("**\n---\n");
    m_view->beginMessage("three", Qt::red);
    QCOMPARE(m_view->textCursor().selectedText(), selected);
}

void TestMarkdownTranscriptReading::wholeTextIsReadByAccessibility()
{
    m_view->beginMessage("智能体", {});
    m_view->add("# Heading\n\n- item\n\n```\ncode\n```\n\n| cell |\n|---|\n");
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(m_view.get());
    QVERIFY(interface && interface->textInterface());
    const QAccessibleTextInterface *text = interface->textInterface();
    const QString read = text->text(0, text->characterCount());
    for (const char *part : {"智能体", "Heading", "item", "code", "cell"})
        QVERIFY2(read.contains(part), part);
}

QTEST_MAIN(TestMarkdownTranscriptReading)

#include "tst_markdowntranscript_reading.moc"
