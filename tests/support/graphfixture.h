#ifndef QTAGENT_TESTS_GRAPHFIXTURE_H
#define QTAGENT_TESTS_GRAPHFIXTURE_H

#include "eventloop.h"
#include "graphrunlog.h"

#include <QCoreApplication>
#include <QPointer>

inline MireloQtLib::QtAgent::NodeFunction returns(const QJsonObject &update)
{
    return [update](const QJsonObject &) { return update; };
}

inline MireloQtLib::QtAgent::RouterFunction chooses(const QString &key)
{
    return [key](const QJsonObject &) { return key; };
}

/// __start__ -> a -> b -> __end__
inline MireloQtLib::QtAgent::StateGraph twoNodes(
    const MireloQtLib::QtAgent::NodeFunction &a = returns({{"a", 1}}),
    const MireloQtLib::QtAgent::NodeFunction &b = returns({{"b", 2}}))
{
    using namespace MireloQtLib::QtAgent;
    StateGraph graph;
    graph.addNode("a", a);
    graph.addNode("b", b);
    graph.addEdge(StartNode, "a");
    graph.addEdge("a", "b");
    graph.addEdge("b", EndNode);
    return graph;
}

/// What a run of twoNodes() emits.
inline QStringList logOfTwoNodes()
{
    return {"started a", "step a", "started b", "step b", "finished"};
}

/// A run with the log of its signals and of what a test adds.
struct GraphFixture
{
    explicit GraphFixture(const MireloQtLib::QtAgent::StateGraph &graph = twoNodes())
        : run(new MireloQtLib::QtAgent::GraphRun(graph))
        , signalLog(run, &log)
    {}
    ~GraphFixture() { delete run; }

    /// Starts the run and returns when the event loop is quiet.
    void start(const QJsonObject &initialState = {}, const QString &threadId = {})
    {
        run->start(initialState, threadId);
        runUntilQuiet();
    }

    /// Resumes the run and returns when the event loop is quiet.
    void resume(const QString &threadId = {}, const QJsonObject &update = {})
    {
        run->resume(threadId, update);
        runUntilQuiet();
    }

    /// Runs the event loop until the run is over.
    void waitForEnd()
    {
        while (run && run->isRunning())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    /// Calls @p action once, in the signal that is logged as @p entry.
    void onEntry(const QString &entry, const std::function<void()> &action)
    {
        signalLog.onEntry([this, entry, action](const QString &logged) {
            if (logged != entry)
                return;
            signalLog.onEntry({});
            action();
        });
    }

    QStringList log;
    const QPointer<MireloQtLib::QtAgent::GraphRun> run;
    GraphRunLog signalLog;
};

/// Leaves the task to the test, in @p place.
inline MireloQtLib::QtAgent::AsyncNodeFunction keepsIn(QPointer<MireloQtLib::QtAgent::GraphTask> *place)
{
    return [place](MireloQtLib::QtAgent::GraphTask *task) { *place = task; };
}

inline MireloQtLib::QtAgent::AsyncNodeFunction finishesWith(const QJsonObject &update)
{
    return [update](MireloQtLib::QtAgent::GraphTask *task) { task->finish(update); };
}

/// Logs when @p task is canceled, as "task canceled a" or, of a branch, "task canceled a/x".
inline void logCancel(const QPointer<MireloQtLib::QtAgent::GraphTask> &task, QStringList *log)
{
    using MireloQtLib::QtAgent::GraphTask;
    const auto add = [task = task.data(), log] {
        const QString name = task->node() + (task->branch().isEmpty() ? "" : "/" + task->branch());
        log->append("task canceled " + name + (task->isRunning() ? ", still running" : ""));
    };
    QObject::connect(task, &GraphTask::canceled, task, add);
}

#endif
