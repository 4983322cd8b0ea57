#include "chatpage.h"

#include "answerwatch.h"
#include "chatinput.h"
#include "conversationkeeper.h"
#include "failurebar.h"
#include "messageactions.h"
#include "noticebar.h"
#include "thinkingpanel.h"
#include "toolcallpanel.h"
#include "transcriptpresenter.h"

#include <qtagent/widgets/markdowntranscript.h>

#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

using namespace MireloQtLib::QtAgent;

ChatPage::ChatPage(AgentSession *session, const AnswerWatch *watch, QWidget *parent)
    : QWidget(parent)
    , m_session(session)
    , m_watch(watch)
    , m_hint(new NoticeBar)
    , m_editing(new NoticeBar)
    , m_failure(new FailureBar)
    , m_thinking(new ThinkingPanel)
    , m_calls(new ToolCallPanel(session))
    , m_profiles(new QComboBox)
    , m_usage(new QLabel)
    , m_transcript(new MarkdownTranscript)
    , m_presenter(new TranscriptPresenter(m_transcript, this))
{
    m_hint->setObjectName(QStringLiteral("hint"));
    m_editing->setObjectName(QStringLiteral("editing"));
    m_failure->setObjectName(QStringLiteral("failure"));
    m_usage->setObjectName(QStringLiteral("usageLabel"));
    m_usage->setTextFormat(Qt::PlainText);
    m_transcript->setObjectName(QStringLiteral("transcript"));
    m_transcript->setAccessibleName(tr("对话内容"));
    m_transcript->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_transcript, &QWidget::customContextMenuRequested, this, &ChatPage::openMenu);
    connect(m_hint, &NoticeBar::acted, this, &ChatPage::hintActed);
    connect(m_editing, &NoticeBar::dismissed, this, &ChatPage::endEditing);
    setUpInput();
    setUpProfiles();
    setUpLayout();
    connectSession();
    connectWatch();
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

void ChatPage::setUpProfiles()
{
    m_profiles->setObjectName(QStringLiteral("modelCombo"));
    m_profiles->setAccessibleName(tr("模型"));
    m_profiles->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(m_profiles, QOverload<int>::of(&QComboBox::activated), this, &ChatPage::profileChosen);
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
    layout->addWidget(m_thinking);
    layout->addWidget(m_calls);
    layout->addWidget(m_failure);
    layout->addWidget(m_editing);
    layout->addLayout(row);
    auto *state = new QHBoxLayout;
    state->addWidget(m_profiles);
    state->addStretch();
    state->addWidget(m_usage);
    layout->addLayout(state);
}

void ChatPage::connectSession()
{
    connect(m_session, &AgentSession::assistantDelta, m_presenter, &TranscriptPresenter::appendDelta);
    connect(m_session, &AgentSession::conversationChanged, m_presenter,
            [this] { m_presenter->setMessages(m_session->conversation()); });
    connect(m_session, &AgentSession::conversationChanged, this, &ChatPage::endEditing);
    connect(m_session, &AgentSession::runningChanged, this, &ChatPage::updateButtons);
    connect(m_session, &AgentSession::runningChanged, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::assistantDelta, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::runEnded, this, &ChatPage::showEnd);
    connect(m_failure, &NoticeBar::acted, this,
            [this] { regenerateAt(m_session->conversation().size() - 1); });
}

void ChatPage::connectWatch()
{
    connect(m_watch, &AnswerWatch::asked, m_thinking, &ThinkingPanel::clear);
    connect(m_watch, &AnswerWatch::thinkingReceived, m_thinking, &ThinkingPanel::append);
    connect(m_watch, &AnswerWatch::thinkingReceived, m_failure, &NoticeBar::clear);
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

void ChatPage::showConversation()
{
    const QVector<ChatMessage> conversation = m_session->conversation();
    m_failure->clear();
    m_calls->clear();
    m_thinking->clear();
    if (!conversation.isEmpty())
        m_thinking->append(conversation.last().metadata.value(MessageKey::thinking()).toString());
}

void ChatPage::setUsage(const QString &text)
{
    m_usage->setText(text);
}

void ChatPage::setProfiles(const QStringList &names, int current)
{
    m_profiles->clear();
    m_profiles->addItems(names);
    m_profiles->setCurrentIndex(current);
}

void ChatPage::showRetry(int attempt, qint64 delayMs, const QString &error)
{
    m_failure->tellRetry(attempt, delayMs, error);
}

void ChatPage::showEnd(const RunOutcome &outcome)
{
    if (outcome.end == RunEnd::Failed)
        m_failure->tellFailure(m_watch->details().failure, outcome.error);
}

void ChatPage::setHint(const QString &text, const QString &action)
{
    if (text.isEmpty())
        m_hint->clear();
    else
        m_hint->tell(text, action);
}

void ChatPage::regenerate()
{
    regenerateAt(currentMessage());
}

void ChatPage::editQuestion()
{
    editQuestionAt(currentMessage());
}

void ChatPage::copyMessage()
{
    m_transcript->copyMessage(m_presenter->shownAt(currentMessage()));
}

void ChatPage::stop()
{
    if (m_editedQuestion >= 0)
        endEditing();
    else
        m_session->cancel();
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
    const int edited = m_editedQuestion;
    m_input->clear();
    m_transcript->setFollowing(true);
    if (edited >= 0)
        askInstead(m_session, edited, question);
    else
        m_session->send(question);
}

int ChatPage::currentMessage() const
{
    const int last = m_session->conversation().size() - 1;
    const int shown = m_transcript->messageAt(m_transcript->textCursor().position());
    const int index = m_transcript->hasFocus() ? m_presenter->messageAt(shown) : last;
    return index < 0 ? last : index;
}

void ChatPage::regenerateAt(int index)
{
    m_transcript->setFollowing(true);
    askAgain(m_session, index);
}

void ChatPage::editQuestionAt(int index)
{
    const QVector<ChatMessage> conversation = m_session->conversation();
    const int question = questionOf(conversation, index);
    if (question < 0 || m_session->isRunning())
        return;
    m_editedQuestion = question;
    m_editing->tell(tr("正在修改问题。发送后，它后面的消息会被替换。"));
    m_input->setPlainText(conversation.at(question).content);
    m_input->moveCursor(QTextCursor::End);
    m_input->setFocus();
}

void ChatPage::endEditing()
{
    if (std::exchange(m_editedQuestion, -1) < 0)
        return;
    m_editing->clear();
    m_input->clear();
}

void ChatPage::openMenu(const QPoint &position)
{
    const int shown = m_transcript->messageAt(m_transcript->cursorForPosition(position).position());
    const int index = m_presenter->messageAt(shown);
    if (index < 0)
        return;
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    if (m_transcript->textCursor().hasSelection())
        menu->addAction(tr("复制(&C)"), m_transcript, &MarkdownTranscript::copy);
    menu->addAction(tr("复制消息(&M)"), this, [this, shown] { m_transcript->copyMessage(shown); });
    menu->addSeparator();
    const bool isIdle = !m_session->isRunning();
    menu->addAction(tr("重新回答(&R)"), this, [this, index] { regenerateAt(index); })->setEnabled(isIdle);
    menu->addAction(tr("修改问题(&E)"), this, [this, index] { editQuestionAt(index); })->setEnabled(isIdle);
    menu->popup(m_transcript->viewport()->mapToGlobal(position));
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
