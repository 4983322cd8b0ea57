#ifndef MIRELOQTLIB_QTAGENT_GRAPHEXECUTION_P_H
#define MIRELOQTLIB_QTAGENT_GRAPHEXECUTION_P_H

#include "claimedthread_p.h"
#include "graphrun.h"
#include "graphwalk_p.h"

#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

/// The functions of an asynchronous node, by the name of the branch. One that is not parallel has a single
/// one, without a name.
struct AsyncNode
{
    QMap<QString, AsyncNodeFunction> branches;
    bool isParallel = false;
};

/// What a GraphRun was told before a start, which holds until that run is over.
struct GraphSettings
{
    StateGraph graph;
    QMap<QString, AsyncNode> asyncNodes;
    CheckpointStorage *storage = nullptr;
    QString owner;
    qint64 leaseMs = 30000;
    bool acceptsChangedGraph = false;

    void setAsyncNode(const QString &name, const AsyncNode &node);
};

/// What belongs to one run in flight. Its timers and tasks are bound to this object, which is gone when the
/// run is over. So what calls into the application (a signal, a function, the storage) does it through
/// survives(), and goes no further where that returns false.
class GraphExecution : public QObject
{
public:
    GraphExecution(GraphRun *run, const GraphSettings &settings, const QString &threadId);

    /// Begins at "__start__".
    void start(const QJsonObject &initialState);

    /// Goes on with what is stored or, where nothing can be, at @p checkpoint. The run fails with
    /// @p errorWithoutCheckpoint where there is neither.
    void resume(const std::optional<Checkpoint> &checkpoint, const QJsonObject &update,
                const QString &errorWithoutCheckpoint);

    /// Cancels the tasks and gives the thread back. The run may be over by that, or deleted.
    void close();

    const QString &threadId() const { return m_thread->id(); }
    GraphRunResult result() const { return m_walk->result(); }

    /// Where the run stands: what was saved last.
    const std::optional<Checkpoint> &checkpoint() const { return m_checkpoint; }

    /// @name For tasks
    /// @{
    void deltaArrived(const GraphTask &task, const QString &delta);
    void taskFinished(const GraphTask &task, const QJsonObject &update);
    void taskFailed(const GraphTask &task, const QString &error);
    /// @}

private:
    using Step = void (GraphExecution::*)();

    template<typename Call>
    bool survives(const Call &call);
    void post(Step step);
    void fail(const QString &error);

    void begin();
    void goOnWhereItStood();
    bool isOfAnotherGraph(const Checkpoint &checkpoint) const;
    bool open();
    void renewClaim();
    qint32 firstAttempt() const;
    bool save(qint32 attempt);
    void goOn();

    void runNode();
    void callFunction();
    void advance(const QJsonObject &update);
    void startTasks(const AsyncNode &node);
    bool startTask(const QString &branch, const AsyncNodeFunction &function);
    QString failedText(const QString &branch, const QString &error) const;
    void failNode(const QString &error);
    void closeOne();
    void settle();

    GraphRun *const m_run;
    const GraphSettings m_settings;
    // Shared, so that they live as long as a call into the application that destroys this object.
    const std::shared_ptr<GraphWalk> m_walk;
    const std::shared_ptr<ClaimedThread> m_thread;
    const QString m_fingerprint;

    QJsonObject m_input;
    QString m_errorWithoutCheckpoint;
    std::optional<Checkpoint> m_checkpoint;
    QTimer m_turn;
    QTimer m_renewal;
    Step m_step = nullptr;

    // The asynchronous node that is running.
    bool m_isParallel = false;
    int m_openCount = 0; // tasks that have not ended, and one more until all functions have returned
    QMap<QString, QPointer<GraphTask>> m_tasks;
    QMap<QString, QJsonObject> m_updates;
    std::optional<QString> m_failure;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
