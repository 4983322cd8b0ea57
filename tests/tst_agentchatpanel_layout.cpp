#include "support/chatpaneltest.h"

using namespace MireloQtLib::QtAgent;

using Append = std::function<void(AgentChatPanel *)>;

Q_DECLARE_METATYPE(Append)
Q_DECLARE_METATYPE(std::function<void(QTextBrowser *)>)

namespace {

const QString longParagraph = QString("word ").repeated(2000);

void moveMouse(QWidget *widget, Qt::MouseButtons buttons)
{
    const QPoint position(20, 20);
    QMouseEvent event(QEvent::MouseMove, position, widget->mapToGlobal(position), Qt::NoButton, buttons,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

} // namespace

class TestAgentChatPanelLayout : public ChatPanelTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { createPanel(); }
    void cleanup() { m_panel.reset(); }

    void turnsAfterALongLayoutLeaveItOut();
    void shortParagraphsAreAlwaysLaidOut();
    void layoutThatWasLeftOutIsCompletedBeforeAnythingElse_data();
    void layoutThatWasLeftOutIsCompletedBeforeAnythingElse();
    void passingPointerNeedsNoLayout();
    void endOfTheRunNeedsNoLayout();

    void unbrokenTextBreaksAnywhere_data();
    void unbrokenTextBreaksAnywhere();
    void wordsStayWhole_data();
    void wordsStayWhole();
    void emptyTranscriptKeepsWordsWholeAgain();
    void wrappingThatTheHostChoseStays();

private:
    void makeNextLayoutLong();
    void leaveALayoutOut();
};

// The next layout takes longer than a test needs for what it does while the one after that has to wait.
void TestAgentChatPanelLayout::makeNextLayoutLong()
{
    auto *once = new QObject(m_panel.get());
    connect(m_history->document(), &QTextDocument::contentsChange, once, [once] {
        QThread::msleep(500);
        delete once;
    });
}

// The text ends in "first second", of which the second word is not laid out.
void TestAgentChatPanelLayout::leaveALayoutOut()
{
    showPanel();
    m_panel->appendAgentDelta(longParagraph);
    QCoreApplication::processEvents();
    makeNextLayoutLong();
    m_panel->appendAgentDelta("first ");
    QCoreApplication::processEvents();
    m_panel->appendAgentDelta("second");
}

void TestAgentChatPanelLayout::turnsAfterALongLayoutLeaveItOut()
{
    leaveALayoutOut();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    QCoreApplication::processEvents();
    m_panel->appendAgentDelta(" third");
    QCoreApplication::processEvents();
    QCOMPARE(layouts.count(), 0);
    QCOMPARE(plainText(), "智能体\n" + longParagraph + "first second third");
    QVERIFY(cursorIsAtEnd());

    QTRY_COMPARE(layouts.count(), 1);
    QVERIFY(viewIsAtEnd());
    QVERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
}

void TestAgentChatPanelLayout::shortParagraphsAreAlwaysLaidOut()
{
    showPanel();
    streamLines(50);
    QCoreApplication::processEvents();
    makeNextLayoutLong();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    for (int turn = 1; turn <= 3; ++turn) {
        streamLines(50);
        QCoreApplication::processEvents();
        QCOMPARE(layouts.count(), turn);
        QVERIFY(viewIsAtEnd());
    }
}

void TestAgentChatPanelLayout::layoutThatWasLeftOutIsCompletedBeforeAnythingElse_data()
{
    QTest::addColumn<std::function<void(QTextBrowser *)>>("event");
    using Event = std::function<void(QTextBrowser *)>;
    QTest::newRow("a paint") << Event([](QTextBrowser *history) { history->repaint(); });
    QTest::newRow("a key") << Event([](QTextBrowser *history) { QTest::keyClick(history, Qt::Key_Up); });
    QTest::newRow("a click") << Event(
        [](QTextBrowser *history) { QTest::mousePress(history->viewport(), Qt::LeftButton); });
    QTest::newRow("a resize") << Event([](QTextBrowser *history) { history->resize(200, 200); });
    QTest::newRow("a font") << Event([](QTextBrowser *history) { history->setFont(QFont("Serif", 20)); });
}

void TestAgentChatPanelLayout::layoutThatWasLeftOutIsCompletedBeforeAnythingElse()
{
    QFETCH(std::function<void(QTextBrowser *)>, event);
    leaveALayoutOut();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    QCoreApplication::processEvents();
    QCOMPARE(layouts.count(), 0);
    event(m_history);
    QCOMPARE(layouts.count(), 1);
}

void TestAgentChatPanelLayout::passingPointerNeedsNoLayout()
{
    leaveALayoutOut();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    moveMouse(m_history->viewport(), Qt::NoButton);
    QCOMPARE(layouts.count(), 0);
    moveMouse(m_history->viewport(), Qt::LeftButton);
    QCOMPARE(layouts.count(), 1);
}

void TestAgentChatPanelLayout::endOfTheRunNeedsNoLayout()
{
    leaveALayoutOut();
    m_panel->setBusy(true);
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    m_stop->click();
    m_panel->finishAgentMessage();
    m_panel->setBusy(false);
    QCOMPARE(layouts.count(), 0);
    QTRY_COMPARE(layouts.count(), 1);
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanelLayout::unbrokenTextBreaksAnywhere_data()
{
    QTest::addColumn<Append>("append");
    const QString unbroken(10001, 'x');
    QTest::newRow("a message of the user")
        << Append([unbroken](AgentChatPanel *panel) { panel->appendUserMessage("a b " + unbroken + "\nc"); });
    QTest::newRow("a note") << Append(
        [unbroken](AgentChatPanel *panel) { panel->appendSystemMessage(unbroken); });
    QTest::newRow("one delta") << Append(
        [unbroken](AgentChatPanel *panel) { panel->appendAgentDelta(unbroken + " b"); });
    QTest::newRow("many deltas") << Append([unbroken](AgentChatPanel *panel) {
        for (int begin = 0; begin < unbroken.size(); begin += 7)
            panel->appendAgentDelta(unbroken.mid(begin, 7));
    });
    QTest::newRow("several stretches in a paragraph") << Append([unbroken](AgentChatPanel *panel) {
        for (int stretch = 0; stretch < 5; ++stretch)
            panel->appendAgentDelta(unbroken.left(5000) + " ");
    });
}

void TestAgentChatPanelLayout::unbrokenTextBreaksAnywhere()
{
    QFETCH(Append, append);
    showPanel();
    m_panel->appendAgentDelta("words\n");
    append(m_panel.get());
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAnywhere);
    QCoreApplication::processEvents();
    QVERIFY(plainText().count('x') > 10000);
    QTRY_VERIFY(viewIsAtEnd());
}

void TestAgentChatPanelLayout::wordsStayWhole_data()
{
    QTest::addColumn<QString>("delta");
    QTest::addColumn<int>("count");
    QTest::newRow("words") << "word " << 20000;
    QTest::newRow("numbers") << "1234567890 " << 5000;
    QTest::newRow("Chinese, one character a delta") << QString::fromUtf8("字") << 50000;
    QTest::newRow("unbroken lines") << QString(5000, 'x') + "\n" << 20;
    QTest::newRow("unbroken lines of another kind") << QString(5000, 'x') + "\r" << 20;
}

void TestAgentChatPanelLayout::wordsStayWhole()
{
    QFETCH(QString, delta);
    QFETCH(int, count);
    for (int number = 0; number < count; ++number)
        m_panel->appendAgentDelta(delta);
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_panel->appendUserMessage(QString(8000, 'x'));
    m_panel->appendSystemMessage(QString(8000, 'x'));
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAtWordBoundaryOrAnywhere);
}

void TestAgentChatPanelLayout::emptyTranscriptKeepsWordsWholeAgain()
{
    m_panel->appendAgentDelta(QString(20000, 'x'));
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAnywhere);
    m_clear->click();
    m_panel->appendAgentDelta(QString(8000, 'x'));
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_panel->appendAgentDelta(QString(8000, 'x'));
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAnywhere);
}

void TestAgentChatPanelLayout::wrappingThatTheHostChoseStays()
{
    for (auto mode : {QTextOption::NoWrap, QTextOption::WrapAnywhere}) {
        m_history->setWordWrapMode(mode);
        m_panel->appendUserMessage(QString(20000, 'x'));
        QCOMPARE(m_history->wordWrapMode(), mode);
        m_clear->click();
        m_panel->appendUserMessage("words");
        QCOMPARE(m_history->wordWrapMode(), mode);
        m_clear->click();
    }

    m_history->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_panel->appendUserMessage(QString(20000, 'x'));
    QCOMPARE(m_history->wordWrapMode(), QTextOption::WrapAnywhere); // chosen by the panel
    m_history->setWordWrapMode(QTextOption::NoWrap);
    m_clear->click();
    m_panel->appendUserMessage("words");
    QCOMPARE(m_history->wordWrapMode(), QTextOption::NoWrap);
}

QTEST_MAIN(TestAgentChatPanelLayout)
#include "tst_agentchatpanel_layout.moc"
