// Runs a graph on a thread of a storage until it is over or killed, for tests of what is left then:
//   checkpointworker DATABASE FOLDER OWNER ROUNDS
// DATABASE is the path of a file, or the folder of a server's socket. Prints each node that it begins, and
// appends it to FOLDER/nodes; ends with 2 where another program is within a node at the same time.

#include "postgrescluster.h"

#include <qtagent/graphrun.h>
#include <qtagent/store/sqlcheckpoints.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int overlapStatus = 2;
constexpr int leaseMs = 1000;
constexpr int retryMs = 10;

std::unique_ptr<SqlCheckpoints> open(const QString &database)
{
    if (QFileInfo(database).isDir())
        return std::make_unique<SqlCheckpoints>(PostgresCluster::connectTo(database, "worker"));
    return SqlCheckpoints::openSqlite(database);
}

class Worker
{
public:
    explicit Worker(const QStringList &arguments)
        : m_storage(open(arguments.at(1)))
        , m_folder(arguments.at(2))
        , m_run(graph(arguments.at(4).toInt()))
    {
        m_run.setAsyncNode("later", [this](GraphTask *task) { runTask(task); });
        const AsyncNodeFunction branch = [](GraphTask *task) {
            const int count = task->state()[task->branch()].toInt() + 1;
            QTimer::singleShot(0, task, [task, count] { task->finish({{task->branch(), count}}); });
        };
        m_run.setParallelNode("branches", {{"left", branch}, {"right", branch}});
        m_run.setCheckpoints(m_storage.get());
        m_run.setOwner(arguments.at(3));
        m_run.setLease(leaseMs);
        QObject::connect(&m_run, &GraphRun::finished, &m_run,
                         [this](const GraphRunResult &result) { goOn(result); });
    }

    bool isOpen() const { return m_storage != nullptr; }
    void resume() { m_run.resume("t"); }

private:
    StateGraph graph(int rounds)
    {
        StateGraph graph;
        graph.maxSteps = std::numeric_limits<qint32>::max();
        graph.addNode("now", [this](const QJsonObject &state) {
            begin("now", state);
            end();
            return QJsonObject{{"now", state["now"].toInt() + 1}};
        });
        graph.addEdge(StartNode, "now");
        graph.addEdge("now", "later");
        graph.addEdge("later", "branches");
        const auto isDone = [rounds](const QJsonObject &state) -> QString {
            return state["left"].toInt() < rounds ? "again" : "done";
        };
        graph.addConditionalEdges("branches", isDone, {{"again", "now"}, {"done", EndNode}});
        return graph;
    }

    void runTask(GraphTask *task)
    {
        begin("later", task->state());
        const int count = task->state()["later"].toInt() + 1;
        QTimer::singleShot(1, task, [this, task, count] {
            end();
            task->finish({{"later", count}});
        });
    }

    void begin(const QString &node, const QJsonObject &state)
    {
        m_lock = ::open(qPrintable(m_folder.filePath("lock")), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (flock(m_lock, LOCK_EX | LOCK_NB) != 0)
            std::exit(overlapStatus);
        const QByteArray line =
            QString("%1 %2\n").arg(node, QString::number(state[node].toInt() + 1)).toUtf8();
        QFile file(m_folder.filePath("nodes"));
        if (!file.open(QIODevice::Append) || file.write(line) != line.size())
            std::abort();
        std::fputs(line.constData(), stdout);
        std::fflush(stdout);
    }

    void end() { ::close(std::exchange(m_lock, -1)); }

    void goOn(const GraphRunResult &result)
    {
        if (result.error.isEmpty())
            QCoreApplication::quit();
        else if (result.error == "No checkpoint of thread 't'.")
            m_run.start({{"input", "kept"}}, "t");
        else if (result.error == "Thread 't' is running elsewhere."
                 || result.error == "Thread 't' was taken over.")
            QTimer::singleShot(retryMs, &m_run, [this] { resume(); });
        else
            qFatal("%s", qPrintable(result.error));
    }

    const std::unique_ptr<SqlCheckpoints> m_storage;
    const QDir m_folder;
    int m_lock = -1;
    GraphRun m_run;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Worker worker(QCoreApplication::arguments());
    if (!worker.isOpen())
        return EXIT_FAILURE;
    worker.resume();
    return QCoreApplication::exec();
}
