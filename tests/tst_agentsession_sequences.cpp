#include "support/eventloop.h"
#include "support/runledger.h"
#include "support/strictconversation.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// A session, its host and its model, which all do what comes up next in a sequence of random numbers: also in
// slots and inside tools.
class RandomHost : public QObject
{
public:
    explicit RandomHost(quint32 seed)
        : m_random(seed)
    {
        addTool("read", ToolPermission::ReadOnly);
        addTool("write", ToolPermission::Write);
        m_model.onRequest = [this] {
            m_model.clearAnswers();
            addAnswer();
        };
        m_session->setModel(&m_model);
        m_session->setToolRegistry(&m_registry);
        m_session->setSystemPrompt("Be brief.");
        m_session->setTellsModelOfBadCalls(oneIn(2));
        if (oneIn(2))
            m_session->setAfterDenial(AgentSession::AfterDenial::TellModel);
        const auto interfere = [this] { actSometimes(); };
        connect(m_session, &AgentSession::assistantDelta, this, interfere);
        connect(m_session, &AgentSession::assistantFinished, this, interfere);
        connect(m_session, &AgentSession::failed, this, interfere);
        connect(m_session, &AgentSession::traceAdded, this, interfere);
        connect(m_session, &AgentSession::approvalRequired, this, interfere);
        connect(m_session, &AgentSession::runningChanged, this, interfere);
        connect(m_session, &AgentSession::runEnded, this, interfere);
        connect(m_session, &AgentSession::toolStarted, this, interfere);
        connect(m_session, &AgentSession::approvalWithdrawn, this, interfere);
        connect(m_session, &AgentSession::conversationChanged, this, interfere);
    }

    ~RandomHost() override { delete m_session; }

    void play()
    {
        constexpr int steps = 30;
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
        if (!m_model.faults().isEmpty())
            return "refused: " + m_model.faults().first();
        if (m_session && m_ledger.begunRuns() != m_ledger.ends().size())
            return QString("%1 runs, %2 ends").arg(m_ledger.begunRuns()).arg(m_ledger.ends().size());
        return {};
    }

    const RunLedger &ledger() const { return m_ledger; }
    int executions() const { return m_executions; }

private:
    bool oneIn(int count) { return m_random.bounded(count) == 0; }

    void addTool(const QString &name, ToolPermission permission)
    {
        m_registry.registerTool(
            new FunctionTool(name, "", {}, permission, [this, name](const QJsonObject &arguments) {
                if (name == "write") {
                    m_ledger.execute(name, arguments);
                    ++m_executions;
                }
                actSometimes();
                ToolResult result;
                result.success = oneIn(2);
                return result;
            }));
    }

    // Ids and arguments repeat often; some calls are bad and some requests are never answered.
    void addAnswer()
    {
        QJsonArray calls;
        for (int i = int(m_random.bounded(5)) - 1; i > 0; --i)
            calls.append(call());
        if (!calls.isEmpty())
            m_model.addToolCalls(calls, "Let me see.");
        else if (oneIn(3))
            m_model.addFailure("no network");
        else if (oneIn(2))
            m_model.addText({"one ", "two"});
    }

    QJsonObject call()
    {
        const QString id = QString("call_%1").arg(m_random.bounded(2));
        const QString name = oneIn(10) ? "fly" : oneIn(2) ? "read" : "write";
        QJsonObject call = makeToolCall(id, name, {{"path", int(m_random.bounded(2))}});
        if (oneIn(10))
            call.remove("id");
        if (oneIn(20))
            call.insert("function", QJsonObject{{"name", name}, {"arguments", "{"}});
        return call;
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
        switch (m_random.bounded(20)) {
        case 0:
        case 1:
            m_session->send("question");
            break;
        case 2:
            executor->run("question");
            break;
        case 3:
            m_session->regenerate();
            break;
        case 4:
            executor->cancel();
            break;
        case 5:
            interruptReply();
            break;
        case 6:
            forgetTheEnd();
            break;
        case 7:
            if (oneIn(4))
                delete m_session;
            break;
        case 8:
        case 9:
        case 10:
        case 11:
        case 12:
            answerOne();
            break;
        default:
            runUntilQuiet();
        }
    }

    // Tool messages, too: the session fills in what is missing.
    void forgetTheEnd()
    {
        const QVector<ChatMessage> conversation = m_session->conversation();
        m_session->setConversation(conversation.mid(0, int(m_random.bounded(int(conversation.size()) + 1))));
    }

    // Mostly the dialog that was opened last, or one of an earlier question that is still open.
    void answerOne()
    {
        const auto count = int(m_ledger.requests().size());
        if (count == 0)
            return;
        const ApprovalRequest shown =
            m_ledger.requests().at(oneIn(3) ? int(m_random.bounded(count)) : count - 1);
        m_ledger.answer(shown, !oneIn(4));
    }

    void interruptReply()
    {
        if (m_model.calls().isEmpty() || !m_model.lastCall().reply)
            return;
        if (oneIn(2))
            m_model.lastCall().reply->cancel();
        else
            delete m_model.lastCall().reply;
    }

    QRandomGenerator m_random;
    StrictModel m_model;
    ToolRegistry m_registry;
    const QPointer<AgentSession> m_session{new AgentSession};
    RunLedger m_ledger{m_session};
    int m_depth = 0;
    int m_executions = 0;
    bool m_isPlaying = true;
};

} // namespace

class TestAgentSessionSequences : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anySequenceKeepsTheRules_data();
    void anySequenceKeepsTheRules();
    void sequencesReachEveryEnd();

private:
    QMap<QString, int> m_ends;
    int m_executions = 0;
};

void TestAgentSessionSequences::anySequenceKeepsTheRules_data()
{
    constexpr quint32 sequences = 3000;
    constexpr quint32 sequencesPerRow = 300;
    QTest::addColumn<quint32>("first");
    QTest::addColumn<quint32>("end");
    for (quint32 seed = 0; seed < sequences; seed += sequencesPerRow)
        QTest::addRow("seeds from %u", seed) << seed << seed + sequencesPerRow;
}

void TestAgentSessionSequences::anySequenceKeepsTheRules()
{
    QFETCH(quint32, first);
    QFETCH(quint32, end);
    for (quint32 seed = first; seed < end; ++seed) {
        RandomHost host(seed);
        host.play();
        QVERIFY2(host.fault().isEmpty(), qPrintable(QString("%1: %2").arg(seed).arg(host.fault())));
        m_executions += host.executions();
        for (const RunEnd runEnd : host.ledger().ends())
            ++m_ends[QVariant::fromValue(runEnd).toString()];
    }
}

// Otherwise they would show nothing.
void TestAgentSessionSequences::sequencesReachEveryEnd()
{
    qInfo() << m_executions << "allowed calls, ends:" << m_ends;
    QCOMPARE(m_ends.keys(),
             (QStringList{"Abandoned", "Canceled", "Denied", "Failed", "Finished", "Replaced"}));
    QVERIFY(m_executions > 1000);
}

QTEST_GUILESS_MAIN(TestAgentSessionSequences)
#include "tst_agentsession_sequences.moc"
