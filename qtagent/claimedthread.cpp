#include "claimedthread_p.h"

#include <QDateTime>
#include <QJsonArray>
#include <QMap>

#include <algorithm>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

using Claim = CheckpointStorage::Claim;

namespace {

QMap<QString, QJsonValue> entriesOf(const QJsonObject &object)
{
    QMap<QString, QJsonValue> entries;
    for (auto it = object.begin(); it != object.end(); ++it)
        entries.insert(it.key(), it.value());
    return entries;
}

// With Qt 5 keys may come back from JSON in another order, and large numbers as another kind, and the objects
// then count as different ones.
bool isSame(const QJsonValue &left, const QJsonValue &right)
{
    if (left.isDouble() && right.isDouble())
        return left.toDouble() == right.toDouble();
    if (left.isArray() && right.isArray()) {
        const QJsonArray array = left.toArray();
        const QJsonArray other = right.toArray();
        return std::equal(array.begin(), array.end(), other.begin(), other.end(), isSame);
    }
    if (!left.isObject() || !right.isObject())
        return left == right;
    const QMap<QString, QJsonValue> entries = entriesOf(left.toObject());
    const QMap<QString, QJsonValue> others = entriesOf(right.toObject());
    return entries.keys() == others.keys()
        && std::equal(entries.cbegin(), entries.cend(), others.cbegin(), isSame);
}

bool isSameCheckpoint(const Checkpoint &left, const Checkpoint &right)
{
    return left.threadId == right.threadId && left.next == right.next && left.interrupted == right.interrupted
        && left.attempt == right.attempt && left.fingerprint == right.fingerprint
        && isSame(left.state, right.state);
}

} // namespace

ClaimedThread::ClaimedThread(CheckpointStorage *storage, QString id, QString owner, qint64 leaseMs)
    : m_storage(id.isEmpty() ? nullptr : storage)
    , m_id(std::move(id))
    , m_owner(std::move(owner))
    , m_leaseMs(leaseMs)
{}

// Where the run was deleted while the storage was granting the claim.
ClaimedThread::~ClaimedThread()
{
    release();
}

QString ClaimedThread::claim()
{
    if (!m_storage)
        return {};
    QString error;
    const Claim claim = ask(&error);
    if (claim == Claim::Held)
        return QStringLiteral("Thread '%1' is running elsewhere.").arg(m_id);
    return claim == Claim::Granted ? QString() : notRead(error);
}

Claim ClaimedThread::ask(QString *error)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    Claim claim = Claim::Failed;
    if (const auto thrown = thrownBy([&] { claim = m_storage->claim(m_id, m_owner, m_leaseMs, error); }))
        *error = *thrown;
    if (claim == Claim::Granted)
        m_claimedAtMs = now;
    if (claim != Claim::Failed)
        m_isClaimed = claim == Claim::Granted;
    return claim;
}

QString ClaimedThread::read(Checkpoint *checkpoint)
{
    QString error;
    if (m_storage && !load(checkpoint, &error))
        return notRead(error);
    m_stored = *checkpoint;
    return {};
}

bool ClaimedThread::load(Checkpoint *checkpoint, QString *error) const
{
    const auto thrown = thrownBy([&] { *checkpoint = m_storage->load(m_id, error); });
    if (thrown)
        *error = *thrown;
    return !thrown && error->isEmpty();
}

QString ClaimedThread::save(const Checkpoint &checkpoint)
{
    if (!m_storage)
        return {};
    if (m_isInDoubt) {
        QString doubt = settleDoubt();
        if (!doubt.isEmpty() || !m_isClaimed)
            return doubt;
    }
    QString error;
    bool isSaved = false;
    if (const auto thrown = thrownBy([&] { isSaved = m_storage->save(checkpoint, m_owner, &error); }))
        error = *thrown;
    // A storage that spins an event loop may end the run, which gives the thread back.
    if (!isSaved && m_isClaimed && isLost())
        return takenOver();
    if (!isSaved)
        return notSaved(error);
    m_stored = checkpoint;
    return {};
}

// While it is not known what the storage holds, nothing is laid over it.
QString ClaimedThread::settleDoubt()
{
    QString error;
    if (!stands(&error))
        return takenOver();
    return m_isInDoubt ? notSaved(error) : QString();
}

QString ClaimedThread::renew()
{
    return m_storage && isLost() ? takenOver() : QString();
}

// Somebody else may hold the thread, or may have run it and given it back after the claim had expired.
bool ClaimedThread::isLost()
{
    const bool hasExpired = QDateTime::currentMSecsSinceEpoch() - m_claimedAtMs > m_leaseMs;
    QString error;
    const Claim claim = ask(&error);
    if (claim != Claim::Granted)
        return claim == Claim::Held;
    m_isInDoubt = m_isInDoubt || hasExpired;
    return m_isInDoubt && !stands(&error);
}

// Whether the storage still holds what this run put there. As long as it cannot tell, the doubt remains.
bool ClaimedThread::stands(QString *error)
{
    Checkpoint checkpoint;
    m_isInDoubt = !load(&checkpoint, error);
    return m_isInDoubt || isSameCheckpoint(checkpoint, m_stored);
}

void ClaimedThread::release()
{
    if (std::exchange(m_isClaimed, false))
        thrownBy([this] { m_storage->release(m_id, m_owner); });
}

QString ClaimedThread::takenOver() const
{
    return QStringLiteral("Thread '%1' was taken over.").arg(m_id);
}

QString ClaimedThread::notRead(const QString &error) const
{
    return QStringLiteral("Checkpoint of thread '%1' not read: %2").arg(m_id, error);
}

QString ClaimedThread::notSaved(const QString &error) const
{
    return QStringLiteral("Checkpoint of thread '%1' not saved: %2").arg(m_id, error);
}

} // namespace QtAgent
} // namespace MireloQtLib
