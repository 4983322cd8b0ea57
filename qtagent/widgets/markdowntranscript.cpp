#include "markdowntranscript.h"

#include "codecopybuttons_p.h"
#include "transcriptdocument_p.h"

#include <QAbstractTextDocumentLayout>
#include <QAction>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocumentFragment>
#include <QTextTable>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Blocks up to this length are rendered in each turn, longer ones in half of the time at most.
constexpr int shortBlock = 1000;
constexpr int cellMargin = 6;                     // pixels, with the line around the cell
constexpr qint64 longestRest = 250 * 1000 * 1000; // ns, beside the time that the last rendering took

// 1 or -1 for the keys that go to the next or the previous message, else 0.
int messageStep(const QKeyEvent &event)
{
    if ((event.modifiers() & ~Qt::KeypadModifier) != Qt::AltModifier)
        return 0;
    return event.key() == Qt::Key_Down ? 1 : event.key() == Qt::Key_Up ? -1 : 0;
}

// Counts up for its lifetime, which may be longer than that of the object that holds the number.
class Count
{
public:
    Count(QObject *owner, int *number)
        : m_owner(owner)
        , m_number(number)
    {
        ++*m_number;
    }
    ~Count()
    {
        if (m_owner)
            --*m_number;
    }
    Q_DISABLE_COPY(Count)

private:
    QPointer<QObject> m_owner;
    int *m_number;
};

} // namespace

MarkdownTranscript::MarkdownTranscript(QWidget *parent)
    : QTextBrowser(parent)
    , m_transcript(std::make_unique<TranscriptDocument>(document()))
{
    // Children send events to this, so that they are created when all members are there.
    m_copyButtons = new CodeCopyButtons(this, m_transcript.get());
    m_restTimer = new QTimer(this);
    setAccessibleName(tr("对话记录"));
    m_transcript->setPalette(palette());
    m_restTimer->setSingleShot(true);
    connect(m_restTimer, &QTimer::timeout, this, &MarkdownTranscript::showIfDue);
    m_clock.start();
    setUpLinks();
    setUpPainting();
    setUpScrolling();
}

MarkdownTranscript::~MarkdownTranscript() = default;

int MarkdownTranscript::beginMessage(const QString &label, const QColor &color, Format format)
{
    const QPointer<MarkdownTranscript> guard(this);
    const int index = messageCount();
    finishMessage();
    if (guard)
        change([&](const auto &) { m_transcript->beginMessage(label, color, format == Format::Markdown); });
    return index;
}

void MarkdownTranscript::appendDelta(const QString &delta)
{
    if (delta.isEmpty())
        return;
    const QPointer<MarkdownTranscript> guard(this);
    if (!m_transcript->hasOpenMessage())
        beginMessage({}, {});
    if (!guard)
        return;
    m_transcript->append(delta);
    postShow();
}

// What is not shown yet comes first, so that references in the first lines alone are laid out anew.
void MarkdownTranscript::finishMessage()
{
    const QPointer<MarkdownTranscript> guard(this);
    const int count = messageCount();
    showNow();
    if (guard && m_transcript->hasOpenMessage() && messageCount() == count)
        change([this](const auto &positions) { m_transcript->finishMessage(positions); });
}

QString MarkdownTranscript::messageSource(int index) const
{
    return m_transcript->source(index);
}

int MarkdownTranscript::messageCount() const
{
    return m_transcript->messageCount();
}

int MarkdownTranscript::messageAt(int position) const
{
    const_cast<MarkdownTranscript *>(this)->showNow(); // what is shown is no part of the state
    return m_transcript->messageAt(position);
}

void MarkdownTranscript::copyMessage(int index)
{
    if (index >= 0 && index < messageCount())
        QGuiApplication::clipboard()->setText(messageSource(index));
}

void MarkdownTranscript::scrollToMessage(int index)
{
    if (index < 0 || index >= messageCount())
        return;
    const QPointer<MarkdownTranscript> guard(this);
    showNow();
    if (!guard || index >= messageCount())
        return;
    const QTextBlock block = document()->findBlock(m_transcript->messageBegin(index));
    const qreal top =
        document()->documentLayout()->blockBoundingRect(block).top() - document()->documentMargin();
    {
        const Count scrolling(this, &m_ownScrollings);
        verticalScrollBar()->setValue(block.isValid() ? qRound(top) : verticalScrollBar()->maximum());
    }
    followReader();
}

void MarkdownTranscript::setFollowing(bool following)
{
    const QPointer<MarkdownTranscript> guard(this);
    if (following)
        showNow();
    if (!guard)
        return;
    m_isFollowing = following;
    followEnd();
    emitPending();
}

bool MarkdownTranscript::isFollowing() const
{
    return m_isFollowing;
}

// Qt opens files on its own where it gets nothing.
QVariant MarkdownTranscript::loadResource(int, const QUrl &)
{
    return QByteArray("");
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
void MarkdownTranscript::setSource(const QUrl &) {}

void MarkdownTranscript::setSource(const QUrl &, QTextDocument::ResourceType) {}
#else
void MarkdownTranscript::doSetSource(const QUrl &, QTextDocument::ResourceType) {}
#endif

void MarkdownTranscript::clear()
{
    const QPointer<MarkdownTranscript> guard(this);
    m_nextShow = 0;
    change([this](const auto &) { m_transcript->clear(); });
    if (guard)
        setFollowing(true);
}

bool MarkdownTranscript::event(QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride && messageStep(*static_cast<QKeyEvent *>(event)) != 0) {
        event->accept();
        return true;
    }
    return deliver([this, event] {
        const QPointer<MarkdownTranscript> guard(this);
        if (event->type() == QEvent::KeyPress)
            showNow();
        return guard ? QTextBrowser::event(event) : true;
    });
}

bool MarkdownTranscript::viewportEvent(QEvent *event)
{
    return deliver([this, event] {
        const QPointer<MarkdownTranscript> guard(this);
        if (event->type() == QEvent::Paint)
            showIfDue();
        else if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonDblClick)
            showNow();
        return guard ? QTextBrowser::viewportEvent(event) : true;
    });
}

// The scroll bar's own handling of the event is not over when its value changes, so that nobody may delete
// it in a slot. Therefore the signals of the transcript wait until it is.
bool MarkdownTranscript::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != verticalScrollBar())
        return QTextBrowser::eventFilter(watched, event);
    deliver([watched, event] { return watched->event(event); });
    return true;
}

void MarkdownTranscript::keyPressEvent(QKeyEvent *event)
{
    if (const int step = messageStep(*event)) {
        goToMessage(step);
        event->accept();
    } else if (event->matches(QKeySequence::Copy) && !textCursor().hasSelection()) {
        copyMessage(messageAt(textCursor().position()));
        event->accept();
    } else {
        QTextBrowser::keyPressEvent(event);
    }
}

// A button asks its parents where the focus goes, and QTextBrowser would go back to the first link.
bool MarkdownTranscript::focusNextPrevChild(bool next)
{
    // NOLINTNEXTLINE(bugprone-parent-virtual-call)
    return hasFocus() ? QTextBrowser::focusNextPrevChild(next) : QTextEdit::focusNextPrevChild(next);
}

void MarkdownTranscript::contextMenuEvent(QContextMenuEvent *event)
{
    const bool isByKeyboard = event->reason() == QContextMenuEvent::Keyboard;
    const QTextCursor cursor = isByKeyboard ? textCursor() : cursorForPosition(event->pos());
    const int message = messageAt(cursor.position());
    const QPoint scrolled(horizontalScrollBar()->value(), verticalScrollBar()->value());
    QMenu *menu = createStandardContextMenu(event->pos() + scrolled);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    auto *action = new QAction(tr("复制消息"), menu);
    action->setEnabled(message >= 0);
    connect(action, &QAction::triggered, this, [this, message, source = messageSource(message)] {
        // It may have grown, or another one may have taken its place.
        const QString now = messageSource(message);
        QGuiApplication::clipboard()->setText(now.startsWith(source) ? now : source);
    });
    menu->insertAction(menu->actions().value(0), action);
    menu->popup(event->globalPos());
}

void MarkdownTranscript::resizeEvent(QResizeEvent *event)
{
    const Count scrolling(this, &m_ownScrollings);
    QTextBrowser::resizeEvent(event);
    followEnd();
    m_copyButtons->place();
}

void MarkdownTranscript::changeEvent(QEvent *event)
{
    {
        const Count scrolling(this, &m_ownScrollings);
        QTextBrowser::changeEvent(event);
    }
    if (event->type() == QEvent::PaletteChange)
        change([this](const auto &) { m_transcript->setPalette(palette()); });
    else if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        m_copyButtons->place();
}

void MarkdownTranscript::scrollContentsBy(int dx, int dy)
{
    QTextBrowser::scrollContentsBy(dx, dy);
    m_copyButtons->place();
}

QMimeData *MarkdownTranscript::createMimeDataFromSelection() const
{
    auto *data = new QMimeData;
    data->setText(textCursor().selection().toPlainText());
    return data;
}

void MarkdownTranscript::activateLink(const QString &address)
{
    m_activated = QUrl(address);
    if (m_eventDepth == 0)
        emitPending();
}

// Qt's own part that handles the events of text. Where another version has none by that name, its signals
// take their usual way.
QObject *MarkdownTranscript::control() const
{
    for (QObject *child : children()) {
        if (child->inherits("QWidgetTextControl"))
            return child;
    }
    return nullptr;
}

// QTextBrowser would emit anchorClicked() in the midst of handling a click, where nobody may delete it.
void MarkdownTranscript::setUpLinks()
{
    setOpenLinks(false);
    connect(this, &QTextBrowser::anchorClicked, this,
            [](const QUrl &address) { QDesktopServices::openUrl(address); });
    if (!control())
        return;
    disconnect(control(), SIGNAL(linkActivated(QString)), this, nullptr);
    connect(control(), SIGNAL(linkActivated(QString)), this, SLOT(activateLink(QString)));
}

// Qt's layout has a table painted anew with each change of the line behind it.
void MarkdownTranscript::setUpPainting()
{
    QAbstractTextDocumentLayout *layout = document()->documentLayout();
    connect(document(), &QTextDocument::contentsChange, this, [this](int begin) { m_changeBegin = begin; });
    if (control() && disconnect(layout, SIGNAL(update(QRectF)), control(), nullptr))
        connect(layout, &QAbstractTextDocumentLayout::update, this, &MarkdownTranscript::repaintChange);
}

void MarkdownTranscript::setUpScrolling()
{
    verticalScrollBar()->installEventFilter(this);
    connect(verticalScrollBar(), &QScrollBar::rangeChanged, this, &MarkdownTranscript::followRange);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &MarkdownTranscript::followReader);
    QTextCursor cursor = textCursor();
    cursor.setKeepPositionOnInsert(true);
    setTextCursor(cursor);
}

// A posted call rather than a timer: a flood of events, such as a fast stream is, keeps timers waiting.
void MarkdownTranscript::postShow()
{
    if (m_isShowPosted)
        return;
    m_isShowPosted = true;
    const auto show = [this] {
        m_isShowPosted = false;
        showIfDue();
    };
    QMetaObject::invokeMethod(this, show, Qt::QueuedConnection);
}

void MarkdownTranscript::showIfDue()
{
    const qint64 rest = m_nextShow - m_clock.nsecsElapsed();
    if (rest <= 0 || m_transcript->openLength() <= shortBlock)
        showNow();
    else if (!m_restTimer->isActive())
        m_restTimer->start(int(rest / 1000000) + 1);
}

void MarkdownTranscript::showNow()
{
    if (!m_transcript->isShown())
        change([this](const auto &) { m_transcript->show(); });
}

// Selection and view stay, unless the view follows the end.
void MarkdownTranscript::change(const Change &change)
{
    const QPointer<MarkdownTranscript> guard(this);
    const qint64 begin = m_clock.nsecsElapsed();
    const Count scrolling(this, &m_ownScrollings);
    int anchor = textCursor().anchor();
    int position = textCursor().position();
    change({&anchor, &position});
    if (guard)
        restoreCursor(anchor, position);
    if (!guard)
        return;
    followEnd();
    m_copyButtons->place();
    addCost(m_clock.nsecsElapsed() - begin);
}

// Setting the cursor scrolls to it.
void MarkdownTranscript::restoreCursor(int anchor, int position)
{
    QTextCursor cursor = textCursor();
    const int end = document()->characterCount() - 1;
    anchor = qMin(anchor, end);
    position = qMin(position, end);
    if (cursor.anchor() == anchor && cursor.position() == position)
        return;
    const QPointer<MarkdownTranscript> guard(this);
    const int x = horizontalScrollBar()->value();
    const int y = verticalScrollBar()->value();
    cursor.setPosition(anchor);
    cursor.setPosition(position, QTextCursor::KeepAnchor);
    setTextCursor(cursor);
    if (!guard)
        return;
    horizontalScrollBar()->setValue(x);
    verticalScrollBar()->setValue(y);
}

// Rendering takes half of the time at most, in the long run; an eighth more is for what is not measured here.
void MarkdownTranscript::addCost(qint64 nanoseconds)
{
    const qint64 now = m_clock.nsecsElapsed();
    const qint64 next = qMax(m_nextShow, now - nanoseconds) + 2 * nanoseconds + nanoseconds / 8;
    m_nextShow = qMin(next, now + qMax(nanoseconds, longestRest));
}

bool MarkdownTranscript::deliver(const std::function<bool()> &handler)
{
    const QPointer<MarkdownTranscript> guard(this);
    ++m_eventDepth;
    const bool isHandled = handler();
    if (!guard)
        return true;
    --m_eventDepth;
    emitPending();
    return guard ? isHandled : true;
}

void MarkdownTranscript::emitPending()
{
    if (m_eventDepth > 0)
        return;
    const QPointer<MarkdownTranscript> guard(this);
    emitFollowing();
    if (!guard || m_activated.isEmpty())
        return;
    QUrl address;
    address.swap(m_activated);
    Q_EMIT anchorClicked(address);
}

// What a slot changes is said to all when all have heard what was before it.
void MarkdownTranscript::emitFollowing()
{
    if (m_isSayingFollowing)
        return;
    const QPointer<MarkdownTranscript> guard(this);
    m_isSayingFollowing = true;
    while (m_saidFollowing != m_isFollowing) {
        m_saidFollowing = m_isFollowing;
        Q_EMIT followingChanged(m_saidFollowing);
        if (!guard)
            return;
    }
    m_isSayingFollowing = false;
}

void MarkdownTranscript::repaintChange(const QRectF &area)
{
    QRectF changed = area;
    const QTextBlock block = document()->findBlock(m_changeBegin);
    if (m_changeBegin >= 0 && block.isValid())
        changed.setTop(qMax(area.top(), topOfChange(block)));
    m_changeBegin = -1;
    const QPoint scrolled(horizontalScrollBar()->value(), verticalScrollBar()->value());
    const QRectF sight(scrolled, viewport()->size());
    viewport()->update(changed.intersected(sight).toAlignedRect().translated(-scrolled));
}

// Above it the document looks as before the change that begins in this block. In a table it does as long as
// no column has moved.
qreal MarkdownTranscript::topOfChange(const QTextBlock &block)
{
    const QAbstractTextDocumentLayout *layout = document()->documentLayout();
    const qreal top = layout->blockBoundingRect(block).top();
    const QTextTable *table = QTextCursor(block).currentTable();
    if (!table)
        return top;
    QVector<QRectF> columns;
    for (int column = 0; column < table->columns(); ++column)
        columns.append(layout->blockBoundingRect(table->cellAt(0, column).firstCursorPosition().block()));
    const bool hasMoved = columns != m_columns;
    m_columns = columns;
    return hasMoved ? 0 : top - cellMargin;
}

void MarkdownTranscript::followEnd()
{
    const Count scrolling(this, &m_ownScrollings);
    if (m_isFollowing)
        verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

// The scroll bar is about to move itself into its new range.
void MarkdownTranscript::followRange()
{
    const Count scrolling(this, &m_ownScrollings);
    const int end = verticalScrollBar()->maximum();
    if (m_isFollowing || verticalScrollBar()->value() > end)
        verticalScrollBar()->setValue(end);
}

void MarkdownTranscript::followReader()
{
    if (m_ownScrollings > 0)
        return;
    m_isFollowing = isAtEnd();
    emitPending();
}

void MarkdownTranscript::goToMessage(int step)
{
    if (messageCount() == 0)
        return;
    const int message = messageAt(textCursor().position()) + step;
    const int index = qBound(0, message, messageCount() - 1);
    const QPointer<MarkdownTranscript> guard(this);
    {
        const Count scrolling(this, &m_ownScrollings);
        QTextCursor cursor = textCursor();
        cursor.setPosition(qMin(m_transcript->messageBegin(index), document()->characterCount() - 1));
        setTextCursor(cursor);
    }
    if (guard)
        scrollToMessage(index);
}

bool MarkdownTranscript::isAtEnd() const
{
    return verticalScrollBar()->value() == verticalScrollBar()->maximum();
}

} // namespace QtAgent
} // namespace MireloQtLib
