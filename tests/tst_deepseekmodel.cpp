#include "support/completions.h"

#include <qtagent/deepseekmodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestDeepSeekModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void chatFillsWhatTheProfileLacks_data();
    void chatFillsWhatTheProfileLacks();
    void aProfileIsNotFilledBeforeTheFirstChat();
    void theRequestCarriesTheDefaultModel();
};

void TestDeepSeekModel::chatFillsWhatTheProfileLacks_data()
{
    const QString address = "https://api.deepseek.com";
    const QString local = "http://127.0.0.1:9";

    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("filled");
    QTest::newRow("everything") << QStringList{"", "", ""}
                                << QStringList{"deepseek", address, "deepseek-v4-flash"};
    QTest::newRow("spaces in address and model")
        << QStringList{"", " \t", "  "} << QStringList{"deepseek", address, "deepseek-v4-flash"};
    QTest::newRow("a provider of spaces stays")
        << QStringList{" ", local, "m"} << QStringList{" ", local, "m"};
    QTest::newRow("another provider stays")
        << QStringList{"mock", "", "m"} << QStringList{"mock", address, "m"};
    QTest::newRow("a full profile stays as it is") << QStringList{"openai", " " + local + "/ ", " m "}
                                                   << QStringList{"openai", " " + local + "/ ", " m "};
}

void TestDeepSeekModel::chatFillsWhatTheProfileLacks()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, filled);
    DeepSeekModel model;
    ModelConfig config;
    config.provider = given.at(0);
    config.baseUrl = given.at(1);
    config.model = given.at(2);
    config.name = "n";
    config.maxTokens = 7;
    model.setConfig(config);
    // Canceled before the event loop runs, so that nothing is sent.
    model.chat({}, {}, nullptr)->cancel();
    QCOMPARE(QStringList({model.config().provider, model.config().baseUrl, model.config().model}), filled);
    QCOMPARE(model.config().name, "n");
    QCOMPARE(model.config().maxTokens, 7);
}

void TestDeepSeekModel::aProfileIsNotFilledBeforeTheFirstChat()
{
    DeepSeekModel model;
    QCOMPARE(model.config().provider, "mock");
    QVERIFY(model.config().baseUrl.isEmpty());
    QVERIFY(model.config().model.isEmpty());
}

void TestDeepSeekModel::theRequestCarriesTheDefaultModel()
{
    StreamServer server;
    server.addEvents({deltaEvent("Hi"), doneEvent()});
    DeepSeekModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    model.setConfig(config);
    ReplyRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, this));
    QTRY_VERIFY(recorder.isOver());
    QCOMPARE(recorder.lines(), QStringList({"delta: Hi", "finished: Hi"}));
    QCOMPARE(QJsonDocument::fromJson(server.requestBodies().first())["model"], "deepseek-v4-flash");
}

QTEST_GUILESS_MAIN(TestDeepSeekModel)
#include "tst_deepseekmodel.moc"
