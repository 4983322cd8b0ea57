#include "mcpserverprivate_p.h"

#include "../toolresults_p.h"
#include "mcpcall_p.h"
#include "mcptool_p.h"

#include <algorithm>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int maximumServerNameLength = 24;
constexpr int maximumToolNameLength = 64;
constexpr int maximumErrorOutput = 64 * 1024;
constexpr int announcementMs = 50;
constexpr int subscriptionRetryMs = 5000;

bool isNameCharacter(QChar c)
{
    const ushort code = c.unicode();
    const bool isLetter = (code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z');
    return isLetter || (code >= '0' && code <= '9') || code == '_' || code == '-';
}

bool isServerName(const QString &name)
{
    return !name.isEmpty() && name.size() <= maximumServerNameLength
        && std::all_of(name.cbegin(), name.cend(), isNameCharacter);
}

QByteArray lastBytes(const QByteArray &utf8, int size)
{
    const auto isInsideCharacter = [](char c) { return (c & 0xC0) == 0x80; };
    int begin = int(utf8.size()) - size;
    if (begin <= 0)
        return utf8;
    while (begin < utf8.size() && isInsideCharacter(utf8.at(begin)))
        ++begin;
    return utf8.mid(begin);
}

QString endedReport(const QString &reason)
{
    const QString report = QStringLiteral("MCP server ended.");
    return reason.isEmpty() ? report : report + QLatin1Char(' ') + reason;
}

} // namespace

McpServerPrivate::McpServerPrivate(McpServer *server, const QString &name)
    : q(server)
    , m_name(name)
{
    m_announcement.setSingleShot(true);
    connect(&m_announcement, &QTimer::timeout, this, &McpServerPrivate::listToolsAgain);
    m_subscription.setSingleShot(true);
    connect(&m_subscription, &QTimer::timeout, this, &McpServerPrivate::listToolsAgain);
    connect(&m_subscription, &QTimer::timeout, this, &McpServerPrivate::subscribe);
}

McpServerPrivate::~McpServerPrivate()
{
    const QList<McpCall *> calls = m_calls;
    for (McpCall *call : calls)
        call->failLater(endedReport({}));
    delete m_peer;
}

// Opening

void McpServerPrivate::start(McpTransport *transport)
{
    m_state = State::Opening;
    m_error.clear();
    m_isStopped = false;
    m_errorOutput.clear();
    m_peer = new McpPeer(transport, this);
    connect(m_peer, &McpPeer::notified, this, &McpServerPrivate::takeNotification);
    connect(m_peer, &McpPeer::errorOutput, this, &McpServerPrivate::keepErrorOutput);
    connect(m_peer, &McpPeer::closed, this, &McpServerPrivate::end);
    if (!isServerName(m_name)) {
        QTimer::singleShot(0, m_peer, [this] { end(QStringLiteral("MCP server name is not valid.")); });
        return;
    }
    m_peer->open();
    shakeHands(&McpHandshake::discover);
}

void McpServerPrivate::shakeHands(void (McpHandshake::*begin)())
{
    m_handshake = new McpHandshake(m_peer, m_timeLimitMs, m_peer);
    connect(m_handshake, &McpHandshake::agreed, this, &McpServerPrivate::listTools);
    connect(m_handshake, &McpHandshake::failed, this, &McpServerPrivate::closeWith);
    (m_handshake->*begin)();
}

void McpServerPrivate::listTools()
{
    if (m_handshake)
        m_handshake->deleteLater();
    m_handshake.clear();
    if (!m_peer->agreement().capabilities.contains(QLatin1String("tools"))) {
        takeTools({});
        return;
    }
    m_list = new McpToolList(m_peer, m_timeLimitMs, m_peer);
    connect(m_list, &McpToolList::listed, this, &McpServerPrivate::takeTools);
    connect(m_list, &McpToolList::failed, this, &McpServerPrivate::takeListFailure);
    m_list->begin();
}

void McpServerPrivate::takeListFailure(const QString &error, bool isSessionLost)
{
    m_list->deleteLater();
    m_list.clear();
    if (m_state == State::Opening || m_isReopening)
        closeWith(error);
    else if (isSessionLost)
        reopen();
}

// The list

void McpServerPrivate::takeTools(const QJsonArray &tools)
{
    if (m_list)
        m_list->deleteLater();
    m_list.clear();
    const QPointer<McpPeer> peer(m_peer);
    const bool isReopened = std::exchange(m_isReopening, false);
    const bool wasOpening = m_state == State::Opening || isReopened;
    if (isReopened)
        ++m_session;
    const ToolCatalog::Changes changes = m_catalog.update(tools, m_peer->usesHeaders());
    noteChangedTools(changes.withdrawn);
    announceTools(changes);
    // Another server may run by now.
    if (!peer || peer->isClosing())
        return;
    sendWaiting();
    if (wasOpening && peer && !peer->isClosing())
        listen();
}

// The user may have been asked about a tool that is another one now. Whoever listens to the announcement may
// turn the event loop, in which a further list lets the calls go on.
void McpServerPrivate::noteChangedTools(const QStringList &names)
{
    for (const QPointer<McpCall> &call : std::as_const(m_waiting)) {
        if (call && names.contains(call->toolName()))
            call->noteChangedTool();
    }
}

void McpServerPrivate::announceTools(const ToolCatalog::Changes &changes)
{
    const QPointer<McpPeer> peer(m_peer);
    const bool isKnown = std::exchange(m_wasListed, true);
    withdraw(changes);
    if (!peer || peer->isClosing())
        return;
    if (m_state == State::Opening) {
        m_state = State::Ready;
        Q_EMIT q->ready();
    }
    if (isKnown && changes.isAny && peer && !peer->isClosing())
        Q_EMIT q->toolsChanged();
}

// Whoever listens to the end of a tool may delete everything: a parent would delete the tool once more.
void McpServerPrivate::withdraw(const ToolCatalog::Changes &changes)
{
    for (const QString &name : changes.withdrawn)
        m_permissions.remove(name);
    for (const QPointer<AgentTool> &tool : changes.tools) {
        if (tool)
            tool->setParent(nullptr);
        delete tool;
    }
}

QVector<ToolDefinition> McpServerPrivate::tools() const
{
    QVector<ToolDefinition> tools;
    for (const CatalogEntry &entry : m_catalog.entries()) {
        if (!entry.problem.isEmpty())
            continue;
        tools.append(entry.definition);
        tools.last().permission = permission(entry.definition.name);
    }
    return tools;
}

ToolPermission McpServerPrivate::permission(const QString &toolName) const
{
    return m_permissions.value(toolName, ToolPermission::ExternalNetwork);
}

void McpServerPrivate::setPermission(const QString &toolName, ToolPermission permission)
{
    m_permissions.insert(toolName, permission);
}

QStringList McpServerPrivate::registerTools(ToolRegistry *registry)
{
    QStringList problems;
    for (CatalogEntry &entry : m_catalog.entries()) {
        const QString problem = registerEntry(&entry, registry);
        if (!problem.isEmpty())
            problems.append(QStringLiteral("%1: %2").arg(offeredName(entry.definition.name), problem));
    }
    return problems;
}

// Returns why the tool was left out.
QString McpServerPrivate::registerEntry(CatalogEntry *entry, ToolRegistry *registry)
{
    const QString name = offeredName(entry->definition.name);
    if (!entry->problem.isEmpty())
        return entry->problem;
    if (name.size() > maximumToolNameLength)
        return QStringLiteral("Tool name has more than %1 characters.").arg(maximumToolNameLength);
    if (entry->tool && registry->tool(name) == entry->tool)
        return QString();

    QString error;
    AgentTool *const tool = entry->tool ? entry->tool.data() : new McpTool(this, name, *entry, q);
    if (registry->registerTool(tool, &error))
        entry->tool = tool;
    else if (!entry->tool)
        delete tool;
    return error;
}

QString McpServerPrivate::offeredName(const QString &toolName) const
{
    QString name = toolName;
    for (QChar &c : name) {
        if (!isNameCharacter(c))
            c = QLatin1Char('_');
    }
    return m_name + QLatin1String("__") + name;
}

// Changes of the list

void McpServerPrivate::takeNotification(const QString &method)
{
    if (method == QLatin1String("notifications/tools/list_changed") && !m_announcement.isActive())
        m_announcement.start(announcementMs);
}

void McpServerPrivate::listToolsAgain()
{
    // What is being asked for may be older than the announcement.
    if (m_state == State::Opening || m_handshake || m_list)
        m_announcement.start(announcementMs);
    else if (isReady())
        listTools();
}

void McpServerPrivate::listen()
{
    const QJsonObject tools = m_peer->agreement().capabilities.value(QLatin1String("tools")).toObject();
    if (!tools.value(QLatin1String("listChanged")).toBool())
        return;
    if (m_peer->agreement().isModern)
        subscribe();
    else
        m_peer->listen();
}

// The request is open for as long as the server keeps it.
void McpServerPrivate::subscribe()
{
    if (!isReady())
        return;
    McpPeer::Expectation expectation;
    expectation.context = m_peer;
    expectation.onAnswer = [this](const McpAnswer &answer) {
        if (!answer.isFromServer && isReady())
            m_subscription.start(subscriptionRetryMs);
    };
    const QJsonObject wanted{{QStringLiteral("toolsListChanged"), true}};
    m_peer->request(QStringLiteral("subscriptions/listen"), {{QStringLiteral("notifications"), wanted}},
                    expectation);
}

// Calls

ToolReply *McpServerPrivate::call(const CatalogEntry &tool, const QJsonObject &arguments, QObject *parent)
{
    auto *reply = new ToolReply(parent);
    if (!isReady()) {
        failLater(reply, QStringLiteral("Server is not ready."));
        return reply;
    }
    auto *call = new McpCall(this, reply, tool, arguments);
    m_calls.append(call);
    if (m_isReopening)
        m_waiting.append(call);
    else
        call->send(m_peer, m_timeLimitMs);
    return reply;
}

void McpServerPrivate::forget(McpCall *call)
{
    m_calls.removeOne(call);
    delete call;
}

void McpServerPrivate::reopenFor(McpCall *call)
{
    // The answer may come when another call has opened the new session already.
    if (call->session() != m_session && !m_isReopening) {
        call->send(m_peer, m_timeLimitMs);
        return;
    }
    m_waiting.append(call);
    reopen();
}

// The list that is on its way belongs to the lost session: its end must not be taken for that of the next.
void McpServerPrivate::reopen()
{
    if (std::exchange(m_isReopening, true))
        return;
    delete m_list;
    shakeHands(&McpHandshake::initialize);
}

void McpServerPrivate::sendWaiting()
{
    const QPointer<McpPeer> peer(m_peer);
    while (peer && !peer->isClosing() && !m_isReopening && !m_waiting.isEmpty()) {
        const QPointer<McpCall> call = m_waiting.takeFirst();
        if (!call)
            continue;
        if (call->hasChangedTool())
            call->finish(failedResult(QStringLiteral("MCP tool has changed.")));
        else
            call->send(peer, m_timeLimitMs);
    }
}

// The end

void McpServerPrivate::stop()
{
    if (isIdle())
        return;
    m_isStopped = true;
    closeWith(QString());
}

void McpServerPrivate::closeWith(const QString &error)
{
    if (m_state == State::Closing)
        return;
    m_state = State::Closing;
    m_error = error;
    stopTimers();
    m_peer->close(error);
}

void McpServerPrivate::stopTimers()
{
    m_announcement.stop();
    m_subscription.stop();
}

void McpServerPrivate::end(const QString &reason)
{
    const QPointer<McpServerPrivate> self(this);
    const QString error = reason.isEmpty() ? m_error : reason;
    m_state = State::Closing;
    m_isReopening = false;
    m_waiting.clear();
    stopTimers();
    m_peer->disconnect(this);
    m_peer->deleteLater();
    const QList<McpCall *> calls = m_calls;
    for (McpCall *call : calls) {
        if (self && m_calls.contains(call))
            call->finish(failedResult(endedReport(error)));
    }
    if (!self)
        return;
    m_peer = nullptr;
    m_state = State::Idle;
    Q_EMIT q->ended(m_isStopped ? QString() : error);
}

QString McpServerPrivate::errorOutput() const
{
    return QString::fromUtf8(lastBytes(m_errorOutput, maximumErrorOutput));
}

void McpServerPrivate::keepErrorOutput(const QByteArray &bytes)
{
    m_errorOutput += bytes;
    if (m_errorOutput.size() > 2 * maximumErrorOutput)
        m_errorOutput = lastBytes(m_errorOutput, maximumErrorOutput);
}

} // namespace QtAgent
} // namespace MireloQtLib
