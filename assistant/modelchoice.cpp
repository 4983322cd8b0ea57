#include "modelchoice.h"

#include "keychain.h"
#include "profilekeys.h"

#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/openaicompatiblemodel.h>

using namespace MireloQtLib::QtAgent;

RequestOptions requestOptionsOf(const QJsonObject &options)
{
    RequestOptions everyday;
    everyday.streamToolCalls = true;
    everyday.askForUsage = true;
    everyday.readThinkTags = true;
    everyday.strictStreams = true;
    everyday.applyTimeLimit = true;
    QJsonObject merged = requestOptionsToJson(everyday);
    for (auto it = options.begin(); it != options.end(); ++it)
        merged.insert(it.key(), it.value());
    return requestOptionsFromJson(merged);
}

ChatModel *createModel(const AssistantProfile &profile, QObject *parent)
{
    ModelConfig config = profile.config;
    if (config.provider == QLatin1String("mock"))
        return new MockChatModel(parent);
    if (config.baseUrl.isEmpty())
        config.baseUrl = defaultBaseUrl(config.provider);
    if (config.model.isEmpty())
        config.model = defaultModelName(config.provider);
    OpenAICompatibleModel *model = config.provider == QLatin1String("deepseek")
                                     ? new DeepSeekModel(parent)
                                     : new OpenAICompatibleModel(parent);
    model->setConfig(config);
    model->setRequestOptions(requestOptionsOf(profile.options));
    return model;
}

ModelChoice::ModelChoice(const AssistantProfiles &profiles, QObject *parent)
    : QObject(parent)
    , m_profiles(profiles)
{
    replaceModel();
}

ModelChoice::~ModelChoice() = default;

const AssistantProfiles &ModelChoice::profiles() const
{
    return m_profiles;
}

void ModelChoice::setProfiles(const AssistantProfiles &profiles)
{
    m_profiles = profiles;
    replaceModel();
}

void ModelChoice::setKeychain(Keychain *keychain)
{
    m_keychain = keychain;
    if (keychain && keychain->isBuilt())
        fetchKeys();
}

Keychain *ModelChoice::keychain() const
{
    return m_keychain;
}

void ModelChoice::fetchKeys()
{
    for (const QString &entry : entriesOf(m_profiles)) {
        const QPointer<ModelChoice> self(this);
        m_keychain->read(entry, [self, entry](const QString &key, const QString &error) {
            if (!self)
                return;
            if (error.isEmpty())
                self->takeKey(entry, key);
            else
                Q_EMIT self->keyMissing(error);
        });
    }
}

// A key that the user has entered meanwhile stays.
void ModelChoice::takeKey(const QString &entry, const QString &key)
{
    for (int i = 0; i < m_profiles.profiles.size(); ++i) {
        AssistantProfile &profile = m_profiles.profiles[i];
        if (profile.keychainEntry != entry || !profile.config.apiKey.isEmpty())
            continue;
        profile.config.apiKey = key;
        if (i == m_profiles.currentIndex)
            replaceModel();
        return;
    }
}

void ModelChoice::choose(int index)
{
    if (index < 0 || index >= m_profiles.profiles.size() || index == m_profiles.currentIndex)
        return;
    m_profiles.currentIndex = index;
    replaceModel();
}

ChatModel *ModelChoice::model() const
{
    return m_model.get();
}

QString ModelChoice::modelName() const
{
    const ModelConfig config = m_profiles.profiles.value(m_profiles.currentIndex).config;
    if (config.provider == QLatin1String("mock"))
        return config.provider;
    return config.model.isEmpty() ? defaultModelName(config.provider) : config.model;
}

bool ModelChoice::isUnconfigured() const
{
    return !m_profiles.isFromFile && modelName() == QLatin1String("mock");
}

void ModelChoice::replaceModel()
{
    const std::unique_ptr<ChatModel> oldService = std::move(m_service);
    const std::unique_ptr<RetryingModel> oldModel = std::move(m_model);
    const AssistantProfile profile = m_profiles.profiles.value(m_profiles.currentIndex);
    m_service.reset(createModel(profile, nullptr));
    m_model = std::make_unique<RetryingModel>(m_service.get());
    connect(m_model.get(), &RetryingModel::retrying, this,
            [this](qint32 attempt, qint64 delayMs, const QString &error) {
                Q_EMIT retrying(attempt, delayMs, error);
            });
    Q_EMIT changed();
}
