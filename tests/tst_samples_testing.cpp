#include "support/eventloop.h"

#include <qtagent/agentsession.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>
#include <qtagent/testing/streamserver.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// Samples of the headers for tests, pasted into tests.
class TestSamplesTesting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void agentRunsOnAScript();
    void replyIsComparedLineByLine();
    void serverPlaysItsScripts();
};

void TestSamplesTesting::agentRunsOnAScript()
{
    ToolResult running;
    running.success = true;
    auto *registry = new ToolRegistry(this);
    registry->registerTool(new FunctionTool("read_pump", "Reads.", {{"type", "object"}},
                                            ToolPermission::ReadOnly,
                                            [running](const QJsonObject &) { return running; }));
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

QTEST_GUILESS_MAIN(TestSamplesTesting)
#include "tst_samples_testing.moc"
