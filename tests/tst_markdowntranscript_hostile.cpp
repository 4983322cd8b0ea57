#include "support/transcriptview.h"

#include <QDesktopServices>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace MireloQtLib::QtAgent;

namespace {

bool hasPictures(const QTextDocument &document)
{
    for (const QTextFormat &format : document.allFormats()) {
        if (format.isImageFormat())
            return true;
    }
    return false;
}

QStringList anchors(const QTextDocument &document)
{
    QStringList addresses;
    QTextCursor cursor(const_cast<QTextDocument *>(&document));
    while (cursor.movePosition(QTextCursor::NextCharacter)) {
        const QString address = cursor.charFormat().anchorHref();
        if (!address.isEmpty() && !addresses.contains(address))
            addresses.append(address);
    }
    return addresses;
}

// A named pipe with a few characters in it, which are gone once somebody has read them.
class Pipe
{
public:
    explicit Pipe(const QString &path)
        : m_path(path)
    {
        const QByteArray name = path.toLocal8Bit();
        m_isMade = ::mkfifo(name.constData(), 0600) == 0;
        m_file = ::open(name.constData(), O_RDWR | O_NONBLOCK);
        m_isMade = m_isMade && ::write(m_file, "unread", 6) == 6;
    }
    ~Pipe() { ::close(m_file); }
    Q_DISABLE_COPY(Pipe)

    bool isMade() const { return m_isMade; }
    QString path() const { return m_path; }

    QByteArray takeContent()
    {
        QByteArray content(16, '\0');
        content.resize(int(qMax(::ssize_t(0), ::read(m_file, content.data(), size_t(content.size())))));
        return content;
    }

private:
    QString m_path;
    bool m_isMade = false;
    int m_file = -1;
};

class NothingOpened : public QObject
{
    Q_OBJECT

public:
    NothingOpened() { QDesktopServices::setUrlHandler("https", this, "open"); }
    ~NothingOpened() override { QDesktopServices::unsetUrlHandler("https"); }
    Q_DISABLE_COPY(NothingOpened)

public Q_SLOTS:
    void open(const QUrl &) {}
};

} // namespace

class TestMarkdownTranscriptHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void picturesAreNeverLoaded_data();
    void picturesAreNeverLoaded();
    void pictureThatCouldBeShownIsText();
    void pictureFileStaysClosed();
    void loadResourceReturnsNothing();
    void sourceIsNeverSet();
    void htmlIsText();
    void otherLinksAreTheirText_data();
    void otherLinksAreTheirText();
    void commandsOfADocumentAreReplaced();

    void hugeTextIsShown_data();
    void hugeTextIsShown();
    void longLineIsShownWhole();
    void unclosedFenceKeepsAllLines();
    void tableOfAMillionCellsIsText();
    void deepNestingEnds();
    void longBlockIsNotRenderedInEachTurn();
    void longBlockIsShownWithoutAnotherDelta();

    void mayBeDeletedWhenFollowingChanges_data() { addReadersSteps(); }
    void mayBeDeletedWhenFollowingChanges();
    void mayChangeWhenFollowingChanges_data();
    void mayChangeWhenFollowingChanges();
    void mayBeDeletedWhenALinkIsClicked_data();
    void mayBeDeletedWhenALinkIsClicked();
    void mayBeDeletedInItsMenu();
    void mayBeDeletedBeforeADeltaIsShown();
    void eventLoopMayRunInASlot();

private:
    static void addReadersSteps();
};

void TestMarkdownTranscriptHostile::picturesAreNeverLoaded_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QStringList>("links");

    const QStringList none;
    QTest::newRow("alternative text") << "![a plan](plan.png)"
                                      << "a plan" << none;
    QTest::newRow("no alternative text") << "a ![](plan.png) b"
                                         << "a plan.png b" << none;
    QTest::newRow("endless file") << "![](/dev/zero)"
                                  << "/dev/zero" << none;
    QTest::newRow("endless file address") << "![zero](file:///dev/zero)"
                                          << "zero" << none;
    QTest::newRow("data") << "![d](data:image/png;base64,iVBORw0KGgo=)"
                          << "d" << none;
    QTest::newRow("resource") << "![r](:/a.png) ![q](qrc:/a.png)"
                              << "r q" << none;
    QTest::newRow("reference") << "![a][b]\n\n[b]: /dev/zero"
                               << "a" << none;
    QTest::newRow("web") << "![a](https://b.example/c.png)"
                         << "a" << QStringList{"https://b.example/c.png"};
    QTest::newRow("in a link") << "[![a](/dev/zero)](https://b.example)"
                               << "a" << none;
    QTest::newRow("in a table") << "|![a](/dev/zero)|\n|---|\n|![](/dev/zero)|"
                                << "a\n/dev/zero" << none;
    QTest::newRow("in a list") << "- ![a](/dev/zero)\n- ![](b.png)"
                               << "a\nb.png" << none;
}

void TestMarkdownTranscriptHostile::picturesAreNeverLoaded()
{
    QFETCH(QString, markdown);
    QFETCH(QString, shown);
    QFETCH(QStringList, links);
    TranscriptView view;
    view.showSmall();
    for (const QChar character : markdown) {
        view.add(character);
        QVERIFY(!hasPictures(*view.document()));
    }
    view.finishMessage();
    view.grab();
    QVERIFY(!hasPictures(*view.document()));
    QCOMPARE(view.toPlainText().trimmed(), shown);
    QCOMPARE(anchors(*view.document()), links);
}

void TestMarkdownTranscriptHostile::pictureThatCouldBeShownIsText()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath("a.png");
    QImage image(200, 100, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(path));
    TranscriptView view;
    view.setSearchPaths({folder.path()});
    view.showSmall();
    view.add("![one](a.png) ![two](" + path + ") ![three](file://" + path + ") <img src='a.png'>\n\n");
    view.finishMessage();
    QVERIFY(!hasPictures(*view.document()));
    QCOMPARE(view.toPlainText(), QString("one two three <img src='a.png'>"));
    QVERIFY(view.document()->size().height() < image.height());
    const QImage shown = view.grab().toImage();
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x)
            QVERIFY(shown.pixelColor(x, y) != QColor(Qt::red));
    }
}

void TestMarkdownTranscriptHostile::pictureFileStaysClosed()
{
    const QTemporaryDir folder;
    Pipe pipe(folder.filePath("a.png"));
    QVERIFY(pipe.isMade());
    TranscriptView view;
    view.setSearchPaths({folder.path()});
    view.showSmall();
    view.add("![](a.png) ![a](" + pipe.path() + ") ![b](file://" + pipe.path() + ") <img src='a.png'>\n\n");
    view.finishMessage();
    view.grab();
    QCOMPARE(pipe.takeContent(), QByteArray("unread"));
}

void TestMarkdownTranscriptHostile::loadResourceReturnsNothing()
{
    TranscriptView view;
    for (const int type : {QTextDocument::HtmlResource, QTextDocument::ImageResource}) {
        const QVariant resource = view.loadResource(type, QUrl("file:///etc/passwd"));
        QCOMPARE(resource.userType(), int(QMetaType::QByteArray));
        QVERIFY(!resource.toByteArray().isNull());
        QVERIFY(resource.toByteArray().isEmpty());
    }
}

void TestMarkdownTranscriptHostile::sourceIsNeverSet()
{
    TranscriptView view;
    view.add("a");
    view.setSource(QUrl("file:///etc/passwd"));
    static_cast<QTextBrowser &>(view).setSource(QUrl("file:///etc/passwd"));
    QCOMPARE(view.source(), QUrl());
    QCOMPARE(view.toPlainText(), QString("a"));
}

void TestMarkdownTranscriptHostile::htmlIsText()
{
    const QString html =
        "<b>a</b> <img src=\"/dev/zero\"> <a href=\"https://b.example\">c</a> <script>d()</script>";
    TranscriptView view;
    view.add(html + "\n\n<div>\ne\n</div>\n");
    QCOMPARE(view.toPlainText(), html + "\n<div> e </div>");
    QVERIFY(anchors(*view.document()).isEmpty());
}

void TestMarkdownTranscriptHostile::otherLinksAreTheirText_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("shown");

    QTest::newRow("script") << "[a](javascript:alert(1))"
                            << "a";
    QTest::newRow("file") << "[a](file:///etc/passwd)"
                          << "a";
    QTest::newRow("absolute name") << "[a](/etc/passwd)"
                                   << "a";
    QTest::newRow("fragment") << "[a](#b)"
                              << "a";
    QTest::newRow("data") << "[a](data:text/html,b)"
                          << "a";
    QTest::newRow("no host") << "[a](http:///etc/passwd) [b](https:c)"
                             << "a b";
    QTest::newRow("no address") << "[a](mailto:)"
                                << "a";
    QTest::newRow("in angle brackets") << "<file:///etc/passwd>"
                                       << "file:///etc/passwd";
    QTest::newRow("other protocol") << "[a](ftp://b.example) [b](smb://c.example/d)"
                                    << "a b";
    QTest::newRow("upper case") << "[a](FILE:///etc/passwd)"
                                << "a";
}

void TestMarkdownTranscriptHostile::otherLinksAreTheirText()
{
    QFETCH(QString, markdown);
    QFETCH(QString, shown);
    TranscriptView view;
    view.add(markdown);
    view.finishMessage();
    QCOMPARE(view.toPlainText(), shown);
    QCOMPARE(anchors(*view.document()), QStringList());
}

// A document takes them for the beginning and the end of a frame, an object and a paragraph.
void TestMarkdownTranscriptHostile::commandsOfADocumentAreReplaced()
{
    const QString commands = QString::fromUtf16(u"\ufdd0\ufdd1\ufffc\uffff");
    const QString replaced(commands.size(), QChar(0xfffd));
    TranscriptView view;
    view.beginMessage("a" + commands, {});
    view.add("b" + commands + "\n\n```\nc" + commands + "\n```\n\n|d" + commands + "|\n|---|\n\n");
    view.beginMessage({}, {}, MarkdownTranscript::Format::PlainText);
    view.add("e" + commands);
    QCOMPARE(view.toPlainText().remove('\n'), QString("a%1b%1c%1d%1e%1").arg(replaced));
}

void TestMarkdownTranscriptHostile::hugeTextIsShown_data()
{
    QTest::addColumn<QString>("text");

    constexpr int many = 10000;
    const auto row = [](const char *name, const QString &text) {
        QTest::newRow(name) << text + "\n\nthe end";
    };
    row("nested quotes", QString(many, '>') + " a");
    row("nested quotes with blanks", QString("> ").repeated(many) + "a");
    row("nested items", QString("- ").repeated(many) + "a");
    row("nested numbers", QString("1. ").repeated(many) + "a");
    row("brackets", QString(many, '['));
    row("pictures", QString("![").repeated(many));
    row("links", QString("[a](b").repeated(many));
    row("stars", QString("*a ").repeated(many));
    row("stars and underlines", QString("*a _b ").repeated(many));
    row("backticks", QString("`a``b").repeated(many));
    row("tildes", QString("~~a ").repeated(many));
    row("open tags", QString("<a ").repeated(many));
    row("bars", QString("|").repeated(many) + "\n" + QString("|-").repeated(many) + "|");
    row("lines of bars", QString("|\n").repeated(many));
    row("definitions", QString("[a]: b\n").repeated(many));
    row("uses of a definition", "[a]: http://b.example\n\n" + QString("[a]\n").repeated(many));
    row("headings", QString("# a\n").repeated(many));
    row("fences", QString("```\na\n```\n").repeated(many / 10));
    row("rows of a table", "|a|b|\n|---|---|\n" + QString("|c|d|\n").repeated(many / 10));
    row("items", QString("- a\n").repeated(many / 5));
    row("loose items", QString("- a\n\n").repeated(many / 5));
    row("entities", QString("&amp;").repeated(many));
    row("zero-width characters", QString(QChar(0x200d)).repeated(many));
    row("combining characters", "a" + QString(QChar(0x301)).repeated(many));
}

void TestMarkdownTranscriptHostile::hugeTextIsShown()
{
    QFETCH(QString, text);
    TranscriptView view;
    view.showSmall();
    constexpr int delta = 4000;
    for (int begin = 0; begin < text.size(); begin += delta)
        view.add(text.mid(begin, delta));
    view.finishMessage();
    view.grab();
    QCOMPARE(view.messageSource(0), text);
    QVERIFY(view.toPlainText().endsWith("the end"));
}

void TestMarkdownTranscriptHostile::longLineIsShownWhole()
{
    QString line;
    for (int number = 0; line.size() < 1000 * 1000; ++number)
        line += QString("word%1*[a](b)😀").arg(number);
    for (const int delta : {int(line.size()), 9999}) {
        TranscriptView view;
        view.showSmall();
        for (int begin = 0; begin < line.size(); begin += delta)
            view.appendDelta(line.mid(begin, delta));
        view.add("\nthe **end**");
        QCOMPARE(view.messageSource(0), line + "\nthe **end**");
        QString shown = view.toPlainText();
        QVERIFY(shown.endsWith("\nthe end"));
        shown.chop(int(qstrlen("\nthe end")));
        QVERIFY(shown.remove('\n') == line);
    }
}

void TestMarkdownTranscriptHostile::unclosedFenceKeepsAllLines()
{
    QString code;
    for (int number = 0; number < 3000; ++number)
        code += QString("line %1\n").arg(number);
    TranscriptView view;
    view.showSmall();
    view.appendDelta("before\n```\n");
    for (int begin = 0; begin < code.size(); begin += 97)
        view.add(code.mid(begin, 97));
    view.finishMessage();
    QCOMPARE(view.toPlainText(), "before\n" + code.trimmed());
}

void TestMarkdownTranscriptHostile::tableOfAMillionCellsIsText()
{
    const QString table = "|" + QString("a|").repeated(1000) + "\n|" + QString("---|").repeated(1000) + "\n"
                        + QString("b\n").repeated(900);
    TranscriptView view;
    view.add(table);
    view.finishMessage();
    QCOMPARE(view.toPlainText(), table.trimmed());
}

void TestMarkdownTranscriptHostile::deepNestingEnds()
{
    TranscriptView view;
    view.showSmall();
    view.add(QString("> ").repeated(4000) + "a\n\n" + QString("- ").repeated(4000) + "b\n");
    view.finishMessage();
    constexpr int deepest = 20;
    for (QTextBlock block = view.document()->begin(); block.isValid(); block = block.next()) {
        QVERIFY(block.blockFormat().intProperty(QTextFormat::BlockQuoteLevel) <= deepest);
        QVERIFY(!block.textList() || block.textList()->format().indent() <= deepest);
    }
}

void TestMarkdownTranscriptHostile::longBlockIsNotRenderedInEachTurn()
{
    constexpr int turns = 300;
    TranscriptView view;
    view.showSmall();
    view.add(QString("*some* words in a line\n").repeated(900));
    int changes = 0;
    connect(view.document(), &QTextDocument::contentsChanged, &view, [&changes] { ++changes; });
    for (int turn = 0; turn < turns; ++turn) {
        view.appendDelta("*b* ");
        QCoreApplication::sendPostedEvents(&view);
    }
    QVERIFY2(changes < turns / 2, qPrintable(QString::number(changes)));
    view.finishMessage();
    QVERIFY(view.toPlainText().endsWith("in a line " + QString("b ").repeated(turns).trimmed()));
}

void TestMarkdownTranscriptHostile::longBlockIsShownWithoutAnotherDelta()
{
    TranscriptView view;
    view.showSmall();
    view.add(QString("*some* words in a line\n").repeated(900));
    view.appendDelta("*a*");
    view.add(" *b*");
    QTRY_VERIFY(view.toPlainText().endsWith("a b"));
}

void TestMarkdownTranscriptHostile::addReadersSteps()
{
    QTest::addColumn<TranscriptStep>("step");
    const auto row = [](const char *name, const TranscriptStep &step) { QTest::newRow(name) << step; };
    row("page key", [](TranscriptView *view) { QTest::keyPress(view, Qt::Key_PageUp); });
    row("message key", [](TranscriptView *view) { QTest::keyPress(view, Qt::Key_Up, Qt::AltModifier); });
    row("click on the scroll bar", [](TranscriptView *view) {
        QTest::mousePress(view->verticalScrollBar(), Qt::LeftButton, {}, QPoint(5, 40));
    });
    row("value of the scroll bar", [](TranscriptView *view) { view->verticalScrollBar()->setValue(0); });
    row("action of the scroll bar",
        [](TranscriptView *view) { view->verticalScrollBar()->triggerAction(QScrollBar::SliderToMinimum); });
    row("setFollowing", [](TranscriptView *view) { view->setFollowing(false); });
    row("scrollToMessage", [](TranscriptView *view) { view->scrollToMessage(0); });
    row("wheel", [](TranscriptView *view) { view->turnWheel(120); });
}

void TestMarkdownTranscriptHostile::mayBeDeletedWhenFollowingChanges()
{
    QFETCH(TranscriptStep, step);
    QPointer<TranscriptView> view(new TranscriptView);
    view->showSmall();
    view->addPage();
    connect(view.data(), &MarkdownTranscript::followingChanged, this, [&view] { delete view.data(); });
    step(view);
    QVERIFY(!view);
}

void TestMarkdownTranscriptHostile::mayChangeWhenFollowingChanges_data()
{
    addReadersSteps();
    QTest::newRow("ensureCursorVisible")
        << TranscriptStep([](TranscriptView *view) { view->ensureCursorVisible(); });
    QTest::newRow("cursor out of sight") << TranscriptStep([](TranscriptView *view) { view->select(0, 5); });
}

void TestMarkdownTranscriptHostile::mayChangeWhenFollowingChanges()
{
    QFETCH(TranscriptStep, step);
    TranscriptView view;
    view.showSmall();
    view.addPage();
    connect(&view, &MarkdownTranscript::followingChanged, &view, [&view](bool following) {
        if (following)
            return;
        view.clear();
        view.beginMessage("a", {});
        view.appendDelta("```\nb");
        view.finishMessage();
        view.setFollowing(true);
    });
    step(&view);
    runUntilQuiet();
    QCOMPARE(view.toPlainText(), QString("a\nb"));
    QVERIFY(view.isFollowing());
}

void TestMarkdownTranscriptHostile::mayBeDeletedWhenALinkIsClicked_data()
{
    QTest::addColumn<TranscriptStep>("step");
    QTest::newRow("click") << TranscriptStep([](TranscriptView *view) {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->pointAt(1));
    });
    QTest::newRow("Return") << TranscriptStep([](TranscriptView *view) {
        view->setFocus();
        QTest::keyClick(view, Qt::Key_Tab);
        QTest::keyPress(view, Qt::Key_Return);
    });
}

void TestMarkdownTranscriptHostile::mayBeDeletedWhenALinkIsClicked()
{
    QFETCH(TranscriptStep, step);
    const NothingOpened handler;
    QPointer<TranscriptView> view(new TranscriptView);
    view->showSmall();
    view->add("[link](https://a.example)");
    connect(view.data(), &QTextBrowser::anchorClicked, this, [&view] { delete view.data(); });
    step(view);
    QVERIFY(!view);
}

void TestMarkdownTranscriptHostile::mayBeDeletedInItsMenu()
{
    QPointer<TranscriptView> view(new TranscriptView);
    view->showSmall();
    view->add("a");
    QContextMenuEvent event(QContextMenuEvent::Keyboard, {}, view->viewport()->mapToGlobal(QPoint()));
    QCoreApplication::sendEvent(view->viewport(), &event);
    QVERIFY(QApplication::activePopupWidget());
    delete view.data();
    QVERIFY(!QApplication::activePopupWidget());
}

void TestMarkdownTranscriptHostile::mayBeDeletedBeforeADeltaIsShown()
{
    auto *view = new TranscriptView;
    view->appendDelta("a");
    delete view;
    runUntilQuiet();
}

void TestMarkdownTranscriptHostile::eventLoopMayRunInASlot()
{
    const NothingOpened handler;
    TranscriptView view;
    view.showSmall();
    view.add("[link](https://a.example)\n\n");
    connect(&view, &QTextBrowser::anchorClicked, &view, [&view] {
        view.appendDelta("*a*");
        runUntilQuiet();
        view.clear();
        view.add("*b*");
    });
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.pointAt(1));
    QCOMPARE(view.toPlainText(), QString("b"));
}

QTEST_MAIN(TestMarkdownTranscriptHostile)

#include "tst_markdowntranscript_hostile.moc"
