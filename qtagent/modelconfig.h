#ifndef MIRELOQTLIB_QTAGENT_MODELCONFIG_H
#define MIRELOQTLIB_QTAGENT_MODELCONFIG_H

#include <qtagent/modeldefaults.h>
#include <qtagent/qtagent_export.h>

#include <QMetaType>
#include <QString>

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

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ModelConfig)

// It needs what stands above, and whoever includes this header has always found it here.
#include <qtagent/modelprofiles.h>

#endif
