#ifndef MIRELOQTLIB_QTAGENT_CLAIMEDTHREAD_P_H
#define MIRELOQTLIB_QTAGENT_CLAIMEDTHREAD_P_H

#include "checkpointstorage.h"

#include <exception>
#include <optional>

namespace MireloQtLib {
namespace QtAgent {

/// Calls @p function and returns what it threw, in words, or nothing where it returned. Where a program has
/// exceptions off, nothing is thrown.
template<typename Function>
std::optional<QString> thrownBy(const Function &function)
{
#ifdef QT_NO_EXCEPTIONS
    function();
#else
    try {
        function();
    } catch (const std::exception &exception) {
        return QString::fromUtf8(exception.what());
    } catch (...) {
        return QStringLiteral("unknown exception");
    }
#endif
    return std::nullopt;
}

/// The thread of one run in its storage. Without a storage or an id every operation succeeds and does
/// nothing.
///
/// Operations return an error to show to the user, or an empty text. What the storage throws is such an
/// error, too. A storage may spin an event loop, and so may destroy the run: the run keeps this object alive
/// meanwhile.
class ClaimedThread
{
public:
    ClaimedThread(CheckpointStorage *storage, QString id, QString owner, qint64 leaseMs);
    ~ClaimedThread();

    const QString &id() const { return m_id; }

    /// Whether there are a storage and an id.
    bool isStored() const { return m_storage; }

    QString claim();
    QString read(Checkpoint *checkpoint);
    QString save(const Checkpoint &checkpoint);

    /// Returns an error only where the thread belongs to somebody else by now, or did meanwhile.
    QString renew();

    /// Gives the thread back where it is still claimed.
    void release();

private:
    CheckpointStorage::Claim ask(QString *error);
    bool load(Checkpoint *checkpoint, QString *error) const;
    bool isLost();
    bool stands(QString *error);
    QString settleDoubt();
    QString takenOver() const;
    QString notRead(const QString &error) const;
    QString notSaved(const QString &error) const;

    Q_DISABLE_COPY(ClaimedThread)

    CheckpointStorage *const m_storage;
    const QString m_id;
    const QString m_owner;
    const qint64 m_leaseMs;
    bool m_isClaimed = false;
    bool m_isInDoubt = false; // whether somebody else had the thread before it was claimed again
    qint64 m_claimedAtMs = 0;
    Checkpoint m_stored; // as far as this run knows
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
