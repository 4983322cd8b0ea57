#include <assistant/profilesfile.h>

#include <QTemporaryDir>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestProfilesFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstReadableFileCounts();
    void environmentCountsWithoutAFile();
    void optionsStandBesideAProfile();
    void whatIsSavedIsLoaded();
    void onlyTheUserReadsTheFile();
    void whatIsUnknownStays();
    void loneProfileBecomesAList();
    void fileThatCannotBeWrittenIsTold();
    void damagedFileIsSetAside();
    void emptyListSaysNothing();

private:
    QString write(const QString &name, const QByteArray &content) const
    {
        QFile file(m_folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write");
        return file.fileName();
    }
    static QJsonObject read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                              : QJsonObject();
    }

    QTemporaryDir m_folder;
};

void TestProfilesFile::firstReadableFileCounts()
{
    const QStringList candidates{m_folder.filePath("missing"), m_folder.path(), write("broken", "{"),
                                 write("good", R"({"name": "Works", "apiKey": "k"})"),
                                 write("other", R"({"name": "Other"})")};
    const AssistantProfiles loaded = loadProfiles(candidates, {});
    QVERIFY(loaded.isFromFile);
    QCOMPARE(loaded.path, candidates.at(3));
    QCOMPARE(loaded.profiles.size(), 1);
    QCOMPARE(loaded.profiles.first().config.name, "Works");
}

void TestProfilesFile::environmentCountsWithoutAFile()
{
    QProcessEnvironment environment;
    environment.insert("OPENAI_API_KEY", "k");
    const AssistantProfiles loaded = loadProfiles({m_folder.filePath("missing")}, environment);
    QVERIFY(!loaded.isFromFile);
    QCOMPARE(loaded.path, m_folder.filePath("missing"));
    QCOMPARE(loaded.profiles.first().config.apiKey, "k");
}

void TestProfilesFile::optionsStandBesideAProfile()
{
    const QString path = write("options", R"({"profiles": [7, {"name": "A"},
        {"name": "B", "options": {"askForUsage": false}}], "currentProfile": 1})");
    const AssistantProfiles loaded = loadProfiles({path}, {});
    QCOMPARE(loaded.currentIndex, 1);
    QCOMPARE(loaded.profiles.at(0).options, QJsonObject());
    QCOMPARE(loaded.profiles.at(1).config.name, "B");
    QCOMPARE(loaded.profiles.at(1).options, QJsonObject({{"askForUsage", false}}));
}

void TestProfilesFile::whatIsSavedIsLoaded()
{
    AssistantProfiles profiles;
    profiles.path = m_folder.filePath("new/folder/file");
    profiles.currentIndex = 1;
    ModelConfig config;
    config.name = "Works";
    config.provider = "openai";
    config.baseUrl = "http://127.0.0.1/v1";
    config.apiKey = "k";
    config.model = "m";
    config.maxTokens = 7;
    config.timeoutMs = 8;
    config.stream = false;
    profiles.profiles = {{ModelConfig(), {}, {}}, {config, {{"askForUsage", false}}, {}}};
    QString error;
    QVERIFY2(saveProfiles(profiles, &error), qPrintable(error));
    const AssistantProfiles loaded = loadProfiles({profiles.path}, {});
    QCOMPARE(loaded.currentIndex, 1);
    QCOMPARE(loaded.profiles.at(1).config, config);
    QCOMPARE(loaded.profiles.at(1).options, QJsonObject({{"askForUsage", false}}));
}

void TestProfilesFile::onlyTheUserReadsTheFile()
{
    const QString path = write("open", R"({"name": "Works"})");
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    QString error;
    QVERIFY(saveProfiles(loadProfiles({path}, {}), &error));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther
                                    | QFile::WriteOther | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    QCOMPARE(QFile::permissions(path) & others, QFile::Permissions());
    QVERIFY(QFile::permissions(path).testFlag(QFile::ReadOwner));
}

void TestProfilesFile::whatIsUnknownStays()
{
    const QString path =
        write("unknown", R"({"profiles": [{"name": "A", "note": "mine"}], "theme": "dark"})");
    QString error;
    AssistantProfiles profiles = loadProfiles({path}, {});
    profiles.profiles[0].config.name = "B";
    QVERIFY(saveProfiles(profiles, &error));
    const QJsonObject root = read(path);
    QCOMPARE(root.value("theme").toString(), "dark");
    QCOMPARE(root.value("profiles").toArray().at(0).toObject().value("note").toString(), "mine");
    QCOMPARE(root.value("profiles").toArray().at(0).toObject().value("name").toString(), "B");
}

void TestProfilesFile::loneProfileBecomesAList()
{
    const QString path = write("lone", R"({"name": "A", "apiKey": "k", "options": {"query": "v=1"}})");
    QString error;
    QVERIFY(saveProfiles(loadProfiles({path}, {}), &error));
    QCOMPARE(read(path).keys(), QStringList({"currentProfile", "profiles"}));
    const AssistantProfiles loaded = loadProfiles({path}, {});
    QCOMPARE(loaded.profiles.first().config.apiKey, "k");
    QCOMPARE(loaded.profiles.first().options, QJsonObject({{"query", "v=1"}}));
}

void TestProfilesFile::fileThatCannotBeWrittenIsTold()
{
    AssistantProfiles profiles;
    profiles.path = m_folder.path();
    QString error;
    QVERIFY(!saveProfiles(profiles, &error));
    QVERIFY(!error.isEmpty());
}

void TestProfilesFile::damagedFileIsSetAside()
{
    const QString path = write("damaged", R"({"profiles": [{"apiKey": "k")");
    write("damaged.damaged-1", "older");
    AssistantProfiles loaded = loadProfiles({path}, {});
    QVERIFY(loaded.isFileDamaged);
    QVERIFY(!loaded.isFromFile);
    QString error;
    QVERIFY2(saveProfiles(loaded, &error), qPrintable(error));
    QFile kept(path + ".damaged-2");
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), QByteArray(R"({"profiles": [{"apiKey": "k")"));
    QVERIFY(!loadProfiles({path}, {}).isFileDamaged);
}

void TestProfilesFile::emptyListSaysNothing()
{
    const QString path = write("empty", R"({"profiles": [], "theme": "dark"})");
    const AssistantProfiles loaded = loadProfiles({path}, {});
    QVERIFY(!loaded.isFromFile);
    QVERIFY(!loaded.isFileDamaged);
    QCOMPARE(loaded.profiles.first().config.provider, "mock");
    QString error;
    QVERIFY(saveProfiles(loaded, &error));
    QCOMPARE(read(path).value("theme").toString(), "dark");
}

QTEST_GUILESS_MAIN(TestProfilesFile)
#include "tst_profilesfile.moc"
