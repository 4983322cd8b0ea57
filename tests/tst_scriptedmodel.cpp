#include "support/eventloop.h"

#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QVector<ChatMessage> question{ChatMessage::user("question")};

QStringList linesOf(ChatModel *model)
{
    const std::unique_ptr<ChatReply> reply(model->chat(question, {}, nullptr));
    const ReplyRecorder recorder(reply.get());
    runUntilQuiet();
    return recorder.lines();
}

} // namespace

class TestScriptedModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textIsStreamedInItsPieces();
    void textWithoutPiecesIsEmpty();
    void nothingIsEmittedBeforeTheCallReturns();
    void piecesArriveOneAfterAnother();
    void toolCallsAreAWholeAnswer();
    void failureFails();
    void silenceLastsUntilTheCancel();
    void emptyQueueFails();
    void eachRequestTakesTheNextAnswer();
    void requestsAreKept();
    void requestsAreRecords();
    void replyBelongsToItsParentOrTheModel();
    void replyOfSomebodyElseSurvivesTheModel();
    void replyMayBeDeletedAtEveryEmission_data();
    void replyMayBeDeletedAtEveryEmission();
    void cancelStopsTheAnswer();
    void nestedEventLoopKeepsTheOrder();
    void slotMayWaitForTheEnd_data();
    void slotMayWaitForTheEnd();
};

void TestScriptedModel::textIsStreamedInItsPieces()
{
    ScriptedModel model;
    model.addText({"Hel", "", "lo"});
    QCOMPARE(linesOf(&model), QStringList({"delta: Hel", "delta: ", "delta: lo", "finished: Hello"}));
}

void TestScriptedModel::textWithoutPiecesIsEmpty()
{
    ScriptedModel model;
    model.addText({});
    QCOMPARE(linesOf(&model), QStringList("finished: "));
}

void TestScriptedModel::nothingIsEmittedBeforeTheCallReturns()
{
    ScriptedModel model;
    model.addText({"Hello"});
    model.addFailure("refused");
    for (int i = 0; i < 3; ++i)
        QVERIFY(model.chat(question, {}, nullptr)->isRunning());
}

void TestScriptedModel::piecesArriveOneAfterAnother()
{
    constexpr int pauseMs = 30;
    ScriptedModel model;
    model.addText({"a", "b", "c"}, pauseMs);
    QElapsedTimer clock;
    clock.start();
    ChatReply *reply = model.chat(question, {}, nullptr);
    QVector<qint64> times;
    connect(reply, &ChatReply::deltaReceived, this, [&] { times.append(clock.elapsed()); });
    ReplyRecorder recorder(reply);
    QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    QCOMPARE(recorder.lines(), QStringList({"delta: a", "delta: b", "delta: c", "finished: abc"}));
    // A precise timer may be a millisecond early.
    QVERIFY(times.at(1) - times.at(0) >= pauseMs - 1);
    QVERIFY(times.at(2) - times.at(1) >= pauseMs - 1);
}

void TestScriptedModel::toolCallsAreAWholeAnswer()
{
    const QJsonArray toolCalls{makeToolCall("c1", "read", {})};
    ScriptedModel model;
    model.addToolCalls(toolCalls, "Let me see.");
    ChatReply *reply = model.chat(question, {}, nullptr);
    const ReplyRecorder recorder(reply);
    runUntilQuiet();
    QCOMPARE(recorder.lines(), QStringList({"response", "delta: Let me see.", "finished: Let me see."}));
    QCOMPARE(reply->toolCalls(), toolCalls);
    QCOMPARE(reply->message(), ChatMessage::assistant("Let me see.", toolCalls));
}

void TestScriptedModel::failureFails()
{
    ScriptedModel model;
    model.addFailure("refused");
    QCOMPARE(linesOf(&model), QStringList("failed: refused"));
}

void TestScriptedModel::silenceLastsUntilTheCancel()
{
    ScriptedModel model;
    model.addSilence();
    ChatReply *reply = model.chat(question, {}, nullptr);
    const ReplyRecorder recorder(reply);
    runUntilQuiet();
    QVERIFY(reply->isRunning());
    reply->cancel();
    QCOMPARE(recorder.lines(), QStringList("canceled"));
}

void TestScriptedModel::emptyQueueFails()
{
    ScriptedModel model;
    QCOMPARE(linesOf(&model), QStringList("failed: ScriptedModel has no answer left."));
    QCOMPARE(model.requests().size(), 1);
}

void TestScriptedModel::eachRequestTakesTheNextAnswer()
{
    ScriptedModel model;
    model.addText({"first"});
    model.addText({"second"});
    QCOMPARE(model.answersLeft(), 2);
    ChatReply *first = model.chat(question, {}, nullptr);
    QCOMPARE(model.answersLeft(), 1);
    ChatReply *second = model.chat(question, {}, nullptr);
    QCOMPARE(model.answersLeft(), 0);
    runUntilQuiet();
    QCOMPARE(first->text(), "first");
    QCOMPARE(second->text(), "second");
}

void TestScriptedModel::requestsAreKept()
{
    const ToolDefinition tool{"read", "Reads.", {{"type", "object"}}, ToolPermission::Write};
    ScriptedModel model;
    model.chat(question, {tool}, nullptr);
    model.chat({ChatMessage::system("s"), ChatMessage::user("u")}, {}, nullptr);
    QCOMPARE(model.requests().size(), 2);
    QCOMPARE(model.requests().at(0).messages, question);
    QCOMPARE(model.requests().at(0).tools, QVector<ToolDefinition>{tool});
    QCOMPARE(model.requests().at(1).messages.size(), 2);
    QVERIFY(model.requests().at(1).tools.isEmpty());
}

void TestScriptedModel::requestsAreRecords()
{
    using Request = ScriptedModel::Request;
    const QVector<ToolDefinition> tools{{"read", "Reads.", {}, ToolPermission::Write}};
    const Request request{question, tools};
    QVERIFY(request == Request({question, tools}));
    QVERIFY(!(request != Request({question, tools})));
    QVERIFY(request != Request({question, {}}));
    QVERIFY(request != Request({{}, tools}));
    QVERIFY(QVariant::fromValue(request).value<Request>() == request);
}

void TestScriptedModel::replyBelongsToItsParentOrTheModel()
{
    QObject parent;
    ScriptedModel model;
    model.addSilence();
    QCOMPARE(model.chat(question, {}, &parent)->parent(), &parent);
    QCOMPARE(model.chat(question, {}, &parent)->parent(), &parent);
    QCOMPARE(model.chat(question, {}, nullptr)->parent(), &model);
}

void TestScriptedModel::replyOfSomebodyElseSurvivesTheModel()
{
    auto model = std::make_unique<ScriptedModel>();
    model->addText({"a", "b"}, 1);
    ReplyRecorder recorder(model->chat(question, {}, this));
    model.reset();
    QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    QCOMPARE(recorder.lines(), QStringList({"delta: a", "delta: b", "finished: ab"}));
}

void TestScriptedModel::replyMayBeDeletedAtEveryEmission_data()
{
    QTest::addColumn<int>("emission");
    for (int i = 1; i <= 6; ++i)
        QTest::addRow("%d", i) << i;
}

// Two pieces and the end, a response, its delta and the end.
void TestScriptedModel::replyMayBeDeletedAtEveryEmission()
{
    QFETCH(int, emission);
    ScriptedModel model;
    model.addText({"a", "b"});
    model.addToolCalls({makeToolCall("c1", "read", {})});
    int emissions = 0;
    for (int i = 0; i < 2; ++i) {
        ChatReply *reply = model.chat(question, {}, nullptr);
        const auto count = [&emissions, emission, reply] {
            if (++emissions == emission)
                delete reply;
        };
        connect(reply, &ChatReply::deltaReceived, this, count);
        connect(reply, &ChatReply::responseReceived, this, count);
        connect(reply, &ChatReply::finished, this, count);
        runUntilQuiet();
    }
    QVERIFY(emissions >= emission);
    QVERIFY(emissions <= 6);
}

void TestScriptedModel::cancelStopsTheAnswer()
{
    ScriptedModel model;
    model.addText({"a", "b"});
    ChatReply *reply = model.chat(question, {}, nullptr);
    const ReplyRecorder recorder(reply);
    connect(reply, &ChatReply::deltaReceived, reply, &ChatReply::cancel);
    runUntilQuiet();
    QCOMPARE(recorder.lines(), QStringList({"delta: a", "canceled"}));
}

void TestScriptedModel::nestedEventLoopKeepsTheOrder()
{
    ScriptedModel model;
    model.addText({"a", "b", "c"}, 1);
    ChatReply *reply = model.chat(question, {}, nullptr);
    ReplyRecorder recorder(reply);
    connect(reply, &ChatReply::deltaReceived, this, [] { runUntilQuiet(); });
    QVERIFY(recorder.isOver() || QSignalSpy(&recorder, &ReplyRecorder::over).wait());
    QCOMPARE(recorder.lines(), QStringList({"delta: a", "delta: b", "delta: c", "finished: abc"}));
}

void TestScriptedModel::slotMayWaitForTheEnd_data()
{
    QTest::addColumn<int>("pauseMs");
    QTest::newRow("at once") << 0;
    QTest::newRow("with pauses") << 1;
}

void TestScriptedModel::slotMayWaitForTheEnd()
{
    QFETCH(int, pauseMs);
    ScriptedModel model;
    model.addText({"a", "b", "c"}, pauseMs);
    ChatReply *reply = model.chat(question, {}, nullptr);
    const ReplyRecorder recorder(reply);
    bool isOver = false;
    connect(reply, &ChatReply::deltaReceived, this, [&](const QString &delta) {
        if (delta == "a")
            isOver = runUntil([&] { return recorder.isOver(); });
    });
    QVERIFY(runUntil([&] { return isOver; }));
    QCOMPARE(recorder.lines(), QStringList({"delta: a", "delta: b", "delta: c", "finished: abc"}));
}

QTEST_GUILESS_MAIN(TestScriptedModel)
#include "tst_scriptedmodel.moc"
