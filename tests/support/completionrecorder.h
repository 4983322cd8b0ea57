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
class CompletionRecorder
{
public:
    explicit CompletionRecorder(MireloQtLib::QtAgent::ChatReply *chatReply)
        : reply(qobject_cast<MireloQtLib::QtAgent::CompletionReply *>(chatReply))
        , m_recorder(chatReply)
    {
        using namespace MireloQtLib::QtAgent;
        const auto addLine = [this] { add(m_recorder.lines().last()); };
        QObject::connect(chatReply, &ChatReply::deltaReceived, &m_recorder, addLine);
        QObject::connect(
            chatReply, &ChatReply::responseReceived, &m_recorder, [this](const QJsonObject &response) {
                add("response: " + QString::fromUtf8(QJsonDocument(response).toJson(QJsonDocument::Compact)));
            });
        QObject::connect(chatReply, &ChatReply::finished, &m_recorder, addLine);
        QObject::connect(chatReply, &ChatReply::failed, &m_recorder, addLine);
        QObject::connect(chatReply, &ChatReply::canceled, &m_recorder, addLine);
        if (!reply)
            return;
        QObject::connect(reply, &CompletionReply::reasoningReceived, &m_recorder,
                         [this](const QString &piece) { add("reasoning: " + piece); });
        QObject::connect(
            reply, &CompletionReply::toolCallProgressed, &m_recorder,
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

    MireloQtLib::QtAgent::ReplyRecorder m_recorder;
    QStringList m_entries;
    std::function<void(const QString &)> m_action;
};

#endif
