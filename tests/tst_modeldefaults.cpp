#include <qtagent/modeldefaults.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const QString openAiUrl = QStringLiteral("https://api.openai.com/v1");
const QString deepSeekUrl = QStringLiteral("https://api.deepseek.com");

} // namespace

class TestModelDefaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultsBelongToTheProvider_data();
    void defaultsBelongToTheProvider();
};

void TestModelDefaults::defaultsBelongToTheProvider_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("model");
    QTest::newRow("deepseek") << "deepseek" << deepSeekUrl << "deepseek-v4-flash";
    QTest::newRow("openai") << "openai" << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("mock") << "mock" << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("capitalised DeepSeek") << "DeepSeek" << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("empty") << "" << openAiUrl << "gpt-4.1-mini";
}

void TestModelDefaults::defaultsBelongToTheProvider()
{
    QFETCH(QString, provider);
    QTEST(defaultBaseUrl(provider), "baseUrl");
    QTEST(defaultModelName(provider), "model");
}

QTEST_APPLESS_MAIN(TestModelDefaults)
#include "tst_modeldefaults.moc"
