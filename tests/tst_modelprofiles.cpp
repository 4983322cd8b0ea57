#include <qtagent/modelprofiles.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <thread>

#ifdef Q_OS_UNIX
#    include <sys/stat.h>
#endif

using namespace MireloQtLib::QtAgent;

namespace {

const QString openAiUrl = QStringLiteral("https://api.openai.com/v1");
const QString deepSeekUrl = QStringLiteral("https://api.deepseek.com");

QProcessEnvironment environmentOf(const QMap<QString, QString> &variables)
{
    QProcessEnvironment environment;
    for (auto it = variables.cbegin(); it != variables.cend(); ++it)
        environment.insert(it.key(), it.value());
    return environment;
}

QByteArray profileNamed(const char *name)
{
    return QByteArray(R"({"name":")") + name + R"("})";
}

// What modelConfigFileCandidates() returned before there was an application, and what Qt said to that.
QStringList earlyCandidates;
QStringList earlyMessages;

} // namespace

class TestModelProfiles : public QObject
{
    Q_OBJECT

public:
    // Qt Test calls it before it makes the application.
    static void initMain();

private Q_SLOTS:
    void init();
    void cleanup();

    void allKeysOfAProfileAreRead();
    void absentAndWrongTypedKeysGiveTheDefaults_data();
    void absentAndWrongTypedKeysGiveTheDefaults();
    void emptyProviderFollowsTheKey_data();
    void emptyProviderFollowsTheKey();
    void temperatureIsNeverRead();
    void fourPlacesAreSearchedInOrder();
    void currentFolderStandsInForTheApplicationsBeforeThereIsOne();
    void firstReadableFileWins();
    void unusableFilesArePassedOver_data();
    void unusableFilesArePassedOver();
    void filesOfUpToOneMegabyteAreRead_data();
    void filesOfUpToOneMegabyteAreRead();
    void onlyRegularFilesAreRead_data();
    void onlyRegularFilesAreRead();
    void nobodyWaitsWhereAFifoTakesTheFilesPlace();
    void filesAreReadWhereverQtFindsThem();
    void currentProfileIsClamped_data();
    void currentProfileIsClamped();
    void elementsThatAreNoObjectsAreSkipped();
    void rootIsTheProfileWithoutAUsableList_data();
    void rootIsTheProfileWithoutAUsableList();
    void listWithoutAnObjectFallsBackToTheEnvironment();
    void fileWinsOverTheEnvironment();
    void environmentGivesOneProfile_data();
    void environmentGivesOneProfile();
    void emptyAddressAndModelAreFilled_data();
    void emptyAddressAndModelAreFilled();

private:
    QString path(const QString &name) const { return QDir(m_folder->path()).filePath(name); }
    QString write(const QString &name, const QByteArray &content);
    ModelProfiles load(const QByteArray &content)
    {
        return loadModelProfiles({write("c.json", content)}, {});
    }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestModelProfiles::initMain()
{
    const auto previousHandler = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &message) { earlyMessages.append(message); });
    earlyCandidates = modelConfigFileCandidates();
    qInstallMessageHandler(previousHandler);
}

void TestModelProfiles::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
}

void TestModelProfiles::cleanup()
{
    m_folder.reset();
}

QString TestModelProfiles::write(const QString &name, const QByteArray &content)
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write the test's file");
    return file.fileName();
}

void TestModelProfiles::allKeysOfAProfileAreRead()
{
    const ModelConfig config = modelConfigFromJson({{"name", "n"},
                                                    {"provider", "deepseek"},
                                                    {"apiKey", " k "},
                                                    {"baseUrl", " u "},
                                                    {"model", "m"},
                                                    {"maxTokens", 7},
                                                    {"timeoutMs", 8},
                                                    {"stream", false}});
    QCOMPARE(config.name, QStringLiteral("n"));
    QCOMPARE(config.provider, QStringLiteral("deepseek"));
    QCOMPARE(config.apiKey, QStringLiteral(" k "));
    QCOMPARE(config.baseUrl, QStringLiteral(" u "));
    QCOMPARE(config.model, QStringLiteral("m"));
    QCOMPARE(config.maxTokens, 7);
    QCOMPARE(config.timeoutMs, 8);
    QCOMPARE(config.stream, false);
}

void TestModelProfiles::absentAndWrongTypedKeysGiveTheDefaults_data()
{
    QTest::addColumn<QJsonObject>("json");
    QTest::newRow("absent") << QJsonObject();
    QTest::newRow("wrong types") << QJsonObject{
        {"name", 1},          {"provider", true},       {"apiKey", QJsonArray()},
        {"baseUrl", 2.5},     {"model", QJsonObject()}, {"maxTokens", "9"},
        {"timeoutMs", false}, {"stream", "false"}};
    QTest::newRow("null") << QJsonObject{{"name", QJsonValue()},
                                         {"provider", QJsonValue()},
                                         {"maxTokens", QJsonValue()},
                                         {"stream", QJsonValue()}};
    QTest::newRow("options of requests")
        << QJsonObject{{"options", QJsonObject{{"stream", false}, {"maxTokens", 9}, {"keepReasoning", true}}},
                       {"requestOptions", QJsonObject{{"timeoutMs", 9}}}};
    QTest::newRow("numbers that are not whole") << QJsonObject{{"maxTokens", 1.5}, {"timeoutMs", 1e12}};
}

void TestModelProfiles::absentAndWrongTypedKeysGiveTheDefaults()
{
    QFETCH(QJsonObject, json);
    const ModelConfig config = modelConfigFromJson(json);
    QVERIFY(config.name.isEmpty());
    QCOMPARE(config.provider, QStringLiteral("openai"));
    QVERIFY(config.apiKey.isEmpty());
    QVERIFY(config.baseUrl.isEmpty());
    QVERIFY(config.model.isEmpty());
    QCOMPARE(config.maxTokens, 1024);
    QCOMPARE(config.timeoutMs, 60000);
    QCOMPARE(config.stream, true);
}

void TestModelProfiles::emptyProviderFollowsTheKey_data()
{
    QTest::addColumn<QJsonObject>("json");
    QTest::addColumn<QString>("provider");
    QTest::newRow("with a key") << QJsonObject{{"provider", ""}, {"apiKey", "k"}} << "openai";
    QTest::newRow("with an empty key") << QJsonObject{{"provider", ""}, {"apiKey", ""}} << "mock";
    QTest::newRow("without a key") << QJsonObject{{"provider", ""}} << "mock";
    QTest::newRow("absent provider and a key") << QJsonObject{{"apiKey", "k"}} << "openai";
    QTest::newRow("another provider stays") << QJsonObject{{"provider", "DeepSeek"}} << "DeepSeek";
}

void TestModelProfiles::emptyProviderFollowsTheKey()
{
    QFETCH(QJsonObject, json);
    QTEST(modelConfigFromJson(json).provider, "provider");
}

void TestModelProfiles::temperatureIsNeverRead()
{
    QCOMPARE(modelConfigFromJson({{"temperature", 1.5}}).temperature, 0.2);
}

void TestModelProfiles::fourPlacesAreSearchedInOrder()
{
    const QDir application(QCoreApplication::applicationDirPath());
    QVERIFY(QDir::setCurrent(m_folder->path()));
    const QStringList places{
        QDir::current().absoluteFilePath("orvane.local.json"),
        application.absoluteFilePath("orvane.local.json"),
        QDir::cleanPath(application.absoluteFilePath("../../../MireloOrvane/orvane.local.json")),
        QDir::cleanPath(application.absoluteFilePath("../../../../MireloOrvane/orvane.local.json")),
    };
    const QStringList candidates = modelConfigFileCandidates();
    QVERIFY(QDir::setCurrent(application.path()));
    QCOMPARE(candidates, places);
}

void TestModelProfiles::currentFolderStandsInForTheApplicationsBeforeThereIsOne()
{
    QCOMPARE(earlyCandidates.size(), 4);
    QCOMPARE(earlyCandidates.at(1), earlyCandidates.at(0));
    QVERIFY(!earlyMessages.isEmpty());
    for (const QString &message : earlyMessages)
        QVERIFY(message.startsWith("QCoreApplication::applicationDirPath: "));
}

void TestModelProfiles::firstReadableFileWins()
{
    const QString first = write("first.json", profileNamed("first"));
    const QString second = write("second.json", profileNamed("second"));
    const ModelProfiles loaded = loadModelProfiles({path("missing.json"), first, second}, {});
    QCOMPARE(loaded.profiles.size(), 1);
    QCOMPARE(loaded.profiles.first().name, QStringLiteral("first"));
}

void TestModelProfiles::unusableFilesArePassedOver_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut off") << QByteArray(R"({"name":"broken")");
    QTest::newRow("an array") << QByteArray(R"([{"name":"broken"}])");
    QTest::newRow("a scalar") << QByteArray("7");
    QTest::newRow("bytes that are no text") << QByteArray("\xff\xfe\x00{}", 5);
}

void TestModelProfiles::unusableFilesArePassedOver()
{
    QFETCH(QByteArray, content);
    QDir(m_folder->path()).mkdir("folder");
    const QString unusable = write("unusable.json", content);
    const QString usable = write("usable.json", profileNamed("usable"));
    const ModelProfiles loaded = loadModelProfiles({path("folder"), unusable, usable}, {});
    QCOMPARE(loaded.profiles.first().name, QStringLiteral("usable"));
}

void TestModelProfiles::filesOfUpToOneMegabyteAreRead_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("name");
    QTest::newRow("one megabyte") << 1024 * 1024 << "padded";
    QTest::newRow("one byte more") << 1024 * 1024 + 1 << "usable";
    QTest::newRow("ten megabytes") << 10 * 1024 * 1024 << "usable";
}

void TestModelProfiles::filesOfUpToOneMegabyteAreRead()
{
    QFETCH(int, size);
    const QString padded = write("padded.json", profileNamed("padded").leftJustified(size));
    const QString usable = write("usable.json", profileNamed("usable"));
    QTEST(loadModelProfiles({padded, usable}, {}).profiles.first().name, "name");
}

void TestModelProfiles::onlyRegularFilesAreRead_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a folder") << "folder";
    QTest::newRow("a file of two gigabytes without content") << "sparse.json";
#ifdef Q_OS_UNIX
    QTest::newRow("a FIFO that nobody writes to") << "fifo";
    QTest::newRow("a link to it") << "link";
    QTest::newRow("a device without an end") << "/dev/zero";
    QTest::newRow("a device without content") << "/dev/null";
#endif
}

void TestModelProfiles::onlyRegularFilesAreRead()
{
    QFETCH(QString, name);
    QVERIFY(QDir(m_folder->path()).mkdir("folder"));
    QVERIFY(QFile(write("sparse.json", "{}")).resize(qint64(2) * 1024 * 1024 * 1024));
#ifdef Q_OS_UNIX
    QCOMPARE(::mkfifo(qPrintable(path("fifo")), 0600), 0);
    QVERIFY(QFile::link(path("fifo"), path("link")));
#endif
    const QString usable = write("usable.json", profileNamed("usable"));
    QCOMPARE(loadModelProfiles({path(name), usable}, {}).profiles.first().name, QStringLiteral("usable"));
}

void TestModelProfiles::nobodyWaitsWhereAFifoTakesTheFilesPlace()
{
#ifdef Q_OS_UNIX
    const QByteArray candidate = path("candidate").toUtf8();
    std::atomic<bool> isOver = false;
    std::thread replacer([&] {
        const QByteArray file = path("file").toUtf8();
        const QByteArray fifo = path("fifo").toUtf8();
        while (!isOver) {
            write("file", profileNamed("file"));
            ::rename(file.constData(), candidate.constData());
            ::mkfifo(fifo.constData(), 0600);
            ::rename(fifo.constData(), candidate.constData());
        }
    });
    int filesRead = 0;
    for (int round = 0; filesRead < 2000; ++round) {
        if (loadModelProfiles({candidate}, {}).profiles.first().name == QStringLiteral("file"))
            ++filesRead;
    }
    isOver = true;
    replacer.join();
#else
    QSKIP("needs FIFOs");
#endif
}

void TestModelProfiles::filesAreReadWhereverQtFindsThem()
{
    write("searched.json", profileNamed("searched"));
    QDir::setSearchPaths("profiles", {m_folder->path()});
    QCOMPARE(loadModelProfiles({"profiles:searched.json"}, {}).profiles.first().name,
             QStringLiteral("searched"));
    QDir::setSearchPaths("profiles", {});
}

void TestModelProfiles::currentProfileIsClamped_data()
{
    QTest::addColumn<QByteArray>("currentProfile");
    QTest::addColumn<int>("index");
    QTest::newRow("absent") << QByteArray() << 0;
    QTest::newRow("first") << QByteArray(R"(,"currentProfile":0)") << 0;
    QTest::newRow("second") << QByteArray(R"(,"currentProfile":1)") << 1;
    QTest::newRow("above the last") << QByteArray(R"(,"currentProfile":7)") << 2;
    QTest::newRow("negative") << QByteArray(R"(,"currentProfile":-1)") << 0;
    QTest::newRow("a text") << QByteArray(R"(,"currentProfile":"2")") << 0;
    QTest::newRow("not whole") << QByteArray(R"(,"currentProfile":1.5)") << 0;
}

void TestModelProfiles::currentProfileIsClamped()
{
    QFETCH(QByteArray, currentProfile);
    const ModelProfiles loaded =
        load(R"({"profiles":[{"name":"a"},{"name":"b"},{"name":"c"}])" + currentProfile + "}");
    QCOMPARE(loaded.profiles.size(), 3);
    QTEST(loaded.currentIndex, "index");
}

void TestModelProfiles::elementsThatAreNoObjectsAreSkipped()
{
    const ModelProfiles loaded =
        load(R"({"profiles":[1,{"name":"a"},null,[],{"name":"b"},"x"],"currentProfile":4})");
    QCOMPARE(loaded.profiles.size(), 2);
    QCOMPARE(loaded.profiles.at(1).name, QStringLiteral("b"));
    QCOMPARE(loaded.currentIndex, 1);
}

void TestModelProfiles::rootIsTheProfileWithoutAUsableList_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("no list") << QByteArray(R"({"name":"root","currentProfile":3})");
    QTest::newRow("an empty list") << QByteArray(R"({"name":"root","profiles":[]})");
    QTest::newRow("a list of another type") << QByteArray(R"({"name":"root","profiles":{"name":"inner"}})");
}

void TestModelProfiles::rootIsTheProfileWithoutAUsableList()
{
    QFETCH(QByteArray, content);
    const ModelProfiles loaded = load(content);
    QCOMPARE(loaded.profiles.size(), 1);
    QCOMPARE(loaded.profiles.first().name, QStringLiteral("root"));
    QCOMPARE(loaded.profiles.first().provider, QStringLiteral("openai"));
    QCOMPARE(loaded.currentIndex, 0);
}

void TestModelProfiles::listWithoutAnObjectFallsBackToTheEnvironment()
{
    const QString list = write("list.json", R"({"profiles":[1,2],"currentProfile":1})");
    const QString next = write("next.json", profileNamed("next"));
    const ModelProfiles loaded = loadModelProfiles({list, next}, environmentOf({{"OPENAI_API_KEY", "k"}}));
    QCOMPARE(loaded.profiles.size(), 1);
    QCOMPARE(loaded.profiles.first().name, QStringLiteral("OpenAI 环境变量"));
    QCOMPARE(loaded.currentIndex, 0);
}

void TestModelProfiles::fileWinsOverTheEnvironment()
{
    const QString file = write("c.json", profileNamed("file"));
    const ModelProfiles loaded = loadModelProfiles(
        {file}, environmentOf({{"DEEPSEEK_API_KEY", "d"}, {"OPENAI_BASE_URL", "http://other"}}));
    QCOMPARE(loaded.profiles.first().name, QStringLiteral("file"));
    QVERIFY(loaded.profiles.first().apiKey.isEmpty());
    QCOMPARE(loaded.profiles.first().baseUrl, openAiUrl);
}

void TestModelProfiles::environmentGivesOneProfile_data()
{
    using Variables = QMap<QString, QString>;
    QTest::addColumn<Variables>("variables");
    QTest::addColumn<QStringList>("profile"); // name, provider, key, address, model
    QTest::newRow("deepseek") << Variables{{"DEEPSEEK_API_KEY", "d"},
                                           {"DEEPSEEK_BASE_URL", "http://d"},
                                           {"DEEPSEEK_MODEL", "dm"}}
                              << QStringList{"DeepSeek 环境变量", "deepseek", "d", "http://d", "dm"};
    QTest::newRow("openai") << Variables{{"OPENAI_API_KEY", "o"},
                                         {"OPENAI_BASE_URL", "http://o"},
                                         {"OPENAI_MODEL", "om"}}
                            << QStringList{"OpenAI 环境变量", "openai", "o", "http://o", "om"};
    QTest::newRow("the deepseek key wins")
        << Variables{{"DEEPSEEK_API_KEY", "d"}, {"OPENAI_API_KEY", "o"}, {"OPENAI_MODEL", "om"}}
        << QStringList{"DeepSeek 环境变量", "deepseek", "d", deepSeekUrl, "deepseek-v4-flash"};
    QTest::newRow("an empty deepseek key does not count")
        << Variables{{"DEEPSEEK_API_KEY", ""}, {"DEEPSEEK_MODEL", "dm"}, {"OPENAI_API_KEY", "o"}}
        << QStringList{"OpenAI 环境变量", "openai", "o", openAiUrl, "gpt-4.1-mini"};
    QTest::newRow("no key gives the mock model")
        << Variables{} << QStringList{"模拟模型", "mock", "", openAiUrl, "gpt-4.1-mini"};
    QTest::newRow("the mock profile reads the other openai variables")
        << Variables{{"OPENAI_BASE_URL", "http://o"}, {"OPENAI_MODEL", "om"}}
        << QStringList{"模拟模型", "mock", "", "http://o", "om"};
}

void TestModelProfiles::environmentGivesOneProfile()
{
    using Variables = QMap<QString, QString>;
    QFETCH(Variables, variables);
    const ModelProfiles loaded = loadModelProfiles({path("missing.json")}, environmentOf(variables));
    QCOMPARE(loaded.profiles.size(), 1);
    QCOMPARE(loaded.currentIndex, 0);
    const ModelConfig &config = loaded.profiles.first();
    const QStringList profile{config.name, config.provider, config.apiKey, config.baseUrl, config.model};
    QTEST(profile, "profile");
    QCOMPARE(config.temperature, 0.2);
    QCOMPARE(config.maxTokens, 1024);
    QCOMPARE(config.timeoutMs, 60000);
    QVERIFY(config.stream);
}

void TestModelProfiles::emptyAddressAndModelAreFilled_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("model");
    QTest::newRow("deepseek") << QByteArray(R"({"provider":"deepseek"})") << deepSeekUrl
                              << "deepseek-v4-flash";
    QTest::newRow("openai") << QByteArray(R"({"provider":"openai"})") << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("mock") << QByteArray(R"({"provider":"mock"})") << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("capitalised DeepSeek")
        << QByteArray(R"({"provider":"DeepSeek"})") << openAiUrl << "gpt-4.1-mini";
    QTest::newRow("given values stay")
        << QByteArray(R"({"provider":"deepseek","baseUrl":"http://h","model":"m"})") << "http://h"
        << "m";
    QTest::newRow("blanks are not empty")
        << QByteArray(R"({"provider":"deepseek","baseUrl":" ","model":" "})") << " "
        << " ";
}

void TestModelProfiles::emptyAddressAndModelAreFilled()
{
    QFETCH(QByteArray, content);
    const ModelConfig config = load(content).profiles.first();
    QTEST(config.baseUrl, "baseUrl");
    QTEST(config.model, "model");
}

QTEST_GUILESS_MAIN(TestModelProfiles)
#include "tst_modelprofiles.moc"
