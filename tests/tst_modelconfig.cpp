#include <qtagent/modelconfig.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestModelConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultProfileIsThatOfTheMockModel();
    void headerBringsDefaultsAndLoading();
};

void TestModelConfig::defaultProfileIsThatOfTheMockModel()
{
    const ModelConfig config;
    QCOMPARE(config.provider, "mock");
    QCOMPARE(config.temperature, 0.2);
    QCOMPARE(config.maxTokens, 1024);
    QCOMPARE(config.timeoutMs, 60000);
    QVERIFY(config.stream);
    QVERIFY(config == (ModelConfig{"", "mock", "", "", "", 0.2, 1024, 60000, true}));
}

// They were declared in modelconfig.h before they had headers of their own.
void TestModelConfig::headerBringsDefaultsAndLoading()
{
    const ModelProfiles loaded = loadModelProfiles(QStringList(), QProcessEnvironment());
    QCOMPARE(loaded.profiles.first().baseUrl, defaultBaseUrl("mock"));
    QCOMPARE(loaded.profiles.first().model, defaultModelName("mock"));
    QCOMPARE(modelConfigFromJson(QJsonObject{{"name", "n"}}).name, "n");
}

QTEST_APPLESS_MAIN(TestModelConfig)
#include "tst_modelconfig.moc"
