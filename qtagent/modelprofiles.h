#ifndef MIRELOQTLIB_QTAGENT_MODELPROFILES_H
#define MIRELOQTLIB_QTAGENT_MODELPROFILES_H

#include <qtagent/modelconfig.h>
#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QProcessEnvironment>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// Reads one profile from its JSON form.
///
/// Keys are "name", "provider", "apiKey", "baseUrl", "model", "maxTokens", "timeoutMs" and "stream". An
/// absent key or a value of the wrong type gives the default; for "provider" that is "openai". An empty
/// provider becomes "openai" where there is a key and "mock" where there is none. The temperature is
/// always 0.2. An empty address or model stays empty: loadModelProfiles() fills those.
QTAGENT_EXPORT ModelConfig modelConfigFromJson(const QJsonObject &json);

/// Profiles and the one that is selected.
struct QTAGENT_EXPORT ModelProfiles
{
    Q_GADGET

public:
    /// The profiles in the order of their file; at least one where loadModelProfiles() returned them.
    QList<ModelConfig> profiles;
    /// An index into profiles.
    int currentIndex = 0;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ModelProfiles &left, const ModelProfiles &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ModelProfiles &left, const ModelProfiles &right) { return !(left == right); }
};

/// Returns the places where "orvane.local.json" is looked for, in order: the current folder, the
/// application's folder, and a "MireloOrvane" folder three and four levels above the latter.
///
/// Needs a QCoreApplication. Before there is one Qt warns and does not know the application's folder: the
/// current one stands in for it.
QTAGENT_EXPORT QStringList modelConfigFileCandidates();

/// Loads the profiles from the first of @p candidates that is a regular file of at most 1 MB and holds a JSON
/// object, else makes one profile from @p environment. It never waits, as for the writer of a FIFO.
///
/// The file holds either one profile or {"profiles": [...], "currentProfile": 0}. Without a usable file
/// DEEPSEEK_API_KEY, DEEPSEEK_BASE_URL and DEEPSEEK_MODEL are read where the key is set, else the
/// OPENAI_ variables likewise, else the offline mock model is the only profile. Empty addresses and
/// model names are filled with defaultBaseUrl() and defaultModelName().
///
/// The result has at least one profile and a valid index. Nothing is reported and nothing is written:
/// what cannot be read is passed over.
QTAGENT_EXPORT ModelProfiles loadModelProfiles(const QStringList &candidates,
                                               const QProcessEnvironment &environment);

/// Loads the profiles from modelConfigFileCandidates() and the environment of this process. Needs a
/// QCoreApplication.
QTAGENT_EXPORT ModelProfiles loadModelProfiles();

} // namespace QtAgent
} // namespace MireloQtLib

#endif
