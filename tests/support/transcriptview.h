#ifndef QTAGENT_TESTS_TRANSCRIPTVIEW_H
#define QTAGENT_TESTS_TRANSCRIPTVIEW_H

#include <qtagent/widgets/markdowntranscript.h>

#include "eventloop.h"

#include <QScrollBar>
#include <QTextBlock>
#include <QTextList>
#include <QToolButton>
#include <QWheelEvent>
#include <QtTest>

#include <functional>

/// A transcript with what tests ask of it.
class TranscriptView : public MireloQtLib::QtAgent::MarkdownTranscript
{
public:
    /// Shows the view in the size of a small window.
    void showSmall()
    {
        resize(400, 200);
        show();
        QVERIFY(QTest::qWaitForWindowExposed(this));
        runUntilQuiet();
    }

    /// Adds @p delta and lets a turn of the event loop pass.
    void add(const QString &delta)
    {
        appendDelta(delta);
        runUntilQuiet();
    }

    /// Adds as many paragraphs as do not fit into a small window.
    void addPage(int paragraphs = 60)
    {
        for (int number = 1; number <= paragraphs; ++number)
            appendDelta(QStringLiteral("Paragraph %1\n\n").arg(number));
        runUntilQuiet();
    }

    int end() const { return verticalScrollBar()->maximum(); }
    int place() const { return verticalScrollBar()->value(); }

    /// Returns the place of the first character of @p text in the document.
    int find(const QString &text) const { return int(toPlainText().indexOf(text)); }

    void select(int anchor, int position)
    {
        QTextCursor cursor = textCursor();
        cursor.setPosition(anchor);
        cursor.setPosition(position, QTextCursor::KeepAnchor);
        setTextCursor(cursor);
    }

    /// Turns the wheel of a mouse in the middle of the view: @p angle is 120 for a notch away from the user.
    void turnWheel(int angle)
    {
        const QPoint point = viewport()->rect().center();
        QWheelEvent event(point, viewport()->mapToGlobal(point), {}, {0, angle}, Qt::NoButton, {},
                          Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(viewport(), &event);
    }

    /// Returns the middle of the character at @p position, in the coordinates of the viewport.
    QPoint pointAt(int position) const
    {
        QTextCursor cursor(document());
        cursor.setPosition(position);
        const QRect left = cursorRect(cursor);
        cursor.setPosition(position + 1);
        const QRect right = cursorRect(cursor);
        return (left.center() + right.center()) / 2;
    }

    QTextCharFormat formatOf(const QString &text) const
    {
        QTextCursor cursor(document());
        cursor.setPosition(find(text) + 1);
        return cursor.charFormat();
    }

    /// Returns the buttons from top to bottom.
    QList<QToolButton *> copyButtons() const
    {
        QList<QToolButton *> buttons = findChildren<QToolButton *>(QStringLiteral("transcriptCopyCode"));
        std::sort(buttons.begin(), buttons.end(),
                  [](const QToolButton *one, const QToolButton *other) { return one->y() < other->y(); });
        return buttons;
    }
};

/// What a row of a test does with a transcript.
using TranscriptStep = std::function<void(TranscriptView *)>;
Q_DECLARE_METATYPE(TranscriptStep)

#endif
