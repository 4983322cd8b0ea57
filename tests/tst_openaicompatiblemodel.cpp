#include "support/completionrecorder.h"
#include "support/completions.h"
#include "support/loopbackserver.h"
#include "support/rawhttpserver.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/streamserver.h>

#include <QNetworkReply>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What is asked, and what comes of each answer.
class TestOpenAICompatibleModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aProfileWithoutAddressOrModelFails_data();
    void aProfileWithoutAddressOrModelFails();
    void theRequestIsOnePost();
    void theRequestIsNeverSentOverHttp2();
    void theAddressIsTrimmed_data();
    void theAddressIsTrimmed();
    void theKeyIsSentAsItStands_data();
    void theKeyIsSentAsItStands();
    void theBodyCarriesTheConversation();
    void toolsTurnStreamingOff();
    void aProfileMayTurnStreamingOff();
    void aWholeAnswerIsDelivered();
    void aWholeAnswerMayLackItsText_data();
    void aWholeAnswerMayLackItsText();
    void toolCallsStayInTheResponse();
    void aBodyThatIsNoObjectFails_data();
    void aBodyThatIsNoObjectFails();
    void aStreamIsDeliveredPieceByPiece();
    void aStreamArrivesWhileItIsSent();
    void aStreamMayBeCutAnywhere();
    void theErrorReportHasALineForEachFact_data();
    void theErrorReportHasALineForEachFact();
    void statusesFailFrom400On_data();
    void statusesFailFrom400On();
    void redirectsAreNotFollowed_data();
    void redirectsAreNotFollowed();
    void theKeyIsInNoEmittedText_data();
    void theKeyIsInNoEmittedText();
    void aNewProfileLeavesRequestsInFlightAlone();
    void eightRequestsAtOnceAllArrive();
};

namespace {

const QString secretKey = "sk-0123456789-secret";

ModelConfig profile(const QString &baseUrl, bool stream = true)
{
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.model = "test-model";
    config.apiKey = secretKey;
    config.stream = stream;
    return config;
}

// Asks the model and returns all that the reply emitted until it ended.
QStringList ask(const ModelConfig &config, const QVector<ToolDefinition> &tools = {})
{
    OpenAICompatibleModel model;
    model.setConfig(config);
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, tools, nullptr));
    recorder.waitForEnd();
    return recorder.entries();
}

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QVector<RawStep> sendAndClose(const QByteArray &bytes)
{
    return {RawStep::send(bytes), RawStep::close()};
}

} // namespace

void TestOpenAICompatibleModel::aProfileWithoutAddressOrModelFails_data()
{
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("modelName");
    QTest::newRow("no address") << ""
                                << "m";
    QTest::newRow("an address of spaces") << " \t\n"
                                          << "m";
    QTest::newRow("no model") << "http://127.0.0.1:9"
                              << "";
    QTest::newRow("a model of spaces") << "http://127.0.0.1:9"
                                       << "  ";
}

void TestOpenAICompatibleModel::aProfileWithoutAddressOrModelFails()
{
    QFETCH(QString, baseUrl);
    QFETCH(QString, modelName);
    OpenAICompatibleModel model;
    ModelConfig config;
    config.baseUrl = baseUrl;
    config.model = modelName;
    model.setConfig(config);
    ChatReply *reply = model.chat({}, {}, nullptr);
    CompletionRecorder recorder(reply);
    QCOMPARE(reply->parent(), &model);
    QVERIFY(recorder.entries().isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(recorder.entries(), QStringList{"failed: Missing baseUrl or model."});

    CompletionRecorder canceled(reply = model.chat({}, {}, this));
    QCOMPARE(reply->parent(), this);
    reply->cancel();
    QCoreApplication::processEvents();
    QCOMPARE(canceled.entries(), QStringList{"canceled"});
}

void TestOpenAICompatibleModel::theRequestIsOnePost()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::json(completion("Hello")));
    ask(profile(server.baseUrl(), false));
    QCOMPARE(server.requests().size(), 1);
    const LoopbackRequest request = server.requests().first();
    QCOMPARE(request.method, "POST");
    QCOMPARE(request.path, "/v1/chat/completions");
    QCOMPARE(request.headers["content-type"], "application/json");
    QCOMPARE(request.headers["authorization"], "Bearer " + secretKey.toUtf8());
    QCOMPARE(request.headers["content-length"].toInt(), request.body.size());
    QCOMPARE(request.headers["accept-encoding"], "identity");
    QCOMPARE(request.headers["connection"], "close");
    QVERIFY(!request.headers.contains("cookie"));
}

void TestOpenAICompatibleModel::theRequestIsNeverSentOverHttp2()
{
    for (const bool stream : {false, true}) {
        OpenAICompatibleModel model;
        model.setConfig(profile("https://127.0.0.1:9", stream));
        model.chat({ChatMessage::user("Hi")}, {}, nullptr);
        const QNetworkRequest request = model.findChild<QNetworkReply *>()->request();
        QCOMPARE(request.attribute(QNetworkRequest::Http2AllowedAttribute, true).toBool(), false);
    }
}

void TestOpenAICompatibleModel::theAddressIsTrimmed_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("as it is") << "" << QByteArray("/v1/chat/completions");
    QTest::newRow("one slash") << "/" << QByteArray("/v1/chat/completions");
    QTest::newRow("three slashes") << "///" << QByteArray("/v1/chat/completions");
    QTest::newRow("spaces") << " \n" << QByteArray("/v1/chat/completions");
    QTest::newRow("slashes within stay") << "//a/" << QByteArray("/v1//a/chat/completions");
    QTest::newRow("a blank within is encoded") << "/a b" << QByteArray("/v1/a%20b/chat/completions");
}

void TestOpenAICompatibleModel::theAddressIsTrimmed()
{
    QFETCH(QString, suffix);
    QFETCH(QByteArray, path);
    LoopbackServer server;
    ask(profile(" " + server.baseUrl() + suffix));
    QCOMPARE(server.requests().first().path, path);
}

void TestOpenAICompatibleModel::theKeyIsSentAsItStands_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("a key") << "abc" << QByteArray("Authorization: Bearer abc\r\n");
    QTest::newRow("an empty key") << "" << QByteArray();
    QTest::newRow("a key of spaces") << "   " << QByteArray("Authorization: Bearer    \r\n");
    QTest::newRow("a key with a place marker") << "%1" << QByteArray("Authorization: Bearer %1\r\n");
    QTest::newRow("a key in UTF-8") << "ключ" << QByteArray("Authorization: Bearer ключ\r\n");
    QTest::newRow("line breaks add no header") << "abc\r\nX-Injected: yes\n"
                                               << QByteArray("Authorization: Bearer abcX-Injected: yes\r\n");
}

void TestOpenAICompatibleModel::theKeyIsSentAsItStands()
{
    QFETCH(QString, key);
    QFETCH(QByteArray, header);
    RawHttpServer server(sendAndClose(RawHttpServer::answer("200 OK", "{}")));
    ModelConfig config = profile(server.baseUrl());
    config.apiKey = key;
    ask(config);
    const QByteArray request = server.requests().first();
    QCOMPARE(request.contains("Authorization"), !header.isEmpty());
    QVERIFY2(request.contains(header), request.constData());
    QVERIFY(!request.contains("\nX-Injected"));
}

void TestOpenAICompatibleModel::theBodyCarriesTheConversation()
{
    StreamServer server;
    OpenAICompatibleModel model;
    ModelConfig config = profile(server.baseUrl());
    config.model = " m ";
    config.temperature = 0.7;
    config.maxTokens = 77;
    model.setConfig(config);
    const QVector<ChatMessage> conversation{ChatMessage::system("Be brief."),
                                            ChatMessage::user("你好 \U0001F600")};
    CompletionRecorder recorder(model.chat(conversation, {}, nullptr));
    QVERIFY(recorder.waitForEnd());
    const QJsonArray messages{QJsonObject{{"role", "system"}, {"content", "Be brief."}},
                              QJsonObject{{"role", "user"}, {"content", "你好 \U0001F600"}}};
    const QJsonObject body{
        {"model", " m "}, {"messages", messages}, {"temperature", 0.7}, {"max_tokens", 77}, {"stream", true}};
    QCOMPARE(QString::fromUtf8(server.requestBodies().first()), compact(body));
}

void TestOpenAICompatibleModel::toolsTurnStreamingOff()
{
    StreamServer server;
    server.addAnswer(200, compact(completion("Hello")).toUtf8());
    const QVector<ToolDefinition> tools{{"b", "B.", {{"type", "object"}}, ToolPermission::Write},
                                        {"a", "", {}, {}}};
    const QStringList entries = ask(profile(server.baseUrl(), true), tools);
    const QJsonObject body = QJsonDocument::fromJson(server.requestBodies().value(0)).object();
    QCOMPARE(body["stream"], false);
    QCOMPARE(body["tool_choice"], "auto");
    QCOMPARE(body["tools"].toArray(),
             (QJsonArray{toolDefinitionToJson(tools[0]), toolDefinitionToJson(tools[1])}));
    QCOMPARE(entries.first(), "response: " + compact(completion("Hello")));
}

void TestOpenAICompatibleModel::aProfileMayTurnStreamingOff()
{
    StreamServer server;
    ask(profile(server.baseUrl(), false));
    const QJsonObject body = QJsonDocument::fromJson(server.requestBodies().value(0)).object();
    QCOMPARE(body["stream"], false);
    QVERIFY(!body.contains("tools"));
    QVERIFY(!body.contains("tool_choice"));
}

void TestOpenAICompatibleModel::aWholeAnswerIsDelivered()
{
    StreamServer server;
    server.addAnswer(200, compact(completion("你好")).toUtf8());
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl(), false));
    ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, nullptr);
    CompletionRecorder recorder(reply);
    QStringList texts;
    recorder.onSignal([&](const QString &) { texts.append(reply->text()); });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(),
             QStringList({"response: " + compact(completion("你好")), "delta: 你好", "finished: 你好"}));
    QCOMPARE(texts, QStringList({"", "你好", "你好"}));
    QCOMPARE(reply->response(), completion("你好"));
}

void TestOpenAICompatibleModel::aWholeAnswerMayLackItsText_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("no choices") << QByteArray("{}");
    QTest::newRow("empty choices") << QByteArray(R"({"choices":[]})");
    QTest::newRow("no message") << QByteArray(R"({"choices":[{}]})");
    QTest::newRow("null content") << QByteArray(R"({"choices":[{"message":{"content":null}}]})");
    QTest::newRow("content that is no text") << QByteArray(R"({"choices":[{"message":{"content":["a"]}}]})");
    QTest::newRow("an error in a good answer") << QByteArray(R"({"error":{"message":"M"}})");
}

void TestOpenAICompatibleModel::aWholeAnswerMayLackItsText()
{
    QFETCH(QByteArray, body);
    StreamServer server;
    server.addAnswer(200, body);
    QCOMPARE(ask(profile(server.baseUrl(), false)),
             QStringList({"response: " + QString::fromUtf8(body), "delta: ", "finished: "}));
}

void TestOpenAICompatibleModel::toolCallsStayInTheResponse()
{
    StreamServer server;
    const QJsonObject answer = completion("", {makeToolCall("c1", "lookup", {{"a", 1}})});
    server.addAnswer(200, compact(answer).toUtf8());
    QCOMPARE(ask(profile(server.baseUrl(), false)),
             QStringList({"response: " + compact(answer), "delta: ", "finished: "}));
}

void TestOpenAICompatibleModel::aBodyThatIsNoObjectFails_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");
    QTest::newRow("nothing") << QByteArray()
                             << "Invalid JSON response: illegal value\nResponse: (empty response body)";
    QTest::newRow("HTML") << QByteArray("<html>%2</html>")
                          << "Invalid JSON response: illegal value\nResponse: <html>%2</html>";
    QTest::newRow("an array") << QByteArray("[ 1 ]")
                              << "Invalid JSON response: no error occurred\nResponse: [1]";
    QTest::newRow("half an object") << QByteArray(R"({"choices":)")
                                    << "Invalid JSON response: unterminated object\nResponse: {\"choices\":";
    QTest::newRow("text after the object")
        << QByteArray("{} more")
        << "Invalid JSON response: garbage at the end of the document\nResponse: {} more";
}

void TestOpenAICompatibleModel::aBodyThatIsNoObjectFails()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, error);
    StreamServer server;
    server.addAnswer(200, body);
    QCOMPARE(ask(profile(server.baseUrl(), false)), QStringList{"failed: " + error});
}

void TestOpenAICompatibleModel::aStreamIsDeliveredPieceByPiece()
{
    StreamServer server;
    server.addRaw({eventStreamHead(), deltaEvent("Hel") + deltaEvent(""), "data: nonsense\n\n",
                   deltaEvent("lo"), doneEvent(), deltaEvent("!"), deltaEvent(" lost").trimmed()});
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl()));
    ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, nullptr);
    CompletionRecorder recorder(reply);
    QStringList texts;
    recorder.onSignal([&](const QString &) { texts.append(reply->text()); });
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.entries(), QStringList({"delta: Hel", "delta: lo", "delta: !", "finished: Hello!"}));
    QCOMPARE(texts, QStringList({"Hel", "Hello", "Hello!", "Hello!"}));
    QVERIFY(reply->response().isEmpty());
}

void TestOpenAICompatibleModel::aStreamArrivesWhileItIsSent()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("first"), deltaEvent(" second")}).held(1));
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl()));
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    QTRY_COMPARE(recorder.entries(), QStringList{"delta: first"});
    server.release();
    QTRY_COMPARE(recorder.entries(),
                 QStringList({"delta: first", "delta:  second", "finished: first second"}));
}

// The second part is sent when the client has read the first.
void TestOpenAICompatibleModel::aStreamMayBeCutAnywhere()
{
    const QByteArray stream = R"(data: {"choices":[{"delta":{"content":"泵é"}}]})"
                              "\r\n\r\n"
                              R"(data: {"choices":[{"delta":{"content":"😀!"}}]})"
                              "\n\ndata: [DONE]\n\n";
    const QStringList whole{"delta: 泵é", "delta: 😀!", "finished: 泵é😀!"};
    for (int cut = 1; cut < stream.size(); ++cut) {
        RawHttpServer server({RawStep::send(eventStreamHead() + stream.left(cut)), RawStep::wait(),
                              RawStep::send(stream.mid(cut)), RawStep::close()});
        OpenAICompatibleModel model;
        model.setConfig(profile(server.baseUrl()));
        CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
        connect(model.findChild<QNetworkReply *>(), &QNetworkReply::readyRead, &server,
                &RawHttpServer::release, Qt::QueuedConnection);
        QVERIFY2(recorder.waitForEnd(), qPrintable(QStringLiteral("cut at %1").arg(cut)));
        QVERIFY2(recorder.entries() == whole, qPrintable(QStringLiteral("cut at %1").arg(cut)));
    }
}

void TestOpenAICompatibleModel::theErrorReportHasALineForEachFact_data()
{
    const QByteArray error = R"({"error":{"message":"M","type":"T","code":"C"}})";
    QTest::addColumn<bool>("stream");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("report");
    for (const bool stream : {false, true}) {
        const char *const path = stream ? "streamed" : "whole";
        QTest::addRow("%s%s", path, ": an error object")
            << stream << RawHttpServer::answer("401 Unauthorized", error)
            << "HTTP status: 401 Unauthorized\nNetwork error: 204 (Host requires authentication)\n"
               "Response: M; type=T; code=C";
        QTest::addRow("%s%s", path, ": an empty body")
            << stream << RawHttpServer::answer("500 Internal Server Error", "")
            << "HTTP status: 500 Internal Server Error\nNetwork error: 401 "
               "(Error transferring URL - server replied: Internal Server Error)\n"
               "Response: (empty response body)";
        QTest::addRow("%s%s", path, ": no reason")
            << stream << RawHttpServer::answer("429 ", "slow down")
            << "HTTP status: 429\nNetwork error: 299 (Error transferring URL - server replied: )\n"
               "Response: slow down";
        QTest::addRow("%s%s", path, ": no answer")
            << stream << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}")
            << "HTTP status: 200 OK\nNetwork error: 2 (Connection closed)\nResponse: {}";
    }
}

void TestOpenAICompatibleModel::theErrorReportHasALineForEachFact()
{
    QFETCH(bool, stream);
    QFETCH(QByteArray, answer);
    QFETCH(QString, report);
    StreamServer server;
    server.addRaw({answer});
    const QString url = server.baseUrl() + "/chat/completions";
    report.replace("URL", url);
    QCOMPARE(ask(profile(server.baseUrl(), stream)),
             QStringList{"failed: OpenAI-compatible request failed.\nURL: " + url + "\n" + report});
}

void TestOpenAICompatibleModel::statusesFailFrom400On_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("networkError");
    const QVector<QPair<int, int>> errors{{400, 302}, {402, 299}, {403, 201}, {404, 203}, {405, 202},
                                          {407, 105}, {409, 206}, {410, 207}, {418, 302}, {422, 299},
                                          {429, 299}, {499, 299}, {500, 401}, {501, 402}, {502, 499},
                                          {503, 403}, {504, 499}, {599, 499}};
    for (const auto &error : errors)
        QTest::addRow("%d", error.first) << error.first << error.second;
    for (const int good : {200, 201, 206, 300, 304, 399})
        QTest::addRow("%d", good) << good << 0;
}

void TestOpenAICompatibleModel::statusesFailFrom400On()
{
    QFETCH(int, status);
    QFETCH(int, networkError);
    StreamServer server;
    server.addRaw({RawHttpServer::answer(QByteArray::number(status) + " Reason", "")});
    const QStringList entries = ask(profile(server.baseUrl()));
    QCOMPARE(entries.size(), 1);
    if (networkError == 0) {
        QCOMPARE(entries.first(), "finished: ");
        return;
    }
    const QStringList lines = entries.first().split('\n');
    QCOMPARE(lines.value(2), QStringLiteral("HTTP status: %1 Reason").arg(status));
    QVERIFY2(lines.value(3).startsWith(QStringLiteral("Network error: %1 (").arg(networkError)),
             qPrintable(entries.first()));
}

void TestOpenAICompatibleModel::redirectsAreNotFollowed_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {301, 302, 303, 307, 308})
        QTest::addRow("%d", status) << status;
}

void TestOpenAICompatibleModel::redirectsAreNotFollowed()
{
    QFETCH(int, status);
    LoopbackServer other;
    LoopbackServer server;
    LoopbackAnswer redirect = LoopbackAnswer::withStatus(status, "", "text/plain");
    redirect.headers["Location"] = (other.baseUrl() + "/chat/completions").toUtf8();
    server.enqueue(redirect);
    server.enqueue(redirect);
    QCOMPARE(ask(profile(server.baseUrl(), true)), QStringList{"finished: "});
    QCOMPARE(ask(profile(server.baseUrl(), false)),
             QStringList{"failed: Invalid JSON response: illegal value\nResponse: (empty response body)"});
    QCOMPARE(server.requests().size(), 2);
    QVERIFY(other.requests().isEmpty());
}

void TestOpenAICompatibleModel::theKeyIsInNoEmittedText_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("a refusal") << RawHttpServer::answer("401 Unauthorized", R"({"error":"no"})");
    QTest::newRow("an error") << RawHttpServer::answer("500 Oops", "oops");
    QTest::newRow("garbage") << QByteArray("garbage");
    QTest::newRow("silence, then the end") << QByteArray();
    QTest::newRow("HTML") << RawHttpServer::answer("200 OK", "<html>");
    QTest::newRow("a good answer") << RawHttpServer::answer("200 OK", "{}");
}

void TestOpenAICompatibleModel::theKeyIsInNoEmittedText()
{
    QFETCH(QByteArray, answer);
    RawHttpServer server(sendAndClose(answer));
    for (const bool stream : {false, true}) {
        const QString texts = ask(profile(server.baseUrl(), stream)).join('\n');
        QVERIFY(!texts.isEmpty());
        QVERIFY2(!texts.contains(secretKey), qPrintable(texts));
    }
    QVERIFY(server.requests().first().contains(secretKey.toUtf8()));
}

void TestOpenAICompatibleModel::aNewProfileLeavesRequestsInFlightAlone()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("old")}).held());
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl()));
    CompletionRecorder recorder(model.chat({ChatMessage::user("Hi")}, {}, nullptr));
    model.setConfig({});
    server.release();
    QTRY_COMPARE(recorder.entries(), QStringList({"delta: old", "finished: old"}));
    QCOMPARE(server.requests().first().json["model"], "test-model");
}

void TestOpenAICompatibleModel::eightRequestsAtOnceAllArrive()
{
    LoopbackServer server;
    server.setHandler([](const LoopbackRequest &request) {
        const QString question = request.json["messages"][0]["content"].toString();
        return LoopbackAnswer::json(completion("answer to " + question));
    });
    OpenAICompatibleModel model;
    model.setConfig(profile(server.baseUrl(), false));
    std::vector<std::unique_ptr<CompletionRecorder>> recorders;
    for (int i = 0; i < 8; ++i) {
        const auto question = ChatMessage::user(QString::number(i));
        recorders.push_back(std::make_unique<CompletionRecorder>(model.chat({question}, {}, nullptr)));
    }
    for (int i = 0; i < 8; ++i) {
        QVERIFY(recorders[i]->waitForEnd());
        QCOMPARE(recorders[i]->entries().last(), QStringLiteral("finished: answer to %1").arg(i));
    }
    QCOMPARE(server.requests().size(), 8);
}

QTEST_GUILESS_MAIN(TestOpenAICompatibleModel)
#include "tst_openaicompatiblemodel.moc"
