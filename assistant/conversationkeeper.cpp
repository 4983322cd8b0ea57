#include "conversationkeeper.h"

#include <algorithm>
#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

// With the time that saving takes, what is kept stays less than a second old.
constexpr int saveIntervalMs = 500;
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
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(saveIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &ConversationKeeper::save);
    connect(session, &AgentSession::assistantDelta, this, &ConversationKeeper::addDelta);
    connect(session, &AgentSession::conversationChanged, this, &ConversationKeeper::takeConversation);
    connect(session, &AgentSession::runEnded, this, &ConversationKeeper::describeAnswer);
}

ConversationKeeper::~ConversationKeeper() = default;

const Conversation &ConversationKeeper::conversation() const
{
    return m_conversation;
}

bool ConversationKeeper::open(const QString &id)
{
    QString error;
    const Conversation conversation = m_store->load(id, &error);
    if (conversation.id.isEmpty()) {
        Q_EMIT failed(error);
        return false;
    }
    setCurrent(conversation);
    return true;
}

void ConversationKeeper::begin()
{
    setCurrent({});
}

void ConversationKeeper::setCurrent(const Conversation &conversation)
{
    m_session->cancel();
    // It may be the one that the cancellation has just changed.
    m_conversation =
        conversation.id == m_conversation.id && !conversation.id.isEmpty() ? m_conversation : conversation;
    m_session->setConversation(m_conversation.chatMessages());
    Q_EMIT opened();
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
}

QString ConversationKeeper::titleFor(const QString &question)
{
    QString line = question.trimmed().section(QLatin1Char('\n'), 0, 0).simplified();
    if (line.size() <= longestTitle)
        return line;
    // Half a character beyond the basic plane is none.
    const int end = line.at(longestTitle - 2).isHighSurrogate() ? longestTitle - 2 : longestTitle - 1;
    return line.left(end) + QChar(0x2026);
}

void ConversationKeeper::addDelta(const QString &delta)
{
    m_arrived += delta;
    if (!m_timer.isActive())
        m_timer.start();
}

void ConversationKeeper::takeConversation()
{
    m_arrived.clear();
    save();
}

// What had arrived of an answer is the last message then.
void ConversationKeeper::describeAnswer(const RunOutcome &outcome)
{
    QVector<ChatMessage> messages = m_session->conversation();
    const bool hasAnswer = outcome.end == RunEnd::Finished || !outcome.text.isEmpty();
    if (outcome.end == RunEnd::Denied || !hasAnswer || messages.isEmpty()
        || messages.last().role != QLatin1String("assistant"))
        return;
    const AnswerDetails details = m_watch ? m_watch->details() : AnswerDetails();
    const QString end = endName(outcome.end, details);
    if (!end.isEmpty())
        messages.last().metadata.insert(MessageKey::end(), end);
    if (!details.thinking.isEmpty())
        messages.last().metadata.insert(MessageKey::thinking(), details.thinking);
    if (messages.last().content.isEmpty())
        messages.last().content = details.refusal;
    m_session->setConversation(messages);
    keepUsage();
}

void ConversationKeeper::keepUsage()
{
    if (!m_watch || m_conversation.messages.isEmpty())
        return;
    m_conversation.messages.last().promptTokens = m_watch->details().usage.prompt;
    m_conversation.messages.last().completionTokens = m_watch->details().usage.completion;
    save();
}

void ConversationKeeper::save()
{
    m_timer.stop();
    const QVector<ChatMessage> messages = messagesNow();
    if (messages.isEmpty() && m_conversation.id.isEmpty())
        return;
    QString error;
    if (m_conversation.id.isEmpty())
        m_conversation = m_store->create(titleFor(firstQuestion(messages)), &error);
    const qint64 revision = m_conversation.revision;
    m_conversation.setMessages(messages, m_modelName);
    m_conversation.model = m_modelName;
    const bool isSaved =
        !m_conversation.id.isEmpty() && (m_store->save(&m_conversation, &error) || saveCopy(&error));
    const QString lastFailure = std::exchange(m_lastFailure, isSaved ? QString() : error);
    if (!isSaved && error != lastFailure)
        Q_EMIT failed(error);
    else if (isSaved && m_conversation.revision != revision)
        Q_EMIT saved();
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
