#ifndef MIRELOQTLIB_QTAGENT_SESSIONLOOP_P_H
#define MIRELOQTLIB_QTAGENT_SESSIONLOOP_P_H

#include "agentloop_p.h"

namespace MireloQtLib {
namespace QtAgent {

// The loop of an AgentSession: keeps the conversation from run to run and tells each run's end once.
//
// The end is told in steps, each of which is taken off before it is carried out. A slot that begins the next
// run at one of them carries out the others first; whoever was interrupted then finds nothing left. The run
// is gone when its last step comes, so nothing can follow that.
class SessionLoop final : public AgentLoop
{
public:
    explicit SessionLoop(AgentSession *session);

    void run(const QString &input) override;
    void cancel() override;
    void send(const QString &input);
    bool regenerate();
    QVector<ChatMessage> conversation() const { return m_conversation.messages(); }
    bool setConversation(const QVector<ChatMessage> &conversation);
    const RunOutcome &lastOutcome() const { return m_outcome; }

protected:
    void watchReply(ChatReply *reply) override;
    void receiveDelta(const QString &delta) override;
    void releaseReply(ChatReply *reply) override;
    void completeAnswer(const ChatReply &reply, const QQueue<PendingCall> &calls,
                        ChatMessage *answer) const override;
    void tellConversation() override;
    void tellProgress(const QString &callId, const QString &text) override;
    bool announce(const PendingCall &call, AgentTool *tool, ToolPermission permission) override;
    void end(RunEnd end, const QString &text, const QString &error) override;
    void tellEnd() override;

private:
    using Step = void (SessionLoop::*)();

    bool tellEarlierEnds();
    bool endEarlierRuns();
    void start();
    void abandon();
    void keepAnswer(RunEnd end);
    void abortRequest();
    void tellWithdrawal();
    void tellRunning();
    void tellOutcome();

    AgentSession *const m_session;
    // What has arrived of the answer that is awaited.
    QString m_arrived;
    qint64 m_toldRevision = 0;
    // Of the last run that is over.
    RunOutcome m_outcome;
    // Of the one whose end is being told.
    QString m_withdrawnId;
    QVector<Step> m_untold;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
