#ifndef MIRELOQTLIB_QTAGENT_AGENTCHATPANEL_H
#define MIRELOQTLIB_QTAGENT_AGENTCHATPANEL_H

#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QDeadlineTimer>
#include <QTextCursor>
#include <QWidget>

#include <memory>

QT_BEGIN_NAMESPACE
class QPlainTextEdit;
class QPushButton;
class QTextBlock;
class QTextBrowser;
class QTimer;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

class LineBreakingCost;

/// A chat: a transcript that answers stream into, an input, and buttons to send, stop and clear.
///
/// The panel knows nothing of models. Its host answers the signals and shows what arrives:
/// @code
/// auto *panel = new AgentChatPanel(this);
/// connect(panel, &AgentChatPanel::sendRequested, this, [=](const QString &text) {
///     panel->appendUserMessage(text);
///     panel->beginAgentMessage();
///     panel->setBusy(true);
///     ChatReply *reply = model->chat({ChatMessage::user(text)}, {}, panel);
///     connect(panel, &AgentChatPanel::stopRequested, reply, &ChatReply::cancel);
///     connect(reply, &ChatReply::deltaReceived, panel, &AgentChatPanel::appendAgentDelta);
///     connect(reply, &ChatReply::failed, panel, &AgentChatPanel::appendSystemMessage);
///     reply->whenEnded(panel, [panel](const ChatResult &) {
///         panel->finishAgentMessage();
///         panel->setBusy(false);
///     });
///     reply->whenEnded(reply, [reply](const ChatResult &) { reply->deleteLater(); });
/// });
/// @endcode
///
/// All texts are shown as they are: nothing in them is taken for markup, and "\n", "\r\n" and "\r" each
/// begin one new line.
///
/// Deltas may arrive at any rate. Those of one turn of the event loop are laid out once, together with
/// their paragraph. Where that takes longer than a few milliseconds, because the paragraph is long, the
/// next layout waits for as long, though for 5 seconds at most: layouts that take no longer than that never
/// take more than half of the time, and the buttons keep answering.
/// A paragraph with more than 10,000 characters in a row that no line can end at, such as data in
/// hexadecimal, makes the transcript break its lines anywhere until it is cleared.
///
/// In the input Ctrl+Return sends, as the button does; Return begins a new line and Tab leaves the input.
/// A button that is disabled while it has the keyboard focus gives it to the input, and 清空 takes it by
/// the Tab key alone: what the user types next presses no button. The panel may be deleted in a slot of any
/// of its signals. For style sheets and user-interface tests its children are named agentChatHistory,
/// agentChatInput, agentChatSend, agentChatStop and agentChatClear. Like every widget the panel belongs to
/// the application's main thread.
class QTAGENT_WIDGETS_EXPORT AgentChatPanel : public QWidget
{
    Q_OBJECT

public:
    /// Creates an idle panel with an empty transcript.
    explicit AgentChatPanel(QWidget *parent = nullptr);
    ~AgentChatPanel() override;

    /// Shows @p text as a message of the user, below the label "用户", and scrolls to it.
    void appendUserMessage(const QString &text);

    /// Shows @p text as a note of the program, such as an error, below the label "系统", and scrolls to it.
    /// An agent message that is open stays open: a later delta continues on the note's last line.
    void appendSystemMessage(const QString &text);

    /// Opens an agent message, which shows the label "智能体". Does nothing while one is open.
    void beginAgentMessage();

    /// Adds @p delta to the end of the transcript, opening an agent message where none is open. The text is
    /// there when the call returns, with the transcript's cursor behind it and nothing selected. The view
    /// shows it by the end of this turn of the event loop, wherever the user had scrolled, or a little later
    /// where the last layout was a long one; at the latest before anything else happens to the transcript.
    void appendAgentDelta(const QString &delta);

    /// Closes the agent message: the next delta opens a new one. Writes nothing.
    void finishAgentMessage();

    /// Enables the send button while idle and the stop button while @p busy. The one that is disabled gives
    /// the focus to the input if it has it. The input and the clear button stay as they are.
    void setBusy(bool busy);

Q_SIGNALS:
    /// The user sent @p text, which is trimmed and never empty. The input is empty already.
    void sendRequested(const QString &text);

    /// The user pressed the stop button.
    void stopRequested();

    /// The user pressed the clear button. The transcript is empty already; an open agent message stays open,
    /// and its next delta is shown without a label.
    void clearRequested();

protected:
    /// Sends on Ctrl+Return, and lays out what was inserted before the transcript is painted or scrolled.
    bool eventFilter(QObject *watched, QEvent *event) override;

    /// Moves the focus from a button that was disabled or hidden to the input.
    bool focusNextPrevChild(bool next) override;

private:
    void setUpChildren();
    void layOutChildren();
    void connectChildren();
    void appendMessage(const QString &color, const QString &label, const QString &text);
    void appendBlock(const QString &html);
    void insert(const QString &text);
    bool isInserting() const;
    void startInsertion();
    void completeInsertions();
    void pauseAfter(qint64 layoutTime, const QTextBlock &lastParagraph);
    void layOutSoon();
    void layOutWhenDue();
    void chooseWrapping(const QString &text);
    void scrollToEnd();
    bool handleInputEvent(QEvent *event);
    bool handleTranscriptEvent(QEvent *event);
    void send();
    void clear();

    QTextBrowser *m_history;
    QPlainTextEdit *m_input;
    QPushButton *m_sendButton;
    QPushButton *m_stopButton;
    QPushButton *m_clearButton;
    bool m_agentMessageOpen = false;
    bool m_deltasEndInCarriageReturn = false;
    QTextCursor m_insertion; // with an open edit block, or null when everything is laid out
    QDeadlineTimer m_nextLayout;
    QTimer *m_layoutTimer;
    bool m_layoutIsPosted = false;
    std::unique_ptr<LineBreakingCost> m_lineBreakingCost;
    bool m_breaksAnywhere = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
