#include <qtagent/runnablechain.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

class TestRunnableChain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestCarriesSystemPromptAndRenderedTemplate();
    void emptySystemPromptSendsASingleUserMessage();
    void systemPromptIsNotRendered();
    void replyOfTheModelIsReturned();
    void failureOfTheModelPassesUnchanged();
    void replyBelongsToTheParentElseToTheChain();
    void nothingIsEmittedBeforeInvokeReturns();
    void withoutAModelTheReplyFailsOnTheNextTurn_data();
    void withoutAModelTheReplyFailsOnTheNextTurn();
    void failureDiesWithItsParent();
    void chainMayBeInvokedAgainWhileItRuns();
    void headerBringsHistoryAndBranches();
};

void TestRunnableChain::requestCarriesSystemPromptAndRenderedTemplate()
{
    ScriptedModel model;
    RunnableChain chain;
    chain.setModel(&model);
    chain.setSystemPrompt("You are concise.");
    chain.setPromptTemplate("Explain {topic} to {reader}.");
    chain.invoke({{"topic", "路由"}, {"reader", "me"}});

    QCOMPARE(model.requests().size(), 1);
    const ScriptedModel::Request call = model.requests().last();
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(messageToJson(call.messages[0]),
             (QJsonObject{{"role", "system"}, {"content", "You are concise."}}));
    QCOMPARE(messageToJson(call.messages[1]),
             (QJsonObject{{"role", "user"}, {"content", "Explain 路由 to me."}}));
    QVERIFY(call.tools.isEmpty());
}

void TestRunnableChain::emptySystemPromptSendsASingleUserMessage()
{
    ScriptedModel model;
    RunnableChain chain;
    chain.setModel(&model);
    chain.setPromptTemplate("Hi");
    chain.invoke({});
    QCOMPARE(model.requests().last().messages.size(), 1);
    QCOMPARE(model.requests().last().messages[0].role, "user");
    QCOMPARE(model.requests().last().messages[0].content, "Hi");
}

void TestRunnableChain::systemPromptIsNotRendered()
{
    ScriptedModel model;
    RunnableChain chain;
    chain.setModel(&model);
    chain.setSystemPrompt("Answer as {a}.");
    chain.setPromptTemplate("{a}");
    chain.invoke({{"a", "x"}});
    QCOMPARE(model.requests().last().messages[0].content, "Answer as {a}.");
    QCOMPARE(model.requests().last().messages[1].content, "x");
}

void TestRunnableChain::replyOfTheModelIsReturned()
{
    ScriptedModel model;
    model.addText({"one ", "two"});
    RunnableChain chain;
    chain.setModel(&model);
    ChatReply *reply = chain.invoke({});
    QCOMPARE(chain.findChildren<ChatReply *>(), QList<ChatReply *>{reply}); // no other
    QSignalSpy deltas(reply, &ChatReply::deltaReceived);
    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(finished.wait());
    QCOMPARE(deltas.size(), 2);
    QCOMPARE(finished.first().first().toString(), "one two");
}

void TestRunnableChain::failureOfTheModelPassesUnchanged()
{
    ScriptedModel model;
    model.addFailure("HTTP 500\nbusy");
    RunnableChain chain;
    chain.setModel(&model);
    ChatReply *reply = chain.invoke({});
    QSignalSpy failed(reply, &ChatReply::failed);
    QVERIFY(failed.wait());
    QCOMPARE(failed.first().first().toString(), "HTTP 500\nbusy");
}

void TestRunnableChain::replyBelongsToTheParentElseToTheChain()
{
    ScriptedModel model;
    QObject parent;
    RunnableChain chain;
    QCOMPARE(chain.invoke({}, &parent)->parent(), &parent);
    QCOMPARE(chain.invoke({})->parent(), &chain);
    chain.setModel(&model);
    QCOMPARE(chain.invoke({}, &parent)->parent(), &parent);
    QCOMPARE(chain.invoke({})->parent(), &chain);
}

void TestRunnableChain::nothingIsEmittedBeforeInvokeReturns()
{
    RunnableChain chain;
    ChatReply *reply = chain.invoke({});
    QSignalSpy failed(reply, &ChatReply::failed);
    QCOMPARE(failed.size(), 0);
    QCoreApplication::processEvents();
    QCOMPARE(failed.size(), 1);
}

void TestRunnableChain::withoutAModelTheReplyFailsOnTheNextTurn_data()
{
    QTest::addColumn<bool>("modelWasDeleted");
    QTest::newRow("no model was set") << false;
    QTest::newRow("the model was deleted") << true;
}

void TestRunnableChain::withoutAModelTheReplyFailsOnTheNextTurn()
{
    QFETCH(bool, modelWasDeleted);
    RunnableChain chain;
    if (modelWasDeleted) {
        const auto model = std::make_unique<ScriptedModel>();
        chain.setModel(model.get());
    }
    ChatReply *reply = chain.invoke({});
    QSignalSpy failed(reply, &ChatReply::failed);
    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(failed.wait());
    QCoreApplication::processEvents();
    QCOMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().toString(), "RunnableChain has no model.");
    QCOMPARE(finished.size(), 0);
}

void TestRunnableChain::failureDiesWithItsParent()
{
    auto chain = std::make_unique<RunnableChain>();
    const QPointer<ChatReply> reply = chain->invoke({});
    QSignalSpy failed(reply, &ChatReply::failed);
    chain.reset();
    QVERIFY(!reply);
    QCoreApplication::processEvents();
    QCOMPARE(failed.size(), 0);
}

void TestRunnableChain::chainMayBeInvokedAgainWhileItRuns()
{
    ScriptedModel model;
    RunnableChain chain;
    chain.setModel(&model);
    chain.setPromptTemplate("{a}");
    ChatReply *first = chain.invoke({{"a", "1"}});
    ChatReply *second = chain.invoke({{"a", "2"}});
    QVERIFY(first != second);
    QCOMPARE(model.requests()[0].messages[0].content, "1");
    QCOMPARE(model.requests()[1].messages[0].content, "2");
}

// They were declared in runnablechain.h before they had headers of their own.
void TestRunnableChain::headerBringsHistoryAndBranches()
{
    MessageHistory history;
    history.addUser("u");
    QCOMPARE(history.messages().size(), 1);
    const ParallelBranch branch = [](const PromptVariables &variables) { return variables["a"]; };
    QCOMPARE(runParallel({{"b", branch}}, {{"a", "x"}}), (QMap<QString, QString>{{"b", "x"}}));
}

QTEST_GUILESS_MAIN(TestRunnableChain)
#include "tst_runnablechain.moc"
