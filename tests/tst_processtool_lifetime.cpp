#include "support/processtable.h"

#include <qtagent/asynctool.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What becomes of the processes, whatever happens to the objects.
class TestProcessToolLifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void programEndsWithItsChildren_data();
    void programEndsWithItsChildren();
    void cancelInTheTurnOfTheStartIsNotLost();
    void childrenThatOutliveTheProgramAreKilled();
    void programThatIsStoppedAsItFailsToStartLeavesNothing();
    void toolThatIsDeletedLeavesItsReplyRunning();
    void slotsMayDeleteEverything_data();
    void slotsMayDeleteEverything();
    void cancelEmitsNothingElse();
    void callsSideBySideKeepApart();
    void applicationThatEndsLeavesNothing_data();
    void applicationThatEndsLeavesNothing();

private:
    // The application of each test ends within it.
    std::unique_ptr<QCoreApplication> m_application;
    int m_descriptors = 0;
};

namespace {

// Runs the shell.
std::unique_ptr<ProcessTool> shell(const QString &script, const QString &argument = {})
{
    return std::make_unique<ProcessTool>("shell", "", QJsonObject(), "/bin/sh",
                                         QStringList{"-c", script, "sh", argument});
}

// A script that writes the numbers of its shell and of a child to its argument, and goes on for ever.
const char *const family = "sleep 1000 & echo $$ $! > \"$1.new\" && mv \"$1.new\" \"$1\"; wait";

QStringList numbersIn(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString(file.readAll()).split(' ') : QStringList();
}

// Waits without an event loop: whoever ends the processes has done so already.
bool haveEnded(const QStringList &numbers)
{
    const QDeadlineTimer limit(10000);
    const auto isRunning = [&numbers] {
        return std::any_of(numbers.cbegin(), numbers.cend(), isProcessRunning);
    };
    while (isRunning() && !limit.hasExpired())
        QThread::yieldCurrentThread();
    return !isRunning();
}

} // namespace

void TestProcessToolLifetime::init()
{
    static int argumentCount = 1;
    static char name[] = "test";
    static char *arguments[] = {name, nullptr};
    m_application = std::make_unique<QCoreApplication>(argumentCount, arguments);
    // What Qt opens for the first process stays open.
    QProcess::execute("/bin/true", {});
    m_descriptors = openDescriptors();
}

void TestProcessToolLifetime::cleanup()
{
    if (m_application) {
        QTRY_VERIFY(m_application->findChildren<QProcess *>().isEmpty());
        QTRY_COMPARE(openDescriptors(), m_descriptors);
    }
    m_application.reset();
    QCOMPARE(childProcesses(), QStringList());
}

void TestProcessToolLifetime::programEndsWithItsChildren_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("end");
    QTest::newRow("canceled") << family << "cancel";
    QTest::newRow("reply deleted") << family << "delete";
    QTest::newRow("time limit") << family << "time";
    QTest::newRow("output limit") << QString(family).replace("wait", "yes") << "output";
}

void TestProcessToolLifetime::programEndsWithItsChildren()
{
    QFETCH(QString, script);
    QFETCH(QString, end);
    const QTemporaryDir folder;
    const QString path = folder.filePath("numbers");
    const auto tool = shell(script, path);
    tool->setTimeLimit(end == "time" ? 500 : 0);
    std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    bool hadEnded = false;
    const auto look = [&] { hadEnded = haveEnded(numbersIn(path)); };
    connect(reply.get(), &ToolReply::finished, this, look);
    connect(reply.get(), &ToolReply::canceled, this, look);
    if (end != "output")
        QTRY_COMPARE(numbersIn(path).size(), 2);
    if (end == "cancel")
        reply->cancel();
    if (end == "delete") {
        reply.reset();
        look();
    }
    QTRY_VERIFY(hadEnded);
    QCOMPARE(numbersIn(path).size(), 2);
}

void TestProcessToolLifetime::cancelInTheTurnOfTheStartIsNotLost()
{
    const auto tool = shell("sleep 1000 & sleep 1000");
    for (int i = 0; i < 50; ++i) {
        const std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
        reply->cancel();
        QVERIFY(reply->isCanceled());
    }
    QTRY_COMPARE(childProcesses(), QStringList());
}

void TestProcessToolLifetime::childrenThatOutliveTheProgramAreKilled()
{
    // The child keeps the output open; the call does not wait for it.
    const auto tool = shell("sleep 1000 & echo $!");
    const std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    QVERIFY(finished.wait(30000));
    QVERIFY(reply->result().success);
    QVERIFY(!reply->result().content.trimmed().isEmpty());
    QTRY_VERIFY(!isProcessRunning(reply->result().content));
}

void TestProcessToolLifetime::programThatIsStoppedAsItFailsToStartLeavesNothing()
{
    ProcessTool tool("t", "d", {}, "/no/such/program", {});
    for (int i = 0; i < 20; ++i) {
        const std::unique_ptr<ToolReply> reply(tool.start({}, nullptr));
        QVERIFY(reply->isRunning());
    }
}

void TestProcessToolLifetime::toolThatIsDeletedLeavesItsReplyRunning()
{
    auto tool = shell("echo done");
    const std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    tool.reset();
    QVERIFY(finished.wait(30000));
    QCOMPARE(reply->result().content, "done\n");
}

void TestProcessToolLifetime::slotsMayDeleteEverything_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("cancels");
    QTest::newRow("success") << "echo done" << false;
    QTest::newRow("failure") << "exit 3" << false;
    QTest::newRow("output limit") << "yes" << false;
    QTest::newRow("time limit") << "sleep 1000" << false;
    QTest::newRow("canceled") << "sleep 1000" << true;
}

void TestProcessToolLifetime::slotsMayDeleteEverything()
{
    QFETCH(QString, script);
    QFETCH(bool, cancels);
    QPointer<ProcessTool> tool = shell(script).release();
    tool->setTimeLimit(500);
    QPointer<QObject> window = new QObject;
    const QPointer<ToolReply> reply = tool->start({}, window);
    const auto deleteAll = [&] {
        delete tool;
        delete window;
    };
    connect(reply, &ToolReply::finished, this, deleteAll);
    connect(reply, &ToolReply::canceled, this, deleteAll);
    if (cancels)
        reply->cancel();
    QTRY_VERIFY(!reply);
    QVERIFY(!tool && !window);
}

void TestProcessToolLifetime::cancelEmitsNothingElse()
{
    const auto tool = shell("echo done; sleep 1000");
    const std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    QSignalSpy canceled(reply.get(), &ToolReply::canceled);
    reply->cancel();
    QTRY_COMPARE(childProcesses(), QStringList());
    QTRY_VERIFY(m_application->findChildren<QProcess *>().isEmpty());
    QCOMPARE(canceled.size(), 1);
    QCOMPARE(finished.size(), 0);
}

void TestProcessToolLifetime::callsSideBySideKeepApart()
{
    QObject owner;
    const QJsonObject schema{{"properties", QJsonObject{{"n", QJsonObject()}}}};
    ProcessTool tool("echo", "", schema, "/bin/echo", {"-n", "{n}"});
    QVector<ToolReply *> replies;
    for (int i = 0; i < 20; ++i)
        replies.append(tool.start({{"n", i}}, &owner));
    for (int i = 0; i < replies.size(); ++i)
        QTRY_COMPARE(replies.at(i)->result().content, QString::number(i));
}

void TestProcessToolLifetime::applicationThatEndsLeavesNothing_data()
{
    QTest::addColumn<bool>("deletesReplyFirst");
    QTest::newRow("the reply before it") << true;
    QTest::newRow("the reply after it") << false;
}

void TestProcessToolLifetime::applicationThatEndsLeavesNothing()
{
    QFETCH(bool, deletesReplyFirst);
    const auto tool = shell("sleep 1000");
    std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    if (deletesReplyFirst)
        reply.reset();
    m_application.reset();
    reply.reset();
    QCOMPARE(childProcesses(), QStringList());
}

QTEST_APPLESS_MAIN(TestProcessToolLifetime)
#include "tst_processtool_lifetime.moc"
