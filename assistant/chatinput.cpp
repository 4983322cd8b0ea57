#include "chatinput.h"

#include <QAbstractTextDocumentLayout>
#include <QKeyEvent>
#include <QTextDocument>

namespace {

constexpr int fewestLines = 2;
constexpr int mostLines = 8;

} // namespace

ChatInput::ChatInput(QWidget *parent)
    : QPlainTextEdit(parent)
{
    setTabChangesFocus(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
            [this] { updateGeometry(); });
}

ChatInput::~ChatInput() = default;

void ChatInput::setSendKey(SendKey key)
{
    m_sendKey = key;
}

ChatInput::SendKey ChatInput::sendKey() const
{
    return m_sendKey;
}

QSize ChatInput::sizeHint() const
{
    // The layout of a plain text counts in lines.
    const int lines = qRound(document()->documentLayout()->documentSize().height());
    return {QPlainTextEdit::sizeHint().width(), heightFor(qBound(fewestLines, lines, mostLines))};
}

QSize ChatInput::minimumSizeHint() const
{
    return {QPlainTextEdit::minimumSizeHint().width(), heightFor(fewestLines)};
}

void ChatInput::keyPressEvent(QKeyEvent *event)
{
    if (!isSending(*event))
        return QPlainTextEdit::keyPressEvent(event);
    event->accept();
    if (!event->isAutoRepeat())
        Q_EMIT submitted();
}

void ChatInput::changeEvent(QEvent *event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        updateGeometry();
}

bool ChatInput::isSending(const QKeyEvent &event) const
{
    if (event.key() != Qt::Key_Return && event.key() != Qt::Key_Enter)
        return false;
    const Qt::KeyboardModifiers modifiers = event.modifiers() & ~Qt::KeyboardModifiers(Qt::KeypadModifier);
    return modifiers == Qt::ControlModifier || (modifiers == Qt::NoModifier && m_sendKey == SendKey::Return);
}

int ChatInput::heightFor(int lines) const
{
    const int margins = qRound(2 * document()->documentMargin()) + 2 * frameWidth();
    return lines * fontMetrics().lineSpacing() + margins;
}
