#include <qtagent/asynctool.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestAsyncTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replyStartsWithoutAnEnd();
    void finishEndsTheReply();
    void progressIsPassedOnWhileTheReplyRuns();
    void cancelEndsTheReply();
    void onlyTheFirstEndCounts_data();
    void onlyTheFirstEndCounts();
    void replyHasEndedInTheSlotsOfItsEnd();
    void slotsMayDeleteTheReply();
    void deletingAReplyEmitsNothing();
    void resultTravelsThroughQueuedConnections();
    void asynchronousToolIsNotInvoked();
};

namespace {

ToolResult success(const QString &content)
{
    return {true, {{"a", 1}}, content, {}, {{"m", 2}}};
}

// Notes what a reply emits.
class Log : public QObject
{
public:
    explicit Log(ToolReply *reply)
    {
        connect(reply, &ToolReply::progressed, this,
                [this](const QString &text) { add("progressed " + text); });
        connect(reply, &ToolReply::finished, this,
                [this](const ToolResult &result) { add("finished " + result.content); });
        connect(reply, &ToolReply::canceled, this, [this] { add("canceled"); });
    }

    QStringList lines;

private:
    void add(const QString &line) { lines.append(line); }
};

class Echo : public AsyncTool
{
public:
    QString name() const override { return "echo"; }
    QString description() const override { return "Echoes."; }
    QJsonObject parameters() const override { return {}; }
    ToolPermission permission() const override { return ToolPermission::ReadOnly; }
    ToolReply *start(const QJsonObject &arguments, QObject *parent) override
    {
        auto *reply = new ToolReply(parent);
        reply->finish({true, arguments, {}, {}, {}});
        return reply;
    }
};

} // namespace

void TestAsyncTool::replyStartsWithoutAnEnd()
{
    QObject owner;
    const auto *reply = new ToolReply(&owner);
    QCOMPARE(reply->parent(), &owner);
    QVERIFY(reply->isRunning());
    QVERIFY(!reply->isCanceled());
    QVERIFY(!reply->result().success);
    QCOMPARE(toolResultText(reply->result()), "工具执行失败。");
}

void TestAsyncTool::finishEndsTheReply()
{
    ToolReply reply;
    const Log log(&reply);
    reply.finish(success("done"));
    QCOMPARE(log.lines, QStringList{"finished done"});
    QVERIFY(!reply.isRunning());
    QVERIFY(!reply.isCanceled());
    QVERIFY(reply.result().success);
    QCOMPARE(reply.result().content, "done");
    QCOMPARE(reply.result().data, (QJsonObject{{"a", 1}}));
    QCOMPARE(reply.result().metadata, (QJsonObject{{"m", 2}}));
}

void TestAsyncTool::progressIsPassedOnWhileTheReplyRuns()
{
    ToolReply reply;
    const Log log(&reply);
    reply.progress("1/2");
    reply.progress("");
    reply.finish(success("done"));
    reply.progress("late");
    QCOMPARE(log.lines, (QStringList{"progressed 1/2", "progressed ", "finished done"}));
}

void TestAsyncTool::cancelEndsTheReply()
{
    ToolReply reply;
    const Log log(&reply);
    reply.cancel();
    QCOMPARE(log.lines, QStringList{"canceled"});
    QVERIFY(!reply.isRunning());
    QVERIFY(reply.isCanceled());
    QVERIFY(!reply.result().success);
    QVERIFY(reply.result().content.isEmpty());
}

void TestAsyncTool::onlyTheFirstEndCounts_data()
{
    QTest::addColumn<bool>("finishesFirst");
    QTest::newRow("finished") << true;
    QTest::newRow("canceled") << false;
}

void TestAsyncTool::onlyTheFirstEndCounts()
{
    QFETCH(bool, finishesFirst);
    ToolReply reply;
    const Log log(&reply);
    if (finishesFirst)
        reply.finish(success("first"));
    else
        reply.cancel();
    reply.finish(success("second"));
    reply.cancel();
    reply.progress("late");
    QCOMPARE(log.lines, QStringList{finishesFirst ? "finished first" : "canceled"});
    QCOMPARE(reply.isCanceled(), !finishesFirst);
    QCOMPARE(reply.result().content, finishesFirst ? "first" : "");
}

void TestAsyncTool::replyHasEndedInTheSlotsOfItsEnd()
{
    ToolReply first;
    connect(&first, &ToolReply::finished, this, [&first] {
        QVERIFY(!first.isRunning());
        QCOMPARE(first.result().content, "done");
        first.cancel();
        first.finish(success("again"));
    });
    const Log firstLog(&first);
    first.finish(success("done"));
    QCOMPARE(firstLog.lines, QStringList{"finished done"});

    ToolReply second;
    connect(&second, &ToolReply::canceled, this, [&second] {
        QVERIFY(!second.isRunning());
        QVERIFY(second.isCanceled());
        second.finish(success("all the same"));
    });
    const Log secondLog(&second);
    second.cancel();
    QCOMPARE(secondLog.lines, QStringList{"canceled"});
}

void TestAsyncTool::slotsMayDeleteTheReply()
{
    // What is emitted may itself die with the reply.
    struct Owned : QObject
    {
        using QObject::QObject;
        ToolResult result = success(QString(100, 'x'));
    };
    QString seen;
    const QPointer<ToolReply> reply = new ToolReply;
    const auto *owned = new Owned(reply);
    connect(reply, &ToolReply::progressed, this, [&](const QString &text) {
        delete reply;
        seen = text;
    });
    reply->progress(owned->result.content);
    QVERIFY(!reply);
    QCOMPARE(seen, QString(100, 'x'));

    seen.clear();
    const QPointer<ToolReply> second = new ToolReply;
    owned = new Owned(second);
    connect(second, &ToolReply::finished, this, [&](const ToolResult &result) {
        delete second;
        seen = result.content;
    });
    second->finish(owned->result);
    QVERIFY(!second);
    QCOMPARE(seen, QString(100, 'x'));

    const QPointer<ToolReply> third = new ToolReply;
    connect(third, &ToolReply::canceled, this, [third] { delete third; });
    third->cancel();
    QVERIFY(!third);
}

void TestAsyncTool::deletingAReplyEmitsNothing()
{
    auto *reply = new ToolReply;
    const Log log(reply);
    bool destroyed = false;
    connect(reply, &QObject::destroyed, this, [&destroyed] { destroyed = true; });
    delete reply;
    QVERIFY(log.lines.isEmpty());
    QVERIFY(destroyed);
}

void TestAsyncTool::resultTravelsThroughQueuedConnections()
{
    ToolReply reply;
    QSignalSpy spy(&reply, &ToolReply::finished);
    QString content;
    connect(
        &reply, &ToolReply::finished, this,
        [&content](const ToolResult &result) { content = result.content; }, Qt::QueuedConnection);
    reply.finish(success("done"));
    QVERIFY(content.isEmpty());
    QTRY_COMPARE(content, "done");
    QCOMPARE(spy.at(0).at(0).value<ToolResult>().content, "done");
}

void TestAsyncTool::asynchronousToolIsNotInvoked()
{
    Echo echo;
    const ToolResult result = echo.invoke({{"a", 1}});
    QVERIFY(!result.success);
    QCOMPARE(result.error, "Tool is asynchronous.");
    QVERIFY(result.content.isEmpty() && result.data.isEmpty());

    QObject owner;
    ToolReply *reply = echo.start({{"a", 1}}, &owner);
    QCOMPARE(reply->parent(), &owner);
    QCOMPARE(reply->result().data, (QJsonObject{{"a", 1}}));
}

QTEST_GUILESS_MAIN(TestAsyncTool)
#include "tst_asynctool.moc"
