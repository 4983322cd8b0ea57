#include <assistant/folder.h>
#include <assistant/foldertools.h>

#include <QTemporaryDir>
#include <QtTest>

#ifdef Q_OS_UNIX
#    include <sys/stat.h>
#    include <unistd.h>
#endif

using namespace MireloQtLib::QtAgent;

class TestFolder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void namesAreListed();
    void textIsReadAndWritten();
    void nothingOutsideIsReached_data();
    void nothingOutsideIsReached();
    void linksInsideAreFollowed();
    void linkThatLeadsNowhereIsNotWritten();
    void whatIsNoTextIsNotRead_data();
    void whatIsNoTextIsNotRead();
    void folderThatIsGoneHasNothing();
    void toolsAskOnlyBeforeWriting();
    void writingIsExplained_data();
    void writingIsExplained();
    void argumentsMayBeAnything();

private:
    QString inside(const QString &name) const { return m_place->filePath("folder/" + name); }
    QString outside(const QString &name) const { return m_place->filePath(name); }
    static void write(const QString &path, const QByteArray &content)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(path));
    }
    static QByteArray contentOf(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("?");
    }

    QScopedPointer<QTemporaryDir> m_place;
};

void TestFolder::init()
{
    m_place.reset(new QTemporaryDir);
    QVERIFY(QDir().mkpath(inside("plans")));
    QVERIFY(QDir().mkpath(outside("folder2")));
    write(inside("notes.txt"), "Valve 7 leaks.");
    write(outside("secret.txt"), "secret");
    write(outside("folder2/secret.txt"), "secret");
    QVERIFY(QFile::link(outside("secret.txt"), inside("link.txt")));
    QVERIFY(QFile::link(m_place->path(), inside("up")));
    QVERIFY(QFile::link(outside("missing.txt"), inside("dangling.txt")));
}

void TestFolder::namesAreListed()
{
    const Folder folder(inside(""));
    QString error;
    QCOMPARE(folder.list("", &error), QStringList({"link.txt", "notes.txt", "plans/", "up/"}));
    QCOMPARE(error, QString());
    QCOMPARE(folder.list("plans", &error), QStringList());
    QCOMPARE(error, QString());
    QCOMPARE(folder.list("notes.txt", &error), QStringList());
    QCOMPARE(error, "This is not a folder.");
}

void TestFolder::textIsReadAndWritten()
{
    const Folder folder(inside(""));
    QString error;
    QCOMPARE(folder.read("notes.txt", &error), "Valve 7 leaks.");
    QVERIFY2(folder.write("plans/new.txt", "阀门", &error), qPrintable(error));
    QCOMPARE(contentOf(inside("plans/new.txt")), QByteArray("阀门"));
    QVERIFY(folder.write("notes.txt", "Repaired.", &error));
    QCOMPARE(folder.read("notes.txt", &error), "Repaired.");
    QVERIFY(!folder.write("plans", "x", &error));
    QCOMPARE(error, "This is not a file.");
    QVERIFY(!folder.write("missing/new.txt", "x", &error));
    QCOMPARE(error, "There is no such path in the folder.");
}

void TestFolder::nothingOutsideIsReached_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("above") << "../secret.txt";
    QTest::newRow("above, around a folder") << "plans/../../secret.txt";
    QTest::newRow("absolute") << "ABSOLUTE";
    QTest::newRow("a neighbour whose name begins alike") << "../folder2/secret.txt";
    QTest::newRow("a link to a file") << "link.txt";
    QTest::newRow("a link to a folder") << "up/secret.txt";
    QTest::newRow("a link to a folder and back") << "up/folder/../secret.txt";
    QTest::newRow("a NUL") << QString("notes.txt") + QChar(0);
    QTest::newRow("the folder above") << "..";
    QTest::newRow("a new file above") << "../new.txt";
    QTest::newRow("a new file behind a link") << "up/new.txt";
}

void TestFolder::nothingOutsideIsReached()
{
    QFETCH(QString, path);
    if (path == "ABSOLUTE")
        path = outside("secret.txt");
    const Folder folder(inside(""));
    QString error;
    QCOMPARE(folder.read(path, &error), QString());
    QCOMPARE(error, "There is no such path in the folder.");
    QCOMPARE(folder.list(path, &error), QStringList());
    QCOMPARE(error, "There is no such path in the folder.");
    QVERIFY(!folder.write(path, "changed", &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(contentOf(outside("secret.txt")), QByteArray("secret"));
    QCOMPARE(contentOf(outside("folder2/secret.txt")), QByteArray("secret"));
    QVERIFY(!QFile::exists(outside("new.txt")));
}

void TestFolder::linksInsideAreFollowed()
{
    QVERIFY(QFile::link(inside("notes.txt"), inside("plans/today.txt")));
    const Folder folder(inside(""));
    QString error;
    QCOMPARE(folder.read("plans/today.txt", &error), "Valve 7 leaks.");
    QVERIFY(QFile::link(inside(""), outside("alias")));
    QCOMPARE(Folder(outside("alias")).read("notes.txt", &error), "Valve 7 leaks.");
}

void TestFolder::linkThatLeadsNowhereIsNotWritten()
{
    const Folder folder(inside(""));
    QString error;
    QVERIFY(!folder.write("dangling.txt", "x", &error));
    QVERIFY(!QFile::exists(outside("missing.txt")));
}

void TestFolder::whatIsNoTextIsNotRead_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("expected");
    QTest::newRow("bytes") << QByteArray("a\0b", 3) << "The file is not a text in UTF-8.";
    QTest::newRow("another encoding") << QByteArray("\xb7\xa7\xc3\xc5") << "The file is not a text in UTF-8.";
    QTest::newRow("too much") << QByteArray(256 * 1024 + 1, 'x') << "The file has more than 256 KiB.";
    QTest::newRow("as much as may be") << QByteArray(256 * 1024, 'x') << "";
}

void TestFolder::whatIsNoTextIsNotRead()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, expected);
    write(inside("file"), content);
    QString error;
    Folder(inside("")).read("file", &error);
    QCOMPARE(error, expected);
#ifdef Q_OS_UNIX
    QCOMPARE(mkfifo(QFile::encodeName(inside("fifo")).constData(), 0600), 0);
    Folder(inside("")).read("fifo", &error);
    QCOMPARE(error, "This file cannot be read.");
#endif
}

void TestFolder::folderThatIsGoneHasNothing()
{
    const Folder folder(inside("missing"));
    QString error;
    QVERIFY(!folder.isValid());
    QVERIFY(!Folder("").isValid());
    QCOMPARE(folder.list("", &error), QStringList());
    QCOMPARE(error, "There is no such path in the folder.");
    QVERIFY(!folder.write("tmp", "x", &error));
}

void TestFolder::toolsAskOnlyBeforeWriting()
{
    QObject parent;
    const QVector<AgentTool *> tools = createFolderTools(Folder(inside("")), &parent);
    QCOMPARE(tools.size(), 3);
    QCOMPARE(tools.at(0)->permission(), ToolPermission::ReadOnly);
    QCOMPARE(tools.at(1)->permission(), ToolPermission::ReadOnly);
    QCOMPARE(tools.at(2)->name(), "write_file");
    QVERIFY(requiresApproval(tools.at(2)->permission()));
    QCOMPARE(tools.at(1)->invoke({{"path", "notes.txt"}}).content, "Valve 7 leaks.");
    QVERIFY(tools.at(2)->invoke({{"path", "b.txt"}, {"content", "B"}}).success);
    QCOMPARE(contentOf(inside("b.txt")), QByteArray("B"));
}

void TestFolder::writingIsExplained_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("an existing file") << "plans/../notes.txt"
                                      << "将替换已有的文件：ROOT/notes.txt";
    QTest::newRow("a new one") << "plans/new.txt"
                               << "将新建文件：ROOT/plans/new.txt";
    QTest::newRow("a link to a file") << "plans/today.txt"
                                      << "将替换已有的文件：ROOT/notes.txt";
    QTest::newRow("a new file behind a link") << "alias/new.txt"
                                              << "将新建文件：ROOT/plans/new.txt";
    QTest::newRow("outside") << "up/new.txt"
                             << "不能写入这个路径，调用会失败。";
    QTest::newRow("a link outside") << "link.txt"
                                    << "不能写入这个路径，调用会失败。";
    QTest::newRow("line breaks") << QString("a\nb\u2028c\u0085d")
                                 << "将新建文件：ROOT/aU+000AbU+2028cU+0085d";
}

void TestFolder::writingIsExplained()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QVERIFY(QFile::link(inside("notes.txt"), inside("plans/today.txt")));
    QVERIFY(QFile::link(inside("plans"), inside("alias")));
    expected.replace("ROOT", QFileInfo(inside("")).canonicalFilePath());
    QCOMPARE(explainWriting(Folder(inside("")), {{"path", path}, {"content", "x"}}), expected);
}

void TestFolder::argumentsMayBeAnything()
{
    QObject parent;
    for (AgentTool *tool : createFolderTools(Folder(inside("")), &parent)) {
        tool->invoke({});
        tool->invoke({{"path", 7}, {"content", QJsonArray()}});
        const ToolResult result = tool->invoke({{"path", "../secret.txt"}, {"content", "x"}});
        QVERIFY(!result.success);
        QVERIFY(!result.error.contains("secret"));
    }
    QCOMPARE(contentOf(outside("secret.txt")), QByteArray("secret"));
}

QTEST_GUILESS_MAIN(TestFolder)
#include "tst_folder.moc"
