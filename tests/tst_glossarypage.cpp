#include "support/heldmodel.h"
#include "support/pagegroup.h"

#include <demo/glossarypage.h>
#include <qtagent/agentexecutor.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/approvaldialog.h>

#include <QApplication>
#include <QGroupBox>
#include <QLabel>
#include <QSplitter>
#include <QTimer>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QString thinking = QStringLiteral("AI 正在思考...\n\n");

QJsonObject lookUp(const QString &id, const QString &term)
{
    return makeToolCall(id, "lookup_term", {{"term", term}});
}

// Calls the action as soon as an approval dialog is shown.
class DialogAnswer : public QObject
{
public:
    explicit DialogAnswer(std::function<void(ApprovalDialog *)> action)
        : m_action(std::move(action))
    {
        qApp->installEventFilter(this);
    }

    int count = 0;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *dialog = qobject_cast<ApprovalDialog *>(watched);
        if (dialog && event->type() == QEvent::Show) {
            ++count;
            QTimer::singleShot(0, dialog, [this, dialog] { m_action(dialog); });
        }
        return false;
    }

private:
    const std::function<void(ApprovalDialog *)> m_action;
};

} // namespace

class TestGlossaryPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pageHasItsLayoutAndTexts();
    void emptyQuestionDoesNothing();
    void runOffersAllToolsUnderTheSystemPrompt();
    void runLooksTermsUpAndStreamsTheAnswer();
    void tracesOfEarlierRunsStay();
    void failureIsAppended();
    void fourRequestsAreTheLimit();
    void stopHaltsAtOnce();
    void runningAgainReplacesTheExecutor();
    void glossaryIsRegisteredOnce();
    void deletedModelAndRegistryAreReported();
    void toolThatNeedsApprovalAsks_data();
    void toolThatNeedsApprovalAsks();
    void pageMayDieWhileTheDialogIsOpen();
    void answerOfAStoppedRunIsDropped();
    void mockModelAnswersTheDefaultQuestion();
    void mockModelAsksForTheExport_data();
    void mockModelAsksForTheExport();

private:
    AgentExecutor *executor() const { return m_page->findChild<AgentExecutor *>(); }
    QString areaTitle(const QString &editor) const
    {
        return qobject_cast<QGroupBox *>(m_driver->editor(editor)->parentWidget())->title();
    }
    QString answer() const { return m_driver->output(); }
    QString traces() const { return m_driver->text("traceOutput"); }
    void addRiskyTool(int *calls);

    std::unique_ptr<MockChatModel> m_mock;
    std::unique_ptr<HeldModel> m_model;
    std::unique_ptr<ToolRegistry> m_registry;
    QPointer<GlossaryPage> m_page;
    std::unique_ptr<PageDriver> m_driver;
    ChatModel *m_activeModel = nullptr;
};

void TestGlossaryPage::init()
{
    m_mock = std::make_unique<MockChatModel>();
    m_model = std::make_unique<HeldModel>();
    m_registry = std::make_unique<ToolRegistry>();
    m_activeModel = m_model.get();
    m_page = new GlossaryPage([this] { return m_activeModel; }, [this] { return m_registry.get(); });
    m_driver = std::make_unique<PageDriver>(m_page);
}

void TestGlossaryPage::cleanup()
{
    delete m_page;
    m_driver.reset();
    m_registry.reset();
    m_model.reset();
    m_mock.reset();
}

void TestGlossaryPage::addRiskyTool(int *calls)
{
    m_registry->registerTool(
        new FunctionTool("export_report", "", {}, ToolPermission::FileSystem, [calls](const QJsonObject &) {
            ++*calls;
            return ToolResult{true, {}, "exported", {}, {}};
        }));
}

void TestGlossaryPage::pageHasItsLayoutAndTexts()
{
    QCOMPARE(areaTitle("pageInput"), QStringLiteral("AI 工具调用"));
    QCOMPARE(areaTitle("pageOutput"), QStringLiteral("AI 最终回答"));
    QCOMPARE(areaTitle("traceOutput"), QStringLiteral("工具调用轨迹"));
    QCOMPARE(m_page->findChild<QLabel *>()->text(), QStringLiteral("用户问题"));
    QCOMPARE(m_driver->text("pageInput"),
             QStringLiteral("请解释 Orvane Workflow 和 Chain 的区别，并说明什么时候需要工具调用。"));
    QCOMPARE(m_driver->editor("pageInput")->minimumSize(), QSize(340, 180));
    QCOMPARE(m_driver->button("runButton")->text(), QStringLiteral("让 AI 调用工具"));
    QCOMPARE(m_driver->button("stopButton")->text(), QStringLiteral("停止"));
    const auto *outputs = m_page->findChild<QSplitter *>();
    QCOMPARE(outputs->orientation(), Qt::Vertical);
    QCOMPARE(outputs->widget(0)->findChild<QPlainTextEdit *>(), m_driver->editor("pageOutput"));
    QCOMPARE(outputs->widget(0)->sizePolicy().verticalStretch(), 2);
    QCOMPARE(outputs->widget(1)->findChild<QPlainTextEdit *>(), m_driver->editor("traceOutput"));
    QCOMPARE(outputs->widget(1)->sizePolicy().verticalStretch(), 1);
    QVERIFY(m_driver->isIdle());
}

void TestGlossaryPage::emptyQuestionDoesNothing()
{
    m_driver->type(" \n ");
    m_driver->run();
    QVERIFY(!executor());
    QVERIFY(m_driver->isIdle());
    QCOMPARE(answer(), QString());
}

void TestGlossaryPage::runOffersAllToolsUnderTheSystemPrompt()
{
    int calls = 0;
    addRiskyTool(&calls);
    m_driver->type("  什么是 RAG？ ");
    m_driver->run();
    QCOMPARE(answer(), thinking);
    QVERIFY(!m_driver->button("runButton")->isEnabled());
    QVERIFY(m_driver->button("stopButton")->isEnabled());
    const HeldModel::Call &call = m_model->lastCall();
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(call.messages.at(0).role, QStringLiteral("system"));
    QCOMPARE(call.messages.at(0).content,
             QStringLiteral(
                 "You are an Orvane demo assistant. Use the lookup_term tool when the question needs local "
                 "glossary knowledge. After tools return, answer in Chinese and mention which terms were "
                 "looked up."));
    QCOMPARE(call.messages.at(1).content, QStringLiteral("什么是 RAG？"));
    QCOMPARE(call.tools.size(), 2);
    QCOMPARE(call.tools.at(0).name, QStringLiteral("export_report"));
    QCOMPARE(call.tools.at(1).name, QStringLiteral("lookup_term"));
}

void TestGlossaryPage::runLooksTermsUpAndStreamsTheAnswer()
{
    m_model->addToolCalls({lookUp("c1", "RAG"), lookUp("c2", "unknown")});
    m_model->addText({"查到 ", "RAG。"});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(answer(), thinking + "查到 RAG。");
    const QStringList parts = traces().split("\n---\n");
    QCOMPARE(parts.size(), 2);
    QVERIFY(parts.at(0).startsWith("Tool: lookup_term\nStatus: success\n"));
    QVERIFY(parts.at(0).endsWith("Input:\n{\n    \"term\": \"RAG\"\n}\n\nOutput:\nRAG "
                                 "会先检索相关知识，再把知识作为上下文交给模型回答。\n"));
    QVERIFY(parts.at(1).endsWith("Output:\n没有找到本地术语说明。\n"));
}

void TestGlossaryPage::tracesOfEarlierRunsStay()
{
    m_model->addToolCalls({lookUp("c1", "RAG")});
    m_model->addText({"x"});
    m_model->addToolCalls({lookUp("c2", "Chain")});
    m_model->addText({"y"});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    const QString first = traces();
    QVERIFY(first.startsWith("Tool: lookup_term\n"));

    m_driver->run();
    QCOMPARE(traces(), first);
    QCOMPARE(answer(), thinking);
    QTRY_VERIFY(m_driver->isIdle());

    QCOMPARE(answer(), thinking + "y");
    QVERIFY2(traces().startsWith(first + "\n---\nTool: lookup_term\n"), qPrintable(traces()));
    QVERIFY(traces().contains("\"term\": \"Chain\""));
}

void TestGlossaryPage::failureIsAppended()
{
    m_driver->run();
    m_model->lastCall().reply->appendDelta("half");
    m_model->lastCall().reply->fail("no %1");
    QCOMPARE(answer(), thinking + "half\n错误：no %1");
    QVERIFY(m_driver->isIdle());
}

void TestGlossaryPage::fourRequestsAreTheLimit()
{
    for (int i = 0; i < 5; ++i)
        m_model->addToolCalls({lookUp("c", "RAG")});
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(m_model->calls().size(), 4);
    QCOMPARE(answer(), thinking + "\n错误：Agent exceeded max iterations.");
}

void TestGlossaryPage::stopHaltsAtOnce()
{
    m_driver->run();
    const QPointer<ChatReply> reply = m_model->lastCall().reply;
    reply->appendDelta("half");
    m_driver->click("stopButton");
    QVERIFY(reply->isCanceled());
    QVERIFY(m_driver->isIdle());
    reply->appendDelta("late");
    QCOMPARE(answer(), thinking + "half");
}

void TestGlossaryPage::runningAgainReplacesTheExecutor()
{
    m_driver->run();
    const QPointer<AgentExecutor> first(executor());
    const QPointer<ChatReply> reply = m_model->lastCall().reply;
    m_driver->button("runButton")->setEnabled(true);
    m_driver->run();
    QVERIFY(reply->isCanceled());
    QTRY_VERIFY(!first);
    QVERIFY(executor());
    m_model->lastCall().reply->appendDelta("new");
    QCOMPARE(answer(), thinking + "new");
}

void TestGlossaryPage::glossaryIsRegisteredOnce()
{
    m_driver->run();
    const AgentTool *tool = m_registry->tool("lookup_term");
    m_driver->click("stopButton");
    m_driver->run();
    QCOMPARE(m_registry->tool("lookup_term"), tool);
    QCOMPARE(m_registry->findChildren<AgentTool *>().size(), 1);
}

void TestGlossaryPage::deletedModelAndRegistryAreReported()
{
    m_activeModel = nullptr;
    m_registry.reset();
    m_driver->run();
    QVERIFY(m_driver->isIdle());
    QCOMPARE(answer(), thinking + "\n错误：智能体模型尚未配置。");
}

void TestGlossaryPage::toolThatNeedsApprovalAsks_data()
{
    QTest::addColumn<bool>("allowed");
    QTest::newRow("allowed") << true;
    QTest::newRow("denied") << false;
}

void TestGlossaryPage::toolThatNeedsApprovalAsks()
{
    QFETCH(bool, allowed);
    int calls = 0;
    addRiskyTool(&calls);
    m_model->addToolCalls({makeToolCall("c1", "export_report", {})});
    m_model->addText({"done"});
    DialogAnswer answers([allowed](ApprovalDialog *dialog) { dialog->done(allowed ? 1 : 0); });
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(answers.count, 1);
    QCOMPARE(calls, allowed ? 1 : 0);
    QCOMPARE(answer(), allowed ? thinking + "done" : thinking);
    QVERIFY(traces().contains(allowed ? "Status: success" : "Status: denied"));
    QCOMPARE(m_model->calls().size(), allowed ? 2 : 1);
}

void TestGlossaryPage::pageMayDieWhileTheDialogIsOpen()
{
    int calls = 0;
    addRiskyTool(&calls);
    m_model->addToolCalls({makeToolCall("c1", "export_report", {})});
    DialogAnswer answers([this](ApprovalDialog *) { delete m_page; });
    m_driver->run();
    QTRY_VERIFY(!m_page);
    QCOMPARE(calls, 0);
}

void TestGlossaryPage::answerOfAStoppedRunIsDropped()
{
    int calls = 0;
    addRiskyTool(&calls);
    const QJsonObject call = makeToolCall("same", "export_report", {});
    m_model->addToolCalls({call});
    m_model->addToolCalls({call});
    m_model->addText({"done"});
    int dialogs = 0;
    DialogAnswer answers([&](ApprovalDialog *dialog) {
        if (++dialogs == 1) {
            m_driver->click("stopButton");
            QTRY_VERIFY(!dialog->isVisible());
            m_driver->run();
        }
        dialog->accept(); // too late for the first run, in time for the second
    });
    m_driver->run();
    QTRY_COMPARE(answer(), thinking + "done");
    QVERIFY(m_driver->isIdle());
    QCOMPARE(dialogs, 2);
    QCOMPARE(calls, 1);
    QCOMPARE(m_model->calls().size(), 3);
}

void TestGlossaryPage::mockModelAnswersTheDefaultQuestion()
{
    m_activeModel = m_mock.get();
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QVERIFY(answer().startsWith(thinking + "Orvane 模拟模型正在本地运行。"));
    QCOMPARE(traces(), QString());
}

void TestGlossaryPage::mockModelAsksForTheExport_data()
{
    toolThatNeedsApprovalAsks_data();
}

void TestGlossaryPage::mockModelAsksForTheExport()
{
    QFETCH(bool, allowed);
    int calls = 0;
    addRiskyTool(&calls);
    m_activeModel = m_mock.get();
    m_driver->type("导出报告");
    DialogAnswer answers([allowed](ApprovalDialog *dialog) { dialog->done(allowed ? 1 : 0); });
    m_driver->run();
    QTRY_VERIFY(m_driver->isIdle());
    QCOMPARE(calls, allowed ? 1 : 0);
    QCOMPARE(answer(),
             allowed ? thinking + "工具调用已完成，结果如下：\n- export_report: exported " : thinking);
}

QTEST_MAIN(TestGlossaryPage)
#include "tst_glossarypage.moc"
