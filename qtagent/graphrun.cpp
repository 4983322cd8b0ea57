#include "graphrun.h"

#include "graphexecution_p.h"

#include <QUuid>

namespace MireloQtLib {
namespace QtAgent {

GraphRun::GraphRun(const StateGraph &graph, QObject *parent)
    : QObject(parent)
    , m_settings(std::make_unique<GraphSettings>())
{
    // A program that links the static library may leave out the file that registers the records.
    qRegisterMetaType<GraphStep>();
    qRegisterMetaType<GraphRunResult>();
    m_settings->graph = graph;
    m_settings->owner = QUuid::createUuid().toString(QUuid::WithoutBraces);
}

// A slot of a task may start another run meanwhile.
GraphRun::~GraphRun()
{
    blockSignals(true);
    while (m_execution)
        end();
}

void GraphRun::setAsyncNode(const QString &name, const AsyncNodeFunction &function)
{
    m_settings->setAsyncNode(name, {{{QString(), function}}, false});
}

void GraphRun::setParallelNode(const QString &name, const QMap<QString, AsyncNodeFunction> &branches)
{
    m_settings->setAsyncNode(name, {branches, true});
}

StateGraph GraphRun::graph() const
{
    return m_settings->graph;
}

void GraphRun::setCheckpoints(CheckpointStorage *storage)
{
    m_settings->storage = storage;
}

void GraphRun::setOwner(const QString &owner)
{
    if (!owner.isEmpty())
        m_settings->owner = owner;
}

void GraphRun::setLease(qint64 ms)
{
    m_settings->leaseMs = ms;
}

void GraphRun::setAcceptsChangedGraph(bool accepts)
{
    m_settings->acceptsChangedGraph = accepts;
}

// The arguments below are copied first: they may lie in what a slot of the earlier run deletes.

void GraphRun::start(const QJsonObject &initialState, const QString &threadId)
{
    const QJsonObject state = initialState; // NOLINT(performance-unnecessary-copy-initialization)
    const QString thread = threadId;        // NOLINT(performance-unnecessary-copy-initialization)
    if (!cancelAll())
        return;
    m_execution = std::make_unique<GraphExecution>(this, *m_settings, thread);
    m_execution->start(state);
}

void GraphRun::resume(const QString &threadId, const QJsonObject &update)
{
    const QString thread = threadId;  // NOLINT(performance-unnecessary-copy-initialization)
    const QJsonObject input = update; // NOLINT(performance-unnecessary-copy-initialization)
    if (!cancelAll())
        return;
    if (thread.isEmpty()) {
        m_execution = std::make_unique<GraphExecution>(this, *m_settings, m_threadId);
        m_execution->resume(m_checkpoint, input, QStringLiteral("Nothing to resume."));
    } else {
        m_execution = std::make_unique<GraphExecution>(this, *m_settings, thread);
        m_execution->resume({}, input, QStringLiteral("No checkpoint of thread '%1'.").arg(thread));
    }
}

bool GraphRun::isRunning() const
{
    return m_execution != nullptr;
}

GraphRunResult GraphRun::result() const
{
    return m_execution ? m_execution->result() : m_result;
}

void GraphRun::cancel()
{
    if (m_execution && end())
        Q_EMIT canceled();
}

// Also what slots start meanwhile. Returns false where one of them deletes this object.
bool GraphRun::cancelAll()
{
    const QPointer<GraphRun> self(this);
    while (self && m_execution)
        cancel();
    return self;
}

void GraphRun::finish()
{
    if (end())
        Q_EMIT finished(GraphRunResult(m_result));
}

// Returns false where a slot of a task has ended the run first, or deleted it.
bool GraphRun::end()
{
    const QPointer<GraphExecution> ending(m_execution.get());
    m_execution->close();
    if (!ending)
        return false;
    m_threadId = m_execution->threadId();
    m_result = m_execution->result();
    m_checkpoint = m_execution->checkpoint();
    m_execution.reset();
    return true;
}

} // namespace QtAgent
} // namespace MireloQtLib
