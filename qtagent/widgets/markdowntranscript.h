#ifndef MIRELOQTLIB_QTAGENT_MARKDOWNTRANSCRIPT_H
#define MIRELOQTLIB_QTAGENT_MARKDOWNTRANSCRIPT_H

#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QColor>
#include <QElapsedTimer>
#include <QRectF>
#include <QString>
#include <QTextBrowser>
#include <QUrl>
#include <QVector>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QTextBlock;
class QTimer;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

class CodeCopyButtons;
class TranscriptDocument;

/// A transcript of messages that are rendered as Markdown while they arrive.
///
/// @code
/// transcript->beginMessage(tr("You"), QColor("#1d4ed8"), MarkdownTranscript::Format::PlainText);
/// transcript->appendDelta(question);
/// transcript->beginMessage(tr("Assistant"), QColor("#059669"));
/// ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
/// connect(reply, &ChatReply::deltaReceived, transcript, &MarkdownTranscript::appendDelta);
/// reply->whenEnded(this, [=](const ChatResult &result) {
///     transcript->finishMessage();
///     showEnd(result);
/// });
/// @endcode
///
/// It is the transcript alone: AgentChatPanel has one of its own, which shows plain text, and brings an input
/// and buttons. Take this class where answers have headings, lists, tables and code, and compose the window
/// around it.
///
/// @par When a delta is shown
/// By the end of this turn of the event loop, or at once where the message is finished, another one begins,
/// messageAt() is called, the view is painted, or a key or a mouse button is pressed. Only the block of text
/// that has not ended is rendered again, so that a delta costs the same however long the message is. Where
/// that block is long, later turns and paintings leave it out, so that no more than half of the time is spent
/// on it. A row of a table is shown as it was written until it is complete.
///
/// @par What is shown
/// However a text is cut into deltas, it looks the same. What a definition such as "[manual]: https://..."
/// says takes effect when the message is finished. A line of more than 10,000 characters is shown as it
/// stands, in pieces of 10,000. Characters that cannot be shown become U+FFFD; messageSource() has them.
///
/// @par Nothing is loaded
/// A picture is its alternative text, or else its address, as a link to it where that is http or https; HTML
/// is text. Links to http, https and mailto
/// can be clicked, or reached with Tab and opened with Return; their tool tip is the address they lead to.
/// That emits anchorClicked(), and opens the address with QDesktopServices. All other links are their text.
///
/// @par Copying
/// Ctrl+C copies the selection as it is shown, and without one the source of the message under the cursor,
/// as 复制消息 in the context menu does. Each block of code in sight has a button 复制, which copies it from
/// the source. Only text is copied.
///
/// @par Reading
/// The view follows the end until the reader scrolls away, and again once he is back there. His selection
/// and his place stay while text arrives. Alt+Up and Alt+Down go from message to message.
///
/// Functions of QTextEdit and QTextBrowser that change the document are not to be used. The transcript may be
/// deleted in a slot of followingChanged() and anchorClicked(), though not while the program calls a function
/// of QTextEdit that scrolls, such as find(). For style sheets and user-interface tests the buttons are named
/// transcriptCopyCode. Like every widget it belongs to the application's main thread.
class QTAGENT_WIDGETS_EXPORT MarkdownTranscript : public QTextBrowser
{
    Q_OBJECT

public:
    /// How a message is read.
    enum class Format {
        Markdown,  ///< headings, lists, tables, code, links and emphasis, as GitHub has them
        PlainText, ///< as it stands
    };
    Q_ENUM(Format)

    /// Creates an empty transcript that follows its end.
    explicit MarkdownTranscript(QWidget *parent = nullptr);
    ~MarkdownTranscript() override;

    /// Begins a message below a line with @p label in bold, and finishes one that is open. The label is plain
    /// text on one line in @p color, or in that of the palette where it is invalid; an empty label has no
    /// line. Returns the index of the message.
    int beginMessage(const QString &label, const QColor &color, Format format = Format::Markdown);

    /// Adds @p delta to the message that is open, beginning one without a label where none is. An empty delta
    /// does nothing.
    void appendDelta(const QString &delta);

    /// Ends the message that is open, if any: the next delta begins another one.
    void finishMessage();

    /// Returns what was added to the message @p index, character by character, or a null text where there is
    /// no such message.
    QString messageSource(int index) const;

    /// Returns how many messages were begun.
    int messageCount() const;

    /// Returns the index of the message at @p position of the document, or -1.
    int messageAt(int position) const;

    /// Copies the source of the message @p index to the clipboard. Does nothing where there is none.
    void copyMessage(int index);

    /// Scrolls the beginning of the message @p index to the top of the view, as far as that is possible. The
    /// view follows from then on if that is its end. Does nothing where there is no such message.
    void scrollToMessage(int index);

    /// Makes the view follow the end of the text, and goes there; or leaves it where it is, whatever is
    /// added.
    void setFollowing(bool following);

    /// Returns whether the view follows the end. It does at first. Each time the scroll bar is moved, by the
    /// reader or the program, decides anew: it does where that is the end.
    bool isFollowing() const;

    /// Returns nothing that could be shown: no address is ever loaded.
    QVariant loadResource(int type, const QUrl &name) override;

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    /// Does nothing: a transcript has no source that could be loaded.
    void setSource(const QUrl &name) override;

    /// @copydoc setSource(const QUrl &)
    void setSource(const QUrl &name, QTextDocument::ResourceType type);
#endif

public Q_SLOTS:
    /// Forgets all messages, the open one too, and follows again.
    void clear();

Q_SIGNALS:
    /// The view follows the end from now on, or no longer does.
    void followingChanged(bool following);

protected:
    /// Renders before keys are handled, and holds the transcript's own signals back until @p event is.
    bool event(QEvent *event) override;

    /// The same for what is painted and clicked.
    bool viewportEvent(QEvent *event) override;

    /// The same for the scroll bar.
    bool eventFilter(QObject *watched, QEvent *event) override;

    /// Goes from message to message, and copies one where nothing is selected.
    void keyPressEvent(QKeyEvent *event) override;

    /// Goes from link to link, and then to the buttons of the code.
    bool focusNextPrevChild(bool next) override;

    /// Offers to copy the message.
    void contextMenuEvent(QContextMenuEvent *event) override;

    /// Keeps following.
    void resizeEvent(QResizeEvent *event) override;

    /// Takes the colours of the palette, and fits the buttons to the font.
    void changeEvent(QEvent *event) override;

    /// Moves the buttons along.
    void scrollContentsBy(int dx, int dy) override;

    /// Returns the selection as text, and as nothing else.
    QMimeData *createMimeDataFromSelection() const override;

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    /// Does nothing: a transcript has no source that could be loaded.
    void doSetSource(const QUrl &name, QTextDocument::ResourceType type) override;
#endif

private Q_SLOTS:
    void activateLink(const QString &address);

private:
    using Change = std::function<void(const QVector<int *> &positions)>;

    QObject *control() const;
    void setUpLinks();
    void setUpPainting();
    void setUpScrolling();
    void postShow();
    void showIfDue();
    void showNow();
    void change(const Change &change);
    void restoreCursor(int anchor, int position);
    void addCost(qint64 nanoseconds);
    bool deliver(const std::function<bool()> &handler);
    void emitPending();
    void emitFollowing();
    void repaintChange(const QRectF &area);
    qreal topOfChange(const QTextBlock &block);
    void followEnd();
    void followRange();
    void followReader();
    void goToMessage(int step);
    bool isAtEnd() const;

    std::unique_ptr<TranscriptDocument> m_transcript;
    CodeCopyButtons *m_copyButtons = nullptr;
    QTimer *m_restTimer = nullptr;
    QElapsedTimer m_clock;
    qint64 m_nextShow = 0; // by the clock: when a long block may be rendered again
    bool m_isShowPosted = false;
    bool m_isFollowing = true;
    bool m_saidFollowing = true; // by the last signal
    bool m_isSayingFollowing = false;
    QUrl m_activated;          // the link whose signal is due
    int m_changeBegin = -1;    // position of the change that is about to be painted
    QVector<QRectF> m_columns; // of the table that has changed last: their cells in its first row
    int m_eventDepth = 0;      // of events being handled
    int m_ownScrollings = 0;   // under way
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
