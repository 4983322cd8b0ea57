#include "support/profileform.h"

#include <QFormLayout>
#include <QLabel>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestModelConfigWidget : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsStandInOrderWithTheirLabels();
    void inputsStartWithTheirDefaults();
    void profilesAreListedUnderTheirDisplayNames();
    void emptyListShowsTheOfflineMockModel();
    void defaultEntryGivesWayToTheFirstList();
    void indexIsMovedIntoTheRange_data();
    void indexIsMovedIntoTheRange();
    void profileFillsTheFields_data();
    void profileFillsTheFields();
    void currentConfigReadsTheFields();
    void settingProfilesReportsEveryTextThatChanges_data();
    void settingProfilesReportsEveryTextThatChanges();
    void selectedProfileIsCompleteAtTheLastReport();
    void pickedProfileIsLoadedAndReported();
    void editsAreNotWrittenBackIntoTheProfiles();
    void editedTextsAreReportedAndSpinBoxesAreNot();
    void pickedProviderReplacesTheOtherDefaults_data();
    void pickedProviderReplacesTheOtherDefaults();
    void loadedProfileKeepsItsValuesWhateverTheProvider();
};

void TestModelConfigWidget::rowsStandInOrderWithTheirLabels()
{
    const ProfileForm form;
    const QStringList labels{"配置名称", "模型提供方", "Base URL", "API Key",
                             "模型名称", "最大 Token", "超时时间"};
    const QList<QWidget *> inputs{form.profiles, form.providers, form.baseUrl, form.apiKey,
                                  form.model,    form.maxTokens, form.timeout};

    auto *layout = qobject_cast<QFormLayout *>(form.widget.layout());
    QVERIFY(layout);
    QCOMPARE(layout->contentsMargins(), QMargins());
    QCOMPARE(layout->rowCount(), labels.size());
    for (int row = 0; row < labels.size(); ++row) {
        QCOMPARE(layout->itemAt(row, QFormLayout::FieldRole)->widget(), inputs.at(row));
        auto *label = qobject_cast<QLabel *>(layout->itemAt(row, QFormLayout::LabelRole)->widget());
        QCOMPARE(label->text(), labels.at(row));
        QCOMPARE(label->buddy(), inputs.at(row));
    }
}

void TestModelConfigWidget::inputsStartWithTheirDefaults()
{
    const ProfileForm form;

    QCOMPARE(form.profiles->count(), 0);
    QCOMPARE(form.providers->count(), 3);
    QCOMPARE(form.providers->itemText(0), "模拟模型");
    QCOMPARE(form.providers->itemData(0).toString(), "mock");
    QCOMPARE(form.providers->itemText(1), "OpenAI-compatible");
    QCOMPARE(form.providers->itemData(1).toString(), "openai");
    QCOMPARE(form.providers->itemText(2), "DeepSeek");
    QCOMPARE(form.providers->itemData(2).toString(), "deepseek");
    QCOMPARE(form.providers->currentIndex(), 0);
    QCOMPARE(form.apiKey->echoMode(), QLineEdit::Password);
    QCOMPARE(form.baseUrl->echoMode(), QLineEdit::Normal);
    QCOMPARE(form.maxTokens->minimum(), 64);
    QCOMPARE(form.maxTokens->maximum(), 128000);
    QCOMPARE(form.maxTokens->value(), 1024);
    QCOMPARE(form.timeout->minimum(), 5);
    QCOMPARE(form.timeout->maximum(), 300);
    QCOMPARE(form.timeout->value(), 60);
    QCOMPARE(form.timeout->suffix(), " 秒");
}

void TestModelConfigWidget::profilesAreListedUnderTheirDisplayNames()
{
    ProfileForm form;
    form.widget.setProfiles({profile(" ", "mock", {}, {}, "\t"), profile(" named ", "mock", {}, {}, "model"),
                             profile(" ", "mock", {}, {}, " model "), profile({}, "mock", {}, {}, {})},
                            0);

    QCOMPARE(form.profiles->count(), 4);
    QCOMPARE(form.profiles->itemText(0), "模型配置 1");
    QCOMPARE(form.profiles->itemText(1), "named");
    QCOMPARE(form.profiles->itemText(2), "model");
    QCOMPARE(form.profiles->itemText(3), "模型配置 4");
}

void TestModelConfigWidget::emptyListShowsTheOfflineMockModel()
{
    ProfileForm form;
    form.widget.setProfiles(threeProfiles(), 2);
    form.changes.clear();

    form.widget.setProfiles({}, 5);

    QCOMPARE(form.profiles->count(), 1);
    QCOMPARE(form.profiles->currentText(), "默认配置");
    QCOMPARE(form.providers->currentData().toString(), "mock");
    QVERIFY(form.baseUrl->text().isEmpty());
    QVERIFY(form.apiKey->text().isEmpty());
    QVERIFY(form.model->text().isEmpty());
    QCOMPARE(form.maxTokens->value(), 1024);
    QCOMPARE(form.timeout->value(), 60);
    QCOMPARE(form.changes.count(), 3 + 1);
}

void TestModelConfigWidget::defaultEntryGivesWayToTheFirstList()
{
    ProfileForm form;
    form.widget.setProfiles({}, 0);
    form.widget.setProfiles(threeProfiles(), 0);

    QCOMPARE(form.profiles->count(), 3);
    QCOMPARE(form.profiles->currentText(), "first");
}

void TestModelConfigWidget::indexIsMovedIntoTheRange_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("name");
    QTest::newRow("behind the end") << 99 << "third";
    QTest::newRow("just behind the end") << 3 << "third";
    QTest::newRow("last") << 2 << "third";
    QTest::newRow("inside") << 1 << "second";
    QTest::newRow("first") << 0 << "first";
    QTest::newRow("negative") << -5 << "first";
}

void TestModelConfigWidget::indexIsMovedIntoTheRange()
{
    QFETCH(int, index);
    QFETCH(QString, name);
    ProfileForm form;
    form.widget.setProfiles(threeProfiles(), index);

    QCOMPARE(form.widget.currentConfig().name, name);
    QCOMPARE(form.profiles->currentText(), name);
}

void TestModelConfigWidget::profileFillsTheFields_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<int>("maxTokens");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<QString>("shownProvider");
    QTest::addColumn<int>("shownTokens");
    QTest::addColumn<int>("shownSeconds");
    QTest::newRow("plain") << "deepseek" << 2048 << 61000 << "deepseek" << 2048 << 61;
    QTest::newRow("parts of a second are dropped") << "openai" << 64 << 61999 << "openai" << 64 << 61;
    QTest::newRow("short limit is raised to 5") << "mock" << 1024 << 2500 << "mock" << 1024 << 5;
    QTest::newRow("negative limit is raised to 5") << "mock" << 1024 << -1 << "mock" << 1024 << 5;
    QTest::newRow("long limit ends at 300") << "mock" << 1024 << 900000 << "mock" << 1024 << 300;
    QTest::newRow("few tokens are raised to 64") << "mock" << 0 << 60000 << "mock" << 64 << 60;
    QTest::newRow("many tokens end at 128000") << "mock" << 200000 << 60000 << "mock" << 128000 << 60;
    QTest::newRow("provider in another case is the mock")
        << "OpenAI" << 1024 << 60000 << "mock" << 1024 << 60;
    QTest::newRow("unknown provider is the mock") << "other" << 1024 << 60000 << "mock" << 1024 << 60;
    QTest::newRow("no provider is the mock") << "" << 1024 << 60000 << "mock" << 1024 << 60;
}

void TestModelConfigWidget::profileFillsTheFields()
{
    QFETCH(QString, provider);
    QFETCH(int, maxTokens);
    QFETCH(int, timeoutMs);
    ModelConfig config = profile("name", provider, " http://a ", " key ", " model ");
    config.maxTokens = maxTokens;
    config.timeoutMs = timeoutMs;
    ProfileForm form;
    form.widget.setProfiles({withDefaults("deepseek"), config}, 1);

    QTEST(form.providers->currentData().toString(), "shownProvider");
    QTEST(form.maxTokens->value(), "shownTokens");
    QTEST(form.timeout->value(), "shownSeconds");
    QCOMPARE(form.baseUrl->text(), " http://a ");
    QCOMPARE(form.baseUrl->cursorPosition(), 0);
    QCOMPARE(form.apiKey->text(), " key ");
    QCOMPARE(form.model->text(), " model ");
}

void TestModelConfigWidget::currentConfigReadsTheFields()
{
    ModelConfig stored = profile(" name ", "openai", " http://a ", " key ", " model ");
    stored.stream = false;
    stored.temperature = 0.9;
    ProfileForm form;
    form.widget.setProfiles({stored}, 0);
    form.maxTokens->setValue(4096);
    form.timeout->setValue(90);

    const ModelConfig config = form.widget.currentConfig();

    QCOMPARE(config.name, "name");
    QCOMPARE(config.provider, "openai");
    QCOMPARE(config.baseUrl, "http://a");
    QCOMPARE(config.apiKey, " key ");
    QCOMPARE(config.model, "model");
    QCOMPARE(config.maxTokens, 4096);
    QCOMPARE(config.timeoutMs, 90000);
    QCOMPARE(config.stream, true);
    QCOMPARE(config.temperature, 0.2);
}

void TestModelConfigWidget::settingProfilesReportsEveryTextThatChanges_data()
{
    QTest::addColumn<QList<ModelConfig>>("profiles");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("reports");
    const ModelConfig empty = profile("n", "mock", {}, {}, {});
    const ModelConfig full = profile("n", "deepseek", "u", "k", "m");
    QTest::newRow("no profile") << QList<ModelConfig>{} << 0 << 1;
    QTest::newRow("first, no text changes") << QList<ModelConfig>{empty} << 0 << 1;
    QTest::newRow("first, the address changes")
        << QList<ModelConfig>{profile("n", "mock", "u", {}, {})} << 0 << 2;
    QTest::newRow("first, all texts change") << QList<ModelConfig>{full} << 0 << 3 + 1;
    QTest::newRow("second, no text changes") << QList<ModelConfig>{full, empty} << 1 << 1 + 1;
    QTest::newRow("second, all texts change") << QList<ModelConfig>{empty, full} << 1 << 3 + 1 + 1;
    QTest::newRow("index behind the end counts as the last")
        << QList<ModelConfig>{empty, full} << 9 << 3 + 1 + 1;
}

void TestModelConfigWidget::settingProfilesReportsEveryTextThatChanges()
{
    QFETCH(QList<ModelConfig>, profiles);
    QFETCH(int, index);
    ProfileForm form;
    form.widget.setProfiles(profiles, index);
    QTEST(int(form.changes.count()), "reports");

    // A list of the same length and values: only the selection that leaves 0 and the end are reported.
    form.changes.clear();
    form.widget.setProfiles(profiles, index);
    QCOMPARE(int(form.changes.count()), index > 0 ? 2 : 1);
}

void TestModelConfigWidget::selectedProfileIsCompleteAtTheLastReport()
{
    ProfileForm form;
    QStringList reports;
    connect(&form.widget, &ModelConfigWidget::configChanged, &form.widget, [&] {
        const ModelConfig config = form.widget.currentConfig();
        reports.append(config.provider + '|' + config.baseUrl + '|' + config.apiKey + '|' + config.model);
    });

    form.widget.setProfiles(threeProfiles(), 1);

    const QStringList expected{"openai|http://b||", "openai|http://b|kb|", "openai|http://b|kb|mb",
                               "openai|http://b|kb|mb", "openai|http://b|kb|mb"};
    QCOMPARE(reports, expected);
}

void TestModelConfigWidget::pickedProfileIsLoadedAndReported()
{
    ProfileForm form;
    form.widget.setProfiles(threeProfiles(), 0);
    form.changes.clear();

    form.profiles->setCurrentIndex(2);

    QCOMPARE(form.changes.count(), 3 + 1);
    QCOMPARE(form.widget.currentConfig().provider, "deepseek");
    QCOMPARE(form.widget.currentConfig().model, "mc");
}

void TestModelConfigWidget::editsAreNotWrittenBackIntoTheProfiles()
{
    ProfileForm form;
    form.widget.setProfiles(threeProfiles(), 0);
    form.baseUrl->setText("http://edited");
    form.maxTokens->setValue(77);
    form.pickProvider("openai");

    form.profiles->setCurrentIndex(1);
    form.profiles->setCurrentIndex(0);

    QCOMPARE(form.widget.currentConfig().baseUrl, "http://a");
    QCOMPARE(form.widget.currentConfig().maxTokens, 1024);
    QCOMPARE(form.widget.currentConfig().provider, "mock");
}

void TestModelConfigWidget::editedTextsAreReportedAndSpinBoxesAreNot()
{
    ProfileForm form;
    form.widget.setProfiles(threeProfiles(), 0);
    form.changes.clear();

    QTest::keyClicks(form.baseUrl, "/v1");
    QCOMPARE(form.changes.count(), 3);
    QTest::keyClicks(form.apiKey, "12");
    QCOMPARE(form.changes.count(), 5);
    form.model->setText("other");
    QCOMPARE(form.changes.count(), 6);
    form.maxTokens->setValue(2000);
    form.timeout->setValue(100);
    QCOMPARE(form.changes.count(), 6);
}

void TestModelConfigWidget::pickedProviderReplacesTheOtherDefaults_data()
{
    const QString openAiUrl = defaultBaseUrl("openai");
    const QString deepSeekUrl = defaultBaseUrl("deepseek");
    const QString openAiModel = defaultModelName("openai");
    const QString deepSeekModel = defaultModelName("deepseek");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("model");
    QTest::addColumn<QString>("newBaseUrl");
    QTest::addColumn<QString>("newModel");
    QTest::addColumn<int>("reports");
    QTest::newRow("openai to deepseek, defaults")
        << "openai"
        << "deepseek" << openAiUrl << openAiModel << deepSeekUrl << deepSeekModel << 3;
    QTest::newRow("openai to deepseek, empty") << "openai"
                                               << "deepseek"
                                               << " "
                                               << " " << deepSeekUrl << deepSeekModel << 3;
    QTest::newRow("openai to deepseek, defaults with blanks around")
        << "openai"
        << "deepseek"
        << " " + openAiUrl << openAiModel + " " << deepSeekUrl << deepSeekModel << 3;
    QTest::newRow("openai to deepseek, own address")
        << "openai"
        << "deepseek"
        << "http://own" << openAiModel << "http://own" << deepSeekModel << 2;
    QTest::newRow("openai to deepseek, own model")
        << "openai"
        << "deepseek" << openAiUrl << "own" << deepSeekUrl << "own" << 2;
    QTest::newRow("openai to deepseek, both own") << "openai"
                                                  << "deepseek"
                                                  << "http://own"
                                                  << "own"
                                                  << "http://own"
                                                  << "own" << 1;
    QTest::newRow("deepseek to openai, defaults")
        << "deepseek"
        << "openai" << deepSeekUrl << deepSeekModel << openAiUrl << openAiModel << 3;
    QTest::newRow("deepseek to openai, empty") << "deepseek"
                                               << "openai"
                                               << ""
                                               << "" << openAiUrl << openAiModel << 3;
    QTest::newRow("deepseek to openai, both own") << "deepseek"
                                                  << "openai"
                                                  << "http://own"
                                                  << "own"
                                                  << "http://own"
                                                  << "own" << 1;
    QTest::newRow("mock to deepseek, defaults")
        << "mock"
        << "deepseek" << openAiUrl << openAiModel << deepSeekUrl << deepSeekModel << 3;
    QTest::newRow("mock to openai, DeepSeek's defaults")
        << "mock"
        << "openai" << deepSeekUrl << deepSeekModel << openAiUrl << openAiModel << 3;
    QTest::newRow("mock to openai, its own defaults stay")
        << "mock"
        << "openai" << openAiUrl << openAiModel << openAiUrl << openAiModel << 1;
    QTest::newRow("openai to mock changes no field") << "openai"
                                                     << "mock" << openAiUrl << "" << openAiUrl << "" << 1;
    QTest::newRow("deepseek to mock changes no field") << "deepseek"
                                                       << "mock"
                                                       << "" << deepSeekModel << "" << deepSeekModel << 1;
}

void TestModelConfigWidget::pickedProviderReplacesTheOtherDefaults()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QString, baseUrl);
    QFETCH(QString, model);
    ProfileForm form;
    form.widget.setProfiles({profile("n", from, baseUrl, "key", model)}, 0);
    form.changes.clear();

    form.pickProvider(to);

    QTEST(form.baseUrl->text(), "newBaseUrl");
    QTEST(form.model->text(), "newModel");
    QTEST(int(form.changes.count()), "reports");
    QCOMPARE(form.apiKey->text(), "key");
    QCOMPARE(form.widget.currentConfig().provider, to);
}

void TestModelConfigWidget::loadedProfileKeepsItsValuesWhateverTheProvider()
{
    ProfileForm form;
    form.widget.setProfiles(
        {withDefaults("openai"), profile("mixed", "deepseek", defaultBaseUrl("openai"), {}, {})}, 0);
    form.profiles->setCurrentIndex(1);

    QCOMPARE(form.providers->currentData().toString(), "deepseek");
    QCOMPARE(form.baseUrl->text(), defaultBaseUrl("openai"));
    QVERIFY(form.model->text().isEmpty());
}

QTEST_MAIN(TestModelConfigWidget)
#include "tst_modelconfigwidget.moc"
