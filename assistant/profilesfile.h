#ifndef ORVANE_PROFILESFILE_H
#define ORVANE_PROFILESFILE_H

#include <qtagent/modelconfig.h>

#include <QJsonObject>
#include <QVector>

/// A model profile as the assistant keeps it.
struct AssistantProfile
{
    MireloQtLib::QtAgent::ModelConfig config;
    /// What the service wants otherwise, under the key "options".
    QJsonObject options;
    /// All that the file has of it, keys included that only other programs know.
    QJsonObject source;
    /// What the key is kept as in the system's keychain. Empty where it lies in the file.
    QString keychainEntry{};
};

/// The profiles and where they come from.
struct AssistantProfiles
{
    QVector<AssistantProfile> profiles;
    int currentIndex = 0;
    /// The file that saveProfiles() writes: the one that was read, or the assistant's own.
    QString path;
    /// Whether there was a file. If not, the profile is that of the environment, or the mock model's.
    bool isFromFile = false;
    /// Whether the file at path is damaged. It is renamed when the profiles are saved.
    bool isFileDamaged = false;
    /// Whether no other program reads the file at path, so that keys may lie in the keychain.
    bool isOwnFile = false;
};

/// Returns the places where profiles are looked for: those of modelConfigFileCandidates(), and behind them
/// "orvane.local.json" in the folder for the settings of this program. The latter is written where there is
/// none.
QStringList profileFileCandidates();

/// Loads what loadModelProfiles() finds, with the options beside each profile. At least one is returned. The
/// last candidate is the assistant's own file. Keys in the keychain are not read.
AssistantProfiles loadProfiles(const QStringList &candidates, const QProcessEnvironment &environment);

/// Writes @p profiles to their file, which only the user can read from then on, also where others could
/// before. What the file has besides, and what of a profile the assistant does not know, stays. Either all of
/// it is written or nothing. Keys that are kept in the keychain are not written.
bool saveProfiles(const AssistantProfiles &profiles, QString *error);

#endif
