#include "support/completionrecorder.h"
#include "support/eventloop.h"
#include "support/httpendpoint.h"

#include <qtagent/retryingmodel.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QElapsedTimer>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

ChatFailure temporary(qint64 retryAfterMs = -1)
{
    ChatFailure failure;
    failure.httpStatus = 503;
    failure.retryAfterMs = retryAfterMs;
    return failure;
}

// A scripted model whose replies are CompletionReplies. Each request takes the next answer.
class AttemptedModel : public ChatModel
{
public:
    using Answer = std::function<void(CompletionReply *)>;

    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override
    {
        const QPointer<CompletionReply> reply = new CompletionReply(parent);
        replies.append(reply);
        lastMessages = messages;
        lastTools = tools;
        if (onChat)
            onChat(int(replies.size()));
        if (reply && !answers.isEmpty()) {
            const Answer answer = answers.takeFirst();
            QTimer::singleShot(0, reply, [reply, answer] { answer(reply); });
        }
        return reply.data();
    }

    void addFailure(const ChatFailure &failure = temporary(), const QString &error = "busy")
    {
        answers.append([=](CompletionReply *reply) {
            reply->setFailure(failure);
            reply->fail(error);
        });
    }

    void addText(const QString &text)
    {
        answers.append([=](CompletionReply *reply) {
            reply->setFinishReason("stop");
            reply->setUsage({1, 2, 3});
            reply->appendReasoning("Hm");
            const QPointer<CompletionReply> guard(reply);
            reply->appendDelta(text);
            if (guard)
                reply->finish(text);
        });
    }

    QVector<Answer> answers;
    // Called by each request with its number.
    std::function<void(int)> onChat;
    QVector<QPointer<CompletionReply>> replies;
    QVector<ChatMessage> lastMessages;
    QVector<ToolDefinition> lastTools;
};

// A model that repeats the requests of an AttemptedModel, and what it tells.
struct Attempts
{
    Attempts()
    {
        retrying->setDelays(0, 0);
        QObject::connect(retrying.get(), &RetryingModel::retrying, &context,
                         [this](qint32 attempt, qint64 delayMs, const QString &error, ChatReply *reply) {
                             told.append(QStringLiteral("%1 %2 %3")
                                             .arg(QString::number(attempt), QString::number(delayMs), error));
                             toldReply = reply;
                         });
    }

    CompletionReply *ask(QObject *parent = nullptr)
    {
        return qobject_cast<CompletionReply *>(retrying->chat({ChatMessage::user("Hi")}, {}, parent));
    }

    std::unique_ptr<AttemptedModel> model = std::make_unique<AttemptedModel>();
    std::unique_ptr<RetryingModel> retrying = std::make_unique<RetryingModel>(model.get());
    QStringList told;
    QPointer<ChatReply> toldReply;
    QObject context;
};

} // namespace

Q_DECLARE_METATYPE(std::function<void(MireloQtLib::QtAgent::CompletionReply *)>)
using AttemptsEnd = std::function<void(Attempts &, MireloQtLib::QtAgent::CompletionReply *)>;
Q_DECLARE_METATYPE(AttemptsEnd)

class TestRetryingModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsPassedOnAsItCame();
    void temporaryFailureIsRepeated();
    void lastAttemptTellsItsFailure();
    void otherFailuresAreNotRepeated_data();
    void otherFailuresAreNotRepeated();
    void nothingIsRepeatedOnceAnythingWasPassedOn_data();
    void nothingIsRepeatedOnceAnythingWasPassedOn();
    void delaysGrow_data();
    void delaysGrow();
    void waitThatTheServiceAsksForIsKept();
    void tooLongAWaitFailsAtOnce();
    void settingsHaveBounds();
    void cancelEndsTheWait();
    void cancelEndsTheRequest();
    void deletionEndsTheWait_data();
    void deletionEndsTheWait();
    void slotOfRetryingMayEndTheReply_data();
    void slotOfRetryingMayEndTheReply();
    void modelThatIsGone_data();
    void modelThatIsGone();
    void modelThatReturnsNoReply();
    void slotOfTheOtherModelMayEndTheReply_data();
    void slotOfTheOtherModelMayEndTheReply();
    void serviceThatIsBusyIsAskedAgain();
};

void TestRetryingModel::answerIsPassedOnAsItCame()
{
    Attempts attempts;
    attempts.model->addText("Hello");
    QObject owner;
    CompletionRecorder recorder(attempts.ask(&owner));
    QCOMPARE(recorder.reply->parent(), &owner);
    QVERIFY(recorder.entries().isEmpty());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), (QStringList{"reasoning: Hm", "delta: Hello", "finished: Hello"}));
    QCOMPARE(recorder.reply->finishReason(), "stop");
    QCOMPARE(recorder.reply->usage(), (TokenUsage{1, 2, 3}));
    QCOMPARE(attempts.model->lastMessages, QVector<ChatMessage>{ChatMessage::user("Hi")});
    QCOMPARE(attempts.told, QStringList());
    QTRY_VERIFY(!attempts.model->replies.first());
}

void TestRetryingModel::temporaryFailureIsRepeated()
{
    Attempts attempts;
    attempts.model->addFailure();
    attempts.model->addFailure(temporary(), "still busy");
    attempts.model->addText("Hello");
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), (QStringList{"reasoning: Hm", "delta: Hello", "finished: Hello"}));
    QCOMPARE(attempts.told, (QStringList{"2 0 busy", "3 0 still busy"}));
    QCOMPARE(attempts.toldReply.data(), recorder.reply.data());
    QCOMPARE(recorder.reply->failure(), ChatFailure());
    QCOMPARE(attempts.model->replies.size(), 3);
}

void TestRetryingModel::lastAttemptTellsItsFailure()
{
    Attempts attempts;
    for (int i = 0; i < 5; ++i)
        attempts.model->addFailure();
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"failed: busy"});
    QCOMPARE(recorder.reply->failure(), temporary());
    QCOMPARE(attempts.told.size(), 2);
    QCOMPARE(attempts.model->answers.size(), 2);
}

void TestRetryingModel::otherFailuresAreNotRepeated_data()
{
    QTest::addColumn<ChatFailure>("failure");
    ChatFailure refused;
    refused.httpStatus = 401;
    QTest::newRow("a refusal") << refused;
    QTest::newRow("nothing known") << ChatFailure();
}

void TestRetryingModel::otherFailuresAreNotRepeated()
{
    QFETCH(ChatFailure, failure);
    Attempts attempts;
    attempts.model->addFailure(failure);
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"failed: busy"});
    QCOMPARE(recorder.reply->failure(), failure);
    QCOMPARE(attempts.told, QStringList());

    ScriptedModel plain;
    plain.addFailure("no details");
    RetryingModel retrying(&plain);
    ReplyRecorder plainRecorder(retrying.chat({}, {}, nullptr));
    QVERIFY(runUntil([&] { return plainRecorder.isOver(); }));
    QCOMPARE(plainRecorder.lines(), QStringList{"failed: no details"});
    QCOMPARE(plain.requests().size(), 1);
}

void TestRetryingModel::nothingIsRepeatedOnceAnythingWasPassedOn_data()
{
    using Emission = std::function<void(CompletionReply *)>;
    QTest::addColumn<Emission>("emission");
    QTest::addColumn<QString>("entry");
    QTest::newRow("text") << Emission([](CompletionReply *reply) { reply->appendDelta("a"); }) << "delta: a";
    QTest::newRow("an empty text") << Emission([](CompletionReply *reply) { reply->appendDelta(""); })
                                   << "delta: ";
    QTest::newRow("a response") << Emission([](CompletionReply *reply) { reply->setResponse({}); })
                                << "response: {}";
    QTest::newRow("reasoning") << Emission([](CompletionReply *reply) { reply->appendReasoning("a"); })
                               << "reasoning: a";
    QTest::newRow("a tool call") << Emission([](CompletionReply *reply) {
        reply->progressToolCall(0, "a", "{");
    }) << "call 0: a {";
}

void TestRetryingModel::nothingIsRepeatedOnceAnythingWasPassedOn()
{
    using Emission = std::function<void(CompletionReply *)>;
    QFETCH(Emission, emission);
    QFETCH(QString, entry);
    Attempts attempts;
    attempts.model->answers.append([emission](CompletionReply *reply) {
        emission(reply);
        reply->setFailure(temporary());
        reply->fail("broken");
    });
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), (QStringList{entry, "failed: broken"}));
    QCOMPARE(attempts.told, QStringList());
}

void TestRetryingModel::delaysGrow_data()
{
    QTest::addColumn<qint64>("first");
    QTest::addColumn<qint64>("maximum");
    QTest::addColumn<QVector<qint64>>("full");
    QTest::newRow("doubled up to the maximum")
        << qint64(4) << qint64(20) << QVector<qint64>{4, 8, 16, 20, 20};
    QTest::newRow("a maximum below the first") << qint64(8) << qint64(4) << QVector<qint64>{4, 4, 4, 4, 4};
    QTest::newRow("none") << qint64(0) << qint64(20) << QVector<qint64>{0, 0, 0, 0, 0};
    QTest::newRow("negative") << qint64(-4) << qint64(-1) << QVector<qint64>{0, 0, 0, 0, 0};
}

void TestRetryingModel::delaysGrow()
{
    QFETCH(qint64, first);
    QFETCH(qint64, maximum);
    QFETCH(QVector<qint64>, full);
    Attempts attempts;
    attempts.retrying->setDelays(first, maximum);
    attempts.retrying->setMaxAttempts(6);
    for (int i = 0; i < 6; ++i)
        attempts.model->addFailure();
    QElapsedTimer clock;
    clock.start();
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(attempts.told.size(), 5);
    qint64 sum = 0;
    for (int i = 0; i < 5; ++i) {
        const qint64 delay = attempts.told.at(i).section(' ', 1, 1).toLongLong();
        QVERIFY2(delay <= full.at(i) && delay >= full.at(i) * 3 / 4, qPrintable(attempts.told.at(i)));
        sum += delay;
    }
    QVERIFY2(clock.elapsed() >= sum, qPrintable(QString::number(clock.elapsed())));
}

void TestRetryingModel::waitThatTheServiceAsksForIsKept()
{
    Attempts attempts;
    attempts.model->addFailure(temporary(70));
    attempts.model->addText("a");
    QElapsedTimer clock;
    clock.start();
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(attempts.told, QStringList{"2 70 busy"});
    QVERIFY(clock.elapsed() >= 70);
}

void TestRetryingModel::tooLongAWaitFailsAtOnce()
{
    Attempts attempts;
    attempts.model->addFailure(temporary(60001));
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"failed: busy"});
    QCOMPARE(recorder.reply->failure().retryAfterMs, 60001);
    QCOMPARE(attempts.told, QStringList());

    // Longer than a timer can be.
    const qint64 month = qint64(30) * 24 * 3600 * 1000;
    attempts.retrying->setMaximumWait(month);
    attempts.model->addFailure(temporary(month));
    CompletionRecorder patient(attempts.ask());
    QTRY_COMPARE(attempts.told, QStringList{QStringLiteral("2 %1 busy").arg(month)});
    runUntilQuiet();
    QVERIFY(!patient.hasEnded());
    QCOMPARE(attempts.model->replies.size(), 2);
}

void TestRetryingModel::settingsHaveBounds()
{
    Attempts attempts;
    attempts.retrying->setMaxAttempts(0);
    attempts.retrying->setMaximumWait(-1);
    attempts.model->addFailure();
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(attempts.told, QStringList());
    attempts.retrying->setMaxAttempts(2);
    attempts.model->addFailure(temporary(1));
    CompletionRecorder other(attempts.ask());
    QVERIFY(other.waitForEnd());
    QCOMPARE(attempts.told, QStringList());
}

void TestRetryingModel::cancelEndsTheWait()
{
    Attempts attempts;
    attempts.retrying->setDelays(20, 20);
    attempts.model->addFailure();
    CompletionRecorder recorder(attempts.ask());
    QTRY_COMPARE(attempts.told.size(), 1);
    recorder.reply->cancel();
    // Another reply waits as long.
    attempts.model->addFailure();
    attempts.model->addText("a");
    CompletionRecorder other(attempts.ask());
    QVERIFY(other.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"canceled"});
    QCOMPARE(attempts.model->replies.size(), 3);
}

void TestRetryingModel::cancelEndsTheRequest()
{
    Attempts attempts;
    CompletionRecorder recorder(attempts.ask());
    QPointer<CompletionReply> request = attempts.model->replies.first();
    QSignalSpy canceled(request, &ChatReply::canceled);
    recorder.reply->cancel();
    QCOMPARE(canceled.size(), 1);
    QCOMPARE(recorder.entries(), QStringList{"canceled"});
    QTRY_VERIFY(!request);
}

void TestRetryingModel::deletionEndsTheWait_data()
{
    QTest::addColumn<bool>("ofTheModel");
    QTest::newRow("of the reply") << false;
    QTest::newRow("of the model") << true;
}

void TestRetryingModel::deletionEndsTheWait()
{
    QFETCH(bool, ofTheModel);
    Attempts attempts;
    QObject owner;
    attempts.retrying->setDelays(20, 20);
    attempts.model->addFailure();
    CompletionRecorder recorder(attempts.ask(&owner));
    QTRY_COMPARE(attempts.told.size(), 1);
    CompletionReply *running = attempts.ask(&owner);
    const QPointer<CompletionReply> request = attempts.model->replies.last();
    if (ofTheModel) {
        attempts.retrying.reset();
    } else {
        delete recorder.reply;
        delete running;
    }
    QTRY_VERIFY(!request);
    RetryingModel other(attempts.model.get());
    other.setDelays(20, 20);
    attempts.model->addFailure();
    attempts.model->addText("a");
    CompletionRecorder otherRecorder(other.chat({}, {}, &owner));
    QVERIFY(otherRecorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList());
    QCOMPARE(attempts.model->replies.size(), 4);
}

void TestRetryingModel::slotOfRetryingMayEndTheReply_data()
{
    using End = std::function<void(Attempts &, CompletionReply *)>;
    QTest::addColumn<End>("end");
    QTest::newRow("canceled") << End([](Attempts &, CompletionReply *reply) { reply->cancel(); });
    QTest::newRow("deleted") << End([](Attempts &, CompletionReply *reply) { delete reply; });
    QTest::newRow("the model deleted") << End([](Attempts &all, CompletionReply *) { all.retrying.reset(); });
    QTest::newRow("both models deleted") << End([](Attempts &all, CompletionReply *) {
        all.model.reset();
        all.retrying.reset();
    });
}

void TestRetryingModel::slotOfRetryingMayEndTheReply()
{
    using End = std::function<void(Attempts &, CompletionReply *)>;
    QFETCH(End, end);
    Attempts attempts;
    QObject owner;
    attempts.model->addFailure();
    CompletionRecorder recorder(attempts.ask(&owner));
    connect(attempts.retrying.get(), &RetryingModel::retrying, &owner,
            [&] { end(attempts, recorder.reply); });
    QTRY_COMPARE(attempts.told.size(), 1);
    runUntilQuiet();
    QVERIFY(!recorder.hasEnded());
    if (attempts.model)
        QCOMPARE(attempts.model->replies.size(), 1);
}

void TestRetryingModel::modelThatIsGone_data()
{
    QTest::addColumn<bool>("duringTheWait");
    QTest::newRow("before") << false;
    QTest::newRow("during the wait") << true;
}

void TestRetryingModel::modelThatIsGone()
{
    QFETCH(bool, duringTheWait);
    Attempts attempts;
    attempts.model->addFailure();
    connect(attempts.retrying.get(), &RetryingModel::retrying, this, [&] { attempts.model.reset(); });
    if (!duringTheWait)
        attempts.model.reset();
    CompletionRecorder recorder(attempts.ask());
    QVERIFY(recorder.entries().isEmpty());
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList{"failed: Model is gone."});

    RetryingModel none(nullptr);
    ReplyRecorder noneRecorder(none.chat({}, {}, nullptr));
    QVERIFY(runUntil([&] { return noneRecorder.isOver(); }));
    QCOMPARE(noneRecorder.lines(), QStringList{"failed: Model is gone."});
}

void TestRetryingModel::modelThatReturnsNoReply()
{
    class NoReply : public ChatModel
    {
    public:
        ChatReply *chat(const QVector<ChatMessage> &, const QVector<ToolDefinition> &, QObject *) override
        {
            return nullptr;
        }
    };
    NoReply model;
    RetryingModel retrying(&model);
    ReplyRecorder recorder(retrying.chat({}, {}, nullptr));
    QVERIFY(runUntil([&] { return recorder.isOver(); }));
    QCOMPARE(recorder.lines(), QStringList{"failed: Model returned no reply."});
}

void TestRetryingModel::slotOfTheOtherModelMayEndTheReply_data()
{
    QTest::addColumn<int>("attempt");
    QTest::addColumn<AttemptsEnd>("end");
    const auto cancel = [](Attempts &, CompletionReply *reply) { reply->cancel(); };
    const auto deleteReply = [](Attempts &, CompletionReply *reply) { delete reply; };
    const auto deleteModel = [](Attempts &all, CompletionReply *) { all.retrying.reset(); };
    QTest::newRow("canceled") << 2 << AttemptsEnd(cancel);
    QTest::newRow("deleted") << 2 << AttemptsEnd(deleteReply);
    QTest::newRow("the model deleted") << 2 << AttemptsEnd(deleteModel);
    QTest::newRow("the model deleted in the first attempt") << 1 << AttemptsEnd(deleteModel);
}

// While it begins the request.
void TestRetryingModel::slotOfTheOtherModelMayEndTheReply()
{
    QFETCH(int, attempt);
    QFETCH(AttemptsEnd, end);
    Attempts attempts;
    QObject owner;
    QPointer<CompletionReply> reply;
    attempts.model->onChat = [&](int number) {
        if (number == attempt)
            end(attempts, reply);
    };
    for (int i = 0; i < attempt; ++i)
        attempts.model->addFailure();
    reply = attempts.ask(&owner);
    QVERIFY(reply);
    CompletionRecorder recorder(reply);
    QTRY_COMPARE(attempts.model->replies.size(), attempt);
    QTRY_VERIFY(!attempts.model->replies.last());
    runUntilQuiet();
    QCOMPARE(attempts.model->replies.size(), attempt);
    QVERIFY(recorder.entries().filter("canceled").size() == recorder.entries().size());
}

void TestRetryingModel::serviceThatIsBusyIsAskedAgain()
{
    HttpEndpoint endpoint;
    LoopbackAnswer busy = LoopbackAnswer::withStatus(429, R"({"error":{"message":"slow down"}})");
    busy.headers = {{"Retry-After", "0.03"}};
    endpoint.server.enqueue(busy);
    endpoint.addStream({"a"});
    endpoint.addRefusal();
    RetryingModel retrying(&endpoint.model);
    QSignalSpy told(&retrying, &RetryingModel::retrying);
    CompletionRecorder recorder(retrying.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), (QStringList{"delta: a", "finished: a"}));
    QCOMPARE(told.size(), 1);
    QCOMPARE(told.at(0).at(1).toLongLong(), 30);
    QVERIFY(told.at(0).at(2).toString().endsWith("slow down"));
    CompletionRecorder refused(retrying.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QVERIFY(refused.waitForEnd());
    QCOMPARE(told.size(), 1);
    QCOMPARE(refused.reply->failure().httpStatus, 401);
    QCOMPARE(endpoint.server.requests().size(), 3);
}

QTEST_GUILESS_MAIN(TestRetryingModel)
#include "tst_retryingmodel.moc"
