#ifndef ORVANE_CHATPAGE_H
#define ORVANE_CHATPAGE_H

#include <qtagent/agentsession.h>

#include <QWidget>

QT_BEGIN_NAMESPACE
class QLabel;
class QPushButton;
QT_END_NAMESPACE
namespace MireloQtLib {
namespace QtAgent {
class MarkdownTranscript;
}
} // namespace MireloQtLib
class ChatInput;
class TranscriptPresenter;

/// The conversation of a session: its transcript, and below it the input with its buttons.
///
/// Names: transcript, chatInput, sendButton, stopButton, hint.
class ChatPage : public QWidget
{
    Q_OBJECT

public:
    /// Shows the conversation of @p session and sends to it. It is not owned, and outlives the page.
    explicit ChatPage(MireloQtLib::QtAgent::AgentSession *session, QWidget *parent = nullptr);
    ~ChatPage() override;

    /// Returns the field for questions.
    ChatInput *input() const;

    /// Returns the transcript, which only the page fills.
    MireloQtLib::QtAgent::MarkdownTranscript *transcript() const;

    /// Scrolls to the message @p index of the conversation, where it is shown.
    void scrollToMessage(int index);

    /// Shows @p text above the transcript, as plain text; an empty one hides it.
    void setHint(const QString &text);

protected:
    void changeEvent(QEvent *event) override;

private:
    void setUpInput();
    void setUpLayout();
    void connectSession();
    void send();
    void updateButtons();

    MireloQtLib::QtAgent::AgentSession *const m_session;
    QLabel *m_hint = nullptr;
    MireloQtLib::QtAgent::MarkdownTranscript *m_transcript = nullptr;
    TranscriptPresenter *m_presenter = nullptr;
    ChatInput *m_input = nullptr;
    QPushButton *m_sendButton = nullptr;
    QPushButton *m_stopButton = nullptr;
};

#endif
