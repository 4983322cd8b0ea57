#ifndef MIRELOQTLIB_QTAGENT_MODELCONFIGWIDGET_H
#define MIRELOQTLIB_QTAGENT_MODELCONFIGWIDGET_H

#include <qtagent/modelconfig.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QList>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QComboBox;
class QLineEdit;
class QSpinBox;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

/// A form that shows model profiles, lets the user pick one and edit it.
///
/// @code
/// const ModelProfiles loaded = loadModelProfiles();
/// auto *editor = new ModelConfigWidget(this);
/// connect(editor, &ModelConfigWidget::configChanged, model,
///         [=] { model->setConfig(editor->currentConfig()); });
/// editor->setProfiles(loaded.profiles, loaded.currentIndex);
/// @endcode
///
/// What the user edits is read with currentConfig() and never written back: choosing another profile and
/// the first one again shows the values that setProfiles() was given.
///
/// When the user picks "openai" or "deepseek", an address or a model name that is empty or the default of
/// the other of the two is replaced by the default of the one picked (see defaultBaseUrl() and
/// defaultModelName()); anything else stays, whichever provider was shown before. The mock model changes no
/// field.
///
/// The time limit is kept with the profile, and the tool tip of timeoutSpin says that requests do not apply
/// it. A program whose models do, with RequestOptions::applyTimeLimit, gives it another tool tip.
///
/// For style sheets and user-interface tests the inputs are named profileCombo, providerCombo,
/// baseUrlEdit, apiKeyEdit, modelEdit, maxTokensSpin and timeoutSpin.
///
/// A slot of configChanged() may delete the widget, choose another profile and call setProfiles(). What was
/// being filled in is then given up, so that the values of two profiles never mix. Like every widget the form
/// belongs to the application's main thread.
class QTAGENT_WIDGETS_EXPORT ModelConfigWidget : public QWidget
{
    Q_OBJECT

public:
    /// Creates a form without a profile: the mock model, 1024 tokens and 60 seconds.
    explicit ModelConfigWidget(QWidget *parent = nullptr);
    ~ModelConfigWidget() override;

    /// Lists @p profiles and shows the one at @p currentIndex, which is moved into the valid range. Without
    /// a profile the offline mock model is shown.
    ///
    /// A profile is listed under its name, else its model name, else "模型配置 N". A provider that is none
    /// of "mock", "openai" and "deepseek" is shown as the mock model.
    ///
    /// Emits configChanged() at the end; before that once for each of the three texts that changes, and once
    /// more where the index is not 0.
    void setProfiles(const QList<ModelConfig> &profiles, int currentIndex);

    /// Returns the profile as it is edited now: the listed name, the provider, the address and the model
    /// trimmed, the key exactly as typed, the token limit and the time limit. Streaming is always on and
    /// the temperature is the default of ModelConfig.
    ModelConfig currentConfig() const;

Q_SIGNALS:
    /// currentConfig() changed through another profile, another provider or an edited address, key or model
    /// name, whoever changed it. One choice of the user may emit it several times, as its texts change one
    /// after the other: the first with the new address and still the old key. Keep the profile, and send no
    /// request here. The token limit and the time limit do not emit it.
    void configChanged();

private:
    class Fill;

    void addRows();
    void connectInputs();
    bool loadProfile(const ModelConfig &profile);
    void selectProfile(int index);
    void selectProvider();
    void reportChange();

    QComboBox *m_profileCombo;
    QComboBox *m_providerCombo;
    QLineEdit *m_baseUrlEdit;
    QLineEdit *m_apiKeyEdit;
    QLineEdit *m_modelEdit;
    QSpinBox *m_maxTokensSpin;
    QSpinBox *m_timeoutSpin;
    QList<ModelConfig> m_profiles;
    bool m_listing = false;
    bool m_loading = false;
    int m_fills = 0;
    int m_runningReports = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
