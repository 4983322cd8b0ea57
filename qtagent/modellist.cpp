#include "modellist.h"

#include "chatcompletion_p.h"
#include "modellistreceiver_p.h"
#include "servicefailure_p.h"

#include <QJsonDocument>
#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Most services put the list into an object.
QStringList modelsIn(const QJsonDocument &document)
{
    const QJsonArray entries =
        document.isArray() ? document.array() : document.object().value(QLatin1String("data")).toArray();
    QStringList models;
    for (const QJsonValue &entry : entries)
        models.append(entry.toObject().value(QLatin1String("id")).toString());
    models.removeAll(QString());
    models.removeDuplicates();
    models.sort();
    return models;
}

} // namespace

ModelListReply::ModelListReply(QObject *parent)
    : QObject(parent)
{}

ModelListReply::~ModelListReply() = default;

QStringList ModelListReply::models() const
{
    return m_models;
}

QString ModelListReply::error() const
{
    return m_error;
}

ChatFailure ModelListReply::failure() const
{
    return m_failure;
}

bool ModelListReply::isRunning() const
{
    return m_isRunning;
}

void ModelListReply::cancel()
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    Q_EMIT canceled();
}

// The arguments are emitted as copies: a slot may delete the reply.

void ModelListReply::finish(const QStringList &models)
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_models = models;
    Q_EMIT finished(QStringList(models));
}

void ModelListReply::fail(const QString &error, const ChatFailure &failure)
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_error = error;
    m_failure = failure;
    Q_EMIT failed(QString(error));
}

ModelListReceiver::ModelListReceiver(QNetworkReply *networkReply, ModelListReply *reply)
    : QObject(networkReply)
    , m_networkReply(networkReply)
    , m_reply(reply)
{
    connect(reply, &ModelListReply::canceled, networkReply, &QNetworkReply::abort);
    connect(reply, &QObject::destroyed, networkReply, &QNetworkReply::abort);
    connect(networkReply, &QNetworkReply::finished, this, &ModelListReceiver::end, Qt::QueuedConnection);
}

void ModelListReceiver::limitSilence(int milliseconds)
{
    if (milliseconds > 0)
        new SilenceTimer(m_networkReply, milliseconds, [this, milliseconds] { endSilence(milliseconds); });
}

void ModelListReceiver::abandon()
{
    m_reply.clear();
    m_networkReply->abort();
}

void ModelListReceiver::endSilence(int milliseconds)
{
    const QByteArray body = m_networkReply->readAll();
    const RequestOutcome outcome = outcomeOfSilence(*m_networkReply, milliseconds);
    const ChatFailure failure = failureOf(*m_networkReply, outcome, body);
    const QPointer<ModelListReply> reply = m_reply;
    abandon();
    if (reply)
        reply->fail(outcome.report(body), failure);
}

void ModelListReceiver::end()
{
    m_networkReply->deleteLater();
    if (!m_reply || !m_reply->isRunning())
        return;
    const QByteArray body = m_networkReply->readAll();
    const RequestOutcome outcome = outcomeOf(*m_networkReply, body.size());
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (outcome.hasFailed())
        m_reply->fail(outcome.report(body), failureOf(*m_networkReply, outcome, body));
    else if (document.isNull())
        m_reply->fail(invalidJsonReport(error, body), failureOf(*m_networkReply, outcome, body));
    else
        m_reply->finish(modelsIn(document));
}

} // namespace QtAgent
} // namespace MireloQtLib
