#include "support/samplewindow.h"

#include "support/memorycheckpoints.h"

#include <qtagent/graphrun.h>
#include <qtagent/widgets/graphview.h>

#include <QSlider>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// Reports what it measures once it is told to.
class Pump : public QObject
{
    Q_OBJECT

public:
    void measure(const QString &name) { m_name = name; }
    void stop() { m_name.clear(); }
    QString isMeasured() const { return m_name; }

Q_SIGNALS:
    void measured(double bar);
    void failed(const QString &error);

private:
    QString m_name;
};

StateGraph chainOf(const QString &node)
{
    StateGraph graph;
    graph.addEdge(StartNode, node);
    graph.addEdge(node, EndNode);
    return graph;
}

class GraphWindow : public SampleWindow
{
public:
    void showDelta(const QString & /*node*/, const QString &delta, const QString & /*branch*/)
    {
        shown += delta;
    }
    void showResult(const GraphRunResult &result)
    {
        if (!result.error.isEmpty())
            ends.append("Failed: " + result.error);
        else
            ends.append(result.interrupted ? "Waiting at " + result.interruptedNode : "Finished");
        state = result.state;
    }
    void showStopped() { ends.append("Stopped"); }

    QJsonObject state;
};

class PumpWindow : public GraphWindow
{
public:
    PumpWindow() { connect(run, &GraphRun::finished, this, &PumpWindow::showResult); }

    void paste() override
    {
        Pump *const pump = &this->pump;
#include "graphrun_1.inc"
        run->start({{"pump", "pump-3"}});
    }

    void pasteView(){
#include "graphview_1.inc"
    }

    Pump pump;
    GraphRun *const run = new GraphRun(chainOf("measure"), this);
};

class ReviewWindow : public GraphWindow
{
public:
    using Window = ReviewWindow;

    void paste() override
    {
#include "graphrun_2.inc"
    }

    void approve(){
#include "graphrun_3.inc"
    }

    std::unique_ptr<CheckpointStorage> m_storage = std::make_unique<MemoryCheckpoints>();
    std::unique_ptr<GraphRun> m_run;

private:
    ChatModel *const m_model = model;
};

// The window of the page.
class DraftWindow : public GraphWindow
{
public:
    void paste() override
    {
        ChatModel *const model = SampleWindow::model;
#include "waiting-graphs_1.inc"
        connect(&m_run, &GraphRun::finished, this, &DraftWindow::showResult);
        m_run.start({});
    }

private:
    GraphRun m_run{chainOf("draft")};
};

class PlaybackWindow : public SampleWindow
{
public:
    void paste() override
    {
        StateGraph graph = chainOf("count");
        graph.addNode("count", [](const QJsonObject &) { return QJsonObject{{"count", 1}}; });
#include "graphview_2.inc"
    }

    GraphView *view() const
    {
        return findChild<GraphView *>();
    }

    QSlider *const slider = new QSlider(this);
};

void work(Checkpoint *checkpoint)
{
    checkpoint->state["count"] = checkpoint->state["count"].toInt() + 1;
}

bool workOn(CheckpointStorage *storage, const QString &threadId, const QString &owner)
{
#include "checkpointstorage_1.inc"
}

} // namespace

// Samples of graphs that wait.
class TestSamplesGraphs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nodeWaitsForItsPump();
    void pumpThatFailsIsTold();
    void pumpStopsWithTheRun();
    void windowMayBeDeletedDuringANode();

    void answerWaitsForAReview();
    void failedAnswerIsTold();
    void draftWaitsForItsModel();
    void failedDraftIsTold();
    void windowMayBeDeletedDuringADraft();
    void canceledRunIsTold();
    void windowMayBeDeletedWhileItAsks();
    void windowMayBeDeletedBeforeTheReview();

    void viewFollowsARun();
    void viewPlaysARunBack();

    void workOnAThreadIsSaved();
    void threadOfAnotherOwnerIsLeftAlone();
    void threadThatCannotBeReadIsNotSaved();
};

void TestSamplesGraphs::nodeWaitsForItsPump()
{
    PumpWindow window;
    window.paste();
    QTRY_COMPARE(window.pump.isMeasured(), "pump-3");
    Q_EMIT window.pump.measured(6.5);
    QTRY_COMPARE(window.ends, QStringList("Finished"));
    QCOMPARE(window.state["bar"], 6.5);
}

void TestSamplesGraphs::pumpThatFailsIsTold()
{
    PumpWindow window;
    window.paste();
    QTRY_COMPARE(window.pump.isMeasured(), "pump-3");
    Q_EMIT window.pump.failed("no power");
    QTRY_COMPARE(window.ends, QStringList("Failed: Node 'measure' failed: no power"));
}

void TestSamplesGraphs::pumpStopsWithTheRun()
{
    PumpWindow window;
    window.paste();
    QTRY_COMPARE(window.pump.isMeasured(), "pump-3");
    window.run->cancel();
    QCOMPARE(window.pump.isMeasured(), "");
}

void TestSamplesGraphs::windowMayBeDeletedDuringANode()
{
    auto window = std::make_unique<PumpWindow>();
    window->paste();
    QTRY_COMPARE(window->pump.isMeasured(), "pump-3");
    window.reset();
    runUntilQuiet();
}

void TestSamplesGraphs::answerWaitsForAReview()
{
    SampleService service;
    ReviewWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Waiting at review"));
    QCOMPARE(window.shown, "Hello world");
    window.approve();
    QTRY_COMPARE(window.ends.size(), 2);
    QCOMPARE(window.ends.last(), "Finished");
    QCOMPARE(window.state,
             (QJsonObject{{"answer", "Hello world"}, {"approved", true}, {"question", "What is a valve?"}}));
    QCOMPARE(service.server.requests().size(), 1);
}

void TestSamplesGraphs::failedAnswerIsTold()
{
    SampleService service;
    service.fail();
    ReviewWindow window;
    window.paste();
    QTRY_COMPARE(window.ends.size(), 1);
    QVERIFY(
        window.ends.first().startsWith("Failed: Node 'answer' failed: OpenAI-compatible request failed."));
}

void TestSamplesGraphs::draftWaitsForItsModel()
{
    SampleService service;
    DraftWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Finished"));
    QCOMPARE(window.state, (QJsonObject{{"draft", "Hello world"}}));
}

void TestSamplesGraphs::failedDraftIsTold()
{
    SampleService service;
    service.fail();
    DraftWindow window;
    window.paste();
    QTRY_COMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().startsWith("Failed: Node 'draft' failed: OpenAI-compatible request failed."));
}

void TestSamplesGraphs::windowMayBeDeletedDuringADraft()
{
    SampleService service;
    service.wait();
    auto window = std::make_unique<DraftWindow>();
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesGraphs::canceledRunIsTold()
{
    SampleService service;
    service.wait();
    ReviewWindow window;
    window.paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.m_run->cancel();
    QCOMPARE(window.ends, QStringList("Stopped"));
}

void TestSamplesGraphs::windowMayBeDeletedWhileItAsks()
{
    SampleService service;
    service.wait();
    auto window = std::make_unique<ReviewWindow>();
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesGraphs::windowMayBeDeletedBeforeTheReview()
{
    SampleService service;
    auto window = std::make_unique<ReviewWindow>();
    window->paste();
    QTRY_COMPARE(window->ends, QStringList("Waiting at review"));
    window->approve();
    window.reset();
    runUntilQuiet();
}

void TestSamplesGraphs::viewFollowsARun()
{
    auto window = std::make_unique<PumpWindow>();
    window->paste();
    window->pasteView();
    const auto *view = window->findChild<GraphView *>();
    QTRY_COMPARE(window->pump.isMeasured(), "pump-3");
    QCOMPARE(view->currentStep(), 0);
    Q_EMIT window->pump.measured(6.5);
    QTRY_COMPARE(view->currentStep(), 1);
    window->run->start({});
    window.reset();
    runUntilQuiet();
}

void TestSamplesGraphs::viewPlaysARunBack()
{
    PlaybackWindow window;
    window.paste();
    QCOMPARE(window.view()->currentStep(), 1);
    window.slider->setValue(1);
    window.slider->setValue(0);
    QCOMPARE(window.view()->currentStep(), 0);
}

void TestSamplesGraphs::workOnAThreadIsSaved()
{
    MemoryCheckpoints storage;
    QVERIFY(workOn(&storage, "t", "me"));
    QVERIFY(workOn(&storage, "t", "somebody else"));
    QCOMPARE(storage.checkpoints["t"].state, (QJsonObject{{"count", 2}}));
}

void TestSamplesGraphs::threadOfAnotherOwnerIsLeftAlone()
{
    MemoryCheckpoints storage;
    storage.giveTo("somebody else", "t");
    QVERIFY(!workOn(&storage, "t", "me"));
    QCOMPARE(storage.log, QStringList("claim t"));
}

void TestSamplesGraphs::threadThatCannotBeReadIsNotSaved()
{
    MemoryCheckpoints storage;
    storage.failAt("load", 1);
    QVERIFY(!workOn(&storage, "t", "me"));
    QCOMPARE(storage.log, QStringList({"claim t", "load t", "release t"}));
}

QTEST_MAIN(TestSamplesGraphs)
#include "tst_samples_graphs.moc"
