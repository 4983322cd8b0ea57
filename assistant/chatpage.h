#ifndef ORVANE_CHATPAGE_H
#define ORVANE_CHATPAGE_H

#include <qtagent/agentsession.h>

#include <QSet>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QComboBox;
class QLabel;
class QPushButton;
QT_END_NAMESPACE
namespace MireloQtLib {
namespace QtAgent {
class MarkdownTranscript;
}
} // namespace MireloQtLib
class AnswerWatch;
class ChatInput;
class ConversationKeeper;
class FailureBar;
class NoticeBar;
class ThinkingPanel;
class ToolCallPanel;
class TranscriptPresenter;

/// The conversation of a session: its transcript, and below it the input with its buttons.
///
/// The menu of the transcript copies a message, asks its question again and lets it be edited, as the slots
/// do. Names: transcript, chatInput, sendButton, stopButton, and the bars hint and editing.
class ChatPage : public QWidget
{
    Q_OBJECT

public:
    /// Shows the conversation of @p session and sends to it. It is not owned, and outlives the page.
    /// @p keeper, which keeps it, and @p watch, which is its model, are not owned either.
    ChatPage(MireloQtLib::QtAgent::AgentSession *session, ConversationKeeper *keeper,
             const AnswerWatch *watch, QWidget *parent = nullptr);
    ~ChatPage() override;

    /// Returns the field for questions.
    ChatInput *input() const;

    /// Returns what was written and not sent: the text that was in the input before a question was edited,
    /// and that question where it was changed.
    QString draft() const;

    /// Returns the transcript, which only the page fills.
    MireloQtLib::QtAgent::MarkdownTranscript *transcript() const;

    /// Scrolls to the message @p index of the conversation, where it is shown.
    void scrollToMessage(int index);

    /// Shows what belongs to the conversation that the session has got besides its messages: what the model
    /// thought, and no failure of another one.
    void showConversation();

    /// Shows @p text above the transcript, as plain text, with @p action on a button where it is not empty;
    /// an empty text hides it.
    void setHint(const QString &text, const QString &action = {});

    /// Tells that the request failed with @p error and is sent again in @p delayMs milliseconds.
    void showRetry(int attempt, qint64 delayMs, const QString &error);

    /// Shows @p text below the input, as plain text.
    void setUsage(const QString &text);

    /// Offers @p names below the input, and shows that number @p current answers. Long ones are shown with
    /// "…", and in full in a tool tip.
    void setProfiles(const QStringList &names, int current);

public Q_SLOTS:
    /// Asks the question of the current message again: the one under the cursor where the transcript has the
    /// focus, else the last.
    void regenerate();

    /// Puts the question of the current message into the input. The next question that is sent takes its
    /// place, and what followed it is dropped. What was in the input is there again when the editing ends;
    /// what was edited comes back with QPlainTextEdit::undo().
    void editQuestion();

    /// Copies the current message to the clipboard, in full.
    void copyMessage();

    /// Ends the editing of a question where one is edited, else the run.
    void stop();

Q_SIGNALS:
    /// The user pressed the button of the hint.
    void hintActed();

    /// The user wants the profile number @p index to answer.
    void profileChosen(int index);

protected:
    void changeEvent(QEvent *event) override;

private:
    void setUpInput();
    void setUpProfiles();
    void addProfile(const QString &name);
    void setUpLayout();
    void connectSession();
    void connectWatch();
    void showEnd(const MireloQtLib::QtAgent::RunOutcome &outcome);
    void showMessages();
    void showThinking();
    void copyShown(int shown) const;
    void setInput(const QString &text);
    void send();
    void retry();
    void takeRestored();
    int currentMessage() const;
    void regenerateAt(int index);
    void editQuestionAt(int index);
    void endEditing();
    void openMenu(const QPoint &position);
    void updateButtons();

    MireloQtLib::QtAgent::AgentSession *const m_session;
    ConversationKeeper *const m_keeper;
    const AnswerWatch *const m_watch;
    NoticeBar *m_hint = nullptr;
    NoticeBar *m_editing = nullptr;
    FailureBar *m_failure = nullptr;
    ThinkingPanel *m_thinking = nullptr;
    ToolCallPanel *m_calls = nullptr;
    QComboBox *m_profiles = nullptr;
    QLabel *m_usage = nullptr;
    int m_editedQuestion = -1;
    QString m_draft;               // while a question is edited
    int m_askedIndex = -1;         // of the message whose question was asked again
    QString m_askedText;           // in place of it
    QSet<QString> m_executedCalls; // of the last round
    MireloQtLib::QtAgent::MarkdownTranscript *m_transcript = nullptr;
    TranscriptPresenter *m_presenter = nullptr;
    ChatInput *m_input = nullptr;
    QPushButton *m_sendButton = nullptr;
    QPushButton *m_stopButton = nullptr;
};

#endif
