#include "support/chatpaneltest.h"

#include <QClipboard>

using namespace MireloQtLib::QtAgent;

using Append = std::function<void(AgentChatPanel *)>;

Q_DECLARE_METATYPE(Append)
Q_DECLARE_METATYPE(std::function<void(QTextBrowser *)>)

namespace {

QString longText()
{
    QString text;
    for (int line = 0; line < 100; ++line)
        text += QString("Line %1\n").arg(line);
    return text;
}

} // namespace

class TestAgentChatPanelStream : public ChatPanelTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { createPanel(); }
    void cleanup() { m_panel.reset(); }

    void textAndCursorAreRightAfterEachDelta();
    void viewFollowsByTheEndOfTheTurn();
    void viewFollowsTurnAfterTurn();
    void viewFollowsWhereTheUserHadScrolledUp();
    void viewFollowsWhileALongTranscriptIsLaidOutAnew();
    void viewGoesToAMessage_data();
    void viewGoesToAMessage();
    void selectionIsGoneAfterADelta();
    void deltasOfOneTurnAreLaidOutOnce();
    void burstIsPaintedWhole_data();
    void burstIsPaintedWhole();
    void messagesBetweenDeltasKeepTheirPlace();
    void viewFollowsAMessageAfterABurst();
    void transcriptMayChangeBetweenDeltas_data();
    void transcriptMayChangeBetweenDeltas();
    void deltasGoToTheDocumentThatTheTranscriptShows();
    void selectionMadeAfterADeltaIsCopied();
    void userScrollsInTheCompleteTranscript();
    void panelMayDieBetweenDeltas();
    void transcriptSlotMayAddText();
    void transcriptSlotMayAddTextWhereTheCursorWasMoved();
    void hiddenPanelShowsTheEndOnceItIsShown();
    void documentOfTheHostIsLaidOutWhereThePanelDies();
};

void TestAgentChatPanelStream::textAndCursorAreRightAfterEachDelta()
{
    showPanel();
    QString expected = "智能体\n";
    for (const QString &delta : QStringList{"Hel", "lo\n", "", "世界", "\nend"}) {
        m_panel->appendAgentDelta(delta);
        expected += delta;
        QCOMPARE(plainText(), expected);
        QVERIFY(cursorIsAtEnd());
    }
}

void TestAgentChatPanelStream::viewFollowsByTheEndOfTheTurn()
{
    showPanel();
    streamLines(40);
    QCoreApplication::processEvents();
    QVERIFY(viewIsAtEnd());
    QVERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
}

void TestAgentChatPanelStream::viewFollowsTurnAfterTurn()
{
    showPanel();
    m_panel->beginAgentMessage();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    for (int turn = 1; turn <= 5; ++turn) {
        streamLines(40);
        QTRY_COMPARE(layouts.count(), turn);
        QVERIFY(viewIsAtEnd());
        QVERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
    }
}

void TestAgentChatPanelStream::viewFollowsWhereTheUserHadScrolledUp()
{
    showPanel();
    streamLines(100);
    QCoreApplication::processEvents();
    bar()->setValue(0);
    m_history->moveCursor(QTextCursor::Start);
    m_panel->appendAgentDelta("end");
    QVERIFY(cursorIsAtEnd());
    QVERIFY(plainText().endsWith("Line 99\nend"));
    QTRY_VERIFY(viewIsAtEnd());
}

void TestAgentChatPanelStream::viewFollowsWhileALongTranscriptIsLaidOutAnew()
{
    showPanel();
    streamLines(20000);
    QCoreApplication::processEvents();
    m_panel->resize(350, 300);
    m_panel->appendAgentDelta("end");
    QCoreApplication::processEvents();
    QVERIFY(viewIsAtEnd());
    m_history->document()->size(); // ends a layout that Qt does in steps
    QVERIFY(viewIsAtEnd());

    m_panel->resize(500, 400);
    m_panel->appendUserMessage("message");
    m_history->document()->size();
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanelStream::viewGoesToAMessage_data()
{
    QTest::addColumn<Append>("append");
    QTest::newRow("of the user") << Append([](AgentChatPanel *panel) { panel->appendUserMessage("m"); });
    QTest::newRow("of the program") << Append([](AgentChatPanel *panel) { panel->appendSystemMessage("m"); });
}

void TestAgentChatPanelStream::viewGoesToAMessage()
{
    QFETCH(Append, append);
    showPanel();
    streamLines(100);
    QCoreApplication::processEvents();
    bar()->setValue(20);
    append(m_panel.get());
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanelStream::selectionIsGoneAfterADelta()
{
    m_panel->appendAgentDelta("abc");
    m_history->selectAll();
    m_panel->appendAgentDelta("def");
    QCOMPARE(plainText(), "智能体\nabcdef");
    QVERIFY(cursorIsAtEnd());
}

void TestAgentChatPanelStream::deltasOfOneTurnAreLaidOutOnce()
{
    m_panel->beginAgentMessage();
    QCoreApplication::processEvents();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    streamLines(1000);
    QCOMPARE(layouts.count(), 0);
    QCoreApplication::processEvents();
    QCOMPARE(layouts.count(), 1);
}

void TestAgentChatPanelStream::burstIsPaintedWhole_data()
{
    QTest::addColumn<bool>("panelIsPainted");
    QTest::newRow("the panel") << true;
    QTest::newRow("the transcript alone") << false;
}

void TestAgentChatPanelStream::burstIsPaintedWhole()
{
    QFETCH(bool, panelIsPainted);
    showPanel();
    QWidget *painted = panelIsPainted ? static_cast<QWidget *>(m_panel.get()) : m_history;
    m_panel->beginAgentMessage();
    streamLines(100);
    const QImage atOnce = painted->grab().toImage();
    QVERIFY(viewIsAtEnd());
    QCoreApplication::processEvents();
    QCOMPARE(atOnce, painted->grab().toImage());
}

void TestAgentChatPanelStream::messagesBetweenDeltasKeepTheirPlace()
{
    showPanel();
    m_panel->appendAgentDelta("a");
    m_panel->appendUserMessage("u");
    m_panel->appendAgentDelta("\nb");
    m_panel->appendSystemMessage("s");
    m_panel->finishAgentMessage();
    m_panel->appendAgentDelta("c");
    const QString expected = "智能体\na\n用户\nu\nb\n系统\ns\n智能体\nc";
    QCOMPARE(plainText(), expected);
    QCoreApplication::processEvents();
    QCOMPARE(plainText(), expected);
}

void TestAgentChatPanelStream::viewFollowsAMessageAfterABurst()
{
    showPanel();
    streamLines(100);
    m_panel->appendSystemMessage(longText());
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanelStream::transcriptMayChangeBetweenDeltas_data()
{
    QTest::addColumn<std::function<void(QTextBrowser *)>>("change");
    QTest::addColumn<QString>("before");
    using Change = std::function<void(QTextBrowser *)>;
    const QString streamed = "智能体\n" + longText();
    QTest::newRow("clear") << Change([](QTextBrowser *history) { history->clear(); }) << "";
    QTest::newRow("setHtml") << Change([](QTextBrowser *history) { history->setHtml("<p>new</p>"); })
                             << "new";
    QTest::newRow("setPlainText") << Change([](QTextBrowser *history) { history->setPlainText("x\ny"); })
                                  << "x\ny";
    QTest::newRow("append") << Change([](QTextBrowser *history) { history->append("x"); })
                            << streamed + "\nx";
    QTest::newRow("a new document") << Change([](QTextBrowser *history) {
        history->setDocument(new QTextDocument(history));
    }) << "";
    QTest::newRow("remove the start") << Change([](QTextBrowser *history) {
        QTextCursor cursor(history->document());
        cursor.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor, 50);
        cursor.removeSelectedText();
    }) << streamed.section('\n', 50);
    QTest::newRow("undo") << Change([](QTextBrowser *history) { history->undo(); }) << streamed;
    QTest::newRow("select all") << Change([](QTextBrowser *history) { history->selectAll(); }) << streamed;
    QTest::newRow("move the cursor") << Change([](QTextBrowser *history) {
        history->moveCursor(QTextCursor::Start);
    }) << streamed;
    QTest::newRow("find") << Change([](QTextBrowser *history) {
        history->find("Line 50", QTextDocument::FindBackward);
    }) << streamed;
    QTest::newRow("resize") << Change([](QTextBrowser *history) { history->window()->resize(300, 300); })
                            << streamed;
    QTest::newRow("scroll") << Change([](QTextBrowser *history) {
        history->verticalScrollBar()->setValue(10);
    }) << streamed;
    QTest::newRow("zoom") << Change([](QTextBrowser *history) { history->zoomIn(4); }) << streamed;
    QTest::newRow("grab") << Change([](QTextBrowser *history) { history->grab(); }) << streamed;
    QTest::newRow("hit test") << Change([](QTextBrowser *history) {
        history->cursorForPosition(QPoint(20, 90));
    }) << streamed;
    QTest::newRow("hide and show") << Change([](QTextBrowser *history) {
        history->hide();
        history->show();
    }) << streamed;
    QTest::newRow("a nested event loop")
        << Change([](QTextBrowser *) { QCoreApplication::processEvents(); }) << streamed;
}

void TestAgentChatPanelStream::transcriptMayChangeBetweenDeltas()
{
    QFETCH(std::function<void(QTextBrowser *)>, change);
    QFETCH(QString, before);
    showPanel();
    streamLines(50);
    QCoreApplication::processEvents();
    for (int line = 50; line < 100; ++line)
        m_panel->appendAgentDelta(QString("Line %1\n").arg(line));

    change(m_history);
    QCOMPARE(plainText(), before);
    m_panel->appendAgentDelta("more");
    QCOMPARE(plainText(), before + "more");
    QVERIFY(cursorIsAtEnd());
    m_panel->appendAgentDelta(longText());
    QCoreApplication::processEvents();
    QCOMPARE(plainText(), before + "more" + longText());
    QTRY_VERIFY(viewIsAtEnd());
    QVERIFY(!m_panel->grab().isNull());
}

void TestAgentChatPanelStream::deltasGoToTheDocumentThatTheTranscriptShows()
{
    QTextDocument first;
    QTextDocument second;
    m_history->setDocument(&first);
    m_panel->appendAgentDelta("a");
    QSignalSpy completed(&first, &QTextDocument::contentsChanged);
    m_history->setDocument(&second);
    m_panel->appendAgentDelta("b");
    QCOMPARE(first.toPlainText(), "智能体\na");
    QCOMPARE(completed.count(), 1);
    QCOMPARE(plainText(), "b");
    m_panel.reset();
}

void TestAgentChatPanelStream::selectionMadeAfterADeltaIsCopied()
{
    showPanel();
    m_panel->appendAgentDelta("Hello");
    m_history->selectAll();
    m_history->copy();
    QCOMPARE(QGuiApplication::clipboard()->text(), "智能体\nHello");
    QCoreApplication::processEvents();
    QCOMPARE(m_history->textCursor().selectedText().size(), 9);
}

void TestAgentChatPanelStream::userScrollsInTheCompleteTranscript()
{
    showPanel();
    streamLines(100);
    QTest::keyClick(m_history, Qt::Key_Home);
    QCOMPARE(bar()->value(), 0);
    QVERIFY(bar()->maximum() > 0);
    QCoreApplication::processEvents();
    QCOMPARE(bar()->value(), 0);
}

void TestAgentChatPanelStream::panelMayDieBetweenDeltas()
{
    showPanel();
    streamLines(100);
    m_panel.reset();
    QCoreApplication::processEvents();
}

void TestAgentChatPanelStream::transcriptSlotMayAddText()
{
    showPanel();
    m_panel->beginAgentMessage();
    int calls = 0;
    connect(m_history, &QTextEdit::textChanged, this, [&] {
        if (++calls == 1)
            m_panel->appendAgentDelta("!");
    });
    m_panel->appendAgentDelta("Hello");
    QTRY_COMPARE(calls, 2);
    QCOMPARE(plainText(), "智能体\nHello!");
    QVERIFY(cursorIsAtEnd());
}

void TestAgentChatPanelStream::transcriptSlotMayAddTextWhereTheCursorWasMoved()
{
    showPanel();
    streamLines(1);
    m_history->moveCursor(QTextCursor::Start);
    int calls = 0;
    connect(m_history, &QTextEdit::cursorPositionChanged, this, [&] {
        if (++calls == 1)
            m_panel->appendAgentDelta("a");
    });
    m_panel->appendAgentDelta("b");
    QVERIFY(calls > 0);
    QCOMPARE(plainText(), "智能体\nLine 0\nab");

    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    QTRY_VERIFY(layouts.count() > 0);
    QVERIFY(cursorIsAtEnd());
}

void TestAgentChatPanelStream::hiddenPanelShowsTheEndOnceItIsShown()
{
    streamLines(100);
    QCoreApplication::processEvents();
    showPanel();
    QTRY_VERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
}

void TestAgentChatPanelStream::documentOfTheHostIsLaidOutWhereThePanelDies()
{
    QTextDocument document;
    m_history->setDocument(&document);
    m_panel->beginAgentMessage();
    QSignalSpy layouts(&document, &QTextDocument::contentsChanged);
    m_panel->appendAgentDelta("a");
    m_panel.reset();
    QCOMPARE(layouts.count(), 1);
}

QTEST_MAIN(TestAgentChatPanelStream)
#include "tst_agentchatpanel_stream.moc"
