#include <qtagent/testing/replyrecorder.h>

#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

class TestReplyRecorder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySignalIsALine();
    void endIsToldOnce_data();
    void endIsToldOnce();
    void endIsTheLastLineWhenItIsTold();
    void linesFollowTheEnd();
    void nullIsOver();
    void replyThatHasEndedIsOver_data();
    void replyThatHasEndedIsOver();
    void recorderMayBeDeletedWhenItTellsTheEnd();
    void eitherMayGoFirst();
};

void TestReplyRecorder::everySignalIsALine()
{
    ChatReply reply;
    const ReplyRecorder recorder(&reply);
    reply.setResponse({{"id", 1}});
    reply.appendDelta("a\nb");
    QVERIFY(!recorder.isOver());
    reply.finish("ab");
    QVERIFY(recorder.isOver());
    QCOMPARE(recorder.lines(), QStringList({"response", "delta: a\nb", "finished: ab"}));
}

using EndReply = void (*)(ChatReply *);
Q_DECLARE_METATYPE(EndReply)

void TestReplyRecorder::endIsToldOnce_data()
{
    QTest::addColumn<EndReply>("end");
    QTest::addColumn<QString>("line");
    QTest::newRow("finished") << EndReply([](ChatReply *reply) { reply->finish("a"); }) << "finished: a";
    QTest::newRow("failed") << EndReply([](ChatReply *reply) { reply->fail("no"); }) << "failed: no";
    QTest::newRow("canceled") << EndReply([](ChatReply *reply) { reply->cancel(); }) << "canceled";
    QTest::newRow("deleted") << EndReply([](ChatReply *reply) { delete reply; }) << "deleted";
}

void TestReplyRecorder::endIsToldOnce()
{
    QFETCH(EndReply, end);
    QFETCH(QString, line);
    const QPointer<ChatReply> reply(new ChatReply);
    const ReplyRecorder recorder(reply);
    const QSignalSpy over(&recorder, &ReplyRecorder::over);
    end(reply);
    QCOMPARE(recorder.lines(), QStringList(line));
    QVERIFY(recorder.isOver());
    delete reply;
    QCOMPARE(over.size(), 1);
}

void TestReplyRecorder::endIsTheLastLineWhenItIsTold()
{
    ChatReply reply;
    const ReplyRecorder recorder(&reply);
    QStringList lines;
    connect(&recorder, &ReplyRecorder::over, this, [&] { lines = recorder.lines(); });
    reply.appendDelta("a");
    reply.finish("a");
    QCOMPARE(lines, QStringList({"delta: a", "finished: a"}));
}

void TestReplyRecorder::linesFollowTheEnd()
{
    auto reply = std::make_unique<ChatReply>();
    const ReplyRecorder recorder(reply.get());
    reply->finish("a");
    reply->cancel();
    reply->setResponse({});
    reply.reset();
    QCOMPARE(recorder.lines(), QStringList({"finished: a", "canceled", "response", "deleted"}));
}

void TestReplyRecorder::nullIsOver()
{
    const ReplyRecorder recorder(nullptr);
    QVERIFY(recorder.isOver());
    QVERIFY(recorder.lines().isEmpty());
}

void TestReplyRecorder::replyThatHasEndedIsOver_data()
{
    QTest::addColumn<EndReply>("end");
    QTest::newRow("finished") << EndReply([](ChatReply *reply) { reply->finish("a"); });
    QTest::newRow("failed") << EndReply([](ChatReply *reply) { reply->fail("no"); });
    QTest::newRow("canceled") << EndReply([](ChatReply *reply) { reply->cancel(); });
}

void TestReplyRecorder::replyThatHasEndedIsOver()
{
    QFETCH(EndReply, end);
    auto reply = std::make_unique<ChatReply>();
    end(reply.get());
    const ReplyRecorder recorder(reply.get());
    const QSignalSpy over(&recorder, &ReplyRecorder::over);
    QVERIFY(recorder.isOver());
    QVERIFY(recorder.lines().isEmpty());
    reply.reset();
    QCOMPARE(recorder.lines(), QStringList("deleted"));
    QVERIFY(over.isEmpty());
}

void TestReplyRecorder::recorderMayBeDeletedWhenItTellsTheEnd()
{
    ChatReply reply;
    const QPointer<ReplyRecorder> recorder(new ReplyRecorder(&reply));
    connect(recorder, &ReplyRecorder::over, this, [&recorder] { delete recorder; });
    reply.finish("a");
    QVERIFY(!recorder);
}

void TestReplyRecorder::eitherMayGoFirst()
{
    auto reply = std::make_unique<ChatReply>();
    auto recorder = std::make_unique<ReplyRecorder>(reply.get());
    recorder.reset();
    reply->finish("a");
    recorder = std::make_unique<ReplyRecorder>(reply.get());
    reply.reset();
    QCOMPARE(recorder->lines(), QStringList("deleted"));
}

QTEST_GUILESS_MAIN(TestReplyRecorder)
#include "tst_replyrecorder.moc"
