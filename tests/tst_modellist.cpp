#include "support/httpendpoint.h"
#include "support/rawhttpserver.h"

#include <qtagent/deepseekmodel.h>

#include <QNetworkReply>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

// Which models a service has.
class TestModelList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesAreRead_data();
    void namesAreRead();
    void requestIsThatOfTheProfile();
    void failuresAreThoseOfARequest_data();
    void failuresAreThoseOfARequest();
    void addressIsNeeded();
    void silenceIsLimited();
    void cancelEndsTheRequest();
    void deletionEndsTheRequest();
    void deletionOfTheModelEndsTheRequest();
    void slotMayEndTheReply_data();
    void slotMayEndTheReply();
    void replyBelongsToItsParentOrTheModel();
};

namespace {

void askFrom(const RawHttpServer &server, OpenAICompatibleModel *model)
{
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    model->setConfig(config);
}

} // namespace

void TestModelList::namesAreRead_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("models");
    QTest::newRow("a list") << QByteArray(
        R"({"object":"list","data":[{"id":"b","object":"model"},{"id":"a"}]})")
                            << QStringList{"a", "b"};
    QTest::newRow("a bare array") << QByteArray(R"([{"id":"models/b"},{"id":"a"}])")
                                  << QStringList{"a", "models/b"};
    QTest::newRow("twice and empty") << QByteArray(
        R"({"data":[{"id":"a"},{"id":""},{"id":"a"},{"id":null},{},7]})")
                                     << QStringList{"a"};
    QTest::newRow("none") << QByteArray(R"({"data":null})") << QStringList();
    QTest::newRow("another object") << QByteArray("{}") << QStringList();
}

void TestModelList::namesAreRead()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, models);
    HttpEndpoint endpoint;
    endpoint.server.enqueue(LoopbackAnswer::withStatus(200, body));
    ModelListReply *reply = endpoint.model.listModels();
    QSignalSpy finished(reply, &ModelListReply::finished);
    QVERIFY(reply->isRunning());
    QVERIFY(finished.wait());
    QCOMPARE(finished.at(0).at(0).toStringList(), models);
    QCOMPARE(reply->models(), models);
    QCOMPARE(reply->error(), QString());
    QVERIFY(!reply->isRunning());
}

void TestModelList::requestIsThatOfTheProfile()
{
    HttpEndpoint endpoint;
    endpoint.server.enqueue(LoopbackAnswer::withStatus(200, "{}"));
    RequestOptions options;
    options.headers = {{"X-Title", "Pumps"}};
    options.query = "v=1";
    endpoint.model.setRequestOptions(options);
    QSignalSpy finished(endpoint.model.listModels(), &ModelListReply::finished);
    QVERIFY(finished.wait());
    const LoopbackRequest request = endpoint.server.requests().value(0);
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.path, QByteArray("/v1/models?v=1"));
    QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer key"));
    QCOMPARE(request.headers.value("x-title"), QByteArray("Pumps"));
    QCOMPARE(request.body, QByteArray());
}

void TestModelList::failuresAreThoseOfARequest_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");
    QTest::newRow("a refusal")
        << 401 << QByteArray(R"({"error":{"message":"bad key"}})")
        << "OpenAI-compatible request failed.\nURL: {url}\nHTTP status: 401 Unauthorized\n"
           "Network error: 204 (Host requires authentication)\nResponse: bad key";
    QTest::newRow("a page") << 200 << QByteArray("<h1>Hi</h1>")
                            << "Invalid JSON response: illegal value\nResponse: <h1>Hi</h1>";
}

void TestModelList::failuresAreThoseOfARequest()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, error);
    HttpEndpoint endpoint;
    endpoint.server.enqueue(LoopbackAnswer::withStatus(status, body));
    ModelListReply *reply = endpoint.model.listModels();
    QSignalSpy failed(reply, &ModelListReply::failed);
    QVERIFY(failed.wait());
    QCOMPARE(reply->error(), error.replace("{url}", endpoint.server.baseUrl() + "/models"));
    QCOMPARE(failed.at(0).at(0).toString(), reply->error());
    QCOMPARE(reply->failure().httpStatus, status);
}

void TestModelList::addressIsNeeded()
{
    OpenAICompatibleModel model;
    ModelListReply *reply = model.listModels();
    QSignalSpy failed(reply, &ModelListReply::failed);
    QCOMPARE(reply->error(), QString());
    QVERIFY(failed.wait());
    QCOMPARE(reply->error(), "Missing baseUrl.");

    ModelConfig config;
    config.baseUrl = "gopher://127.0.0.1";
    model.setConfig(config);
    ModelListReply *other = model.listModels();
    QSignalSpy otherFailed(other, &ModelListReply::failed);
    QVERIFY(otherFailed.wait());
    QCOMPARE(other->failure().networkError, 301);

    // Another service has a default.
    RawHttpServer proxy(
        {RawStep::send("HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n"), RawStep::close()});
    DeepSeekModel deepSeek;
    QNetworkAccessManager network;
    network.setProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1", quint16(QUrl(proxy.baseUrl()).port())));
    deepSeek.setNetworkAccessManager(&network);
    ModelListReply *refused = deepSeek.listModels();
    QSignalSpy refusedFailed(refused, &ModelListReply::failed);
    QVERIFY(refusedFailed.wait());
    QVERIFY2(refused->error().contains("\nURL: https://api.deepseek.com/models\n"),
             qPrintable(refused->error()));
    QVERIFY(deepSeek.config().baseUrl.isEmpty());
}

void TestModelList::silenceIsLimited()
{
    RawHttpServer server({RawStep::wait()});
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    config.timeoutMs = 50;
    model.setConfig(config);
    RequestOptions options;
    options.applyTimeLimit = true;
    model.setRequestOptions(options);
    ModelListReply *reply = model.listModels();
    QSignalSpy failed(reply, &ModelListReply::failed);
    QVERIFY(failed.wait());
    QVERIFY(reply->error().contains("Network error: 4 (No data for 50 ms)"));
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(failed.size(), 1);
}

void TestModelList::cancelEndsTheRequest()
{
    const RawHttpServer server({RawStep::wait()});
    OpenAICompatibleModel model;
    askFrom(server, &model);
    ModelListReply *reply = model.listModels();
    QSignalSpy failed(reply, &ModelListReply::failed);
    QSignalSpy canceled(reply, &ModelListReply::canceled);
    QTRY_COMPARE(server.requests().size(), 1);
    reply->cancel();
    reply->cancel();
    QCOMPARE(canceled.size(), 1);
    QVERIFY(!reply->isRunning());
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(failed.size(), 0);
}

void TestModelList::deletionEndsTheRequest()
{
    const RawHttpServer server({RawStep::wait()});
    OpenAICompatibleModel model;
    askFrom(server, &model);
    ModelListReply *reply = model.listModels();
    QTRY_COMPARE(server.requests().size(), 1);
    delete reply;
    QTRY_COMPARE(server.openConnections(), 0);
}

void TestModelList::deletionOfTheModelEndsTheRequest()
{
    const RawHttpServer server({RawStep::wait()});
    auto model = std::make_unique<OpenAICompatibleModel>();
    askFrom(server, model.get());
    QObject owner;
    ModelListReply *reply = model->listModels(&owner);
    QSignalSpy failed(reply, &ModelListReply::failed);
    QTRY_COMPARE(server.requests().size(), 1);
    model.reset();
    QTRY_COMPARE(server.openConnections(), 0);
    QCOMPARE(failed.size(), 0);
    reply->cancel();
    QVERIFY(!reply->isRunning());
}

void TestModelList::slotMayEndTheReply_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("action");
    for (const int status : {200, 500}) {
        for (const char *action : {"delete the reply", "delete the model", "cancel", "ask again"})
            QTest::addRow("%d, %s", status, action) << status << action;
    }
}

void TestModelList::slotMayEndTheReply()
{
    QFETCH(int, status);
    QFETCH(QString, action);
    LoopbackServer server;
    for (int i = 0; i < 2; ++i)
        server.enqueue(LoopbackAnswer::withStatus(status, R"({"data":[{"id":"a"}]})"));
    auto model = std::make_unique<OpenAICompatibleModel>();
    ModelConfig config;
    config.baseUrl = server.baseUrl();
    model->setConfig(config);
    QObject owner;
    QPointer<ModelListReply> reply = model->listModels(&owner);
    int ends = 0;
    const auto act = [&] {
        ++ends;
        if (action == "delete the reply")
            delete reply;
        else if (action == "delete the model")
            model.reset();
        else if (action == "cancel")
            reply->cancel();
        else
            model->listModels(&owner);
    };
    connect(reply, &ModelListReply::finished, &owner, act);
    connect(reply, &ModelListReply::failed, &owner, act);
    QSignalSpy canceled(reply, &ModelListReply::canceled);
    QTRY_COMPARE(ends, 1);
    QTRY_VERIFY(!model || !model->findChild<QNetworkReply *>());
    QCOMPARE(ends, 1);
    QCOMPARE(canceled.size(), 0);
    QCOMPARE(server.requests().size(), action == "ask again" ? 2 : 1);
}

void TestModelList::replyBelongsToItsParentOrTheModel()
{
    OpenAICompatibleModel model;
    QObject owner;
    QCOMPARE(model.listModels(&owner)->parent(), &owner);
    QCOMPARE(model.listModels()->parent(), &model);
}

QTEST_GUILESS_MAIN(TestModelList)
#include "tst_modellist.moc"
