#include "support/chatpaneltest.h"

#include <QBoxLayout>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(std::function<void(AgentChatPanel *)>)

namespace {

const QColor userColor("#1d4ed8");
const QColor systemColor("#64748b");
const QColor agentColor("#059669");

} // namespace

class TestAgentChatPanel : public ChatPanelTest
{
    Q_OBJECT

private Q_SLOTS:
    void init() { createPanel(); }
    void cleanup() { m_panel.reset(); }

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
    void lineEndIsOneLineBreak_data();
    void lineEndIsOneLineBreak();
    void lineEndIsOneLineBreakAcrossDeltas_data();
    void lineEndIsOneLineBreakAcrossDeltas();
    void oddCharactersDoNoHarm_data();
    void oddCharactersDoNoHarm();
};

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

void TestAgentChatPanel::lineEndIsOneLineBreak_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("line feed") << "a\nb"
                               << "a\nb";
    QTest::newRow("carriage return and line feed") << "a\r\nb"
                                                   << "a\nb";
    QTest::newRow("carriage return") << "a\rb"
                                     << "a\nb";
    QTest::newRow("the other way round") << "a\n\rb"
                                         << "a\n\nb";
    QTest::newRow("an empty line") << "a\r\n\r\nb"
                                   << "a\n\nb";
}

void TestAgentChatPanel::lineEndIsOneLineBreak()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    m_panel->appendUserMessage(text);
    m_panel->appendSystemMessage(text);
    m_panel->appendAgentDelta(text);
    QCOMPARE(plainText(), "用户\n" + shown + "\n系统\n" + shown + "\n智能体\n" + shown);
}

void TestAgentChatPanel::lineEndIsOneLineBreakAcrossDeltas_data()
{
    QTest::addColumn<QStringList>("deltas");
    QTest::addColumn<QString>("shown");
    QTest::newRow("split") << QStringList{"a\r", "\nb"} << "a\nb";
    QTest::newRow("split around nothing") << QStringList{"a\r", "", "\nb"} << "a\nb";
    QTest::newRow("one by one") << QStringList{"a", "\r", "\n", "\r", "\n", "b"} << "a\n\nb";
    QTest::newRow("two line feeds") << QStringList{"a\n", "\nb"} << "a\n\nb";
    QTest::newRow("two after a carriage return") << QStringList{"a\r", "\n\nb"} << "a\n\nb";
}

void TestAgentChatPanel::lineEndIsOneLineBreakAcrossDeltas()
{
    QFETCH(QStringList, deltas);
    QFETCH(QString, shown);
    for (const QString &delta : deltas)
        m_panel->appendAgentDelta(delta);
    QCOMPARE(plainText(), "智能体\n" + shown);

    m_panel->appendAgentDelta("\r");
    m_panel->appendSystemMessage("s");
    m_panel->appendAgentDelta("\nc");
    QVERIFY(plainText().endsWith("\n系统\ns\nc"));
    m_panel->appendAgentDelta("\r");
    m_clear->click();
    m_panel->appendAgentDelta("\nd");
    QCOMPARE(plainText(), "\nd");
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

QTEST_MAIN(TestAgentChatPanel)
#include "tst_agentchatpanel.moc"
