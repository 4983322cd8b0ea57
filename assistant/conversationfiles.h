#ifndef ORVANE_CONVERSATIONFILES_H
#define ORVANE_CONVERSATIONFILES_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {
class ConversationStore;
struct Conversation;
} // namespace QtAgent
} // namespace MireloQtLib

/// Writes the conversation @p id of @p store to the file at @p path: for readers where that ends in ".md",
/// else as JSON, which importConversation() reads. An existing file is replaced once everything is written.
bool exportConversation(const MireloQtLib::QtAgent::ConversationStore &store, const QString &id,
                        const QString &path, QString *error);

/// Writes @p conversation, which its store has not taken, to the file at @p path, as exportConversation()
/// does.
bool exportUnsaved(const MireloQtLib::QtAgent::Conversation &conversation, const QString &path,
                   QString *error);

/// Adds the conversation in the file at @p path, of at most 64 MiB, to @p store and returns its id, or an
/// empty text with a reason in @p error.
QString importConversation(MireloQtLib::QtAgent::ConversationStore *store, const QString &path,
                           QString *error);

/// Returns @p title as the name of a file, without the characters that some systems do not allow.
QString fileNameFor(const QString &title);

#endif
