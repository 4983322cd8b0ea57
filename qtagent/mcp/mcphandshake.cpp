#include "mcphandshake_p.h"

#include <QJsonArray>
#include <QPointer>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int silenceMs = 3000;

QString modernVersion()
{
    return QStringLiteral("2026-07-28");
}

// The newest comes first.
QStringList legacyVersions()
{
    return {QStringLiteral("2025-11-25"), QStringLiteral("2025-06-18"), QStringLiteral("2025-03-26"),
            QStringLiteral("2024-11-05")};
}

QStringList textsIn(const QJsonValue &array)
{
    QStringList texts;
    const QJsonArray elements = array.toArray();
    for (const QJsonValue &element : elements)
        texts.append(element.toString());
    return texts;
}

QStringList supportedVersions(const McpAnswer &answer)
{
    if (answer.isError)
        return textsIn(answer.error.data.toObject().value(QLatin1String("supported")));
    return textsIn(answer.result.value(QLatin1String("supportedVersions")));
}

// One that refuses to tell them may have tools.
QJsonObject capabilitiesIn(const McpAnswer &answer)
{
    QJsonObject capabilities = answer.result.value(QLatin1String("capabilities")).toObject();
    if (answer.isError)
        capabilities.insert(QLatin1String("tools"), QJsonObject());
    return capabilities;
}

// Only modern servers refuse with these.
bool isModernRefusal(const McpAnswer &answer)
{
    return answer.isError
        && (answer.error.code == HeaderMismatch || answer.error.code == MissingCapability
            || answer.error.code == UnsupportedVersion);
}

bool isUnauthorized(const McpAnswer &answer)
{
    return answer.httpStatus == 401 || answer.httpStatus == 403;
}

// No other request would fare better.
bool isHopeless(const McpAnswer &answer)
{
    const bool isUnreachable = !answer.isFromServer && answer.httpStatus == 0;
    return answer.isError && (isUnreachable || isUnauthorized(answer));
}

} // namespace

McpHandshake::McpHandshake(McpPeer *peer, qint64 timeLimitMs, QObject *parent)
    : QObject(parent)
    , m_peer(peer)
    , m_timeLimitMs(timeLimitMs)
{
    m_silence.setSingleShot(true);
    connect(&m_silence, &QTimer::timeout, this, &McpHandshake::initialize);
}

qint64 McpHandshake::request(const QString &method, const QJsonObject &params, qint64 timeLimitMs,
                             void (McpHandshake::*handler)(const McpAnswer &))
{
    McpPeer::Expectation expectation;
    expectation.context = this;
    expectation.timeLimitMs = timeLimitMs;
    expectation.onAnswer = [this, handler](const McpAnswer &answer) { (this->*handler)(answer); };
    return m_peer->request(method, params, expectation);
}

void McpHandshake::discover()
{
    m_peer->setAgreement({modernVersion(), true, {}});
    m_silence.start(silenceMs);
    m_discoveryId = request(QStringLiteral("server/discover"), {}, 0, &McpHandshake::takeDiscovery);
}

void McpHandshake::takeDiscovery(const McpAnswer &answer)
{
    if (m_isInitializing) {
        m_lateDiscovery = answer;
        return;
    }
    m_silence.stop();
    if (isHopeless(answer))
        Q_EMIT failed(QString(answer.error.message));
    else if (isModernRefusal(answer) && supportedVersions(answer).isEmpty())
        agreeOnModern(capabilitiesIn(answer));
    else if (isModernRefusal(answer) || !answer.isError)
        chooseFrom(supportedVersions(answer), capabilitiesIn(answer));
    else
        initialize();
}

// A server that names no version has not understood the question.
void McpHandshake::chooseFrom(const QStringList &versions, const QJsonObject &capabilities)
{
    const auto isLegacy = [](const QString &version) { return legacyVersions().contains(version); };
    if (versions.contains(modernVersion()))
        agreeOnModern(capabilities);
    else if (versions.isEmpty() || std::any_of(versions.cbegin(), versions.cend(), isLegacy))
        initialize();
    else
        refuse(versions);
}

void McpHandshake::initialize()
{
    m_isInitializing = true;
    m_peer->setAgreement({});
    const QJsonObject params{
        {QStringLiteral("protocolVersion"), legacyVersions().first()},
        {QStringLiteral("capabilities"), QJsonObject()},
        {QStringLiteral("clientInfo"), McpPeer::clientInfo()},
    };
    request(QStringLiteral("initialize"), params, m_timeLimitMs, &McpHandshake::takeInitialization);
}

void McpHandshake::takeInitialization(const McpAnswer &answer)
{
    const QString version = answer.result.value(QLatin1String("protocolVersion")).toString();
    if (answer.isError)
        takeRefusal(answer);
    else if (legacyVersions().contains(version))
        agreeOnLegacy(version, capabilitiesIn(answer));
    else
        refuse({version});
}

void McpHandshake::takeRefusal(const McpAnswer &answer)
{
    const int status = answer.httpStatus;
    if (supportedVersions(m_lateDiscovery).contains(modernVersion()))
        agreeOnModern(capabilitiesIn(m_lateDiscovery));
    else if (!answer.isFromServer || isUnauthorized(answer))
        Q_EMIT failed(QString(answer.error.message));
    else if (status == 404 || status == 405)
        Q_EMIT failed(answer.error.message
                      + QStringLiteral("\nServers of the old HTTP+SSE transport are not supported."));
    else
        Q_EMIT failed(QStringLiteral("MCP server refused initialize: %1").arg(answer.error.message));
}

void McpHandshake::agreeOnModern(const QJsonObject &capabilities)
{
    m_peer->setAgreement({modernVersion(), true, capabilities});
    Q_EMIT agreed();
}

// The server may expect nothing else before it has this.
void McpHandshake::agreeOnLegacy(const QString &version, const QJsonObject &capabilities)
{
    m_peer->drop(m_discoveryId, QString());
    m_peer->setAgreement({version, false, capabilities});
    m_peer->notify(QStringLiteral("notifications/initialized"), [self = QPointer<McpHandshake>(this)] {
        if (self)
            Q_EMIT self->agreed();
    });
}

void McpHandshake::refuse(const QStringList &versions)
{
    Q_EMIT failed(QStringLiteral("MCP server speaks another version of the protocol: %1")
                      .arg(versions.join(QLatin1String(", "))));
}

} // namespace QtAgent
} // namespace MireloQtLib
