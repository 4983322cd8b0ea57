#ifndef ORVANE_PROFILEKEYS_H
#define ORVANE_PROFILEKEYS_H

#include "profilesfile.h"

#include <functional>

class Keychain;

/// Is told the profiles as they are to be saved, and why the keychain could not be used, or an empty text.
using KeysStored = std::function<void(const AssistantProfiles &profiles, const QString &error)>;

/// Puts the keys of @p profiles into @p keychain, one after another, each into the entry of its profile or a
/// new one. Then @p stored is called, from the event loop or at once where there is no key. Where one cannot
/// be kept, the profiles have no entries, and their keys are saved in the file. Nothing is called once @p
/// context or the keychain is gone.
void storeKeys(Keychain *keychain, const AssistantProfiles &profiles, QObject *context,
               const KeysStored &stored);

/// Returns @p profiles without entries of a keychain.
AssistantProfiles withoutEntries(AssistantProfiles profiles);

/// Returns the entries of @p profiles in a keychain.
QStringList entriesOf(const AssistantProfiles &profiles);

#endif
