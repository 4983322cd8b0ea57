#include "support/approvaldialogs.h"
#include "support/heldmodel.h"
#include "support/heldtool.h"
#include "support/runledger.h"
#include "support/strictconversation.h"
#include "support/torture.h"

#include <qtagent/widgets/approvalprompt.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// A tool is no signal, but slots may do the same in it.
class CalledTool : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void called();
};

// How the runs of a session go, and how they are driven.
struct SessionPlot
{
    bool isAllowed = true;
    bool isAnsweredLater = false;
    bool fails = false;
    bool goesOnAfterDenial = false;
    bool actsFirst = true; // the slots that act are connected before those of the session and the host
    bool isUsedAsExecutor = false; // what both classes have is called through a pointer to the executor
    bool isAsynchronous = false;   // the tools are
    bool overlaps = false;         // those that only read
    bool isPrompted = false;       // the user answers in the dialogs of a prompt
};

// The user who answers in dialogs, each in the turn after it opened, and the window that they are above.
// Those of a run that is over are left to the prompt.
class DialogUser : public QObject
{
public:
    DialogUser(AgentExecutor *executor, RunLedger *ledger, bool allows)
        : m_executor(executor)
        , m_ledger(ledger)
        , m_prompt(new ApprovalPrompt(executor, m_window, this))
    {
        connect(executor, &AgentExecutor::approvalRequired, this, [this](const ApprovalRequest &request) {
            if (m_dialogs.count() > m_shown.size()) // what was answered before is not asked
                m_shown.append({m_dialogs.last(), request});
        });
        m_dialogs.onShown = [this, allows](ApprovalDialog *dialog) {
            const QVector<Shown> all = m_shown;
            for (const Shown &shown : all) {
                if (shown.dialog == dialog && m_executor && m_executor->isRunning())
                    answer(shown, allows);
            }
        };
    }

    ~DialogUser() override { delete m_window; }

    // Every dialog that is still there is answered, also once more.
    void answerAll(bool allows)
    {
        const QVector<Shown> all = m_shown;
        for (const Shown &shown : all)
            answer(shown, allows);
    }

    ApprovalPrompt *prompt() const { return m_prompt.data(); }
    QWidget *window() const { return m_window.data(); }
    ApprovalDialog *lastDialog() const { return m_dialogs.last(); }
    bool seesADialog() const { return m_dialogs.visibleCount() > 0; }

private:
    struct Shown
    {
        QPointer<ApprovalDialog> dialog;
        ApprovalRequest request;
    };

    void answer(const Shown &shown, bool allows)
    {
        const QPointer<ApprovalDialog> dialog = shown.dialog;
        if (dialog && allows)
            m_ledger->allow(shown.request, [dialog] { dialog->accept(); });
        else if (dialog)
            dialog->reject();
    }

    const QPointer<AgentExecutor> m_executor;
    RunLedger *const m_ledger;
    ApprovalDialogs m_dialogs;
    const QPointer<QWidget> m_window{new QWidget};
    const QPointer<ApprovalPrompt> m_prompt;
    QVector<Shown> m_shown;
};

// A session with a call that only reads and one that needs an approval, then a text in two pieces.
class SessionStage : public TortureStage
{
public:
    explicit SessionStage(const SessionPlot &plot)
        : m_plot(plot)
    {
        m_read = addTool("read", ToolPermission::ReadOnly);
        m_write = addTool("write", ToolPermission::Write);
        m_session->setModel(m_model);
        m_session->setToolRegistry(m_registry);
        if (plot.goesOnAfterDenial)
            m_session->setAfterDenial(AgentSession::AfterDenial::TellModel);
        m_session->setParallelToolCalls(plot.overlaps);
        addVictims();
        addActions();
        connectHost();
    }

    ~SessionStage() override
    {
        delete m_session;
        delete m_model;
    }

protected:
    void start() override
    {
        addScript();
        m_session->send("question");
    }

    void inspect() override
    {
        if (m_plot.isPrompted)
            inspectDialogs();
        const bool isAlive = m_session;
        if (!m_ledger.fault().isEmpty())
            reportFault(m_ledger.fault());
        if (isAlive && m_ledger.begunRuns() != m_ledger.ends().size())
            reportFault(QString("%1 runs, %2 ends").arg(m_ledger.begunRuns()).arg(m_ledger.ends().size()));
        if (m_model && !m_model->faults().isEmpty())
            reportFault("refused: " + m_model->faults().first());
        QStringList late = signalsAfterAction().filter("AgentSession");
        if (action() == "delete session" && !late.isEmpty())
            reportFault("emitted afterwards: " + late.join(", "));
        const bool begins = QStringList{"run", "send"}.contains(action());
        if (begins && m_ledger.ends().last() != lastEnd())
            reportFault("the last run does not end as it should");
    }

private:
    // Nobody answers where the prompt is gone.
    void inspectDialogs()
    {
        if (m_session && !m_user->prompt())
            m_session->cancel();
        if (m_user->seesADialog())
            reportFault("a dialog is left");
    }

    RunEnd lastEnd() const
    {
        if (!m_plot.isAllowed && !m_plot.goesOnAfterDenial)
            return RunEnd::Denied;
        return m_plot.fails ? RunEnd::Failed : RunEnd::Finished;
    }

    // The ids repeat from run to run, the arguments do not.
    void addScript()
    {
        const QJsonObject arguments{{"run", ++m_run}};
        m_model->clearAnswers();
        QJsonArray calls{makeToolCall("c1", "read", {}), makeToolCall("c2", "write", arguments)};
        if (m_plot.isAsynchronous)
            calls.prepend(makeToolCall("c3", "read", {}));
        m_model->addAnswer(HeldModel::inOneGo({"Let me see."}, calls));
        if (m_plot.fails)
            m_model->addAnswer([](const QPointer<ChatReply> &reply) { reply->fail("no network"); });
        else
            m_model->addAnswer(HeldModel::inOneGo({"one ", "two"}));
    }

    AgentTool *addTool(const QString &name, ToolPermission permission)
    {
        AgentTool *tool = m_plot.isAsynchronous ? makeSlowTool(name, permission) : makeTool(name, permission);
        m_registry->registerTool(tool);
        return tool;
    }

    AgentTool *makeTool(const QString &name, ToolPermission permission)
    {
        const auto handler = [this, name](const QJsonObject &arguments) {
            if (name == "write")
                m_ledger.execute(name, arguments);
            Q_EMIT m_tool.called();
            ToolResult result;
            result.content = name;
            return result;
        };
        return new FunctionTool(name, "Does things.", {{"type", "object"}}, permission, handler, m_registry);
    }

    AgentTool *makeSlowTool(const QString &name, ToolPermission permission)
    {
        auto *tool = new HeldTool(name, permission, m_registry);
        tool->onStart = [this, tool](ToolReply *reply) {
            const QString name = tool->name();
            m_toolReply = reply;
            if (name == "write")
                m_ledger.execute(name, tool->lastArguments);
            watch(reply);
            QTimer::singleShot(0, reply, [this, reply] { actAfterwards(reply); });
            const QPointer<ToolReply> guard(reply);
            Q_EMIT m_tool.called();
            if (guard)
                HeldTool::finishLater(reply, name);
        };
        return tool;
    }

    void addVictims()
    {
        addVictim("session", [this] { return m_session.data(); });
        addVictim("model", [this] { return m_model.data(); });
        addVictim("registry", [this] { return m_registry.data(); });
        addVictim("tool read", [this] { return m_read.data(); });
        addVictim("tool write", [this] { return m_write.data(); });
        addVictim("tool reply", [this] { return m_toolReply.data(); });
        addVictim("reply", [this] { return lastReply(); });
        if (m_plot.isPrompted)
            addVictim("prompt", [this] { return m_user->prompt(); });
    }

    void addActions()
    {
        addAction("cancel", [this] { m_plot.isUsedAsExecutor ? executor()->cancel() : m_session->cancel(); });
        addAction("run", [this] {
            addScript();
            m_plot.isUsedAsExecutor ? executor()->run("again") : m_session->run("again");
        });
        addAction("send", [this] { start(); });
        addAction("regenerate", [this] {
            addScript();
            m_session->regenerate();
        });
        addAction("set conversation", [this] { m_session->setConversation({}); });
        addAction("cancel reply", [this] {
            if (const QPointer<ChatReply> reply = lastReply())
                reply->cancel();
        });
        addAction("allow what was asked", [this] { answerAll(true); });
        addAction("deny what was asked", [this] { answerAll(false); });
        if (!m_plot.isPrompted)
            return;
        addAction("accept the dialogs", [this] { m_user->answerAll(true); });
        addAction("reject the dialogs", [this] { m_user->answerAll(false); });
        // Qt's dialogs do not survive it inside their own signals, and these lie on the stack.
        addAction("delete the window later", [this] { deleteLater(m_user->window()); });
        addAction("delete the dialog later", [this] { deleteLater(m_user->lastDialog()); });
    }

    ChatReply *lastReply() const
    {
        return m_model && !m_model->calls().isEmpty() ? m_model->lastCall().reply.data() : nullptr;
    }

    AgentExecutor *executor() const { return m_session.data(); }

    static void deleteLater(QObject *object)
    {
        if (object)
            object->deleteLater();
    }

    // The dialogs of all questions so far are answered once more.
    void answerAll(bool allowed)
    {
        const QVector<ApprovalRequest> requests = m_ledger.requests();
        for (const ApprovalRequest &request : requests)
            m_ledger.answer(request, allowed);
    }

    void connectHost()
    {
        setActsLast(!m_plot.actsFirst);
        m_model->onReply = [this](ChatReply *reply) { watch(reply); };
        m_model->onAnswer = [this](ChatReply *reply) { actAfterwards(reply); };
        watch(m_session, watchedSignals());
        watch(&m_tool);
        if (m_plot.isPrompted)
            addUser();
        else
            connect(m_session, &AgentSession::approvalRequired, this, &SessionStage::answer);
        actAfterwards(m_session);
        actAfterwards(&m_tool);
    }

    void addUser()
    {
        m_user = std::make_unique<DialogUser>(executor(), &m_ledger, m_plot.isAllowed);
        watch(m_user->prompt());
        actAfterwards(m_user->prompt());
    }

    // One change of the conversation may be told for two calls that end inside each other: it is not counted.
    QStringList watchedSignals() const
    {
        if (!m_plot.overlaps)
            return {};
        return {"assistantDelta", "assistantFinished", "failed",      "traceAdded",     "approvalRequired",
                "runningChanged", "runEnded",          "toolStarted", "toolProgressed", "approvalWithdrawn"};
    }

    void answer(const ApprovalRequest &request)
    {
        const auto resolve = [this, request] { m_ledger.answer(request, m_plot.isAllowed); };
        if (m_plot.isAnsweredLater)
            QTimer::singleShot(0, this, resolve);
        else
            resolve();
    }

    const SessionPlot m_plot;
    int m_run = 0;
    CalledTool m_tool;
    QObject m_owner;
    const QPointer<StrictModel> m_model{new StrictModel};
    const QPointer<ToolRegistry> m_registry{new ToolRegistry(&m_owner)};
    const QPointer<AgentSession> m_session{new AgentSession};
    RunLedger m_ledger{m_session};
    QPointer<AgentTool> m_read;
    QPointer<AgentTool> m_write;
    QPointer<ToolReply> m_toolReply;
    std::unique_ptr<DialogUser> m_user;
};

} // namespace

// Whatever a slot or a tool does in whatever signal of a session, every run has one end and no call is
// executed that was not allowed.
class TestTortureSession : public TortureTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

private:
    void addScenarios(const QString &name, SessionPlot plot);
};

void TestTortureSession::addScenarios(const QString &name, SessionPlot plot)
{
    for (const bool actsFirst : {true, false}) {
        for (const bool isUsedAsExecutor : {true, false}) {
            plot.actsFirst = actsFirst;
            plot.isUsedAsExecutor = isUsedAsExecutor;
            const QString place = actsFirst ? ", first slot" : ", last slot";
            const QString user = isUsedAsExecutor ? ", as executor" : "";
            addScenario(name + place + user, [plot] { return std::make_unique<SessionStage>(plot); });
        }
    }
}

void TestTortureSession::initTestCase()
{
    const QMap<QString, SessionPlot> plots{
        {"allowed in the signal", {}},
        {"allowed later", {true, true}},
        {"denied in the signal", {false}},
        {"denied later", {false, true}},
        {"denied and told", {false, true, false, true}},
        {"failing request", {true, false, true}},
    };
    for (auto plot = plots.cbegin(); plot != plots.cend(); ++plot) {
        addScenarios(plot.key(), plot.value());
        SessionPlot slowPlot = plot.value();
        slowPlot.isAsynchronous = true;
        addScenarios(plot.key() + ", slow tools", slowPlot);
    }
    for (const bool isAllowed : {true, false}) {
        SessionPlot prompted;
        prompted.isAllowed = isAllowed;
        prompted.isPrompted = true;
        addScenarios(isAllowed ? "allowed in a dialog" : "denied in a dialog", prompted);
    }
    SessionPlot overlapping;
    overlapping.isAsynchronous = true;
    overlapping.overlaps = true;
    addScenarios("overlapping tools", overlapping);
}

QTEST_MAIN(TestTortureSession)
#include "tst_torture_session.moc"
