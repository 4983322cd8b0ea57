#ifndef QTAGENT_TESTS_COMPLETIONRECORDER_H
#define QTAGENT_TESTS_COMPLETIONRECORDER_H

#include "replyrecorder.h"

#include <qtagent/completionreply.h>

/// Records what a CompletionReply emits in addition: "reasoning: Hm" and "call 0: name arguments".
class CompletionRecorder : public ReplyRecorder
{
public:
    explicit CompletionRecorder(MireloQtLib::QtAgent::ChatReply *chatReply)
        : ReplyRecorder(chatReply)
        , reply(qobject_cast<MireloQtLib::QtAgent::CompletionReply *>(chatReply))
    {
        using MireloQtLib::QtAgent::CompletionReply;
        QObject::connect(reply, &CompletionReply::reasoningReceived, &m_context,
                         [this](const QString &piece) { add("reasoning: " + piece); });
        QObject::connect(
            reply, &CompletionReply::toolCallProgressed, &m_context,
            [this](qint32 index, const QString &name, const QString &arguments) {
                add(QStringLiteral("call %1: %2 %3").arg(QString::number(index), name, arguments));
            });
    }

    const QPointer<MireloQtLib::QtAgent::CompletionReply> reply;
};

#endif
