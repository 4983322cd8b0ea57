#ifndef MIRELOQTLIB_QTAGENT_PROMPTTEMPLATE_H
#define MIRELOQTLIB_QTAGENT_PROMPTTEMPLATE_H

#include <qtagent/chatmessage.h>
#include <qtagent/qtagent_export.h>

#include <QMap>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// The values of a prompt's placeholders by name.
using PromptVariables = QMap<QString, QString>;

/// A conversation with `{name}` placeholders that are filled in for each request.
///
/// @code
/// PromptTemplate prompt;
/// prompt.addSystem(QStringLiteral("You are a teacher of {subject}."));
/// prompt.addUser(QStringLiteral("Explain {topic} in three sentences."));
/// const QVector<ChatMessage> conversation = prompt.format({
///     {QStringLiteral("subject"), QStringLiteral("networks")},
///     {QStringLiteral("topic"), QStringLiteral("routing")},
/// });
/// @endcode
class QTAGENT_EXPORT PromptTemplate
{
public:
    /// Appends a message of the speaker @p role with the template @p text.
    void addMessage(const QString &role, const QString &text);

    /// Appends an instruction to the model; the same as addMessage() with the role "system".
    void addSystem(const QString &text);

    /// Appends what the user says; the same as addMessage() with the role "user".
    void addUser(const QString &text);

    /// Returns one message for each one added, in that order, with its text rendered. Fields other than
    /// the role and the content are empty.
    QVector<ChatMessage> format(const PromptVariables &variables) const;

    /// Returns @p text with every occurrence of `{name}` replaced by the value of the variable "name".
    ///
    /// Names are case-sensitive. A placeholder without a variable stays as it is, and so do all other
    /// braces, a JSON example's for instance; there is no escaping.
    ///
    /// Variables are replaced one after another in the order of their names, also within values that were
    /// put in before: with a = "{b}" and b = "x" the text "{a}" becomes "x", while with b = "{a}" and
    /// a = "y" the text "{b}" becomes "{a}". Values that come from elsewhere can thus expand variables that
    /// sort later.
    static QString render(const QString &text, const PromptVariables &variables);

private:
    struct Entry
    {
        QString role;
        QString text;
    };

    QVector<Entry> m_entries;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
