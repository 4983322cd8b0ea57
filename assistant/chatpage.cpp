#include "chatpage.h"

#include "answerwatch.h"
#include "beginningof.h"
#include "chatinput.h"
#include "conversationkeeper.h"
#include "failurebar.h"
#include "librarytexts.h"
#include "messageactions.h"
#include "noticebar.h"
#include "thinkingpanel.h"
#include "toolcallpanel.h"
#include "transcriptpresenter.h"

#include <qtagent/widgets/markdowntranscript.h>

#include <QClipboard>
#include <QComboBox>
#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTextDocument>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

using namespace MireloQtLib::QtAgent;

ChatPage::ChatPage(AgentSession *session, ConversationKeeper *keeper, const AnswerWatch *watch,
                   QWidget *parent)
    : QWidget(parent)
    , m_session(session)
    , m_keeper(keeper)
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
    connect(m_session, &AgentSession::traceAdded, this,
            [this](const ToolCallTrace &trace) { m_executedCalls.insert(trace.callId); });
    connect(m_session, &AgentSession::conversationChanged, this, &ChatPage::showMessages);
    connect(m_session, &AgentSession::conversationChanged, this, &ChatPage::endEditing);
    connect(m_session, &AgentSession::conversationChanged, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::toolStarted, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::approvalRequired, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::runningChanged, this, &ChatPage::updateButtons);
    connect(m_session, &AgentSession::runningChanged, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::assistantDelta, m_failure, &NoticeBar::clear);
    connect(m_session, &AgentSession::runEnded, this, &ChatPage::showMessages);
    connect(m_session, &AgentSession::runEnded, this, &ChatPage::showEnd);
    connect(m_failure, &NoticeBar::acted, this, &ChatPage::retry);
    connect(m_keeper, &ConversationKeeper::restored, this, &ChatPage::takeRestored);
}

void ChatPage::connectWatch()
{
    connect(m_watch, &AnswerWatch::asked, m_thinking, &ThinkingPanel::clear);
    connect(m_watch, &AnswerWatch::asked, this, [this] { m_executedCalls.clear(); });
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
    m_presenter->showFrom(index);
    m_transcript->scrollToMessage(m_presenter->shownAt(index));
}

void ChatPage::showConversation()
{
    m_askedIndex = -1;
    m_failure->clear();
    m_calls->clear();
    showThinking();
}

void ChatPage::showThinking()
{
    const QVector<ChatMessage> conversation = m_session->conversation();
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
    for (const QString &name : names)
        addProfile(name);
    m_profiles->setCurrentIndex(current);
    m_profiles->setToolTip(m_profiles->currentData(Qt::ToolTipRole).toString());
}

// The box is as wide as its widest name, and the window at least as wide as that.
void ChatPage::addProfile(const QString &name)
{
    constexpr int longestToolTip = 500;
    constexpr int longest = 30;
    const QString line = beginningOf(name.simplified(), longestToolTip);
    const QFontMetrics metrics = m_profiles->fontMetrics();
    const QString shown = metrics.elidedText(line, Qt::ElideMiddle, longest * metrics.averageCharWidth());
    m_profiles->addItem(shown);
    if (shown != line)
        m_profiles->setItemData(m_profiles->count() - 1, Qt::convertFromPlainText(line, Qt::WhiteSpaceNormal),
                                Qt::ToolTipRole);
}

void ChatPage::showRetry(int attempt, qint64 delayMs, const QString &error)
{
    m_failure->tellRetry(attempt, delayMs, error);
}

void ChatPage::showEnd(const RunOutcome &outcome)
{
    if (outcome.end == RunEnd::Failed)
        m_failure->tellFailure(m_watch->details().failure, shownText(outcome.error));
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
    copyShown(m_presenter->shownAt(currentMessage()));
}

// The transcript has no more than the beginning of a long result.
void ChatPage::copyShown(int shown) const
{
    const ChatMessage message = m_session->conversation().value(m_presenter->messageAt(shown));
    if (message.role == QLatin1String("tool"))
        QGuiApplication::clipboard()->setText(shownText(message.content));
    else
        m_transcript->copyMessage(shown);
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

// What a call has not brought yet is no result: the placeholder behind it is shown where the run ends so.
void ChatPage::showMessages()
{
    QVector<ChatMessage> messages = m_session->conversation();
    if (m_session->isRunning()) {
        const auto round = std::find_if(messages.crbegin(), messages.crend(), [](const ChatMessage &message) {
                               return message.role != QLatin1String("tool");
                           }).base();
        const auto open = std::find_if(round, messages.cend(), [this](const ChatMessage &message) {
            return !m_executedCalls.contains(message.toolCallId);
        });
        messages.resize(int(open - messages.cbegin()));
    }
    m_presenter->setMessages(messages);
}

// The end of the editing, which the conversation tells when it is changed, leaves the input to what was there
// before.
void ChatPage::send()
{
    if (!m_sendButton->isEnabled())
        return;
    const QString question = m_input->toPlainText().trimmed();
    m_transcript->setFollowing(true);
    if (m_editedQuestion >= 0) {
        m_askedIndex = m_editedQuestion;
        m_askedText = question;
        m_keeper->askInstead(m_editedQuestion, question);
    } else {
        m_askedIndex = -1;
        m_input->clear();
        m_session->send(question);
    }
}

void ChatPage::retry()
{
    if (m_editedQuestion >= 0)
        send();
    else
        regenerateAt(m_askedIndex < 0 ? int(m_session->conversation().size()) - 1 : m_askedIndex);
}

// Nobody has to write a question again that was not answered.
void ChatPage::takeRestored()
{
    showThinking();
    if (m_askedText.isEmpty())
        return;
    editQuestionAt(m_askedIndex);
    setInput(m_askedText);
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
    m_askedIndex = index;
    m_askedText.clear();
    m_keeper->askAgain(index);
}

void ChatPage::editQuestionAt(int index)
{
    const QVector<ChatMessage> conversation = m_session->conversation();
    const int question = questionOf(conversation, index);
    if (question < 0 || m_session->isRunning())
        return;
    if (m_editedQuestion < 0)
        m_draft = m_input->toPlainText();
    m_editedQuestion = question;
    m_editing->tell(tr("正在修改问题。发送后，它后面的消息会被替换。"));
    setInput(conversation.at(question).content);
    m_input->setFocus();
}

void ChatPage::endEditing()
{
    if (std::exchange(m_editedQuestion, -1) < 0)
        return;
    m_editing->clear();
    setInput(std::exchange(m_draft, {}));
}

// Can be undone.
void ChatPage::setInput(const QString &text)
{
    QTextCursor all(m_input->document());
    all.select(QTextCursor::Document);
    all.insertText(text);
    m_input->moveCursor(QTextCursor::End);
}

QString ChatPage::draft() const
{
    QString text = m_input->toPlainText();
    if (m_editedQuestion < 0)
        return text;
    const bool isChanged = text != m_session->conversation().value(m_editedQuestion).content;
    QStringList parts{m_draft, isChanged ? text : QString()};
    parts.removeAll(QString());
    return parts.join(QStringLiteral("\n\n"));
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
    menu->addAction(tr("复制消息(&M)"), this, [this, shown] { copyShown(shown); });
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
