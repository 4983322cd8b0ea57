#include "support/completions.h"
#include "support/loopbackserver.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

class TestLoopbackServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aRequestIsRecordedAsItWasParsed();
    void answersComeInTheOrderOfTheQueue();
    void aStreamArrivesWhole();
    void aHeldAnswerWaitsForItsRelease();
    void heldAnswersAreReleasedOneByOne();
    void aHeldStreamSendsItsFirstPieces();
    void aHandlerAnswersWhereTheQueueIsEmpty();
    void anUnscriptedRequestFails();

private:
    std::unique_ptr<QNetworkReply> post(const LoopbackServer &server, const QByteArray &body = "{}");

    QNetworkAccessManager m_network;
};

std::unique_ptr<QNetworkReply> TestLoopbackServer::post(const LoopbackServer &server, const QByteArray &body)
{
    QNetworkRequest request(QUrl(server.baseUrl() + "/chat/completions?a=1"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    request.setRawHeader("X-Test", "one");
    return std::unique_ptr<QNetworkReply>(m_network.post(request, body));
}

void TestLoopbackServer::aRequestIsRecordedAsItWasParsed()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json({{"ok", true}}));
    const auto reply = post(server, R"({"stream":false})");
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), R"({"ok":true})");
    QCOMPARE(server.requests().size(), 1);
    const LoopbackRequest request = server.requests().first();
    QCOMPARE(request.method, "POST");
    QCOMPARE(request.path, "/v1/chat/completions?a=1");
    QCOMPARE(request.headers["content-type"], "application/json");
    QCOMPARE(request.headers["x-test"], "one");
    QCOMPARE(request.body, R"({"stream":false})");
    QCOMPARE(request.json, (QJsonObject{{"stream", false}}));
}

void TestLoopbackServer::answersComeInTheOrderOfTheQueue()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::withStatus(503, "busy", "text/plain"));
    server.enqueue(LoopbackAnswer::json(completion("done")));
    const auto first = post(server);
    QTRY_VERIFY(first->isFinished());
    QCOMPARE(first->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 503);
    QCOMPARE(first->readAll(), "busy");
    const auto second = post(server);
    QTRY_VERIFY(second->isFinished());
    QCOMPARE(QJsonDocument::fromJson(second->readAll()).object(), completion("done"));
}

void TestLoopbackServer::aStreamArrivesWhole()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("Hel"), "", deltaEvent("lo"), doneEvent()}));
    const auto reply = post(server);
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), deltaEvent("Hel") + deltaEvent("lo") + doneEvent());
    QCOMPARE(reply->rawHeader("Content-Type"), "text/event-stream");
}

void TestLoopbackServer::aHeldAnswerWaitsForItsRelease()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json({{"ok", true}}).held());
    server.enqueue(LoopbackAnswer::json({{"ok", true}}));
    const auto held = post(server);
    QTRY_COMPARE(server.requests().size(), 1);
    const auto other = post(server);
    QTRY_VERIFY(other->isFinished());
    QVERIFY(!held->isFinished());
    server.release();
    QTRY_VERIFY(held->isFinished());
    QCOMPARE(held->readAll(), R"({"ok":true})");
}

void TestLoopbackServer::heldAnswersAreReleasedOneByOne()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json({{"ok", true}}).held());
    server.enqueue(LoopbackAnswer::json({{"ok", true}}).held());
    const auto first = post(server);
    QTRY_COMPARE(server.requests().size(), 1);
    const auto second = post(server);
    QTRY_COMPARE(server.requests().size(), 2);
    server.releaseOne();
    QTRY_VERIFY(first->isFinished());
    QVERIFY(!second->isFinished());
    server.releaseOne();
    QTRY_VERIFY(second->isFinished());
}

void TestLoopbackServer::aHeldStreamSendsItsFirstPieces()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({"one ", "two"}).held(1));
    const auto reply = post(server);
    QTRY_COMPARE(reply->bytesAvailable(), 4);
    QVERIFY(!reply->isFinished());
    server.release();
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), "one two");
}

void TestLoopbackServer::aHandlerAnswersWhereTheQueueIsEmpty()
{
    LoopbackServer server;
    server.setHandler([](const LoopbackRequest &request) { return LoopbackAnswer::json(request.json); });
    const auto reply = post(server, R"({"echo":"me"})");
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), R"({"echo":"me"})");
}

void TestLoopbackServer::anUnscriptedRequestFails()
{
    LoopbackServer server;
    const auto reply = post(server);
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), "No answer was scripted.");
    QCOMPARE(reply->error(), QNetworkReply::InternalServerError);
}

QTEST_GUILESS_MAIN(TestLoopbackServer)
#include "tst_loopbackserver.moc"
