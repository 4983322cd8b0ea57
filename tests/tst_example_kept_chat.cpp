#include <qtagent/store/conversationstore.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const QString mockAnswer = QStringLiteral(
    "Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。");

} // namespace

class TestKeptChat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void chatGoesOnAtTheNextStart();
    void wordsAreFound();
    void damagedFileIsTold();
    void fileThatCannotBeOpenedIsTold();

private:
    QString path() const { return m_folder.filePath("chats.sqlite"); }
    // Returns what the program printed, and its messages behind that.
    QString run(const QStringList &arguments, int expectedStatus = EXIT_SUCCESS);

    QTemporaryDir m_folder;
};

QString TestKeptChat::run(const QStringList &arguments, int expectedStatus)
{
    constexpr int limitMs = 60000;
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    program.setProcessEnvironment(environment);
    program.start(KEPT_CHAT, arguments);
    if (!program.waitForFinished(limitMs) || program.exitCode() != expectedStatus)
        return "status " + QString::number(program.exitCode());
    return QString::fromUtf8(program.readAllStandardOutput() + program.readAllStandardError());
}

void TestKeptChat::chatGoesOnAtTheNextStart()
{
    QVERIFY(run({path(), "What is a valve?"}).startsWith(mockAnswer));
    QVERIFY(run({path(), "And a pump?"}).startsWith(mockAnswer));
    ConversationStore store;
    QVERIFY(store.open(path()));
    QCOMPARE(store.list().size(), 1);
    const auto messages = store.load(store.list().first().id).chatMessages();
    QCOMPARE(messages.size(), 4);
    QCOMPARE(messages.at(0), ChatMessage::user("What is a valve?"));
    QVERIFY(messages.at(1).content.startsWith(mockAnswer));
    QCOMPARE(messages.at(2), ChatMessage::user("And a pump?"));
}

void TestKeptChat::wordsAreFound()
{
    QCOMPARE(run({path(), "--find", "PUMP"}), "Chat, message 2: And a pump?\n");
    QCOMPARE(run({path(), "--find", "tank"}), "");
}

void TestKeptChat::damagedFileIsTold()
{
    const QString damaged = m_folder.filePath("damaged.sqlite");
    QFile file(damaged);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("Dear diary,\n") > 0);
    file.close();
    QCOMPARE(run({damaged, "--find", "diary"}),
             "The chats could not be read. They are in " + damaged + ".damaged-1.\n");
}

void TestKeptChat::fileThatCannotBeOpenedIsTold()
{
    QCOMPARE(run({m_folder.path(), "Hello"}, EXIT_FAILURE), m_folder.path() + " is not a file.\n");
}

QTEST_GUILESS_MAIN(TestKeptChat)
#include "tst_example_kept_chat.moc"
