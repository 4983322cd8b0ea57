#include "support/eventloop.h"

#include <qtagent/agentsession.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/recordingmodel.h>
#include <qtagent/testing/replaymodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// The test of a reader who follows the page.
class TestPumps
{
public:
    static void answerIsShown();
};

#include "test-without-network_1.inc"

// Samples of the headers for tests, pasted into tests.
class TestSamplesTesting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void agentRunsOnAScript();
    void replyIsComparedLineByLine();
    void serverPlaysItsScripts();
    void recordingIsReplayed();
    void pagesTestPasses();
    void pagesServerAnswers();

private:
    ToolRegistry *pumps();
};

// A registry with a tool for the question of the samples.
ToolRegistry *TestSamplesTesting::pumps()
{
    const auto read = [](const QJsonObject &) {
        ToolResult result;
        result.success = true;
        return result;
    };
    auto *registry = new ToolRegistry(this);
    registry->registerTool(
        new FunctionTool("read_pump", "Reads.", {{"type", "object"}}, ToolPermission::ReadOnly, read));
    return registry;
}

void TestSamplesTesting::agentRunsOnAScript()
{
    ToolRegistry *registry = pumps();
#include "scriptedmodel_1.inc"
    runUntilQuiet();
    QCOMPARE(session.conversation().last(), ChatMessage::assistant("The pump runs."));
    QCOMPARE(model.answersLeft(), 0);
}

void TestSamplesTesting::replyIsComparedLineByLine()
{
    ScriptedModel model;
    model.addText({"a", "b"});
#include "replyrecorder_1.inc"
}

void TestSamplesTesting::serverPlaysItsScripts()
{
#include "streamserver_1.inc"
    config.model = "test-model";
    OpenAICompatibleModel asker;
    asker.setConfig(config);
    ChatReply *first = asker.chat({ChatMessage::user("Hello")}, {}, nullptr);
    QTRY_COMPARE(first->text(), "Hello");
    QTRY_VERIFY(!first->isRunning());
    ChatReply *second = asker.chat({ChatMessage::user("Hello")}, {}, nullptr);
    QTRY_VERIFY(second->error().endsWith("Response: Bad key"));
}

void TestSamplesTesting::recordingIsReplayed()
{
    const QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkdir("tests"));
    QVERIFY(QDir::setCurrent(folder.path()));
    ToolRegistry *registry = pumps();
    {
        auto *model = new ScriptedModel(this);
        model->addText({"It ", "runs."});
        auto *session = new AgentSession(this);
        session->setToolRegistry(registry);
#include "recordingmodel_1.inc"
        session->send("Does the pump run?");
        runUntilQuiet();
    }
#include "replaymodel_1.inc"
    runUntilQuiet();
    QCOMPARE(session.conversation().last(), ChatMessage::assistant("It runs."));
}

void TestSamplesTesting::pagesTestPasses()
{
    TestPumps::answerIsShown();
}

void TestSamplesTesting::pagesServerAnswers()
{
    ModelConfig config;
    config.model = "test-model";
#include "test-without-network_3.inc"
    OpenAICompatibleModel asker;
    asker.setConfig(config);
    QStringList lines;
    for (int i = 0; i < 2; ++i) {
        ReplyRecorder recorder(asker.chat({ChatMessage::user("Hello")}, {}, nullptr));
        QTRY_VERIFY(recorder.isOver());
        lines.append(recorder.lines());
    }
    QCOMPARE(lines.mid(0, 3), QStringList({"delta: It ", "delta: opens.", "finished: It opens."}));
    QVERIFY(lines.last().endsWith("Response: Too many requests"));
}

QTEST_GUILESS_MAIN(TestSamplesTesting)
#include "tst_samples_testing.moc"
