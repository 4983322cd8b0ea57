#ifndef QTAGENT_TESTS_GRAPHSTAGE_H
#define QTAGENT_TESTS_GRAPHSTAGE_H

#include "heldmodel.h"
#include "memorycheckpoints.h"
#include "torture.h"

#include <qtagent/graphrun.h>

/// How the run of a graph goes.
struct GraphPlot
{
    bool isStored = true;
    bool fails = false;    // in one of three branches
    bool actsFirst = true; // the slots that act are connected before those of tasks and the host
    MireloQtLib::QtAgent::CheckpointStorage *storage = nullptr; // in the place of one in memory
};

/// A run through a plain node, one that asks a model, three branches of which one asks as well, and one that
/// it stops before; the host then resumes it.
class GraphStage : public TortureStage
{
public:
    using ChatReply = MireloQtLib::QtAgent::ChatReply;
    using GraphRun = MireloQtLib::QtAgent::GraphRun;
    using GraphRunResult = MireloQtLib::QtAgent::GraphRunResult;
    using GraphTask = MireloQtLib::QtAgent::GraphTask;
    using StateGraph = MireloQtLib::QtAgent::StateGraph;

    explicit GraphStage(const GraphPlot &plot)
        : m_plot(plot)
        , m_run(new GraphRun(graph()))
    {
        m_model->onReply = [this](ChatReply *reply) { watch(reply); };
        m_model->onAnswer = [this](ChatReply *reply) { actAfterwards(reply); };
        setNodes();
        if (plot.isStored)
            m_run->setCheckpoints(plot.storage ? plot.storage : &m_storage);
        addVictims();
        addActions();
        connectHost();
    }

    ~GraphStage() override
    {
        delete m_run;
        delete m_model;
    }

protected:
    void start() override
    {
        m_isWanted = true;
        begin([this] { m_run->start({}, "t"); });
    }

    void inspect() override
    {
        const int ends = count("GraphRun::finished") + count("GraphRun::canceled");
        const QStringList late = signalsAfterAction().filter("GraphRun::");
        if (m_run ? ends != m_begun : ends > m_begun)
            reportFault(QString("%1 ends of %2 runs").arg(ends).arg(m_begun));
        if (m_run && m_run->isRunning())
            reportFault("never ends");
        if (action() == "delete run" && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        if (action() == "cancel" && late != QStringList("GraphRun::canceled") && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        if (!m_storage.claims.isEmpty())
            reportFault("the thread is not given back");
    }

    GraphRun *run() const { return m_run.data(); }

private:
    static StateGraph graph()
    {
        using namespace MireloQtLib::QtAgent;
        const QStringList way{StartNode, "plain", "ask", "branches", "review", EndNode};
        StateGraph graph;
        for (int i = 1; i < way.size(); ++i)
            graph.addEdge(way.at(i - 1), way.at(i));
        const auto update = [](const QJsonObject &) { return QJsonObject{{"plain", true}}; };
        graph.addNode("plain", update);
        graph.addNode("review", update);
        graph.addInterruptBefore("review");
        return graph;
    }

    void setNodes()
    {
        const auto ask = [this](GraphTask *task) {
            watch(task);
            task->ask(m_model, {}, "answer");
        };
        const auto finish = [this](GraphTask *task) {
            watch(task);
            QTimer::singleShot(0, task, [task] { task->finish({{"done", true}}); });
        };
        const auto fail = [this](GraphTask *task) {
            watch(task);
            QTimer::singleShot(0, task, [task] { task->fail("broken"); });
        };
        m_run->setAsyncNode("ask", ask);
        if (m_plot.fails)
            m_run->setParallelNode("branches", {{"1", ask}, {"2", fail}, {"3", finish}});
        else
            m_run->setParallelNode("branches", {{"1", ask}, {"2", finish}, {"3", finish}});
    }

    void addVictims()
    {
        addVictim("run", [this] { return m_run.data(); });
        addVictim("model", [this] { return m_model.data(); });
        addVictim("task", [this]() -> QObject * {
            const QList<GraphTask *> running = runningTasks();
            return running.isEmpty() ? nullptr : running.first();
        });
        addVictim("reply", [this]() -> QObject * {
            return m_model && !m_model->calls().isEmpty() ? m_model->lastCall().reply.data() : nullptr;
        });
    }

    void addActions()
    {
        addAction("cancel", [this] {
            m_isWanted = false;
            m_run->cancel();
        });
        addAction("run again", [this] { start(); });
        addAction("resume", [this] { begin([this] { m_run->resume("t"); }); });
        addAction("finish tasks", [this] {
            for (GraphTask *task : runningTasks())
                task->finish({});
        });
        addAction("fail tasks", [this] {
            for (GraphTask *task : runningTasks())
                task->fail("by a slot");
        });
    }

    QList<GraphTask *> runningTasks() const
    {
        QList<GraphTask *> tasks;
        if (m_run)
            tasks = m_run->findChildren<GraphTask *>();
        tasks.erase(
            std::remove_if(tasks.begin(), tasks.end(), [](GraphTask *task) { return !task->isRunning(); }),
            tasks.end());
        return tasks;
    }

    void connectHost()
    {
        connectChecks();
        setActsLast(!m_plot.actsFirst);
        watch(m_run);
        connect(m_run, &GraphRun::finished, this, [this](const GraphRunResult &result) {
            if (result.interrupted && m_isWanted)
                QTimer::singleShot(0, this, [this] { resumeAfterInterrupt(); });
        });
        actAfterwards(m_run);
    }

    // Whatever the slots do, a run emits only between its start and its end.
    void connectChecks()
    {
        const auto check = [this] {
            if (!m_isInFlight)
                reportFault("emitted after the end");
        };
        const auto checkEnd = [this, check] {
            check();
            if (m_run && m_run->isRunning())
                reportFault("still running at its end");
            m_isInFlight = false;
        };
        connect(m_run, &GraphRun::nodeStarted, this, check);
        connect(m_run, &GraphRun::deltaReceived, this, check);
        connect(m_run, &GraphRun::stepFinished, this, check);
        connect(m_run, &GraphRun::finished, this, checkEnd);
        connect(m_run, &GraphRun::canceled, this, checkEnd);
    }

    void resumeAfterInterrupt()
    {
        if (m_run && m_isWanted && !m_run->isRunning())
            begin([this] { m_run->resume({}, {{"approved", true}}); });
    }

    void begin(const Step &step)
    {
        if (m_model) {
            m_model->clearAnswers();
            m_model->addAnswer(HeldModel::inOneGo({"one ", "two"}));
            m_model->addAnswer(HeldModel::inOneGo({"three"}));
        }
        ++m_begun;
        step();
        m_isInFlight = true;
    }

    const GraphPlot m_plot;
    int m_begun = 0;
    bool m_isInFlight = false;
    bool m_isWanted = true;
    MemoryCheckpoints m_storage;
    const QPointer<HeldModel> m_model{new HeldModel};
    const QPointer<GraphRun> m_run;
};

#endif
