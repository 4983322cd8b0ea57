#include <assistant/keychain.h>
#include <assistant/modelchoice.h>
#include <assistant/profilesdialog.h>

#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// Answers from the event loop, as the system's does.
class FakeKeychain : public Keychain
{
public:
    bool isBuilt() const override { return true; }
    void read(const QString &entry, const Fetched &fetched) override
    {
        QTimer::singleShot(0, this, [this, entry, fetched] {
            const bool isThere = keys.contains(entry);
            fetched(keys.value(entry), isThere ? QString() : QStringLiteral("Entry not found"));
        });
    }
    void write(const QString &entry, const QString &key, const Done &done) override
    {
        QTimer::singleShot(0, this, [this, entry, key, done] {
            if (error.isEmpty())
                keys.insert(entry, key);
            done(error);
        });
    }
    void remove(const QString &entry) override { keys.remove(entry); }

    QMap<QString, QString> keys;
    QString error;
};

} // namespace

class TestProfileKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_folder = std::make_unique<QTemporaryDir>(); }
    void keysLieInTheKeychain();
    void keysAreFetchedAtTheStart();
    void missingKeyIsTold();
    void fileHasThemWhereTheKeychainFails();
    void fileOfOtherProgramsKeepsItsKeys();
    void keysOfRemovedProfilesAreForgotten();
    void dialogMayDieMeanwhile();

private:
    AssistantProfiles profiles() const
    {
        AssistantProfiles result = loadProfiles({path()}, {});
        result.isFromFile = true;
        result.profiles = {profile("A", "secret-a"), profile("B", "secret-b"), profile("None", QString())};
        return result;
    }
    static AssistantProfile profile(const QString &name, const QString &key)
    {
        AssistantProfile profile;
        profile.config.name = name;
        profile.config.provider = "openai";
        profile.config.apiKey = key;
        return profile;
    }
    QString path() const { return m_folder->filePath("profiles.json"); }
    QByteArray content() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static QString place(const QDialog &dialog) { return dialog.findChild<QLabel *>("profileFile")->text(); }
    // What the dialog saves with the keychain.
    AssistantProfiles saved(FakeKeychain *keychain) const
    {
        ProfilesDialog dialog(profiles());
        dialog.setKeychain(keychain);
        QSignalSpy accepted(&dialog, &QDialog::accepted);
        dialog.accept();
        return accepted.wait() ? dialog.profiles() : AssistantProfiles();
    }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestProfileKeys::keysLieInTheKeychain()
{
    FakeKeychain keychain;
    ProfilesDialog dialog(profiles());
    dialog.setKeychain(&keychain);
    QCOMPARE(place(dialog), "保存在 " + path() + "，密钥保存在系统的密钥环中。");
    dialog.accept();
    QVERIFY(!dialog.isEnabled());
    QTRY_COMPARE(dialog.result(), int(QDialog::Accepted));
    QStringList kept = keychain.keys.values();
    kept.sort(); // their entries are random
    QCOMPARE(kept, QStringList({"secret-a", "secret-b"}));
    QVERIFY(!content().contains("secret"));
    QCOMPARE(dialog.profiles().profiles.at(1).config.apiKey, "secret-b");
}

void TestProfileKeys::keysAreFetchedAtTheStart()
{
    FakeKeychain keychain;
    QCOMPARE(saved(&keychain).profiles.size(), 3);
    ModelChoice choice(loadProfiles({path()}, {}));
    QCOMPARE(choice.profiles().profiles.at(0).config.apiKey, QString());
    QSignalSpy changed(&choice, &ModelChoice::changed);
    choice.setKeychain(&keychain);
    QTRY_COMPARE(choice.profiles().profiles.at(1).config.apiKey, "secret-b");
    QCOMPARE(choice.profiles().profiles.at(0).config.apiKey, "secret-a");
    QCOMPARE(changed.count(), 1); // for the chosen one
}

void TestProfileKeys::missingKeyIsTold()
{
    FakeKeychain keychain;
    QCOMPARE(saved(&keychain).profiles.size(), 3);
    keychain.keys.clear();
    ModelChoice choice(loadProfiles({path()}, {}));
    QSignalSpy missing(&choice, &ModelChoice::keyMissing);
    choice.setKeychain(&keychain);
    QTRY_COMPARE(missing.count(), 2);
    QCOMPARE(missing.first().first().toString(), "Entry not found");
}

void TestProfileKeys::fileHasThemWhereTheKeychainFails()
{
    FakeKeychain keychain;
    keychain.error = "No service";
    ProfilesDialog dialog(profiles());
    dialog.setKeychain(&keychain);
    dialog.accept();
    QTRY_VERIFY(dialog.isEnabled());
    QCOMPARE(dialog.result(), 0);
    QCOMPARE(place(dialog),
             "系统的密钥环不能使用：No service\n再保存一次，密钥就写入 " + path() + "，只有您可以读取。");
    QVERIFY(content().isEmpty());
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(content().contains("secret-a"));
    QCOMPARE(loadProfiles({path()}, {}).profiles.first().keychainEntry, QString());
}

void TestProfileKeys::fileOfOtherProgramsKeepsItsKeys()
{
    FakeKeychain keychain;
    AssistantProfiles shared = profiles();
    shared.isOwnFile = false;
    ProfilesDialog dialog(shared);
    dialog.setKeychain(&keychain);
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(content().contains("secret-a"));
    QVERIFY(keychain.keys.isEmpty());
}

void TestProfileKeys::keysOfRemovedProfilesAreForgotten()
{
    FakeKeychain keychain;
    ProfilesDialog dialog(saved(&keychain));
    dialog.setKeychain(&keychain);
    dialog.findChild<QPushButton *>("removeProfile")->click();
    auto *key = dialog.findChild<QLineEdit *>("apiKeyEdit");
    key->selectAll();
    QTest::keyClicks(key, "other");
    dialog.accept();
    QTRY_COMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(keychain.keys.values(), QStringList("other"));
}

void TestProfileKeys::dialogMayDieMeanwhile()
{
    FakeKeychain keychain;
    auto dialog = std::make_unique<ProfilesDialog>(profiles());
    dialog->setKeychain(&keychain);
    dialog->accept();
    dialog.reset();
    QTRY_COMPARE(keychain.keys.size(), 1);
    QVERIFY(content().isEmpty());
}

QTEST_MAIN(TestProfileKeys)
#include "tst_profilekeys.moc"
