#include "agentchatpanel.h"

#include "linebreaking_p.h"
#include "plaintext_p.h"

#include <QBoxLayout>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextLayout>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int inputHeight = 82;
constexpr int shortParagraph = 1000;
constexpr qint64 shortLayout = 4;     // ms
constexpr qint64 longestPause = 5000; // ms; a slot of the transcript may hold a layout up for any time

QString escaped(const QString &text)
{
    return text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>"));
}

QString messageBlock(const QString &color, const QString &label, const QString &text)
{
    return QStringLiteral("<p style='margin:10px 0 4px 0;color:%1;font-weight:600;'>%2</p>"
                          "<div style='white-space:pre-wrap;'>%3</div>")
        .arg(color, escaped(label), escaped(text));
}

QString agentHeader()
{
    // The division is left open: what is inserted behind it takes neither colour nor weight of the label.
    return QStringLiteral("<p style='margin:10px 0 4px 0;color:#059669;font-weight:600;'>%1</p>"
                          "<div style='white-space:pre-wrap;'>")
        .arg(escaped(AgentChatPanel::tr("智能体")));
}

QTextBlockFormat labelFormat()
{
    QTextBlockFormat format;
    format.setTopMargin(10);
    format.setBottomMargin(4);
    return format;
}

bool isSendKey(const QKeyEvent &event)
{
    const bool isReturn = event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
    return isReturn && (event.modifiers() & ~Qt::KeypadModifier) == Qt::ControlModifier;
}

bool isAtEnd(const QTextCursor &cursor)
{
    return cursor.atEnd() && !cursor.hasSelection();
}

bool leavesTheTextAlone(const QEvent &event)
{
    switch (event.type()) {
    case QEvent::InputMethodQuery:
    case QEvent::MetaCall:
    case QEvent::Enter:
    case QEvent::Leave:
    case QEvent::HoverEnter:
    case QEvent::HoverMove:
    case QEvent::HoverLeave:
        return true;
    case QEvent::MouseMove:
        return static_cast<const QMouseEvent &>(event).buttons() == Qt::NoButton;
    default:
        return false;
    }
}

// With Qt 5 the text colour of a style sheet is that of the placeholder as well.
void makePlaceholderPaler(QWidget *input)
{
    QPalette palette = input->palette();
    QColor color = palette.color(QPalette::Text);
    if (palette.color(QPalette::PlaceholderText) != color)
        return;
    color.setAlphaF(color.alphaF() / 2);
    palette.setColor(QPalette::PlaceholderText, color);
    input->setPalette(palette);
}

} // namespace

AgentChatPanel::AgentChatPanel(QWidget *parent)
    : QWidget(parent)
    , m_history(new QTextBrowser(this))
    , m_input(new QPlainTextEdit(this))
    , m_sendButton(new QPushButton(tr("发送"), this))
    , m_stopButton(new QPushButton(tr("停止"), this))
    , m_clearButton(new QPushButton(tr("清空"), this))
    , m_layoutTimer(new QTimer(this))
    , m_lineBreakingCost(std::make_unique<LineBreakingCost>())
{
    setUpChildren();
    layOutChildren();
    connectChildren();
}

AgentChatPanel::~AgentChatPanel()
{
    if (m_insertion.isNull())
        return;
    // A document that the host has given to the transcript lives on.
    if (!m_history->findChildren<QTextDocument *>().contains(m_insertion.document()))
        m_insertion.endEditBlock();
}

void AgentChatPanel::appendUserMessage(const QString &text)
{
    appendMessage(QStringLiteral("#1d4ed8"), tr("用户"), text);
}

void AgentChatPanel::appendSystemMessage(const QString &text)
{
    appendMessage(QStringLiteral("#64748b"), tr("系统"), text);
}

void AgentChatPanel::beginAgentMessage()
{
    if (m_agentMessageOpen)
        return;
    chooseWrapping(QStringLiteral("\n"));
    appendBlock(agentHeader());
    m_agentMessageOpen = true;
}

void AgentChatPanel::appendAgentDelta(const QString &delta)
{
    beginAgentMessage();
    const bool endsALineBreak = m_deltasEndInCarriageReturn && delta.startsWith(QLatin1Char('\n'));
    insert(endsALineBreak ? delta.mid(1) : delta);
    if (!delta.isEmpty())
        m_deltasEndInCarriageReturn = delta.endsWith(QLatin1Char('\r'));
}

void AgentChatPanel::finishAgentMessage()
{
    m_agentMessageOpen = false;
}

void AgentChatPanel::setBusy(bool busy)
{
    m_sendButton->setEnabled(!busy);
    m_stopButton->setEnabled(busy);
}

bool AgentChatPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_input && event->type() == QEvent::PaletteChange)
        makePlaceholderPaler(m_input);
    if (watched == m_input)
        return handleInputEvent(event);
    return handleTranscriptEvent(event);
}

bool AgentChatPanel::focusNextPrevChild(bool next)
{
    const QWidget *current = window()->focusWidget();
    const bool canStay = !current || !isAncestorOf(current) || (current->isEnabled() && current->isVisible());
    if (canStay || !isVisible())
        return QWidget::focusNextPrevChild(next);
    // Qt does not look where the focus goes from here: the next blank must not press 清空.
    for (QWidget *widget : {static_cast<QWidget *>(m_input), static_cast<QWidget *>(m_history)}) {
        if (widget->isEnabled() && widget->isVisibleTo(this)) {
            widget->setFocus(Qt::OtherFocusReason);
            return true;
        }
    }
    return false;
}

void AgentChatPanel::setUpChildren()
{
    m_history->setObjectName(QStringLiteral("agentChatHistory"));
    m_history->setAccessibleName(tr("对话记录"));
    m_history->setOpenExternalLinks(true);
    m_history->installEventFilter(this);
    m_history->viewport()->installEventFilter(this);
    m_input->setObjectName(QStringLiteral("agentChatInput"));
    m_input->setAccessibleName(tr("问题"));
    m_input->setPlaceholderText(tr("请输入 Orvane 问题..."));
    m_input->setFixedHeight(inputHeight);
    m_input->setTabChangesFocus(true);
    m_input->installEventFilter(this);
    m_sendButton->setObjectName(QStringLiteral("agentChatSend"));
    m_sendButton->setToolTip(QStringLiteral("Ctrl+Return"));
    m_stopButton->setObjectName(QStringLiteral("agentChatStop"));
    m_stopButton->setEnabled(false);
    m_clearButton->setObjectName(QStringLiteral("agentChatClear"));
    m_clearButton->setFocusPolicy(Qt::TabFocus);
    m_layoutTimer->setSingleShot(true);
}

void AgentChatPanel::layOutChildren()
{
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_clearButton);
    buttons->addStretch();
    buttons->addWidget(m_stopButton);
    buttons->addWidget(m_sendButton);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(m_history, 1);
    layout->addWidget(m_input);
    layout->addLayout(buttons);

    setTabOrder(m_input, m_clearButton);
    setTabOrder(m_clearButton, m_stopButton);
    setTabOrder(m_stopButton, m_sendButton);
}

void AgentChatPanel::connectChildren()
{
    connect(m_sendButton, &QPushButton::clicked, this, &AgentChatPanel::send);
    connect(m_stopButton, &QPushButton::clicked, this, &AgentChatPanel::stopRequested);
    connect(m_clearButton, &QPushButton::clicked, this, &AgentChatPanel::clear);
    connect(m_layoutTimer, &QTimer::timeout, this, &AgentChatPanel::layOutWhenDue);
}

void AgentChatPanel::appendMessage(const QString &color, const QString &label, const QString &text)
{
    const QString shown = withLineFeeds(text);
    chooseWrapping(QLatin1Char('\n') + shown);
    appendBlock(messageBlock(color, label, shown));
}

void AgentChatPanel::appendBlock(const QString &html)
{
    completeInsertions();
    QTextDocument *document = m_history->document();
    const int labelNumber = document->isEmpty() ? 0 : document->blockCount();
    QTextCursor change(document);
    change.beginEditBlock();
    m_history->append(html);
    // The first paragraph of what is appended takes the margins of the one that the cursor is in.
    QTextCursor(document->findBlockByNumber(labelNumber)).setBlockFormat(labelFormat());
    change.endEditBlock();
    scrollToEnd();
    m_deltasEndInCarriageReturn = false;
}

void AgentChatPanel::insert(const QString &text)
{
    chooseWrapping(text);
    if (!isInserting() || !isAtEnd(m_history->textCursor()))
        startInsertion();
    m_insertion.movePosition(QTextCursor::End);
    m_insertion.insertText(text);
    layOutSoon();
}

bool AgentChatPanel::isInserting() const
{
    return !m_insertion.isNull() && m_insertion.document() == m_history->document();
}

// Every insertion lays its whole paragraph out again, unless an edit block is open. So the block stays open
// until control returns to the event loop, or longer where layouts take long.
void AgentChatPanel::startInsertion()
{
    completeInsertions();
    // Painting what the last layout has changed would need the next one at once.
    if (!m_nextLayout.hasExpired())
        m_history->repaint();
    if (!isAtEnd(m_history->textCursor()))
        m_history->moveCursor(QTextCursor::End);
    if (!m_insertion.isNull())
        return; // a slot of the transcript has inserted something
    m_insertion = QTextCursor(m_history->document());
    m_insertion.beginEditBlock();
}

void AgentChatPanel::completeInsertions()
{
    if (m_insertion.isNull())
        return;
    QTextCursor insertion;
    std::swap(insertion, m_insertion); // slots of the document may insert more
    QElapsedTimer clock;
    clock.start();
    // Keeps the glyphs for painting, which otherwise shapes the whole paragraph for a second time.
    insertion.block().layout()->setCacheEnabled(true);
    insertion.endEditBlock();
    scrollToEnd();
    pauseAfter(clock.elapsed(), insertion.block());
}

// The next insertion lays a paragraph out again as a whole: it pays to wait for more where that is long.
void AgentChatPanel::pauseAfter(qint64 layoutTime, const QTextBlock &lastParagraph)
{
    const bool isLong = layoutTime > shortLayout && lastParagraph.length() > shortParagraph;
    m_nextLayout.setRemainingTime(isLong ? qMin(layoutTime, longestPause) : 0);
}

// A posted call rather than a timer, because a flood of events, such as a fast stream is, keeps timers
// waiting.
void AgentChatPanel::layOutSoon()
{
    if (m_layoutIsPosted)
        return;
    m_layoutIsPosted = true;
    QMetaObject::invokeMethod(this, &AgentChatPanel::layOutWhenDue, Qt::QueuedConnection);
}

void AgentChatPanel::layOutWhenDue()
{
    m_layoutIsPosted = false;
    if (m_nextLayout.hasExpired())
        completeInsertions();
    else
        m_layoutTimer->start(int(m_nextLayout.remainingTime()));
}

void AgentChatPanel::chooseWrapping(const QString &text)
{
    if (m_history->document()->isEmpty()) {
        *m_lineBreakingCost = LineBreakingCost();
        if (m_breaksAnywhere && m_history->wordWrapMode() == QTextOption::WrapAnywhere)
            m_history->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        m_breaksAnywhere = false;
    }
    m_lineBreakingCost->add(text);
    if (!m_lineBreakingCost->isHigh()
        || m_history->wordWrapMode() != QTextOption::WrapAtWordBoundaryOrAnywhere)
        return;
    completeInsertions();
    m_history->setWordWrapMode(QTextOption::WrapAnywhere);
    m_breaksAnywhere = true;
}

void AgentChatPanel::scrollToEnd()
{
    m_history->verticalScrollBar()->setValue(m_history->verticalScrollBar()->maximum());
}

bool AgentChatPanel::handleInputEvent(QEvent *event)
{
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::ShortcutOverride)
        return false;
    if (!isSendKey(*static_cast<QKeyEvent *>(event)))
        return false;
    event->accept();
    if (event->type() == QEvent::KeyPress)
        m_sendButton->click();
    return true;
}

bool AgentChatPanel::handleTranscriptEvent(QEvent *event)
{
    // A pointer that moves over the transcript asks for a layout with each step.
    if (leavesTheTextAlone(*event))
        return event->type() == QEvent::MouseMove && isInserting();
    // The transcript is about to be painted, resized, scrolled or clicked: its layout must be complete.
    completeInsertions();
    return false;
}

void AgentChatPanel::send()
{
    const QString text = m_input->toPlainText().trimmed();
    if (text.isEmpty())
        return;
    m_input->clear();
    Q_EMIT sendRequested(text);
}

void AgentChatPanel::clear()
{
    completeInsertions();
    m_history->clear();
    m_deltasEndInCarriageReturn = false;
    Q_EMIT clearRequested();
}

} // namespace QtAgent
} // namespace MireloQtLib
