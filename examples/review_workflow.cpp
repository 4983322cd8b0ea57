// A workflow in a window: a model writes a draft, which streams in, and the user reviews it before it is
// sent. Close the window before the review, or kill the program: it goes on there at the next start.

#include <qtagent/graphrun.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/store/sqlcheckpoints.h>
#include <qtagent/widgets/graphview.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

static StateGraph reviewGraph()
{
    StateGraph graph;
    graph.addEdge(StartNode, QStringLiteral("draft"));
    graph.addEdge(QStringLiteral("draft"), QStringLiteral("review"));
    graph.addNode(QStringLiteral("review"), [](const QJsonObject &) { return QJsonObject(); });
    const auto decide = [](const QJsonObject &state) {
        return state[QLatin1String("approved")].toBool() ? QStringLiteral("send") : QStringLiteral("again");
    };
    graph.addConditionalEdges(QStringLiteral("review"), decide,
                              {{QStringLiteral("send"), QStringLiteral("send")},
                               {QStringLiteral("again"), QStringLiteral("draft")}});
    graph.addNode(QStringLiteral("send"), [](const QJsonObject &) -> QJsonObject {
        return {{QStringLiteral("sent"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)}};
    });
    graph.addEdge(QStringLiteral("send"), EndNode);
    graph.addInterruptBefore(QStringLiteral("review"));
    return graph;
}

class ReviewWindow : public QSplitter
{
public:
    ReviewWindow(ChatModel *model, CheckpointStorage *checkpoints)
        : m_run(reviewGraph())
    {
        m_run.setAsyncNode(QStringLiteral("draft"), [model](GraphTask *task) {
            task->ask(model, {ChatMessage::user(QStringLiteral("Write a report on pump 3."))},
                      QStringLiteral("draft"));
        });
        m_run.setCheckpoints(checkpoints);
        m_view->follow(&m_run);
        addForm();
        connect(&m_run, &GraphRun::nodeStarted, this, &ReviewWindow::showNode);
        connect(&m_run, &GraphRun::deltaReceived, this, &ReviewWindow::appendText);
        connect(&m_run, &GraphRun::finished, this, &ReviewWindow::showResult);
        const QStringList problems = m_run.graph().problems();
        if (problems.isEmpty())
            goOn(checkpoints);
        else
            m_status->setText(problems.join(QLatin1Char('\n')));
    }

private:
    // resume() would run the node that waits for the user.
    void goOn(CheckpointStorage *checkpoints)
    {
        QString error;
        const Checkpoint checkpoint = checkpoints->load(m_thread, &error);
        if (!error.isEmpty())
            m_status->setText(error);
        else if (checkpoint.interrupted)
            showResult({checkpoint.state, {}, true, checkpoint.next, {}});
        else if (checkpoint.threadId.isEmpty())
            m_run.start({}, m_thread);
        else
            m_run.resume(m_thread);
    }

    // The field's own cursor is the user's.
    void appendText(const QString & /*node*/, const QString &delta)
    {
        QTextCursor cursor(m_text->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(delta);
    }

    void addForm()
    {
        auto *form = new QWidget(this);
        auto *layout = new QVBoxLayout(form);
        m_text->setReadOnly(true);
        m_status->setWordWrap(true);
        layout->addWidget(m_text);
        layout->addWidget(m_status);
        for (QPushButton *button : {m_approve, m_reject, m_restart})
            layout->addWidget(button);
        connect(m_approve, &QPushButton::clicked, this, [this] { review(true); });
        connect(m_reject, &QPushButton::clicked, this, [this] { review(false); });
        connect(m_restart, &QPushButton::clicked, this, [this] { m_run.start({}, m_thread); });
        setButtons(false, false);
    }

    void setButtons(bool canReview, bool canStart)
    {
        m_approve->setEnabled(canReview);
        m_reject->setEnabled(canReview);
        m_restart->setEnabled(canStart);
    }

    void review(bool isApproved)
    {
        setButtons(false, false);
        m_run.resume(m_thread, {{QStringLiteral("approved"), isApproved}});
    }

    void showNode(const QString &node)
    {
        if (node == QLatin1String("draft"))
            m_text->clear();
        m_status->setText(tr("Running: %1").arg(node));
        setButtons(false, false);
    }

    void showResult(const GraphRunResult &result)
    {
        m_view->showResult(result);
        m_text->setPlainText(result.state[QLatin1String("draft")].toString());
        m_status->setText(!result.error.isEmpty() ? result.error
                          : result.interrupted    ? tr("Do you agree?")
                                                  : tr("Sent."));
        setButtons(result.interrupted, !result.interrupted);
    }

    const QString m_thread = QStringLiteral("report");
    GraphRun m_run;
    GraphView *const m_view = new GraphView(this);
    QPlainTextEdit *const m_text = new QPlainTextEdit;
    QLabel *const m_status = new QLabel;
    QPushButton *const m_approve = new QPushButton(tr("&Agree and send"));
    QPushButton *const m_reject = new QPushButton(tr("&Write it again"));
    QPushButton *const m_restart = new QPushButton(tr("&New report"));
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("review_workflow"));
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    const QString path =
        argc > 1 ? QString::fromLocal8Bit(argv[1]) : folder + QLatin1String("/checkpoints.sqlite");
    QString error;
    const auto checkpoints = SqlCheckpoints::openSqlite(path, &error);
    if (!checkpoints) {
        QMessageBox::critical(nullptr, QString(), error);
        return EXIT_FAILURE;
    }
    MockChatModel model;
    ReviewWindow window(&model, checkpoints.get());
    window.resize(760, 460);
    window.show();
    return QApplication::exec();
}
