#ifndef ORVANE_ASSISTANTSETTINGS_H
#define ORVANE_ASSISTANTSETTINGS_H

#include "chatinput.h"

#include <QByteArray>
#include <QSettings>
#include <QStringList>

#include <optional>

/// What the assistant remembers from start to start, besides conversations and profiles.
///
/// Each setter writes at once. What is in the file and makes no sense reads as the default.
class AssistantSettings
{
public:
    /// Reads and writes the file at @p path, by default "assistant.ini" in the folder for the settings of
    /// this program.
    explicit AssistantSettings(const QString &path = defaultPath());

    /// Returns the path of the file that is used unless another is named.
    static QString defaultPath();

    /// What sends a question; Ctrl+Return at first.
    ChatInput::SendKey sendKey() const;
    void setSendKey(ChatInput::SendKey key);

    /// The language of the program, "zh" or "en"; empty at first, for that of the system.
    QString language() const;
    void setLanguage(const QString &language);

    /// How many steps the text is larger than that of the system; 0 at first.
    int textSteps() const;
    void setTextSteps(int steps);

    /// Place and size of the window, as QWidget::saveGeometry() has them.
    QByteArray geometry() const;
    void setGeometry(const QByteArray &geometry);

    /// The widths of list and page, as QSplitter::saveState() has them.
    QByteArray splitterState() const;
    void setSplitterState(const QByteArray &state);

    /// The conversation that was open last; an empty text for a new one, nothing at first. It is in the file
    /// when the setter returns.
    std::optional<QString> conversationId() const;
    void setConversationId(const QString &id);

    /// Returns which of the profiles @p names was chosen last: the one at its place then, else the first with
    /// its name; -1 where there is none, as at first.
    int profileAmong(const QStringList &names) const;

    /// Remembers that number @p index of the profiles @p names was chosen. It is in the file when this
    /// returns.
    void setProfile(int index, const QStringList &names);

    /// The question that was written and not sent.
    QString draft() const;
    void setDraft(const QString &draft);

private:
    QSettings m_file;
};

#endif
