#include "support/completions.h"
#include "support/graphfixture.h"
#include "support/heldmodel.h"
#include "support/rawhttpserver.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

/// A run of __start__ -> a -> b -> __end__ whose node a is left to the test, and a model.
struct AskFixture : public GraphFixture
{
    AskFixture()
    {
        run->setAsyncNode("a", keepsIn(&task));
        start({{"question", "Hi?"}});
        log.clear();
    }

    ~AskFixture() { delete model; }

    ChatReply *ask(const QString &key = "answer")
    {
        const QString question = task->state()["question"].toString();
        return task->ask(model, {ChatMessage::user(question)}, key);
    }

    /// Returns the run's last word once the event loop is quiet.
    QString end()
    {
        runUntilQuiet();
        return log.isEmpty() ? QString() : log.last();
    }

    ChatReply *reply() const { return model->lastCall().reply.data(); }

    QPointer<GraphTask> task;
    const QPointer<HeldModel> model{new HeldModel};
};

using Step = std::function<void(AskFixture *)>;

/// Does something with its caller before it answers.
class MeddlingModel : public ChatModel
{
public:
    std::function<void()> meddle;
    bool answers = true;
    QPointer<ChatReply> reply;

    ChatReply *chat(const QVector<ChatMessage> &, const QVector<ToolDefinition> &, QObject *parent) override
    {
        const bool returnsReply = answers;
        const std::function<void()> act = meddle; // it may delete the model
        auto *created = new ChatReply(parent);
        reply = created;
        act();
        return returnsReply ? created : nullptr;
    }
};

} // namespace

Q_DECLARE_METATYPE(Step)

// Tasks that ask a model.
class TestGraphRunAsk : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerGoesIntoTheStateUnderTheKey();
    void requestHoldsTheMessagesAndNoTools();
    void replyBelongsToTheTask();
    void deltasAreToldWithTheirNodeAndBranch();
    void answerWithToolCallsIsTakenAsText();
    void failedReplyFailsTheTask();
    void replyCanceledByOthersFailsTheTask();
    void deletedReplyFailsTheTask();
    void deletedModelFailsTheTask();
    void deletedModelThatWorksOverTheNetworkFailsTheTask();
    void missingModelFailsTheTask();
    void modelWithoutAReplyFailsTheTask();
    void endOfTheTaskCancelsWhatIsOpen_data();
    void endOfTheTaskCancelsWhatIsOpen();
    void firstOfTwoAnswersCounts();
    void endedTaskAsksNobody();
    void lateDeltasAreNotTold();
    void modelMayEndTheTaskWhileItIsAsked_data();
    void modelMayEndTheTaskWhileItIsAsked();
    void modelMayDieWhileItIsAsked();
};

void TestGraphRunAsk::answerGoesIntoTheStateUnderTheKey()
{
    AskFixture f;
    f.model->addText({"Good ", "day"});
    QVERIFY(f.ask());
    QCOMPARE(f.end(), "finished");
    QCOMPARE(f.log,
             QStringList({"delta a: Good ", "delta a: day", "step a", "started b", "step b", "finished"}));
    QCOMPARE(f.run->result().state, (QJsonObject{{"question", "Hi?"}, {"answer", "Good day"}, {"b", 2}}));
}

void TestGraphRunAsk::requestHoldsTheMessagesAndNoTools()
{
    AskFixture f;
    f.ask();
    QCOMPARE(f.model->calls().size(), 1);
    QCOMPARE(f.model->lastCall().messages.size(), 1);
    QCOMPARE(f.model->lastCall().messages.at(0).content, "Hi?");
    QVERIFY(f.model->lastCall().tools.isEmpty());
}

void TestGraphRunAsk::replyBelongsToTheTask()
{
    AskFixture f;
    ChatReply *reply = f.ask();
    QCOMPARE(reply, f.reply());
    QCOMPARE(reply->parent(), f.task.data());
}

void TestGraphRunAsk::deltasAreToldWithTheirNodeAndBranch()
{
    StateGraph graph;
    graph.addEdge(StartNode, "p");
    graph.addEdge("p", EndNode);
    GraphFixture f(graph);
    ScriptedModel model;
    model.addText({"one"});
    model.addText({"two"});
    const auto ask = [&model](GraphTask *task) { task->ask(&model, {}, task->branch()); };
    f.run->setParallelNode("p", {{"x", ask}, {"y", ask}});
    f.start();
    QCOMPARE(f.log, QStringList({"started p", "delta p/x: one", "delta p/y: two", "step p", "finished"}));
    QCOMPARE(f.run->result().state, (QJsonObject{{"x", "one"}, {"y", "two"}}));
}

void TestGraphRunAsk::answerWithToolCallsIsTakenAsText()
{
    AskFixture f;
    f.model->addToolCalls({makeToolCall("c1", "read", {})}, "Let me see.");
    f.ask();
    QCOMPARE(f.end(), "finished");
    QCOMPARE(f.run->result().state["answer"], QJsonValue("Let me see."));
}

void TestGraphRunAsk::failedReplyFailsTheTask()
{
    AskFixture f;
    f.model->addFailure("no network\nline 2");
    f.ask();
    QCOMPARE(f.end(), "error: Node 'a' failed: no network\nline 2");
}

void TestGraphRunAsk::replyCanceledByOthersFailsTheTask()
{
    AskFixture f;
    f.ask()->cancel();
    QCOMPARE(f.end(), "error: Node 'a' failed: The reply was canceled.");
}

void TestGraphRunAsk::deletedReplyFailsTheTask()
{
    AskFixture f;
    delete f.ask();
    QCOMPARE(f.end(), "error: Node 'a' failed: The reply was deleted.");
}

void TestGraphRunAsk::deletedModelFailsTheTask()
{
    AskFixture f;
    f.ask();
    delete f.model;
    QVERIFY(f.task->isRunning());
    QCOMPARE(f.end(), "error: Node 'a' failed: The model was deleted.");
}

void TestGraphRunAsk::deletedModelThatWorksOverTheNetworkFailsTheTask()
{
    const RawHttpServer server({RawStep::send(eventStreamHead() + deltaEvent("one"))});
    auto *model = new OpenAICompatibleModel(this);
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "m";
    model->setConfig(config);
    AskFixture f;
    f.task->ask(model, {ChatMessage::user("Hi?")}, "answer");
    f.onEntry("delta a: one", [model] { delete model; });
    f.waitForEnd();
    QCOMPARE(f.log, QStringList({"delta a: one", "error: Node 'a' failed: The model was deleted."}));
}

void TestGraphRunAsk::missingModelFailsTheTask()
{
    AskFixture f;
    ChatReply *reply = f.task->ask(nullptr, {}, "answer");
    QVERIFY(reply);
    QCOMPARE(reply->parent(), f.task.data());
    QCOMPARE(f.end(), "error: Node 'a' failed: There is no model to ask.");
}

void TestGraphRunAsk::modelWithoutAReplyFailsTheTask()
{
    AskFixture f;
    MeddlingModel model;
    model.answers = false;
    model.meddle = [&model] { delete model.reply; };
    QVERIFY(f.task->ask(&model, {}, "answer"));
    QCOMPARE(f.end(), "error: Node 'a' failed: Model returned no reply.");
}

void TestGraphRunAsk::endOfTheTaskCancelsWhatIsOpen_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QString>("end");
    QTest::newRow("finished by other means") << Step([](AskFixture *f) {
        f->task->finish({{"answer", "known"}});
    }) << "finished";
    QTest::newRow("failed by other means")
        << Step([](AskFixture *f) { f->task->fail("too late"); }) << "error: Node 'a' failed: too late";
    QTest::newRow("canceled with the run") << Step([](AskFixture *f) { f->run->cancel(); }) << "canceled";
}

void TestGraphRunAsk::endOfTheTaskCancelsWhatIsOpen()
{
    QFETCH(Step, step);
    QFETCH(QString, end);
    AskFixture f;
    f.ask();
    int cancels = 0;
    connect(f.reply(), &ChatReply::canceled, this, [&] { ++cancels; });
    step(&f);
    QCOMPARE(cancels, 1);
    QCOMPARE(f.end(), end);
}

void TestGraphRunAsk::firstOfTwoAnswersCounts()
{
    AskFixture f;
    const QPointer<ChatReply> slow = f.ask("slow");
    const QPointer<ChatReply> quick = f.ask("quick");
    quick->finish("here");
    QVERIFY(slow->isCanceled());
    QVERIFY(!quick->isCanceled());
    QCOMPARE(f.end(), "finished");
    QCOMPARE(f.run->result().state, (QJsonObject{{"question", "Hi?"}, {"quick", "here"}, {"b", 2}}));
}

void TestGraphRunAsk::endedTaskAsksNobody()
{
    AskFixture f;
    f.task->finish({});
    const QPointer<ChatReply> reply = f.ask();
    QVERIFY(reply);
    QString error;
    connect(reply, &ChatReply::failed, this, [&](const QString &text) { error = text; });
    QVERIFY(f.model->calls().isEmpty());
    QCOMPARE(f.end(), "finished");
    QCOMPARE(error, "The task has ended.");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!reply);
}

void TestGraphRunAsk::lateDeltasAreNotTold()
{
    AskFixture f;
    f.ask();
    const QPointer<ChatReply> reply = f.reply();
    connect(reply, &ChatReply::canceled, this, [] {});
    f.task->finish({});
    reply->appendDelta("late");
    QCOMPARE(f.end(), "finished");
    QVERIFY(f.log.filter("delta").isEmpty());
}

void TestGraphRunAsk::modelMayEndTheTaskWhileItIsAsked_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QString>("end");
    QTest::newRow("by finishing it") << Step([](AskFixture *f) { f->task->finish({}); }) << "finished";
    QTest::newRow("by canceling the run") << Step([](AskFixture *f) { f->run->cancel(); }) << "canceled";
    QTest::newRow("by starting again") << Step([](AskFixture *f) {
        f->run->setAsyncNode("a", finishesWith({}));
        f->run->start({});
    }) << "finished";
    QTest::newRow("by deleting it") << Step([](AskFixture *f) { delete f->task; })
                                    << "error: Node 'a' failed: abandoned";
    QTest::newRow("by deleting the run") << Step([](AskFixture *f) { delete f->run; }) << "";
}

void TestGraphRunAsk::modelMayEndTheTaskWhileItIsAsked()
{
    QFETCH(Step, step);
    QFETCH(QString, end);
    for (const bool answers : {true, false}) {
        AskFixture f;
        MeddlingModel model;
        model.answers = answers;
        model.meddle = [&] { step(&f); };
        const QPointer<ChatReply> reply = f.task->ask(&model, {}, "answer");
        QVERIFY(reply);
        QString error;
        connect(reply, &ChatReply::failed, this, [&](const QString &text) { error = text; });
        QCOMPARE(f.end(), end);
        QCOMPARE(error, "The task has ended.");
        QVERIFY(!model.reply || model.reply->isCanceled() || !answers);
    }
}

void TestGraphRunAsk::modelMayDieWhileItIsAsked()
{
    AskFixture f;
    auto *model = new MeddlingModel;
    model->meddle = [model] { delete model; };
    QVERIFY(f.task->ask(model, {}, "answer"));
    QCOMPARE(f.end(), "error: Node 'a' failed: The model was deleted.");
}

QTEST_GUILESS_MAIN(TestGraphRunAsk)
#include "tst_graphrun_ask.moc"
