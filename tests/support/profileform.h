#ifndef QTAGENT_TESTS_PROFILEFORM_H
#define QTAGENT_TESTS_PROFILEFORM_H

#include <qtagent/widgets/modelconfigwidget.h>

#include <QComboBox>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSpinBox>

inline MireloQtLib::QtAgent::ModelConfig profile(const QString &name, const QString &provider,
                                                 const QString &baseUrl, const QString &apiKey,
                                                 const QString &model)
{
    MireloQtLib::QtAgent::ModelConfig config;
    config.name = name;
    config.provider = provider;
    config.baseUrl = baseUrl;
    config.apiKey = apiKey;
    config.model = model;
    return config;
}

inline MireloQtLib::QtAgent::ModelConfig withDefaults(const QString &provider)
{
    using namespace MireloQtLib::QtAgent;
    return profile(provider, provider, defaultBaseUrl(provider), "key", defaultModelName(provider));
}

inline QList<MireloQtLib::QtAgent::ModelConfig> threeProfiles()
{
    return {profile("first", "mock", "http://a", "ka", "ma"),
            profile("second", "openai", "http://b", "kb", "mb"),
            profile("third", "deepseek", "http://c", "kc", "mc")};
}

/// Returns what a profile is told by, in one line.
inline QString textOf(const MireloQtLib::QtAgent::ModelConfig &config)
{
    return QStringList{config.name,   config.provider, config.baseUrl,
                       config.apiKey, config.model,    QString::number(config.maxTokens)}
        .join('|');
}

/// The form with its inputs, and a spy on configChanged().
struct ProfileForm
{
    template<typename Input>
    Input *input(const char *name) const
    {
        return widget.findChild<Input *>(name);
    }

    void pickProvider(const QString &provider) const
    {
        providers->setCurrentIndex(providers->findData(provider));
    }

    MireloQtLib::QtAgent::ModelConfigWidget widget;
    QComboBox *profiles = input<QComboBox>("profileCombo");
    QComboBox *providers = input<QComboBox>("providerCombo");
    QLineEdit *baseUrl = input<QLineEdit>("baseUrlEdit");
    QLineEdit *apiKey = input<QLineEdit>("apiKeyEdit");
    QLineEdit *model = input<QLineEdit>("modelEdit");
    QSpinBox *maxTokens = input<QSpinBox>("maxTokensSpin");
    QSpinBox *timeout = input<QSpinBox>("timeoutSpin");
    QSignalSpy changes{&widget, &MireloQtLib::QtAgent::ModelConfigWidget::configChanged};
};

#endif
