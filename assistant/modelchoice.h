#ifndef ORVANE_MODELCHOICE_H
#define ORVANE_MODELCHOICE_H

#include "profilesfile.h"

#include <qtagent/requestoptions.h>
#include <qtagent/retryingmodel.h>

#include <QObject>
#include <QPointer>

#include <memory>

class Keychain;

/// Returns the options in @p options. What is not said there is as an everyday program wants it: answers that
/// break off fail, silence ends at the time limit, calls are streamed, tokens are counted, and thinking is
/// kept apart.
MireloQtLib::QtAgent::RequestOptions requestOptionsOf(const QJsonObject &options);

/// Returns a model that answers with @p profile, owned by @p parent. An empty address or model name is the
/// default one of the service.
MireloQtLib::QtAgent::ChatModel *createModel(const AssistantProfile &profile, QObject *parent);

/// The profiles, and the model of the one that is chosen, which asks again where that may help.
class ModelChoice : public QObject
{
    Q_OBJECT

public:
    /// Chooses the current one of @p profiles.
    explicit ModelChoice(const AssistantProfiles &profiles, QObject *parent = nullptr);
    ~ModelChoice() override;

    const AssistantProfiles &profiles() const;

    /// Replaces the profiles and chooses the current one of them. Requests in flight end without a signal.
    void setProfiles(const AssistantProfiles &profiles);

    /// Fetches the keys of the profiles that are kept in @p keychain, once. It is not owned. changed()
    /// follows where the chosen profile's key has come, keyMissing() for each that cannot be had.
    void setKeychain(Keychain *keychain);

    /// Returns the keychain, or null.
    Keychain *keychain() const;

    /// Chooses the profile number @p index.
    void choose(int index);

    /// Returns the model, until the next change.
    MireloQtLib::QtAgent::ChatModel *model() const;

    /// Returns the model's identifier at the service, "mock" for the mock model.
    QString modelName() const;

    /// Returns whether nothing was set up: the mock model answers because there is no other.
    bool isUnconfigured() const;

Q_SIGNALS:
    /// Another model answers. Comes before the old one is gone.
    void changed();

    /// A request failed with @p error and is sent again in @p delayMs milliseconds.
    void retrying(int attempt, qint64 delayMs, const QString &error);

    /// A key could not be had from the keychain.
    void keyMissing(const QString &error);

private:
    void fetchKeys();
    void takeKey(const QString &entry, const QString &key);
    void replaceModel();

    AssistantProfiles m_profiles;
    QPointer<Keychain> m_keychain;
    std::unique_ptr<MireloQtLib::QtAgent::ChatModel> m_service;
    std::unique_ptr<MireloQtLib::QtAgent::RetryingModel> m_model;
};

#endif
