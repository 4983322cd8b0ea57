#ifndef MIRELOQTLIB_QTAGENT_MESSAGEHISTORY_H
#define MIRELOQTLIB_QTAGENT_MESSAGEHISTORY_H

#include <qtagent/chatmessage.h>
#include <qtagent/qtagent_export.h>

#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// The messages of a conversation so far, to be sent with each further question.
///
/// @code
/// m_history.addUser(question);
/// ChatReply *reply = model->chat(m_history.messages(), {}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) {
///     if (result.end == ChatResult::End::Finished)
///         m_history.addAssistant(result.text);
///     showEnd(result);
/// });
/// @endcode
class QTAGENT_EXPORT MessageHistory
{
public:
    /// Appends an instruction to the model.
    void addSystem(const QString &text);

    /// Appends what the user said.
    void addUser(const QString &text);

    /// Appends what the model answered.
    void addAssistant(const QString &text);

    /// Returns all messages in the order in which they were added.
    QVector<ChatMessage> messages() const;

private:
    QVector<ChatMessage> m_messages;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
