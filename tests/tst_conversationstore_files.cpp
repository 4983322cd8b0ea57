// What a store makes of the files that it is to open: new, damaged, other programs', locked, not permitted.

#include <qtagent/store/conversationstore.h>
#include <tests/support/sqlitefile.h>

#include <QLockFile>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#ifdef Q_OS_UNIX
#    include <sys/stat.h>
#    include <unistd.h>
#endif

using namespace MireloQtLib::QtAgent;

namespace {

const QString databaseName = QStringLiteral("conversations.sqlite");
const auto ownerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;

void write(const QString &path, const QByteArray &content, qint64 offset = 0)
{
    QFile file(path);
    if (!file.open(offset == 0 ? QIODevice::WriteOnly : QIODevice::ReadWrite) || !file.seek(offset)
        || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

#ifdef Q_OS_UNIX
// Permissions do not hinder the administrator, as whom tests are often run.
class OrdinaryUser
{
public:
    explicit OrdinaryUser(const QString &folder)
    {
        constexpr uid_t nobody = 65534;
        m_isAdministrator = geteuid() == 0;
        if (m_isAdministrator
            && (chown(QFile::encodeName(folder).constData(), nobody, nobody) != 0 || seteuid(nobody) != 0))
            qFatal("cannot be another user");
    }

    ~OrdinaryUser()
    {
        if (m_isAdministrator && seteuid(0) != 0)
            qFatal("cannot be the administrator again");
    }

    Q_DISABLE_COPY(OrdinaryUser)

private:
    bool m_isAdministrator = false;
};
#endif

} // namespace

class TestConversationStoreFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingDriverIsTold();

    void init();
    void cleanup();

    void pathsMayHaveAnyCharacters();
    void pathsThatAreNoneAreRefused();
    void fileAndFolderAreForTheUserAlone();
    void folderThatIsThereStaysAsItIs();
    void emptyFileIsBegun();
    void fileIsInTheModeThatSurvivesAKill();
    void onlyWhatChangedIsWritten();

    void damagedFileIsSetAside_data();
    void damagedFileIsSetAside();
    void damagedFileTakesItsLogAlong();
    void earlierDamagedFilesAreKept();
    void damagedFileBehindALinkIsSetAside();
    void damagedFileThatAnotherProgramSetsAsideIsLocked();
    void damageThatIsFoundLaterFailsTheCall();

    void fileThatIsRefusedStaysAsItIs_data();
    void fileThatIsRefusedStaysAsItIs();
    void lockedFileIsRefused_data();
    void lockedFileIsRefused();
    void noPermissionIsTold_data();
    void noPermissionIsTold();
    void pipeIsNoFile();

private:
    QString path() const { return m_folder->filePath(databaseName); }
    void fill();
    QMap<QString, QByteArray> files() const { return filesIn(m_folder->path()); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

// It comes first: a driver that was found once stays.
void TestConversationStoreFiles::missingDriverIsTold()
{
    const QTemporaryDir folder;
    const QStringList paths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    ConversationStore store;
    QString error;
    QVERIFY(!store.open(folder.filePath(databaseName), &error));
    QCOMPARE(error, "The driver QSQLITE of Qt Sql is missing.");
    QVERIFY(filesIn(folder.path()).isEmpty());
    QCoreApplication::setLibraryPaths(paths);
    QVERIFY(store.open(folder.filePath(databaseName)));
}

void TestConversationStoreFiles::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestConversationStoreFiles::cleanup()
{
    m_folder.reset();
}

// Makes a store with a few pages of texts.
void TestConversationStoreFiles::fill()
{
    ConversationStore store;
    QVERIFY(store.open(path()));
    Conversation conversation = store.create("Pumps");
    for (int i = 0; i < 200; ++i)
        conversation.messages.append({ChatMessage::user(QString::number(i).repeated(100)), {}, {}});
    QVERIFY(store.save(&conversation));
}

void TestConversationStoreFiles::pathsMayHaveAnyCharacters()
{
    const QString odd = m_folder->filePath("a b/50%20 of? 设备#1;x='\".sqlite");
    ConversationStore store;
    QVERIFY(store.open(odd));
    const Conversation conversation = store.create("Pumps");
    store.close();
    QVERIFY(QFileInfo::exists(odd));
    QVERIFY(store.open(odd));
    QCOMPARE(store.load(conversation.id), conversation);

    // It is no address.
    QVERIFY(QDir::setCurrent(m_folder->path()));
    QVERIFY(store.open("file:x?mode=memory"));
    QVERIFY(files().contains("file:x?mode=memory"));
}

void TestConversationStoreFiles::pathsThatAreNoneAreRefused()
{
    ConversationStore store;
    for (const QString &none : {QString(), QString(), path() + QChar(QChar::Null) + "x"}) {
        QString error;
        QVERIFY(!store.open(none, &error));
        QCOMPARE(error, "The path of the database is empty, or contains a null character.");
    }
    QVERIFY(files().isEmpty());
}

void TestConversationStoreFiles::fileAndFolderAreForTheUserAlone()
{
    const QString folder = m_folder->filePath("data/program");
    ConversationStore store;
    QVERIFY(store.open(folder + '/' + databaseName));
    QVERIFY(!store.create("Pumps").id.isEmpty());
    QCOMPARE(QFile::permissions(folder), ownerOnly | QFile::ExeOwner | QFile::ExeUser);
    for (const QString suffix : {"", "-wal", "-shm"})
        QCOMPARE(QFile::permissions(folder + '/' + databaseName + suffix), ownerOnly);
}

void TestConversationStoreFiles::folderThatIsThereStaysAsItIs()
{
    const QString folder = m_folder->filePath("data");
    QVERIFY(QDir().mkdir(folder));
    const auto permissions =
        ownerOnly | QFile::ExeOwner | QFile::ExeUser | QFile::ReadGroup | QFile::ExeGroup;
    QVERIFY(QFile::setPermissions(folder, permissions));
    ConversationStore store;
    QVERIFY(store.open(folder + '/' + databaseName));
    QCOMPARE(QFile::permissions(folder), permissions);
    QCOMPARE(QFile::permissions(folder + '/' + databaseName), ownerOnly);
}

void TestConversationStoreFiles::emptyFileIsBegun()
{
    write(path(), "");
    QVERIFY(QFile::setPermissions(path(), ownerOnly | QFile::ReadOther));
    ConversationStore store;
    QVERIFY(store.open(path()));
    QVERIFY(store.setAsidePath().isEmpty());
    QVERIFY(!store.create("Pumps").id.isEmpty());
    QCOMPARE(QFile::permissions(path()), ownerOnly);
}

void TestConversationStoreFiles::fileIsInTheModeThatSurvivesAKill()
{
    fill();
    SqliteFile(path()).run("PRAGMA journal_mode = DELETE");
    ConversationStore store;
    QVERIFY(store.open(path()));
    QCOMPARE(SqliteFile(path()).run("PRAGMA journal_mode"), QStringList{"wal"});
}

void TestConversationStoreFiles::onlyWhatChangedIsWritten()
{
    fill();
    const SqliteFile file(path());
    file.run("CREATE TABLE written (key)");
    file.run(
        "CREATE TRIGGER insertion AFTER INSERT ON messages BEGIN INSERT INTO written VALUES (new.key); END");
    file.run(
        "CREATE TRIGGER change AFTER UPDATE ON messages BEGIN INSERT INTO written VALUES (new.key); END");
    ConversationStore store;
    QVERIFY(store.open(path()));
    Conversation conversation = store.load(store.list().first().id);
    conversation.messages[7].message.content += " and more";
    conversation.messages.append({ChatMessage::assistant("Yes."), {}, {}});
    QVERIFY(store.save(&conversation));
    QCOMPARE(file.run("SELECT key - (SELECT min(key) FROM messages) FROM written"),
             QStringList({"7", "200"}));
}

void TestConversationStoreFiles::damagedFileIsSetAside_data()
{
    QTest::addColumn<QByteArray>("begin");
    QTest::addColumn<int>("size");
    QTest::newRow("no database") << QByteArray("Dear diary,\n") << 12;
    QTest::newRow("two bytes") << QByteArray("xy") << 2;
    QTest::newRow("zeros") << QByteArray(10000, '\0') << 10000;
    QTest::newRow("overwritten header") << QByteArray("garbage") << -1;
    QTest::newRow("cut off") << QByteArray() << 9000;
    QTest::newRow("only the header left") << QByteArray() << 100;
}

void TestConversationStoreFiles::damagedFileIsSetAside()
{
    QFETCH(QByteArray, begin);
    QFETCH(int, size);
    fill();
    const QByteArray whole = files().value(databaseName);
    const QByteArray damaged = (begin + whole.mid(begin.size())).mid(0, size);
    write(path(), damaged);

    ConversationStore store;
    QString error = "before";
    QVERIFY2(store.open(path(), &error), qPrintable(error));
    QVERIFY(error.isEmpty());
    QCOMPARE(store.setAsidePath(), path() + ".damaged-1");
    QCOMPARE(files().value(databaseName + ".damaged-1"), damaged);
    QVERIFY(store.list(&error).isEmpty());
    QVERIFY(error.isEmpty());
    QVERIFY(!store.create("Pumps").id.isEmpty());
    store.close();
    QCOMPARE(files().keys(), QStringList({databaseName, databaseName + ".damaged-1"}));

    QVERIFY(store.open(path()));
    QVERIFY(store.setAsidePath().isEmpty());
    QCOMPARE(store.list().size(), 1);
}

void TestConversationStoreFiles::damagedFileTakesItsLogAlong()
{
    write(path(), "Dear diary,\n");
    write(path() + "-wal", "log");
    write(path() + "-shm", "index");
    ConversationStore store;
    QVERIFY(store.open(path()));
    const auto found = files();
    QCOMPARE(found.value(databaseName + ".damaged-1"), QByteArray("Dear diary,\n"));
    QCOMPARE(found.value(databaseName + ".damaged-1-wal"), QByteArray("log"));
    QVERIFY(found.contains(databaseName + ".damaged-1-shm"));
}

void TestConversationStoreFiles::earlierDamagedFilesAreKept()
{
    ConversationStore store;
    for (const QByteArray text : {"first", "second", "third"}) {
        store.close();
        write(path(), text);
        QVERIFY(store.open(path()));
    }
    QCOMPARE(store.setAsidePath(), path() + ".damaged-3");
    QCOMPARE(files().value(databaseName + ".damaged-1"), QByteArray("first"));
    QCOMPARE(files().value(databaseName + ".damaged-2"), QByteArray("second"));
    QCOMPARE(files().value(databaseName + ".damaged-3"), QByteArray("third"));
}

void TestConversationStoreFiles::damagedFileThatAnotherProgramSetsAsideIsLocked()
{
    write(path(), "Dear diary,\n");
    QLockFile other(path() + ".lock");
    QVERIFY(other.tryLock());
    ConversationStore store;
    QString error;
    QVERIFY(!store.open(path(), &error));
    QCOMPARE(error, "The database is locked by another program.");
    QVERIFY(store.setAsidePath().isEmpty());
    QCOMPARE(files().value(databaseName), QByteArray("Dear diary,\n"));
    other.unlock();
    QVERIFY2(store.open(path(), &error), qPrintable(error));
    QCOMPARE(store.setAsidePath(), path() + ".damaged-1");
    QCOMPARE(files().keys(), QStringList({databaseName, databaseName + ".damaged-1"}));
}

void TestConversationStoreFiles::damagedFileBehindALinkIsSetAside()
{
    const QString link = m_folder->filePath("link.sqlite");
    write(path(), "Dear diary,\n");
    QVERIFY(QFile::link(path(), link));
    ConversationStore store;
    QVERIFY(store.open(link));
    QCOMPARE(store.setAsidePath(),
             QFileInfo(m_folder->path()).canonicalFilePath() + '/' + databaseName + ".damaged-1");
    QVERIFY(!store.create("Pumps").id.isEmpty());
    QVERIFY(QFileInfo(link).isSymLink());
}

void TestConversationStoreFiles::damageThatIsFoundLaterFailsTheCall()
{
    fill();
    const int size = files().value(databaseName).size();
    write(path(), QByteArray(size / 2, '\xff'), size - size / 2);
    const QByteArray damaged = files().value(databaseName);

    ConversationStore store;
    QVERIFY(store.open(path()));
    QVERIFY(store.setAsidePath().isEmpty());
    const QString id = store.list().first().id;
    QString error;
    QCOMPARE(store.load(id, &error), Conversation());
    QCOMPARE(error, "The database is damaged: database disk image is malformed");
    error.clear();
    QVERIFY(!store.remove(id, &error));
    QCOMPARE(error, "The database is damaged: database disk image is malformed");
    store.close();
    QCOMPARE(files(), (QMap<QString, QByteArray>{{databaseName, damaged}}));
}

void TestConversationStoreFiles::fileThatIsRefusedStaysAsItIs_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<QString>("error");
    const QString foreign = "%1 is the database of another program.";
    QTest::newRow("another program's") << QStringList{"CREATE TABLE t (a)"} << foreign;
    QTest::newRow("another program's with a log")
        << QStringList{"PRAGMA journal_mode = WAL", "CREATE TABLE t (a)", "INSERT INTO t VALUES (1)"}
        << foreign;
    QTest::newRow("another program's with a number")
        << QStringList{"PRAGMA application_id = 252006673", "PRAGMA user_version = 1", "CREATE TABLE t (a)"}
        << foreign;
    QTest::newRow("another program's without tables") << QStringList{"PRAGMA user_version = 1"} << foreign;
    QTest::newRow("newer version") << QStringList{"fill", "PRAGMA user_version = 2"}
                                   << "%1 was written by a newer version of the program.";
    QTest::newRow("no version") << QStringList{"fill", "PRAGMA user_version = 0"} << foreign;
}

void TestConversationStoreFiles::fileThatIsRefusedStaysAsItIs()
{
    QFETCH(QStringList, statements);
    QFETCH(QString, error);
    if (statements.first() == "fill") {
        fill();
        statements.removeFirst();
    }
    // A copy, for the other program clears its log away when it ends.
    const QTemporaryDir work;
    const QString copy = work.filePath(databaseName);
    {
        const SqliteFile file(path());
        for (const QString &statement : qAsConst(statements))
            file.run(statement);
        for (const QString suffix : {"", "-wal"}) {
            if (QFileInfo::exists(path() + suffix))
                QVERIFY(QFile::copy(path() + suffix, copy + suffix));
        }
    }
    const auto before = filesIn(work.path());
    ConversationStore store;
    QString told;
    QVERIFY(!store.open(copy, &told));
    QCOMPARE(told, error.arg(copy));
    QVERIFY(!store.isOpen());
    QVERIFY(store.setAsidePath().isEmpty());
    auto after = filesIn(work.path());
    after.remove(databaseName + "-shm"); // which SQLite makes of the log
    QCOMPARE(after, before);
}

void TestConversationStoreFiles::lockedFileIsRefused_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::newRow("writer") << QStringList{"BEGIN IMMEDIATE"};
    QTest::newRow("exclusive writer") << QStringList{"BEGIN EXCLUSIVE"};
    QTest::newRow("exclusive writer without a log")
        << QStringList{"PRAGMA journal_mode = DELETE", "BEGIN EXCLUSIVE"};
}

void TestConversationStoreFiles::lockedFileIsRefused()
{
    QFETCH(QStringList, statements);
    fill();
    const SqliteFile file(path());
    for (const QString &statement : qAsConst(statements))
        file.run(statement);
    const QByteArray before = files().value(databaseName);
    ConversationStore store;
    QString error;
    QVERIFY(!store.open(path(), &error));
    QCOMPARE(error, "The database is locked by another program.");
    QCOMPARE(files().value(databaseName), before);
    file.run("ROLLBACK");
    QVERIFY(store.open(path()));
    QCOMPARE(store.list().size(), 1);

    file.run("BEGIN IMMEDIATE");
    QCOMPARE(store.create("Valves", &error), Conversation());
    QCOMPARE(error, "The database is locked by another program.");
    QCOMPARE(store.list().size(), 1); // reading goes on
}

void TestConversationStoreFiles::noPermissionIsTold_data()
{
    QTest::addColumn<int>("filePermissions");
    QTest::addColumn<int>("folderPermissions");
    QTest::addColumn<QString>("error");
    QTest::newRow("to read") << 0 << 0700 << "The database cannot be used: unable to open database file";
    QTest::newRow("to write") << 0400 << 0700
                              << "The database cannot be used: attempt to write a readonly database";
    QTest::newRow("to make the file") << -1 << 0500 << "%1 cannot be made.";
}

void TestConversationStoreFiles::noPermissionIsTold()
{
#ifdef Q_OS_UNIX
    QFETCH(int, filePermissions);
    QFETCH(int, folderPermissions);
    QFETCH(QString, error);
    const OrdinaryUser user(m_folder->path());
    if (filePermissions >= 0) {
        fill();
        QCOMPARE(chmod(QFile::encodeName(path()).constData(), static_cast<mode_t>(filePermissions)), 0);
    }
    const QByteArray folder = QFile::encodeName(m_folder->path());
    QCOMPARE(chmod(folder.constData(), static_cast<mode_t>(folderPermissions)), 0);
    const QByteArray before = files().value(databaseName);
    ConversationStore store;
    QString told;
    QVERIFY(!store.open(path(), &told));
    QCOMPARE(told, error.contains("%1") ? error.arg(path()) : error);
    QCOMPARE(files().value(databaseName), before);
    QCOMPARE(chmod(folder.constData(), 0700), 0);
#else
    QSKIP("Files have other permissions here");
#endif
}

void TestConversationStoreFiles::pipeIsNoFile()
{
#ifdef Q_OS_UNIX
    QCOMPARE(mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
    ConversationStore store;
    QString error;
    for (const QString &none : {path(), QString("/dev/zero"), m_folder->path()}) {
        QVERIFY(!store.open(none, &error));
        QCOMPARE(error, none + " is not a file.");
    }
#else
    QSKIP("There are no pipes among the files here");
#endif
}

QTEST_GUILESS_MAIN(TestConversationStoreFiles)
#include "tst_conversationstore_files.moc"
