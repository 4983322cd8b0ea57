#include "support/completions.h"
#include "support/loopbackserver.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// An answer that follows a schema, or does not.
class TestStructuredAnswer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsPrinted_data();
    void answerIsPrinted();
    void schemaIsSent();
};

namespace {

struct Outcome
{
    int status = -1;
    QByteArray output;
    QByteArray error;
};

Outcome runProgram(const LoopbackServer &server)
{
    QTemporaryDir folder;
    QFile profile(folder.filePath("orvane.local.json"));
    if (!profile.open(QIODevice::WriteOnly))
        return {};
    profile.write(R"({"baseUrl":")" + server.baseUrl().toUtf8() + R"(","model":"m"})");
    profile.close();
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    program.setProcessEnvironment(environment);
    program.setWorkingDirectory(folder.path());
    program.start(STRUCTURED_ANSWER, {"Where do valves leak?"});
    if (!program.waitForFinished(60000) || program.exitStatus() != QProcess::NormalExit)
        return {};
    return {program.exitCode(), program.readAllStandardOutput(), program.readAllStandardError()};
}

LoopbackAnswer answerOf(const QString &text)
{
    return LoopbackAnswer::stream({deltaEvent(text), doneEvent()});
}

} // namespace

void TestStructuredAnswer::answerIsPrinted_data()
{
    QTest::addColumn<QVector<QByteArray>>("events");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QByteArray>("error");
    using Events = QVector<QByteArray>;
    QTest::newRow("sound") << Events{deltaEvent(R"({"part":"seal","cause":"age","action":"replace"})")} << 0
                           << QByteArray("part: seal\ncause: age\naction: replace\n") << QByteArray();
    QTest::newRow("behind reasoning")
        << Events{deltaEvent(R"(<think>Hm</think>{"part":"seal","cause":"age","action":"replace"})")} << 0
        << QByteArray("part: seal\ncause: age\naction: replace\n") << QByteArray();
    QTest::newRow("a field is missing") << Events{deltaEvent(R"({"part":"seal","cause":"age"})")} << 1
                                        << QByteArray() << QByteArray("Missing required field: action\n");
    QTest::newRow("refused") << Events{"data: {\"choices\":[{\"delta\":{\"refusal\":\"No.\"}}]}\n\n"} << 1
                             << QByteArray() << QByteArray("Refused: No.\n");
    QTest::newRow("cut")
        << Events{"data: {\"choices\":[{\"delta\":{\"content\":\"{\"},\"finish_reason\":\"length\"}]}\n\n"}
        << 1 << QByteArray() << QByteArray("The answer was cut: raise maxTokens.\n");
}

void TestStructuredAnswer::answerIsPrinted()
{
    QFETCH(QVector<QByteArray>, events);
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream(events + QVector<QByteArray>{doneEvent()}));
    const Outcome outcome = runProgram(server);
    QTEST(outcome.error, "error");
    QTEST(outcome.output, "output");
    QTEST(outcome.status, "status");
}

void TestStructuredAnswer::schemaIsSent()
{
    LoopbackServer server;
    server.enqueue(answerOf("{}"));
    QCOMPARE(runProgram(server).status, 1);
    const QJsonObject format = server.requests().value(0).json["response_format"].toObject();
    QCOMPARE(format["type"], QJsonValue("json_schema"));
    const QJsonObject schema = format["json_schema"].toObject()["schema"].toObject();
    QCOMPARE(schema["required"].toArray(), (QJsonArray{"part", "cause", "action"}));
}

QTEST_GUILESS_MAIN(TestStructuredAnswer)
#include "tst_example_structured_answer.moc"
