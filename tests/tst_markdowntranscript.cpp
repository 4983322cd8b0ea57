#include "support/documentdump.h"
#include "support/transcriptview.h"

#include <qtagent/mockchatmodel.h>

#include <QAccessible>
#include <QClipboard>
#include <QDesktopServices>
#include <QHelpEvent>
#include <QMenu>
#include <QMimeData>
#include <QToolTip>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

using Format = MarkdownTranscript::Format;

const QColor green("#059669");

QClipboard *clipboard()
{
    return QGuiApplication::clipboard();
}

// Notes the addresses that would be opened.
class OpenedAddresses : public QObject
{
    Q_OBJECT

public:
    OpenedAddresses()
    {
        for (const char *scheme : {"http", "https", "mailto"})
            QDesktopServices::setUrlHandler(scheme, this, "open");
    }
    ~OpenedAddresses() override
    {
        for (const char *scheme : {"http", "https", "mailto"})
            QDesktopServices::unsetUrlHandler(scheme);
    }
    Q_DISABLE_COPY(OpenedAddresses)

    QStringList addresses;

public Q_SLOTS:
    void open(const QUrl &address) { addresses += address.toString(); }
};

} // namespace

class TestMarkdownTranscript : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_view.reset(); }

    void startsEmpty();
    void messagesAreNumbered();
    void beginFinishesTheOpenMessage();
    void deltaBeginsAMessageWithoutALabel();
    void emptyDeltaDoesNothing();
    void finishWithoutAMessageDoesNothing();
    void indexOutsideIsHarmless_data();
    void indexOutsideIsHarmless();
    void sourceIsExact_data();
    void sourceIsExact();
    void sourceHasTheNewestDelta();
    void clearForgetsEverything();

    void labelIsOneBoldLineInItsColor_data();
    void labelIsOneBoldLineInItsColor();
    void labelWithoutColorHasThatOfThePalette();
    void emptyLabelHasNoLine();
    void plainTextIsShownAsItStands();
    void colorsComeFromThePalette();
    void newPaletteKeepsTextAndSelection();

    void deltaIsShownByTheEndOfTheTurn();
    void deltaIsShownAtOnce_data();
    void deltaIsShownAtOnce();
    void deltasOfOneTurnAreShownOnce();
    void referencesTakeEffectAtTheEnd();
    void referenceThatIsShownAsNothingRemovesItsLine();
    void referenceChangesItsOwnLineOnly();
    void replyStreamsIntoTheTranscript();
    void messageAtFindsMessages();

    void copyWithoutASelectionCopiesTheMessage();
    void copyCopiesTheSelectionAsShown();
    void selectionIsCopiedAsTextOnly();
    void menuCopiesTheMessage();
    void menuCopiesTheMessageItWasOpenedFor();
    void linkIsOpenedOnce_data();
    void linkIsOpenedOnce();
    void toolTipOfALinkIsItsAddress();
    void keysGoFromMessageToMessage();
    void readersFindTheTranscript();

private:
    QMenu *openMenuAt(const QString &text);

    std::unique_ptr<TranscriptView> m_view;
};

void TestMarkdownTranscript::init()
{
    m_view = std::make_unique<TranscriptView>();
    clipboard()->clear();
}

void TestMarkdownTranscript::startsEmpty()
{
    QCOMPARE(m_view->messageCount(), 0);
    QCOMPARE(m_view->toPlainText(), QString());
    QVERIFY(m_view->isFollowing());
    QVERIFY(m_view->isReadOnly());
    QVERIFY(!m_view->isUndoRedoEnabled());
}

void TestMarkdownTranscript::messagesAreNumbered()
{
    QCOMPARE(m_view->beginMessage("one", green), 0);
    m_view->appendDelta("a");
    QCOMPARE(m_view->beginMessage("two", green, Format::PlainText), 1);
    QCOMPARE(m_view->beginMessage({}, {}), 2);
    QCOMPARE(m_view->messageCount(), 3);
}

void TestMarkdownTranscript::beginFinishesTheOpenMessage()
{
    m_view->beginMessage("one", green);
    m_view->appendDelta("see [a]\n\n[a]: http://b.c");
    m_view->beginMessage("two", green);
    QCOMPARE(m_view->toPlainText(), QString("one\nsee a\ntwo"));
}

void TestMarkdownTranscript::deltaBeginsAMessageWithoutALabel()
{
    m_view->add("*a*");
    QCOMPARE(m_view->messageCount(), 1);
    QCOMPARE(m_view->toPlainText(), QString("a"));
    m_view->finishMessage();
    m_view->add("b");
    QCOMPARE(m_view->messageCount(), 2);
    QCOMPARE(m_view->toPlainText(), QString("a\nb"));
}

void TestMarkdownTranscript::emptyDeltaDoesNothing()
{
    m_view->appendDelta({});
    QCOMPARE(m_view->messageCount(), 0);
}

void TestMarkdownTranscript::finishWithoutAMessageDoesNothing()
{
    m_view->finishMessage();
    m_view->add("a");
    m_view->finishMessage();
    m_view->finishMessage();
    QCOMPARE(m_view->messageCount(), 1);
    QCOMPARE(m_view->toPlainText(), QString("a"));
}

void TestMarkdownTranscript::indexOutsideIsHarmless_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("below") << -1;
    QTest::newRow("above") << 1;
}

void TestMarkdownTranscript::indexOutsideIsHarmless()
{
    QFETCH(int, index);
    m_view->add("a");
    QVERIFY(m_view->messageSource(index).isNull());
    m_view->copyMessage(index);
    QCOMPARE(clipboard()->text(), QString());
    m_view->scrollToMessage(index);
    QCOMPARE(m_view->messageAt(-1), -1);
    QCOMPARE(m_view->messageAt(2), -1);
}

void TestMarkdownTranscript::sourceIsExact_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("shown");

    const QString replacement(QChar(0xfffd));
    QTest::newRow("NUL") << QString::fromLatin1("a\0b", 3) << "a" + replacement + "b";
    QTest::newRow("lone surrogates") << QString("a") + QChar(0xd83d) + "b" + QChar(0xdc00)
                                     << "a" + replacement + "b" + replacement;
    QTest::newRow("carriage returns") << "a\r\n\r\nb\r"
                                      << "a\nb";
    QTest::newRow("blanks") << " *a* \n\n"
                            << "a";
}

void TestMarkdownTranscript::sourceIsExact()
{
    QFETCH(QString, source);
    QFETCH(QString, shown);
    for (const QChar character : source)
        m_view->add(character);
    QCOMPARE(m_view->messageSource(0), source);
    m_view->finishMessage();
    QCOMPARE(m_view->messageSource(0), source);
    QCOMPARE(m_view->toPlainText(), shown);
}

void TestMarkdownTranscript::sourceHasTheNewestDelta()
{
    m_view->beginMessage({}, {});
    QVERIFY(!m_view->messageSource(0).isNull());
    m_view->appendDelta("a");
    QCOMPARE(m_view->messageSource(0), QString("a"));
    QCOMPARE(m_view->toPlainText(), QString());
}

void TestMarkdownTranscript::clearForgetsEverything()
{
    m_view->showSmall();
    m_view->beginMessage("one", green);
    m_view->addPage();
    m_view->appendDelta("```\ncode");
    m_view->setFollowing(false);
    m_view->clear();
    QCOMPARE(m_view->messageCount(), 0);
    QCOMPARE(m_view->toPlainText(), QString());
    QVERIFY(m_view->messageSource(0).isNull());
    QVERIFY(m_view->isFollowing());
    QVERIFY(m_view->copyButtons().isEmpty());
    m_view->add("a");
    QCOMPARE(m_view->messageSource(0), QString("a"));
    TranscriptView fresh;
    fresh.add("a");
    QCOMPARE(DocumentDump::all(*m_view->document()), DocumentDump::all(*fresh.document()));
}

void TestMarkdownTranscript::labelIsOneBoldLineInItsColor_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("shown");

    QTest::newRow("plain") << "智能体"
                           << "智能体";
    QTest::newRow("markup") << "<b>a</b> **b** [c](http://d)"
                            << "<b>a</b> **b** [c](http://d)";
    QTest::newRow("lines") << "a\nb\r\nc\u2028d\u2029e"
                           << "a b  c d e";
    QTest::newRow("odd characters") << QString("a") + QChar(0xd800) + QChar(0xfdd0)
                                    << QString("a\ufffd\ufffd");
}

void TestMarkdownTranscript::labelIsOneBoldLineInItsColor()
{
    QFETCH(QString, label);
    QFETCH(QString, shown);
    m_view->beginMessage(label, green);
    m_view->add("text");
    QCOMPARE(m_view->toPlainText(), shown + "\ntext");
    const QTextCharFormat format = m_view->document()->begin().begin().fragment().charFormat();
    QCOMPARE(format.foreground().color(), green);
    QCOMPARE(format.fontWeight(), int(QFont::Bold));
    QVERIFY(m_view->formatOf("text").fontWeight() != QFont::Bold);
    QVERIFY(!m_view->formatOf("text").hasProperty(QTextFormat::ForegroundBrush));
}

void TestMarkdownTranscript::labelWithoutColorHasThatOfThePalette()
{
    m_view->beginMessage("a", {});
    QVERIFY(!m_view->formatOf("a").hasProperty(QTextFormat::ForegroundBrush));
}

void TestMarkdownTranscript::emptyLabelHasNoLine()
{
    m_view->beginMessage("", green);
    m_view->add("a");
    m_view->beginMessage({}, green);
    m_view->add("b");
    QCOMPARE(m_view->toPlainText(), QString("a\nb"));
}

void TestMarkdownTranscript::plainTextIsShownAsItStands()
{
    const QString text = "# **a**\n\n  - b &amp; <i>\n```\n[c](http://d)";
    m_view->beginMessage({}, {}, Format::PlainText);
    m_view->add(text);
    QCOMPARE(m_view->toPlainText(), text);
    QVERIFY(!m_view->formatOf("c]").isAnchor());
    QVERIFY(m_view->copyButtons().isEmpty());
}

void TestMarkdownTranscript::colorsComeFromThePalette()
{
    m_view->add("`code` [link](http://a.b)\n\n| cell |\n|------|\n\n```\nfence\n```\n");
    for (const QColor &color : {QColor(Qt::yellow), QColor(Qt::cyan)}) {
        QPalette palette = m_view->palette();
        palette.setColor(QPalette::AlternateBase, color);
        palette.setColor(QPalette::Link, color.darker());
        palette.setColor(QPalette::Mid, color.lighter());
        m_view->setPalette(palette);
        QCOMPARE(m_view->formatOf("code").background().color(), color);
        QCOMPARE(m_view->formatOf("link").foreground().color(), color.darker());
        QTextCursor cursor(m_view->document());
        cursor.setPosition(m_view->find("cell"));
        QCOMPARE(cursor.currentTable()->format().background().color(), color.lighter());
        cursor.setPosition(m_view->find("fence"));
        QCOMPARE(cursor.blockFormat().background().color(), color);
    }
}

void TestMarkdownTranscript::newPaletteKeepsTextAndSelection()
{
    m_view->showSmall();
    m_view->beginMessage("one", green);
    m_view->addPage();
    m_view->beginMessage("two", green);
    m_view->add("[a]\n\n[a]: http://b.c\n");
    m_view->select(20, 30);
    m_view->verticalScrollBar()->setValue(50);
    const QString text = m_view->toPlainText();
    QPalette palette = m_view->palette();
    palette.setColor(QPalette::Link, Qt::red);
    m_view->setPalette(palette);
    QCOMPARE(m_view->toPlainText(), text);
    QCOMPARE(m_view->textCursor().anchor(), 20);
    QCOMPARE(m_view->textCursor().position(), 30);
    QCOMPARE(m_view->place(), 50);
    QVERIFY(!m_view->isFollowing());
    m_view->finishMessage();
    QVERIFY(m_view->toPlainText().endsWith("\na"));
}

void TestMarkdownTranscript::deltaIsShownByTheEndOfTheTurn()
{
    m_view->appendDelta("*a*");
    QCoreApplication::processEvents();
    QCOMPARE(m_view->toPlainText(), QString("a"));
}

void TestMarkdownTranscript::deltaIsShownAtOnce_data()
{
    QTest::addColumn<TranscriptStep>("step");
    const auto row = [](const char *name, const TranscriptStep &step) { QTest::newRow(name) << step; };
    row("finishMessage", [](TranscriptView *view) { view->finishMessage(); });
    row("beginMessage", [](TranscriptView *view) { view->beginMessage({}, {}); });
    row("messageAt", [](TranscriptView *view) { view->messageAt(0); });
    row("paint", [](TranscriptView *view) { view->grab(); });
    row("key", [](TranscriptView *view) { QTest::keyPress(view, Qt::Key_Shift); });
    row("mouse press", [](TranscriptView *view) { QTest::mousePress(view->viewport(), Qt::LeftButton); });
    row("scrollToMessage", [](TranscriptView *view) { view->scrollToMessage(0); });
    row("setFollowing", [](TranscriptView *view) { view->setFollowing(true); });
}

void TestMarkdownTranscript::deltaIsShownAtOnce()
{
    QFETCH(TranscriptStep, step);
    m_view->showSmall();
    m_view->appendDelta("*a*");
    QCOMPARE(m_view->toPlainText(), QString());
    step(m_view.get());
    QCOMPARE(m_view->toPlainText(), QString("a"));
}

void TestMarkdownTranscript::deltasOfOneTurnAreShownOnce()
{
    m_view->add("a");
    const QSignalSpy changes(m_view->document(), &QTextDocument::contentsChanged);
    for (int i = 0; i < 10; ++i)
        m_view->appendDelta("*b*\n\n");
    runUntilQuiet();
    QCOMPARE(changes.count(), 1);
}

void TestMarkdownTranscript::referencesTakeEffectAtTheEnd()
{
    m_view->add("see [a] and\n\n- [b][a]\n- c\n\n```\n[a]\n```\n\n[A]: http://a.b \"title\"\n");
    QCOMPARE(m_view->toPlainText(), QString("see [a] and\n[b][a]\nc\n[a]"));
    m_view->select(m_view->find("c"), m_view->find("c") + 1);
    m_view->finishMessage();
    QCOMPARE(m_view->toPlainText(), QString("see a and\nb\nc\n[a]"));
    QCOMPARE(m_view->formatOf("b\n").anchorHref(), QString("http://a.b"));
    QCOMPARE(m_view->textCursor().selectedText(), QString("c"));
}

void TestMarkdownTranscript::referenceThatIsShownAsNothingRemovesItsLine()
{
    m_view->add("a\n\n[][b]\n\nc [b] d\n\n```\ne\n```\n\n[b]: http://b.c\n");
    QCOMPARE(m_view->toPlainText(), QString("a\n[][b]\nc [b] d\ne"));
    m_view->select(m_view->find("d"), m_view->find("d") + 1);
    m_view->finishMessage();
    QCOMPARE(m_view->toPlainText(), QString("a\nc b d\ne"));
    QCOMPARE(m_view->textCursor().selectedText(), QString("d"));
}

// Laying out all of a long answer once more would take long.
void TestMarkdownTranscript::referenceChangesItsOwnLineOnly()
{
    m_view->add("See [a].\n\n");
    m_view->addPage();
    m_view->appendDelta("Not shown yet.\n\n[a]: http://b.c\n");
    QVector<int> lengths;
    connect(m_view->document(), &QTextDocument::contentsChange, this,
            [&lengths](int, int, int added) { lengths.append(added); });
    m_view->finishMessage();
    m_view->document()->disconnect(this);
    QVERIFY(m_view->toPlainText().startsWith("See a.\n"));
    QVERIFY(!lengths.isEmpty());
    for (const int length : lengths)
        QVERIFY2(length < 20, qPrintable(QString::number(length)));
}

void TestMarkdownTranscript::replyStreamsIntoTheTranscript()
{
    MockChatModel model;
    const QString question = "How **hot** is it?";
    MarkdownTranscript *transcript = m_view.get();

    transcript->beginMessage(tr("You"), QColor("#1d4ed8"), MarkdownTranscript::Format::PlainText);
    transcript->appendDelta(question);
    transcript->beginMessage(tr("Assistant"), QColor("#047857"));
    ChatReply *reply = model.chat({ChatMessage::user(question)}, {}, this);
    connect(reply, &ChatReply::deltaReceived, transcript, &MarkdownTranscript::appendDelta);
    connect(reply, &ChatReply::finished, transcript, &MarkdownTranscript::finishMessage);
    connect(reply, &ChatReply::failed, transcript, &MarkdownTranscript::finishMessage);
    connect(reply, &ChatReply::canceled, transcript, &MarkdownTranscript::finishMessage);

    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(finished.wait());
    QCOMPARE(transcript->messageCount(), 2);
    QCOMPARE(transcript->messageSource(1), finished.at(0).at(0).toString());
    QVERIFY(transcript->toPlainText().startsWith("You\nHow **hot** is it?\nAssistant\n"));
    QCOMPARE(transcript->beginMessage({}, {}), 2);
}

void TestMarkdownTranscript::messageAtFindsMessages()
{
    QCOMPARE(m_view->messageAt(0), -1);
    m_view->beginMessage("one", green);
    m_view->appendDelta("a\n\n|b|\n|---|\n");
    m_view->beginMessage("two", green);
    m_view->appendDelta("c");
    m_view->beginMessage({}, {});
    m_view->add("d");
    QCOMPARE(m_view->toPlainText(), QString("one\na\nb\ntwo\nc\nd"));
    const QVector<int> owners{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 2, 2};
    for (int position = 0; position < owners.size(); ++position)
        QCOMPARE(m_view->messageAt(position), owners.at(position));
    QCOMPARE(m_view->messageAt(int(owners.size())), -1);
}

void TestMarkdownTranscript::copyWithoutASelectionCopiesTheMessage()
{
    m_view->beginMessage("one", green);
    m_view->add("**a**");
    m_view->beginMessage("two", green);
    m_view->add("**b**");
    m_view->select(5, 5);
    QTest::keyClick(m_view.get(), Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(clipboard()->text(), QString("**a**"));
    m_view->copyMessage(1);
    QCOMPARE(clipboard()->text(), QString("**b**"));
}

void TestMarkdownTranscript::copyCopiesTheSelectionAsShown()
{
    m_view->add("a **b** [c](http://d.e)\n\nf");
    m_view->select(2, 7);
    QTest::keyClick(m_view.get(), Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(clipboard()->text(), QString("b c\nf"));
}

void TestMarkdownTranscript::selectionIsCopiedAsTextOnly()
{
    m_view->add("**b** [c](http://d.e)");
    m_view->selectAll();
    m_view->copy();
    QCOMPARE(clipboard()->mimeData()->formats(), QStringList{"text/plain"});
}

QMenu *TestMarkdownTranscript::openMenuAt(const QString &text)
{
    const QPoint point = m_view->pointAt(m_view->find(text));
    QContextMenuEvent event(QContextMenuEvent::Mouse, point, m_view->viewport()->mapToGlobal(point));
    QCoreApplication::sendEvent(m_view->viewport(), &event);
    return qobject_cast<QMenu *>(QApplication::activePopupWidget());
}

void TestMarkdownTranscript::menuCopiesTheMessage()
{
    m_view->showSmall();
    m_view->beginMessage("one", green);
    m_view->add("*a*");
    m_view->beginMessage("two", green);
    m_view->add("*b*");
    QMenu *menu = openMenuAt("a");
    QVERIFY(menu);
    QAction *action = menu->actions().first();
    QCOMPARE(action->text(), QString("复制消息"));
    action->trigger();
    QCOMPARE(clipboard()->text(), QString("*a*"));
    const QPointer<QMenu> guard(menu);
    menu->close();
    QTRY_VERIFY(!guard);
}

void TestMarkdownTranscript::menuCopiesTheMessageItWasOpenedFor()
{
    m_view->showSmall();
    m_view->add("*a*");
    QMenu *menu = openMenuAt("a");
    QVERIFY(menu);
    m_view->add("b");
    menu->actions().first()->trigger();
    QCOMPARE(clipboard()->text(), QString("*a*b"));
    m_view->clear();
    m_view->add("another");
    menu->actions().first()->trigger();
    QCOMPARE(clipboard()->text(), QString("*a*"));
    menu->close();
}

void TestMarkdownTranscript::linkIsOpenedOnce_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("address");

    QTest::newRow("https") << "[link](https://a.example/b)"
                           << "https://a.example/b";
    QTest::newRow("mail") << "[link](mailto:a@b.example)"
                          << "mailto:a@b.example";
    QTest::newRow("file") << "[link](file:///etc/passwd)"
                          << "";
    QTest::newRow("relative") << "[link](link.html)"
                              << "";
}

void TestMarkdownTranscript::linkIsOpenedOnce()
{
    QFETCH(QString, markdown);
    QFETCH(QString, address);
    const OpenedAddresses opened;
    m_view->showSmall();
    m_view->add("a " + markdown + " b");
    QSignalSpy clicked(m_view.get(), &QTextBrowser::anchorClicked);
    QStringList expected;
    if (!address.isEmpty())
        expected.append(address);

    QTest::mouseClick(m_view->viewport(), Qt::LeftButton, {}, m_view->pointAt(m_view->find("link") + 1));
    QCOMPARE(opened.addresses, expected);
    QCOMPARE(clicked.count(), int(expected.size()));
    QCOMPARE(m_view->toPlainText(), QString("a link b"));

    m_view->select(0, 0);
    m_view->setFocus();
    QTest::keyClick(m_view.get(), Qt::Key_Tab);
    QTest::keyClick(m_view.get(), Qt::Key_Return);
    QCOMPARE(opened.addresses, expected + expected);
    QCOMPARE(clicked.count(), 2 * int(expected.size()));
}

void TestMarkdownTranscript::toolTipOfALinkIsItsAddress()
{
    m_view->showSmall();
    m_view->add("[www.good.example](https://bäd.example/<b>ü \"http://good.example\")");
    const QPoint point = m_view->pointAt(m_view->find("good"));
    QHelpEvent event(QEvent::ToolTip, point, m_view->viewport()->mapToGlobal(point));
    QCoreApplication::sendEvent(m_view->viewport(), &event);
    QCOMPARE(QToolTip::text(), QString("https://xn--bd-via.example/%3Cb%3E%C3%BC"));
    QToolTip::hideText();
}

void TestMarkdownTranscript::keysGoFromMessageToMessage()
{
    m_view->showSmall();
    for (int message = 0; message < 3; ++message) {
        m_view->beginMessage("label " + QString::number(message), green);
        m_view->addPage(20);
    }
    const auto current = [this] { return m_view->messageAt(m_view->textCursor().position()); };
    m_view->select(0, 0);
    QTest::keyClick(m_view.get(), Qt::Key_Down, Qt::AltModifier);
    QCOMPARE(current(), 1);
    QVERIFY(!m_view->isFollowing());
    const QRect top = m_view->cursorRect();
    QVERIFY2(top.top() >= 0 && top.top() < 30, qPrintable(QString::number(top.top())));
    QTest::keyClick(m_view.get(), Qt::Key_Down, Qt::AltModifier);
    QTest::keyClick(m_view.get(), Qt::Key_Down, Qt::AltModifier);
    QCOMPARE(current(), 2);
    QTest::keyClick(m_view.get(), Qt::Key_Up, Qt::AltModifier);
    QCOMPARE(current(), 1);
    QTest::keyClick(m_view.get(), Qt::Key_Up, Qt::AltModifier);
    QTest::keyClick(m_view.get(), Qt::Key_Up, Qt::AltModifier);
    QCOMPARE(current(), 0);
    QCOMPARE(m_view->place(), 0);
}

void TestMarkdownTranscript::readersFindTheTranscript()
{
    QCOMPARE(m_view->accessibleName(), QString("对话记录"));
    QCOMPARE(m_view->textInteractionFlags(), Qt::TextInteractionFlags(Qt::TextBrowserInteraction));
    m_view->beginMessage("label", green);
    m_view->add("| a |\n|---|\n| b |\n");
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(m_view.get());
    QVERIFY(interface && interface->textInterface());
    QCOMPARE(interface->text(QAccessible::Name), QString("对话记录"));
    const QAccessibleTextInterface *text = interface->textInterface();
    QVERIFY(text->text(0, text->characterCount()).startsWith("label"));
}

QTEST_MAIN(TestMarkdownTranscript)

#include "tst_markdowntranscript.moc"
