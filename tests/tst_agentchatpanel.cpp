#include <qtagent/widgets/agentchatpanel.h>

#include <QBoxLayout>
#include <QClipboard>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextBrowser>
#include <QtTest>

#include <functional>
#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QColor userColor("#1d4ed8");
const QColor systemColor("#64748b");
const QColor agentColor("#059669");

QString longText()
{
    QString text;
    for (int line = 0; line < 100; ++line)
        text += QString("Line %1\n").arg(line);
    return text;
}

QTextCharFormat formatOf(const QTextBlock &block)
{
    return block.begin().fragment().charFormat();
}

void press(QWidget *widget, Qt::Key key, Qt::KeyboardModifiers modifiers)
{
    QKeyEvent event(QEvent::KeyPress, key, modifiers, "\r");
    QCoreApplication::sendEvent(widget, &event);
}

} // namespace

class TestAgentChatPanel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsIdleAndEmpty();
    void childrenStandInTheirOrder();
    void signalsAreDeclaredInTheirOrder();
    void inputsHaveAccessibleNames();

    void messageStandsBelowItsLabel_data();
    void messageStandsBelowItsLabel();
    void textIsNeverMarkup_data();
    void textIsNeverMarkup();
    void deltaIsNeverMarkup();
    void externalLinksOpenInTheSystemBrowser();

    void deltasJoinBelowOneHeader();
    void deltaOpensAMessageByItself();
    void secondBeginWritesNothing();
    void deltaAfterFinishOpensANewMessage();
    void deltaAfterASystemMessageContinuesBelowIt();
    void finishWritesNothing();
    void streamedTextTakesNoFormatOfALabel();
    void blocksAfterStreamedTextHaveTheirOwnFormats();
    void labelsKeepTheirLookWhereverTheCursorStands();
    void oddCharactersDoNoHarm_data();
    void oddCharactersDoNoHarm();

    void busySwapsSendAndStop();
    void sendEmitsTheTrimmedTextAndEmptiesTheInput();
    void blankInputIsNotSent();
    void controlReturnSends_data();
    void controlReturnSends();
    void controlReturnDoesNothingWhileBusy();
    void returnAloneMakesALine();
    void tabLeavesTheInput();
    void stopOnlyEmits();
    void clearEmptiesTheTranscriptBeforeItEmits();
    void clearKeepsAnAgentMessageOpen();
    void panelMayDieInItsSlots_data();
    void panelMayDieInItsSlots();

    void textAndCursorAreRightAfterEachDelta();
    void viewFollowsByTheEndOfTheTurn();
    void viewFollowsWhereTheUserHadScrolledUp();
    void viewFollowsWhileALongTranscriptIsLaidOutAnew();
    void messagesLeaveAScrolledViewAlone();
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
    void hiddenPanelShowsTheEndOnceItIsShown();

private:
    void showPanel();
    void streamLines(int count);
    QString plainText() const { return m_history->toPlainText(); }
    QTextBlock block(int number) const { return m_history->document()->findBlockByNumber(number); }
    QScrollBar *bar() const { return m_history->verticalScrollBar(); }
    bool cursorIsAtEnd() const;
    bool viewIsAtEnd() const;

    std::unique_ptr<AgentChatPanel> m_panel;
    QTextBrowser *m_history = nullptr;
    QPlainTextEdit *m_input = nullptr;
    QPushButton *m_send = nullptr;
    QPushButton *m_stop = nullptr;
    QPushButton *m_clear = nullptr;
};

Q_DECLARE_METATYPE(std::function<void(AgentChatPanel *)>)
Q_DECLARE_METATYPE(std::function<void(QTextBrowser *)>)

void TestAgentChatPanel::init()
{
    m_panel = std::make_unique<AgentChatPanel>();
    m_history = m_panel->findChild<QTextBrowser *>("agentChatHistory");
    m_input = m_panel->findChild<QPlainTextEdit *>("agentChatInput");
    m_send = m_panel->findChild<QPushButton *>("agentChatSend");
    m_stop = m_panel->findChild<QPushButton *>("agentChatStop");
    m_clear = m_panel->findChild<QPushButton *>("agentChatClear");
    QVERIFY(m_history && m_input && m_send && m_stop && m_clear);
}

void TestAgentChatPanel::cleanup()
{
    m_panel.reset();
}

void TestAgentChatPanel::showPanel()
{
    m_panel->resize(500, 400);
    m_panel->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
}

void TestAgentChatPanel::streamLines(int count)
{
    for (int line = 0; line < count; ++line)
        m_panel->appendAgentDelta(QString("Line %1\n").arg(line));
}

bool TestAgentChatPanel::cursorIsAtEnd() const
{
    return m_history->textCursor().atEnd() && !m_history->textCursor().hasSelection();
}

bool TestAgentChatPanel::viewIsAtEnd() const
{
    return bar()->maximum() > 0 && bar()->value() == bar()->maximum();
}

void TestAgentChatPanel::startsIdleAndEmpty()
{
    QCOMPARE(plainText(), "");
    QVERIFY(m_history->isReadOnly());
    QCOMPARE(m_input->toPlainText(), "");
    QCOMPARE(m_input->placeholderText(), "请输入 Orvane 问题...");
    QCOMPARE(m_input->minimumHeight(), 82);
    QCOMPARE(m_input->maximumHeight(), 82);
    QCOMPARE(m_send->text(), "发送");
    QCOMPARE(m_stop->text(), "停止");
    QCOMPARE(m_clear->text(), "清空");
    QVERIFY(m_send->isEnabled());
    QVERIFY(!m_stop->isEnabled());
    QVERIFY(m_clear->isEnabled());
}

void TestAgentChatPanel::childrenStandInTheirOrder()
{
    const auto *column = qobject_cast<QVBoxLayout *>(m_panel->layout());
    QVERIFY(column);
    QCOMPARE(column->contentsMargins(), QMargins());
    QCOMPARE(column->spacing(), 8);
    QCOMPARE(column->count(), 3);
    QCOMPARE(column->itemAt(0)->widget(), m_history);
    QCOMPARE(column->stretch(0), 1);
    QCOMPARE(column->itemAt(1)->widget(), m_input);
    QCOMPARE(column->stretch(1), 0);

    const auto *row = qobject_cast<QHBoxLayout *>(column->itemAt(2)->layout());
    QVERIFY(row);
    QCOMPARE(row->count(), 4);
    QCOMPARE(row->itemAt(0)->widget(), m_clear);
    QVERIFY(row->itemAt(1)->spacerItem());
    QCOMPARE(row->itemAt(2)->widget(), m_stop);
    QCOMPARE(row->itemAt(3)->widget(), m_send);
}

void TestAgentChatPanel::signalsAreDeclaredInTheirOrder()
{
    const QMetaObject &meta = AgentChatPanel::staticMetaObject;
    const int first = meta.methodOffset();
    QCOMPARE(meta.method(first).methodSignature(), QByteArray("sendRequested(QString)"));
    QCOMPARE(meta.method(first + 1).methodSignature(), QByteArray("stopRequested()"));
    QCOMPARE(meta.method(first + 2).methodSignature(), QByteArray("clearRequested()"));
}

void TestAgentChatPanel::inputsHaveAccessibleNames()
{
    QCOMPARE(m_input->accessibleName(), "问题");
    QCOMPARE(m_history->accessibleName(), "对话记录");
}

void TestAgentChatPanel::messageStandsBelowItsLabel_data()
{
    QTest::addColumn<std::function<void(AgentChatPanel *)>>("append");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QColor>("color");
    using Append = std::function<void(AgentChatPanel *)>;
    QTest::newRow("user") << Append([](AgentChatPanel *panel) { panel->appendUserMessage("text"); }) << "用户"
                          << userColor;
    QTest::newRow("system") << Append([](AgentChatPanel *panel) { panel->appendSystemMessage("text"); })
                            << "系统" << systemColor;
    QTest::newRow("agent") << Append([](AgentChatPanel *panel) { panel->appendAgentDelta("text"); })
                           << "智能体" << agentColor;
}

void TestAgentChatPanel::messageStandsBelowItsLabel()
{
    QFETCH(std::function<void(AgentChatPanel *)>, append);
    QFETCH(QString, label);
    QFETCH(QColor, color);
    append(m_panel.get());

    QCOMPARE(plainText(), label + "\ntext");
    QCOMPARE(formatOf(block(0)).foreground().color(), color);
    QVERIFY(formatOf(block(0)).fontWeight() >= QFont::DemiBold);
    QCOMPARE(formatOf(block(1)).foreground().style(), Qt::NoBrush);
    QCOMPARE(formatOf(block(1)).fontWeight(), int(QFont::Normal));
}

void TestAgentChatPanel::textIsNeverMarkup_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("a tag and a line break") << "<b>bold</b>\nnext"
                                            << "<b>bold</b>\nnext";
    QTest::newRow("an entity") << "a &lt; b &amp;"
                               << "a &lt; b &amp;";
    QTest::newRow("quotes") << "\"it's\""
                            << "\"it's\"";
    QTest::newRow("a link and an image") << "<a href='http://x.test'>x</a><img src='y.png'>"
                                         << "<a href='http://x.test'>x</a><img src='y.png'>";
    QTest::newRow("markers of the template") << "%1 %2 %3 100%"
                                             << "%1 %2 %3 100%";
    QTest::newRow("the end of the division") << "</div><h1>x"
                                             << "</div><h1>x";
    QTest::newRow("runs of blanks") << "  a    b"
                                    << "  a    b";
    QTest::newRow("empty lines") << "a\n\n\nb"
                                 << "a\n\n\nb";
}

void TestAgentChatPanel::textIsNeverMarkup()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    m_panel->appendUserMessage(text);
    m_panel->appendSystemMessage(text);
    QCOMPARE(plainText(), "用户\n" + shown + "\n系统\n" + shown);
    QVERIFY(!m_history->toHtml().contains("<img"));
    QVERIFY(!m_history->toHtml().contains("<a "));
}

void TestAgentChatPanel::deltaIsNeverMarkup()
{
    m_panel->appendAgentDelta("<b>a</b> &lt; <img src='y.png'> %1\nnext");
    QCOMPARE(plainText(), "智能体\n<b>a</b> &lt; <img src='y.png'> %1\nnext");
}

void TestAgentChatPanel::externalLinksOpenInTheSystemBrowser()
{
    QVERIFY(m_history->openExternalLinks());
}

void TestAgentChatPanel::deltasJoinBelowOneHeader()
{
    m_panel->beginAgentMessage();
    QCOMPARE(plainText(), "智能体\n");
    m_panel->appendAgentDelta("Hel");
    m_panel->appendAgentDelta("lo");
    QCOMPARE(plainText(), "智能体\nHello");
}

void TestAgentChatPanel::deltaOpensAMessageByItself()
{
    m_panel->appendAgentDelta("a");
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\nab");
}

void TestAgentChatPanel::secondBeginWritesNothing()
{
    m_panel->beginAgentMessage();
    m_panel->beginAgentMessage();
    m_panel->appendAgentDelta("a");
    m_panel->beginAgentMessage();
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\nab");
}

void TestAgentChatPanel::deltaAfterFinishOpensANewMessage()
{
    m_panel->appendAgentDelta("a");
    m_panel->finishAgentMessage();
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\na\n智能体\nb");
}

void TestAgentChatPanel::deltaAfterASystemMessageContinuesBelowIt()
{
    m_panel->appendAgentDelta("a");
    m_panel->appendSystemMessage("error");
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\na\n系统\nerrorb");
}

void TestAgentChatPanel::finishWritesNothing()
{
    m_panel->finishAgentMessage();
    QCOMPARE(plainText(), "");
    m_panel->appendAgentDelta("a");
    m_panel->finishAgentMessage();
    m_panel->finishAgentMessage();
    QCOMPARE(plainText(), "智能体\na");
}

void TestAgentChatPanel::streamedTextTakesNoFormatOfALabel()
{
    m_panel->appendUserMessage("q");
    m_panel->appendAgentDelta("a\nb");
    QCOMPARE(plainText(), "用户\nq\n智能体\na\nb");
    for (int number : {3, 4}) {
        QCOMPARE(formatOf(block(number)).foreground().style(), Qt::NoBrush);
        QCOMPARE(formatOf(block(number)).fontWeight(), int(QFont::Normal));
        QCOMPARE(block(number).blockFormat().topMargin(), 0.0);
        QCOMPARE(block(number).blockFormat().bottomMargin(), 0.0);
    }
}

void TestAgentChatPanel::blocksAfterStreamedTextHaveTheirOwnFormats()
{
    m_panel->appendAgentDelta("a");
    m_panel->appendSystemMessage("s");
    m_panel->appendUserMessage("u");
    QCOMPARE(plainText(), "智能体\na\n系统\ns\n用户\nu");
    QCOMPARE(formatOf(block(0)).foreground().color(), agentColor);
    QCOMPARE(formatOf(block(2)).foreground().color(), systemColor);
    QCOMPARE(formatOf(block(4)).foreground().color(), userColor);
    for (int number : {1, 3, 5})
        QCOMPARE(formatOf(block(number)).foreground().style(), Qt::NoBrush);
}

void TestAgentChatPanel::labelsKeepTheirLookWhereverTheCursorStands()
{
    m_panel->appendUserMessage("u");
    m_history->moveCursor(QTextCursor::Start);
    m_history->moveCursor(QTextCursor::NextCharacter);
    m_panel->appendSystemMessage("s");
    m_panel->beginAgentMessage();
    m_panel->appendAgentDelta("a");
    m_panel->appendUserMessage("v");
    QCOMPARE(plainText(), "用户\nu\n系统\ns\n智能体\na\n用户\nv");
    for (int label : {0, 2, 4, 6}) {
        QCOMPARE(block(label).blockFormat().topMargin(), 10.0);
        QCOMPARE(block(label).blockFormat().bottomMargin(), 4.0);
        QVERIFY(formatOf(block(label)).fontWeight() >= QFont::DemiBold);
        QCOMPARE(block(label + 1).blockFormat().topMargin(), 0.0);
        QCOMPARE(formatOf(block(label + 1)).foreground().style(), Qt::NoBrush);
        QCOMPARE(formatOf(block(label + 1)).fontWeight(), int(QFont::Normal));
    }
}

void TestAgentChatPanel::oddCharactersDoNoHarm_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("null") << QString(QChar(0));
    QTest::newRow("carriage return and line feed") << "\r\n";
    QTest::newRow("line separator") << QString(QChar(0x2028));
    QTest::newRow("paragraph separator") << QString(QChar(0x2029));
    QTest::newRow("beginning of a frame") << QString(QChar(0xfdd0));
    QTest::newRow("object replacement") << QString(QChar(0xfffc));
    QTest::newRow("half of a pair") << QString(QChar(0xd83d));
    QTest::newRow("right to left") << QString::fromUtf8("שלום");
    QTest::newRow("nothing") << QString();
}

void TestAgentChatPanel::oddCharactersDoNoHarm()
{
    QFETCH(QString, text);
    showPanel();
    m_panel->appendUserMessage("[" + text + "]");
    m_panel->appendAgentDelta("<" + text);
    m_panel->appendAgentDelta(text + ">");
    QVERIFY(!m_panel->grab().isNull());
    QVERIFY(plainText().startsWith("用户\n["));
    QVERIFY(plainText().contains("]\n智能体\n<"));
    QVERIFY(plainText().endsWith(">"));
}

void TestAgentChatPanel::busySwapsSendAndStop()
{
    m_input->setPlainText("draft");
    m_panel->setBusy(true);
    QVERIFY(!m_send->isEnabled());
    QVERIFY(m_stop->isEnabled());
    QVERIFY(m_clear->isEnabled());
    QVERIFY(m_input->isEnabled());
    QCOMPARE(m_input->toPlainText(), "draft");
    m_panel->setBusy(false);
    QVERIFY(m_send->isEnabled());
    QVERIFY(!m_stop->isEnabled());
}

void TestAgentChatPanel::sendEmitsTheTrimmedTextAndEmptiesTheInput()
{
    QStringList sent;
    QString inputMeanwhile = "not sent";
    connect(m_panel.get(), &AgentChatPanel::sendRequested, this, [&](const QString &text) {
        sent << text;
        inputMeanwhile = m_input->toPlainText();
    });
    m_input->setPlainText(" \n Hi\nthere \t");
    m_send->click();
    QCOMPARE(sent, QStringList{"Hi\nthere"});
    QCOMPARE(inputMeanwhile, "");
    QCOMPARE(plainText(), "");
}

void TestAgentChatPanel::blankInputIsNotSent()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("   ");
    m_send->click();
    QCOMPARE(sent.count(), 0);
    QCOMPARE(m_input->toPlainText(), "   ");
}

void TestAgentChatPanel::controlReturnSends_data()
{
    QTest::addColumn<Qt::Key>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::newRow("Return") << Qt::Key_Return << Qt::KeyboardModifiers(Qt::ControlModifier);
    QTest::newRow("Enter of the keypad")
        << Qt::Key_Enter << Qt::KeyboardModifiers(Qt::ControlModifier | Qt::KeypadModifier);
}

void TestAgentChatPanel::controlReturnSends()
{
    QFETCH(Qt::Key, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("Hi");
    press(m_input, key, modifiers);
    QCOMPARE(sent.count(), 1);
    QCOMPARE(sent.first().first().toString(), "Hi");
    QCOMPARE(m_input->toPlainText(), "");
}

void TestAgentChatPanel::controlReturnDoesNothingWhileBusy()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    m_input->setPlainText("Hi");
    m_panel->setBusy(true);
    press(m_input, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(sent.count(), 0);
    QCOMPARE(m_input->toPlainText(), "Hi");
}

void TestAgentChatPanel::returnAloneMakesALine()
{
    QSignalSpy sent(m_panel.get(), &AgentChatPanel::sendRequested);
    QTest::keyClicks(m_input, "a");
    press(m_input, Qt::Key_Return, Qt::NoModifier);
    QTest::keyClicks(m_input, "b");
    QCOMPARE(m_input->toPlainText(), "a\nb");
    QCOMPARE(sent.count(), 0);
}

void TestAgentChatPanel::tabLeavesTheInput()
{
    showPanel();
    m_panel->activateWindow();
    m_input->setFocus();
    QTRY_VERIFY(m_input->hasFocus());
    QTest::keyClick(m_input, Qt::Key_Tab);
    QCOMPARE(m_input->toPlainText(), "");
    QVERIFY(m_send->hasFocus());
}

void TestAgentChatPanel::stopOnlyEmits()
{
    QSignalSpy stopped(m_panel.get(), &AgentChatPanel::stopRequested);
    m_panel->appendAgentDelta("a");
    m_panel->setBusy(true);
    m_stop->click();
    QCOMPARE(stopped.count(), 1);
    QVERIFY(m_stop->isEnabled());
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "智能体\nab");
}

void TestAgentChatPanel::clearEmptiesTheTranscriptBeforeItEmits()
{
    QStringList transcripts;
    connect(m_panel.get(), &AgentChatPanel::clearRequested, this, [&] { transcripts << plainText(); });
    m_panel->appendUserMessage("q");
    m_panel->appendAgentDelta("a");
    m_clear->click();
    QCOMPARE(transcripts, QStringList{""});
    QCoreApplication::processEvents();
    QCOMPARE(plainText(), "");
}

void TestAgentChatPanel::clearKeepsAnAgentMessageOpen()
{
    m_panel->appendAgentDelta("a");
    m_clear->click();
    m_panel->appendAgentDelta("b");
    QCOMPARE(plainText(), "b");
    QCOMPARE(formatOf(block(0)).foreground().style(), Qt::NoBrush);
    QCOMPARE(formatOf(block(0)).fontWeight(), int(QFont::Normal));
    m_panel->finishAgentMessage();
    m_clear->click();
    m_panel->appendAgentDelta("c");
    QCOMPARE(plainText(), "智能体\nc");
}

void TestAgentChatPanel::panelMayDieInItsSlots_data()
{
    QTest::addColumn<QString>("button");
    QTest::newRow("sendRequested") << "agentChatSend";
    QTest::newRow("stopRequested") << "agentChatStop";
    QTest::newRow("clearRequested") << "agentChatClear";
    QTest::newRow("sendRequested by keyboard") << "";
}

void TestAgentChatPanel::panelMayDieInItsSlots()
{
    QFETCH(QString, button);
    m_input->setPlainText("Hi");
    m_panel->appendAgentDelta("a");
    m_stop->setEnabled(true);
    const auto die = [this] { m_panel.reset(); };
    connect(m_panel.get(), &AgentChatPanel::sendRequested, this, die);
    connect(m_panel.get(), &AgentChatPanel::stopRequested, this, die);
    connect(m_panel.get(), &AgentChatPanel::clearRequested, this, die);
    if (button.isEmpty())
        press(m_input, Qt::Key_Return, Qt::ControlModifier);
    else
        m_panel->findChild<QPushButton *>(button)->click();
    QVERIFY(!m_panel);
    QCoreApplication::processEvents();
}

void TestAgentChatPanel::textAndCursorAreRightAfterEachDelta()
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

void TestAgentChatPanel::viewFollowsByTheEndOfTheTurn()
{
    showPanel();
    for (int turn = 0; turn < 5; ++turn) {
        streamLines(40);
        QCoreApplication::processEvents();
        QVERIFY(viewIsAtEnd());
        QVERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
    }
}

void TestAgentChatPanel::viewFollowsWhereTheUserHadScrolledUp()
{
    showPanel();
    streamLines(100);
    QCoreApplication::processEvents();
    bar()->setValue(0);
    m_history->moveCursor(QTextCursor::Start);
    m_panel->appendAgentDelta("end");
    QVERIFY(cursorIsAtEnd());
    QVERIFY(plainText().endsWith("Line 99\nend"));
    QCoreApplication::processEvents();
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanel::viewFollowsWhileALongTranscriptIsLaidOutAnew()
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
}

void TestAgentChatPanel::messagesLeaveAScrolledViewAlone()
{
    showPanel();
    streamLines(100);
    QCoreApplication::processEvents();
    bar()->setValue(20);
    m_panel->appendUserMessage("u");
    m_panel->appendSystemMessage("s");
    QCoreApplication::processEvents();
    QCOMPARE(bar()->value(), 20);
}

void TestAgentChatPanel::selectionIsGoneAfterADelta()
{
    m_panel->appendAgentDelta("abc");
    m_history->selectAll();
    m_panel->appendAgentDelta("def");
    QCOMPARE(plainText(), "智能体\nabcdef");
    QVERIFY(cursorIsAtEnd());
}

void TestAgentChatPanel::deltasOfOneTurnAreLaidOutOnce()
{
    m_panel->beginAgentMessage();
    QCoreApplication::processEvents();
    QSignalSpy layouts(m_history->document(), &QTextDocument::contentsChanged);
    streamLines(1000);
    QCOMPARE(layouts.count(), 0);
    QCoreApplication::processEvents();
    QCOMPARE(layouts.count(), 1);
}

void TestAgentChatPanel::burstIsPaintedWhole_data()
{
    QTest::addColumn<bool>("panelIsPainted");
    QTest::newRow("the panel") << true;
    QTest::newRow("the transcript alone") << false;
}

void TestAgentChatPanel::burstIsPaintedWhole()
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

void TestAgentChatPanel::messagesBetweenDeltasKeepTheirPlace()
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

void TestAgentChatPanel::viewFollowsAMessageAfterABurst()
{
    showPanel();
    streamLines(100);
    m_panel->appendSystemMessage(longText());
    QVERIFY(viewIsAtEnd());
}

void TestAgentChatPanel::transcriptMayChangeBetweenDeltas_data()
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

void TestAgentChatPanel::transcriptMayChangeBetweenDeltas()
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
    QVERIFY(viewIsAtEnd());
    QVERIFY(!m_panel->grab().isNull());
}

void TestAgentChatPanel::deltasGoToTheDocumentThatTheTranscriptShows()
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

void TestAgentChatPanel::selectionMadeAfterADeltaIsCopied()
{
    showPanel();
    m_panel->appendAgentDelta("Hello");
    m_history->selectAll();
    m_history->copy();
    QCOMPARE(QGuiApplication::clipboard()->text(), "智能体\nHello");
    QCoreApplication::processEvents();
    QCOMPARE(m_history->textCursor().selectedText().size(), 9);
}

void TestAgentChatPanel::userScrollsInTheCompleteTranscript()
{
    showPanel();
    streamLines(100);
    QTest::keyClick(m_history, Qt::Key_Home);
    QCOMPARE(bar()->value(), 0);
    QVERIFY(bar()->maximum() > 0);
    QCoreApplication::processEvents();
    QCOMPARE(bar()->value(), 0);
}

void TestAgentChatPanel::panelMayDieBetweenDeltas()
{
    showPanel();
    streamLines(100);
    m_panel.reset();
    QCoreApplication::processEvents();
}

void TestAgentChatPanel::transcriptSlotMayAddText()
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

void TestAgentChatPanel::hiddenPanelShowsTheEndOnceItIsShown()
{
    streamLines(100);
    QCoreApplication::processEvents();
    showPanel();
    QTRY_VERIFY(m_history->viewport()->rect().contains(m_history->cursorRect()));
}

QTEST_MAIN(TestAgentChatPanel)
#include "tst_agentchatpanel.moc"
