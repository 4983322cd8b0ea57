#ifndef QTAGENT_TESTS_STRICTCONVERSATION_H
#define QTAGENT_TESTS_STRICTCONVERSATION_H

#include "heldmodel.h"

#include <QJsonArray>
#include <QStringList>

#include <functional>

/// Returns what a strict chat-completions service would refuse about @p messages, as they are sent, or an
/// empty text:
/// - "system" stands first or not at all, a question behind it, and no answer follows another;
/// - every content is a text;
/// - calls have an id, the type "function", a name, and arguments that are a text: a blank one, or that of an
///   object;
/// - behind an answer with calls stands one tool message for each of them, in their order, and nowhere else.
QString strictFault(const QJsonArray &messages);

/// Returns what is wrong with @p messages as the next request to a service that sent @p sentCalls, one array
/// for each answer with calls, so far: in addition to strictFault(), the last message is a question or a
/// result, and each call is one that was sent. An id, a type and a text as arguments are added where it came
/// without; broken arguments stand as "{}".
QString strictRequestFault(const QJsonArray &messages, const QVector<QJsonArray> &sentCalls);

/// Returns @p messages as they are sent.
QJsonArray jsonOf(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages);

/// A model that refuses what a strict service would: such a request fails with the reason, which is
/// also kept.
class StrictModel : public HeldModel
{
public:
    using HeldModel::HeldModel;

    /// Is called first for each request, as by a model that asks the user for a key.
    std::function<void()> onRequest;

    /// Why requests were refused.
    const QStringList &faults() const { return m_faults; }

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

private:
    QVector<QJsonArray> m_sentCalls;
    QStringList m_faults;
};

#endif
