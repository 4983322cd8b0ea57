#include "claimedthread_p.h"

#include <QDateTime>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

using Claim = CheckpointStorage::Claim;

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
    QString error = load(checkpoint);
    m_stored = *checkpoint;
    return error;
}

QString ClaimedThread::load(Checkpoint *checkpoint) const
{
    if (!m_storage)
        return {};
    QString error;
    if (const auto thrown = thrownBy([&] { *checkpoint = m_storage->load(m_id, &error); }))
        return notRead(*thrown);
    return error.isEmpty() ? QString() : notRead(error);
}

QString ClaimedThread::save(const Checkpoint &checkpoint)
{
    if (!m_storage)
        return {};
    QString error;
    bool isSaved = false;
    if (const auto thrown = thrownBy([&] { isSaved = m_storage->save(checkpoint, m_owner, &error); }))
        error = *thrown;
    // A storage that spins an event loop may end the run, which gives the thread back.
    if (!isSaved && m_isClaimed && isLost())
        return takenOver();
    if (!isSaved)
        return QStringLiteral("Checkpoint of thread '%1' not saved: %2").arg(m_id, error);
    m_stored = checkpoint;
    return {};
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
    return claim == Claim::Held || (claim == Claim::Granted && hasExpired && !stands());
}

// Whether the storage still holds what this run put there. A storage that cannot tell is believed.
bool ClaimedThread::stands() const
{
    Checkpoint checkpoint;
    if (!load(&checkpoint).isEmpty())
        return true;
    checkpoint.savedAtMs = m_stored.savedAtMs;
    return checkpoint == m_stored;
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

} // namespace QtAgent
} // namespace MireloQtLib
