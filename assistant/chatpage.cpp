#include "chatpage.h"

#include "chatinput.h"
#include "transcriptpresenter.h"

#include <qtagent/widgets/markdowntranscript.h>

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

ChatPage::ChatPage(AgentSession *session, QWidget *parent)
    : QWidget(parent)
    , m_session(session)
    , m_hint(new QLabel)
    , m_transcript(new MarkdownTranscript)
    , m_presenter(new TranscriptPresenter(m_transcript, this))
{
    m_hint->setObjectName(QStringLiteral("hint"));
    m_hint->setTextFormat(Qt::PlainText);
    m_hint->setWordWrap(true);
    m_hint->hide();
    m_transcript->setObjectName(QStringLiteral("transcript"));
    m_transcript->setAccessibleName(tr("对话内容"));
    setUpInput();
    setUpLayout();
    connectSession();
    updateButtons();
}

ChatPage::~ChatPage() = default;

void ChatPage::setUpInput()
{
    m_input = new ChatInput;
    m_input->setObjectName(QStringLiteral("chatInput"));
    m_input->setAccessibleName(tr("问题"));
    m_input->setPlaceholderText(tr("输入问题"));
    m_sendButton = new QPushButton(tr("发送(&S)"));
    m_sendButton->setObjectName(QStringLiteral("sendButton"));
    m_stopButton = new QPushButton(tr("停止(&T)"));
    m_stopButton->setObjectName(QStringLiteral("stopButton"));
    connect(m_input, &ChatInput::submitted, this, &ChatPage::send);
    connect(m_input, &ChatInput::textChanged, this, &ChatPage::updateButtons);
    connect(m_sendButton, &QPushButton::clicked, this, &ChatPage::send);
    connect(m_stopButton, &QPushButton::clicked, m_session, &AgentSession::cancel);
}

void ChatPage::setUpLayout()
{
    auto *buttons = new QVBoxLayout;
    buttons->addWidget(m_sendButton);
    buttons->addWidget(m_stopButton);
    buttons->addStretch();
    auto *row = new QHBoxLayout;
    row->addWidget(m_input, 1);
    row->addLayout(buttons);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_hint);
    layout->addWidget(m_transcript, 1);
    layout->addLayout(row);
}

void ChatPage::connectSession()
{
    connect(m_session, &AgentSession::assistantDelta, m_presenter, &TranscriptPresenter::appendDelta);
    connect(m_session, &AgentSession::conversationChanged, m_presenter,
            [this] { m_presenter->setMessages(m_session->conversation()); });
    connect(m_session, &AgentSession::runningChanged, this, &ChatPage::updateButtons);
}

ChatInput *ChatPage::input() const
{
    return m_input;
}

MarkdownTranscript *ChatPage::transcript() const
{
    return m_transcript;
}

void ChatPage::scrollToMessage(int index)
{
    m_transcript->scrollToMessage(m_presenter->shownAt(index));
}

void ChatPage::setHint(const QString &text)
{
    m_hint->setText(text);
    m_hint->setVisible(!text.isEmpty());
}

void ChatPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        m_presenter->repaint();
}

void ChatPage::send()
{
    if (!m_sendButton->isEnabled())
        return;
    const QString question = m_input->toPlainText().trimmed();
    m_input->clear();
    m_transcript->setFollowing(true);
    m_session->send(question);
}

void ChatPage::updateButtons()
{
    const bool isRunning = m_session->isRunning();
    const bool hasQuestion = !m_input->toPlainText().trimmed().isEmpty();
    const bool stopHadFocus = m_stopButton->hasFocus();
    m_sendButton->setEnabled(hasQuestion && !isRunning);
    m_stopButton->setEnabled(isRunning);
    if (stopHadFocus && !isRunning)
        m_input->setFocus();
}
