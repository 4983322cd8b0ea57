#include <qtagent/asynctool.h>

#include <QFutureInterface>
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#    include <QPromise>
#endif
#include <QtConcurrent>
#include <QtTest>

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(FutureHandler)

class TestFutureTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolReturnsWhatItWasMadeOf();
    void resultOfTheFutureIsPassedOn();
    void handlerRunsInTheCallersThreadAndKeepsItsState();
    void plainThreadsReportThroughAFuture();
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    void promisesOfQt6Report();
    void promisesOfQt6AreCanceled();
    void exceptionOfAPromiseIsTold();
#endif
    void futureThatHasEndedFinishesFromTheEventLoop();
    void callWithoutAResultFails_data();
    void callWithoutAResultFails();
    void endOfTheReplyCancelsTheFuture_data();
    void endOfTheReplyCancelsTheFuture();
    void finishedFutureIsLeftAlone();
    void toolThatIsDeletedLeavesItsReplyRunning();
    void handlerMayDeleteItsTool();
    void handlerMayDeleteTheParent();
    void exceptionOfTheHandlerPassesThrough();
    void slotsMayDeleteEverything_data();
    void slotsMayDeleteEverything();
};

namespace {

using Promise = QFutureInterface<ToolResult>;

ToolResult success(const QString &content)
{
    return {true, {{"a", 1}}, content, {}, {{"m", 2}}};
}

std::unique_ptr<FutureTool> toolWith(const FutureHandler &handler)
{
    return std::make_unique<FutureTool>("t", "d", QJsonObject(), ToolPermission::ReadOnly, handler);
}

// A tool whose calls are answered by this promise.
std::unique_ptr<FutureTool> toolOf(Promise &promise)
{
    promise.reportStarted();
    return toolWith([&promise](const QJsonObject &) { return promise.future(); });
}

ToolResult resultOf(AsyncTool &tool, const QJsonObject &arguments = {})
{
    const std::unique_ptr<ToolReply> reply(tool.start(arguments, nullptr));
    if (!reply->isRunning())
        return {false, {}, {}, "The reply had ended when start() returned.", {}};
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    if (!finished.wait(30000))
        return {false, {}, {}, "The reply did not finish.", {}};
    return reply->result();
}

QFuture<ToolResult> canceledFuture()
{
    Promise promise;
    promise.reportStarted();
    const ToolResult result = success("too late");
    promise.reportResult(result);
    promise.reportCanceled();
    promise.reportFinished();
    return promise.future();
}

QFuture<ToolResult> futureWithoutAResult()
{
    Promise promise;
    promise.reportStarted();
    promise.reportFinished();
    return promise.future();
}

} // namespace

void TestFutureTool::toolReturnsWhatItWasMadeOf()
{
    QObject owner;
    const QJsonObject schema{{"type", "object"}};
    auto *tool = new FutureTool("n", "d", schema, ToolPermission::Write, {}, &owner);
    QCOMPARE(tool->name(), "n");
    QCOMPARE(tool->description(), "d");
    QCOMPARE(tool->parameters(), schema);
    QCOMPARE(tool->permission(), ToolPermission::Write);
    QCOMPARE(tool->parent(), &owner);
    QCOMPARE(tool->invoke({}).error, "Tool is asynchronous.");
    const ToolReply *reply = tool->start({}, &owner);
    QCOMPARE(reply->parent(), &owner);
}

void TestFutureTool::resultOfTheFutureIsPassedOn()
{
    const auto tool = toolWith([](const QJsonObject &arguments) {
        return QtConcurrent::run([arguments] { return success(arguments["text"].toString()); });
    });
    const ToolResult result = resultOf(*tool, {{"text", "水泵"}});
    QVERIFY(result.success);
    QCOMPARE(result.content, "水泵");
    QCOMPARE(result.data, (QJsonObject{{"a", 1}}));
    QCOMPARE(result.metadata, (QJsonObject{{"m", 2}}));
}

void TestFutureTool::handlerRunsInTheCallersThreadAndKeepsItsState()
{
    QThread *thread = nullptr;
    const auto tool = toolWith([&thread, calls = 0](const QJsonObject &) mutable {
        thread = QThread::currentThread();
        const QString content = QString::number(++calls);
        return QtConcurrent::run([content] { return success(content); });
    });
    QCOMPARE(resultOf(*tool).content, "1");
    QCOMPARE(resultOf(*tool).content, "2");
    QCOMPARE(thread, QThread::currentThread());
}

void TestFutureTool::plainThreadsReportThroughAFuture()
{
    Promise promise;
    const auto tool = toolOf(promise);
    QObject owner;
    ToolReply *reply = tool->start({}, &owner);
    QStringList log;
    connect(reply, &ToolReply::progressed, this, [&log](const QString &text) { log.append(text); });
    connect(reply, &ToolReply::finished, this,
            [&log](const ToolResult &result) { log.append("finished " + result.content); });
    std::thread worker([&promise] {
        promise.setProgressRange(0, 2);
        promise.setProgressValueAndText(1, "half");
    });
    QTRY_COMPARE(log, QStringList{"half"});
    worker.join();
    worker = std::thread([&promise] {
        const ToolResult result = success("done");
        promise.reportFinished(&result);
    });
    QTRY_COMPARE(log, (QStringList{"half", "finished done"}));
    worker.join();
}

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)

namespace {

using Work = std::function<void(QPromise<ToolResult> &)>;

// A tool that works in a thread of its own, which is joined before the next is started.
class PromisingTool
{
public:
    explicit PromisingTool(const Work &work)
        : m_tool(toolWith([this, work](const QJsonObject &) {
            QPromise<ToolResult> promise;
            const QFuture<ToolResult> future = promise.future();
            m_thread = std::thread([work, promise = std::move(promise)]() mutable {
                promise.start();
                work(promise);
                promise.finish();
            });
            return future;
        }))
    {}
    ~PromisingTool() { m_thread.join(); }

    AsyncTool &tool() { return *m_tool; }

private:
    std::thread m_thread;
    std::unique_ptr<FutureTool> m_tool;
};

} // namespace

void TestFutureTool::promisesOfQt6Report()
{
    std::atomic<bool> mayEnd = false;
    PromisingTool promising([&mayEnd](QPromise<ToolResult> &promise) {
        promise.setProgressRange(0, 2);
        promise.setProgressValueAndText(1, "half");
        while (!mayEnd)
            std::this_thread::yield();
        promise.addResult(success("done"));
    });
    const std::unique_ptr<ToolReply> reply(promising.tool().start({}, nullptr));
    QStringList log;
    connect(reply.get(), &ToolReply::progressed, this, [&](const QString &text) {
        log.append(text);
        mayEnd = true;
    });
    connect(reply.get(), &ToolReply::finished, this,
            [&log](const ToolResult &result) { log.append("finished " + result.content); });
    QTRY_COMPARE(log, (QStringList{"half", "finished done"}));
}

// The worker learns of it from its promise.
void TestFutureTool::promisesOfQt6AreCanceled()
{
    std::atomic<bool> wasCanceled = false;
    PromisingTool promising([&wasCanceled](QPromise<ToolResult> &promise) {
        while (!promise.isCanceled())
            std::this_thread::yield();
        wasCanceled = true;
        promise.addResult(success("too late"));
    });
    const std::unique_ptr<ToolReply> reply(promising.tool().start({}, nullptr));
    QSignalSpy canceled(reply.get(), &ToolReply::canceled);
    QSignalSpy finished(reply.get(), &ToolReply::finished);
    reply->cancel();
    QTRY_VERIFY(wasCanceled);
    QCOMPARE(canceled.count(), 1);
    QVERIFY(!reply->isRunning());
    QCoreApplication::processEvents();
    QCOMPARE(finished.count(), 0);
}

void TestFutureTool::exceptionOfAPromiseIsTold()
{
    PromisingTool promising([](QPromise<ToolResult> &promise) {
        promise.setException(std::make_exception_ptr(std::runtime_error("no sensor")));
    });
    QCOMPARE(resultOf(promising.tool()).error, "Tool threw an exception.");
}

#endif

void TestFutureTool::futureThatHasEndedFinishesFromTheEventLoop()
{
    Promise promise;
    const auto tool = toolOf(promise);
    const ToolResult result = success("done");
    promise.reportFinished(&result);
    QCOMPARE(resultOf(*tool).content, "done");
}

void TestFutureTool::callWithoutAResultFails_data()
{
    QTest::addColumn<FutureHandler>("handler");
    QTest::addColumn<QString>("error");
    const QString canceled = "Tool call was canceled.";
    QTest::newRow("no handler") << FutureHandler() << "Tool handler is empty.";
    QTest::newRow("canceled") << FutureHandler([](const QJsonObject &) { return canceledFuture(); })
                              << canceled;
    QTest::newRow("no result") << FutureHandler([](const QJsonObject &) { return futureWithoutAResult(); })
                               << canceled;
    QTest::newRow("no future") << FutureHandler([](const QJsonObject &) { return QFuture<ToolResult>(); })
                               << canceled;
    QTest::newRow("exception") << FutureHandler([](const QJsonObject &) {
        return QtConcurrent::run([]() -> ToolResult { throw std::runtime_error("no sensor"); });
    }) << "Tool threw an exception.";
}

void TestFutureTool::callWithoutAResultFails()
{
    QFETCH(FutureHandler, handler);
    QFETCH(QString, error);
    const ToolResult result = resultOf(*toolWith(handler));
    QVERIFY(!result.success);
    QCOMPARE(result.error, error);
    QVERIFY(result.content.isEmpty() && result.data.isEmpty());
}

void TestFutureTool::endOfTheReplyCancelsTheFuture_data()
{
    QTest::addColumn<bool>("deletes");
    QTest::newRow("canceled") << false;
    QTest::newRow("deleted") << true;
}

// The future is still running: nobody waits for it.
void TestFutureTool::endOfTheReplyCancelsTheFuture()
{
    QFETCH(bool, deletes);
    Promise promise;
    const auto tool = toolOf(promise);
    std::unique_ptr<ToolReply> reply(tool->start({}, nullptr));
    QVERIFY(!promise.isCanceled());
    if (deletes)
        reply.reset();
    else
        reply->cancel();
    QVERIFY(promise.isCanceled());
    QVERIFY(promise.isRunning());
    promise.reportFinished();
}

void TestFutureTool::finishedFutureIsLeftAlone()
{
    Promise promise;
    const auto tool = toolOf(promise);
    const ToolResult result = success("done");
    promise.reportFinished(&result);
    QCOMPARE(resultOf(*tool).content, "done");
    QVERIFY(!promise.isCanceled());
}

void TestFutureTool::toolThatIsDeletedLeavesItsReplyRunning()
{
    Promise promise;
    auto tool = toolOf(promise);
    QObject owner;
    const ToolReply *reply = tool->start({}, &owner);
    tool.reset();
    const ToolResult result = success("done");
    promise.reportFinished(&result);
    QTRY_COMPARE(reply->result().content, "done");
}

void TestFutureTool::handlerMayDeleteItsTool()
{
    const QString content(100, 'x');
    QPointer<FutureTool> tool;
    tool = toolWith([&tool, content](const QJsonObject &) {
               delete tool;
               return QtConcurrent::run([content] { return success(content); });
           }).release();
    QObject owner;
    const ToolReply *reply = tool->start({}, &owner);
    QVERIFY(!tool);
    QTRY_COMPARE(reply->result().content, content);
}

void TestFutureTool::handlerMayDeleteTheParent()
{
    Promise promise;
    promise.reportStarted();
    QPointer<QObject> window = new QObject;
    const auto tool = toolWith([&](const QJsonObject &) {
        delete window;
        return promise.future();
    });
    QCOMPARE(tool->start({}, window), nullptr);
    QVERIFY(promise.isCanceled());
    promise.reportFinished();
}

void TestFutureTool::exceptionOfTheHandlerPassesThrough()
{
    QObject owner;
    const auto tool =
        toolWith([](const QJsonObject &) -> QFuture<ToolResult> { throw std::runtime_error("no thread"); });
    QVERIFY_EXCEPTION_THROWN(tool->start({}, &owner), std::runtime_error);
    QVERIFY(owner.children().isEmpty());
}

void TestFutureTool::slotsMayDeleteEverything_data()
{
    QTest::addColumn<QString>("signal");
    for (const char *signal : {"progressed", "finished", "canceled"})
        QTest::newRow(signal) << signal;
}

void TestFutureTool::slotsMayDeleteEverything()
{
    QFETCH(QString, signal);
    Promise promise;
    QPointer<FutureTool> tool = toolOf(promise).release();
    QPointer<QObject> window = new QObject;
    const QPointer<ToolReply> reply = tool->start({}, window);
    const auto deleteAll = [&] {
        delete tool;
        delete window;
    };
    connect(reply, &ToolReply::progressed, this, deleteAll);
    connect(reply, &ToolReply::finished, this, deleteAll);
    connect(reply, &ToolReply::canceled, this, deleteAll);
    const ToolResult result = success("done");
    if (signal == "progressed")
        promise.setProgressValueAndText(1, "half");
    else if (signal == "finished")
        promise.reportFinished(&result);
    else
        reply->cancel();
    QTRY_VERIFY(!reply);
    promise.reportFinished();
}

QTEST_GUILESS_MAIN(TestFutureTool)
#include "tst_futuretool.moc"
