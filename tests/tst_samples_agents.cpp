#include "support/samplewindow.h"

#include "support/offlineconfiguration.h"

#include <qtagent/agentsession.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/approvalprompt.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QtTest>
#include <QtWidgets>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

class ToolWindow : public SampleWindow
{
public:
    ToolWindow()
    {
        const auto countRun = [this](const QJsonObject &) {
            ++runs;
            ToolResult result;
            result.success = true;
            return result;
        };
        registry->registerTool(new FunctionTool("stop_pump", "Stops it.", {{"type", "object"}},
                                                ToolPermission::Write, countRun));
    }

    QString transcript() const { return panel->findChild<QTextBrowser *>()->toPlainText(); }
    QPushButton *button(const QString &name) const { return panel->findChild<QPushButton *>(name); }
    bool isIdle() const
    {
        return button("agentChatSend")->isEnabled() && !button("agentChatStop")->isEnabled();
    }
    void keep(AgentChatPanel *pasted) { panel = pasted; }
    void ask() const
    {
        panel->findChild<QPlainTextEdit *>("agentChatInput")->setPlainText(question);
        QTest::mouseClick(button("agentChatSend"), Qt::LeftButton);
    }

    int runs = 0;
    AgentChatPanel *panel = new AgentChatPanel(this);
    ToolRegistry *const registry = new ToolRegistry(this);
};

class ExecutorWindow : public ToolWindow
{
public:
    using Window = ExecutorWindow;

    void paste() override
    {
#include "agentexecutor_1.inc"
        m_executor = executor;
#include "toolcalltrace_1.inc"
#include "toolcalltraceview_1.inc"
    }

    void askUser(const ApprovalRequest &request);

    AgentExecutor *m_executor = nullptr;
};

using Window = ExecutorWindow;
#include "agentexecutor_2.inc"

// Asks with a dialog that waits for its answer.
class AskingWindow : public ToolWindow
{
    void paste() override
    {
        auto *executor = new AgentExecutor(this);
        executor->setModel(model);
        registerTool(executor);
#include "approvaldialog_1.inc"
        connect(executor, &AgentExecutor::assistantFinished, this, &AskingWindow::showAnswer);
        connect(executor, &AgentExecutor::failed, this, &AskingWindow::showError);
        executor->run(question);
    }

    void registerTool(AgentExecutor *executor)
    {
        AgentTool *tool = ToolWindow::registry->tool("stop_pump");
#include "toolregistry_1.inc"
    }
};

class PromptWindow : public ToolWindow
{
    void paste() override
    {
#include "approvalprompt_1.inc"
        auto *traces = new ToolCallTraceView(this);
#include "toolcalltraceview_2.inc"
        session->setModel(model);
        session->setToolRegistry(registry);
        connect(session, &AgentSession::runEnded, this, &PromptWindow::showOutcome);
        session->send(question);
    }

    void showOutcome(const RunOutcome &outcome)
    {
        if (outcome.end == RunEnd::Finished)
            showAnswer(outcome.text);
        else if (outcome.end == RunEnd::Failed)
            showError(outcome.error);
    }
};

// The window of the page of tools.
class ToolsWindow : public ToolWindow
{
public:
    void paste() override
    {
        AgentSession &session = *m_session;
        AgentChatPanel *const panel = ToolWindow::panel;
        ToolsWindow &window = *this;
        auto *traces = new ToolCallTraceView(this);
        session.setModel(model);
        session.setToolRegistry(registry);
#include "tools_3.inc"
#include "tools_4.inc"
    }

protected:
    AgentSession *const m_session = new AgentSession(this);
};

class ToolsRunWindow : public ToolsWindow
{
    void paste() override
    {
        ToolsWindow::paste();
        connect(m_session, &AgentSession::assistantFinished, this, &ToolsRunWindow::showAnswer);
        connect(m_session, &AgentSession::failed, this, &ToolsRunWindow::showError);
        ask();
    }
};

// The window of the page of widgets, which shows no failures.
class WidgetsWindow : public ToolWindow
{
    void paste() override
    {
        AgentSession &session = *new AgentSession(this);
        WidgetsWindow &window = *this;
        auto *traces = new ToolCallTraceView(this);
        session.setModel(model);
        session.setToolRegistry(registry);
#include "widgets_1.inc"
#include "widgets_2.inc"
#include "widgets_3.inc"
        connect(&session, &AgentSession::assistantFinished, this, &WidgetsWindow::showAnswer);
        connect(&session, &AgentSession::failed, this, &WidgetsWindow::showError);
        ask();
    }
};

class SessionWindow : public ToolWindow
{
    void paste() override
    {
#include "agentsession_1.inc"
        keep(panel);
    }
};

class ChatWindow : public ToolWindow
{
    void paste() override
    {
#include "agentchatpanel_1.inc"
        keep(panel);
    }
};

#include "first-chat_2.inc"

// The window of the example.
class FirstWindow : public ToolWindow
{
    void paste() override
    {
        AgentChatPanel &panel = *ToolWindow::panel;
        OpenAICompatibleModel &model = *SampleWindow::model;
#include "first-chat_3.inc"
    }
};

class ProfileWindow : public SampleWindow
{
    void paste() override
    {
#include "modelconfigwidget_1.inc"
    }
};

using CreateWindow = ToolWindow *(*)();

template<typename Window>
ToolWindow *create()
{
    return new Window;
}

ApprovalDialog *openDialog()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        auto *dialog = qobject_cast<ApprovalDialog *>(widget);
        if (dialog && dialog->isVisible())
            return dialog;
    }
    return nullptr;
}

// A service that asks for a tool before it answers.
class AgentService : public SampleService
{
public:
    AgentService()
    {
        server.enqueue(LoopbackAnswer::json(completion(QString(), {makeToolCall("c1", "stop_pump", {})})));
    }
};

} // namespace

Q_DECLARE_METATYPE(CreateWindow)

// Samples of agents and widgets.
class TestSamplesAgents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void allowedToolRuns_data() { addAgents(); }
    void allowedToolRuns();
    void returnKeyDenies_data() { addAgents(); }
    void returnKeyDenies();
    void windowMayBeDeletedWhileItsQuestionIsOpen_data() { addAgents(); }
    void windowMayBeDeletedWhileItsQuestionIsOpen();
    void failureIsTold_data() { addAgents(); }
    void failureIsTold();
    void windowMayBeDeletedWhileItWaits_data() { addAgents(); }
    void windowMayBeDeletedWhileItWaits();

    void panelShowsAnswers_data() { addChats(); }
    void panelShowsAnswers();
    void panelShowsAFailure_data() { addChats(); }
    void panelShowsAFailure();
    void panelCanStop_data() { addChats(); }
    void panelCanStop();
    void panelMayBeDeletedWhileItWaits_data() { addChats(); }
    void panelMayBeDeletedWhileItWaits();

    void formGivesTheModelItsProfile();

private:
    static void addAgents();
    static void addChats();
};

void TestSamplesAgents::cleanup()
{
    QVERIFY(QApplication::topLevelWidgets().isEmpty());
}

void TestSamplesAgents::addAgents()
{
    QTest::addColumn<CreateWindow>("create");
    QTest::addRow("AgentExecutor") << &create<ExecutorWindow>;
    QTest::addRow("ApprovalDialog") << &create<AskingWindow>;
    QTest::addRow("ApprovalPrompt") << &create<PromptWindow>;
    QTest::addRow("tools") << &create<ToolsRunWindow>;
    QTest::addRow("widgets") << &create<WidgetsWindow>;
}

void TestSamplesAgents::allowedToolRuns()
{
    QFETCH(CreateWindow, create);
    AgentService service;
    const std::unique_ptr<ToolWindow> window(create());
    QTimer watch;
    connect(&watch, &QTimer::timeout, window.get(), [] {
        if (ApprovalDialog *dialog = openDialog())
            dialog->accept();
    });
    watch.start(0);
    window->paste();
    QTRY_COMPARE(window->ends, QStringList("Finished: Hello world"));
    QCOMPARE(window->runs, 1);
    QTRY_VERIFY(!window->findChild<ApprovalDialog *>());
}

void TestSamplesAgents::returnKeyDenies()
{
    QFETCH(CreateWindow, create);
    AgentService service;
    const std::unique_ptr<ToolWindow> window(create());
    QTimer watch;
    connect(&watch, &QTimer::timeout, window.get(), [] {
        if (ApprovalDialog *dialog = openDialog())
            QTest::keyClick(dialog, Qt::Key_Return);
    });
    watch.start(0);
    window->paste();
    const auto *executor = window->findChild<AgentExecutor *>();
    QTRY_VERIFY(!executor->isRunning());
    QCOMPARE(window->runs, 0);
    QTRY_VERIFY(!window->findChild<ApprovalDialog *>());
}

void TestSamplesAgents::windowMayBeDeletedWhileItsQuestionIsOpen()
{
    QFETCH(CreateWindow, create);
    AgentService service;
    QPointer<ToolWindow> window = create();
    QTimer watch;
    connect(&watch, &QTimer::timeout, window, [window] {
        if (openDialog())
            delete window;
    });
    watch.start(0);
    window->paste();
    QTRY_VERIFY(!window);
    QVERIFY(!openDialog());
    watch.stop();
    runUntilQuiet();
}

void TestSamplesAgents::failureIsTold()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.fail();
    const std::unique_ptr<ToolWindow> window(create());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    QVERIFY(window->ends.first().startsWith("Failed: OpenAI-compatible request failed."));
}

void TestSamplesAgents::windowMayBeDeletedWhileItWaits()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    std::unique_ptr<ToolWindow> window(create());
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesAgents::addChats()
{
    QTest::addColumn<CreateWindow>("create");
    QTest::addRow("AgentSession") << &create<SessionWindow>;
    QTest::addRow("AgentChatPanel") << &create<ChatWindow>;
    QTest::addRow("first chat") << &create<FirstWindow>;
    QTest::addRow("tools") << &create<ToolsWindow>;
}

void TestSamplesAgents::panelShowsAnswers()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    const std::unique_ptr<ToolWindow> window(create());
    window->paste();
    const QString round = "用户\nWhat is a valve?\n智能体\nHello world";
    window->ask();
    QVERIFY(!window->isIdle());
    QTRY_VERIFY(window->isIdle());
    QCOMPARE(window->transcript(), round);
    window->ask();
    QTRY_VERIFY(window->isIdle());
    QCOMPARE(window->transcript(), round + '\n' + round);
}

void TestSamplesAgents::panelShowsAFailure()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.fail();
    const std::unique_ptr<ToolWindow> window(create());
    window->paste();
    window->ask();
    QTRY_VERIFY(window->isIdle());
    QVERIFY(window->transcript().contains("bad key"));
}

void TestSamplesAgents::panelCanStop()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    const std::unique_ptr<ToolWindow> window(create());
    window->paste();
    window->ask();
    QTRY_COMPARE(service.server.requests().size(), 1);
    QTest::mouseClick(window->button("agentChatStop"), Qt::LeftButton);
    QVERIFY(window->isIdle());
    QTRY_VERIFY(!window->findChild<ChatReply *>());
}

void TestSamplesAgents::panelMayBeDeletedWhileItWaits()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    std::unique_ptr<ToolWindow> window(create());
    window->paste();
    window->ask();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesAgents::formGivesTheModelItsProfile()
{
    const OfflineConfiguration configuration;
    configuration.write({{"provider", "openai"}, {"model", "plant-assistant"}});
    const std::unique_ptr<SampleWindow> window = std::make_unique<ProfileWindow>();
    window->paste();
    QCOMPARE(window->model->config().model, "plant-assistant");
    window->findChild<QLineEdit *>("modelEdit")->setText("other");
    QCOMPARE(window->model->config().model, "other");
}

QTEST_MAIN(TestSamplesAgents)
#include "tst_samples_agents.moc"
