#include "support/httpendpoint.h"
#include "support/offlineconfiguration.h"

#include <QProcess>
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

QTEST_GUILESS_MAIN(TestExamples)
#include "tst_examples.moc"
