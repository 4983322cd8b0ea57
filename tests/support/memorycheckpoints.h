#ifndef QTAGENT_TESTS_MEMORYCHECKPOINTS_H
#define QTAGENT_TESTS_MEMORYCHECKPOINTS_H

#include <qtagent/checkpointstorage.h>

#include <QJsonDocument>
#include <QMap>
#include <QRegularExpression>
#include <QStringList>

#include <functional>

/// A storage in memory that logs its calls, can be made to fail, and has a clock that the test sets.
///
/// @code
/// MemoryCheckpoints storage;
/// storage.failAt("save", 2, "disk full");
/// run.setCheckpoints(&storage);
/// ...
/// QCOMPARE(storage.log, QStringList({"claim t", "load t", R"(save t: a 1 {"count":0})", ...}));
/// @endcode
///
/// A saved checkpoint is logged with its next node, "interrupted" where it is, its attempt and its state.
class MemoryCheckpoints : public MireloQtLib::QtAgent::CheckpointStorage
{
public:
    using Checkpoint = MireloQtLib::QtAgent::Checkpoint;

    struct Claimed
    {
        QString owner;
        qint64 untilMs = 0;
    };

    mutable QStringList log;
    QMap<QString, Checkpoint> checkpoints;
    QMap<QString, Claimed> claims;
    qint64 nowMs = 1000;

    /// Called with the line in the log of each call, before it has any effect.
    std::function<void(const QString &line)> onCall;

    /// Makes a call of the operation @p name fail with @p error: the next one where @p count is 1, the one
    /// after that where it is 2.
    void failAt(const QString &name, int count, const QString &error = "disk full")
    {
        m_failures.append({name, count, error});
    }

    /// The last lines of the log that are calls of the operation @p name.
    QStringList callsOf(const QString &name) const { return log.filter(QRegularExpression("^" + name)); }

    /// Lets @p owner hold @p threadId for an hour.
    void giveTo(const QString &owner, const QString &threadId)
    {
        claims.insert(threadId, {owner, nowMs + 3600000});
    }

    Claim claim(const QString &threadId, const QString &owner, qint64 leaseMs, QString *error) override
    {
        if (fails("claim", threadId, error))
            return Claim::Failed;
        if (isHeld(threadId) && claims[threadId].owner != owner)
            return Claim::Held;
        claims.insert(threadId, {owner, nowMs + leaseMs});
        return Claim::Granted;
    }

    bool save(const Checkpoint &checkpoint, const QString &owner, QString *error) override
    {
        if (fails("save", checkpoint.threadId + ": " + textOf(checkpoint), error))
            return false;
        if (claims.value(checkpoint.threadId).owner != owner)
            return refuse("not the owner", error);
        Checkpoint saved = checkpoint;
        saved.savedAtMs = nowMs;
        checkpoints.insert(saved.threadId, saved);
        return true;
    }

    Checkpoint load(const QString &threadId, QString *error) const override
    {
        return fails("load", threadId, error) ? Checkpoint() : checkpoints.value(threadId);
    }

    void release(const QString &threadId, const QString &owner) override
    {
        if (!fails("release", threadId, nullptr) && claims.value(threadId).owner == owner)
            claims.remove(threadId);
    }

    QVector<Checkpoint> threads(QString *error) const override
    {
        QVector<Checkpoint> result;
        if (fails("threads", {}, error))
            return result;
        for (Checkpoint checkpoint : checkpoints) {
            checkpoint.state = {};
            result.append(checkpoint);
        }
        return result;
    }

    bool remove(const QString &threadId, QString *error) override
    {
        if (fails("remove", threadId, error))
            return false;
        if (isHeld(threadId))
            return refuse("held", error);
        checkpoints.remove(threadId);
        return true;
    }

    static QString textOf(const Checkpoint &checkpoint)
    {
        const QByteArray state = QJsonDocument(checkpoint.state).toJson(QJsonDocument::Compact);
        return QString("%1 %2%3 %4")
            .arg(checkpoint.next, checkpoint.interrupted ? "interrupted " : "",
                 QString::number(checkpoint.attempt), QString::fromUtf8(state));
    }

private:
    struct Failure
    {
        QString name;
        int count = 0;
        QString error;
    };

    bool isHeld(const QString &threadId) const
    {
        return claims.contains(threadId) && claims[threadId].untilMs > nowMs;
    }

    static bool refuse(const QString &reason, QString *error)
    {
        if (error)
            *error = reason;
        return false;
    }

    // Logs the call, lets the test act, and returns whether the call is to fail.
    bool fails(const QString &name, const QString &arguments, QString *error) const
    {
        const QString line = name + ' ' + arguments;
        log.append(line);
        if (onCall)
            onCall(line);
        if (error)
            error->clear();
        for (int i = 0; i < m_failures.size(); ++i) {
            if (m_failures.at(i).name == name && --m_failures[i].count == 0)
                return !refuse(m_failures.takeAt(i).error, error);
        }
        return false;
    }

    mutable QVector<Failure> m_failures;
};

#endif
