#include "profileform.h"

#include "modelchoice.h"

#include <qtagent/modellist.h>
#include <qtagent/openaicompatiblemodel.h>

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>

#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr qint32 testTokens = 16;

QLabel *plainLabel(const QString &name)
{
    auto *label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return label;
}

QString toText(const QJsonObject &options)
{
    return options.isEmpty() ? QString()
                             : QString::fromUtf8(QJsonDocument(options).toJson(QJsonDocument::Indented));
}

// What the user has not changed stays, also where it is outside of what can be entered.
qint32 numberIn(const QSpinBox *spin, qint32 before)
{
    return spin->value() == qBound(spin->minimum(), before, spin->maximum()) ? before : spin->value();
}

bool isOptions(const QString &text)
{
    return text.trimmed().isEmpty() || QJsonDocument::fromJson(text.toUtf8()).isObject();
}

} // namespace

ProfileForm::ProfileForm(QWidget *parent)
    : QWidget(parent)
{
    auto *form = new QFormLayout(this);
    form->setContentsMargins(3, 3, 3, 3); // for the ring around what has the focus
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setRowWrapPolicy(QFormLayout::WrapLongRows);
    setUpFields(form);
    setUpNumbers(form);
    setUpOptions(form);
    setUpTest(form);
}

ProfileForm::~ProfileForm() = default;

void ProfileForm::setUpFields(QFormLayout *form)
{
    const auto addLine = [this, form](const QString &label, const QString &name) {
        auto *line = new QLineEdit;
        line->setObjectName(name);
        form->addRow(label, line);
        connect(line, &QLineEdit::textEdited, this, &ProfileForm::edit);
        return line;
    };
    m_name = addLine(tr("名称(&N)"), QStringLiteral("nameEdit"));
    m_provider = new QComboBox;
    m_provider->setObjectName(QStringLiteral("providerCombo"));
    m_provider->addItem(tr("OpenAI 兼容服务"), QStringLiteral("openai"));
    m_provider->addItem(tr("DeepSeek"), QStringLiteral("deepseek"));
    m_provider->addItem(tr("离线模拟模型"), QStringLiteral("mock"));
    form->addRow(tr("服务(&P)"), m_provider);
    connect(m_provider, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &ProfileForm::leaveProvider);
    m_baseUrl = addLine(tr("地址(&A)"), QStringLiteral("baseUrlEdit"));
    m_apiKey = addLine(tr("密钥(&K)"), QStringLiteral("apiKeyEdit"));
    m_apiKey->setEchoMode(QLineEdit::Password);
    m_apiKey->setInputMethodHints(Qt::ImhHiddenText | Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    setUpModel(form);
}

void ProfileForm::setUpModel(QFormLayout *form)
{
    m_model = new QComboBox;
    m_model->setObjectName(QStringLiteral("modelEdit"));
    m_model->setEditable(true);
    m_model->setInsertPolicy(QComboBox::NoInsert);
    auto *listButton = new QPushButton(tr("查询(&Q)"));
    listButton->setObjectName(QStringLiteral("listButton"));
    listButton->setAutoDefault(false);
    listButton->setToolTip(tr("查询服务提供的模型"));
    auto *row = new QHBoxLayout;
    row->addWidget(m_model, 1);
    row->addWidget(listButton);
    auto *label = new QLabel(tr("模型(&M)"));
    label->setBuddy(m_model);
    form->addRow(label, row);
    connect(m_model, &QComboBox::editTextChanged, this, &ProfileForm::edit);
    connect(listButton, &QPushButton::clicked, this, &ProfileForm::listModels);
}

void ProfileForm::setUpNumbers(QFormLayout *form)
{
    const auto addNumber = [this, form](const QString &label, const QString &name, int most) {
        auto *spin = new QSpinBox;
        spin->setObjectName(name);
        spin->setRange(1, most);
        form->addRow(label, spin);
        connect(spin, QOverload<int>::of(&QSpinBox::valueChanged), this, &ProfileForm::edit);
        return spin;
    };
    m_maxTokens = addNumber(tr("回答上限（令牌）(&L)"), QStringLiteral("maxTokensSpin"), 10000000);
    m_timeout = addNumber(tr("时限（毫秒）(&T)"), QStringLiteral("timeoutSpin"), 3600000);
    m_timeout->setMinimum(0);
    m_timeout->setSpecialValueText(tr("不限"));
    m_stream = new QCheckBox(tr("逐字显示回答(&S)"));
    m_stream->setObjectName(QStringLiteral("streamCheck"));
    form->addRow(m_stream);
    connect(m_stream, &QCheckBox::toggled, this, &ProfileForm::edit);
}

void ProfileForm::setUpOptions(QFormLayout *form)
{
    constexpr int lines = 4;
    m_options = new QPlainTextEdit;
    m_options->setObjectName(QStringLiteral("optionsEdit"));
    m_options->setTabChangesFocus(true);
    m_options->setPlaceholderText(QStringLiteral("{\"useMaxCompletionTokens\": true}"));
    m_options->setFixedHeight(lines * fontMetrics().lineSpacing() + 2 * m_options->frameWidth());
    m_optionsState = plainLabel(QStringLiteral("optionsState"));
    m_optionsState->setText(tr("选项不是 JSON 对象，没有采用。"));
    m_optionsState->hide();
    form->addRow(tr("选项(&O)"), m_options);
    form->addRow(m_optionsState);
    connect(m_options, &QPlainTextEdit::textChanged, this, &ProfileForm::edit);
}

void ProfileForm::setUpTest(QFormLayout *form)
{
    auto *testButton = new QPushButton(tr("测试(&E)"));
    testButton->setObjectName(QStringLiteral("testButton"));
    testButton->setAutoDefault(false);
    m_result = plainLabel(QStringLiteral("testResult"));
    form->addRow(testButton);
    form->addRow(m_result);
    connect(testButton, &QPushButton::clicked, this, &ProfileForm::test);
}

void ProfileForm::setProfile(const AssistantProfile &profile)
{
    endRequest();
    m_result->clear();
    m_isFilling = true;
    m_profile = profile;
    const ModelConfig &config = profile.config;
    m_name->setText(config.name);
    m_provider->setCurrentIndex(qMax(0, m_provider->findData(config.provider)));
    m_shownProvider = m_provider->currentData().toString();
    m_baseUrl->setText(config.baseUrl);
    m_apiKey->setText(config.apiKey);
    m_model->clear();
    m_model->setEditText(config.model);
    m_maxTokens->setValue(config.maxTokens);
    m_timeout->setValue(config.timeoutMs);
    m_stream->setChecked(config.stream);
    m_options->setPlainText(toText(profile.options));
    m_isFilling = false;
    showPlaceholders();
    showOptionsState();
}

AssistantProfile ProfileForm::profile() const
{
    AssistantProfile profile = m_profile;
    ModelConfig &config = profile.config;
    config.name = m_name->text();
    config.provider = m_provider->currentData().toString();
    config.baseUrl = m_baseUrl->text().trimmed();
    config.apiKey = m_apiKey->text().trimmed();
    config.model = m_model->currentText().trimmed();
    config.maxTokens = numberIn(m_maxTokens, config.maxTokens);
    config.timeoutMs = numberIn(m_timeout, config.timeoutMs);
    config.stream = m_stream->isChecked();
    if (isOptions(m_options->toPlainText()))
        profile.options = QJsonDocument::fromJson(m_options->toPlainText().toUtf8()).object();
    return profile;
}

// What is the default of one service would send the key of the other there.
void ProfileForm::leaveProvider()
{
    const QString left = std::exchange(m_shownProvider, m_provider->currentData().toString());
    if (m_isFilling)
        return;
    if (m_baseUrl->text() == defaultBaseUrl(left))
        m_baseUrl->clear();
    if (m_model->currentText() == defaultModelName(left))
        m_model->clearEditText();
    edit();
}

void ProfileForm::edit()
{
    if (m_isFilling)
        return;
    endRequest();
    showPlaceholders();
    showOptionsState();
    Q_EMIT changed();
}

void ProfileForm::showPlaceholders()
{
    const QString provider = m_provider->currentData().toString();
    m_baseUrl->setPlaceholderText(defaultBaseUrl(provider));
    m_model->lineEdit()->setPlaceholderText(defaultModelName(provider));
}

void ProfileForm::showOptionsState()
{
    m_optionsState->setVisible(!isOptions(m_options->toPlainText()));
}

// The answer to one short question, which costs next to nothing.
void ProfileForm::test()
{
    endRequest();
    AssistantProfile tested = profile();
    tested.config.maxTokens = testTokens;
    ChatModel *model = createModel(tested, this);
    m_running = model;
    m_result->setText(tr("正在测试…"));
    ChatReply *reply = model->chat({ChatMessage::user(QStringLiteral("ping"))}, {}, model);
    reply->whenEnded(model, [this, model](const ChatResult &result) {
        if (m_running == model)
            tell(result.end == ChatResult::End::Finished ? tr("可以使用。") : result.error);
    });
}

void ProfileForm::listModels()
{
    endRequest();
    auto *model = qobject_cast<OpenAICompatibleModel *>(createModel(profile(), this));
    if (!model)
        return m_result->setText(tr("模拟模型没有可选的模型。"));
    m_running = model;
    m_result->setText(tr("正在查询…"));
    ModelListReply *reply = model->listModels(model);
    connect(reply, &ModelListReply::failed, model, [this, model](const QString &error) {
        if (m_running == model)
            tell(error);
    });
    connect(reply, &ModelListReply::finished, model, [this, model](const QStringList &models) {
        if (m_running != model)
            return;
        const QString current = m_model->currentText();
        m_isFilling = true;
        m_model->clear();
        m_model->addItems(models);
        m_model->setEditText(current);
        m_isFilling = false;
        tell(tr("服务有 %n 个模型。", nullptr, static_cast<int>(models.size())));
    });
}

void ProfileForm::tell(const QString &result)
{
    endRequest();
    m_result->setText(result);
}

void ProfileForm::endRequest()
{
    if (!m_running)
        return;
    m_running->deleteLater();
    m_running.clear();
    m_result->clear();
}
