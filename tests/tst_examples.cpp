#include "support/httpendpoint.h"
#include "support/offlineconfiguration.h"

#include <QProcess>
#include <QTemporaryFile>
#include <QtTest>

namespace {

const QString mockAnswer(
    "Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。 \n");

struct Outcome
{
    int status = -1;
    QString output;
    QString error;
};

// What a program prints, and its exit status, or -1 where it crashed.
Outcome run(const QString &program, const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    environment.remove("QT_LOGGING_RULES");
    process.setProcessEnvironment(environment);
    process.start(EXAMPLE_DIR "/" + program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit)
        return {-1, QString(), process.errorString()};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString drafts(int count)
{
    QString text;
    for (int draft = 1; draft <= count; ++draft)
        text += QString("draft {\"drafts\":%1}\n").arg(draft);
    return text;
}

} // namespace

// Console programs, with all that their user sees.
class TestExamples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void printsItsAnswer_data();
    void printsItsAnswer();
    void failsWithoutAnAnswer_data();
    void failsWithoutAnAnswer();
    void streamReplyTellsWhatTheServiceRefused();
    void processToolSearchesAFile_data();
    void processToolSearchesAFile();

private:
    const OfflineConfiguration m_configuration;
};

void TestExamples::printsItsAnswer_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("output");
    const QString pump = "- The pump runs at night. It has to stop at a pressure of 8 bar.\n";
    const QString valve = "- The valve opens at a pressure of 6 bar.\n";
    const QString question = "Go on with send? [y/n] ";
    const auto add = [](const char *row, const QStringList &command, const QByteArray &input,
                        const QString &output) { QTest::addRow("%s", row) << command << input << output; };
    add("answer of the mock model", {"stream_reply"}, "", mockAnswer);
    add("fields of an object", {"json_chain", "valves", "question", "answer"}, "",
        "question: Explain valves as a JSON object with the fields question, answer.\n"
        "answer: Ask a real model.\n");
    add("best document first", {"retrieval", "When does the pump stop?"}, "",
        pump + valve + '\n' + mockAnswer);
    add("documents depend on the question", {"retrieval", "How many litres?"}, "",
        "- The tank holds 400 litres.\n" + valve + '\n' + mockAnswer);
    add("graph resumes once approved", {"review_graph"}, "y\n",
        drafts(3) + question + "send {\"approved\":true,\"drafts\":3,\"sent\":true}\n");
    add("graph ends where denied", {"review_graph", "3"}, "n\n", drafts(3) + question);
    add("no answer is a denial", {"review_graph", "1"}, "", drafts(1) + question);
    add("opinions and their summary", {"parallel_branches"}, "",
        "opinions/cost: " + mockAnswer + "opinions/safety: " + mockAnswer + "opinions/time: " + mockAnswer
            + "summary/summary: " + mockAnswer);
}

void TestExamples::printsItsAnswer()
{
    QFETCH(QStringList, command);
    QFETCH(QByteArray, input);
    const Outcome outcome = run(command.first(), command.mid(1), input);
    QCOMPARE(outcome.error, QString());
    QTEST(outcome.output, "output");
    QCOMPARE(outcome.status, 0);
}

void TestExamples::failsWithoutAnAnswer_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("error");
    QTest::addRow("missing field") << QStringList{"json_chain", "valves", "price"} << ""
                                   << "Missing required field: price\n";
    QTest::addRow("too many steps") << QStringList{"review_graph", "33"} << drafts(32)
                                    << "Graph exceeded max steps: 32\n";
    QTest::addRow("no service") << QStringList{"structured_answer"} << ""
                                << "No service is configured.\n";
#ifdef HAS_MCP_WINDOW
    QTest::addRow("no MCP server") << QStringList{"mcp_window"} << ""
                                   << "Usage: mcp_window ADDRESS, or mcp_window PROGRAM ARGUMENTS\n";
#endif
}

void TestExamples::failsWithoutAnAnswer()
{
    QFETCH(QStringList, command);
    const Outcome outcome = run(command.first(), command.mid(1), QByteArray());
    QTEST(outcome.output, "output");
    QTEST(outcome.error, "error");
    QCOMPARE(outcome.status, 1);
}

void TestExamples::streamReplyTellsWhatTheServiceRefused()
{
    HttpEndpoint endpoint;
    endpoint.addRefusal();
    m_configuration.write(
        {{"provider", "openai"}, {"baseUrl", endpoint.server.baseUrl()}, {"model", "test-model"}});
    const Outcome outcome = run("stream_reply", {}, QByteArray());
    QCOMPARE(outcome.output, "\n");
    QVERIFY(outcome.error.startsWith("OpenAI-compatible request failed."));
    QVERIFY(outcome.error.contains("bad key"));
    QCOMPARE(outcome.status, 1);
}

void TestExamples::processToolSearchesAFile_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("error");
    QTest::addRow("lines with the text") << "valve"
                                         << "2:A valve -e sticks.\n3:The valve opens.\n"
                                         << "";
    QTest::addRow("a text that looks like an option") << "-e"
                                                      << "2:A valve -e sticks.\n"
                                                      << "";
    QTest::addRow("no such text") << "tank"
                                  << ""
                                  << "Program ended with code 1.";
}

void TestExamples::processToolSearchesAFile()
{
    QFETCH(QString, text);
    QTemporaryFile log;
    QVERIFY(log.open());
    log.write("The pump runs.\nA valve -e sticks.\nThe valve opens.\n");
    log.close();
    const Outcome outcome = run("process_tool", {log.fileName(), text}, QByteArray());
    QTEST(outcome.output, "output");
    QTEST(outcome.error, "error");
    QCOMPARE(outcome.status == 0, outcome.error.isEmpty());
}

QTEST_GUILESS_MAIN(TestExamples)
#include "tst_examples.moc"
