// Whatever is done with a transcript, it shows what another one shows that only got the same texts.

#include "support/documentdump.h"
#include "support/transcriptview.h"

#include <QRandomGenerator>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

using Format = MarkdownTranscript::Format;

constexpr int runCount = 30;
constexpr int stepCount = 150;

const QStringList &pieces()
{
    static const QStringList list{"word ",      "**bold** ",   "\n",
                                  "\n\n",       "- item\n",    "  - nested\n",
                                  "1. one\n",   "> quote\n",   "```\n",
                                  "    code",   "| a | b |\n", "|---|---|\n",
                                  "# head",     "[a] ",        "[a]: http://b",
                                  "`c",         "*",           "\n[l](http://c) ",
                                  "![](d.png)", "中文😀",       "\t",
                                  "---\n",      "~~~\n",       "<i>",
                                  "\\",         "a\r\n",       "- [x] task\n",
                                  "==="};
    return list;
}

struct Message
{
    QString label;
    Format format = Format::Markdown;
    QString source;
};

// Fills a transcript at once.
QStringList shownAtOnce(const QVector<Message> &messages, const QPalette &palette)
{
    MarkdownTranscript transcript;
    transcript.setPalette(palette);
    for (const Message &message : messages) {
        transcript.beginMessage(message.label, Qt::red, message.format);
        transcript.appendDelta(message.source);
    }
    transcript.finishMessage();
    return DocumentDump::all(*transcript.document());
}

class Run
{
public:
    explicit Run(quint32 seed)
        : m_random(seed)
        , m_view(new TranscriptView)
    {
        m_view->setOpenLinks(false);
        m_view->disconnect(SIGNAL(anchorClicked(QUrl))); // nothing is opened
        m_view->showSmall();
    }
    ~Run() { delete m_view; }
    Q_DISABLE_COPY(Run)

    // Has the view deleted once the reader scrolls away or clicks a link.
    void deleteInSlots()
    {
        m_isDeletedInSlots = true;
        const auto destroy = [this] { delete m_view; };
        QObject::connect(m_view.data(), &MarkdownTranscript::followingChanged, destroy);
        QObject::connect(m_view.data(), &QTextBrowser::anchorClicked, destroy);
    }

    bool isOver() const { return m_view.isNull(); }

    void step()
    {
        using Step = void (Run::*)();
        const QVector<Step> steps{&Run::append, &Run::append,   &Run::append,     &Run::append,
                                  &Run::append, &Run::append,   &Run::begin,      &Run::finish,
                                  &Run::clear,  &Run::turn,     &Run::turn,       &Run::select,
                                  &Run::scroll, &Run::resize,   &Run::setPalette, &Run::setFont,
                                  &Run::click,  &Run::pressKey, &Run::clickButton};
        (this->*steps.at(below(int(steps.size()))))();
    }

    QString fault()
    {
        m_view->finishMessage();
        if (m_view->messageCount() != m_messages.size())
            return "another number of messages";
        for (int index = 0; index < m_messages.size(); ++index) {
            if (m_view->messageSource(index) != m_messages.at(index).source)
                return "another source";
        }
        return DocumentDump::difference(DocumentDump::all(*m_view->document()),
                                        shownAtOnce(m_messages, m_view->palette()));
    }

private:
    int below(int bound) { return int(m_random.bounded(bound)); }

    void append()
    {
        QString text = pieces().at(below(int(pieces().size())));
        if (below(3) == 0)
            text = text.left(1 + below(int(text.size())));
        if (!m_isOpen)
            m_messages.append(Message());
        m_isOpen = true;
        m_messages.last().source += text;
        m_view->appendDelta(text);
    }

    void begin()
    {
        const Message message{below(2) ? "label" : "", below(4) ? Format::Markdown : Format::PlainText, ""};
        m_messages.append(message);
        m_isOpen = true;
        m_view->beginMessage(message.label, Qt::red, message.format);
    }

    void finish()
    {
        m_isOpen = false;
        m_view->finishMessage();
    }

    void clear()
    {
        if (below(4) > 0)
            return;
        m_messages.clear();
        m_isOpen = false;
        m_view->clear();
    }

    void turn() { runUntilQuiet(); }

    // Scrolls, so that nobody may delete the view meanwhile.
    void select()
    {
        if (m_isDeletedInSlots)
            return;
        const int count = m_view->document()->characterCount();
        m_view->select(below(count), below(count));
    }

    void scroll() { m_view->turnWheel(below(2) ? 120 : -120); }
    void resize() { m_view->resize(50 + below(600), 50 + below(300)); }

    void setPalette()
    {
        QPalette palette = m_view->palette();
        palette.setColor(QPalette::Link, QColor(below(256), 0, 0));
        m_view->setPalette(palette);
    }

    void setFont()
    {
        QFont font = m_view->font();
        font.setPointSize(6 + below(20));
        m_view->setFont(font);
    }

    void click()
    {
        const QSize size = m_view->viewport()->size();
        QTest::mouseClick(m_view->viewport(), Qt::LeftButton, {},
                          {below(size.width()), below(size.height())});
    }

    void pressKey()
    {
        static const QVector<Qt::Key> keys{Qt::Key_Up,  Qt::Key_Down,   Qt::Key_PageUp,
                                           Qt::Key_Tab, Qt::Key_Return, Qt::Key_End};
        const auto modifier = below(2) ? Qt::AltModifier : Qt::NoModifier;
        QTest::keyClick(m_view, keys.at(below(int(keys.size()))), modifier);
    }

    void clickButton()
    {
        const QList<QToolButton *> buttons = m_view->copyButtons();
        if (!buttons.isEmpty())
            QTest::mouseClick(buttons.at(below(int(buttons.size()))), Qt::LeftButton);
    }

    QRandomGenerator m_random;
    QPointer<TranscriptView> m_view;
    QVector<Message> m_messages;
    bool m_isOpen = false;
    bool m_isDeletedInSlots = false;
};

} // namespace

class TestMarkdownTranscriptRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void showsWhatItGot_data() { addSeeds(); }
    void showsWhatItGot();
    void mayBeDeletedAtAnyTime_data() { addSeeds(); }
    void mayBeDeletedAtAnyTime();

private:
    static void addSeeds();
};

void TestMarkdownTranscriptRandom::addSeeds()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 0; seed < runCount; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void TestMarkdownTranscriptRandom::showsWhatItGot()
{
    QFETCH(quint32, seed);
    Run run(seed);
    for (int step = 0; step < stepCount; ++step)
        run.step();
    QCOMPARE(run.fault(), QString());
}

void TestMarkdownTranscriptRandom::mayBeDeletedAtAnyTime()
{
    QFETCH(quint32, seed);
    Run run(seed);
    run.deleteInSlots();
    for (int step = 0; step < stepCount && !run.isOver(); ++step)
        run.step();
    if (!run.isOver())
        QCOMPARE(run.fault(), QString());
}

QTEST_MAIN(TestMarkdownTranscriptRandom)

#include "tst_markdowntranscript_random.moc"
