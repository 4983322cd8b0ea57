#include <qtagent/mockchatmodel.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const QString defaultAnswer =
    QStringLiteral("Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，"
                   "因此可以离线测试演示程序。 ");
const QString noToolsAnswer = QStringLiteral("当前没有可用的设备分析工具。 ");

QVector<ToolDefinition> toolsNamed(const QStringList &names)
{
    QVector<ToolDefinition> tools;
    for (const QString &name : names)
        tools.append({name, QString(), {}, ToolPermission::ReadOnly});
    return tools;
}

QVector<ToolDefinition> deviceTools()
{
    return toolsNamed(
        {"query_device_status", "export_report", "generate_alarm_summary", "find_abnormal_devices"});
}

// Waits for the end of the reply and returns its final text.
QString finalText(ChatReply *reply)
{
    QSignalSpy finished(reply, &ChatReply::finished);
    if (!finished.wait())
        return QStringLiteral("(nothing arrived)");
    return finished.first().first().toString();
}

QJsonArray toolCallsOf(const QJsonObject &response)
{
    return response["choices"][0]["message"]["tool_calls"].toArray();
}

} // namespace

class TestMockChatModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultAnswerStreamsInTwoDeltas();
    void nothingIsEmittedBeforeChatReturns();
    void textAnswerIsChosenByConversationAndTools_data();
    void textAnswerIsChosenByConversationAndTools();
    void keywordCallsEveryOfferedScriptedTool_data();
    void keywordCallsEveryOfferedScriptedTool();
    void toolCallAnswerHasTheShapeOfAResponse();
    void onlyOfferedToolsAreCalled();
    void onlyTheLastUserMessageCounts();
    void runsOfSpacesCollapse();
    void lineBreaksStayInTheirChunk();
    void followingChunksAreFortyFiveMillisecondsApart();
    void cancelBetweenDeltasStopsTheStream();
    void cancelBeforeToolCallsSuppressesOnlyTheEnd();
    void replyGoesOnWithoutTheModel();
    void slotMayDeleteTheReply_data();
    void slotMayDeleteTheReply();
    void profileIsIgnored();
};

void TestMockChatModel::defaultAnswerStreamsInTwoDeltas()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, this);
    QSignalSpy deltas(reply, &ChatReply::deltaReceived);
    QSignalSpy responses(reply, &ChatReply::responseReceived);
    QCOMPARE(finalText(reply), defaultAnswer);
    QCOMPARE(deltas.count(), 2);
    QCOMPARE(deltas.at(0).at(0).toString(), QStringLiteral("Orvane "));
    QCOMPARE(deltas.at(1).at(0).toString(), defaultAnswer.mid(7));
    QCOMPARE(reply->text(), defaultAnswer);
    QCOMPARE(responses.count(), 0);
}

void TestMockChatModel::nothingIsEmittedBeforeChatReturns()
{
    MockChatModel model;
    const ChatReply *reply = model.chat({ChatMessage::user("Hi")}, {}, nullptr);
    QCOMPARE(reply->parent(), &model);
    QVERIFY(reply->text().isEmpty());
    reply = model.chat({ChatMessage::user("device")}, deviceTools(), this);
    QCOMPARE(reply->parent(), this);
    QVERIFY(reply->response().isEmpty());
}

void TestMockChatModel::textAnswerIsChosenByConversationAndTools_data()
{
    const ChatMessage device = ChatMessage::user("device");
    QTest::addColumn<QVector<ChatMessage>>("messages");
    QTest::addColumn<QVector<ToolDefinition>>("tools");
    QTest::addColumn<QString>("answer");
    QTest::newRow("keyword without tools gives the notice")
        << QVector<ChatMessage>{device} << toolsNamed({}) << defaultAnswer;
    QTest::newRow("tools without a keyword give the notice")
        << QVector<ChatMessage>{ChatMessage::user("你好")} << deviceTools() << defaultAnswer;
    QTest::newRow("no user message gives the notice")
        << QVector<ChatMessage>{ChatMessage::system("device")} << deviceTools() << defaultAnswer;
    QTest::newRow("an empty conversation gives the notice")
        << QVector<ChatMessage>{} << deviceTools() << defaultAnswer;
    QTest::newRow("unknown tools and a keyword")
        << QVector<ChatMessage>{device} << toolsNamed({"Export_Report", "lookup_term"}) << noToolsAnswer;
    QTest::newRow("a tool message anywhere gives the summary")
        << QVector<ChatMessage>{ChatMessage::tool("c1", "a", "first"), device} << deviceTools()
        << "工具调用已完成，结果如下：\n- a: first ";
    QTest::newRow("tool results are listed in order")
        << QVector<ChatMessage>{ChatMessage::tool("c1", "a", "first"), ChatMessage::tool("c2", "b", "second")}
        << toolsNamed({}) << "工具调用已完成，结果如下：\n- a: first\n- b: second ";
    QTest::newRow("empty tool results give no line")
        << QVector<ChatMessage>{ChatMessage::tool("c1", "a", ""), ChatMessage::tool("c2", "b", "second")}
        << toolsNamed({}) << "工具调用已完成，结果如下：\n- b: second ";
    QTest::newRow("only empty tool results leave the dash")
        << QVector<ChatMessage>{ChatMessage::tool("c1", "a", "")} << toolsNamed({})
        << "工具调用已完成，结果如下：\n- ";
    QTest::newRow("a result that looks like a place marker is not filled")
        << QVector<ChatMessage>{ChatMessage::tool("c1", "%2", "%1")} << toolsNamed({})
        << "工具调用已完成，结果如下：\n- %2: %1 ";
}

void TestMockChatModel::textAnswerIsChosenByConversationAndTools()
{
    QFETCH(QVector<ChatMessage>, messages);
    QFETCH(QVector<ToolDefinition>, tools);
    QFETCH(QString, answer);
    MockChatModel model;
    QCOMPARE(finalText(model.chat(messages, tools, this)), answer);
}

void TestMockChatModel::keywordCallsEveryOfferedScriptedTool_data()
{
    QTest::addColumn<QString>("question");
    QTest::newRow("abnormal") << "anything abnormal?";
    QTest::newRow("capitalised Abnormal") << "Abnormal values?";
    QTest::newRow("capitals ABNORMAL") << "ABNORMAL";
    QTest::newRow("device inside a word") << "subdevices";
    QTest::newRow("report") << "a report";
    QTest::newRow("export") << "export it";
    QTest::newRow("设备") << "看看设备";
    QTest::newRow("异常") << "有异常吗";
    QTest::newRow("报告") << "写报告";
    QTest::newRow("导出") << "导出一下";
}

void TestMockChatModel::keywordCallsEveryOfferedScriptedTool()
{
    QFETCH(QString, question);
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::user(question)}, deviceTools(), this);
    QStringList order;
    connect(reply, &ChatReply::responseReceived, this, [&] { order.append("response"); });
    connect(reply, &ChatReply::deltaReceived, this, [&] { order.append("delta"); });
    connect(reply, &ChatReply::finished, this, [&] { order.append("finished"); });
    QCOMPARE(finalText(reply), QString());
    QCOMPARE(order, (QStringList{"response", "finished"}));
    QCOMPARE(toolCallsOf(reply->response()),
             (QJsonArray{makeToolCall("mock_find_abnormal_devices", "find_abnormal_devices", {}),
                         makeToolCall("mock_generate_alarm_summary", "generate_alarm_summary", {}),
                         makeToolCall("mock_export_report", "export_report",
                                      {{"fileName", "orvane-demo-report.txt"}})}));
}

void TestMockChatModel::toolCallAnswerHasTheShapeOfAResponse()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::user("device")}, toolsNamed({"find_abnormal_devices"}), this);
    finalText(reply);
    const QJsonObject message{
        {"role", "assistant"},
        {"content", "我将调用工具完成设备分析。"},
        {"tool_calls", QJsonArray{makeToolCall("mock_find_abnormal_devices", "find_abnormal_devices", {})}},
    };
    const QJsonObject choice{{"index", 0}, {"message", message}, {"finish_reason", "tool_calls"}};
    QCOMPARE(reply->response(), (QJsonObject{{"choices", QJsonArray{choice}}}));
}

void TestMockChatModel::onlyOfferedToolsAreCalled()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::user("device")}, toolsNamed({"export_report"}), this);
    finalText(reply);
    QCOMPARE(toolCallsOf(reply->response()),
             (QJsonArray{makeToolCall("mock_export_report", "export_report",
                                      {{"fileName", "orvane-demo-report.txt"}})}));
}

void TestMockChatModel::onlyTheLastUserMessageCounts()
{
    MockChatModel model;
    const QVector<ChatMessage> conversation{ChatMessage::user("device"), ChatMessage::user("thanks"),
                                            ChatMessage::assistant("device")};
    QCOMPARE(finalText(model.chat(conversation, deviceTools(), this)), defaultAnswer);
}

void TestMockChatModel::runsOfSpacesCollapse()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::tool("c1", "a", " x   y ")}, {}, this);
    QCOMPARE(finalText(reply), QStringLiteral("工具调用已完成，结果如下：\n- a: x y "));
}

void TestMockChatModel::lineBreaksStayInTheirChunk()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::tool("c1", "a", "x\ny")}, {}, this);
    QSignalSpy deltas(reply, &ChatReply::deltaReceived);
    finalText(reply);
    QCOMPARE(deltas.count(), 3);
    QCOMPARE(deltas.at(0).at(0).toString(), QStringLiteral("工具调用已完成，结果如下：\n- "));
    QCOMPARE(deltas.at(2).at(0).toString(), QStringLiteral("x\ny "));
}

void TestMockChatModel::followingChunksAreFortyFiveMillisecondsApart()
{
    MockChatModel model;
    ChatReply *reply = model.chat({}, {}, this);
    QElapsedTimer timer;
    qint64 gap = 0;
    connect(reply, &ChatReply::deltaReceived, this, [&] {
        if (timer.isValid())
            gap = timer.elapsed();
        timer.start();
    });
    finalText(reply);
    QVERIFY2(gap >= 44, qPrintable(QString::number(gap)));
    QVERIFY2(timer.elapsed() >= 44, qPrintable(QString::number(timer.elapsed())));
}

void TestMockChatModel::cancelBetweenDeltasStopsTheStream()
{
    MockChatModel model;
    ChatReply *reply = model.chat({}, {}, this);
    ChatReply *other = model.chat({}, {}, this);
    QSignalSpy deltas(reply, &ChatReply::deltaReceived);
    QSignalSpy finished(reply, &ChatReply::finished);
    connect(reply, &ChatReply::deltaReceived, reply, &ChatReply::cancel);
    finalText(other);
    QCOMPARE(deltas.count(), 1);
    QCOMPARE(finished.count(), 0);
    QCOMPARE(reply->text(), QStringLiteral("Orvane "));
}

void TestMockChatModel::cancelBeforeToolCallsSuppressesOnlyTheEnd()
{
    MockChatModel model;
    ChatReply *reply = model.chat({ChatMessage::user("device")}, deviceTools(), this);
    ChatReply *other = model.chat({ChatMessage::user("device")}, deviceTools(), this);
    QSignalSpy responses(reply, &ChatReply::responseReceived);
    QSignalSpy finished(reply, &ChatReply::finished);
    reply->cancel();
    finalText(other);
    QCOMPARE(responses.count(), 1);
    QCOMPARE(finished.count(), 0);
}

void TestMockChatModel::replyGoesOnWithoutTheModel()
{
    auto model = std::make_unique<MockChatModel>();
    ChatReply *reply = model->chat({}, {}, this);
    model.reset();
    QCOMPARE(finalText(reply), defaultAnswer);
}

void TestMockChatModel::slotMayDeleteTheReply_data()
{
    QTest::addColumn<QString>("question");
    QTest::newRow("in deltaReceived") << "Hi";
    QTest::newRow("in responseReceived") << "device";
}

void TestMockChatModel::slotMayDeleteTheReply()
{
    QFETCH(QString, question);
    MockChatModel model;
    const QPointer<ChatReply> reply(model.chat({ChatMessage::user(question)}, deviceTools(), this));
    const auto deleteReply = [reply] { delete reply.data(); };
    connect(reply, &ChatReply::deltaReceived, this, deleteReply);
    connect(reply, &ChatReply::responseReceived, this, deleteReply);
    QTRY_VERIFY(!reply);
    QCOMPARE(finalText(model.chat({}, {}, this)), defaultAnswer);
}

void TestMockChatModel::profileIsIgnored()
{
    MockChatModel model;
    ModelConfig config;
    config.provider = "openai";
    config.stream = false;
    model.setConfig(config);
    QCOMPARE(finalText(model.chat({}, {}, this)), defaultAnswer);
}

QTEST_GUILESS_MAIN(TestMockChatModel)
#include "tst_mockchatmodel.moc"
