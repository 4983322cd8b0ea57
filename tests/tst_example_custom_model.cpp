#include "support/completionrecorder.h"
#include "support/completions.h"
#include "support/eventloop.h"
#include "support/loopbackserver.h"
#include "support/rawhttpserver.h"

#define main exampleMain
#include "../examples/custom_model.cpp" // NOLINT(bugprone-suspicious-include): an example has no header
#undef main

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

namespace {

constexpr int programLimitMs = 60000;

struct Outcome
{
    int status = -1;
    QString output;
    QString error;
};

Outcome runProgram(const QStringList &arguments)
{
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    program.setProcessEnvironment(environment);
    QEventLoop loop; // a raw server needs one
    QTimer::singleShot(programLimitMs, &loop, &QEventLoop::quit);
    QObject::connect(&program, &QProcess::stateChanged, &loop, [&loop](QProcess::ProcessState state) {
        if (state == QProcess::NotRunning)
            loop.quit();
    });
    program.start(CUSTOM_MODEL, arguments);
    loop.exec();
    if (program.state() != QProcess::NotRunning || program.exitStatus() != QProcess::NormalExit)
        return {};
    return {program.exitCode(), QString::fromUtf8(program.readAllStandardOutput()),
            QString::fromUtf8(program.readAllStandardError())};
}

QByteArray line(const QString &text)
{
    return QJsonDocument(QJsonObject{{"text", text}}).toJson(QJsonDocument::Compact) + '\n';
}

// A model and one request to a server that plays a script.
class Request
{
public:
    explicit Request(const QVector<RawStep> &script)
        : server(script)
    {
        ModelConfig config;
        config.baseUrl = server.baseUrl();
        model->setConfig(config);
        reply = model->chat({ChatMessage::user("Hi")}, {}, &m_parent);
        recorder = std::make_unique<CompletionRecorder>(reply);
    }

    void act(const QString &action)
    {
        if (action == "cancel")
            reply->cancel();
        else if (action == "delete the reply")
            delete reply;
        else
            model.reset();
    }

    // What is left to do may be done.
    void settle() const
    {
        QTRY_COMPARE(server.openConnections(), 0);
        runUntilQuiet();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    RawHttpServer server;

private:
    QObject m_parent;

public:
    std::unique_ptr<LineModel> model = std::make_unique<LineModel>();
    QPointer<ChatReply> reply;
    std::unique_ptr<CompletionRecorder> recorder;
};

const QStringList actions{"cancel", "delete the reply", "delete the model"};

} // namespace

class TestCustomModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void programPrintsTheAnswer();
    void programFailsWithTheReport_data();
    void programFailsWithTheReport();

    void conversationIsSent();
    void answerArrivesLineByLine();
    void lineMayArriveInParts();
    void nothingIsEmittedBeforeChatReturns();
    void replyBelongsToItsParentOrTheModel();
    void requestEndsAtOnce_data();
    void requestEndsAtOnce();
    void slotsMayEndTheRequest_data();
    void slotsMayEndTheRequest();
    void slotsMayRunAnEventLoop();
};

void TestCustomModel::programPrintsTheAnswer()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({line("It opens "), line("and closes "), line("管道。")}));
    const Outcome outcome = runProgram({server.baseUrl(), "What is a valve?"});
    QCOMPARE(outcome.error, "");
    QCOMPARE(outcome.output, "It opens and closes 管道。\n");
    QCOMPARE(outcome.status, EXIT_SUCCESS);
}

void TestCustomModel::programFailsWithTheReport_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("error");
    QTest::newRow("refusal") << RawHttpServer::answer("403 No", "")
                             << "Error transferring {url} - server replied: No\n";
    QTest::newRow("answer that breaks off")
        << "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + line("It") << "Connection closed\n";
}

void TestCustomModel::programFailsWithTheReport()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, error);
    const RawHttpServer server({RawStep::send(sent), RawStep::close()});
    const Outcome outcome = runProgram({server.baseUrl(), "What is a valve?"});
    QCOMPARE(outcome.error, error.replace("{url}", server.baseUrl()));
    QCOMPARE(outcome.output, "");
    QCOMPARE(outcome.status, EXIT_FAILURE);
}

void TestCustomModel::conversationIsSent()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({line("Hi")}));
    LineModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    model.setConfig(config);
    CompletionRecorder recorder(
        model.chat({ChatMessage::system("Be brief."), ChatMessage::user("Hello")}, {}, nullptr));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(server.requests().size(), 1);
    const LoopbackRequest request = server.requests().first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.path, QByteArray("/v1"));
    QCOMPARE(request.headers["content-type"], QByteArray("application/json"));
    QCOMPARE(QJsonDocument::fromJson(request.body).array(),
             (QJsonArray{QJsonObject{{"role", "system"}, {"content", "Be brief."}},
                         QJsonObject{{"role", "user"}, {"content", "Hello"}}}));
}

void TestCustomModel::answerArrivesLineByLine()
{
    Request request({RawStep::send(eventStreamHead() + line("Hel")), RawStep::wait(),
                     RawStep::send(line("lo")), RawStep::close()});
    QTRY_COMPARE(request.recorder->entries(), QStringList{"delta: Hel"});
    QCOMPARE(request.reply->text(), "Hel");
    request.server.release();
    QVERIFY(request.recorder->waitForEnd());
    QCOMPARE(request.recorder->entries(), QStringList({"delta: Hel", "delta: lo", "finished: Hello"}));
}

void TestCustomModel::lineMayArriveInParts()
{
    const QByteArray whole = line("管道");
    Request request({RawStep::send(eventStreamHead() + line("A") + whole.left(10)), RawStep::wait(),
                     RawStep::send(whole.mid(10)), RawStep::close()});
    QTRY_COMPARE(request.recorder->entries(), QStringList{"delta: A"});
    request.server.release();
    QVERIFY(request.recorder->waitForEnd());
    QCOMPARE(request.recorder->entries(), QStringList({"delta: A", "delta: 管道", "finished: A管道"}));
}

void TestCustomModel::nothingIsEmittedBeforeChatReturns()
{
    const Request request({RawStep::send(RawHttpServer::answer("200 OK", line("A"))), RawStep::close()});
    QVERIFY(request.recorder->entries().isEmpty());
    QVERIFY(request.recorder->waitForEnd());
    QCOMPARE(request.recorder->entries(), QStringList({"delta: A", "finished: A"}));
}

void TestCustomModel::replyBelongsToItsParentOrTheModel()
{
    auto model = std::make_unique<LineModel>();
    QObject parent;
    const QPointer<ChatReply> owned = model->chat({}, {}, &parent);
    const QPointer<ChatReply> orphan = model->chat({}, {}, nullptr);
    QCOMPARE(owned->parent(), &parent);
    QCOMPARE(orphan->parent(), model.get());
    model.reset();
    QVERIFY(owned);
    QVERIFY(!orphan);
}

void TestCustomModel::requestEndsAtOnce_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("action");
    for (const QString &action : actions) {
        QTest::addRow("silent server: %s", qPrintable(action)) << QByteArray() << action;
        QTest::addRow("answer that stops: %s", qPrintable(action)) << eventStreamHead() + line("A") << action;
    }
}

void TestCustomModel::requestEndsAtOnce()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, action);
    Request request({RawStep::send(sent), RawStep::wait()});
    const QStringList before = sent.isEmpty() ? QStringList() : QStringList{"delta: A"};
    QSignalSpy waiting(&request.server, &RawHttpServer::waiting);
    QTRY_COMPARE(waiting.size(), 1);
    QTRY_COMPARE(request.recorder->entries(), before);
    QCOMPARE(request.server.openConnections(), 1);
    request.act(action);
    request.settle();
    QCOMPARE(request.recorder->entries(), action == "cancel" ? before + QStringList{"canceled"} : before);
}

void TestCustomModel::slotsMayEndTheRequest_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QString>("action");
    const QByteArray answer = RawHttpServer::answer("200 OK", line("A"));
    const QByteArray refusal = RawHttpServer::answer("403 No", "");
    for (const QString &action : actions) {
        const auto add = [&action](const char *signal, const QByteArray &sent, const QStringList &entries) {
            QTest::addRow("%s in %s", qPrintable(action), signal) << sent << entries << action;
        };
        add("deltaReceived", answer, {"delta: A"});
        add("finished", answer, {"delta: A", "finished: A"});
        add("failed", refusal, {"failed: Error transferring {url} - server replied: No"});
    }
}

void TestCustomModel::slotsMayEndTheRequest()
{
    QFETCH(QByteArray, sent);
    QFETCH(QStringList, entries);
    QFETCH(QString, action);
    Request request({RawStep::send(sent), RawStep::close()});
    entries.last().replace("{url}", request.server.baseUrl());
    request.recorder->onSignal([&](const QString &entry) {
        if (entry == entries.last())
            request.act(action);
    });
    QTRY_VERIFY(request.recorder->entries().size() >= entries.size());
    request.settle();
    QCOMPARE(request.recorder->entries(), action == "cancel" ? entries + QStringList{"canceled"} : entries);
}

void TestCustomModel::slotsMayRunAnEventLoop()
{
    Request request({RawStep::send(eventStreamHead() + line("A")), RawStep::wait(), RawStep::send(line("B")),
                     RawStep::close()});
    request.recorder->onSignal([&](const QString &entry) {
        if (entry != "delta: A")
            return;
        request.server.release();
        QVERIFY(request.recorder->waitForEnd());
    });
    QTRY_VERIFY(request.recorder->hasEnded());
    request.settle();
    QCOMPARE(request.recorder->entries(), QStringList({"delta: A", "delta: B", "finished: AB"}));
}

QTEST_GUILESS_MAIN(TestCustomModel)
#include "tst_example_custom_model.moc"
