// What several programs do to one file: one that is killed while it saves, and several at once.

#include <qtagent/store/conversationstore.h>
#include <tests/support/sqlitefile.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int programLimitMs = 60000;

class WriterProcess : public QProcess
{
public:
    explicit WriterProcess(const QStringList &arguments)
    {
        setProcessChannelMode(QProcess::ForwardedErrorChannel);
        start(STORE_WRITER, arguments);
    }

    // Returns the next number that the program prints, or -1 at its end.
    int nextNumber()
    {
        while (!canReadLine()) {
            if (!waitForReadyRead(programLimitMs))
                return -1;
        }
        return readLine().trimmed().toInt();
    }

    int lastNumber()
    {
        int last = 0;
        while (canReadLine())
            last = readLine().trimmed().toInt();
        return last;
    }
};

// What SQLite finds wrong in the file and in the index of the texts.
QStringList faultsOf(const QString &path)
{
    const SqliteFile file(path);
    return file.run("PRAGMA integrity_check")
         + file.run("INSERT INTO texts (texts) VALUES ('integrity-check')");
}

} // namespace

class TestConversationStorePrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedProgramLosesNothingThatWasSaved();
    void programsThatWriteAtOnceLoseNothing();
    void programsMayBeginAFileAtOnce();
    void programsMayFindADamagedFileAtOnce();

private:
    static bool addAtOnce(const QString &path, int programCount, int conversations);

    QTemporaryDir m_folder;
};

void TestConversationStorePrograms::killedProgramLosesNothingThatWasSaved()
{
    constexpr int kills = 100;
    constexpr int mostSaves = 20;
    const QString path = m_folder.filePath("killed.sqlite");
    for (int i = 1; i <= kills; ++i) {
        WriterProcess program({"grow", path});
        int saved = 0;
        for (int wanted = QRandomGenerator::global()->bounded(mostSaves); wanted >= 0; --wanted)
            saved = program.nextNumber();
        QVERIFY(saved > 0);
        program.kill(); // somewhere in the saves that follow
        QVERIFY(program.waitForFinished(programLimitMs));
        saved = qMax(saved, program.lastNumber());

        ConversationStore store;
        QString error;
        QVERIFY2(store.open(path, &error), qPrintable(error));
        QVERIFY(store.setAsidePath().isEmpty());
        QCOMPARE(store.list().size(), i);
        const Conversation conversation = store.load(store.list().first().id);
        QCOMPARE(conversation.messages.size(), 2);
        const QString answer = conversation.messages.last().message.content;
        QCOMPARE(answer, QString("压力").repeated(int(answer.size()) / 2));
        QVERIFY(answer.size() / 2 >= saved);
        QCOMPARE(store.search("压力", kills).size(), i);
        QCOMPARE(faultsOf(path), QStringList{"ok"});
    }
}

// Runs programs that each add conversations to the file, and returns whether all of them could.
bool TestConversationStorePrograms::addAtOnce(const QString &path, int programCount, int conversations)
{
    std::vector<std::unique_ptr<WriterProcess>> programs;
    for (int i = 0; i < programCount; ++i)
        programs.push_back(std::make_unique<WriterProcess>(
            QStringList{"add", path, "program " + QString::number(i), QString::number(conversations)}));
    const auto failures = std::count_if(programs.cbegin(), programs.cend(), [](const auto &program) {
        return !program->waitForFinished(programLimitMs) || program->exitCode() != EXIT_SUCCESS;
    });
    return failures == 0;
}

void TestConversationStorePrograms::programsThatWriteAtOnceLoseNothing()
{
    const QString path = m_folder.filePath("shared.sqlite");
    QVERIFY(addAtOnce(path, 4, 100));
    ConversationStore store;
    QVERIFY(store.open(path));
    QMap<QString, int> counts;
    for (const ConversationEntry &entry : store.list()) {
        ++counts[entry.title];
        QCOMPARE(store.load(entry.id).messages.last().message.content, "压力压力压力");
    }
    QCOMPARE(counts.values(), QList<int>({100, 100, 100, 100}));
    QCOMPARE(faultsOf(path), QStringList{"ok"});
}

void TestConversationStorePrograms::programsMayBeginAFileAtOnce()
{
    for (int i = 0; i < 20; ++i) {
        const QString path = m_folder.filePath(QStringLiteral("new/%1/store.sqlite").arg(i));
        QVERIFY(addAtOnce(path, 4, 1));
        ConversationStore store;
        QVERIFY(store.open(path));
        QCOMPARE(store.list().size(), 4);
    }
}

void TestConversationStorePrograms::programsMayFindADamagedFileAtOnce()
{
    for (int i = 0; i < 20; ++i) {
        const QDir folder(m_folder.filePath(QStringLiteral("damaged %1").arg(i)));
        const QString path = folder.filePath("store.sqlite");
        QFile file(path);
        QVERIFY(folder.mkpath(".") && file.open(QIODevice::WriteOnly) && file.write("Dear diary,\n") > 0);
        file.close();
        QVERIFY(addAtOnce(path, 4, 1));
        ConversationStore store;
        QVERIFY(store.open(path));
        QCOMPARE(store.list().size(), 4);
        store.close();
        QCOMPARE(filesIn(folder.path()).keys(), QStringList({"store.sqlite", "store.sqlite.damaged-1"}));
        QCOMPARE(filesIn(folder.path()).last(), QByteArray("Dear diary,\n"));
    }
}

QTEST_GUILESS_MAIN(TestConversationStorePrograms)
#include "tst_conversationstore_programs.moc"
