#include "assistantsettings.h"

#include "textzoom.h"

#include <QDir>
#include <QStandardPaths>

namespace {

const QLatin1String sendKeyKey("sendKey");
const QLatin1String returnName("return");
const QLatin1String ctrlReturnName("ctrl+return");
const QLatin1String languageKey("language");
const QLatin1String textStepsKey("textSteps");
const QLatin1String geometryKey("window/geometry");
const QLatin1String splitterKey("window/splitter");
const QLatin1String conversationKey("conversation");
const QLatin1String profileNameKey("profile/name");
const QLatin1String profileIndexKey("profile/index");
const QLatin1String draftKey("draft");

} // namespace

AssistantSettings::AssistantSettings(const QString &path)
    : m_file(path, QSettings::IniFormat)
{}

QString AssistantSettings::defaultPath()
{
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    return folder.filePath(QStringLiteral("assistant.ini"));
}

ChatInput::SendKey AssistantSettings::sendKey() const
{
    return m_file.value(sendKeyKey).toString() == returnName ? ChatInput::SendKey::Return
                                                             : ChatInput::SendKey::CtrlReturn;
}

void AssistantSettings::setSendKey(ChatInput::SendKey key)
{
    m_file.setValue(sendKeyKey, key == ChatInput::SendKey::Return ? returnName : ctrlReturnName);
}

QString AssistantSettings::language() const
{
    const QString language = m_file.value(languageKey).toString();
    return language == QLatin1String("zh") || language == QLatin1String("en") ? language : QString();
}

void AssistantSettings::setLanguage(const QString &language)
{
    m_file.setValue(languageKey, language);
}

int AssistantSettings::textSteps() const
{
    return qBound(TextZoom::fewestSteps, m_file.value(textStepsKey).toInt(), TextZoom::mostSteps);
}

void AssistantSettings::setTextSteps(int steps)
{
    m_file.setValue(textStepsKey, steps);
}

QByteArray AssistantSettings::geometry() const
{
    return m_file.value(geometryKey).toByteArray();
}

void AssistantSettings::setGeometry(const QByteArray &geometry)
{
    m_file.setValue(geometryKey, geometry);
}

QByteArray AssistantSettings::splitterState() const
{
    return m_file.value(splitterKey).toByteArray();
}

void AssistantSettings::setSplitterState(const QByteArray &state)
{
    m_file.setValue(splitterKey, state);
}

std::optional<QString> AssistantSettings::conversationId() const
{
    if (!m_file.contains(conversationKey))
        return std::nullopt;
    return m_file.value(conversationKey).toString();
}

void AssistantSettings::setConversationId(const QString &id)
{
    m_file.setValue(conversationKey, id);
    m_file.sync();
}

int AssistantSettings::profileAmong(const QStringList &names) const
{
    if (!m_file.contains(profileNameKey))
        return -1;
    const QString name = m_file.value(profileNameKey).toString();
    const int index = m_file.value(profileIndexKey, -1).toInt();
    const bool isAtItsPlace = index >= 0 && index < names.size() && names.at(index) == name;
    return isAtItsPlace ? index : int(names.indexOf(name));
}

void AssistantSettings::setProfile(int index, const QStringList &names)
{
    m_file.setValue(profileNameKey, names.value(index));
    m_file.setValue(profileIndexKey, index);
    m_file.sync();
}

QString AssistantSettings::draft() const
{
    return m_file.value(draftKey).toString();
}

void AssistantSettings::setDraft(const QString &draft)
{
    m_file.setValue(draftKey, draft);
}
