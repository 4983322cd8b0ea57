#ifndef MIRELOQTLIB_QTAGENT_CONVERSATIONFORMATS_P_H
#define MIRELOQTLIB_QTAGENT_CONVERSATIONFORMATS_P_H

#include <qtagent/store/conversationstore.h>

#include <QJsonDocument>

namespace MireloQtLib {
namespace QtAgent {

/// Returns @p document as JSON that QJsonDocument reads as it was: by itself it loses a byte order mark at
/// the beginning of a text.
QByteArray jsonOf(const QJsonDocument &document, QJsonDocument::JsonFormat format);

/// Returns @p conversation as ConversationStore::toJson() describes it. The id and the revision are left out:
/// they belong to a store.
QByteArray conversationToJson(const Conversation &conversation);

/// Reads what conversationToJson() wrote. What is no conversation is told in @p error, else that is cleared.
Conversation conversationFromJson(const QByteArray &json, QString *error);

/// Returns @p conversation as Markdown for readers.
QString conversationToMarkdown(const Conversation &conversation);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
