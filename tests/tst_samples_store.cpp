#include "support/samplewindow.h"

#include "support/postgrescluster.h"

#include <qtagent/agentsession.h>
#include <qtagent/graphrun.h>
#include <qtagent/store/conversationstore.h>
#include <qtagent/store/sqlcheckpoints.h>

#include <QSqlError>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

class StoreWindow : public SampleWindow
{
public:
    StoreWindow() { session->setConversation({ChatMessage::user(question)}); }

    void paste() override{
#include "conversationstore_1.inc"
    }

    AgentSession *const session = new AgentSession(this);
};

StateGraph jobGraph()
{
    StateGraph graph;
    graph.addEdge(StartNode, "work");
    graph.addEdge("work", EndNode);
    return graph;
}

// A window that goes on with a job, whose only node waits for the test.
class JobWindow : public SampleWindow
{
public:
    JobWindow()
    {
        m_run.setAsyncNode("work", [this](GraphTask *begun) { task = begun; });
        connect(&m_run, &GraphRun::finished, this, &JobWindow::showResult);
    }

    void addJobTo(CheckpointStorage *storage) const
    {
        const Checkpoint job{"job-1", {}, "work", false, 0, m_run.graph().fingerprint(), 0};
        QCOMPARE(storage->claim("job-1", "test", 30000, nullptr), CheckpointStorage::Claim::Granted);
        QVERIFY(storage->save(job, "test", nullptr));
        storage->release("job-1", "test");
    }

    void showResult(const GraphRunResult &result)
    {
        ends.append(result.error.isEmpty() ? "Finished" : "Failed: " + result.error);
    }

    QPointer<GraphTask> task;

protected:
    std::unique_ptr<SqlCheckpoints> m_checkpoints;
    GraphRun m_run{jobGraph()};
};

class FileWindow : public JobWindow
{
public:
    explicit FileWindow(const QString &path)
        : folder(path)
    {}

    void paste() override
    {
#include "sqlcheckpoints_1.inc"
    }

    const QString folder;
};

class ServerWindow : public JobWindow
{
public:
    explicit ServerWindow(const QString &server)
        : host(server)
    {}

    void paste() override
    {
#include "sqlcheckpoints_2.inc"
    }

    const QString host;
    const QString name = "postgres";
    const QString user = "tester";
    const QString password;
};

} // namespace

class TestSamplesStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { init(); }

    void conversationIsKept();
    void fileThatCannotBeOpenedIsTold();
    void windowMayBeDeletedAndMadeAgain();

    void jobInAFileGoesOn();
    void fileOfCheckpointsThatCannotBeOpenedIsTold();
    void windowMayBeDeletedDuringAJob();
    void jobOnAServerGoesOn();
    void serverThatIsNotThereIsTold();
};

void TestSamplesStore::init()
{
    QStandardPaths::setTestModeEnabled(true);
    QDir folder = QFileInfo(ConversationStore::defaultPath()).dir();
    QVERIFY(folder.removeRecursively());
}

void TestSamplesStore::conversationIsKept()
{
    StoreWindow window;
    window.paste();
    QCOMPARE(window.ends, QStringList());
    const auto *store = window.findChild<ConversationStore *>();
    QCOMPARE(store->list().size(), 1);
    const Conversation kept = store->load(store->list().first().id);
    QCOMPARE(kept.title, "New conversation");
    QCOMPARE(kept.chatMessages().first().content, "What is a valve?");
}

void TestSamplesStore::fileThatCannotBeOpenedIsTold()
{
    QVERIFY(QDir().mkpath(ConversationStore::defaultPath()));
    StoreWindow window;
    window.paste();
    QCOMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().startsWith("Failed: "));
}

void TestSamplesStore::windowMayBeDeletedAndMadeAgain()
{
    auto window = std::make_unique<StoreWindow>();
    window->paste();
    window.reset();
    StoreWindow next;
    next.paste();
    QCOMPARE(next.ends, QStringList());
    QCOMPARE(next.findChild<ConversationStore *>()->list().size(), 2);
}

void TestSamplesStore::jobInAFileGoesOn()
{
    const QTemporaryDir folder;
    FileWindow window(folder.path());
    window.addJobTo(SqlCheckpoints::openSqlite(folder.filePath("checkpoints.sqlite")).get());
    window.paste();
    QTRY_VERIFY(window.task);
    window.task->finish({});
    QTRY_COMPARE(window.ends, QStringList("Finished"));
}

void TestSamplesStore::fileOfCheckpointsThatCannotBeOpenedIsTold()
{
    const QTemporaryDir folder;
    QVERIFY(QDir().mkpath(folder.filePath("checkpoints.sqlite")));
    FileWindow window(folder.path());
    window.paste();
    QCOMPARE(window.ends,
             QStringList("Failed: " + folder.filePath("checkpoints.sqlite") + " is not a file."));
}

// The thread is given back, so the next window can go on.
void TestSamplesStore::windowMayBeDeletedDuringAJob()
{
    const QTemporaryDir folder;
    auto window = std::make_unique<FileWindow>(folder.path());
    window->addJobTo(SqlCheckpoints::openSqlite(folder.filePath("checkpoints.sqlite")).get());
    window->paste();
    QTRY_VERIFY(window->task);
    window = std::make_unique<FileWindow>(folder.path());
    window->paste();
    QTRY_VERIFY(window->task);
    QCOMPARE(window->task->attempt(), 2);
    QCOMPARE(window->ends, QStringList());
}

void TestSamplesStore::jobOnAServerGoesOn()
{
    if (!PostgresCluster::whatIsMissing().isEmpty())
        QSKIP(qPrintable(PostgresCluster::whatIsMissing()));
    PostgresCluster cluster;
    QVERIFY(cluster.create());
    auto window = std::make_unique<ServerWindow>(cluster.folder());
    {
        SqlCheckpoints checkpoints(PostgresCluster::connectTo(cluster.folder(), "test"));
        window->addJobTo(&checkpoints);
    }
    window->paste();
    QTRY_VERIFY(window->task);
    window->task->finish({});
    QTRY_COMPARE(window->ends, QStringList("Finished"));
    window.reset();
    QSqlDatabase::removeDatabase("checkpoints");
    QSqlDatabase::removeDatabase("test");
}

void TestSamplesStore::serverThatIsNotThereIsTold()
{
    if (!QSqlDatabase::isDriverAvailable("QPSQL"))
        QSKIP("The driver QPSQL of Qt Sql is not installed.");
    const QTemporaryDir folder;
    ServerWindow window(folder.path());
    window.paste();
    QCOMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().contains(folder.path()));
    QSqlDatabase::removeDatabase("checkpoints");
}

QTEST_MAIN(TestSamplesStore)
#include "tst_samples_store.moc"
