#ifndef MIRELOQTLIB_QTAGENT_GRAPHRUN_H
#define MIRELOQTLIB_QTAGENT_GRAPHRUN_H

#include <qtagent/chatmodel.h>
#include <qtagent/checkpointstorage.h>
#include <qtagent/qtagent_export.h>
#include <qtagent/stategraph.h>

#include <QMap>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>
#include <optional>

namespace MireloQtLib {
namespace QtAgent {

class GraphExecution;
struct GraphSettings;

/// One execution of an asynchronous node, which its function works on and ends:
/// @code
/// run->setAsyncNode("measure", [pump](GraphTask *task) {
///     QObject::connect(pump, &Pump::measured, task, [task](double bar) { task->finish({{"bar", bar}}); });
///     QObject::connect(pump, &Pump::failed, task, &GraphTask::fail);
///     QObject::connect(task, &GraphTask::canceled, pump, &Pump::stop);
///     pump->measure(task->state()["pump"].toString());
/// });
/// @endcode
///
/// A task ends with the first of finish() and fail(), or when it is canceled, or deleted, which makes its
/// node fail. From then on its functions do nothing. It is a child of its run, which deletes it later, from
/// the event loop: make it the context of connections, as above, or keep it in a QPointer where the
/// function's work may last longer, or spins an event loop itself.
class QTAGENT_EXPORT GraphTask : public QObject
{
    Q_OBJECT

public:
    ~GraphTask() override;

    /// Returns the name of the node.
    QString node() const;

    /// Returns the name of the branch of a parallel node; empty for other nodes.
    QString branch() const;

    /// Returns the thread of the run, or an empty text.
    QString threadId() const;

    /// Returns the state as it stood when the node began.
    QJsonObject state() const;

    /// Returns how often the node was begun, this time included: 1, and more where an earlier attempt failed,
    /// was canceled or died with its program. What a node does in the world may then have been done before.
    /// A run that ended just before the node, at the limit of steps or canceled, counts as an attempt, too.
    qint32 attempt() const;

    /// Returns whether the task has neither ended nor been canceled.
    bool isRunning() const;

    /// Ends the task with @p update, the keys of the state to set. The run goes on from the event loop, once
    /// the node's functions have returned. Does nothing once the task has ended.
    void finish(const QJsonObject &update);

    /// Ends the task and makes its node fail with @p error; the run ends from the event loop. Does nothing
    /// once the task has ended.
    void fail(const QString &error);

    /// Sends @p messages to @p model, without tools, and ends the task with the answer: with its text under
    /// @p key of the state, or by failing with the reply's report. What arrives meanwhile is told by
    /// GraphRun::deltaReceived().
    ///
    /// Returns the reply, never null, which belongs to the task; connect to it for more. When the task ends,
    /// replies that are still running are canceled. The task fails with
    /// - "There is no model to ask." where @p model is null,
    /// - "Model returned no reply." where ChatModel::chat() returns null,
    /// - "The model was deleted." where the model dies before the reply has ended,
    /// - "The reply was canceled." where somebody else cancels it,
    /// - "The reply was deleted." where somebody else deletes it.
    ///
    /// Once the task has ended nothing is sent, and the reply that is returned fails with "The task has
    /// ended."
    ChatReply *ask(ChatModel *model, const QVector<ChatMessage> &messages, const QString &key);

Q_SIGNALS:
    /// The node's work is no longer wanted: the run was canceled, deleted or taken over, or another branch
    /// failed. isRunning() is false already.
    void canceled();

private:
    friend class GraphExecution;

    GraphTask(const QString &node, const QString &branch, const Checkpoint &checkpoint,
              GraphExecution *execution, QObject *parent);
    void cancel();
    void cancelReplies();
    ChatReply *sendTo(ChatModel *model, const QVector<ChatMessage> &messages);
    void follow(ChatReply *reply, const QString &key);
    void endWith(const ChatResult &result, const QString &key);

    const QString m_node;
    const QString m_branch;
    const Checkpoint m_checkpoint;
    QPointer<GraphExecution> m_execution; // null once the task has ended
    QVector<QPointer<ChatReply>> m_replies;
};

/// What an asynchronous node does: begins its work, and returns. It may end the task at once. The task is not
/// null.
using AsyncNodeFunction = std::function<void(GraphTask *task)>;

/// Runs a graph with the event loop: nodes may wait for a model or a user, and a run survives the program.
///
/// @code
/// StateGraph graph;
/// graph.addNode("review", [](const QJsonObject &) { return QJsonObject(); });
/// graph.addEdge(StartNode, "answer");
/// graph.addEdge("answer", "review");
/// graph.addEdge("review", EndNode);
/// graph.addInterruptBefore("review");
///
/// m_run = std::make_unique<GraphRun>(graph); // a member behind m_storage, which has to outlive it
/// m_run->setAsyncNode("answer", [model = QPointer<ChatModel>(m_model)](GraphTask *task) {
///     task->ask(model, {ChatMessage::user(task->state()["question"].toString())}, "answer");
/// });
/// m_run->setCheckpoints(m_storage.get());
/// connect(m_run.get(), &GraphRun::deltaReceived, this, &Window::showDelta);
/// connect(m_run.get(), &GraphRun::finished, this, &Window::showResult);
/// connect(m_run.get(), &GraphRun::canceled, this, &Window::showStopped);
/// m_run->start({{"question", question}}, "job-1");
/// @endcode
/// Later, and after a restart of the program as well, once somebody has looked at the answer:
/// @code
/// m_run->resume("job-1", {{"approved", true}});
/// @endcode
///
/// Plain nodes, routers, limits and interrupts are those of StateGraph::run(), with the same results. Each
/// node begins in a turn of the event loop of its own, so a window stays alive between plain nodes; in this
/// order: nodeStarted(), the node's functions, the merge and the router, saving, stepFinished(). Nothing is
/// emitted before start() or resume() return, except for the end of a run that was in flight.
///
/// A run ends with exactly one of finished() and canceled(), the last signal of all; isRunning() is false in
/// its slots. stepFinished() tells every step, one that led to an error as well.
///
/// **Checkpoints.** With a storage and a thread id the state is saved before the first node and after each
/// node, together with the name of the next one. So a run whose program was killed is resumed at the node
/// that was running, which then begins a second time (see GraphTask::attempt()). A run claims its thread in
/// the storage, renews the claim while it lasts, and gives the thread back before it tells its end. What
/// ended with an error leaves the thread at its last good checkpoint.
///
/// **Errors** are told by finished(), in GraphRunResult::error. Beside those of StateGraph::run():
/// - "Node '%1' failed: %2" with the error of GraphTask::fail(), or "abandoned" where the task was deleted;
/// - "Branch '%1' of node '%2' failed: %3", likewise and where a branch throws; the others are canceled;
/// - "Node '%1' threw: %2" where its function, or the router behind it, throws or is empty, with the text of
///   the exception or "unknown exception";
/// - "Nothing to resume.";
/// - "No checkpoint of thread '%1'.";
/// - "Thread '%1' is running elsewhere.", where another owner holds it;
/// - "Thread '%1' was taken over.", where the claim was not renewed in time and another owner has it;
/// - "The graph of thread '%1' has changed." (see setAcceptsChangedGraph());
/// - "Checkpoint of thread '%1' not saved: %2" and
/// - "Checkpoint of thread '%1' not read: %2", with the storage's words.
///
/// Nothing is saved after any of them.
///
/// A node that blocks the event loop for longer than the lease may run beside its successor; what it returns
/// is then refused by the storage. A renewal that fails does not end a run: only a thread that another owner
/// holds does.
///
/// A run may be deleted, canceled or started again in every slot and in every function. It works on a copy of
/// its graph. All functions are called on its thread.
class QTAGENT_EXPORT GraphRun : public QObject
{
    Q_OBJECT

public:
    /// Creates a run of a copy of @p graph.
    explicit GraphRun(const StateGraph &graph, QObject *parent = nullptr);

    /// Cancels what runs, tasks included, gives the thread back, and emits nothing.
    ~GraphRun() override;

    /// @name Settings
    /// They count from the next start() or resume(). "__start__" and "__end__" are no names for nodes and are
    /// ignored.
    /// @{

    /// Makes @p name an asynchronous node, also where the graph has no node or a plain one of that name.
    void setAsyncNode(const QString &name, const AsyncNodeFunction &function);

    /// Makes @p name a parallel node: every branch gets the same state and begins at once, and when all have
    /// finished, their updates are merged in the order of their names, the last one winning. The first one
    /// that fails makes the node fail, and the others are canceled. Without branches the update is empty.
    void setParallelNode(const QString &name, const QMap<QString, AsyncNodeFunction> &branches);

    /// Returns the graph that the next run works on, asynchronous nodes included. Ask it for problems,
    /// pictures and the fingerprint. Its own run() cannot execute nodes that are only asynchronous.
    StateGraph graph() const;

    /// Sets where checkpoints of runs with a thread id are kept; null, which is the default, for nowhere. The
    /// storage is not owned and must outlive the run.
    void setCheckpoints(CheckpointStorage *storage);

    /// Sets the name in which threads are claimed, by default a new UUID for each GraphRun. Two runs with the
    /// same name do not keep each other off a thread. An empty name is ignored.
    void setOwner(const QString &owner);

    /// Sets how long a claim lasts that is not renewed, in milliseconds: how soon the threads of a program
    /// that died can be taken over. By default 30,000. A claim is renewed every third of it.
    void setLease(qint64 ms);

    /// Sets whether resume() goes on where the fingerprint of the graph is not the one that was saved. By
    /// default it does not: the node that stands next may mean something else.
    void setAcceptsChangedGraph(bool accepts);
    /// @}

    /// Runs the graph from "__start__", with @p initialState over the state that is saved for @p threadId. An
    /// empty @p threadId never touches the storage.
    ///
    /// A run in flight is canceled first, with its signal, and so is what a slot of that signal starts: one
    /// that always starts another run keeps this call from returning.
    void start(const QJsonObject &initialState, const QString &threadId = {});

    /// Goes on with @p threadId where it stands, after an interrupt, a failure or a kill: merges @p update
    /// into the state and runs the node that stands next, without stopping before it. Its steps and maxSteps
    /// count anew. A thread that is over finishes at once, with its state as it is saved and without steps.
    ///
    /// An empty @p threadId goes on with the last run of this object: from the storage where it is kept
    /// there, else from memory, also where its thread has been removed from the storage since.
    ///
    /// A run in flight is canceled first, as by start().
    void resume(const QString &threadId, const QJsonObject &update = {});

    /// Returns whether a run was started and has not told its end.
    bool isRunning() const;

    /// Returns what was reached: by the run in flight, or by the last one, also where that was canceled. To
    /// keep a result while the run goes on makes the run copy its steps, so collect them from stepFinished()
    /// where there may be thousands.
    GraphRunResult result() const;

public Q_SLOTS:
    /// Ends the run: cancels its tasks, gives the thread back and emits canceled(). The checkpoint stays at
    /// the node that was running, so the run can be resumed. Does nothing where no run is in flight.
    void cancel();

Q_SIGNALS:
    /// The node @p node begins.
    void nodeStarted(const QString &node);

    /// A piece of a model's answer arrived that a task of @p node asked for. @p branch is empty unless the
    /// node is a parallel one.
    void deltaReceived(const QString &node, const QString &delta, const QString &branch);

    /// A node has run, and the state is saved where that is due.
    void stepFinished(const MireloQtLib::QtAgent::GraphStep &step);

    /// The run is over: at its end, before an interrupt, or with an error.
    void finished(const MireloQtLib::QtAgent::GraphRunResult &result);

    /// The run was canceled, by cancel() or by another start.
    void canceled();

private:
    friend class GraphAwaiter;
    friend class GraphExecution;

    bool cancelAll();
    bool end();
    void finish();

    const std::unique_ptr<GraphSettings> m_settings;
    std::unique_ptr<GraphExecution> m_execution; // the run in flight
    // What is left of the last run.
    QString m_threadId;
    GraphRunResult m_result;
    std::optional<Checkpoint> m_checkpoint;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
