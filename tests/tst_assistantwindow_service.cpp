#include "support/assistantuser.h"
#include "support/completions.h"
#include "support/loopbackserver.h"

#include <assistant/modelchoice.h>
#include <assistant/toolset.h>

#include <QLabel>
#include <QToolButton>

using namespace MireloQtLib::QtAgent;

namespace {

QByteArray streamed(const QByteArray &json)
{
    return "data: " + json + "\n\n";
}

const QByteArray stopEvent = streamed(R"({"choices":[{"delta":{},"finish_reason":"stop"}]})");

} // namespace

/// A window whose model is a service on this computer.
class ServiceUser : public AssistantUser
{
public:
    ServiceUser()
    {
        AssistantProfile profile;
        profile.config.provider = "openai";
        profile.config.baseUrl = server.baseUrl();
        profile.config.model = "test-model";
        profile.config.apiKey = "secret";
        AssistantProfiles profiles;
        profiles.profiles.append(profile);
        profiles.isFromFile = true;
        choice.reset(new ModelChoice(profiles));
        start();
        window->setModelChoice(choice.data());
    }

    QString failure() const { return find<NoticeBar>("failure")->text(); }

    LoopbackServer server;
    QScopedPointer<ModelChoice> choice;
};

class TestAssistantWindowService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsStreamedWithItsTokensAndThinking();
    void cutAnswerIsTold();
    void refusedAnswerIsTold();
    void wrongKeyIsToldAndRetried();
    void retryIsShownWhileItWaits();
    void anotherConversationHasNoFailure();
    void everyRequestOfARunIsCounted();
};

void TestAssistantWindowService::answerIsStreamedWithItsTokensAndThinking()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::stream(
            {streamed(R"({"choices":[{"delta":{"reasoning_content":"A valve..."}}]})"),
             deltaEvent("It closes."), stopEvent,
             streamed(R"({"choices":[],"usage":{"prompt_tokens":12,"completion_tokens":3}})"), doneEvent()});
    });
    QVERIFY(!user.find<QToolButton>("thinkingButton")->isVisible());
    user.ask("What is a valve?");
    QTRY_COMPARE(user.find<QLabel>("usageLabel")->text(), "回答 3 令牌，对话共 15 令牌");
    QCOMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    QVERIFY(user.find<QToolButton>("thinkingButton")->isVisible());
    QVERIFY(!user.find<QPlainTextEdit>("thinkingText")->isVisible());
    user.click("thinkingButton");
    QCOMPARE(user.find<QPlainTextEdit>("thinkingText")->toPlainText(), "A valve...");
    const StoredMessage kept = user.store.load(user.store.list().first().id).messages.last();
    QCOMPARE(kept.promptTokens, 12);
    QCOMPARE(kept.model, "test-model");
}

void TestAssistantWindowService::cutAnswerIsTold()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::stream({deltaEvent("It clo"),
                                       streamed(R"({"choices":[{"delta":{},"finish_reason":"length"}]})"),
                                       doneEvent()});
    });
    user.ask("What is a valve?");
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 It clo "
                                    "回答达到长度上限，被截断。可以在模型设置里提高上限。");
}

void TestAssistantWindowService::refusedAnswerIsTold()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::stream(
            {streamed(R"({"choices":[{"delta":{"refusal":"I will not."}}]})"), stopEvent, doneEvent()});
    });
    user.ask("What is a valve?");
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 I will not. 模型拒绝回答。");
}

void TestAssistantWindowService::wrongKeyIsToldAndRetried()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})");
    });
    user.ask("What is a valve?");
    QTRY_COMPARE(user.failure(), "密钥无效\n请在“设置 → 模型”中更正密钥。\nbad key");
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::stream({deltaEvent("It closes."), stopEvent, doneEvent()});
    });
    QTest::mouseClick(user.find<NoticeBar>("failure")->findChild<QPushButton *>("noticeAction"),
                      Qt::LeftButton);
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    QCOMPARE(user.failure(), QString());
}

void TestAssistantWindowService::retryIsShownWhileItWaits()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::withStatus(503, R"({"error":{"message":"busy"}})");
    });
    user.ask("What is a valve?");
    QTRY_VERIFY(user.failure().startsWith("第 2 次尝试将在 "));
    QVERIFY(!user.isIdle());
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::stream({deltaEvent("It closes."), stopEvent, doneEvent()});
    });
    QTRY_COMPARE(user.transcript(), "我 What is a valve? 助手 It closes.");
    QCOMPARE(user.failure(), QString());
}

void TestAssistantWindowService::anotherConversationHasNoFailure()
{
    ServiceUser user;
    user.server.setHandler([](const LoopbackRequest &) {
        return LoopbackAnswer::withStatus(400, R"({"error":{"message":"no"}})");
    });
    user.ask("What is a valve?");
    QTRY_VERIFY(!user.failure().isEmpty());
    user.click("newConversation");
    QCOMPARE(user.failure(), QString());
}

void TestAssistantWindowService::everyRequestOfARunIsCounted()
{
    ServiceUser user;
    ToolSet tools(ToolSettings{});
    user.window->setToolSet(&tools, user.folder.filePath("tools.json"));
    user.server.setHandler([](const LoopbackRequest &request) {
        const QJsonObject last = request.json["messages"].toArray().last().toObject();
        if (last["role"] == QLatin1String("tool"))
            return LoopbackAnswer::stream(
                {deltaEvent("It is late."), stopEvent,
                 streamed(R"({"choices":[],"usage":{"prompt_tokens":40,"completion_tokens":3}})"),
                 doneEvent()});
        return LoopbackAnswer::stream(
            {streamed(R"({"choices":[{"delta":{"tool_calls":[{"index":0,"id":"1","type":"function",)"
                      R"("function":{"name":"clock","arguments":"{}"}}]},"finish_reason":"tool_calls"}]})"),
             streamed(R"({"choices":[],"usage":{"prompt_tokens":20,"completion_tokens":7}})"), doneEvent()});
    });
    user.ask("What time is it?");
    QTRY_COMPARE(user.find<QLabel>("usageLabel")->text(), "回答 3 令牌，对话共 70 令牌");
    QTRY_VERIFY(user.isIdle());
    QCOMPARE(user.store.load(user.store.list().first().id).messages.at(1).promptTokens, 20);
}

QTEST_MAIN(TestAssistantWindowService)
#include "tst_assistantwindow_service.moc"
