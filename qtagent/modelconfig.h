#ifndef MIRELOQTLIB_QTAGENT_MODELCONFIG_H
#define MIRELOQTLIB_QTAGENT_MODELCONFIG_H

#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// One model profile: which service to ask, and how.
///
/// Programs fill one themselves, or load what the user has configured:
/// @code
/// const ModelProfiles loaded = loadModelProfiles();
/// const ModelConfig config = loaded.profiles.at(loaded.currentIndex);
/// @endcode
struct ModelConfig
{
    /// The name shown to the user.
    QString name;
    /// "mock", "openai" or "deepseek". Compared exactly.
    QString provider = QStringLiteral("mock");
    /// The address before "/chat/completions", for example "https://api.openai.com/v1".
    QString baseUrl;
    /// The bearer key, sent without the line breaks in it. Empty means that no Authorization header is sent.
    QString apiKey;
    /// The model's identifier at the service.
    QString model;
    /// The sampling temperature, sent with every request.
    double temperature = 0.2;
    /// The most tokens that an answer may have, sent with every request.
    qint32 maxTokens = 1024;
    /// The time limit in milliseconds. It is kept and edited with the profile; requests run without one.
    qint32 timeoutMs = 60000;
    /// Whether to ask for a streamed answer.
    bool stream = true;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ModelConfig &left, const ModelConfig &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ModelConfig &left, const ModelConfig &right) { return !(left == right); }
};

/// Returns "https://api.deepseek.com" for "deepseek" and "https://api.openai.com/v1" for every other
/// provider.
QTAGENT_EXPORT QString defaultBaseUrl(const QString &provider);

/// Returns "deepseek-v4-flash" for "deepseek" and "gpt-4.1-mini" for every other provider.
QTAGENT_EXPORT QString defaultModelName(const QString &provider);

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

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ModelConfig)

#endif
