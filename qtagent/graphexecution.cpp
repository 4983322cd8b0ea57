#include "graphexecution_p.h"

#include <limits>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

QString threwText(const QString &node, const QString &thrown)
{
    return QStringLiteral("Node '%1' threw: %2").arg(node, thrown);
}

int renewalInterval(qint64 leaseMs)
{
    constexpr qint64 renewals = 3;
    return int(qBound(qint64(1), leaseMs / renewals, qint64(std::numeric_limits<int>::max())));
}

} // namespace

void GraphSettings::setAsyncNode(const QString &name, const AsyncNode &node)
{
    if (name == StartNode || name == EndNode)
        return;
    asyncNodes.insert(name, node);
    if (!graph.nodeNames().contains(name))
        graph.addNode(name, {});
}

GraphExecution::GraphExecution(GraphRun *run, const GraphSettings &settings, const QString &threadId)
    : m_run(run)
    , m_settings(settings)
    , m_walk(std::make_shared<GraphWalk>(settings.graph, QJsonObject()))
    , m_thread(std::make_shared<ClaimedThread>(settings.storage, threadId, settings.owner, settings.leaseMs))
    , m_fingerprint(settings.graph.fingerprint())
{
    // Posted events would keep a window waiting, for those come before its own.
    m_turn.setSingleShot(true);
    connect(&m_turn, &QTimer::timeout, this, [this] {
        const Step step = m_step;
        (this->*step)();
    });
    connect(&m_renewal, &QTimer::timeout, this, &GraphExecution::renewClaim);
}

// Calls into the application and returns whether this object still exists afterwards. What runs meanwhile
// lives on.
template<typename Call>
bool GraphExecution::survives(const Call &call)
{
    const QPointer<GraphExecution> self(this);
    const std::shared_ptr<GraphWalk> walk = m_walk;
    const std::shared_ptr<ClaimedThread> thread = m_thread;
    call();
    return self;
}

void GraphExecution::post(Step step)
{
    m_step = step;
    m_turn.start();
}

// Ends the run.
void GraphExecution::fail(const QString &error)
{
    m_walk->fail(error);
    m_run->finish();
}

void GraphExecution::start(const QJsonObject &initialState)
{
    m_input = initialState;
    m_walk->restore(initialState, {});
    post(&GraphExecution::begin);
}

void GraphExecution::resume(const std::optional<Checkpoint> &checkpoint, const QJsonObject &update,
                            const QString &errorWithoutCheckpoint)
{
    m_checkpoint = checkpoint;
    m_input = update;
    m_errorWithoutCheckpoint = errorWithoutCheckpoint;
    post(&GraphExecution::goOnWhereItStood);
}

void GraphExecution::begin()
{
    if (!open())
        return;
    if (m_checkpoint)
        m_walk->restore(m_checkpoint->state, m_input);
    std::optional<QString> thrown;
    if (!survives([&] { thrown = thrownBy([this] { m_walk->start(); }); }))
        return;
    if (thrown)
        m_walk->fail(threwText(StartNode, *thrown));
    if (m_walk->hasFailed() || save(firstAttempt()))
        goOn();
}

void GraphExecution::goOnWhereItStood()
{
    if (!open())
        return;
    if (!m_checkpoint) {
        fail(m_errorWithoutCheckpoint);
        return;
    }
    const Checkpoint stood = *m_checkpoint;
    const bool isOver = stood.next == EndNode;
    m_walk->restore(stood.state, {});
    if (!isOver && isOfAnotherGraph(stood)) {
        fail(QStringLiteral("The graph of thread '%1' has changed.").arg(m_thread->id()));
        return;
    }
    if (!isOver)
        m_walk->restore(stood.state, m_input);
    m_walk->standBefore(stood.next);
    if (isOver || save(stood.attempt + 1))
        goOn();
}

// In memory it is the same run that goes on, and its host knows what it has set since.
bool GraphExecution::isOfAnotherGraph(const Checkpoint &checkpoint) const
{
    return m_thread->isStored() && !m_settings.acceptsChangedGraph && checkpoint.fingerprint != m_fingerprint;
}

// Claims the thread and reads where it stands. Returns false where the run is over by that.
bool GraphExecution::open()
{
    if (!m_thread->isStored())
        return true;
    QString error;
    Checkpoint stored;
    if (!survives([&] { error = m_thread->claim(); }))
        return false;
    if (error.isEmpty() && !survives([&] { error = m_thread->read(&stored); }))
        return false;
    if (!error.isEmpty()) {
        fail(error);
        return false;
    }
    m_renewal.start(renewalInterval(m_settings.leaseMs));
    if (!stored.threadId.isEmpty())
        m_checkpoint = stored;
    return true;
}

void GraphExecution::renewClaim()
{
    QString error;
    if (survives([&] { error = m_thread->renew(); }) && !error.isEmpty())
        fail(error);
}

// The first time that the next node is begun is yet to come where the run stops before it.
qint32 GraphExecution::firstAttempt() const
{
    return m_walk->isInterrupted() ? 0 : 1;
}

// Returns false where this object is gone. What fails ends the walk.
bool GraphExecution::save(qint32 attempt)
{
    Checkpoint checkpoint;
    checkpoint.threadId = m_thread->id();
    checkpoint.state = m_walk->state();
    checkpoint.next = m_walk->next();
    checkpoint.interrupted = m_walk->isInterrupted();
    checkpoint.attempt = attempt;
    checkpoint.fingerprint = m_fingerprint;
    QString error;
    if (!survives([&] { error = m_thread->save(checkpoint); }))
        return false;
    if (error.isEmpty())
        m_checkpoint = checkpoint;
    else
        m_walk->fail(error);
    return true;
}

void GraphExecution::goOn()
{
    if (m_walk->goesOn())
        post(&GraphExecution::runNode);
    else
        m_run->finish();
}

void GraphExecution::runNode()
{
    if (!m_walk->findNode()) {
        m_run->finish();
        return;
    }
    const QString node = m_walk->next();
    if (!survives([&] { Q_EMIT m_run->nodeStarted(node); }))
        return;
    const auto asyncNode = m_settings.asyncNodes.constFind(node);
    if (asyncNode != m_settings.asyncNodes.constEnd())
        startTasks(*asyncNode);
    else
        callFunction();
}

void GraphExecution::callFunction()
{
    QJsonObject update;
    std::optional<QString> thrown;
    if (!survives([&] { thrown = thrownBy([&] { update = m_walk->callFunction(); }); }))
        return;
    if (thrown)
        fail(threwText(m_walk->next(), *thrown));
    else
        advance(update);
}

void GraphExecution::advance(const QJsonObject &update)
{
    const QString node = m_walk->next();
    std::optional<QString> thrown;
    if (!survives([&] { thrown = thrownBy([&] { m_walk->advance(update); }); }))
        return;
    if (thrown)
        m_walk->fail(threwText(node, *thrown));
    if (!m_walk->hasFailed() && !save(firstAttempt()))
        return;
    const GraphStep step = m_walk->lastStep();
    if (survives([&] { Q_EMIT m_run->stepFinished(step); }))
        goOn();
}

// A function may end its task, or those of others, and return much later: the node is over when all tasks
// have ended and all functions have returned.
void GraphExecution::startTasks(const AsyncNode &node)
{
    const QMap<QString, AsyncNodeFunction> branches = node.branches; // lives on where a function ends the run
    m_isParallel = node.isParallel;
    m_openCount = int(branches.size()) + 1;
    for (auto branch = branches.cbegin(); branch != branches.cend(); ++branch) {
        if (!startTask(branch.key(), branch.value()))
            return;
    }
    closeOne();
}

// Returns false where this object is gone.
bool GraphExecution::startTask(const QString &branch, const AsyncNodeFunction &function)
{
    auto *task = new GraphTask(m_walk->next(), branch, *m_checkpoint, this, m_run);
    m_tasks.insert(branch, task);
    std::optional<QString> thrown;
    if (!survives([&] { thrown = thrownBy([&] { function(task); }); }))
        return false;
    if (thrown)
        failNode(m_isParallel ? failedText(branch, *thrown) : threwText(m_walk->next(), *thrown));
    return true;
}

void GraphExecution::deltaArrived(const GraphTask &task, const QString &delta)
{
    Q_EMIT m_run->deltaReceived(task.node(), delta, task.branch());
}

void GraphExecution::taskFinished(const GraphTask &task, const QJsonObject &update)
{
    m_updates.insert(task.branch(), update);
    closeOne();
}

void GraphExecution::taskFailed(const GraphTask &task, const QString &error)
{
    failNode(failedText(task.branch(), error));
}

QString GraphExecution::failedText(const QString &branch, const QString &error) const
{
    if (m_isParallel)
        return QStringLiteral("Branch '%1' of node '%2' failed: %3").arg(branch, m_walk->next(), error);
    return QStringLiteral("Node '%1' failed: %2").arg(m_walk->next(), error);
}

// A failure does not wait for functions that have not returned.
void GraphExecution::failNode(const QString &error)
{
    if (!m_failure)
        m_failure = error;
    post(&GraphExecution::settle);
}

void GraphExecution::closeOne()
{
    if (--m_openCount == 0)
        post(&GraphExecution::settle);
}

void GraphExecution::settle()
{
    if (m_failure) {
        fail(*m_failure);
        return;
    }
    QJsonObject merged;
    for (const QJsonObject &update : qAsConst(m_updates)) {
        for (auto it = update.begin(); it != update.end(); ++it)
            merged.insert(it.key(), it.value());
    }
    m_updates.clear();
    for (const QPointer<GraphTask> &task : std::exchange(m_tasks, {})) {
        if (task)
            task->deleteLater();
    }
    advance(merged);
}

void GraphExecution::close()
{
    m_turn.disconnect();
    m_renewal.disconnect();
    while (!m_tasks.isEmpty()) {
        const QPointer<GraphTask> task = m_tasks.take(m_tasks.firstKey());
        if (task && !survives([&] { task->cancel(); }))
            return;
    }
    survives([this] { m_thread->release(); });
}

} // namespace QtAgent
} // namespace MireloQtLib
