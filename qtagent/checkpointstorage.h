#ifndef MIRELOQTLIB_QTAGENT_CHECKPOINTSTORAGE_H
#define MIRELOQTLIB_QTAGENT_CHECKPOINTSTORAGE_H

#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// Where a thread stands, as GraphRun writes it between two nodes.
struct QTAGENT_EXPORT Checkpoint
{
    Q_GADGET

public:
    /// The thread; empty in a checkpoint that stands for none.
    QString threadId;
    /// The state that was reached.
    QJsonObject state;
    /// The node that runs next; "__end__" where the thread is over.
    QString next;
    /// Whether the run stopped before that node on purpose (see StateGraph::addInterruptBefore()).
    bool interrupted = false;
    /// How often that node was begun, this time included. 0 where the run stopped before it on purpose.
    qint32 attempt = 0;
    /// StateGraph::fingerprint() of the graph that ran.
    QString fingerprint;
    /// When it was saved, in milliseconds since 1970 in UTC. The storage sets it.
    qint64 savedAtMs = 0;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const Checkpoint &left, const Checkpoint &right);
    /// Returns whether a field differs.
    friend bool operator!=(const Checkpoint &left, const Checkpoint &right) { return !(left == right); }
};

/// A place where GraphRun keeps its checkpoints: one for each thread, the latest. Derive from it to keep them
/// in a place of your own.
///
/// A thread belongs to one owner at a time, so that two programs never run it at once. An owner claims it for
/// a time, the lease, and renews the claim as long as it is alive; when it dies the claim expires, and
/// another one may go on:
/// @code
/// QString error;
/// if (storage->claim(threadId, owner, 30000, &error) != CheckpointStorage::Claim::Granted)
///     return false;
/// Checkpoint checkpoint = storage->load(threadId, &error);
/// if (error.isEmpty()) {
///     checkpoint.threadId = threadId; // empty where nothing is saved yet
///     work(&checkpoint);
///     storage->save(checkpoint, owner, &error);
/// }
/// storage->release(threadId, owner);
/// return error.isEmpty();
/// @endcode
///
/// All operations block, and are called on the thread of the run. They throw nothing; GraphRun takes an
/// exception for a failure with its text. Thread ids and owners are any texts that are not empty. Each
/// `error` may be null; it is emptied on success, and says in words to show to the user what went wrong.
class QTAGENT_EXPORT CheckpointStorage
{
public:
    /// How a request for a thread was answered.
    enum class Claim {
        /// The thread belongs to the owner until the lease is over.
        Granted,
        /// The thread belongs to another owner, whose lease is not over.
        Held,
        /// The storage failed; whose the thread is, is not known.
        Failed,
    };

    CheckpointStorage() = default;
    virtual ~CheckpointStorage();

    /// Claims @p threadId, which need not have a checkpoint, for @p owner and for @p leaseMs milliseconds
    /// from now. Granted where nobody has claimed it, where the claim has expired or was released, and where
    /// @p owner holds it, whose lease then begins anew.
    virtual Claim claim(const QString &threadId, const QString &owner, qint64 leaseMs, QString *error) = 0;

    /// Puts @p checkpoint in the place of the one that its thread had, whole or not at all, and returns
    /// whether it did. Refused unless @p owner holds the claim. One that has expired is still held as long as
    /// nobody else has claimed the thread.
    virtual bool save(const Checkpoint &checkpoint, const QString &owner, QString *error) = 0;

    /// Returns the checkpoint of @p threadId; one with an empty threadId where there is none, which is no
    /// error, and where it cannot be read, which is.
    virtual Checkpoint load(const QString &threadId, QString *error) const = 0;

    /// Ends the claim of @p owner to @p threadId. Does nothing where another one holds it. What fails here
    /// goes unnoticed: the claim expires.
    virtual void release(const QString &threadId, const QString &owner) = 0;

    /// Returns the checkpoints of all threads, sorted by threadId, with empty states. Threads that are
    /// claimed and have no checkpoint are not among them.
    virtual QVector<Checkpoint> threads(QString *error) const = 0;

    /// Removes the checkpoint of @p threadId, if it has one, and returns whether it is gone. Refused while an
    /// owner holds the thread whose lease is not over.
    virtual bool remove(const QString &threadId, QString *error) = 0;

private:
    Q_DISABLE_COPY(CheckpointStorage)
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::Checkpoint)

#endif
