#include <qtagent/chatmodel.h>

#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(std::function<void(ChatReply *)>)

namespace {

// Writes down every signal of a reply in the order of emission.
class SignalLog : public QObject
{
public:
    explicit SignalLog(ChatReply *reply)
    {
        connect(reply, &ChatReply::deltaReceived, this,
                [this](const QString &delta) { add("delta " + delta); });
        connect(reply, &ChatReply::responseReceived, this, [this](const QJsonObject &) { add("response"); });
        connect(reply, &ChatReply::finished, this, [this](const QString &text) { add("finished " + text); });
        connect(reply, &ChatReply::failed, this, [this](const QString &error) { add("failed " + error); });
        connect(reply, &ChatReply::canceled, this, [this] { add("canceled"); });
    }

    QStringList entries;

private:
    void add(const QString &entry) { entries.append(entry); }
};

class SilentModel : public ChatModel
{
public:
    using ChatModel::ChatModel;
    ChatReply *chat(const QVector<ChatMessage> &, const QVector<ToolDefinition> &, QObject *parent) override
    {
        return new ChatReply(parent ? parent : this);
    }
};

} // namespace

class TestChatModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaMethodsOfReplyKeepTheirOrder();
    void newReplyIsEmpty();
    void deltasAddUpBeforeTheyAreEmitted();
    void emptyDeltaIsEmitted();
    void finishReplacesTheText();
    void responseIsStoredBeforeItIsEmitted();
    void nothingFollowsTheEnd_data();
    void nothingFollowsTheEnd();
    void cancelIsEmittedOnceAndSilencesTheReply();
    void endedReplyCanStillBeCanceled();
    void replyThatIsOverStillDeliversItsResponse();
    void failLaterFailsOnTheNextTurn();
    void failLaterStaysSilentOnceCanceled();
    void slotMayDeleteTheReply_data();
    void slotMayDeleteTheReply();
    void argumentsOutliveTheReplyThatTheyCameFrom();
    void modelStartsWithTheDefaultProfile();
    void setConfigReplacesTheWholeProfile();
    void replyWithoutParentDiesWithTheModel();
};

void TestChatModel::metaMethodsOfReplyKeepTheirOrder()
{
    const QMetaObject &meta = ChatReply::staticMetaObject;
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(signatures, (QStringList{"deltaReceived(QString)", "responseReceived(QJsonObject)",
                                      "finished(QString)", "failed(QString)", "canceled()", "cancel()"}));
}

void TestChatModel::newReplyIsEmpty()
{
    const ChatReply reply;
    QVERIFY(!reply.isCanceled());
    QVERIFY(reply.text().isEmpty());
    QVERIFY(reply.response().isEmpty());
}

void TestChatModel::deltasAddUpBeforeTheyAreEmitted()
{
    ChatReply reply;
    QStringList texts;
    connect(&reply, &ChatReply::deltaReceived, &reply, [&] { texts.append(reply.text()); });
    reply.appendDelta("一");
    reply.appendDelta("二");
    QCOMPARE(texts, (QStringList{"一", "一二"}));
}

void TestChatModel::emptyDeltaIsEmitted()
{
    ChatReply reply;
    SignalLog log(&reply);
    reply.appendDelta(QString());
    QCOMPARE(log.entries, QStringList{"delta "});
}

void TestChatModel::finishReplacesTheText()
{
    ChatReply reply;
    QString textInSlot;
    connect(&reply, &ChatReply::finished, &reply, [&] { textInSlot = reply.text(); });
    reply.appendDelta("draft");
    reply.finish("answer");
    QCOMPARE(textInSlot, QStringLiteral("answer"));
}

void TestChatModel::responseIsStoredBeforeItIsEmitted()
{
    ChatReply reply;
    const QJsonObject response{{"id", "r1"}};
    QJsonObject responseInSlot;
    connect(&reply, &ChatReply::responseReceived, &reply, [&] { responseInSlot = reply.response(); });
    reply.setResponse(response);
    QCOMPARE(responseInSlot, response);
}

void TestChatModel::nothingFollowsTheEnd_data()
{
    QTest::addColumn<bool>("finishes");
    QTest::addColumn<QString>("end");
    QTest::newRow("finished") << true << "finished answer";
    QTest::newRow("failed") << false << "failed broken";
}

void TestChatModel::nothingFollowsTheEnd()
{
    QFETCH(bool, finishes);
    QFETCH(QString, end);
    ChatReply reply;
    SignalLog log(&reply);
    if (finishes)
        reply.finish("answer");
    else
        reply.fail("broken");
    const QString text = reply.text();
    reply.appendDelta("late");
    reply.finish("late");
    reply.fail("late");
    QCOMPARE(log.entries, QStringList{end});
    QCOMPARE(reply.text(), text);
}

void TestChatModel::cancelIsEmittedOnceAndSilencesTheReply()
{
    ChatReply reply;
    SignalLog log(&reply);
    reply.appendDelta("a");
    reply.cancel();
    reply.cancel();
    reply.appendDelta("b");
    reply.finish("c");
    reply.fail("d");
    QCOMPARE(log.entries, (QStringList{"delta a", "canceled"}));
    QVERIFY(reply.isCanceled());
    QCOMPARE(reply.text(), QStringLiteral("a"));
}

void TestChatModel::endedReplyCanStillBeCanceled()
{
    ChatReply reply;
    SignalLog log(&reply);
    reply.finish("answer");
    reply.cancel();
    QCOMPARE(log.entries, (QStringList{"finished answer", "canceled"}));
    QCOMPARE(reply.text(), QStringLiteral("answer"));
}

void TestChatModel::replyThatIsOverStillDeliversItsResponse()
{
    const QVector<std::function<void(ChatReply *)>> ends{
        [](ChatReply *reply) { reply->cancel(); },
        [](ChatReply *reply) { reply->finish("answer"); },
        [](ChatReply *reply) { reply->fail("broken"); },
    };
    for (const auto &end : ends) {
        ChatReply reply;
        end(&reply);
        SignalLog log(&reply);
        reply.setResponse({{"id", "r1"}});
        QCOMPARE(log.entries, QStringList{"response"});
        QCOMPARE(reply.response(), (QJsonObject{{"id", "r1"}}));
    }
}

void TestChatModel::failLaterFailsOnTheNextTurn()
{
    QObject owner;
    ChatReply *reply = ChatReply::failLater("broken", &owner);
    SignalLog log(reply);
    QCOMPARE(reply->parent(), &owner);
    QVERIFY(log.entries.isEmpty());
    QTRY_COMPARE(log.entries, QStringList{"failed broken"});
}

void TestChatModel::failLaterStaysSilentOnceCanceled()
{
    ChatReply *reply = ChatReply::failLater("broken", this);
    SignalLog log(reply);
    reply->cancel();
    ChatReply *later = ChatReply::failLater("later", this);
    QSignalSpy laterFailed(later, &ChatReply::failed);
    QVERIFY(laterFailed.wait());
    QCOMPARE(log.entries, QStringList{"canceled"});
}

void TestChatModel::slotMayDeleteTheReply_data()
{
    using Action = std::function<void(ChatReply *)>;
    QTest::addColumn<Action>("emitSignal");
    QTest::newRow("in deltaReceived") << Action([](ChatReply *reply) { reply->appendDelta("a"); });
    QTest::newRow("in responseReceived") << Action([](ChatReply *reply) { reply->setResponse({{"id", 1}}); });
    QTest::newRow("in finished") << Action([](ChatReply *reply) { reply->finish("a"); });
    QTest::newRow("in failed") << Action([](ChatReply *reply) { reply->fail("a"); });
    QTest::newRow("in canceled") << Action([](ChatReply *reply) { reply->cancel(); });
}

void TestChatModel::slotMayDeleteTheReply()
{
    QFETCH(std::function<void(ChatReply *)>, emitSignal);
    const QPointer<ChatReply> reply(new ChatReply);
    const auto deleteReply = [reply] { delete reply.data(); };
    connect(reply, &ChatReply::deltaReceived, this, deleteReply);
    connect(reply, &ChatReply::responseReceived, this, deleteReply);
    connect(reply, &ChatReply::finished, this, deleteReply);
    connect(reply, &ChatReply::failed, this, deleteReply);
    connect(reply, &ChatReply::canceled, this, deleteReply);
    emitSignal(reply);
    QVERIFY(!reply);
}

void TestChatModel::argumentsOutliveTheReplyThatTheyCameFrom()
{
    auto *reply = new ChatReply;
    auto text = std::make_unique<QString>(QString::number(12345).repeated(100));
    const QString expected = *text;
    QString received;
    connect(reply, &ChatReply::finished, this, [&](const QString &argument) {
        delete reply;
        text.reset();
        received = argument;
    });
    reply->finish(*text);
    QCOMPARE(received, expected);
}

void TestChatModel::modelStartsWithTheDefaultProfile()
{
    const SilentModel model;
    QVERIFY(model.config().name.isEmpty());
    QCOMPARE(model.config().provider, QStringLiteral("mock"));
    QVERIFY(model.config().baseUrl.isEmpty());
    QVERIFY(model.config().apiKey.isEmpty());
    QVERIFY(model.config().model.isEmpty());
    QCOMPARE(model.config().temperature, 0.2);
    QCOMPARE(model.config().maxTokens, 1024);
    QCOMPARE(model.config().timeoutMs, 60000);
    QVERIFY(model.config().stream);
}

void TestChatModel::setConfigReplacesTheWholeProfile()
{
    SilentModel model;
    model.setConfig({"n", "openai", "http://h", "k", "m", 0.7, 64, 5000, false});
    model.setConfig(ModelConfig());
    QVERIFY(model.config().name.isEmpty());
    QCOMPARE(model.config().provider, QStringLiteral("mock"));
    QCOMPARE(model.config().temperature, 0.2);
    QCOMPARE(model.config().maxTokens, 1024);
    QVERIFY(model.config().stream);
}

void TestChatModel::replyWithoutParentDiesWithTheModel()
{
    auto model = std::make_unique<SilentModel>();
    const QPointer<ChatReply> reply(model->chat({}, {}, nullptr));
    QCOMPARE(reply->parent(), model.get());
    model.reset();
    QVERIFY(!reply);
}

QTEST_GUILESS_MAIN(TestChatModel)
#include "tst_chatmodel.moc"
