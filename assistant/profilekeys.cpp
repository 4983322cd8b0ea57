#include "profilekeys.h"

#include "keychain.h"

#include <QPointer>
#include <QUuid>

#include <memory>

namespace {

struct Storing
{
    QPointer<Keychain> keychain;
    AssistantProfiles profiles;
    QPointer<QObject> context;
    KeysStored stored;
    int next = 0;
};

// The first profile from the next one on that has a key, or null.
AssistantProfile *nextWithKey(Storing *storing)
{
    for (; storing->next < storing->profiles.profiles.size(); ++storing->next) {
        AssistantProfile *profile = &storing->profiles.profiles[storing->next];
        if (!profile->config.apiKey.isEmpty())
            return profile;
        profile->keychainEntry.clear();
    }
    return nullptr;
}

void storeNext(const std::shared_ptr<Storing> &storing)
{
    AssistantProfile *profile = nextWithKey(storing.get());
    if (!profile)
        return storing->stored(storing->profiles, QString());
    if (profile->keychainEntry.isEmpty())
        profile->keychainEntry = QUuid::createUuid().toString(QUuid::WithoutBraces);
    storing->keychain->write(profile->keychainEntry, profile->config.apiKey, [storing](const QString &error) {
        if (!storing->context || !storing->keychain)
            return;
        if (!error.isEmpty())
            return storing->stored(withoutEntries(storing->profiles), error);
        ++storing->next;
        storeNext(storing);
    });
}

} // namespace

void storeKeys(Keychain *keychain, const AssistantProfiles &profiles, QObject *context,
               const KeysStored &stored)
{
    storeNext(std::make_shared<Storing>(Storing{keychain, profiles, context, stored, 0}));
}

AssistantProfiles withoutEntries(AssistantProfiles profiles)
{
    for (AssistantProfile &profile : profiles.profiles)
        profile.keychainEntry.clear();
    return profiles;
}

QStringList entriesOf(const AssistantProfiles &profiles)
{
    QStringList entries;
    for (const AssistantProfile &profile : profiles.profiles) {
        if (!profile.keychainEntry.isEmpty())
            entries.append(profile.keychainEntry);
    }
    return entries;
}
