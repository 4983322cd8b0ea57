#include "support/eventloop.h"

#include <qtagent/testing/recordingmodel.h>
#include <qtagent/testing/replaymodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

QVector<ChatMessage> asking(const QString &text)
{
    return {ChatMessage::system("You are brief."), ChatMessage::user(text)};
}

QString failureOf(ChatModel *model, const QVector<ChatMessage> &messages,
                  const QVector<ToolDefinition> &tools = {})
{
    const std::unique_ptr<ChatReply> reply(model->chat(messages, tools, nullptr));
    runUntilQuiet();
    return reply->error();
}

QStringList linesOf(ChatModel *model, const QVector<ChatMessage> &messages)
{
    const std::unique_ptr<ChatReply> reply(model->chat(messages, {}, nullptr));
    const ReplyRecorder recorder(reply.get());
    runUntilQuiet();
    return recorder.lines();
}

ToolDefinition toolWith(const QJsonObject &parameters)
{
    return {"read", "Reads.", parameters, ToolPermission::ReadOnly};
}

const QByteArray head = "{\"recording\":1}\n";

QByteArray lineOf(const QByteArray &entries)
{
    return R"({"request":{"messages":[],"tools":[]},"signals":[)" + entries + "]}\n";
}

} // namespace

class TestReplayModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void replyComesAsItWasRecorded();
    void endThatTheProgramMadeIsSilence();
    void recordedRequestIsAnsweredOnce();
    void sameRequestsAreAnsweredInTheirOrder();
    void emptyAndMissingContentDiffer();
    void permissionsAndMetadataDoNotMatter();
    void firstDifferenceIsTold_data();
    void firstDifferenceIsTold();
    void nearestUnusedRequestIsCompared();
    void hiddenTextsOfARequestMatch_data();
    void hiddenTextsOfARequestMatch();
    void hiddenNamesOfARequestMatch();
    void paceIsThatOfTheRecording();
    void endlessPauseIsLong();
    void negativeSpeedIsAtOnce();
    void unusableFileIsTold_data();
    void unusableFileIsTold();
    void missingFileIsTold();
    void lineEndsOfOtherSystemsAreRead();
    void nothingIsEmittedBeforeTheCallReturns();
    void replyMayBeDeletedAtEveryEmission();

private:
    void write(const QByteArray &bytes) const
    {
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(bytes), bytes.size());
    }

    // Records what the model answers to each text.
    void record(ScriptedModel *model, const QStringList &questions) const
    {
        RecordingModel recording(model, m_path);
        for (const QString &question : questions) {
            recording.chat(asking(question), {}, nullptr);
            runUntilQuiet();
        }
        QCOMPARE(recording.error(), "");
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_path;
};

void TestReplayModel::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_path = m_folder->filePath("recording.jsonl");
}

void TestReplayModel::replyComesAsItWasRecorded()
{
    ScriptedModel model;
    model.addText({"Hel", "lo \"压力\"\n\\"});
    model.addToolCalls({makeToolCall("c1", "read", {{"a", 0.1}})}, "Let me see.");
    model.addFailure("refused\nby nobody");
    record(&model, {"1", "2", "3"});
    ReplayModel replay(m_path);
    QCOMPARE(linesOf(&replay, asking("1")),
             QStringList({"delta: Hel", "delta: lo \"压力\"\n\\", "finished: Hello \"压力\"\n\\"}));
    ChatReply *calls = replay.chat(asking("2"), {}, nullptr);
    const ReplyRecorder recorder(calls);
    runUntilQuiet();
    QCOMPARE(recorder.lines(), QStringList({"response", "delta: Let me see.", "finished: Let me see."}));
    QCOMPARE(calls->toolCalls(), QJsonArray{makeToolCall("c1", "read", {{"a", 0.1}})});
    QCOMPARE(linesOf(&replay, asking("3")), QStringList("failed: refused\nby nobody"));
}

void TestReplayModel::endThatTheProgramMadeIsSilence()
{
    write(head + lineOf(R"([0,"delta","a"],[5,"canceled"])") + lineOf(R"([0,"deleted"])"));
    ReplayModel replay(m_path);
    QCOMPARE(linesOf(&replay, {}), QStringList("delta: a"));
    ChatReply *silent = replay.chat({}, {}, nullptr);
    runUntilQuiet();
    QVERIFY(silent->isRunning());
}

void TestReplayModel::recordedRequestIsAnsweredOnce()
{
    ScriptedModel model;
    model.addText({"a"});
    record(&model, {"1"});
    ReplayModel replay(m_path);
    QCOMPARE(failureOf(&replay, asking("1")), "");
    QCOMPARE(failureOf(&replay, asking("1")), "No recording of this request. First difference: it was asked "
                                              "more often than it was recorded");
    QCOMPARE(failureOf(&replay, asking("2")),
             "No recording of this request. First difference: every recorded request was asked already");
}

void TestReplayModel::sameRequestsAreAnsweredInTheirOrder()
{
    ScriptedModel model;
    model.addText({"first"});
    model.addText({"second"});
    record(&model, {"1", "1"});
    ReplayModel replay(m_path);
    QCOMPARE(linesOf(&replay, asking("1")).last(), "finished: first");
    QCOMPARE(linesOf(&replay, asking("1")).last(), "finished: second");
}

void TestReplayModel::emptyAndMissingContentDiffer()
{
    ScriptedModel model;
    model.addText({"a"});
    {
        RecordingModel recording(&model, m_path);
        recording.chat({ChatMessage::user("")}, {}, nullptr);
        runUntilQuiet();
    }
    ReplayModel replay(m_path);
    QCOMPARE(
        failureOf(&replay, {ChatMessage::user(QString())}),
        "No recording of this request. First difference: message 1, content: recorded \"\", asked nothing");
}

void TestReplayModel::permissionsAndMetadataDoNotMatter()
{
    ScriptedModel model;
    model.addText({"a"});
    ToolDefinition tool{"read", "Reads.", {}, ToolPermission::Write};
    QVector<ChatMessage> messages = asking("1");
    {
        RecordingModel recording(&model, m_path);
        recording.chat(messages, {tool}, nullptr);
        runUntilQuiet();
    }
    tool.permission = ToolPermission::ReadOnly;
    messages.first().metadata = {{"private", true}};
    ReplayModel replay(m_path);
    QCOMPARE(failureOf(&replay, messages, {tool}), "");
}

void TestReplayModel::firstDifferenceIsTold_data()
{
    QTest::addColumn<QVector<ChatMessage>>("messages");
    QTest::addColumn<QVector<ToolDefinition>>("tools");
    QTest::addColumn<QString>("difference");
    const QVector<ToolDefinition> noTools;
    QTest::newRow("content") << asking("Is it off?") << noTools
                             << R"(message 2, content: recorded "Is it on?", asked "Is it off?")";
    QTest::newRow("role") << QVector<ChatMessage>{ChatMessage::user("You are brief.")} << noTools
                          << R"(message 1, role: recorded "system", asked "user")";
    QTest::newRow("message is missing")
        << asking("").mid(0, 1) << noTools
        << R"(message 2: recorded {"content":"Is it on?","role":"user"}, asked nothing)";
    QTest::newRow("message too many")
        << asking("Is it on?") + asking("") << noTools
        << QString(R"(message 3: recorded nothing, asked {"content":"You are brief.","role":"system"})");
    QTest::newRow("tool")
        << asking("Is it on?") << QVector<ToolDefinition>{{"read", "Reads.", {}, ToolPermission::ReadOnly}}
        << R"(tool 1: recorded nothing, asked {"function":{"description":"Reads.","name":"read",)"
           R"("parameters":{}},"type":"function"})";
    QTest::newRow("call of a tool")
        << QVector<ChatMessage>{ChatMessage::system("You are brief."),
                                ChatMessage::assistant("Is it on?", {makeToolCall("c1", "read", {})})}
        << noTools << R"(message 2, role: recorded "user", asked "assistant")";
    QTest::newRow("long text") << asking("Is it on?" + QString(100, 'x')) << noTools
                               << R"(message 2, content: recorded "Is it on?", asked "Is it on?)"
                                      + QString(40, 'x') + "…\"";
}

void TestReplayModel::firstDifferenceIsTold()
{
    QFETCH(QVector<ChatMessage>, messages);
    QFETCH(QVector<ToolDefinition>, tools);
    QFETCH(QString, difference);
    ScriptedModel model;
    model.addText({"a"});
    record(&model, {"Is it on?"});
    ReplayModel replay(m_path);
    QCOMPARE(failureOf(&replay, messages, tools),
             "No recording of this request. First difference: " + difference);
    QCOMPARE(failureOf(&replay, asking("Is it on?")), ""); // nothing was used
}

void TestReplayModel::nearestUnusedRequestIsCompared()
{
    const QVector<ChatMessage> longer = asking("1") + QVector<ChatMessage>{ChatMessage::user("x")};
    ScriptedModel model;
    model.addText({"a"});
    model.addText({"b"});
    {
        RecordingModel recording(&model, m_path);
        recording.chat({ChatMessage::user("first")}, {}, nullptr);
        recording.chat(longer, {}, nullptr);
        runUntilQuiet();
    }
    ReplayModel replay(m_path);
    QCOMPARE(
        failureOf(&replay, asking("1") + QVector<ChatMessage>{ChatMessage::user("y")}),
        R"(No recording of this request. First difference: message 3, content: recorded "x", asked "y")");
}

void TestReplayModel::hiddenTextsOfARequestMatch_data()
{
    QTest::addColumn<QString>("asked");
    QTest::addColumn<QString>("difference");
    QTest::newRow("as recorded") << "Is localhost at localhost on?"
                                 << "";
    QTest::newRow("as written") << "Is [hidden] at [hidden] on?"
                                << "";
    QTest::newRow("on another machine") << "Is pump.local at pump.local on?"
                                        << "";
    QTest::newRow("before it") << "At localhost on?"
                               << R"(recorded "Is [hidden] at [hidden] on?", asked "At localhost on?")";
    QTest::newRow("between them") << "Is localhost on?"
                                  << R"(recorded "Is [hidden] at [hidden] on?", asked "Is localhost on?")";
    QTest::newRow("behind them")
        << "Is localhost at localhost off?"
        << R"(recorded "Is [hidden] at [hidden] on?", asked "Is localhost at localhost off?")";
}

void TestReplayModel::hiddenTextsOfARequestMatch()
{
    QFETCH(QString, asked);
    QFETCH(QString, difference);
    ModelConfig config;
    config.baseUrl = "http://localhost/v1";
    ScriptedModel model;
    model.setConfig(config);
    model.addText({"a"});
    record(&model, {"Is localhost at localhost on?"});
    ReplayModel replay(m_path);
    QCOMPARE(failureOf(&replay, asking(asked)),
             difference.isEmpty()
                 ? QString()
                 : "No recording of this request. First difference: message 2, content: " + difference);
    if (difference.isEmpty())
        QVERIFY(failureOf(&replay, asking(asked)).endsWith("it was asked more often than it was recorded"));
}

void TestReplayModel::hiddenNamesOfARequestMatch()
{
    ModelConfig config;
    config.apiKey = "sk-1234567890";
    ScriptedModel model;
    model.setConfig(config);
    model.addText({"a"});
    {
        RecordingModel recording(&model, m_path);
        recording.chat({}, {toolWith({{"sk-1234567890", 1}, {"b", 2}})}, nullptr);
        runUntilQuiet();
    }
    ReplayModel replay(m_path);
    const QString difference =
        "No recording of this request. First difference: tool 1, function, parameters, ";
    QCOMPARE(failureOf(&replay, {}, {toolWith({{"sk-1234567890", 3}, {"b", 2}})}),
             difference + "[hidden]: recorded 1, asked 3");
    QCOMPARE(failureOf(&replay, {}, {toolWith({{"sk-1234567890", 1}, {"c", 1}})}),
             difference + "b: recorded 2, asked nothing");
    QCOMPARE(failureOf(&replay, {}, {toolWith({{"sk-1234567890", 1}, {"b", 2}})}), "");
}

void TestReplayModel::paceIsThatOfTheRecording()
{
    write(head + lineOf(R"([40,"delta","a"],[80,"finished","a"])")
          + lineOf(R"([40,"delta","a"],[80,"finished","a"])"));
    ReplayModel replay(m_path);
    for (const int factor : {1, 2}) {
        replay.setSpeed(factor);
        QElapsedTimer clock;
        clock.start();
        ChatReply *reply = replay.chat({}, {}, nullptr);
        ReplyRecorder recorder(reply);
        QSignalSpy delta(reply, &ChatReply::deltaReceived);
        QVERIFY(delta.wait());
        QVERIFY(clock.elapsed() >= 40 / factor - 1); // a precise timer may be a millisecond early
        QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
        QVERIFY(clock.elapsed() >= 80 / factor - 2);
        QCOMPARE(recorder.lines(), QStringList({"delta: a", "finished: a"}));
    }
}

void TestReplayModel::endlessPauseIsLong()
{
    write(head + lineOf(R"([0,"delta","a"],[9007199254740992,"finished","a"])"));
    ReplayModel replay(m_path);
    replay.setSpeed(1e-300);
    QCOMPARE(linesOf(&replay, {}), QStringList("delta: a"));
}

void TestReplayModel::negativeSpeedIsAtOnce()
{
    write(head + lineOf(R"([900000,"finished","a"])"));
    ReplayModel replay(m_path);
    replay.setSpeed(-1);
    QCOMPARE(linesOf(&replay, {}), QStringList("finished: a"));
}

void TestReplayModel::unusableFileIsTold_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("error");
    const QByteArray good = lineOf(R"([0,"finished","a"])");
    const QString damaged = "is damaged in line %1.";
    QTest::newRow("empty") << QByteArray() << damaged.arg(1);
    QTest::newRow("something else") << QByteArray("Hello\n") << damaged.arg(1);
    QTest::newRow("no version") << QByteArray("{}\n") << damaged.arg(1);
    QTest::newRow("newer") << QByteArray("{\"recording\":2}\n") << "was made by a newer version.";
    QTest::newRow("cut off") << head + good + good.chopped(9) << damaged.arg(3);
    QTest::newRow("marks of a merge") << head + "<<<<<<< HEAD\n" + good << damaged.arg(2);
    QTest::newRow("no request") << head + R"({"signals":[[0,"finished","a"]]})" << damaged.arg(2);
    QTest::newRow("no signals") << head + lineOf("") << damaged.arg(2);
    QTest::newRow("no end") << head + lineOf(R"([0,"delta","a"])") << damaged.arg(2);
    QTest::newRow("two ends") << head + lineOf(R"([0,"finished","a"],[0,"canceled"])") << damaged.arg(2);
    QTest::newRow("unknown signal") << head + lineOf(R"([0,"hint","a"],[0,"finished","a"])")
                                    << damaged.arg(2);
    QTest::newRow("no text") << head + lineOf(R"([0,"delta"],[0,"finished","a"])") << damaged.arg(2);
    QTest::newRow("no time") << head + lineOf(R"(["finished","a"])") << damaged.arg(2);
    QTest::newRow("time without an end") << head + lineOf(R"([1e300,"finished","a"])") << damaged.arg(2);
    QTest::newRow("time before the request") << head + lineOf(R"([-1e300,"finished","a"])") << damaged.arg(2);
    QTest::newRow("back in time") << head + lineOf(R"([2,"delta","a"],[1,"finished","a"])") << damaged.arg(2);
    QTest::newRow("too deep") << head + QByteArray(5000, '[') + "\n" << damaged.arg(2);
}

void TestReplayModel::unusableFileIsTold()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, error);
    write(bytes);
    ReplayModel replay(m_path);
    for (int i = 0; i < 2; ++i)
        QCOMPARE(failureOf(&replay, {}), QString("Recording %1 %2").arg(m_path, error));
}

void TestReplayModel::missingFileIsTold()
{
    ReplayModel replay(m_path);
    const QString error = failureOf(&replay, {});
    QVERIFY2(error.startsWith(QString("Recording %1 cannot be read: ").arg(m_path)), qPrintable(error));
}

void TestReplayModel::lineEndsOfOtherSystemsAreRead()
{
    QByteArray bytes = head + lineOf(R"([0,"finished","a"])");
    write(bytes.replace("\n", "\r\n").chopped(2));
    ReplayModel replay(m_path);
    QCOMPARE(linesOf(&replay, {}), QStringList("finished: a"));
}

void TestReplayModel::nothingIsEmittedBeforeTheCallReturns()
{
    write(head + lineOf(R"([0,"finished","a"])"));
    ReplayModel replay(m_path);
    QVERIFY(replay.chat({}, {}, nullptr)->isRunning());
    QVERIFY(replay.chat({}, {}, nullptr)->isRunning());
}

void TestReplayModel::replyMayBeDeletedAtEveryEmission()
{
    const QByteArray line = lineOf(R"([0,"delta","a"],[0,"response",{}],[0,"finished","a"])");
    write(head + line + line + line);
    ReplayModel replay(m_path);
    const auto deleteOn = [&replay, this](auto signal) {
        const QPointer<ChatReply> reply = replay.chat({}, {}, nullptr);
        connect(reply, signal, this, [&reply] { delete reply; });
        runUntilQuiet();
        return !reply;
    };
    QVERIFY(deleteOn(&ChatReply::deltaReceived));
    QVERIFY(deleteOn(&ChatReply::responseReceived));
    QVERIFY(deleteOn(&ChatReply::finished));
}

QTEST_GUILESS_MAIN(TestReplayModel)
#include "tst_replaymodel.moc"
