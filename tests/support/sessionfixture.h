#ifndef QTAGENT_TESTS_SESSIONFIXTURE_H
#define QTAGENT_TESTS_SESSIONFIXTURE_H

#include "agentfixture.h"
#include "strictconversation.h"

#include <qtagent/agentsession.h>

/// An AgentFixture whose executor is a session and whose model is strict. In addition it logs
/// "running true", "started read", "withdrawn c1", "conversation" and "ended Finished", and a "FAULT"
/// wherever the conversation is not one that a strict service would accept.
class SessionFixture : public AgentFixture
{
public:
    using AgentSession = MireloQtLib::QtAgent::AgentSession;
    using RunEnd = MireloQtLib::QtAgent::RunEnd;
    using RunOutcome = MireloQtLib::QtAgent::RunOutcome;

    SessionFixture()
        : AgentFixture(new AgentSession, new StrictModel)
        , session(static_cast<AgentSession *>(executor.data()))
    {
        connect(session, &AgentSession::runningChanged, this,
                [this](bool running) { add(QString("running ") + (running ? "true" : "false")); });
        connect(session, &AgentSession::runEnded, this, [this](const RunOutcome &outcome) {
            outcomes.append(outcome);
            add(QString("ended ") + QVariant::fromValue(outcome.end).toString());
        });
        connect(session, &AgentSession::toolStarted, this,
                [this](const ToolCallTrace &call) { add("started " + call.toolName); });
        connect(session, &AgentSession::approvalWithdrawn, this,
                [this](const QString &id) { add("withdrawn " + id); });
        connect(session, &AgentSession::conversationChanged, this, [this] { add("conversation"); });
        // The fixture has logged these already.
        const auto check = [this] { checkEntry(log.last()); };
        connect(session, &AgentSession::assistantDelta, this, check);
        connect(session, &AgentSession::assistantFinished, this, check);
        connect(session, &AgentSession::traceAdded, this, check);
        connect(session, &AgentSession::approvalRequired, this, check);
        connect(session, &AgentSession::failed, this, check);
    }

    /// Continues the conversation and returns when the event loop is quiet.
    void send(const QString &question)
    {
        session->send(question);
        runUntilQuiet();
    }

    /// The conversation as short lines: "user: Hi", "assistant: Hello", "assistant: Let me see. [read c1]",
    /// "tool c1: read done".
    QStringList conversation() const
    {
        QStringList lines;
        for (const auto &message : session->conversation()) {
            QString line = message.role + (message.toolCallId.isEmpty() ? "" : " " + message.toolCallId);
            line += ": " + message.content;
            for (const QJsonValue &call : message.toolCalls)
                line += QString(" [%1 %2]").arg(call["function"]["name"].toString(), call["id"].toString());
            lines.append(line);
        }
        return lines;
    }

    /// Is called in the slot of every signal that is logged, with its entry.
    std::function<void(const QString &entry)> onEntry;

    QVector<RunOutcome> outcomes;
    const QPointer<AgentSession> session;

private:
    void add(const QString &entry)
    {
        log.append(entry);
        checkEntry(entry);
    }

    void checkEntry(const QString &entry)
    {
        const QString fault = strictFault(jsonOf(session->conversation()));
        if (!fault.isEmpty())
            log.append("FAULT " + fault);
        if (onEntry)
            onEntry(entry);
    }
};

#endif
