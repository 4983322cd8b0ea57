#include "modelconfigwidget.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPointer>
#include <QSpinBox>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Room for a frame and a style sheet's padding beside the default address, in pixels.
constexpr int addressMargin = 24;

constexpr int profileComboCharacters = 12;
constexpr int msPerSecond = 1000;

QComboBox *createProfileCombo()
{
    auto *combo = new QComboBox;
    combo->setObjectName(QStringLiteral("profileCombo"));
    combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    combo->setMinimumContentsLength(profileComboCharacters);
    return combo;
}

QComboBox *createProviderCombo()
{
    auto *combo = new QComboBox;
    combo->setObjectName(QStringLiteral("providerCombo"));
    combo->addItem(ModelConfigWidget::tr("模拟模型"), QStringLiteral("mock"));
    combo->addItem(QStringLiteral("OpenAI-compatible"), QStringLiteral("openai"));
    combo->addItem(QStringLiteral("DeepSeek"), QStringLiteral("deepseek"));
    return combo;
}

QLineEdit *createLineEdit(const QString &objectName)
{
    auto *edit = new QLineEdit;
    edit->setObjectName(objectName);
    return edit;
}

QSpinBox *createSpinBox(const QString &objectName, int minimum, int maximum, int value)
{
    auto *spin = new QSpinBox;
    spin->setObjectName(objectName);
    spin->setRange(minimum, maximum);
    spin->setValue(value);
    return spin;
}

QString displayName(const ModelConfig &profile, int index)
{
    QString name = profile.name.trimmed();
    if (!name.isEmpty())
        return name;
    const QString model = profile.model.trimmed();
    return model.isEmpty() ? ModelConfigWidget::tr("模型配置 %1").arg(index + 1) : model;
}

// The service whose defaults give way when the user picks provider.
QString otherService(const QString &provider)
{
    if (provider == QLatin1String("deepseek"))
        return QStringLiteral("openai");
    return provider == QLatin1String("openai") ? QStringLiteral("deepseek") : QString();
}

void showBeginnings(const QList<QLineEdit *> &edits)
{
    for (QLineEdit *edit : edits)
        edit->home(false);
}

} // namespace

// Sets the texts of the inputs one after the other. Each may reach a slot that deletes the form or begins
// to fill it anew; then the earlier fill is over, or the texts of two profiles would mix.
class ModelConfigWidget::Fill
{
public:
    explicit Fill(ModelConfigWidget *form)
        : m_form(form)
        , m_guard(form)
        , m_number(++form->m_fills)
    {}

    bool goesOn() const { return m_guard && m_form->m_fills == m_number; }

    void setText(QLineEdit *ModelConfigWidget::*edit, const QString &text) const
    {
        if (goesOn())
            (m_form->*edit)->setText(text);
    }

    void replaceDefault(QLineEdit *ModelConfigWidget::*edit, const QString &previousDefault,
                        const QString &newDefault) const
    {
        if (!goesOn())
            return;
        const QString text = (m_form->*edit)->text().trimmed();
        if (text.isEmpty() || text == previousDefault)
            setText(edit, newDefault);
    }

private:
    ModelConfigWidget *const m_form;
    const QPointer<ModelConfigWidget> m_guard;
    const int m_number;
};

ModelConfigWidget::ModelConfigWidget(QWidget *parent)
    : QWidget(parent)
    , m_profileCombo(createProfileCombo())
    , m_providerCombo(createProviderCombo())
    , m_baseUrlEdit(createLineEdit(QStringLiteral("baseUrlEdit")))
    , m_apiKeyEdit(createLineEdit(QStringLiteral("apiKeyEdit")))
    , m_modelEdit(createLineEdit(QStringLiteral("modelEdit")))
    , m_maxTokensSpin(createSpinBox(QStringLiteral("maxTokensSpin"), 64, 128000, 1024))
    , m_timeoutSpin(createSpinBox(QStringLiteral("timeoutSpin"), 5, 300, 60))
{
    m_apiKeyEdit->setEchoMode(QLineEdit::Password);
    m_timeoutSpin->setSuffix(tr(" 秒"));
    m_timeoutSpin->setToolTip(tr("随配置保存，但不应用于请求。"));
    addRows();
    connectInputs();
}

ModelConfigWidget::~ModelConfigWidget()
{
    if (m_runningReports == 0)
        return;
    // A slot of configChanged() deletes this form while one of these inputs is still emitting. Qt's inputs
    // do not survive that, so they outlive the form until the event loop runs again.
    for (QWidget *input :
         QList<QWidget *>{m_profileCombo, m_providerCombo, m_baseUrlEdit, m_apiKeyEdit, m_modelEdit}) {
        input->setParent(nullptr);
        input->deleteLater();
    }
}

void ModelConfigWidget::addRows()
{
    auto *form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    form->addRow(tr("配置名称"), m_profileCombo);
    form->addRow(tr("模型提供方"), m_providerCombo);
    form->addRow(QStringLiteral("Base URL"), m_baseUrlEdit);
    const QString address = defaultBaseUrl(QStringLiteral("openai"));
    m_baseUrlEdit->setMinimumWidth(fontMetrics().horizontalAdvance(address) + addressMargin);
    form->addRow(QStringLiteral("API Key"), m_apiKeyEdit);
    form->addRow(tr("模型名称"), m_modelEdit);
    form->addRow(tr("最大 Token"), m_maxTokensSpin);
    form->addRow(tr("超时时间"), m_timeoutSpin);
}

void ModelConfigWidget::connectInputs()
{
    const auto indexChanged = QOverload<int>::of(&QComboBox::currentIndexChanged);
    connect(m_profileCombo, indexChanged, this, &ModelConfigWidget::selectProfile);
    connect(m_providerCombo, indexChanged, this, &ModelConfigWidget::selectProvider);
    for (QLineEdit *edit : {m_baseUrlEdit, m_apiKeyEdit, m_modelEdit})
        connect(edit, &QLineEdit::textChanged, this, &ModelConfigWidget::reportChange);
}

void ModelConfigWidget::setProfiles(const QList<ModelConfig> &profiles, int currentIndex)
{
    const ModelConfig offline;
    const int index = qBound(0, currentIndex, qMax(0, int(profiles.size()) - 1));
    const ModelConfig shown = profiles.value(index, offline);

    m_listing = true;
    m_profiles = profiles;
    m_profileCombo->clear();
    for (int i = 0; i < profiles.size(); ++i)
        m_profileCombo->addItem(displayName(profiles.at(i), i));
    m_profileCombo->setCurrentIndex(index);
    m_listing = false;

    // A profile that is not the first is loaded for being selected, and like every other once more.
    if (index == 0 || loadProfile(shown))
        loadProfile(shown);
}

ModelConfig ModelConfigWidget::currentConfig() const
{
    ModelConfig config;
    config.name = m_profileCombo->currentText();
    config.provider = m_providerCombo->currentData().toString();
    config.baseUrl = m_baseUrlEdit->text().trimmed();
    config.apiKey = m_apiKeyEdit->text();
    config.model = m_modelEdit->text().trimmed();
    config.maxTokens = m_maxTokensSpin->value();
    config.timeoutMs = m_timeoutSpin->value() * msPerSecond;
    config.stream = true;
    return config;
}

// Returns false where a slot ended it: the form may be gone.
bool ModelConfigWidget::loadProfile(const ModelConfig &profile)
{
    const Fill fill(this);
    m_loading = true;
    if (m_profileCombo->count() == 0)
        m_profileCombo->addItem(profile.name.isEmpty() ? tr("默认配置") : profile.name);
    m_providerCombo->setCurrentIndex(qMax(0, m_providerCombo->findData(profile.provider)));
    fill.setText(&ModelConfigWidget::m_baseUrlEdit, profile.baseUrl);
    fill.setText(&ModelConfigWidget::m_apiKeyEdit, profile.apiKey);
    fill.setText(&ModelConfigWidget::m_modelEdit, profile.model);
    if (!fill.goesOn())
        return false;
    showBeginnings({m_baseUrlEdit, m_apiKeyEdit, m_modelEdit});
    m_maxTokensSpin->setValue(profile.maxTokens);
    m_timeoutSpin->setValue(qMax(5, profile.timeoutMs / msPerSecond));
    m_loading = false;
    reportChange();
    return fill.goesOn();
}

void ModelConfigWidget::selectProfile(int index)
{
    if (m_listing || index < 0 || index >= m_profiles.size())
        return;
    loadProfile(ModelConfig(m_profiles.at(index)));
}

void ModelConfigWidget::selectProvider()
{
    if (m_loading)
        return;
    const Fill fill(this);
    const QString provider = m_providerCombo->currentData().toString();
    const QString previous = otherService(provider);
    if (!previous.isEmpty()) {
        fill.replaceDefault(&ModelConfigWidget::m_baseUrlEdit, defaultBaseUrl(previous),
                            defaultBaseUrl(provider));
        fill.replaceDefault(&ModelConfigWidget::m_modelEdit, defaultModelName(previous),
                            defaultModelName(provider));
    }
    if (!fill.goesOn())
        return;
    showBeginnings({m_baseUrlEdit, m_modelEdit});
    reportChange();
}

void ModelConfigWidget::reportChange()
{
    const QPointer<ModelConfigWidget> guard(this);
    ++m_runningReports;
    Q_EMIT configChanged();
    if (guard)
        --m_runningReports;
}

} // namespace QtAgent
} // namespace MireloQtLib
