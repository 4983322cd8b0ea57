#ifndef QTAGENT_TESTS_GRAPHRUNLOG_H
#define QTAGENT_TESTS_GRAPHRUNLOG_H

#include <qtagent/graphrun.h>

#include <QStringList>

#include <functional>

/// Writes what a run emits into a log: "started a", "delta a: Hi" (of a branch "delta a/x: Hi"), "step a",
/// "finished", "interrupted b" or "error: …" for finished(), and "canceled". Notes whether the run was told
/// to be running in the slots of its end, which is a fault: "still running".
class GraphRunLog
{
public:
    using GraphRun = MireloQtLib::QtAgent::GraphRun;
    using GraphRunResult = MireloQtLib::QtAgent::GraphRunResult;
    using GraphStep = MireloQtLib::QtAgent::GraphStep;

    GraphRunLog(GraphRun *run, QStringList *log)
        : m_log(log)
    {
        QObject::connect(run, &GraphRun::nodeStarted, &m_context,
                         [this](const QString &node) { add("started " + node); });
        const auto addDelta = [this](const QString &node, const QString &delta, const QString &branch) {
            add("delta " + node + (branch.isEmpty() ? "" : "/" + branch) + ": " + delta);
        };
        QObject::connect(run, &GraphRun::deltaReceived, &m_context, addDelta);
        QObject::connect(run, &GraphRun::stepFinished, &m_context,
                         [this](const GraphStep &step) { add("step " + step.node); });
        QObject::connect(run, &GraphRun::finished, &m_context, [this, run](const GraphRunResult &result) {
            addEnd(textOf(result), run->isRunning());
        });
        QObject::connect(run, &GraphRun::canceled, &m_context,
                         [this, run] { addEnd("canceled", run->isRunning()); });
    }

    /// Calls @p action after every entry, from inside the signal.
    void onEntry(const std::function<void(const QString &entry)> &action) { m_action = action; }

    static QString textOf(const GraphRunResult &result)
    {
        if (!result.error.isEmpty())
            return "error: " + result.error;
        return result.interrupted ? "interrupted " + result.interruptedNode : QString("finished");
    }

private:
    void addEnd(const QString &entry, bool isRunning)
    {
        if (isRunning)
            m_log->append("still running");
        add(entry);
    }

    void add(const QString &entry)
    {
        m_log->append(entry);
        const auto action = m_action; // which may replace itself
        if (action)
            action(entry);
    }

    QStringList *const m_log;
    std::function<void(const QString &)> m_action;
    QObject m_context;
};

#endif
