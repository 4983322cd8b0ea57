#include "support/eventloop.h"

#include <qtagent/chatmodel.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

using End = ChatResult::End;
using Step = std::function<void(ChatReply *)>;
Q_DECLARE_METATYPE(Step)

// What a caller can ask a reply, and how it learns of the end.
class TestChatModelEnds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replyRunsUntilTheSignalThatEndsIt_data();
    void replyRunsUntilTheSignalThatEndsIt();
    void errorIsThatOfTheFailure();
    void toolCallsAreThoseOfTheResponse_data();
    void toolCallsAreThoseOfTheResponse();
    void messageIsTheAnswerAsItGoesIntoAConversation_data();
    void messageIsTheAnswerAsItGoesIntoAConversation();
    void toolCallsAreHandedOverInTheShapeOfTheProtocol();
    void resultsWithTheSameFieldsAreEqual();
    void endsPrintTheirNames();

    void callbackFollowsTheSlots_data();
    void callbackFollowsTheSlots();
    void deletionIsToldOnTheNextTurn();
    void lateCallbackComesOnTheNextTurn_data();
    void lateCallbackComesOnTheNextTurn();
    void firstEndCounts();
    void replyThatASlotDeletesTellsItsEndOnTheNextTurn();
    void callbacksComeInTheOrderOfRegistration();
    void callbackThatASlotRegistersComesLast();
    void callbackMayDeleteTheReply();
    void callbacksEndWithTheirContext();
    void nothingIsRegisteredWithoutContextOrFunction();
    void windowThatOwnsTheReplyIsNotCalledWhenItDies();
};

namespace {

void addEndRows()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<End>("end");
    QTest::newRow("finished") << Step([](ChatReply *reply) { reply->finish("answer"); }) << End::Finished;
    QTest::newRow("failed") << Step([](ChatReply *reply) { reply->fail("broken"); }) << End::Failed;
    QTest::newRow("canceled") << Step([](ChatReply *reply) { reply->cancel(); }) << End::Canceled;
}

void onEndSignal(ChatReply *reply, QObject *context, const std::function<void()> &slot)
{
    QObject::connect(reply, &ChatReply::finished, context, slot);
    QObject::connect(reply, &ChatReply::failed, context, slot);
    QObject::connect(reply, &ChatReply::canceled, context, slot);
}

QJsonObject responseOf(const QJsonObject &message)
{
    return {{"choices", QJsonArray{QJsonObject{{"message", message}}}}};
}

} // namespace

void TestChatModelEnds::replyRunsUntilTheSignalThatEndsIt_data()
{
    addEndRows();
}

void TestChatModelEnds::replyRunsUntilTheSignalThatEndsIt()
{
    QFETCH(Step, step);
    ChatReply reply;
    QVector<bool> inSlots;
    onEndSignal(&reply, this, [&] { inSlots.append(reply.isRunning()); });
    reply.appendDelta("a");
    reply.setResponse({{"id", 1}});
    QVERIFY(reply.isRunning());
    step(&reply);
    QCOMPARE(inSlots, QVector<bool>{false});
    QVERIFY(!reply.isRunning());
}

void TestChatModelEnds::errorIsThatOfTheFailure()
{
    ChatReply reply;
    QString inSlot;
    connect(&reply, &ChatReply::failed, this, [&] { inSlot = reply.error(); });
    QCOMPARE(reply.error(), "");
    reply.fail("line 1\nline 2");
    reply.fail("late");
    QCOMPARE(inSlot, "line 1\nline 2");
    QCOMPARE(reply.error(), "line 1\nline 2");
}

void TestChatModelEnds::toolCallsAreThoseOfTheResponse_data()
{
    const QJsonArray calls{makeToolCall("c1", "read", {}), 7};
    QTest::addColumn<QJsonObject>("response");
    QTest::addColumn<QJsonArray>("expected");
    QTest::newRow("none before a response") << QJsonObject() << QJsonArray();
    QTest::newRow("as they came") << responseOf({{"tool_calls", calls}}) << calls;
    QTest::newRow("a message without calls") << responseOf({{"content", "a"}}) << QJsonArray();
    QTest::newRow("calls that are no array") << responseOf({{"tool_calls", "read"}}) << QJsonArray();
    QTest::newRow("no choices") << QJsonObject{{"choices", QJsonArray()}} << QJsonArray();
    QTest::newRow("choices that are no array") << QJsonObject{{"choices", 1}} << QJsonArray();
}

void TestChatModelEnds::toolCallsAreThoseOfTheResponse()
{
    QFETCH(QJsonObject, response);
    ChatReply reply;
    reply.setResponse(response);
    QTEST(reply.toolCalls(), "expected");
}

void TestChatModelEnds::messageIsTheAnswerAsItGoesIntoAConversation_data()
{
    const QJsonArray calls{makeToolCall("c1", "read", {})};
    QTest::addColumn<QJsonObject>("response");
    QTest::addColumn<QString>("text");
    const auto json = [](const ChatMessage &message) { return messageToJson(message); };
    QTest::addColumn<QJsonObject>("message");
    QTest::newRow("a streamed answer") << QJsonObject() << "Hello" << json(ChatMessage::assistant("Hello"));
    QTest::newRow("no text") << QJsonObject() << QString() << json(ChatMessage::assistant(""));
    QTest::newRow("a whole answer") << responseOf({{"content", "raw"}}) << "text"
                                    << json(ChatMessage::assistant("text"));
    QTest::newRow("calls") << responseOf({{"content", "Let me see."}, {"tool_calls", calls}}) << "text"
                           << json(ChatMessage::assistant("Let me see.", calls));
    QTest::newRow("calls without content")
        << responseOf({{"tool_calls", calls}}) << "text" << json(ChatMessage::assistant("", calls));
    QTest::newRow("calls with a null content")
        << responseOf({{"content", QJsonValue::Null}, {"tool_calls", calls}}) << "text"
        << json(ChatMessage::assistant("", calls));
}

void TestChatModelEnds::messageIsTheAnswerAsItGoesIntoAConversation()
{
    QFETCH(QJsonObject, response);
    QFETCH(QString, text);
    QFETCH(QJsonObject, message);
    ChatReply reply;
    reply.setResponse(response);
    reply.finish(text);
    // As JSON, where a null content would be missing.
    QCOMPARE(messageToJson(reply.message()), message);
}

void TestChatModelEnds::toolCallsAreHandedOverInTheShapeOfTheProtocol()
{
    const QJsonArray calls{makeToolCall("c1", "read", {{"a", 1}})};
    for (const QString &content : {QString("Let me see."), QString()}) {
        ChatReply reply;
        QJsonObject received;
        connect(&reply, &ChatReply::responseReceived, this, [&](const QJsonObject &it) { received = it; });
        reply.setToolCalls(content, calls);
        const QJsonObject message{
            {"role", "assistant"}, {"content", content.isNull() ? "" : content}, {"tool_calls", calls}};
        const QJsonObject choice{{"index", 0}, {"message", message}, {"finish_reason", "tool_calls"}};
        QCOMPARE(received, (QJsonObject{{"choices", QJsonArray{choice}}}));
        QCOMPARE(reply.response(), received);
        QCOMPARE(reply.toolCalls(), calls);
        QVERIFY(reply.isRunning());
    }
}

void TestChatModelEnds::resultsWithTheSameFieldsAreEqual()
{
    const ChatResult result{End::Failed, "text", "error", {{"id", 1}}};
    QVERIFY(result == ChatResult(result));
    QVERIFY(!(result != ChatResult(result)));
    QVERIFY(result != (ChatResult{End::Canceled, "text", "error", {{"id", 1}}}));
    QVERIFY(result != (ChatResult{End::Failed, "other", "error", {{"id", 1}}}));
    QVERIFY(result != (ChatResult{End::Failed, "text", "other", {{"id", 1}}}));
    QVERIFY(result != (ChatResult{End::Failed, "text", "error", {{"id", 2}}}));
    QVERIFY(QVariant::fromValue(result).value<ChatResult>() == result);
}

void TestChatModelEnds::endsPrintTheirNames()
{
    QString text;
    QDebug(&text) << End::Canceled;
    QVERIFY2(text.contains("Canceled"), qPrintable(text));
}

void TestChatModelEnds::callbackFollowsTheSlots_data()
{
    addEndRows();
}

void TestChatModelEnds::callbackFollowsTheSlots()
{
    QFETCH(Step, step);
    QFETCH(End, end);
    ChatReply reply;
    QStringList order;
    QVector<ChatResult> results;
    reply.whenEnded(this, [&](const ChatResult &result) {
        order.append("callback");
        results.append(result);
    });
    onEndSignal(&reply, this, [&] { order.append("slot"); });
    reply.setResponse({{"id", 1}});
    reply.appendDelta("answer");
    step(&reply);
    QCOMPARE(order, (QStringList{"slot", "callback"}));
    QVERIFY(results.first() == (ChatResult{end, "answer", reply.error(), {{"id", 1}}}));
    QCOMPARE(reply.error().isEmpty(), end != End::Failed);
    runUntilQuiet();
    QCOMPARE(results.size(), 1);
}

void TestChatModelEnds::deletionIsToldOnTheNextTurn()
{
    auto reply = std::make_unique<ChatReply>();
    QVector<ChatResult> results;
    reply->whenEnded(this, [&](const ChatResult &result) { results.append(result); });
    reply->setResponse({{"id", 1}});
    reply->appendDelta("half");
    reply.reset();
    QVERIFY(results.isEmpty());
    runUntilQuiet();
    QCOMPARE(results, (QVector<ChatResult>{{End::Deleted, "half", "", {{"id", 1}}}}));
}

void TestChatModelEnds::lateCallbackComesOnTheNextTurn_data()
{
    addEndRows();
}

void TestChatModelEnds::lateCallbackComesOnTheNextTurn()
{
    QFETCH(Step, step);
    QFETCH(End, end);
    auto reply = std::make_unique<ChatReply>();
    step(reply.get());
    QVector<End> ends;
    reply->whenEnded(this, [&](const ChatResult &result) { ends.append(result.end); });
    QVERIFY(ends.isEmpty());
    reply.reset();
    runUntilQuiet();
    QCOMPARE(ends, QVector<End>{end});
}

void TestChatModelEnds::firstEndCounts()
{
    ChatReply reply;
    QVector<End> ends;
    const auto record = [&](const ChatResult &result) { ends.append(result.end); };
    reply.whenEnded(this, record);
    connect(&reply, &ChatReply::finished, &reply, &ChatReply::cancel);
    connect(&reply, &ChatReply::canceled, this, [&] { QVERIFY(ends.isEmpty()); });
    reply.finish("answer");
    QVERIFY(reply.isCanceled());
    QCOMPARE(ends, QVector<End>{End::Finished});
    reply.whenEnded(this, record);
    runUntilQuiet();
    QCOMPARE(ends, (QVector<End>{End::Finished, End::Finished}));
}

void TestChatModelEnds::replyThatASlotDeletesTellsItsEndOnTheNextTurn()
{
    auto *reply = new ChatReply;
    QVector<ChatResult> results;
    reply->whenEnded(this, [&](const ChatResult &result) { results.append(result); });
    connect(reply, &ChatReply::finished, this, [reply] { delete reply; });
    reply->finish("answer");
    QVERIFY(results.isEmpty());
    runUntilQuiet();
    QCOMPARE(results, (QVector<ChatResult>{{End::Finished, "answer", "", {}}}));
}

void TestChatModelEnds::callbacksComeInTheOrderOfRegistration()
{
    for (const bool isDeleted : {false, true}) {
        auto reply = std::make_unique<ChatReply>();
        QObject other;
        QStringList order;
        reply->whenEnded(this, [&](const ChatResult &) { order.append("first"); });
        reply->whenEnded(&other, [&](const ChatResult &) { order.append("second"); });
        reply->whenEnded(this, [&](const ChatResult &) { order.append("third"); });
        if (!isDeleted)
            reply->finish("answer");
        reply.reset();
        runUntilQuiet();
        QCOMPARE(order, (QStringList{"first", "second", "third"}));
    }
}

// Also where the slot runs an event loop, or the reply dies in it.
void TestChatModelEnds::callbackThatASlotRegistersComesLast()
{
    for (const bool isDeleted : {false, true}) {
        auto *reply = new ChatReply(this);
        QStringList order;
        reply->whenEnded(this, [&](const ChatResult &) { order.append("early"); });
        connect(reply, &ChatReply::finished, this, [&] {
            reply->whenEnded(this, [&](const ChatResult &) { order.append("late"); });
            runUntilQuiet();
            QVERIFY(order.isEmpty());
            if (isDeleted)
                delete reply;
        });
        reply->finish("answer");
        QCOMPARE(order, isDeleted ? QStringList() : QStringList{"early"});
        runUntilQuiet();
        QCOMPARE(order, (QStringList{"early", "late"}));
    }
}

void TestChatModelEnds::callbackMayDeleteTheReply()
{
    auto *reply = new ChatReply;
    QVector<End> ends;
    reply->whenEnded(this, [&](const ChatResult &result) {
        delete reply;
        ends.append(result.end);
    });
    reply->whenEnded(this, [&](const ChatResult &result) { ends.append(result.end); });
    reply->fail("broken");
    QCOMPARE(ends, QVector<End>{End::Failed});
    runUntilQuiet();
    QCOMPARE(ends, (QVector<End>{End::Failed, End::Failed}));
}

void TestChatModelEnds::callbacksEndWithTheirContext()
{
    for (const bool isLate : {false, true}) {
        ChatReply reply;
        auto context = std::make_unique<QObject>();
        int calls = 0;
        if (isLate)
            reply.finish("answer");
        reply.whenEnded(context.get(), [&](const ChatResult &) { ++calls; });
        context.reset();
        reply.finish("answer");
        runUntilQuiet();
        QCOMPARE(calls, 0);
    }
}

void TestChatModelEnds::nothingIsRegisteredWithoutContextOrFunction()
{
    ChatReply reply;
    int calls = 0;
    for (int i = 0; i < 2; ++i) {
        reply.whenEnded(nullptr, [&](const ChatResult &) { ++calls; });
        reply.whenEnded(this, {});
        reply.finish("answer");
    }
    runUntilQuiet();
    QCOMPARE(calls, 0);
}

void TestChatModelEnds::windowThatOwnsTheReplyIsNotCalledWhenItDies()
{
    // Deletes its reply in its destructor, or leaves that to its base.
    class Window : public QObject
    {
    public:
        Window(bool deletesReply, int *calls)
            : m_reply(new ChatReply(this))
            , m_deletesReply(deletesReply)
        {
            m_reply->whenEnded(this, [calls](const ChatResult &) { ++*calls; });
        }
        ~Window() override
        {
            if (m_deletesReply)
                delete m_reply;
        }

    private:
        ChatReply *const m_reply;
        const bool m_deletesReply;
    };
    int calls = 0;
    delete new Window(false, &calls);
    delete new Window(true, &calls);
    runUntilQuiet();
    QCOMPARE(calls, 0);
}

QTEST_GUILESS_MAIN(TestChatModelEnds)
#include "tst_chatmodel_ends.moc"
