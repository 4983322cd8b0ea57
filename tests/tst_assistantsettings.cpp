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

QTEST_GUILESS_MAIN(TestAssistantSettings)
#include "tst_assistantsettings.moc"
