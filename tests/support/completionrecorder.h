#ifndef QTAGENT_TESTS_COMPLETIONRECORDER_H
#define QTAGENT_TESTS_COMPLETIONRECORDER_H

#include "eventloop.h"

#include <qtagent/completionreply.h>
#include <qtagent/testing/replyrecorder.h>

#include <QJsonDocument>
#include <QPointer>

#include <functional>

/// Records the lines of a ReplyRecorder, and what that leaves out: the object of a response, as in
/// "response: {...}", and what a CompletionReply emits in addition: "reasoning: Hm" and "call 0: name
/// arguments". It can act in every signal. The reply may die before the recorder and the other way round.
class CompletionRecorder : public MireloQtLib::QtAgent::ReplyRecorder
{
public:
    explicit CompletionRecorder(MireloQtLib::QtAgent::ChatReply *chatReply)
        : ReplyRecorder(chatReply)
        , reply(qobject_cast<MireloQtLib::QtAgent::CompletionReply *>(chatReply))
    {
        using namespace MireloQtLib::QtAgent;
        const auto addLine = [this] { add(lines().last()); };
        for (auto signal : {&ChatReply::deltaReceived, &ChatReply::finished, &ChatReply::failed})
            connect(chatReply, signal, this, addLine);
        connect(chatReply, &ChatReply::canceled, this, addLine);
        connect(chatReply, &ChatReply::responseReceived, this, [this](const QJsonObject &response) {
            add("response: " + QString::fromUtf8(QJsonDocument(response).toJson(QJsonDocument::Compact)));
        });
        if (!reply)
            return;
        connect(reply, &CompletionReply::reasoningReceived, this,
                [this](const QString &piece) { add("reasoning: " + piece); });
        connect(reply, &CompletionReply::toolCallProgressed, this,
                [this](qint32 index, const QString &name, const QString &arguments) {
                    add(QStringLiteral("call %1: %2 %3").arg(QString::number(index), name, arguments));
                });
    }

    /// Calls @p action after every entry, from inside the signal.
    void onSignal(const std::function<void(const QString &entry)> &action) { m_action = action; }

    /// Returns the entries so far.
    const QStringList &entries() const { return m_entries; }

    /// Returns whether finished() or failed() was emitted.
    bool hasEnded() const
    {
        return !m_entries.filter("finished: ").isEmpty() || !m_entries.filter("failed: ").isEmpty();
    }

    /// Runs the event loop until the reply has ended, and returns hasEnded().
    bool waitForEnd()
    {
        return runUntil([this] { return hasEnded(); });
    }

    /// Null where it is another kind of reply.
    const QPointer<MireloQtLib::QtAgent::CompletionReply> reply;

private:
    void add(const QString &entry)
    {
        m_entries.append(entry);
        if (m_action)
            m_action(entry);
    }

    QStringList m_entries;
    std::function<void(const QString &)> m_action;
};

#endif
