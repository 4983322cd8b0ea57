#ifndef QTAGENT_TESTS_RUNLEDGER_H
#define QTAGENT_TESTS_RUNLEDGER_H

#include "strictconversation.h"

#include <qtagent/agentsession.h>

/// Watches a session from its beginning and notes what a session must never do:
/// - begin a run before the end of the one before was told, tell an end twice or not at all, emit anything of
///   a run behind its end, or end a run that is in flight still;
/// - hold a conversation that a strict service would refuse;
/// - execute a call of a risky tool otherwise than as the answer to a question that showed its id, its tool
///   and its arguments.
///
/// Create it before anything else is connected, so that it sees every signal first.
class RunLedger : public QObject
{
public:
    using AgentSession = MireloQtLib::QtAgent::AgentSession;
    using ApprovalRequest = MireloQtLib::QtAgent::ApprovalRequest;
    using RunEnd = MireloQtLib::QtAgent::RunEnd;

    explicit RunLedger(AgentSession *session);

    /// The user answers the dialog that shows @p shown. Returns whether the answer counted.
    bool answer(const ApprovalRequest &shown, bool allowed);

    /// The user allows @p shown with @p step, such as a click in its dialog.
    void allow(const ApprovalRequest &shown, const std::function<void()> &step);

    /// A risky tool is called with @p arguments.
    void execute(const QString &toolName, const QJsonObject &arguments);

    /// Everything that the user was asked, the first question first.
    const QVector<ApprovalRequest> &requests() const { return m_requests; }

    /// The ends that were told.
    const QVector<RunEnd> &ends() const { return m_ends; }

    int begunRuns() const { return m_begunRuns; }

    /// What went wrong first, or an empty text.
    QString fault() const { return m_fault; }

private:
    enum class State { Idle, Running, Ending };

    void note(const QString &fault);
    void move(State from, State to, const char *signalName);
    void require(State state, const char *signalName);

    const QPointer<AgentSession> m_session;
    State m_state = State::Idle;
    int m_begunRuns = 0;
    QVector<RunEnd> m_ends;
    QVector<ApprovalRequest> m_requests;
    QVector<ApprovalRequest> m_allowed; // the answers that are being given, each inside the one before
    QString m_startedId;
    QString m_fault;
};

#endif
