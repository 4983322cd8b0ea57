#include "support/eventloop.h"

#include <qtagent/deepseekmodel.h>
#include <qtagent/retryingmodel.h>
#include <qtagent/testing/recordingmodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>
#include <qtagent/testing/streamserver.h>

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QVector<ChatMessage> question{ChatMessage::user("question")};
const QString key = "sk-1234567890-secret";

} // namespace

class TestRecordingModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void replyIsALine();
    void endsAreRecorded_data();
    void endsAreRecorded();
    void nothingFollowsTheEnd();
    void timesAreMilliseconds();
    void responseIsRecorded();
    void replyIsWrittenBeforeItsEndIsTold();
    void linesStandInTheOrderOfTheEnds();
    void existingFileIsNotTouched();
    void fileThatCannotBeMadeIsTold();
    void twoModelsDoNotShareAFile();
    void repliesAreThoseOfTheModel();
    void missingModelFails();
    void nullReplyIsPassedOn();
    void replyOutlivesTheModel();
    void nothingOfTheServiceIsInTheFile_data();
    void nothingOfTheServiceIsInTheFile();
    void serviceOfAModelBehindAnotherIsNotInTheFile();
    void profileThatTheModelFillsIsNotInTheFile();
    void keyIsHiddenAsItIsSent();
    void shortPlaceholderOfAKeyStaysAWord();
    void characterInTwoPiecesIsWritten();
    void longReportIsSearchedAtOnce();
    void responseThatIsTooDeepIsLeftOut();

private:
    QByteArray content() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }

    // The lines behind the first, with 0 for every time.
    QStringList lines() const
    {
        QStringList lines = QString::fromUtf8(content()).split('\n');
        lines.replaceInStrings(QRegularExpression("\\[\\d+,\""), "[0,\"");
        return lines.mid(1, lines.size() - 2);
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_path;
};

// As on systems where memory that is written cannot be executed.
void TestRecordingModel::initTestCase()
{
    qputenv("QT_ENABLE_REGEXP_JIT", "0");
}

void TestRecordingModel::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_path = m_folder->filePath("recording.jsonl");
}

void TestRecordingModel::replyIsALine()
{
    const ToolDefinition tool{"read", "Reads.", {{"type", "object"}}, ToolPermission::Write};
    ChatMessage user = ChatMessage::user("压力?");
    user.metadata = {{"private", true}};
    ScriptedModel model;
    model.addText({"6 ", "bar"});
    RecordingModel recording(&model, m_path);
    QCOMPARE(content(), "{\"recording\":1}\n");
    recording.chat({ChatMessage::system("s"), user}, {tool}, nullptr);
    runUntilQuiet();
    QCOMPARE(lines(),
             QStringList(R"({"request":{"messages":[{"content":"s","role":"system"},)"
                         R"({"content":"压力?","role":"user"}],"tools":[{"function":{"description":"Reads.",)"
                         R"("name":"read","parameters":{"type":"object"}},"type":"function"}]},)"
                         R"("signals":[[0,"delta","6 "],[0,"delta","bar"],[0,"finished","6 bar"]]})"));
    QCOMPARE(recording.error(), "");
    QCOMPARE(model.requests().at(0).messages.at(1), user);
}

using EndReply = void (*)(ChatReply *);
Q_DECLARE_METATYPE(EndReply)

void TestRecordingModel::endsAreRecorded_data()
{
    QTest::addColumn<EndReply>("end");
    QTest::addColumn<QString>("entry");
    QTest::newRow("finished") << EndReply([](ChatReply *reply) { reply->finish("a"); })
                              << R"([0,"finished","a"])";
    QTest::newRow("failed") << EndReply([](ChatReply *reply) { reply->fail("no"); })
                            << R"([0,"failed","no"])";
    QTest::newRow("canceled") << EndReply([](ChatReply *reply) { reply->cancel(); }) << R"([0,"canceled"])";
    QTest::newRow("deleted") << EndReply([](ChatReply *reply) { delete reply; }) << R"([0,"deleted"])";
}

void TestRecordingModel::endsAreRecorded()
{
    QFETCH(EndReply, end);
    QFETCH(QString, entry);
    ScriptedModel model;
    model.addSilence();
    RecordingModel recording(&model, m_path);
    ChatReply *reply = recording.chat(question, {}, nullptr);
    reply->appendDelta("a");
    QVERIFY(lines().isEmpty());
    end(reply);
    QCOMPARE(lines().size(), 1);
    QVERIFY2(lines().at(0).endsWith(R"("signals":[[0,"delta","a"],)" + entry + "]}"),
             qPrintable(lines().at(0)));
}

void TestRecordingModel::nothingFollowsTheEnd()
{
    ScriptedModel model;
    model.addSilence();
    RecordingModel recording(&model, m_path);
    ChatReply *reply = recording.chat(question, {}, nullptr);
    reply->finish("a");
    const QByteArray written = content();
    reply->setResponse({{"late", true}});
    reply->cancel();
    delete reply;
    QCOMPARE(content(), written);
}

void TestRecordingModel::timesAreMilliseconds()
{
    constexpr int pauseMs = 30;
    ScriptedModel model;
    model.addText({"a", "b"}, pauseMs);
    RecordingModel recording(&model, m_path);
    ReplyRecorder recorder(recording.chat(question, {}, nullptr));
    QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    const QList<QByteArray> written = content().split('\n');
    const QJsonArray entries = QJsonDocument::fromJson(written.at(1)).object()["signals"].toArray();
    QVERIFY(entries.at(1).toArray().at(0).toInt() - entries.at(0).toArray().at(0).toInt() >= pauseMs - 1);
}

void TestRecordingModel::responseIsRecorded()
{
    ScriptedModel model;
    model.addToolCalls({QJsonObject{{"id", "c1"}}});
    RecordingModel recording(&model, m_path);
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QCOMPARE(lines().size(), 1);
    QVERIFY2(lines().at(0).contains(R"([0,"response",{"choices":[)"), qPrintable(lines().at(0)));
    QVERIFY2(lines().at(0).contains(R"("tool_calls":[{"id":"c1"}])"), qPrintable(lines().at(0)));
}

void TestRecordingModel::replyIsWrittenBeforeItsEndIsTold()
{
    ScriptedModel model;
    model.addText({"a"});
    RecordingModel recording(&model, m_path);
    int written = 0;
    connect(recording.chat(question, {}, nullptr), &ChatReply::finished, this,
            [&] { written = lines().size(); });
    runUntilQuiet();
    QCOMPARE(written, 1);
}

void TestRecordingModel::linesStandInTheOrderOfTheEnds()
{
    ScriptedModel model;
    model.addSilence();
    model.addSilence();
    RecordingModel recording(&model, m_path);
    ChatReply *first = recording.chat(question, {}, nullptr);
    recording.chat(question, {}, nullptr)->finish("second");
    first->finish("first");
    QVERIFY(lines().at(0).contains("second"));
    QVERIFY(lines().at(1).contains("first"));
}

void TestRecordingModel::existingFileIsNotTouched()
{
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    ScriptedModel model;
    model.addText({"a"});
    RecordingModel recording(&model, m_path);
    QCOMPARE(recording.error(), QString("Recording %1 exists already. Nothing is recorded.").arg(m_path));
    ChatReply *reply = recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QCOMPARE(reply->text(), "a");
    QCOMPARE(content(), "");
}

void TestRecordingModel::fileThatCannotBeMadeIsTold()
{
    m_path = m_folder->filePath("no folder/recording.jsonl");
    ScriptedModel model;
    model.addText({"a"});
    RecordingModel recording(&model, m_path);
    QVERIFY2(recording.error().startsWith(QString("Recording %1 cannot be written: ").arg(m_path)),
             qPrintable(recording.error()));
    ChatReply *reply = recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QCOMPARE(reply->text(), "a");
}

void TestRecordingModel::twoModelsDoNotShareAFile()
{
    ScriptedModel model;
    const RecordingModel first(&model, m_path);
    const RecordingModel second(&model, m_path);
    QCOMPARE(first.error(), "");
    QVERIFY(!second.error().isEmpty());
}

void TestRecordingModel::repliesAreThoseOfTheModel()
{
    ScriptedModel model;
    model.addText({"a"});
    RecordingModel recording(&model, m_path);
    QObject parent;
    QCOMPARE(recording.chat(question, {}, &parent)->parent(), &parent);
    QCOMPARE(recording.chat(question, {}, nullptr)->parent(), &recording);
}

void TestRecordingModel::missingModelFails()
{
    auto model = std::make_unique<ScriptedModel>();
    RecordingModel recording(model.get(), m_path);
    model.reset();
    ChatReply *reply = recording.chat(question, {}, nullptr);
    QVERIFY(reply->isRunning());
    runUntilQuiet();
    QCOMPARE(reply->error(), "There is no model to record.");
    QVERIFY(lines().isEmpty());
}

void TestRecordingModel::nullReplyIsPassedOn()
{
    class NullModel : public ChatModel
    {
        ChatReply *chat(const QVector<ChatMessage> &, const QVector<ToolDefinition> &, QObject *) override
        {
            return nullptr;
        }
    };
    NullModel model;
    RecordingModel recording(&model, m_path);
    QVERIFY(!recording.chat(question, {}, nullptr));
}

void TestRecordingModel::replyOutlivesTheModel()
{
    ScriptedModel model;
    model.addSilence();
    model.addSilence();
    auto recording = std::make_unique<RecordingModel>(&model, m_path);
    ChatReply *other = recording->chat(question, {}, this);
    recording->chat(question, {}, nullptr);
    recording.reset();
    QCOMPARE(lines().size(), 1);
    QVERIFY(lines().at(0).endsWith(R"("signals":[[0,"deleted"]]})"));
    other->finish("a");
    QCOMPARE(lines().size(), 2);
    delete other;
}

void TestRecordingModel::nothingOfTheServiceIsInTheFile_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    const QByteArray echo = "Bearer " + key.toUtf8() + " of team-secret-42 for http://127.0.0.1:PORT/v1";
    QTest::newRow("an answer that repeats it")
        << 200
        << QByteArray(R"({"id":")" + echo + R"(","choices":[{"message":{"content":"Use )" + echo
                      + R"("}}]})");
    QTest::newRow("a refusal that repeats it")
        << 401 << QByteArray(R"({"error":{"message":"Incorrect key )" + echo + R"("}})");
    QTest::newRow("a page that is no JSON") << 500 << QByteArray("<a href='http://127.0.0.1:PORT'>" + echo);
    QTest::newRow("no answer in HTTP") << 0 << QByteArray();
}

// A model that knows all that a service may repeat.
static void setUp(OpenAICompatibleModel *model, const StreamServer &server)
{
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.apiKey = key;
    config.model = "test-model";
    config.stream = false;
    model->setConfig(config);
    RequestOptions options;
    options.headers.insert("X-Team", "team-secret-42");
    model->setRequestOptions(options);
}

void TestRecordingModel::nothingOfTheServiceIsInTheFile()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    StreamServer server;
    const QByteArray port = QByteArray::number(QUrl(server.baseUrl()).port());
    if (status > 0) {
        server.addAnswer(status, body.replace("PORT", port), {{"X-Request-Id", "request-123"}});
    } else {
        for (int i = 0; i < 8; ++i)
            server.addRaw({}, true);
    }
    OpenAICompatibleModel model;
    setUp(&model, server);
    RecordingModel recording(&model, m_path);
    ReplyRecorder recorder(recording.chat(question, {}, nullptr));
    QVERIFY(recorder.isOver() || QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    QCOMPARE(lines().size(), 1);
    for (const QByteArray &secret :
         {key.toUtf8(), port, QByteArray("127.0.0.1"), QByteArray("http:"), QByteArray("request-123"),
          QByteArray("team-secret"), QByteArray("test-model")})
        QVERIFY2(!content().contains(secret), content().constData());
    QVERIFY(content().contains("[hidden]"));
}

void TestRecordingModel::serviceOfAModelBehindAnotherIsNotInTheFile()
{
    StreamServer server;
    QByteArray refusal = R"({"error":{"message":"KEY of team-secret-42"}})";
    server.addAnswer(401, refusal.replace("KEY", key.toUtf8()));
    OpenAICompatibleModel model;
    setUp(&model, server);
    RetryingModel inner(&model);
    RetryingModel outer(&inner);
    RecordingModel recording(&outer, m_path);
    ReplyRecorder recorder(recording.chat(question, {}, nullptr));
    QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    QVERIFY2(content().contains("[hidden] of [hidden]"), content().constData());
}

void TestRecordingModel::profileThatTheModelFillsIsNotInTheFile()
{
    DeepSeekModel model;
    RecordingModel recording(&model, m_path);
    const std::unique_ptr<ChatReply> reply(recording.chat(question, {}, nullptr));
    reply->fail("Host api.deepseek.com not found"); // before the event loop runs, so that nothing is sent
    QVERIFY2(lines().value(0).endsWith("[0,\"failed\",\"Host [hidden] not found\"]]}"),
             content().constData());
}

void TestRecordingModel::keyIsHiddenAsItIsSent()
{
    ScriptedModel model;
    ModelConfig config;
    config.apiKey = " sk-12345\r\n67890 \n";
    model.setConfig(config);
    model.addText({"Is it sk-1234567890?"});
    RecordingModel recording(&model, m_path);
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QVERIFY2(lines().value(0).endsWith("[0,\"finished\",\"Is it [hidden]?\"]]}"), content().constData());
}

void TestRecordingModel::shortPlaceholderOfAKeyStaysAWord()
{
    ScriptedModel model;
    ModelConfig config;
    config.apiKey = "none";
    model.setConfig(config);
    model.addText({"There is none."});
    RecordingModel recording(&model, m_path);
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QVERIFY(content().contains("There is none."));
}

void TestRecordingModel::characterInTwoPiecesIsWritten()
{
    const QString pump = "⛽ and 🛢";
    ScriptedModel model;
    model.addText({pump.chopped(1), pump.right(1), "."});
    RecordingModel recording(&model, m_path);
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    const QString entries =
        R"([0,"delta","⛽ and "],[0,"delta","🛢"],[0,"delta","."],[0,"finished","⛽ and 🛢."])";
    QVERIFY2(lines().value(0).endsWith(entries + "]}"), content().constData());
}

void TestRecordingModel::longReportIsSearchedAtOnce()
{
    ScriptedModel model;
    model.addFailure(QString(1000000, 'x') + " http://127.0.0.1/secret");
    RecordingModel recording(&model, m_path);
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QVERIFY(lines().value(0).endsWith("xx [hidden]\"]]}"));
}

void TestRecordingModel::responseThatIsTooDeepIsLeftOut()
{
    ScriptedModel model;
    model.addSilence();
    model.addText({"a"});
    RecordingModel recording(&model, m_path);
    QJsonArray deep;
    for (int i = 0; i < 1100; ++i)
        deep = QJsonArray{deep};
    ChatReply *reply = recording.chat(question, {}, nullptr);
    reply->setResponse({{"deep", deep}});
    reply->finish("a");
    QCOMPARE(recording.error(), QString("Recording %1 lacks a reply that is nested too deeply.").arg(m_path));
    recording.chat(question, {}, nullptr);
    runUntilQuiet();
    QCOMPARE(lines().size(), 1);
}

QTEST_GUILESS_MAIN(TestRecordingModel)
#include "tst_recordingmodel.moc"
