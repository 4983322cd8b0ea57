#include "support/assistantfixture.h"

#include <assistant/conversationfiles.h>
#include <assistant/removedconversation.h>

using namespace MireloQtLib::QtAgent;

class TestConversationFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exportedConversationIsImported();
    void markdownIsForReaders();
    void fileThatCannotBeWrittenIsTold();
    void fileThatCannotBeReadIsTold();
    void titlesBecomeFileNames_data();
    void titlesBecomeFileNames();
    void removedConversationComesBack();
    void onlyTheLastComesBackAndOnce();
    void unknownConversationCannotBeRemoved();
};

static QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("?");
}

void TestConversationFiles::exportedConversationIsImported()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?", "It moves water."});
    const QString path = fixture.folder.filePath("pumps.json");
    QString error;
    QVERIFY2(exportConversation(fixture.store, id, path, &error), qPrintable(error));
    const QString copy = importConversation(&fixture.store, path, &error);
    QVERIFY(copy != id && !copy.isEmpty());
    QCOMPARE(fixture.store.load(copy).messages, fixture.store.load(id).messages);
}

void TestConversationFiles::markdownIsForReaders()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?"});
    const QString path = fixture.folder.filePath("pumps.MD");
    QString error;
    QVERIFY(exportConversation(fixture.store, id, path, &error));
    QCOMPARE(contentOf(path), fixture.store.toMarkdown(id).toUtf8());
}

void TestConversationFiles::fileThatCannotBeWrittenIsTold()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?"});
    QString error;
    QVERIFY(!exportConversation(fixture.store, id, fixture.folder.path(), &error));
    QVERIFY(!error.isEmpty());
    const QString path = fixture.folder.filePath("unknown.json");
    QVERIFY(!exportConversation(fixture.store, "unknown", path, &error));
    QCOMPARE(error, "There is no such conversation.");
    QVERIFY(!QFile::exists(path));
}

void TestConversationFiles::fileThatCannotBeReadIsTold()
{
    AssistantFixture fixture;
    QString error;
    QCOMPARE(importConversation(&fixture.store, fixture.folder.filePath("unknown"), &error), QString());
    QVERIFY(!error.isEmpty());
    QFile large(fixture.folder.filePath("large.json"));
    QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(64 * 1024 * 1024 + 1));
    QCOMPARE(importConversation(&fixture.store, large.fileName(), &error), QString());
    QCOMPARE(error, "文件超过 64 MiB。");
    QCOMPARE(fixture.store.list().size(), 0);
}

void TestConversationFiles::titlesBecomeFileNames_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("name");
    QTest::newRow("as it is") << "水泵 1"
                              << "水泵 1";
    QTest::newRow("folders") << "../../etc/passwd"
                             << "_.._etc_passwd";
    QTest::newRow("what some systems refuse") << "a\\b:c*d?e\"f<g>h|i"
                                              << "a_b_c_d_e_f_g_h_i";
    QTest::newRow("empty") << " "
                           << "conversation";
}

void TestConversationFiles::titlesBecomeFileNames()
{
    QFETCH(QString, title);
    QFETCH(QString, name);
    QCOMPARE(fileNameFor(title), name);
}

void TestConversationFiles::removedConversationComesBack()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?", "It moves water."});
    const Conversation before = fixture.store.load(id);
    RemovedConversation removed(&fixture.store);
    QSignalSpy told(&removed, &RemovedConversation::removed);
    QSignalSpy restored(&removed, &RemovedConversation::restored);
    QVERIFY(removed.remove(id));
    QCOMPARE(told, QList<QVariantList>({{"Pumps"}}));
    QCOMPARE(fixture.store.list().size(), 0);
    removed.undo();
    QCOMPARE(restored.count(), 1);
    const Conversation after = fixture.store.load(restored.first().first().toString());
    QCOMPARE(after.title, before.title);
    QCOMPARE(after.changed, before.changed);
    QCOMPARE(after.messages, before.messages);
}

void TestConversationFiles::onlyTheLastComesBackAndOnce()
{
    AssistantFixture fixture;
    RemovedConversation removed(&fixture.store);
    QVERIFY(removed.remove(fixture.keep("Pumps", {"What is a pump?"})));
    QVERIFY(removed.remove(fixture.keep("Valves", {"What is a valve?"})));
    removed.undo();
    removed.undo();
    QVERIFY(!removed.canUndo());
    QCOMPARE(fixture.store.list().size(), 1);
    QCOMPARE(fixture.store.list().first().title, "Valves");
}

void TestConversationFiles::unknownConversationCannotBeRemoved()
{
    AssistantFixture fixture;
    RemovedConversation removed(&fixture.store);
    QSignalSpy failed(&removed, &RemovedConversation::failed);
    QVERIFY(!removed.remove("unknown"));
    QCOMPARE(failed, QList<QVariantList>({{"There is no such conversation."}}));
    QVERIFY(!removed.canUndo());
}

QTEST_GUILESS_MAIN(TestConversationFiles)
#include "tst_conversationfiles.moc"
