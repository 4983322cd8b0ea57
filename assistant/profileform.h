#ifndef ORVANE_PROFILEFORM_H
#define ORVANE_PROFILEFORM_H

#include "profilesfile.h"

#include <QPointer>
#include <QWidget>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;
QT_END_NAMESPACE

/// A form for one profile, with a button that tries it.
///
/// Names: nameEdit, providerCombo, baseUrlEdit, apiKeyEdit, modelEdit, maxTokensSpin, timeoutSpin,
/// streamCheck, optionsEdit, testButton, testResult.
class ProfileForm : public QWidget
{
    Q_OBJECT

public:
    explicit ProfileForm(QWidget *parent = nullptr);
    ~ProfileForm() override;

    /// Shows @p profile. changed() is not emitted. A request that runs ends without a result.
    void setProfile(const AssistantProfile &profile);

    /// Returns the profile with what was edited. Options that are no JSON object are as they were.
    AssistantProfile profile() const;

Q_SIGNALS:
    /// The user has edited the profile.
    void changed();

private:
    void setUpFields(QFormLayout *form);
    void setUpModel(QFormLayout *form);
    void setUpNumbers(QFormLayout *form);
    void setUpOptions(QFormLayout *form);
    void setUpTest(QFormLayout *form);
    void leaveProvider();
    void edit();
    void showOptionsState();
    void test();
    void listModels();
    void tell(const QString &result);
    void endRequest();
    void showPlaceholders();

    AssistantProfile m_profile;
    QString m_shownProvider;
    bool m_isFilling = false;
    QLineEdit *m_name = nullptr;
    QComboBox *m_provider = nullptr;
    QLineEdit *m_baseUrl = nullptr;
    QLineEdit *m_apiKey = nullptr;
    QComboBox *m_model = nullptr;
    QSpinBox *m_maxTokens = nullptr;
    QSpinBox *m_timeout = nullptr;
    QCheckBox *m_stream = nullptr;
    QPlainTextEdit *m_options = nullptr;
    QLabel *m_optionsState = nullptr;
    QLabel *m_result = nullptr;
    QPointer<QObject> m_running;
};

#endif
