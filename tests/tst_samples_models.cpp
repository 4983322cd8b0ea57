#include "support/samplewindow.h"

#include <qtagent/agentexecutor.h>
#include <qtagent/messagehistory.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/modellist.h>
#include <qtagent/outputparsers.h>
#include <qtagent/retryingmodel.h>
#include <qtagent/runnablechain.h>
#include <qtagent/simpleragchain.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QPlainTextEdit>
#include <QtTest>

#include <cstdio>
#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

class ReplyWindow : public SampleWindow
{
    void paste() override
    {
        const QVector<ChatMessage> conversation{ChatMessage::user(question)};
#include "chatmodel_1.inc"
    }
};

class ModelWindow : public SampleWindow
{
    void paste() override
    {
#include "chatmodel_2.inc"
    }
};

// A window that tells more of an answer than its text.
class DetailsWindow : public SampleWindow
{
public:
    void paste() override
    {
        const QVector<ChatMessage> conversation{ChatMessage::user(question)};
#include "completionreply_1.inc"
    }

    void think(const QString &piece)
    {
        shown += piece;
    }
    void showDetails(const TokenUsage &usage, bool mayAskAgain)
    {
        tokens = usage.completion;
        offersAgain = mayAskAgain;
    }

    qint64 tokens = 0;
    bool offersAgain = false;
};

// The window of the page.
class ThinkingWindow : public SampleWindow
{
    void paste() override
    {
        OpenAICompatibleModel &m_model = *model;
        auto *m_panel = new AgentChatPanel(this);
#include "thinking-models_1.inc"
        reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
    }

    void appendThought(const QString &piece)
    {
        shown += piece;
    }
};

class OptionsWindow : public SampleWindow
{
    void paste() override
    {
#include "requestoptions_1.inc"
        ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
        reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
    }
};

class RetryingWindow : public SampleWindow
{
public:
    void paste() override
    {
        auto *executor = new AgentExecutor(this);
#include "retryingmodel_1.inc"
        connect(executor, &AgentExecutor::assistantFinished, this, &RetryingWindow::showAnswer);
        connect(executor, &AgentExecutor::failed, this, &RetryingWindow::showError);
        executor->run(question);
    }

    void showStatus(const QString &status)
    {
        shown += status;
    }
};

class OfferWindow : public SampleWindow
{
public:
    using Window = OfferWindow;

    void paste() override
    {
#include "modellist_1.inc"
    }

    void offer(const QStringList &models)
    {
        ends.append("Offered: " + models.join(", "));
    }
    void showStopped()
    {
        ends.append("Stopped");
    }

    ModelListReply *reply() const
    {
        return findChild<ModelListReply *>();
    }
};

class LocalModelWindow : public SampleWindow
{
    void paste() override
    {
#include "openaicompatiblemodel_1.inc"
    }
};

class DeepSeekWindow : public SampleWindow
{
    void paste() override
    {
#include "deepseekmodel_1.inc"
    }
};

class MockWindow : public SampleWindow
{
    void paste() override
    {
#include "mockchatmodel_1.inc"
    }
};

class HistoryWindow : public SampleWindow
{
    void paste() override{
#include "messagehistory_1.inc"
    }

    MessageHistory m_history;
};

class ChainWindow : public SampleWindow
{
    void paste() override
    {
#include "runnablechain_1.inc"
    }
};

class DocumentsWindow : public SampleWindow
{
    void paste() override
    {
        const QStringList paragraphs{"A valve opens.", "A pump runs."};
#include "simpleragchain_1.inc"
    }
};

// What a model of the page says before its tools run.
class ToolModelWindow : public SampleWindow
{
    void paste() override
    {
        auto *reply = new ChatReply(this);
        reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
        const QJsonArray toolCalls{makeToolCall("c1", "read", {})};
#include "architecture_1.inc"
    }
};

// Programs of the pages, from where they have a model. They return the exit status.
namespace fields {

void fail(const QString &error)
{
    qCritical("%s", qUtf8Printable(error));
    QCoreApplication::exit(EXIT_FAILURE);
}

#include "chains_2.inc"

int ask(SampleWindow::OpenAICompatibleModel &model)
{
    QCoreApplication &application = *QCoreApplication::instance();
    const QStringList fields{"title"};
#include "chains_1.inc"
    return QCoreApplication::exec();
}

} // namespace fields

namespace documents {

void print(const QString &text)
{
    std::fputs(qUtf8Printable(text), stdout);
}

int ask(SampleWindow::OpenAICompatibleModel &model)
{
    QCoreApplication &application = *QCoreApplication::instance();
    const QString question = "When does the pump stop?";
#include "chains_3.inc"
    return QCoreApplication::exec();
}

} // namespace documents

int askAndKeep(SampleWindow::OpenAICompatibleModel &model)
{
    ChatReply *reply = model.chat({ChatMessage::user("What is a valve?")}, {}, &model);
    QString kept;
    const auto keepAnswer = [&] { kept = reply->text(); };
#include "conversations_4.inc"
    const int status = QCoreApplication::exec();
    return kept == reply->text() ? status : -1;
}

using Program = int (*)(SampleWindow::OpenAICompatibleModel &model);

using CreateWindow = SampleWindow *(*)();

template<typename Window>
SampleWindow *create()
{
    return new Window;
}

} // namespace

Q_DECLARE_METATYPE(CreateWindow)
Q_DECLARE_METATYPE(Program)

// Samples with a reply to wait for.
class TestSamplesModels : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsTold_data() { addSamples(); }
    void answerIsTold();
    void failureIsTold_data() { addSamples(); }
    void failureIsTold();
    void windowMayBeDeletedWhileItWaits_data() { addSamples(); }
    void windowMayBeDeletedWhileItWaits();
    void canceledReplyIsTold();
    void detailsOfAnAnswerAreTold();
    void detailsOfAFailureAreTold();
    void optionsReachTheService();
    void repeatedRequestIsTold();
    void modelsAreOffered();
    void failedListIsTold();
    void canceledListIsTold();
    void windowMayBeDeletedDuringAList();
    void profileReachesTheService();
    void mockModelAnswersWithoutAService();
    void mockModelsWindowMayBeDeletedWhileItWaits();
    void modelHandsOverToolCalls();
    void programEndsWithItsModel_data();
    void programEndsWithItsModel();

private:
    static void addSamples();
};

void TestSamplesModels::addSamples()
{
    QTest::addColumn<CreateWindow>("create");
    QTest::addRow("ChatReply") << &create<ReplyWindow>;
    QTest::addRow("ChatModel") << &create<ModelWindow>;
    QTest::addRow("CompletionReply") << &create<DetailsWindow>;
    QTest::addRow("thinking models") << &create<ThinkingWindow>;
    QTest::addRow("OpenAICompatibleModel") << &create<LocalModelWindow>;
    QTest::addRow("RequestOptions") << &create<OptionsWindow>;
    QTest::addRow("RetryingModel") << &create<RetryingWindow>;
    QTest::addRow("DeepSeekModel") << &create<DeepSeekWindow>;
    QTest::addRow("MessageHistory") << &create<HistoryWindow>;
    QTest::addRow("RunnableChain") << &create<ChainWindow>;
    QTest::addRow("SimpleRagChain") << &create<DocumentsWindow>;
}

void TestSamplesModels::answerIsTold()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    const std::unique_ptr<SampleWindow> window(create());
    window->paste();
    QVERIFY(window->ends.isEmpty());
    QTRY_COMPARE(window->ends, QStringList("Finished: Hello world"));
}

void TestSamplesModels::failureIsTold()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.fail();
    const std::unique_ptr<SampleWindow> window(create());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    QVERIFY(window->ends.first().startsWith("Failed: OpenAI-compatible request failed."));
}

void TestSamplesModels::windowMayBeDeletedWhileItWaits()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    std::unique_ptr<SampleWindow> window(create());
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    QPointer<ChatReply> reply = window->findChild<ChatReply *>();
    QVERIFY(reply);
    window.reset();
    QVERIFY(!reply);
    service.server.release();
    runUntilQuiet();
}

void TestSamplesModels::canceledReplyIsTold()
{
    SampleService service;
    service.wait();
    ReplyWindow window;
    static_cast<SampleWindow &>(window).paste();
    QPointer<ChatReply> reply = window.findChild<ChatReply *>();
    reply->cancel();
    QCOMPARE(window.ends, QStringList("Canceled: "));
    QTRY_VERIFY(!reply);
}

void TestSamplesModels::detailsOfAnAnswerAreTold()
{
    SampleService service;
    service.server.enqueue(
        LoopbackAnswer::stream({R"(data: {"choices":[{"delta":{"reasoning_content":"A valve..."}}]})"
                                "\n\n",
                                deltaEvent("Hello"),
                                R"(data: {"choices":[],"usage":{"completion_tokens":7}})"
                                "\n\n",
                                doneEvent()}));
    DetailsWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Finished: Hello"));
    QCOMPARE(window.shown, "A valve...");
    QCOMPARE(window.tokens, 7);
    QVERIFY(!window.offersAgain);
}

void TestSamplesModels::detailsOfAFailureAreTold()
{
    SampleService service;
    service.server.enqueue(LoopbackAnswer::withStatus(503, "{}"));
    DetailsWindow window;
    window.paste();
    QTRY_COMPARE(window.ends.size(), 1);
    QVERIFY(window.offersAgain);
}

void TestSamplesModels::optionsReachTheService()
{
    SampleService service;
    const std::unique_ptr<SampleWindow> window(create<OptionsWindow>());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    const QJsonObject body = service.server.requests().first().json;
    QVERIFY(body.contains("max_completion_tokens"));
    QVERIFY(!body.contains("temperature"));
    QCOMPARE(body["reasoning_effort"], "low");
}

void TestSamplesModels::repeatedRequestIsTold()
{
    SampleService service;
    LoopbackAnswer overloaded = LoopbackAnswer::withStatus(503, "{}");
    overloaded.headers = {{"retry-after-ms", "20"}};
    service.server.enqueue(overloaded);
    RetryingWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Finished: Hello world"));
    QCOMPARE(window.shown, "Attempt 2 in 20 ms");
}

void TestSamplesModels::modelsAreOffered()
{
    SampleService service;
    service.server.enqueue(LoopbackAnswer::withStatus(200, R"({"data":[{"id":"b"},{"id":"a"}]})"));
    OfferWindow window;
    window.paste();
    QTRY_COMPARE(window.ends, QStringList("Offered: a, b"));
}

void TestSamplesModels::failedListIsTold()
{
    SampleService service;
    service.fail();
    OfferWindow window;
    window.paste();
    QTRY_COMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().startsWith("Failed: OpenAI-compatible request failed."));
}

void TestSamplesModels::canceledListIsTold()
{
    SampleService service;
    service.wait();
    OfferWindow window;
    window.paste();
    window.reply()->cancel();
    QCOMPARE(window.ends, QStringList("Stopped"));
}

void TestSamplesModels::windowMayBeDeletedDuringAList()
{
    SampleService service;
    service.wait();
    auto window = std::make_unique<OfferWindow>();
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesModels::profileReachesTheService()
{
    SampleService service;
    const std::unique_ptr<SampleWindow> window(create<ModelWindow>());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    const LoopbackRequest request = service.server.requests().first();
    QCOMPARE(request.json["model"], "gpt-4.1-mini");
    QCOMPARE(request.headers["authorization"], "Bearer secret");
}

void TestSamplesModels::mockModelAnswersWithoutAService()
{
    const std::unique_ptr<SampleWindow> window(create<MockWindow>());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    QVERIFY(window->ends.first().startsWith("Finished: Orvane"));
}

void TestSamplesModels::mockModelsWindowMayBeDeletedWhileItWaits()
{
    std::unique_ptr<SampleWindow> window(create<MockWindow>());
    window->paste();
    QPointer<ChatReply> reply = window->findChild<ChatReply *>();
    QTRY_VERIFY(!reply->text().isEmpty());
    window.reset();
    QVERIFY(!reply);
    runUntilQuiet();
}

void TestSamplesModels::modelHandsOverToolCalls()
{
    const std::unique_ptr<SampleWindow> window(create<ToolModelWindow>());
    window->paste();
    QCOMPARE(window->ends, QStringList("Finished: "));
    QCOMPARE(window->findChild<ChatReply *>()->toolCalls().size(), 1);
}

void TestSamplesModels::programEndsWithItsModel_data()
{
    QTest::addColumn<Program>("program");
    QTest::addColumn<bool>("tellsErrors"); // as such
    QTest::addRow("fields") << &fields::ask << true;
    QTest::addRow("documents") << &documents::ask << true;
    QTest::addRow("kept chat") << &askAndKeep << false;
}

void TestSamplesModels::programEndsWithItsModel()
{
    QFETCH(Program, program);
    QFETCH(bool, tellsErrors);
    SampleService service;
    SampleWindow::OpenAICompatibleModel model;
    ModelConfig config;
    config.model = "test-model";
    config.stream = false;
    model.setConfig(config);
    service.server.enqueue(LoopbackAnswer::json(completion("{\"title\": \"Valve\"}")));
    QCOMPARE(program(model), EXIT_SUCCESS);
    service.fail();
    if (tellsErrors)
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^OpenAI-compatible request failed."));
    QCOMPARE(program(model), EXIT_FAILURE);
}

QTEST_MAIN(TestSamplesModels)
#include "tst_samples_models.moc"
