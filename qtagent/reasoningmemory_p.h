#ifndef MIRELOQTLIB_QTAGENT_REASONINGMEMORY_P_H
#define MIRELOQTLIB_QTAGENT_REASONINGMEMORY_P_H

#include <qtagent/chatmessage.h>

#include <QHash>
#include <QList>
#include <QStringList>
#include <QUrl>

namespace MireloQtLib {
namespace QtAgent {

/// Knows the reasoning that came with tool calls, for services that want it back with them.
///
/// It goes to the address that it came from, and to no other: some services refuse it.
class ReasoningMemory
{
public:
    /// Remembers that an answer from @p url asked for @p calls and gave @p fields as its reasoning. The last
    /// 1,000 answers with calls are kept.
    void remember(const QUrl &url, const QJsonArray &calls, const QJsonObject &fields);

    /// Remembers that an answer from @p url had @p keys, under which a reasoning may stand.
    void rememberKeys(const QUrl &url, const QStringList &keys);

    /// Returns @p messages as they are sent to @p url, with their reasoning.
    QJsonArray toJson(const QUrl &url, const QVector<ChatMessage> &messages) const;

private:
    struct Call
    {
        QString id;
        QString name;
        QString arguments;
    };
    struct Round
    {
        QUrl url;
        size_t hash = 0;
        QVector<Call> calls;
        QJsonObject fields;
    };

    static Round roundOf(const QUrl &url, const QJsonArray &calls);
    static bool isSame(const Round &left, const Round &right);
    static bool isSameCall(const Call &left, const Call &right);
    QJsonObject fieldsFor(const QUrl &url, const ChatMessage &message) const;

    QList<Round> m_rounds;
    QHash<QUrl, QString> m_keys;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
