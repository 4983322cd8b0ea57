#include "conversationkeeper.h"

#include "beginningof.h"
#include "messageactions.h"

#include <algorithm>
#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

// With the time that saving takes, what is kept stays less than a second old.
constexpr int saveIntervalMs = 500;
// A store that another program holds makes each attempt wait for a second.
constexpr int firstRetryMs = 1000;
constexpr int longestRetryMs = 60000;
constexpr int longestTitle = 40;

// Empty for an answer that is complete.
QString endName(RunEnd end, const AnswerDetails &details)
{
    if (end == RunEnd::Failed)
        return QStringLiteral("failed");
    if (end != RunEnd::Finished)
        return QStringLiteral("stopped");
    if (!details.refusal.isEmpty())
        return QStringLiteral("refused");
    if (details.finishReason == QLatin1String("length"))
        return QStringLiteral("length");
    return details.finishReason == QLatin1String("content_filter") ? QStringLiteral("filtered") : QString();
}

QString firstQuestion(const QVector<ChatMessage> &messages)
{
    const auto question = std::find_if(messages.cbegin(), messages.cend(), [](const ChatMessage &message) {
        return message.role == QLatin1String("user");
    });
    return question == messages.cend() ? QString() : question->content;
}

} // namespace

ConversationKeeper::ConversationKeeper(ConversationStore *store, AgentSession *session, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_session(session)
    , m_retryMs(firstRetryMs)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &ConversationKeeper::save);
    connectSession();
}

void ConversationKeeper::connectSession()
{
    connect(m_session, &AgentSession::assistantDelta, this, &ConversationKeeper::addDelta);
    connect(m_session, &AgentSession::conversationChanged, this, &ConversationKeeper::takeConversation);
    connect(m_session, &AgentSession::runningChanged, this, &ConversationKeeper::takeRunning);
    connect(m_session, &AgentSession::runEnded, this, &ConversationKeeper::takeEnd);
}

ConversationKeeper::~ConversationKeeper() = default;

const Conversation &ConversationKeeper::conversation() const
{
    return m_conversation;
}

bool ConversationKeeper::isSaved() const
{
    return m_saveError.isEmpty();
}

QString ConversationKeeper::saveError() const
{
    return m_saveError;
}

bool ConversationKeeper::finish()
{
    const QPointer<ConversationKeeper> guard(this);
    m_session->cancel();
    if (guard && !isSaved())
        save();
    return guard && isSaved();
}

void ConversationKeeper::discard()
{
    m_timer.stop();
    setSaveError({});
}

bool ConversationKeeper::open(const QString &id)
{
    QString error;
    const Conversation conversation = m_store->load(id, &error);
    if (conversation.id.isEmpty()) {
        Q_EMIT failed(error);
        return false;
    }
    if (!finish())
        return false;
    // It may be the one that the end of the run has just changed.
    setCurrent(conversation.id == m_conversation.id ? m_conversation : conversation);
    return true;
}

bool ConversationKeeper::begin()
{
    if (!finish())
        return false;
    setCurrent({});
    return true;
}

void ConversationKeeper::setCurrent(const Conversation &conversation)
{
    m_conversation = conversation;
    m_answerAt = -1;
    m_replaced.clear();
    m_arrived.clear();
    const QPointer<ConversationKeeper> guard(this);
    m_isOpening = true;
    m_session->setConversation(m_conversation.chatMessages());
    if (!guard)
        return;
    m_isOpening = false;
    Q_EMIT opened();
}

bool ConversationKeeper::askAgain(int index)
{
    return replace(index, [this, index] { return ::askAgain(m_session, index); });
}

bool ConversationKeeper::askInstead(int index, const QString &text)
{
    return replace(index, [this, index, text] { return ::askInstead(m_session, index, text); });
}

bool ConversationKeeper::replace(int index, const std::function<bool()> &ask)
{
    const int question = questionOf(m_session->conversation(), index);
    if (question < 0 || m_session->isRunning())
        return false;
    takeMessages();
    m_replaced = m_conversation.messages;
    m_heldUntil = question + 1;
    const QPointer<ConversationKeeper> guard(this);
    const bool isAsked = ask();
    if (guard && !isAsked)
        m_heldUntil = -1;
    return isAsked;
}

bool ConversationKeeper::undoReplacing()
{
    return !m_session->isRunning() && isReplaced() && restoreReplaced();
}

// Whether the beginning of what was there is not all of it.
bool ConversationKeeper::isReplaced() const
{
    return std::any_of(m_replaced.cbegin(), m_replaced.cend(), [this](const StoredMessage &message) {
        const auto index = &message - m_replaced.constData();
        return index >= m_conversation.messages.size()
            || m_conversation.messages.at(int(index)).message != message.message;
    });
}

bool ConversationKeeper::restoreReplaced()
{
    const QPointer<ConversationKeeper> guard(this);
    m_conversation.messages = std::exchange(m_replaced, {});
    m_heldUntil = -1;
    m_answerAt = -1;
    return m_session->setConversation(m_conversation.chatMessages()) && guard;
}

bool ConversationKeeper::rename(const QString &id, const QString &title)
{
    QString error;
    Conversation other;
    const bool isCurrent = id == m_conversation.id;
    if (!isCurrent)
        other = m_store->load(id, &error);
    Conversation &conversation = isCurrent ? m_conversation : other;
    const QString oldTitle = std::exchange(conversation.title, title);
    if (conversation.id.isEmpty() || !m_store->save(&conversation, &error)) {
        conversation.title = oldTitle;
        Q_EMIT failed(error);
        return false;
    }
    Q_EMIT saved();
    return true;
}

void ConversationKeeper::setModelName(const QString &name)
{
    m_modelName = name;
}

void ConversationKeeper::setWatch(const AnswerWatch *watch)
{
    m_watch = watch;
    connect(watch, &AnswerWatch::asked, this, [this] { m_answerAt = int(m_session->conversation().size()); });
}

QString ConversationKeeper::titleFor(const QString &question)
{
    const QString line = question.trimmed().section(QLatin1Char('\n'), 0, 0).simplified();
    return beginningOf(line, longestTitle);
}

void ConversationKeeper::addDelta(const QString &delta)
{
    m_heldUntil = -1;
    m_arrived += delta;
    if (!m_timer.isActive())
        m_timer.start(saveIntervalMs);
}

void ConversationKeeper::takeRunning(bool isRunning)
{
    if (isRunning && m_heldUntil < 0)
        m_replaced.clear();
}

void ConversationKeeper::takeConversation()
{
    m_arrived.clear();
    if (m_isOpening)
        return;
    const QVector<ChatMessage> messages = m_session->conversation();
    if (m_heldUntil >= 0 && (messages.size() <= m_heldUntil || messages.last().role == QLatin1String("user")))
        return;
    m_heldUntil = -1;
    // What waits for another attempt does not delay each step of a run.
    if (isSaved() || !m_timer.isActive())
        save();
    else
        takeMessages();
}

void ConversationKeeper::takeEnd(const RunOutcome &outcome)
{
    const QPointer<ConversationKeeper> guard(this);
    if (m_heldUntil >= 0) {
        if (restoreReplaced())
            Q_EMIT restored();
        return;
    }
    describeAnswer(outcome);
    if (guard && isReplaced())
        Q_EMIT replaced();
}

// What had arrived of an answer is the last message then.
void ConversationKeeper::describeAnswer(const RunOutcome &outcome)
{
    QVector<ChatMessage> messages = m_session->conversation();
    const AnswerDetails details = m_watch ? m_watch->details() : AnswerDetails();
    const bool hasAnswer = outcome.end == RunEnd::Finished || !outcome.text.isEmpty();
    if (outcome.end == RunEnd::Denied || messages.isEmpty() || (!hasAnswer && details.thinking.isEmpty()))
        return;
    ChatMessage &last = messages.last();
    // What was thought before a run ended without an answer stays with its question.
    if (!details.thinking.isEmpty())
        last.metadata.insert(MessageKey::thinking(), details.thinking);
    if (hasAnswer && last.role == QLatin1String("assistant")) {
        const QString end = endName(outcome.end, details);
        if (!end.isEmpty())
            last.metadata.insert(MessageKey::end(), end);
        if (last.content.isEmpty())
            last.content = details.refusal;
    }
    m_session->setConversation(messages);
}

void ConversationKeeper::takeMessages()
{
    const QVector<ChatMessage> messages = messagesNow();
    if (messages != m_conversation.chatMessages()) {
        m_conversation.setMessages(messages, m_modelName);
        m_conversation.model = m_modelName;
    }
    takeUsage();
}

// Every request counts, those that ask for tools, too.
void ConversationKeeper::takeUsage()
{
    const TokenUsage usage = m_watch ? m_watch->details().usage : TokenUsage();
    if (m_answerAt < 0 || usage == TokenUsage())
        return;
    const auto answer =
        std::find_if(m_conversation.messages.begin() + qMin(m_answerAt, int(m_conversation.messages.size())),
                     m_conversation.messages.end(), [](const StoredMessage &message) {
                         return message.message.role == QLatin1String("assistant");
                     });
    if (answer == m_conversation.messages.end())
        return;
    answer->promptTokens = usage.prompt;
    answer->completionTokens = usage.completion;
}

void ConversationKeeper::save()
{
    m_timer.stop();
    if (m_heldUntil >= 0)
        return;
    takeMessages();
    if (m_conversation.messages.isEmpty() && m_conversation.id.isEmpty())
        return;
    const QPointer<ConversationKeeper> guard(this);
    const qint64 revision = m_conversation.revision;
    QString error;
    const bool isWritten = write(&error);
    if (!isWritten) {
        m_timer.start(m_retryMs);
        m_retryMs = qMin(2 * m_retryMs, longestRetryMs);
    } else {
        m_retryMs = firstRetryMs;
    }
    setSaveError(error);
    if (guard && isWritten && m_conversation.revision != revision)
        Q_EMIT saved();
}

void ConversationKeeper::setSaveError(const QString &error)
{
    if (std::exchange(m_saveError, error) != error)
        Q_EMIT savedChanged();
}

bool ConversationKeeper::write(QString *error)
{
    if (m_conversation.id.isEmpty()) {
        const QVector<ChatMessage> messages = m_conversation.chatMessages();
        Conversation created = m_store->create(titleFor(firstQuestion(messages)), error);
        if (created.id.isEmpty())
            return false;
        created.messages = m_conversation.messages;
        created.model = m_conversation.model;
        m_conversation = created;
    }
    return m_store->save(&m_conversation, error) || saveCopy(error);
}

bool ConversationKeeper::saveCopy(QString *error)
{
    if (!isChangedElsewhere())
        return false;
    Conversation copy = m_store->create(m_conversation.title, error);
    copy.messages = m_conversation.messages;
    copy.model = m_conversation.model;
    if (copy.id.isEmpty() || !m_store->save(&copy, error))
        return false;
    m_conversation = copy;
    return true;
}

bool ConversationKeeper::isChangedElsewhere() const
{
    bool isListed = false;
    QString error;
    for (const ConversationEntry &entry : m_store->list(&error))
        isListed = isListed || entry.id == m_conversation.id;
    if (!error.isEmpty())
        return false;
    return !isListed || m_store->load(m_conversation.id).revision != m_conversation.revision;
}

QVector<ChatMessage> ConversationKeeper::messagesNow() const
{
    QVector<ChatMessage> messages = m_session->conversation();
    if (!m_arrived.isEmpty()) {
        messages.append(ChatMessage::assistant(m_arrived));
        messages.last().metadata.insert(MessageKey::end(), QStringLiteral("incomplete"));
    }
    return messages;
}
