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
/// MessageHistory history;
/// history.addSystem(QStringLiteral("You are a concise assistant."));
/// history.addUser(question);
/// ChatReply *reply = model->chat(history.messages(), {}, this);
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
