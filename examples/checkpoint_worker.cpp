// Works on jobs that several programs share on a server of PostgreSQL, or in a file of SQLite:
//   checkpoint_worker add pump-1 pump-2   adds two jobs
//   checkpoint_worker                     works on all jobs that nobody else works on, until all are done
// Start two workers and kill one of them: after five seconds the other one goes on with its job, at the step
// that was running. Where the server is, say the variables PGHOST, PGDATABASE, PGUSER and PGPASSWORD. Without
// PGHOST the jobs are in checkpoints.sqlite in the current folder.

#include <qtagent/graphrun.h>
#include <qtagent/store/sqlcheckpoints.h>

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace MireloQtLib::QtAgent;

static void measure(GraphTask *task)
{
    std::printf("%s: measures, attempt %d\n", qUtf8Printable(task->threadId()), task->attempt());
    std::fflush(stdout);
    const int count = task->state()[QLatin1String("measured")].toInt() + 1;
    QTimer::singleShot(1000, task, [task, count] { task->finish({{QStringLiteral("measured"), count}}); });
}

static StateGraph jobGraph()
{
    const auto decide = [](const QJsonObject &state) {
        return state[QLatin1String("measured")].toInt() < 5 ? QStringLiteral("again")
                                                            : QStringLiteral("done");
    };
    StateGraph graph;
    graph.addEdge(StartNode, QStringLiteral("measure"));
    graph.addConditionalEdges(
        QStringLiteral("measure"), decide,
        {{QStringLiteral("again"), QStringLiteral("measure")}, {QStringLiteral("done"), QString(EndNode)}});
    return graph;
}

static std::unique_ptr<SqlCheckpoints> openServer(QString *error)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"));
    database.setHostName(qEnvironmentVariable("PGHOST"));
    database.setDatabaseName(qEnvironmentVariable("PGDATABASE"));
    database.setConnectOptions(QStringLiteral("connect_timeout=5"));
    database.setUserName(qEnvironmentVariable("PGUSER"));
    database.setPassword(qEnvironmentVariable("PGPASSWORD"));
    if (database.open())
        return std::make_unique<SqlCheckpoints>(database);
    *error = database.lastError().text();
    return nullptr;
}

static std::unique_ptr<SqlCheckpoints> openCheckpoints(QString *error)
{
    if (qEnvironmentVariableIsSet("PGHOST"))
        return openServer(error);
    return SqlCheckpoints::openSqlite(QStringLiteral("checkpoints.sqlite"), error);
}

class Worker
{
public:
    explicit Worker(SqlCheckpoints *checkpoints)
        : m_checkpoints(checkpoints)
        , m_run(jobGraph())
    {
        m_run.setAsyncNode(QStringLiteral("measure"), &measure);
        m_run.setCheckpoints(checkpoints);
        m_run.setLease(5000);
        QObject::connect(&m_run, &GraphRun::finished, &m_run, [this](const GraphRunResult &result) {
            if (!result.error.isEmpty())
                qInfo("%s", qUtf8Printable(result.error));
            QTimer::singleShot(500, &m_run, [this] { takeNext(); });
        });
    }

    void add(const QString &job)
    {
        const Checkpoint checkpoint{job, {}, QStringLiteral("measure"), false, 0, m_run.graph().fingerprint(),
                                    0};
        const QString owner = QStringLiteral("adds jobs");
        QString error;
        if (m_checkpoints->claim(job, owner, 5000, &error) != CheckpointStorage::Claim::Granted
            || !m_checkpoints->save(checkpoint, owner, &error))
            qWarning("%s was not added. %s", qUtf8Printable(job), qUtf8Printable(error));
        m_checkpoints->release(job, owner);
    }

    // Goes round the jobs, for somebody else may hold the first one.
    void takeNext()
    {
        QString error;
        QStringList open;
        const QVector<Checkpoint> checkpoints = m_checkpoints->threads(&error);
        for (const Checkpoint &checkpoint : checkpoints) {
            if (checkpoint.next != EndNode)
                open.append(checkpoint.threadId);
        }
        if (!error.isEmpty())
            qCritical("%s", qUtf8Printable(error));
        if (open.isEmpty())
            QCoreApplication::exit(error.isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE);
        else
            m_run.resume(open.at(m_turn++ % open.size()));
    }

private:
    SqlCheckpoints *const m_checkpoints;
    GraphRun m_run;
    int m_turn = 0;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QString error;
    const std::unique_ptr<SqlCheckpoints> checkpoints = openCheckpoints(&error);
    if (!checkpoints) {
        qCritical("%s", qUtf8Printable(error));
        return EXIT_FAILURE;
    }
    Worker worker(checkpoints.get());
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) != QLatin1String("add")) {
        QTimer::singleShot(0, &application, [&worker] { worker.takeNext(); });
        return QCoreApplication::exec();
    }
    for (const QString &job : arguments.mid(2))
        worker.add(job);
    return EXIT_SUCCESS;
}
