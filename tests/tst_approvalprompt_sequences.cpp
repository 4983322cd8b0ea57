#include "support/approvaldialogs.h"
#include "support/eventloop.h"
#include "support/runledger.h"

#include <qtagent/widgets/approvalprompt.h>

#include <QRandomGenerator>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// A session whose user answers in dialogs, in an order that random numbers decide: also in slots and in
// tools.
class RandomUser : public QObject
{
public:
    explicit RandomUser(quint32 seed)
        : m_random(seed)
    {
        m_registry.registerTool(
            new FunctionTool("write", "", {}, ToolPermission::Write, [this](const QJsonObject &arguments) {
                m_ledger.execute("write", arguments);
                ++m_executions;
                actSometimes();
                return ToolResult();
            }));
        m_model.onRequest = [this] {
            m_model.clearAnswers();
            addAnswer();
        };
        m_session->setModel(&m_model);
        m_session->setToolRegistry(&m_registry);
        const auto interfere = [this] { actSometimes(); };
        connect(m_session, &AgentSession::approvalRequired, this, [this](const ApprovalRequest &request) {
            m_shown.append({m_dialogs.last(), request});
        });
        connect(m_session, &AgentSession::approvalRequired, this, interfere);
        connect(m_session, &AgentSession::traceAdded, this, interfere);
        connect(m_session, &AgentSession::runningChanged, this, interfere);
        connect(m_session, &AgentSession::runEnded, this, interfere);
        connect(m_prompt, &ApprovalPrompt::answered, this, interfere);
    }

    ~RandomUser() override
    {
        delete m_session;
        delete m_window;
    }

    void play()
    {
        constexpr int steps = 20;
        for (int i = 0; i < steps && m_session; ++i)
            act();
        m_isPlaying = false;
        if (m_session)
            m_session->cancel();
        runUntilQuiet();
    }

    QString fault() const
    {
        if (!m_ledger.fault().isEmpty())
            return m_ledger.fault();
        if (m_session && m_ledger.begunRuns() != m_ledger.ends().size())
            return QString("%1 runs, %2 ends").arg(m_ledger.begunRuns()).arg(m_ledger.ends().size());
        if (m_dialogs.visibleCount() > 0)
            return "a dialog is left";
        return {};
    }

    int executions() const { return m_executions; }

private:
    bool oneIn(int count) { return m_random.bounded(count) == 0; }

    // Ids and arguments repeat often.
    void addAnswer()
    {
        QJsonArray calls;
        for (int i = int(m_random.bounded(3)); i > 0; --i) {
            calls.append(makeToolCall(QString("call_%1").arg(m_random.bounded(2)), "write",
                                      {{"path", int(m_random.bounded(2))}}));
        }
        if (calls.isEmpty())
            m_model.addText({"done"});
        else
            m_model.addToolCalls(calls);
    }

    void actSometimes()
    {
        constexpr int deepest = 3;
        if (!m_isPlaying || m_depth == deepest || !oneIn(8))
            return;
        ++m_depth;
        act();
        --m_depth;
    }

    void act()
    {
        AgentExecutor *const executor = m_session;
        if (!executor)
            return;
        switch (m_random.bounded(16)) {
        case 0:
            m_session->send("question");
            break;
        case 1:
            executor->run("question");
            break;
        case 2:
            executor->cancel();
            break;
        case 3:
            deleteSomething();
            break;
        case 4:
        case 5:
        case 6:
        case 7:
            answerOne();
            break;
        default:
            runUntilQuiet();
        }
    }

    void deleteSomething()
    {
        switch (m_random.bounded(10)) {
        case 0:
            delete m_session;
            break;
        case 1:
            delete m_prompt;
            break;
        case 2:
            delete m_window;
            break;
        default:
            delete m_dialogs.last();
        }
    }

    // The dialog that was shown last or an earlier one that is still there.
    void answerOne()
    {
        QVector<QPair<QPointer<ApprovalDialog>, ApprovalRequest>> there;
        for (const auto &shown : m_shown) {
            if (shown.first)
                there.append(shown);
        }
        if (there.isEmpty())
            return;
        const auto [dialog, request] = there.at(int(m_random.bounded(int(there.size()))));
        if (oneIn(4))
            dialog->reject();
        else
            m_ledger.allow(request, [shown = dialog] { shown->accept(); });
    }

    QRandomGenerator m_random;
    StrictModel m_model;
    ToolRegistry m_registry;
    ApprovalDialogs m_dialogs;
    QVector<QPair<QPointer<ApprovalDialog>, ApprovalRequest>> m_shown; // with what each dialog shows
    const QPointer<AgentSession> m_session{new AgentSession};
    RunLedger m_ledger{m_session};
    const QPointer<QWidget> m_window{new QWidget};
    const QPointer<ApprovalPrompt> m_prompt{new ApprovalPrompt(m_session, m_window, this)};
    int m_depth = 0;
    int m_executions = 0;
    bool m_isPlaying = true;
};

} // namespace

class TestApprovalPromptSequences : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anySequenceKeepsTheRules();
};

void TestApprovalPromptSequences::anySequenceKeepsTheRules()
{
    constexpr quint32 sequences = 3000;
    int executions = 0;
    for (quint32 seed = 0; seed < sequences; ++seed) {
        RandomUser user(seed);
        user.play();
        QVERIFY2(user.fault().isEmpty(), qPrintable(QString("%1: %2").arg(seed).arg(user.fault())));
        executions += user.executions();
    }
    qInfo() << executions << "allowed calls";
    QVERIFY(executions > 500); // otherwise it would show nothing
}

QTEST_MAIN(TestApprovalPromptSequences)
#include "tst_approvalprompt_sequences.moc"
