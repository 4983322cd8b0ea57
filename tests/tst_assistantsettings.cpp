#include <assistant/assistantsettings.h>
#include <assistant/textzoom.h>

#include <QTemporaryDir>
#include <QtTest>

class TestAssistantSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultsHoldWhereNothingIsRemembered();
    void whatIsSetIsRememberedAtTheNextStart();
    void nonsenseReadsAsTheDefault();
    void profileIsFoundAgain_data();
    void profileIsFoundAgain();

private:
    QString path() const { return m_folder.filePath(QString::fromLatin1(QTest::currentTestFunction())); }

    QTemporaryDir m_folder;
};

void TestAssistantSettings::defaultsHoldWhereNothingIsRemembered()
{
    const AssistantSettings settings(path());
    QCOMPARE(settings.sendKey(), ChatInput::SendKey::CtrlReturn);
    QCOMPARE(settings.textSteps(), 0);
    QCOMPARE(settings.geometry(), QByteArray());
    QVERIFY(!settings.conversationId());
    QCOMPARE(settings.draft(), QString());
}

void TestAssistantSettings::whatIsSetIsRememberedAtTheNextStart()
{
    {
        AssistantSettings settings(path());
        settings.setSendKey(ChatInput::SendKey::Return);
        settings.setTextSteps(3);
        settings.setLanguage("en");
        settings.setGeometry("geometry");
        settings.setSplitterState("state");
        settings.setConversationId("id");
        settings.setDraft("Why, \"oh\"\nwhy?");
    }
    const AssistantSettings settings(path());
    QCOMPARE(settings.sendKey(), ChatInput::SendKey::Return);
    QCOMPARE(settings.textSteps(), 3);
    QCOMPARE(settings.language(), QString("en"));
    QCOMPARE(settings.geometry(), QByteArray("geometry"));
    QCOMPARE(settings.splitterState(), QByteArray("state"));
    QCOMPARE(settings.conversationId().value_or(QString()), QString("id"));
    QCOMPARE(settings.draft(), QString("Why, \"oh\"\nwhy?"));
}

void TestAssistantSettings::nonsenseReadsAsTheDefault()
{
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly)
            && file.write("[General]\nsendKey=space\nlanguage=xx\ntextSteps=1000\n") > 0);
    file.close();
    const AssistantSettings settings(path());
    QCOMPARE(settings.sendKey(), ChatInput::SendKey::CtrlReturn);
    QCOMPARE(settings.language(), QString());
    QCOMPARE(settings.textSteps(), TextZoom::mostSteps);
}

void TestAssistantSettings::profileIsFoundAgain_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<int>("expected");
    QTest::newRow("at its place") << QStringList{"A", "B", "B"} << 2;
    QTest::newRow("at another one") << QStringList{"B", "A"} << 0;
    QTest::newRow("no more") << QStringList{"A", "C", "D"} << -1;
    QTest::newRow("among none") << QStringList() << -1;
}

void TestAssistantSettings::profileIsFoundAgain()
{
    QFETCH(QStringList, names);
    QFETCH(int, expected);
    QVERIFY(QFile::remove(path()) || !QFile::exists(path()));
    AssistantSettings settings(path());
    QCOMPARE(settings.profileAmong({"", "B"}), -1);
    settings.setProfile(2, {"A", "B", "B"});
    QCOMPARE(AssistantSettings(path()).profileAmong(names), expected);
}

QTEST_GUILESS_MAIN(TestAssistantSettings)
#include "tst_assistantsettings.moc"
