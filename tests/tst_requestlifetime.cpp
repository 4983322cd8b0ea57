#include "support/completionrecorder.h"
#include "support/completions.h"
#include "support/loopbackserver.h"
#include "support/rawhttpserver.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

// What a slot may do to a request from inside each of its signals.
class TestRequestLifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsEmittedBeforeChatReturns();
    void aReplyBelongsToItsParentOrTheModel();
    void cancelIsTheLastSignal_data();
    void cancelIsTheLastSignal();
    void deletingTheReplyEndsItsSignals_data();
    void deletingTheReplyEndsItsSignals();
    void deletingTheModelEndsTheSignalsOfItsReplies_data();
    void deletingTheModelEndsTheSignalsOfItsReplies();
    void aNestedEventLoopKeepsTheOrder_data();
    void aNestedEventLoopKeepsTheOrder();
    void deletionInANestedEventLoop_data();
    void deletionInANestedEventLoop();
    void cancelBeforeAnythingWasSent();
    void cancelClosesTheConnection_data();
    void cancelClosesTheConnection();
    void aReplyThatEndedMayStillBeCanceled();
    void aChainOfRequestsMayBeBuiltInFinished();
    void idleConnectionsAreDropped_data();
    void idleConnectionsAreDropped();

private:
    void addSignalRows();
};

namespace {

const QStringList streamed{"delta: a", "delta: b", "delta: c", "finished: abc"};
const QStringList whole{"response: {}", "delta: ", "finished: "};
const QStringList failure{"failed: "};

// A server with an answer for each way a request may go, and a model that asks it.
class Conversation
{
public:
    explicit Conversation(const QString &way)
    {
        if (way == "streamed")
            m_server.enqueue(
                LoopbackAnswer::stream({deltaEvent("a") + deltaEvent("b"), deltaEvent("c"), doneEvent()}));
        else
            m_server.enqueue(LoopbackAnswer::withStatus(way == "whole" ? 200 : 500, "{}"));
        ModelConfig config;
        config.baseUrl = m_server.baseUrl();
        config.model = "m";
        config.stream = way == "streamed";
        model->setConfig(config);
        reply = model->chat({ChatMessage::user("Hi")}, {}, &m_parent);
        recorder = std::make_unique<CompletionRecorder>(reply);
    }

    // Lets Qt do what is left to do: a second request comes back only after the first is over.
    void settle()
    {
        OpenAICompatibleModel other;
        ModelConfig config;
        config.baseUrl = m_server.baseUrl();
        config.model = "m";
        other.setConfig(config);
        QVERIFY(CompletionRecorder(other.chat({}, {}, nullptr)).waitForEnd());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

private:
    LoopbackServer m_server;
    QObject m_parent;

public:
    std::unique_ptr<OpenAICompatibleModel> model = std::make_unique<OpenAICompatibleModel>();
    QPointer<ChatReply> reply;
    std::unique_ptr<CompletionRecorder> recorder;
};

// Whether the entries are the first ones of a sequence, the text of a failure left aside.
bool isBeginning(const QStringList &entries, const QStringList &sequence)
{
    for (int i = 0; i < entries.size(); ++i) {
        if (i >= sequence.size() || !entries.at(i).startsWith(sequence.at(i)))
            return false;
    }
    return true;
}

} // namespace

// One row for each signal of each way that a request may go.
void TestRequestLifetime::addSignalRows()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<QStringList>("sequence");
    QTest::addColumn<int>("index");
    const QVector<QPair<QString, QStringList>> ways{
        {"streamed", streamed}, {"whole", whole}, {"failing", failure}};
    for (const auto &way : ways) {
        for (int i = 0; i < way.second.size(); ++i) {
            const QString row =
                QStringLiteral("%1, in signal %2 (%3)").arg(way.first).arg(i + 1).arg(way.second[i]);
            QTest::newRow(qPrintable(row)) << way.first << way.second << i;
        }
    }
}

void TestRequestLifetime::nothingIsEmittedBeforeChatReturns()
{
    for (const char *const way : {"streamed", "whole", "failing"}) {
        Conversation conversation(way);
        QVERIFY(conversation.recorder->entries().isEmpty());
        QVERIFY(conversation.recorder->waitForEnd());
    }
}

void TestRequestLifetime::aReplyBelongsToItsParentOrTheModel()
{
    Conversation conversation("whole");
    QPointer<ChatReply> orphan = conversation.model->chat({}, {}, nullptr);
    QCOMPARE(orphan->parent(), conversation.model.get());
    QVERIFY(conversation.reply->parent() != conversation.model.get());
    conversation.model.reset();
    QVERIFY(!orphan);
    QVERIFY(conversation.reply);
}

void TestRequestLifetime::cancelIsTheLastSignal_data()
{
    addSignalRows();
}

void TestRequestLifetime::cancelIsTheLastSignal()
{
    QFETCH(QString, way);
    QFETCH(QStringList, sequence);
    QFETCH(int, index);
    Conversation conversation(way);
    conversation.recorder->onSignal([&](const QString &) {
        if (conversation.recorder->entries().size() == index + 1)
            conversation.reply->cancel();
    });
    QTRY_COMPARE(conversation.recorder->entries().size(), index + 2);
    conversation.settle();
    const QStringList entries = conversation.recorder->entries();
    QCOMPARE(entries.size(), index + 2);
    QCOMPARE(entries.last(), "canceled");
    QVERIFY(isBeginning(entries.mid(0, index + 1), sequence));
    QVERIFY(conversation.reply->isCanceled());
}

void TestRequestLifetime::deletingTheReplyEndsItsSignals_data()
{
    addSignalRows();
}

void TestRequestLifetime::deletingTheReplyEndsItsSignals()
{
    QFETCH(QString, way);
    QFETCH(QStringList, sequence);
    QFETCH(int, index);
    Conversation conversation(way);
    conversation.recorder->onSignal([&](const QString &) {
        if (conversation.recorder->entries().size() == index + 1)
            delete conversation.reply;
    });
    QTRY_VERIFY(!conversation.reply);
    conversation.settle();
    QCOMPARE(conversation.recorder->entries().size(), index + 1);
    QVERIFY(isBeginning(conversation.recorder->entries(), sequence));
}

void TestRequestLifetime::deletingTheModelEndsTheSignalsOfItsReplies_data()
{
    addSignalRows();
}

void TestRequestLifetime::deletingTheModelEndsTheSignalsOfItsReplies()
{
    QFETCH(QString, way);
    QFETCH(QStringList, sequence);
    QFETCH(int, index);
    Conversation conversation(way);
    conversation.recorder->onSignal([&](const QString &) {
        if (conversation.recorder->entries().size() == index + 1)
            conversation.model.reset();
    });
    QTRY_VERIFY(!conversation.model);
    conversation.settle();
    QCOMPARE(conversation.recorder->entries().size(), index + 1);
    QVERIFY(isBeginning(conversation.recorder->entries(), sequence));
    QVERIFY(conversation.reply);
}

void TestRequestLifetime::aNestedEventLoopKeepsTheOrder_data()
{
    addSignalRows();
}

void TestRequestLifetime::aNestedEventLoopKeepsTheOrder()
{
    QFETCH(QString, way);
    QFETCH(QStringList, sequence);
    QFETCH(int, index);
    Conversation conversation(way);
    conversation.recorder->onSignal([&](const QString &) {
        if (conversation.recorder->entries().size() == index + 1)
            conversation.settle();
    });
    QTRY_COMPARE(conversation.recorder->entries().size(), sequence.size());
    conversation.settle();
    QCOMPARE(conversation.recorder->entries().size(), sequence.size());
    QVERIFY(isBeginning(conversation.recorder->entries(), sequence));
}

void TestRequestLifetime::deletionInANestedEventLoop_data()
{
    addSignalRows();
}

void TestRequestLifetime::deletionInANestedEventLoop()
{
    QFETCH(QString, way);
    QFETCH(int, index);
    Conversation conversation(way);
    conversation.recorder->onSignal([&](const QString &) {
        if (conversation.recorder->entries().size() != index + 1)
            return;
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] {
            delete conversation.reply;
            conversation.model.reset();
            loop.quit();
        });
        loop.exec();
    });
    QTRY_VERIFY(!conversation.model);
    const int count = conversation.recorder->entries().size();
    conversation.settle();
    QCOMPARE(conversation.recorder->entries().size(), count);
}

void TestRequestLifetime::cancelBeforeAnythingWasSent()
{
    Conversation conversation("streamed");
    conversation.reply->cancel();
    conversation.reply->cancel();
    conversation.settle();
    QCOMPARE(conversation.recorder->entries(), QStringList{"canceled"});
    delete conversation.reply;
}

void TestRequestLifetime::cancelClosesTheConnection_data()
{
    QTest::addColumn<bool>("stream");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("end");
    for (const QString end : {"cancel", "delete the reply", "delete the model"}) {
        const auto add = [&end](const char *row, bool stream, const QByteArray &sent) {
            QTest::addRow("%s: %s", row, qPrintable(end)) << stream << sent << end;
        };
        add("a silent server", false, QByteArray());
        add("a silent server, streamed", true, QByteArray());
        add("a stream that stops", true, eventStreamHead() + deltaEvent("a"));
    }
}

// The request runs until it is ended: the wait step stays where it is, and nothing but the end closes it.
void TestRequestLifetime::cancelClosesTheConnection()
{
    QFETCH(bool, stream);
    QFETCH(QByteArray, sent);
    QFETCH(QString, end);
    RawHttpServer server({RawStep::send(sent), RawStep::wait()});
    QSignalSpy waiting(&server, &RawHttpServer::waiting);
    auto model = std::make_unique<OpenAICompatibleModel>();
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "m";
    config.stream = stream;
    config.timeoutMs = 1;
    model->setConfig(config);
    auto reply = std::unique_ptr<ChatReply>(model->chat({ChatMessage::user("Hi")}, {}, this));
    CompletionRecorder recorder(reply.get());
    const QStringList before = sent.isEmpty() ? QStringList() : QStringList{"delta: a"};
    QTRY_COMPARE(waiting.size(), 1);
    QTRY_COMPARE(recorder.entries(), before);
    QCOMPARE(server.openConnections(), 1);
    if (end == "cancel")
        reply->cancel();
    else if (end == "delete the reply")
        reply.reset();
    else
        model.reset();
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(recorder.entries(), end == "cancel" ? before + QStringList{"canceled"} : before);
    QCOMPARE(server.requests().size(), 1);
}

void TestRequestLifetime::aReplyThatEndedMayStillBeCanceled()
{
    Conversation conversation("streamed");
    QVERIFY(conversation.recorder->waitForEnd());
    conversation.settle();
    conversation.reply->cancel();
    QCOMPARE(conversation.recorder->entries(), streamed + QStringList{"canceled"});
}

void TestRequestLifetime::aChainOfRequestsMayBeBuiltInFinished()
{
    LoopbackServer server;
    server.setHandler([](const LoopbackRequest &) { return LoopbackAnswer::json(completion("ok")); });
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "m";
    config.stream = false;
    model.setConfig(config);
    int answers = 0;
    const std::function<void()> ask = [&] {
        ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, this);
        connect(reply, &ChatReply::finished, this, [&ask, &answers, reply] {
            delete reply;
            if (++answers < 10)
                ask();
        });
    };
    ask();
    QTRY_COMPARE(answers, 10);
    QCOMPARE(server.requests().size(), 10);
}

void TestRequestLifetime::idleConnectionsAreDropped_data()
{
    QTest::addColumn<bool>("isForeign");
    QTest::addColumn<int>("connections");
    QTest::newRow("of the model") << false << 3;
    QTest::newRow("none of somebody else's manager") << true << 1;
}

// Beside a server that keeps each connection, whatever was asked for.
void TestRequestLifetime::idleConnectionsAreDropped()
{
    QFETCH(bool, isForeign);
    const QByteArray answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}";
    RawHttpServer server({RawStep::send(answer), RawStep::again()});
    QNetworkAccessManager manager;
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.model = "m";
    config.stream = false;
    model.setConfig(config);
    if (isForeign)
        model.setNetworkAccessManager(&manager);
    for (int i = 1; i <= 3; ++i) {
        CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.entries().last(), "finished: ");
        QTRY_VERIFY(!model.findChild<QNetworkReply *>() && !manager.findChild<QNetworkReply *>());
        QCOMPARE(server.requests().size(), i);
    }
    QTEST(server.connections(), "connections");
}

QTEST_GUILESS_MAIN(TestRequestLifetime)
#include "tst_requestlifetime.moc"
