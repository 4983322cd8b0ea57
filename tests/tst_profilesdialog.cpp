#include "support/completions.h"
#include "support/loopbackserver.h"

#include <assistant/modelchoice.h>
#include <assistant/profilesdialog.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestProfilesDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void editedProfilesAreSaved();
    void profilesAreAddedAndRemoved();
    void lookingAtAProfileDoesNotChooseIt();
    void chosenProfileStaysWhereOthersGo();
    void lastProfileMayGo();
    void timeLimitMayBeNone();
    void defaultsDoNotGoToAnotherService();
    void damagedFileIsTold();
    void environmentIsNotWrittenToTheFile();
    void optionsThatAreNoObjectAreNotTaken();
    void testAsksOneShortQuestion();
    void failedTestSaysWhy();
    void serviceIsAskedForItsModels();
    void fileThatCannotBeWrittenKeepsTheDialogOpen();

private:
    AssistantProfiles profiles(const QString &baseUrl = "http://127.0.0.1:9/v1") const
    {
        AssistantProfile profile;
        profile.config.name = "Works";
        profile.config.provider = "openai";
        profile.config.baseUrl = baseUrl;
        profile.config.apiKey = "secret";
        profile.config.model = "m";
        AssistantProfiles result;
        result.profiles.append(profile);
        result.path = m_folder.filePath("profiles.json");
        result.isFromFile = true;
        return result;
    }
    static QString result(const QDialog &dialog) { return dialog.findChild<QLabel *>("testResult")->text(); }
    static void click(const QDialog &dialog, const QString &name)
    {
        QTest::mouseClick(dialog.findChild<QPushButton *>(name), Qt::LeftButton);
    }

    QTemporaryDir m_folder;
};

void TestProfilesDialog::editedProfilesAreSaved()
{
    ProfilesDialog dialog(profiles());
    QTest::keyClicks(dialog.findChild<QLineEdit *>("nameEdit"), "!");
    dialog.findChild<QSpinBox *>("maxTokensSpin")->setValue(77);
    dialog.findChild<QPlainTextEdit *>("optionsEdit")->setPlainText(R"({"query": "v=1"})");
    dialog.findChild<QComboBox *>("modelEdit")->setEditText("n");
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    const AssistantProfiles saved = loadProfiles({dialog.profiles().path}, {});
    QCOMPARE(saved.profiles.first().config.name, "Works!");
    QCOMPARE(saved.profiles.first().config.maxTokens, 77);
    QCOMPARE(saved.profiles.first().config.model, "n");
    QCOMPARE(saved.profiles.first().config.apiKey, "secret");
    QCOMPARE(saved.profiles.first().options, QJsonObject({{"query", "v=1"}}));
}

void TestProfilesDialog::profilesAreAddedAndRemoved()
{
    ProfilesDialog dialog(profiles());
    auto *list = dialog.findChild<QListView *>("profileList");
    click(dialog, "addProfile");
    QCOMPARE(list->currentIndex().data().toString(), "未命名");
    QCOMPARE(dialog.findChild<QLineEdit *>("apiKeyEdit")->text(), QString());
    QTest::keyClicks(dialog.findChild<QLineEdit *>("nameEdit"), "Home");
    list->setCurrentIndex(list->model()->index(0, 0));
    QCOMPARE(dialog.findChild<QLineEdit *>("nameEdit")->text(), "Works");
    click(dialog, "removeProfile");
    dialog.accept();
    const AssistantProfiles saved = loadProfiles({dialog.profiles().path}, {});
    QCOMPARE(saved.profiles.size(), 1);
    QCOMPARE(saved.profiles.first().config.name, "Home");
}

void TestProfilesDialog::lookingAtAProfileDoesNotChooseIt()
{
    AssistantProfiles two = profiles();
    two.profiles.append(two.profiles.first());
    ProfilesDialog dialog(two);
    auto *list = dialog.findChild<QListView *>("profileList");
    list->setCurrentIndex(list->model()->index(1, 0));
    dialog.accept();
    QCOMPARE(dialog.profiles().currentIndex, 0);
}

void TestProfilesDialog::chosenProfileStaysWhereOthersGo()
{
    AssistantProfiles three = profiles();
    three.profiles += {three.profiles.first(), three.profiles.first()};
    three.profiles[1].config.name = "Chosen";
    three.currentIndex = 1;
    ProfilesDialog dialog(three);
    auto *list = dialog.findChild<QListView *>("profileList");
    QCOMPARE(list->currentIndex().row(), 1);
    for (const int row : {2, 0}) {
        list->setCurrentIndex(list->model()->index(row, 0));
        click(dialog, "removeProfile");
    }
    dialog.accept();
    QCOMPARE(dialog.profiles().profiles.size(), 1);
    QCOMPARE(dialog.profiles().currentIndex, 0);
    QCOMPARE(dialog.profiles().profiles.first().config.name, "Chosen");
}

void TestProfilesDialog::lastProfileMayGo()
{
    ProfilesDialog dialog(profiles());
    click(dialog, "removeProfile");
    dialog.accept();
    QVERIFY(!dialog.profiles().isFromFile);
    QVERIFY(ModelChoice(dialog.profiles()).isUnconfigured());
}

void TestProfilesDialog::timeLimitMayBeNone()
{
    AssistantProfiles unlimited = profiles();
    unlimited.profiles.first().config.timeoutMs = -1;
    ProfilesDialog dialog(unlimited);
    QTest::keyClicks(dialog.findChild<QLineEdit *>("nameEdit"), "!");
    dialog.accept();
    QCOMPARE(dialog.profiles().profiles.first().config.timeoutMs, -1);
    QCOMPARE(dialog.findChild<QSpinBox *>("timeoutSpin")->text(), "不限");
}

void TestProfilesDialog::defaultsDoNotGoToAnotherService()
{
    AssistantProfiles openai = profiles("https://api.openai.com/v1");
    ProfilesDialog dialog(openai);
    auto *provider = dialog.findChild<QComboBox *>("providerCombo");
    provider->setCurrentIndex(provider->findData("deepseek"));
    QCOMPARE(dialog.findChild<QLineEdit *>("baseUrlEdit")->text(), QString());
    QCOMPARE(dialog.findChild<QComboBox *>("modelEdit")->currentText(), "m");
    dialog.findChild<QLineEdit *>("baseUrlEdit")->setText("http://127.0.0.1:9");
    provider->setCurrentIndex(provider->findData("openai"));
    QCOMPARE(dialog.findChild<QLineEdit *>("baseUrlEdit")->text(), "http://127.0.0.1:9");
}

void TestProfilesDialog::damagedFileIsTold()
{
    AssistantProfiles damaged = profiles();
    damaged.isFileDamaged = true;
    const ProfilesDialog dialog(damaged);
    QVERIFY(
        dialog.findChild<QLabel *>("profileFile")->text().endsWith("那里的文件已损坏，保存时会改名保留。"));
}

void TestProfilesDialog::environmentIsNotWrittenToTheFile()
{
    AssistantProfiles fromEnvironment = profiles();
    fromEnvironment.isFromFile = false;
    ProfilesDialog dialog(fromEnvironment);
    dialog.accept();
    QFile file(dialog.profiles().path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(!file.readAll().contains("secret"));
}

void TestProfilesDialog::optionsThatAreNoObjectAreNotTaken()
{
    ProfilesDialog dialog(profiles());
    auto *options = dialog.findChild<QPlainTextEdit *>("optionsEdit");
    options->setPlainText(R"({"query": "v=1"})");
    options->setPlainText("[1");
    QVERIFY(!dialog.findChild<QLabel *>("optionsState")->isHidden());
    dialog.accept();
    QCOMPARE(dialog.profiles().profiles.first().options, QJsonObject());
}

void TestProfilesDialog::testAsksOneShortQuestion()
{
    LoopbackServer server;
    QJsonObject body;
    server.setHandler([&body](const LoopbackRequest &request) {
        body = request.json;
        return LoopbackAnswer::stream(
            {deltaEvent("pong"),
             QByteArray("data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\n\n"), doneEvent()});
    });
    ProfilesDialog dialog(profiles(server.baseUrl()));
    click(dialog, "testButton");
    QTRY_COMPARE(result(dialog), "可以使用。");
    QCOMPARE(body.value("max_tokens").toInt(), 16);
    QCOMPARE(body.value("messages").toArray().size(), 1);
}

void TestProfilesDialog::failedTestSaysWhy()
{
    LoopbackServer server;
    server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})");
    });
    ProfilesDialog dialog(profiles(server.baseUrl()));
    click(dialog, "testButton");
    QTRY_VERIFY(result(dialog).contains("bad key"));
    QVERIFY(!result(dialog).contains("secret"));
}

void TestProfilesDialog::serviceIsAskedForItsModels()
{
    LoopbackServer server;
    server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::withStatus(200, R"({"data":[{"id":"b"},{"id":"a"}]})");
    });
    ProfilesDialog dialog(profiles(server.baseUrl()));
    click(dialog, "listButton");
    auto *models = dialog.findChild<QComboBox *>("modelEdit");
    QTRY_COMPARE(models->count(), 2);
    QCOMPARE(models->itemText(0), "a");
    QCOMPARE(models->currentText(), "m");
}

void TestProfilesDialog::fileThatCannotBeWrittenKeepsTheDialogOpen()
{
    AssistantProfiles unwritable = profiles();
    unwritable.path = m_folder.path();
    ProfilesDialog dialog(unwritable);
    dialog.open();
    dialog.accept();
    QVERIFY(dialog.isVisible());
    QVERIFY(dialog.findChild<QLabel *>("profileFile")->text().startsWith("无法保存到 "));
}

QTEST_MAIN(TestProfilesDialog)
#include "tst_profilesdialog.moc"
