#include "support/graphstage.h"

#include <qtagent/store/sqlcheckpoints.h>
#include <qtagent/widgets/graphview.h>

#include <QTemporaryDir>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

struct KeptCheckpoints
{
    const QTemporaryDir folder;
    const std::unique_ptr<SqlCheckpoints> checkpoints =
        SqlCheckpoints::openSqlite(folder.filePath("checkpoints.sqlite"));
};

/// A run with its checkpoints in a file and a picture of it.
class KeptGraphStage
    : private KeptCheckpoints
    , public GraphStage
{
public:
    KeptGraphStage(bool fails, bool actsFirst)
        : GraphStage({true, fails, actsFirst, checkpoints.get()})
    {
        m_view->follow(run());
        addVictim("view", [this] { return m_view.data(); });
        addViewAction("set step", [this] { m_view->setStep(0); });
        addViewAction("follow again", [this] { m_view->follow(run()); });
        addViewAction("follow none", [this] { m_view->follow(nullptr); });
        addViewAction("other graph", [this] { m_view->setGraph({}); });
        addViewAction("other result", [this] { m_view->showResult({}); });
    }

    ~KeptGraphStage() override { delete m_view; }

protected:
    void inspect() override
    {
        GraphStage::inspect();
        QString error;
        if (checkpoints->claim("t", "another", 0, &error) != CheckpointStorage::Claim::Granted)
            reportFault("the thread is not given back: " + error);
        const bool isFollowed = m_view && run() && !m_viewActions.contains(action());
        if (isFollowed && m_view->currentStep() != run()->result().steps.size())
            reportFault(QString("the picture is at step %1").arg(m_view->currentStep()));
        if (m_view && m_view->toSvg().isEmpty())
            reportFault("no picture");
    }

private:
    void addViewAction(const QString &name, const Step &step)
    {
        m_viewActions.append(name);
        addAction(name, [this, step] {
            if (m_view)
                step();
        });
    }

    QStringList m_viewActions;
    const QPointer<GraphView> m_view{new GraphView};
};

} // namespace

// Whatever a slot does while a graph runs that is kept in a file and shown, nothing breaks.
class TestTortureGraph : public TortureTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
};

void TestTortureGraph::initTestCase()
{
    addScenario("graph, first slot", [] { return std::make_unique<KeptGraphStage>(false, true); });
    addScenario("failing branch, last slot", [] { return std::make_unique<KeptGraphStage>(true, false); });
}

QTEST_MAIN(TestTortureGraph)
#include "tst_torture_graph.moc"
