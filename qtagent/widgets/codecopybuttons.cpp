#include "codecopybuttons_p.h"

#include "transcriptdocument_p.h"

#include <QAbstractTextDocumentLayout>
#include <QClipboard>
#include <QGuiApplication>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextEdit>
#include <QToolButton>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int margin = 2;

} // namespace

CodeCopyButtons::CodeCopyButtons(QTextEdit *view, TranscriptDocument *transcript)
    : QObject(view)
    , m_view(view)
    , m_transcript(transcript)
{}

void CodeCopyButtons::place()
{
    const QRect sight = m_view->viewport()->rect();
    const int count = int(m_transcript->codes().size());
    const int first = count == 0 ? 0 : firstInSight();
    int index = first;
    for (; index < count; ++index) {
        const QRect area = areaOf(m_transcript->codes().at(index));
        if (area.top() > sight.bottom())
            break;
        placeButton(index, area);
    }
    removeOthers(first, index);
}

// In the coordinates of the viewport, from its left edge to its right one.
QRect CodeCopyButtons::areaOf(const TranscriptCode &code) const
{
    const QTextDocument *document = m_view->document();
    const QAbstractTextDocumentLayout *layout = document->documentLayout();
    const QRectF first = layout->blockBoundingRect(document->findBlock(code.firstPosition));
    const QRectF last = layout->blockBoundingRect(document->findBlock(code.lastPosition));
    const int scrolled = m_view->verticalScrollBar()->value();
    const int top = int(first.top()) - scrolled;
    return {0, top, m_view->viewport()->width(), int(last.bottom()) - scrolled - top};
}

int CodeCopyButtons::firstInSight() const
{
    const QVector<TranscriptCode> &codes = m_transcript->codes();
    const auto isAbove = [this](const TranscriptCode &code, int top) { return areaOf(code).bottom() < top; };
    return int(std::lower_bound(codes.begin(), codes.end(), 0, isAbove) - codes.begin());
}

void CodeCopyButtons::placeButton(int index, const QRect &area)
{
    QToolButton *button = m_buttons.value(index);
    if (!button)
        button = createButton(index);
    button->resize(button->sizeHint());
    const int lowest = qMax(area.top(), area.bottom() - margin - button->height());
    const int y = qBound(area.top(), margin, lowest);
    button->move(area.right() - margin - button->width(), qMax(y, area.top() + margin));
    button->show();
}

void CodeCopyButtons::removeOthers(int first, int last)
{
    for (auto button = m_buttons.begin(); button != m_buttons.end();) {
        if (button.key() >= first && button.key() < last) {
            ++button;
            continue;
        }
        if ((*button)->hasFocus())
            m_view->setFocus();
        (*button)->disconnect(this);
        (*button)->setObjectName(QString());
        (*button)->hide();
        (*button)->deleteLater(); // it may be the one that was clicked
        button = m_buttons.erase(button);
    }
}

QToolButton *CodeCopyButtons::createButton(int index)
{
    auto *button = new QToolButton(m_view->viewport());
    button->setObjectName(QStringLiteral("transcriptCopyCode"));
    button->setText(tr("复制"));
    button->setAccessibleName(tr("复制代码"));
    button->setCursor(Qt::ArrowCursor);
    connect(button, &QToolButton::clicked, this, [this, index] { copy(index); });
    const auto next = m_buttons.lowerBound(index);
    QWidget *before = next == m_buttons.begin() ? static_cast<QWidget *>(m_view) : std::prev(next).value();
    QWidget::setTabOrder(before, button);
    m_buttons.insert(index, button);
    return button;
}

void CodeCopyButtons::copy(int index)
{
    QGuiApplication::clipboard()->setText(m_transcript->sourceOf(m_transcript->codes().at(index)));
}

} // namespace QtAgent
} // namespace MireloQtLib
